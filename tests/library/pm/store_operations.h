// Every operation on the profile store, called with good arguments, and what belongs to it.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "library/pm/pm_test.h"

namespace quorvel::test {

inline constexpr int32_t kAskedProfile = 5;      // that the requests name
inline constexpr int32_t kAnsweredProfile = 77;  // that the answers name
inline constexpr uint32_t kRefusal = 4242;

struct StoreOperation {
    std::string name;
    uint32_t command;
    std::function<uint32_t()> call;
    wire::PmRequestHeader header;
    Bytes data;
    std::vector<std::string> sent;
    std::string refused;
    std::string done;
};

inline void PrintTo(const StoreOperation& operation, std::ostream* out) {
    *out << operation.name;
}

const std::vector<StoreOperation>& store_operations();

// What the calls give, all of it: overwritten with one byte, and as it is. Of the operations only
// NetPMAddProfileInfo writes where it fails, and then the id.
void overwrite_outputs(std::byte with);
Bytes outputs();
Bytes outputs_with_id(int32_t id, std::byte elsewhere);

// The answer of a profile manager that agrees.
inline wire::PmResponseBlock agreement(uint32_t command) {
    wire::PmResponseBlock block = {};
    block.RspCode = 100 + command;
    block.ProfileId = kAnsweredProfile;
    return block;
}

}  // namespace quorvel::test
