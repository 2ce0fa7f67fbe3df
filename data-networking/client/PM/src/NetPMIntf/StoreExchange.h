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
    int32_t* new_id = nullptr;  // receives the answer's profile id, or -1 where there is no good answer
};

// What the profile manager has answered.
struct StoreAnswer {
    wire::PmResponseBlock block = {};
    HeapBlock ext;

    // Copies what came behind the answer, but never more than there is room for.
    void copy_ext_to(void* out, size_t room) const;
};

// Takes an operation's results out of a good answer. Whoever sees the success traced, or has the mutex next,
// sees the results as well.
struct ResultTaker {
    void (*take)(const StoreAnswer& answer, void* operation);
    void* operation;
};

// Checks the registration, repairs the link, asks, looks at the answer and takes the results, with the
// operation's own messages. Returns the status of the operation.
uint32_t ask_store(const StoreRequest& request, ResultTaker results);

template <class Take>
uint32_t ask_store(const StoreRequest& request, Take take) {
    return ask_store(request, ResultTaker{[](const StoreAnswer& answer, void* operation) {
                                              (*static_cast<Take*>(operation))(answer);
                                          },
                                          &take});
}

inline uint32_t ask_store(const StoreRequest& request) {
    return ask_store(request, [](const StoreAnswer&) {});
}

}  // namespace quorvel
