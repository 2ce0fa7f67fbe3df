// The real CM server, for the life of the object.
#pragma once

#include <string>
#include <vector>

#include "support/Program.h"

namespace quorvel::test {

class CmServer {
  public:
    // Starts it and waits until it listens. A configuration is the text of its file; none is the built-in
    // one.
    explicit CmServer(const std::string& config = "", const std::vector<std::string>& more = {});

    Program& program() { return program_; }
    // What the operator's command prints; it must succeed.
    std::string ctl(std::vector<std::string> arguments);
    // Asks it to end, and waits.
    Ended stop();

  private:
    Program program_;
};

}  // namespace quorvel::test
