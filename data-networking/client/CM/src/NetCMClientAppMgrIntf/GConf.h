// Where GConf is in this process.
#pragma once

#include "gconf-helper/GConfFunctions.h"

namespace quorvel {

// The right to use GConf, which is not made for several threads: one of this library's has it at a time.
class GConfSession {
  public:
    GConfSession();
    ~GConfSession();
    GConfSession(const GConfSession&) = delete;
    GConfSession& operator=(const GConfSession&) = delete;

    // Null when there is no GConf to be had.
    const GConfFunctions* functions() const { return functions_; }

  private:
    const GConfFunctions* functions_;
};

}  // namespace quorvel
