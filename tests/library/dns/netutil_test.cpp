// The socket helpers.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "Responder.h"
#include "quorvel/NetDNS.h"
#include "support/Emulator.h"
#include "support/Proc.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

template <class Value>
Value socket_option(int fd, int option) {
    Value value{};
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &value, &length), 0);
    return value;
}

int debug_level_for(const char* value) {
    setenv("QVDNS_DEBUG", value, 1);
    dns_getenv();
    unsetenv("QVDNS_DEBUG");
    return _dns_debug;
}

TEST(DebugLevel, is_0_at_load_and_when_nothing_is_set) {
    EXPECT_EQ(_dns_debug, 0);
    _dns_debug = 7;
    dns_getenv();
    EXPECT_EQ(_dns_debug, 0);
}

TEST(DebugLevel, is_the_decimal_number_in_the_environment) {
    EXPECT_EQ(debug_level_for("3"), 3);
    EXPECT_EQ(debug_level_for("-1"), -1);
    EXPECT_EQ(debug_level_for("010"), 10);
    EXPECT_EQ(debug_level_for("4 and more"), 4);
    EXPECT_EQ(debug_level_for("abc"), 0);
    EXPECT_EQ(debug_level_for(""), 0);
}

TEST(DebugLevel, stays_within_an_int_and_leaves_errno_alone) {
    errno = 0;
    EXPECT_EQ(debug_level_for("99999999999999999999"), INT_MAX);
    EXPECT_EQ(debug_level_for("-99999999999999999999"), INT_MIN);
    EXPECT_EQ(errno, 0);
}

