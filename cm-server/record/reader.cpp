#include "record/reader.h"

#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "monitor/decode.h"
#include "record/pcapng.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

json lost_note(uint64_t count, uint64_t from, uint64_t to, const std::string& why) {
    return {{"note", "lost"}, {"count", count}, {"from", from}, {"to", to}, {"why", why}};
}

RecordEntry note_at(int64_t time, const json& note) {
    RecordEntry entry;
    entry.kept = make_note(note);
    entry.kept.time = time;
    entry.note = note;
    return entry;
}

RecordEntry entry_of(Kept kept) {
    RecordEntry entry;
    if (kept.kind == PassingKind::kNote) {
        entry.note = json::parse(kept.bytes.begin(), kept.bytes.end(), nullptr, true);
        // It stands beside, in the order of its writing.
        entry.note.erase("time");
    }
    entry.kept = std::move(kept);
    return entry;
}

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw RecordError(path + ": cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<RecordEntry> read_lines(const std::string& path, std::string_view text, size_t& cut) {
    std::vector<RecordEntry> entries;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            if (entries.empty())
                throw RecordError(path + ": is no record");
            cut = text.size();
            break;
        }
        try {
            entries.push_back(entry_of(kept_of(json::parse(text.substr(0, end)))));
        } catch (const std::exception& error) {
            throw RecordError(path + ":" + std::to_string(number) +
                              ": is no entry of a record: " + error.what());
        }
        text.remove_prefix(end + 1);
    }
    return entries;
}

struct RecordPart {
    std::vector<RecordEntry> entries;
    json begin = json::object();
};

RecordPart read_part(const std::string& path) {
    const std::string text = content_of(path);
    const auto bytes = std::as_bytes(std::span(text));
    size_t cut = 0;
    RecordPart part;
    if (is_pcapng(bytes))
        for (Kept& kept : read_pcapng(path, bytes, cut))
            part.entries.push_back(entry_of(std::move(kept)));
    else
        part.entries = read_lines(path, text, cut);
    if (!part.entries.empty() && part.entries.front().is_note("begin"))
        part.begin = part.entries.front().note;
    if (cut > 0) {
        const int64_t time = part.entries.empty() ? 0 : part.entries.back().kept.time;
        part.entries.push_back(note_at(time, lost_note(1, 0, 0, path + " ends within an entry")));
    }
    return part;
}

// NAME.1 behind NAME, NAME.2 behind NAME.1.
std::string name_before(const std::string& path) {
    const size_t dot = path.rfind('.');
    unsigned number = 0;
    if (dot != std::string::npos) {
        const char* end = path.data() + path.size();
        const auto parsed = std::from_chars(path.data() + dot + 1, end, number);
        if (parsed.ec == std::errc() && parsed.ptr == end && dot + 1 < path.size())
            return path.substr(0, dot + 1) + std::to_string(number + 1);
    }
    return path + ".1";
}

bool can_be_read(const std::string& path) {
    return std::ifstream(path).good();
}

std::optional<RecordPart> part_before(const RecordPart& part, const std::string& path) {
    const auto number = part.begin.value("part", 1U);
    if (number <= 1 || !can_be_read(path))
        return std::nullopt;
    RecordPart before = read_part(path);
    if (before.begin.value("record", "") != part.begin.value("record", "") ||
        before.begin.value("part", 0U) + 1 != number)
        return std::nullopt;
    return before;
}

// Goes through the entries as they come, and finds what is not there.
class Check {
  public:
    explicit Check(Record& record) : record_(record) {}

    void take(RecordEntry entry) {
        if (entry.is_note("begin") || entry.is_note("server"))
            meet(entry.note);
        if (entry.is_note("lost"))
            expected_ = std::max(expected_, entry.note.value("to", uint64_t{0}) + 1);
        else if (entry.kept.number > 0)
            count(entry);
        entry.server = server_;
        record_.entries.push_back(std::move(entry));
    }

  private:
    void meet(const json& note) {
        // Of one client alone, the numbers have gaps.
        counted_ = counted_ && !note.contains("client");
        if (!note.contains("started"))
            return;
        const std::string name = note["started"].dump() + " " + note.value("process", json()).dump();
        if (!name_.empty() && name != name_) {
            ++server_;
            expected_ = 0;
        }
        // A recorder of the server's own is there from its first entry on.
        if (name_ != name && note.value("note", "") == "begin" && note.value("part", 0U) == 1)
            expected_ = 1;
        name_ = name;
    }

    void count(const RecordEntry& entry) {
        const uint64_t number = entry.kept.number;
        if (counted_ && expected_ > 0 && number > expected_) {
            RecordEntry gap = note_at(entry.kept.time, lost_note(number - expected_, expected_, number - 1,
                                                                 "it is not in the record"));
            gap.server = server_;
            record_.entries.push_back(std::move(gap));
        }
        expected_ = number + 1;
    }

    Record& record_;
    std::string name_;
    uint32_t server_ = 0;
    uint64_t expected_ = 0;
    bool counted_ = true;
};

}  // namespace

bool RecordEntry::is_note(const std::string& kind) const {
    return note.is_object() && note.value("note", "") == kind;
}

uint64_t Record::lost() const {
    uint64_t count = 0;
    for (const RecordEntry& entry : entries)
        if (entry.is_note("lost"))
            count += entry.note.value("count", uint64_t{0});
    return count;
}

Record read_record(const std::string& path) {
    std::vector<RecordPart> parts{read_part(path)};
    Record record;
    record.files = {path};
    for (std::string before = name_before(path);; before = name_before(before)) {
        auto part = part_before(parts.back(), before);
        if (!part)
            break;
        parts.push_back(std::move(*part));
        record.files.insert(record.files.begin(), before);
    }
    const json newest = parts.front().begin;
    record.begin = parts.back().begin;
    Check check(record);
    for (auto part = parts.rbegin(); part != parts.rend(); ++part)
        for (RecordEntry& entry : part->entries) {
            const bool first = record.entries.empty();
            const int64_t time = entry.kept.time;
            check.take(std::move(entry));
            if (!first || !newest.contains("dropped"))
                continue;
            const json& dropped = newest["dropped"];
            check.take(note_at(time, lost_note(dropped.at("count"), dropped.at("from"), dropped.at("to"),
                                               "the oldest files have made room for newer ones")));
        }
    if (record.entries.empty())
        throw RecordError(path + ": there is nothing in it");
    return record;
}

json described(const RecordEntry& entry) {
    std::string line;
    append_line(line, entry.kept.passing());
    const json passing = json::parse(line);
    return entry.kept.kind == PassingKind::kNote ? passing : decoded(passing);
}

}  // namespace quorvel::cm
