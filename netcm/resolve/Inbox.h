// What the threads that look names up tell the main thread.
#pragma once

#include <chrono>
#include <functional>
#include <variant>

#include "../Queue.h"
#include "Answer.h"

namespace quorvel::netcm {

// The answer to a request of the library's, which it knows by the request's id alone.
struct Delivery {
    unsigned id;
    std::chrono::steady_clock::time_point time;
    Answer answer;
};

// A worker of the library has ended, and has given back the ids that it had.
struct Released {
    size_t ids;
};

// An Answer comes from a thread of netcm's own, and is complete.
using Message = std::variant<Delivery, Released, Answer>;

// Never destroyed: a lookup that was left may still end. It is interrupted when the program is.
Queue<Message>& inbox();

}  // namespace quorvel::netcm
