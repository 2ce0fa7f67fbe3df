// Holds a cancellation of the calling thread back while it is inside the library: it holds locks there that
// nobody would give back.
#pragma once

#include <pthread.h>

namespace quorvel {

class CancelHold {
  public:
    CancelHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
    ~CancelHold() { pthread_setcancelstate(state_, nullptr); }
    CancelHold(const CancelHold&) = delete;
    CancelHold& operator=(const CancelHold&) = delete;

  private:
    int state_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace quorvel
