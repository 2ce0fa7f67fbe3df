#include "config/limits.h"

namespace quorvel::cm {
namespace {

constexpr size_t kMiB = size_t{1024} * 1024;

void read_size(ConfigTable& table, const char* key, size_t& size) {
    if (const auto given = table.number(key, 1, 1024 * 1024))
        size = static_cast<size_t>(*given) * kMiB;
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
    if (const auto given = table.number("unregistered-time", 10, 600000))
        limits.unregistered_time = std::chrono::milliseconds(*given);
    read_size(table, "memory", limits.memory.of_user);
    read_size(table, "memory-in-all", limits.memory.in_all);
    return limits;
}

}  // namespace quorvel::cm
