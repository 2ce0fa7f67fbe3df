#include "Units.h"

#include <array>
#include <cstdio>

namespace quorvel::netcm {

std::string size_text(double bytes) {
    constexpr std::array<const char*, 4> kUnits{"B", "kB", "MB", "GB"};
    constexpr double kThousand = 1000;
    size_t unit = 0;
    for (; bytes >= kThousand && unit + 1 < kUnits.size(); ++unit) {
        bytes /= kThousand;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits.at(unit));
    return text.data();
}

std::string rate_text(double bytes_per_second) {
    return size_text(bytes_per_second) + "/s";
}

std::string count_text(double per_second) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.0f/s", per_second);
    return text.data();
}

}  // namespace quorvel::netcm
