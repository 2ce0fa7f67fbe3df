// What is to be recorded, on its way from the server to the process that writes it: memory that both have.
// It outlives a server that dies, and the server never waits for it.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "record/passing.h"

namespace quorvel::cm {

class Ring {
  public:
    // To be made before the process is forked. Throws std::bad_alloc.
    explicit Ring(size_t size);
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // The server's side: false when there is no room.
    bool put(const Passing& passing) noexcept;
    // The writer's side: false when there is nothing.
    bool take(Kept& kept);

  private:
    struct Head;
    struct Slot;
    void copy_in(uint64_t at, const void* from, size_t size);
    void copy_out(uint64_t at, void* to, size_t size) const;

    Head* head_;
    std::byte* data_;
    size_t size_;
};

}  // namespace quorvel::cm
