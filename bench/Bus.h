// A D-Bus method call with the request's arguments and the answer's result, from this process to another.
#pragma once

#include <sys/types.h>

#include <vector>

struct sd_bus;

namespace quorvel::bench {

class BusPair {
  public:
    enum class Kind { PeerToPeer, ThroughDaemon };
    explicit BusPair(Kind kind);
    ~BusPair();
    BusPair(const BusPair&) = delete;
    BusPair& operator=(const BusPair&) = delete;

    void call();

  private:
    void connect_peers();
    void connect_through_daemon();

    sd_bus* bus_ = nullptr;
    const char* destination_ = nullptr;
    std::vector<pid_t> helpers_;
};

}  // namespace quorvel::bench
