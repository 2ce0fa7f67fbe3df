#include "config/limits.h"

#include <algorithm>
#include <cstdint>

namespace quorvel::cm {
namespace {

constexpr size_t kMiB = size_t{1024} * 1024;

void read_size(ConfigTable& table, const char* key, size_t& size) {
    constexpr uint64_t kTiB = uint64_t{kMiB} * 1024 * 1024;
    if (const auto given = table.size(key, kMiB, std::min<uint64_t>(kTiB, SIZE_MAX)))
        size = static_cast<size_t>(*given);
}

void read_count(ConfigTable& table, const char* key, size_t& count) {
    if (const auto given = table.number(key, 1, 1000000))
        count = static_cast<size_t>(*given);
}

}  // namespace

Limits read_limits(ConfigTable& table) {
    Limits limits;
    read_count(table, "connections", limits.connections);
    read_count(table, "registrations", limits.registrations);
    read_count(table, "unregistered", limits.unregistered);
    read_count(table, "profiles", limits.profiles);
    if (const auto given =
            table.duration("unregistered-time", std::chrono::milliseconds(10), std::chrono::minutes(10)))
        limits.unregistered_time = *given;
    read_size(table, "memory", limits.memory.of_user);
    read_size(table, "memory-in-all", limits.memory.in_all);
    return limits;
}

}  // namespace quorvel::cm
