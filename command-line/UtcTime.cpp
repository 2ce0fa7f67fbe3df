#include "command-line/UtcTime.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace quorvel::command_line {

std::string utc_time(std::chrono::system_clock::time_point time) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
    const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
    std::tm parts{};
    gmtime_r(&whole, &parts);
    std::array<char, 48> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%FT%T", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                  static_cast<int>((milliseconds - seconds).count()));
    return text.data();
}

}  // namespace quorvel::command_line
