// A DNS server as it is installed on this machine, in a network namespace of its own behind a veth pair.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace quorvel::test::dns {

class ServerNetwork {
  public:
    // Makes the interface `ifname` here, with `address` (a network of 24 bits), and the server with its own
    // address behind it. Returns when the server answers.
    ServerNetwork(const std::string& ifname, const std::string& address, const std::string& server_address,
                  const std::vector<std::string>& command);
    ~ServerNetwork();
    ServerNetwork(const ServerNetwork&) = delete;
    ServerNetwork& operator=(const ServerNetwork&) = delete;

    const std::string& ifname() const { return ifname_; }

  private:
    std::string ifname_;
    pid_t server_;
};

// Commands. The configuration is written to /tmp, which is the test's own.
std::vector<std::string> knot_command(const std::string& address);
std::vector<std::string> dnsmasq_command(const std::string& address, const std::vector<std::string>& options);

}  // namespace quorvel::test::dns
