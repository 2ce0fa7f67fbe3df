// What the server tells its operator: one line per event, on standard error, whatever clients put into it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvel::cm::log {

enum class Level { kError, kWarning, kInfo, kDebug };

// Lines above this level are not written.
void set_level(Level level);
Level level();

// The level of a name ("error", "warning", "info", "debug"); throws std::invalid_argument for any other.
Level level_from_name(std::string_view name);

// Text for a reader, or one JSON object per line, with the fields of what the line is about.
enum class Format { kText, kJson };
void set_format(Format format);

struct Field {
    const char* name;
    int64_t value;
};

// A part of a line that a machine may ask for.
struct Subject {
    std::string text;
    std::vector<Field> fields;
};
inline std::ostream& operator<<(std::ostream& out, const Subject& subject) {
    return out << subject.text;
}
inline Subject field(const char* name, int64_t value) {
    return {std::to_string(value), {{name, value}}};
}

void write(Level level, const std::string& text, const std::vector<Field>& fields);

// Writing never waits: who is to try again a little later is called while lines wait that nobody reads.
void when_waiting(std::function<void()> action);
void try_again() noexcept;
// Before the end, gives a reader a little time.
void finish() noexcept;

inline void collect(std::vector<Field>& fields, const Subject& part) {
    fields.insert(fields.end(), part.fields.begin(), part.fields.end());
}
template <class Part>
void collect(std::vector<Field>&, const Part&) {}

template <class... Parts>
void line(Level wanted, const Parts&... parts) noexcept {
    if (wanted > level())
        return;
    try {
        std::ostringstream text;
        (text << ... << parts);
        std::vector<Field> fields;
        (collect(fields, parts), ...);
        write(wanted, text.str(), fields);
    } catch (const std::exception&) {
        // Whoever has something to say goes on, even when there is no memory to say it with.
    }
}

// For what may come in floods: a line a second at most, which says how many it stands for.
class Sparing {
  public:
    template <class... Parts>
    void warning(const Parts&... parts) {
        if (!due())
            return;
        const uint64_t more = std::exchange(left_out_, 0);
        if (more == 0)
            line(Level::kWarning, parts...);
        else
            line(Level::kWarning, parts..., " (and ", more, " more since the last such line)");
    }

  private:
    bool due();

    std::chrono::steady_clock::time_point last_{};
    uint64_t left_out_ = 0;
};

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
