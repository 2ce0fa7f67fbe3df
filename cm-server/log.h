// What the server tells its operator: one line per event, on standard error.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace quorvel::cm::log {

enum class Level { kError, kWarning, kInfo, kDebug };

// Lines above this level are not written.
void set_level(Level level);
Level level();

// The level of a name ("error", "warning", "info", "debug"); throws std::invalid_argument for any other.
Level level_from_name(std::string_view name);

void write(Level level, const std::string& text);

template <class... Parts>
void line(Level wanted, const Parts&... parts) {
    if (wanted > level())
        return;
    std::ostringstream text;
    (text << ... << parts);
    write(wanted, text.str());
}

template <class... Parts>
void error(const Parts&... parts) {
    line(Level::kError, parts...);
}
template <class... Parts>
void warning(const Parts&... parts) {
    line(Level::kWarning, parts...);
}
template <class... Parts>
void info(const Parts&... parts) {
    line(Level::kInfo, parts...);
}
template <class... Parts>
void debug(const Parts&... parts) {
    line(Level::kDebug, parts...);
}

}  // namespace quorvel::cm::log
