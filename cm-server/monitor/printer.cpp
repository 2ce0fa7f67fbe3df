#include "monitor/printer.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <sstream>

#include "command-line/UtcTime.h"
#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

std::string clock_text(double milliseconds) {
    const std::chrono::milliseconds since_1970(static_cast<int64_t>(milliseconds));
    return command_line::utc_time(std::chrono::system_clock::time_point(since_1970));
}

const char* colour_of(const std::string& direction) {
    if (direction == "request")
        return "\x1b[36m";
    return direction == "answer" ? "\x1b[32m" : "\x1b[33m";
}

const char* arrow_of(const std::string& direction) {
    if (direction == "request")
        return "-->";
    return direction == "answer" ? "<--" : "<==";
}

std::string fields_text(const json& fields) {
    std::string text;
    for (const auto& [key, value] : fields.items())
        text += " " + key + "=" + (value.is_string() ? value.get<std::string>() : to_line(value));
    return text;
}

std::string client_text(uint32_t client) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%3u", client);
    return text.data();
}

std::string note_text(const json& note) {
    json fields = note;
    for (const char* key : {"note", "time", "number", "client"})
        fields.erase(key);
    // When the server has started, in microseconds.
    if (fields.contains("started") && fields["started"].is_number())
        fields["started"] = clock_text(fields["started"].get<double>() / 1000.0);
    return client_text(note.value("client", 0U)) + " *** " + note.at("note").get<std::string>() +
           fields_text(fields);
}

std::string message_text(const json& passing) {
    return client_text(passing.at("client")) + " " + arrow_of(passing.at("direction")) + " " +
           passing.at("name").get<std::string>() + fields_text(passing.at("fields"));
}

}  // namespace

bool concerns(const json& line, uint32_t client) {
    const uint32_t about = line.value("client", 0U);
    return client == 0 || about == client || (line.contains("note") && about == 0);
}

std::string text_of(const json& passing, bool coloured) {
    const bool note = passing.contains("note");
    std::string text = clock_text(passing.at("time").get<double>()) + " ";
    if (coloured && !note)
        text += colour_of(passing.at("direction"));
    text += note ? note_text(passing) : message_text(passing);
    return coloured && !note ? text + "\x1b[0m" : text;
}

Printer::Printer(Show show) : show_(show), coloured_(isatty(STDOUT_FILENO) == 1) {}

void Printer::print(const std::string& lines) const {
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);)
        print_one(json::parse(line));
    std::fflush(stdout);
}

// The fields have their secrets masked; the bytes beside them hold everything.
void Printer::print_one(const json& line) const {
    if (!concerns(line, show_.client))
        return;
    json passing = line.contains("note") ? line : decoded(line);
    if (!show_.as_json) {
        std::printf("%s\n", text_of(passing, coloured_).c_str());
        return;
    }
    passing.erase("secrets");
    if (!show_.secrets)
        passing.erase("bytes");
    std::printf("%s\n", to_line(passing).c_str());
}

}  // namespace quorvel::cm
