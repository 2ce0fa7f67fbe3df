// Keeps errno as it is over calls that may change it: callers are promised the cause of a failure, and the
// sink of the trace lines is not ours.
#pragma once

#include <cerrno>

namespace quorvel {

class KeepErrno {
  public:
    KeepErrno() : kept_(errno) {}
    ~KeepErrno() { errno = kept_; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

  private:
    int kept_;
};

}  // namespace quorvel
