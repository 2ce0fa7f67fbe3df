// A DNS server on port 53 of the test's own network namespace, which answers as the test says.
#pragma once

#include <netinet/in.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Message.h"

namespace quorvel::test::dns {

// A query that has arrived, and the ways to answer it.
class Exchange {
  public:
    Exchange(int fd, const sockaddr_in& client, Bytes received)
        : query(std::move(received)), fd_(fd), client_(client) {}

    void reply(const Bytes& datagram) const;
    void reply(const Response& response) const { reply(response.bytes()); }
    // From a socket that the query was not sent to.
    void reply_from(const char* address, uint16_t port, const Bytes& datagram) const;

    const Bytes query;

  private:
    int fd_;
    sockaddr_in client_;
};

class Responder {
  public:
    using Script = std::function<void(const Exchange&)>;

    // Every loopback address (127.0.0.0/8) may have a responder of its own.
    explicit Responder(Script script, const char* address = "127.0.0.1");
    ~Responder();

    std::vector<Bytes> queries() const;
    size_t query_count() const { return queries().size(); }

    // The local port of each query's sender: as many different ones as sockets were used.
    std::vector<uint16_t> senders() const;

  private:
    void serve();
    void serve_one();

    Script script_;
    int fd_;
    int stop_fd_;
    mutable std::mutex mutex_;
    std::vector<Bytes> queries_;
    std::vector<uint16_t> senders_;
    std::thread thread_;
};

// Scripts.
Responder::Script answer_with(const char* address, uint32_t ttl = 60);  // for whatever name is asked
Responder::Script silence();

// The name that a query asks for.
std::string asked_name(const Bytes& query);

}  // namespace quorvel::test::dns
