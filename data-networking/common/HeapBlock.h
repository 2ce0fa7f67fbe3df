// A block of memory that is given back when its owner leaves.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace quorvel {

class HeapBlock {
  public:
    HeapBlock() = default;
    // Takes over a block that malloc has given.
    HeapBlock(void* data, uint32_t size) : data_(data), size_(data != nullptr ? size : 0) {}
    ~HeapBlock() { free(data_); }
    HeapBlock(const HeapBlock&) = delete;
    HeapBlock& operator=(const HeapBlock&) = delete;
    HeapBlock(HeapBlock&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    HeapBlock& operator=(HeapBlock&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        return *this;
    }

    // One block that holds `head` and `tail` behind it. Null when there is no memory for it, which includes a
    // sum of sizes that does not fit.
    static HeapBlock joining(const void* head, uint32_t head_size, const void* tail, uint32_t tail_size) {
        uint32_t size = 0;
        if (__builtin_add_overflow(head_size, tail_size, &size))
            return {};
        HeapBlock block(malloc(size), size);
        if (block.data_ != nullptr) {
            memcpy(block.data_, head, head_size);
            if (tail_size > 0)
                memcpy(static_cast<char*>(block.data_) + head_size, tail, tail_size);
        }
        return block;
    }

    void* data() const { return data_; }
    uint32_t size() const { return size_; }
    explicit operator bool() const { return data_ != nullptr; }

  private:
    void* data_ = nullptr;
    uint32_t size_ = 0;
};

}  // namespace quorvel
