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
constexpr std::array kUnits{Unit{"s", 1},    Unit{"ms", 0.001}, Unit{"m", 60},
                            Unit{"min", 60}, Unit{"h", 3600},   Unit{"d", 86400}};
constexpr double kThirtyYears = 1e9;

std::optional<double> seconds_from(const std::string& text, std::string_view without_unit) {
    double number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string_view name = rest == end ? without_unit : std::string_view(rest, end);
    const auto unit = std::ranges::find(kUnits, name, &Unit::name);
    if (error != std::errc() || unit == kUnits.end() || !(number >= 0) ||
        number * unit->seconds > kThirtyYears) {
        return std::nullopt;
    }
    return number * unit->seconds;
}

std::string no_time(const std::string& text) {
    return "\"" + text + "\" is no time; it is " + kTimesLookLike;
}

}  // namespace

std::optional<double> seconds_from(const std::string& text) {
    return seconds_from(text, "s");
}

std::optional<std::chrono::milliseconds> milliseconds_from(const std::string& text) {
    const auto seconds = seconds_from(text, "ms");
    if (!seconds) {
        return std::nullopt;
    }
    return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(*seconds));
}

CLI::Validator duration() {
    const auto convert = [](std::string& text) {
        const auto seconds = seconds_from(text);
        if (!seconds) {
            return no_time(text);
        }
        text = std::to_string(*seconds);
        return std::string();
    };
    return {convert, "", "duration"};
}

CLI::Validator duration_in_milliseconds() {
    const auto convert = [](std::string& text) {
        const auto time = milliseconds_from(text);
        if (!time) {
            return no_time(text);
        }
        text = std::to_string(time->count());
        return std::string();
    };
    return {convert, "", "duration"};
}

}  // namespace quorvel::command_line
