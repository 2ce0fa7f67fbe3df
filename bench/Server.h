// A CM server that does nothing but answer, in a process of its own, and what the other side needs to talk to
// it without the library.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>

#include "common/Wire.h"

namespace quorvel::bench {

// Commands of the benchmark's own, on a plain connection.
enum BenchCommand : uint32_t {
    // This connection receives the records pushed at the anchor. Answered when it does.
    kBecomePushTarget = 0xbe0001,
    // Push Param records, each once the one before has been acknowledged by a header on this connection, to
    // the
    // library's async connection (Arg3 0) or to the anchor's (Arg3 1). Answered when all have been
    // acknowledged;
    // Word1 and Word2 are the low and high half of the nanoseconds that it took.
    kPush = 0xbe0002,
};

// The server process; ends with the object.
class Server {
  public:
    Server();
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

  private:
    pid_t pid_;
};

// A connection without the library.
int connect_to_server();

void write_all(int fd, const void* data, size_t size);
void read_all(int fd, void* data, size_t size);

// A child process that does one thing. It ends with the benchmark at the latest, and never runs on into the
// benchmark's own code.
pid_t start_helper(const std::function<void()>& body);
void end_helper(pid_t pid);

}  // namespace quorvel::bench
