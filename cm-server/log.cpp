#include "log.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "log_sink.h"

namespace quorvel::cm::log {
namespace {

struct Name {
    std::string_view text;
    int priority;  // as the journal counts
};
constexpr std::array<Name, 4> kNames{{{"error", 3}, {"warning", 4}, {"info", 6}, {"debug", 7}}};

Level g_level = Level::kInfo;
Format g_format = Format::kText;
std::function<void()> g_when_waiting;

Sink& sink() {
    static Sink the_one;
    return the_one;
}

const Name& name(Level level) {
    return kNames.at(static_cast<size_t>(level));
}

timespec now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return time;
}

std::string with_milliseconds(const char* text, const timespec& time) {
    std::array<char, 48> result{};
    std::snprintf(result.data(), result.size(), "%s.%03ld", text, time.tv_nsec / 1000000);
    return result.data();
}

std::string utc() {
    const timespec time = now();
    tm parts{};
    gmtime_r(&time.tv_sec, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%FT%T", &parts);
    return with_milliseconds(text.data(), time) + "Z";
}

bool in_journal() {
    static const bool result = std::getenv("JOURNAL_STREAM") != nullptr && isatty(STDERR_FILENO) == 0;
    return result;
}

// A name that a client has chosen must not look like another line, or tell a terminal something.
std::string printable(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        std::array<char, 8> code{};
        if (byte < 0x20 || byte == 0x7f)
            std::snprintf(code.data(), code.size(), "\\x%02x", byte);
        result += code[0] == '\0' ? std::string(1, c) : code.data();
    }
    return result;
}

std::string text_line(Level level, const std::string& text) {
    // The journal has its own clock.
    if (in_journal())
        return printable(text);
    return utc() + " " + std::string(name(level).text) + ": " + printable(text);
}

std::string json_line(Level level, const std::string& text, const std::vector<Field>& fields) {
    nlohmann::ordered_json line{{"time", utc()}, {"level", name(level).text}, {"message", text}};
    for (const Field& field : fields)
        line[field.name] = field.value;
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void when_waiting(std::function<void()> action) {
    g_when_waiting = std::move(action);
}

void try_again() noexcept {
    sink().try_again();
    if (sink().waiting() && g_when_waiting)
        g_when_waiting();
}

void finish() noexcept {
    sink().finish();
}

void set_level(Level level) {
    g_level = level;
}

void set_format(Format format) {
    g_format = format;
}

Level level() {
    return g_level;
}

Level level_from_name(std::string_view text) {
    for (size_t i = 0; i < kNames.size(); ++i)
        if (kNames[i].text == text)
            return static_cast<Level>(i);
    throw std::invalid_argument("unknown log level \"" + std::string(text) + "\"");
}

bool Sparing::due() {
    const auto now = std::chrono::steady_clock::now();
    if (last_ != std::chrono::steady_clock::time_point{} && now - last_ < std::chrono::seconds(1)) {
        ++left_out_;
        return false;
    }
    last_ = now;
    return true;
}

void write(Level level, const std::string& text, const std::vector<Field>& fields) {
    std::string out = in_journal() ? "<" + std::to_string(name(level).priority) + ">" : "";
    out += (g_format == Format::kJson ? json_line(level, text, fields) : text_line(level, text)) + "\n";
    const bool waited = sink().waiting();
    sink().write(out);
    if (!waited && sink().waiting() && g_when_waiting)
        g_when_waiting();
}

}  // namespace quorvel::cm::log
