#include "log.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace quorvel::cm::log {
namespace {

struct Name {
    std::string_view text;
    int priority;  // as the journal counts
};
constexpr std::array<Name, 4> kNames{{{"error", 3}, {"warning", 4}, {"info", 6}, {"debug", 7}}};

Level g_level = Level::kInfo;

const Name& name(Level level) {
    return kNames.at(static_cast<size_t>(level));
}

std::string clock_text() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    std::array<char, 32> day{};
    std::strftime(day.data(), day.size(), "%H:%M:%S", &parts);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%s.%03ld", day.data(), now.tv_nsec / 1000000);
    return text.data();
}

// The journal has its own clock, and takes the level from a prefix.
std::string prefix(Level level) {
    static const bool in_journal = std::getenv("JOURNAL_STREAM") != nullptr && isatty(STDERR_FILENO) == 0;
    if (in_journal)
        return "<" + std::to_string(name(level).priority) + ">";
    return clock_text() + " " + std::string(name(level).text) + ": ";
}

}  // namespace

void set_level(Level level) {
    g_level = level;
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

void write(Level level, const std::string& text) {
    const std::string out = prefix(level) + text + "\n";
    std::fwrite(out.data(), 1, out.size(), stderr);
}

}  // namespace quorvel::cm::log
