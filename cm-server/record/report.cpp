#include "record/report.h"

#include <cstdio>
#include <memory>

#include "monitor/decode.h"
#include "record/output.h"
#include "record/report_page.h"
#include "record/story.h"

namespace quorvel::cm {
namespace {

constexpr std::string_view kPlace = "/*DATA*/";

// As it may stand within a script: nothing in it ends the script.
std::string for_a_script(const nlohmann::json& data) {
    std::string text;
    for (const char c : to_line(data))
        text += c == '<' ? "\\u003c" : std::string(1, c);
    return text;
}

void report(const std::string& from, const std::string& to) {
    const nlohmann::json story = story_of(read_record(from));
    std::string page = kReportPage;
    page.replace(page.find(kPlace), kPlace.size(), for_a_script(story));
    OutputFile out(to);
    out.write(page);
    out.close();
    std::printf("%s: %zu clients, %zu calls, %zu requests, %zu problems\n", to.c_str(),
                story.at("clients").size(), story.at("calls").size(),
                story.at("counts").at("requests").get<size_t>(), story.at("problems").size());
}

}  // namespace

void add_report(CLI::App& app) {
    struct Choice {
        std::string from;
        std::string html;
    };
    CLI::App* command = app.add_subcommand("report", "Make a page of a record, to look at in a browser");
    const auto choice = std::make_shared<Choice>();
    command->add_option("record", choice->from, "The record; files that it had before are beside it")
        ->required()
        ->type_name("RECORD");
    command->add_option("--html", choice->html, "The page, one file that needs nothing else")
        ->required()
        ->type_name("FILE");
    command->footer(
        "It shows every client and call on a time-line, what went wrong first, and all requests with their "
        "latency. A file that is there already is left alone.");
    command->callback([choice] { report(choice->from, choice->html); });
}

}  // namespace quorvel::cm
