#include "record/convert.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string_view>

#include "monitor/decode.h"
#include "monitor/printer.h"
#include "record/format.h"
#include "record/output.h"
#include "record/reader.h"

namespace quorvel::cm {
namespace {

// As the monitor prints it.
class Text : public RecordFormat {
  public:
    std::string opening(const nlohmann::json& begin) override { return entry(make_note(begin).passing()); }
    std::string entry(const Passing& passing) override {
        RecordEntry entry;
        entry.kept = {passing.number,
                      passing.time,
                      passing.client,
                      passing.kind,
                      {passing.head.begin(), passing.head.end()},
                      {}};
        return text_of(described(entry), false) + "\n";
    }
};

std::unique_ptr<RecordFormat> format_for(const std::string& file) {
    for (const std::string_view lines : {".pcapng", ".jsonl", ".json"})
        if (file.ends_with(lines))
            return make_format(file, true);
    if (file.ends_with(".txt"))
        return std::make_unique<Text>();
    throw RecordError(file + ": its name must end in .pcapng, .jsonl or .txt, which says what it becomes");
}

bool wanted(const RecordEntry& entry, uint32_t client) {
    return client == 0 || entry.kept.client == client ||
           (entry.kept.kind == PassingKind::kNote && entry.kept.client == 0);
}

void convert(const std::string& from, const std::string& to, uint32_t client) {
    const auto format = format_for(to);
    const Record record = read_record(from);
    OutputFile out(to);
    nlohmann::json begin = record.begin;
    if (begin.empty())
        begin = {{"note", "begin"}, {"format", 1}, {"secrets", "kept"}};
    if (client != 0)
        begin["client"] = client;
    begin["time"] = static_cast<double>(record.entries.front().kept.time) / 1000.0;
    begin.erase("part");
    out.write(format->opening(begin));
    size_t messages = 0;
    for (const RecordEntry& entry : record.entries) {
        if (&entry == &record.entries.front() && entry.is_note("begin"))
            continue;
        if (!wanted(entry, client))
            continue;
        out.write(format->entry(entry.kept.passing()));
        messages += entry.kept.kind == PassingKind::kNote ? 0 : 1;
    }
    out.close();
    std::printf("%s: %zu messages", to.c_str(), messages);
    if (record.lost() > 0)
        std::printf("; the record has lost %llu entries, which it says where they are missing",
                    static_cast<unsigned long long>(record.lost()));
    std::printf("\n");
}

}  // namespace

void add_convert(CLI::App& app) {
    struct Choice {
        std::string from;
        std::string to;
        uint32_t client = 0;
    };
    CLI::App* command = app.add_subcommand("convert", "Make another format of a record");
    const auto choice = std::make_shared<Choice>();
    command->add_option("record", choice->from, "The record; files that it had before are beside it")
        ->required()
        ->type_name("RECORD");
    command
        ->add_option("to", choice->to,
                     "What it becomes: *.pcapng, *.jsonl with every field by name, or *.txt")
        ->required()
        ->type_name("FILE");
    command->add_option("--client", choice->client, "Only this client")->type_name("NUMBER");
    command->footer("A file that is there already is left alone.");
    command->callback([choice] { convert(choice->from, choice->to, choice->client); });
}

}  // namespace quorvel::cm
