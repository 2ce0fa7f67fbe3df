// The link by itself: the test thread calls its entry points as the API functions do.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "client/CM/src/NetCMPrivate.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Platform.h"
#include "support/Proc.h"
#include "support/ScriptedServer.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

inline constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";
inline const pthread_t kNoReceiver = static_cast<pthread_t>(-1);

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

inline bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

}  // namespace quorvel::test
