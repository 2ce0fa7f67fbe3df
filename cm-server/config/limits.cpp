#include "config/limits.h"

namespace quorvel::cm {
namespace {

constexpr size_t kMiB = size_t{1024} * 1024;

void read_size(ConfigTable& table, const char* key, size_t& size) {
    if (const auto given = table.number(key, 1, 1024 * 1024))
        size = static_cast<size_t>(*given) * kMiB;
}

}  // namespace

Limits read_limits(ConfigTable& table) {
    Limits limits;
    read_size(table, "memory", limits.memory.of_user);
    read_size(table, "memory-in-all", limits.memory.in_all);
    return limits;
}

}  // namespace quorvel::cm
