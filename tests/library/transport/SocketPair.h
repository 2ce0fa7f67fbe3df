// A process whose sync socket is one end of a pair; the test is the server at the other.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "client/CM/src/NetCMPrivate.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

inline constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";

class SocketPair : public ::testing::Test {
  protected:
    SocketPair() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        g_NetCMClientAppInfo.SyncSockFd = ours();
    }
    ~SocketPair() override {
        g_NetCMClientAppInfo.SyncSockFd = -1;
        calls::reset();
        ::close(ours());
        close_server();
    }

    int ours() const { return ends_[0]; }
    int servers() const { return ends_[1]; }
    void close_server() {
        if (ends_[1] >= 0)
            ::close(ends_[1]);
        ends_[1] = -1;
    }
    template <class T>
    void serve(const T& value) {
        ASSERT_EQ(::send(servers(), &value, sizeof value, MSG_NOSIGNAL), static_cast<ssize_t>(sizeof value));
    }
    std::string received() {
        char bytes[4096];
        const ssize_t got = ::recv(servers(), bytes, sizeof bytes, MSG_DONTWAIT);
        return got < 0 ? std::string{} : std::string(bytes, static_cast<size_t>(got));
    }

  private:
    int ends_[2] = {-1, -1};
};

}  // namespace quorvel::test
