// A name server in a process of its own that knows one host, by every name as long as its own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace quorvel::bench {

inline constexpr char kNameServer[] = "127.0.0.1";
inline constexpr char kHostName[] = "www.some-service.example.org";
inline constexpr int kHostAddresses = 4;

using Message = std::vector<uint8_t>;

// The query for the address of kHostName, and its answer: an alias and four addresses, in 195 bytes.
Message query_message();
Message answer_message();

class Responder {
  public:
    Responder();
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

  private:
    pid_t pid_;
};

}  // namespace quorvel::bench
