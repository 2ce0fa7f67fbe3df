// The world of most tests: a well-behaved server, threads of an application, and a process that is
// unregistered again when the test ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "client/CM/src/NetCMPrivate.h"
#include "quorvel/NetCM.h"
#include "support/AppThread.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Link.h"
#include "support/Platform.h"
#include "support/ScriptedServer.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

// A registered thread, with the callback of its number.
class User {
  public:
    explicit User(int number) : number_(number) {}

    template <class Body>
    auto run(Body body) {
        return thread_.run(body);
    }

    uint32_t register_client() {
        return run([this] { return NetCMClientRegister(events::callback_of(number_)); });
    }
    uint32_t deregister() {
        return run([] { return NetCMClientDeRegister(); });
    }
    uint32_t open(int32_t profile) {
        return run([=] { return NetCMConnectionOpen(&profile, 1); });
    }
    uint32_t close(int32_t profile) {
        return run([=] { return NetCMConnectionClose(profile); });
    }
    uint32_t kill(int32_t profile) {
        return run([=] { return NetCMConnectionKill(profile); });
    }
    // The answer of NetCMGetTransportError, which must succeed.
    int32_t transport_error();

    AppThread& thread() { return thread_; }
    int32_t tid() const { return thread_.tid(); }
    int number() const { return number_; }
    NetCMEventCallback callback() const { return events::callback_of(number_); }

  private:
    int number_;
    AppThread thread_;
};

class ClientTest : public ::testing::Test {
  protected:
    ClientTest();
    // Ends every call by force and deregisters every user.
    ~ClientTest() override;

    // The users of the test, made when they are asked for; registered() registers as well.
    User& user(int number);
    User& registered(int number);

    // Opens a profile as this user and lets the server report success. Returns the call id.
    int32_t bring_up(User& who, int32_t profile);

    // What the table says, read under the mutex.
    template <class Body>
    auto with_table(Body body) {
        return control_.run([&] {
            pthread_mutex_lock(&NetCMAppMutex);
            auto result = body(g_NetCMClientAppInfo);
            pthread_mutex_unlock(&NetCMAppMutex);
            return result;
        });
    }
    NetCMCallInfo call(int32_t index) {
        return with_table([=](const NetCMClientAppInfo& t) { return t.CallInfo[index]; });
    }
    // Waits until the receiver has ended on a reset of the link.
    bool wait_until_link_is_broken();

    ScriptedServer server;

  private:
    AppThread control_;
    std::vector<std::unique_ptr<User>> users_;
};

}  // namespace quorvel::test
