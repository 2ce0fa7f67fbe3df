// What a life may not leave behind: descriptors, threads, memory, anything in the client's table.
#pragma once

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
    long blocks_;
};

}  // namespace quorvel::lives
