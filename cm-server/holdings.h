// How much memory waits in the server for its clients: requests that are not complete yet, and answers and
// events that are not read. It is bounded for each user and for all of them together.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <unordered_map>

namespace quorvel::cm {

struct MemoryLimits {
    size_t of_user = size_t{16} * 1024 * 1024;
    size_t in_all = size_t{64} * 1024 * 1024;
};

class Holdings {
  public:
    explicit Holdings(const MemoryLimits& limits = {}) : limits_(limits) {}
    Holdings(const Holdings&) = delete;
    Holdings& operator=(const Holdings&) = delete;

    // What is held already stays, even if it is more.
    void use(const MemoryLimits& limits) { limits_ = limits; }

    // What one connection holds; it goes with the object.
    class Share {
      public:
        Share(Holdings& holdings, uid_t user) : holdings_(holdings), user_(user) {}
        ~Share() { set(0); }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

        // False when that is more than there was, and too much; nothing has changed then. A little is never
        // too much, so that whoever holds little does not pay for others of the same user.
        [[nodiscard]] bool grow_to(size_t bytes);
        void set(size_t bytes);

      private:
        Holdings& holdings_;
        uid_t user_;
        size_t counted_ = 0;
    };

  private:
    MemoryLimits limits_;
    size_t all_ = 0;
    std::unordered_map<uid_t, size_t> of_users_;
};

}  // namespace quorvel::cm
