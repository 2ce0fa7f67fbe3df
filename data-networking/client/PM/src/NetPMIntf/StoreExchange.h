// The one way of every operation on the profile store.
#pragma once

#include <cstddef>
#include <span>

#include "common/HeapBlock.h"
#include "common/PmWire.h"

namespace quorvel {

// What an operation asks; what is not named is 0.
struct StoreRequest {
    wire::PmCommand command;
    int32_t profile_id = 0;
    uint32_t arg = 0;
    uint32_t arg2 = 0;
    std::span<const std::byte> data = {};
};

// What the profile manager has answered, when it could be asked.
struct StoreAnswer {
    wire::PmResponseBlock block = {};
    HeapBlock ext;
    bool was_tried = false;

    // Copies what came behind the answer, but never more than there is room for.
    void copy_ext_to(void* out, size_t room) const;
};

// Checks the registration, repairs the link, asks, and looks at the answer, with the operation's own
// messages. Returns the status of the operation.
uint32_t ask_store(const StoreRequest& request, StoreAnswer& answer);

}  // namespace quorvel
