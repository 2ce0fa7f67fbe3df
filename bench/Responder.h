// A name server in a process of its own that gives one answer to whatever is asked.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace quorvel::bench {

inline constexpr char kNameServer[] = "127.0.0.1";
inline constexpr char kHostName[] = "www.some-service.example.org";

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
