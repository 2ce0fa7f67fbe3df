#include "record/ring.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace quorvel::cm {

// Counts of bytes, which only grow.
struct Ring::Head {
    alignas(64) std::atomic<uint64_t> put;
    alignas(64) std::atomic<uint64_t> taken;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "two processes share it");

struct Ring::Slot {
    uint64_t number;
    int64_t time;
    uint32_t client;
    PassingKind kind;
    uint32_t bytes;
    uint32_t secrets;
};

Ring::Ring(size_t size) : size_(size) {
    void* memory =
        mmap(nullptr, sizeof(Head) + size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    head_ = new (memory) Head{};
    data_ = static_cast<std::byte*>(memory) + sizeof(Head);
}

Ring::~Ring() {
    munmap(head_, sizeof(Head) + size_);
}

void Ring::copy_in(uint64_t at, const void* from, size_t size) {
    if (size == 0)
        return;
    const size_t start = at % size_;
    const size_t first = std::min(size, size_ - start);
    std::memcpy(data_ + start, from, first);
    std::memcpy(data_, static_cast<const std::byte*>(from) + first, size - first);
}

void Ring::copy_out(uint64_t at, void* to, size_t size) const {
    if (size == 0)
        return;
    const size_t start = at % size_;
    const size_t first = std::min(size, size_ - start);
    std::memcpy(to, data_ + start, first);
    std::memcpy(static_cast<std::byte*>(to) + first, data_, size - first);
}

bool Ring::put(const Passing& passing) noexcept {
    const Slot slot{passing.number,
                    passing.time,
                    passing.client,
                    passing.kind,
                    static_cast<uint32_t>(passing.size()),
                    static_cast<uint32_t>(passing.secrets.size())};
    const size_t need = sizeof(slot) + passing.secrets.size_bytes() + passing.size();
    uint64_t at = head_->put.load(std::memory_order_relaxed);
    if (need > size_ - (at - head_->taken.load(std::memory_order_acquire)))
        return false;
    const auto next = [&](const void* from, size_t size) {
        copy_in(at, from, size);
        at += size;
    };
    next(&slot, sizeof(slot));
    next(passing.secrets.data(), passing.secrets.size_bytes());
    next(passing.head.data(), passing.head.size());
    next(passing.rest.data(), passing.rest.size());
    head_->put.store(at, std::memory_order_release);
    return true;
}

bool Ring::take(Kept& kept) {
    uint64_t at = head_->taken.load(std::memory_order_relaxed);
    if (head_->put.load(std::memory_order_acquire) == at)
        return false;
    Slot slot{};
    const auto next = [&](void* to, size_t size) {
        copy_out(at, to, size);
        at += size;
    };
    next(&slot, sizeof(slot));
    kept.number = slot.number;
    kept.time = slot.time;
    kept.client = slot.client;
    kept.kind = slot.kind;
    kept.secrets.resize(slot.secrets);
    next(kept.secrets.data(), slot.secrets * sizeof(Secret));
    kept.bytes.resize(slot.bytes);
    next(kept.bytes.data(), slot.bytes);
    head_->taken.store(at, std::memory_order_release);
    return true;
}

}  // namespace quorvel::cm
