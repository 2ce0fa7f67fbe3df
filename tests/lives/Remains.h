// What a life may not leave behind: descriptors, threads, memory, anything in the client's table.
#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "support/Proc.h"

namespace quorvel::lives {

class Remains {
  public:
    // What is there before the life.
    Remains();
    // What is there of it afterwards; nothing when it has left nothing. Waits for threads that are just
    // ending.
    std::string find() const;

  private:
    test::Descriptors descriptors_;
    std::set<int32_t> threads_;
};

// Blocks that the library has allocated and not freed since the last reset of the calls' counts.
size_t blocks_of_library();
void forget_blocks_of_library();

}  // namespace quorvel::lives
