// The link by itself: the test thread calls its entry points as the API functions do.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "client/CM/src/NetCMPrivate.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Link.h"
#include "support/Platform.h"
#include "support/Proc.h"
#include "support/ScriptedServer.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

inline constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";

class LinkTest : public ::testing::Test {
  protected:
    LinkTest() {
        NetCMClientLibInit();
        calls::skip_sleeps();
    }
    ~LinkTest() override {
        calls::reset();
        if (g_NetCMClientAppInfo.RecvThreadId != kNoReceiver)
            NetCMClientExit(g_NetCMClientAppInfo.SyncSockFd);
        NetCMClientLibInit();
        server.stop();
    }

    // The descriptor, or -1.
    int init() { return NetCMClientInit(&client_id); }

    NetCMClientAppInfo& table = g_NetCMClientAppInfo;
    int32_t client_id = 77;
    ScriptedServer server;
};

// Whether the library has it: the server runs in this process too, and a number that the library has given
// back may be its next. One call tells all of it, so that nothing changes on the way.
inline bool is_open(int fd) {
    sockaddr_un name{};
    socklen_t length = sizeof name;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&name), &length) == 0)
        return strcmp(name.sun_path, wire::kServerPath) != 0;
    return errno != EBADF;
}

}  // namespace quorvel::test
