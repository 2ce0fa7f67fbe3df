// A thread that is cancelled while it is in the library ends when it has left it, not inside: nobody would
// give back what it holds.
#pragma once

#include <pthread.h>

namespace quorvel {

// Declare it in front of everything that has to be given back. Holds may be nested; a cancellation that came
// meanwhile acts at the first cancellation point behind the outermost one. Leaves errno as it is.
class CancelHold {
  public:
    CancelHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancelHold() { pthread_setcancelstate(before_, nullptr); }
    CancelHold(const CancelHold&) = delete;
    CancelHold& operator=(const CancelHold&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace quorvel
