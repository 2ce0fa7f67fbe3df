// Sleeping until another thread changes a word. Nothing here touches errno.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorvel {

// Does not sleep when the word has another value already, and may return although it has not: the caller
// looks again.
void wait_while(std::atomic<uint32_t>& word, uint32_t value);
// The same, for this long at most.
void wait_while(std::atomic<uint32_t>& word, uint32_t value, int32_t milliseconds);

void wake_one(std::atomic<uint32_t>& word);
void wake_all(std::atomic<uint32_t>& word);

}  // namespace quorvel
