// A set for select that has room for descriptors of any number: an application may have thousands open.
#pragma once

#include <sys/select.h>

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace quorvel {

class DescriptorSet {
  public:
    // For descriptors up to `highest`.
    explicit DescriptorSet(int highest) : words_(static_cast<size_t>(highest) / kBits + 1) {
        bits_ = words_ <= sizeof small_ / sizeof small_[0] ? small_ : large_ = allocate(words_);
    }
    ~DescriptorSet() { free(large_); }
    DescriptorSet(const DescriptorSet&) = delete;
    DescriptorSet& operator=(const DescriptorSet&) = delete;

    // False when there was no memory for it.
    bool valid() const { return bits_ != nullptr; }
    fd_set* get() { return reinterpret_cast<fd_set*>(bits_); }
    void clear() { memset(bits_, 0, words_ * sizeof *bits_); }
    void add(int fd) { bits_[word(fd)] |= bit(fd); }
    bool contains(int fd) const { return (bits_[word(fd)] & bit(fd)) != 0; }

  private:
    static constexpr size_t kBits = sizeof(unsigned long) * CHAR_BIT;
    static size_t word(int fd) { return static_cast<size_t>(fd) / kBits; }
    static unsigned long bit(int fd) { return 1UL << (static_cast<size_t>(fd) % kBits); }
    static unsigned long* allocate(size_t words) {
        return static_cast<unsigned long*>(calloc(words, sizeof(unsigned long)));
    }

    size_t words_;
    unsigned long small_[FD_SETSIZE / kBits] = {};
    unsigned long* large_ = nullptr;
    unsigned long* bits_;
};

}  // namespace quorvel