TEST(DnsSocket, is_a_datagram_or_a_stream_socket_that_no_child_inherits) {
    const int datagram = dns_socket(1, nullptr);
    const int other_datagram = dns_socket(-7, nullptr);
    const int stream = dns_socket(0, nullptr);
    EXPECT_EQ(socket_option<int>(datagram, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(socket_option<int>(other_datagram, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(socket_option<int>(stream, SO_TYPE), SOCK_STREAM);
    for (const int fd : {datagram, other_datagram, stream}) {
        EXPECT_EQ(socket_option<int>(fd, SO_DOMAIN), AF_INET);
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(dns_close(fd), 1);
    }
}

TEST(DnsSocket, is_bound_to_the_interface) {
    if (is_emulated())
        GTEST_SKIP() << "the emulator does not tell what a socket is bound to";
    const int fd = dns_socket(1, "lo");
    ASSERT_GT(fd, 2);
    char name[16] = {};
    socklen_t length = sizeof name;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name, &length), 0);
    EXPECT_STREQ(name, "lo");
    dns_close(fd);
}

TEST(DnsSocket, an_interface_that_does_not_exist_closes_the_socket) {
    const Descriptors before = open_descriptors();
    EXPECT_EQ(dns_socket(1, "no-such-device"), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(trace::find("setsockopt() failed: 19\n").mask, trace::kInternal);
    EXPECT_EQ(trace::find("setsockopt() failed: 19\n").file, "data-networking/dns/src/netutil");
}

class NetutilPair : public ::testing::Test {
  protected:
    int fd_ = dns_socket(1, nullptr);
    ~NetutilPair() override { dns_close(fd_); }
};

TEST_F(NetutilPair, connect_takes_address_and_port) {
    EXPECT_EQ(dns_connect(fd_, "127.0.0.9", 5300), 0);
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    ASSERT_EQ(getpeername(fd_, reinterpret_cast<sockaddr*>(&peer), &length), 0);
    EXPECT_EQ(peer.sin_addr.s_addr, inet_addr("127.0.0.9"));
    EXPECT_EQ(ntohs(peer.sin_port), 5300);
}

TEST_F(NetutilPair, connect_refuses_a_text_that_is_no_address) {
    for (const char* server :
         {"999.1.1.1", "localhost", "255.255.255.255", static_cast<const char*>(nullptr)}) {
        trace::clear();
        errno = 0;
        EXPECT_EQ(dns_connect(fd_, server, 53), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(trace::find("inet_addr() failed\n").mask, trace::kInternal);
        EXPECT_FALSE(trace::contains("connect() failed: 22\n"));
    }
}

TEST_F(NetutilPair, connect_tells_the_systems_error) {
    EXPECT_EQ(dns_connect(-1, "127.0.0.1", 53), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(trace::find("connect() failed: 9\n").mask, trace::kInternal);
}

TEST_F(NetutilPair, what_is_sent_is_received) {
    Responder echo([](const Exchange& exchange) { exchange.reply(exchange.query); });
    ASSERT_EQ(dns_connect(fd_, "127.0.0.1", 53), 0);
    EXPECT_EQ(dns_send(fd_, "hello", 5), 5);
    EXPECT_GT(dns_poll(fd_, 5000), 0);
    char received[16] = {};
    EXPECT_EQ(dns_recv(fd_, received, sizeof received), 5);
    EXPECT_STREQ(received, "hello");
}

TEST_F(NetutilPair, a_failed_send_tells_the_systems_error) {
    EXPECT_EQ(dns_send(fd_, "hello", 5), -1);
    EXPECT_EQ(errno, EDESTADDRREQ);
    EXPECT_EQ(trace::find("send() failed: 89\n").mask, trace::kInternal);
}

TEST_F(NetutilPair, a_negative_length_is_not_sent) {
    ASSERT_EQ(dns_connect(fd_, "127.0.0.1", 53), 0);
    EXPECT_EQ(dns_send(fd_, "hello", -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(trace::find("send() failed: 22\n").mask, trace::kInternal);
}

TEST_F(NetutilPair, a_peer_that_has_closed_does_not_kill_the_process) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    close(pair[1]);
    EXPECT_EQ(dns_send(pair[0], "hello", 5), -1);
    EXPECT_EQ(errno, EPIPE);
    char byte = 0;
    EXPECT_EQ(dns_recv(pair[0], &byte, 1), 0);
    close(pair[0]);
}

TEST_F(NetutilPair, a_poll_that_times_out_gives_0_and_EAGAIN) {
    errno = 0;
    EXPECT_EQ(dns_poll(fd_, 1), 0);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(trace::find("poll() timed out\n").mask, trace::kNormal);
}

TEST_F(NetutilPair, a_poll_of_no_time_at_all_does_not_wait) {
    EXPECT_EQ(dns_poll(fd_, 0), 0);
}

TEST_F(NetutilPair, receive_checks_its_parameters) {
    char buffer[4];
    for (const auto& [fd, into, length] : {std::tuple<int, void*, int>{0, buffer, 4},
                                           {-1, buffer, 4},
                                           {fd_, nullptr, 4},
                                           {fd_, buffer, 0},
                                           {fd_, buffer, -4}}) {
        trace::clear();
        EXPECT_EQ(dns_recv(fd, into, length), -1);
        EXPECT_EQ(trace::find("dns_recv() : Invalid Parameter\n").mask, trace::kInternal);
    }
}

TEST_F(NetutilPair, a_failed_receive_tells_the_systems_error) {
    char buffer[4];
    const int not_a_socket = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(dns_recv(not_a_socket, buffer, sizeof buffer), -1);
    EXPECT_EQ(errno, ENOTSOCK);
    EXPECT_EQ(trace::find("recv() failed: 88\n").mask, trace::kInternal);
    close(not_a_socket);
}

TEST_F(NetutilPair, close_always_gives_1) {
    EXPECT_EQ(dns_close(-1), 1);
}

// A timer that interrupts whatever waits, every millisecond.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        set(1000);
    }
    ~Interruptions() { set(0); }

  private:
    static void set(int microseconds) {
        const itimerval timer{{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
};

TEST_F(NetutilPair, signals_do_not_stretch_the_wait) {
    const Interruptions interruptions;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(dns_poll(fd_, 50), 0);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(50));
    EXPECT_LT(taken, std::chrono::seconds(10));
}

TEST_F(NetutilPair, signals_do_not_end_a_wait_without_limit) {
    Responder late([](const Exchange& exchange) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        exchange.reply(exchange.query);
    });
    ASSERT_EQ(dns_connect(fd_, "127.0.0.1", 53), 0);
    const Interruptions interruptions;
    ASSERT_EQ(dns_send(fd_, "hello", 5), 5);
    EXPECT_GT(dns_poll(fd_, -1), 0);
}

TEST_F(NetutilPair, signals_do_not_end_a_receive) {
    Responder late([](const Exchange& exchange) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        exchange.reply(exchange.query);
    });
    ASSERT_EQ(dns_connect(fd_, "127.0.0.1", 53), 0);
    const Interruptions interruptions;
    ASSERT_EQ(dns_send(fd_, "hello", 5), 5);
    char buffer[8];
    EXPECT_EQ(dns_recv(fd_, buffer, sizeof buffer), 5);
}

}  // namespace
}  // namespace quorvel::test::dns
