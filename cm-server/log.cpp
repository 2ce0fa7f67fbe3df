#include "log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "command-line/UtcTime.h"
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

std::string now() {
    return command_line::utc_time(std::chrono::system_clock::now());
}

// The variable names the journal's stream by its device and inode; it is passed on to programs whose standard
// error is somewhere else by then.
bool is_the_journal(int fd) {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat found {};
    return stream != nullptr && fstat(fd, &found) == 0 &&
           stream == std::to_string(found.st_dev) + ":" + std::to_string(found.st_ino);
}

bool in_journal() {
    static const bool result = is_the_journal(STDERR_FILENO);
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
    return now() + " " + std::string(name(level).text) + ": " + printable(text);
}

std::string json_line(Level level, const std::string& text, const std::vector<Field>& fields) {
    nlohmann::ordered_json line{{"time", now()}, {"level", name(level).text}, {"message", text}};
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
