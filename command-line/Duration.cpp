#include "command-line/Duration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace quorvel::command_line {
namespace {

struct Unit {
    std::string_view name;
    double seconds;
};
constexpr std::array kUnits{Unit{"", 1},     Unit{"s", 1},    Unit{"ms", 0.001}, Unit{"m", 60},
                            Unit{"min", 60}, Unit{"h", 3600}, Unit{"d", 86400}};
constexpr double kThirtyYears = 1e9;

}  // namespace

std::optional<double> seconds_from(const std::string& text) {
    double number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const auto unit = std::ranges::find(kUnits, std::string_view(rest, end), &Unit::name);
    if (error != std::errc() || unit == kUnits.end() || !(number >= 0) ||
        number * unit->seconds > kThirtyYears) {
        return std::nullopt;
    }
    return number * unit->seconds;
}

CLI::Validator duration() {
    const auto convert = [](std::string& text) {
        const auto seconds = seconds_from(text);
        if (!seconds) {
            return "\"" + text + "\" is no time; it is a number with ms, s, m, h or d: 90s, 1.5h";
        }
        text = std::to_string(*seconds);
        return std::string();
    };
    return {convert, "", "duration"};
}

}  // namespace quorvel::command_line
