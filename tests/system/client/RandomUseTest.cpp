// Sixteen threads of one application do at random what an application can do, against the real server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "quorvel/NetCM.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/Program.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

using ::testing::AnyOf;

constexpr int kThreads = 16;
constexpr int32_t kProfiles = 6;
constexpr std::chrono::seconds kTime{4};
constexpr std::chrono::seconds kPatience{30};

constexpr char kConfig[] = R"(
[[network]]
interface = "lo"
[[profile]]
name = "one"
apn = "shared"
[[profile]]
name = "two"
apn = "shared"
[[profile]]
name = "three"
[[profile]]
name = "four"
[[profile]]
name = "five"
[[profile]]
name = "six"
)";

// How often a thread was promised an event, by what its requests returned; or how often it was told.
struct Promises {
    size_t opens = 0;
    size_t closes = 0;
    size_t kills = 0;
};

class RandomUser {
  public:
    explicit RandomUser(int number) : number_(number), random_(static_cast<unsigned>(number) * 7919u + 1) {}

    void live(std::chrono::steady_clock::time_point end) {
        ASSERT_EQ(NetCMClientRegister(events::callback_of(number_)), NETCM_SUCCESS);
        while (std::chrono::steady_clock::now() < end)
            act();
        leave();
    }
    const Promises& promises() const { return promises_; }

  private:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }
    int32_t any_profile() { return 1 + pick(kProfiles); }

    void act() {
        switch (pick(8)) {
            case 0:
            case 1:
            case 2:
                return open(any_profile());
            case 3:
            case 4:
                return close(any_profile());
            case 5:
                return pick(4) == 0 ? kill(any_profile()) : ask();
            case 6:
                return look(any_profile());
            default:
                return register_again();
        }
    }

    void open(int32_t profile) {
        const uint32_t result = NetCMConnectionOpen(&profile, 1);
        // 21: the server has no call left to give.
        EXPECT_THAT(result, AnyOf(NETCM_SUCCESS, NETCM_ERR_ALREADY_EXISTS, NETCM_ERR_CALL_CLOSING,
                                  NETCM_ERR_MAX_LIMIT, 21u));
        promises_.opens += result == NETCM_SUCCESS;
    }
    void close(int32_t profile) {
        const uint32_t result = NetCMConnectionClose(profile);
        EXPECT_THAT(result, AnyOf(NETCM_SUCCESS, NETCM_ERR_NOT_ACTIVE));
        promises_.closes += result == NETCM_SUCCESS;
    }
    void kill(int32_t profile) {
        const uint32_t result = NetCMConnectionKill(profile);
        EXPECT_THAT(result, AnyOf(NETCM_SUCCESS, NETCM_ERR_CLOSING, NETCM_ERR_CALL_CLOSING,
                                  NETCM_ERR_NO_FREE_KILL_ENTRY));
        promises_.kills += result == NETCM_SUCCESS;
    }
    void ask() {
        uint32_t status = 99;
        EXPECT_EQ(NetCMGetNetworkStatus(1, &status), NETCM_SUCCESS);
        EXPECT_LT(status, 99u);
        uint32_t ids[16] = {};
        uint32_t count = 99;
        const uint32_t result = NetCMGetActiveProfileIDs(reinterpret_cast<uint8_t*>(ids), &count);
        EXPECT_THAT(result, AnyOf(NETCM_SUCCESS, NETCM_ERR_NOT_ACTIVE));
        EXPECT_EQ(result == NETCM_SUCCESS, count != 0);
        EXPECT_LE(count, 16u);
        for (uint32_t i = 0; i < count && i < 16; ++i)
            EXPECT_TRUE(ids[i] >= 1 && ids[i] <= kProfiles) << ids[i];
    }
    void look(int32_t profile) {
        NetCMConnInfo details{};
        const uint32_t result = NetCMDeviceGetInfo(profile, &details);
        EXPECT_THAT(result, AnyOf(NETCM_SUCCESS, NETCM_ERR_NOT_ACTIVE));
        if (result == NETCM_SUCCESS) {
            EXPECT_EQ(details.ProfileId, profile);
            EXPECT_STREQ(details.IfaceName, "lo");
        }
    }
    void register_again() {
        EXPECT_EQ(NetCMClientRegister(events::callback_of(number_)), NETCM_ERR_ALREADY_REGISTERED);
    }

    // Closes what it has until nothing of it is left: whoever has been answered can leave.
    void leave() {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (NetCMClientDeRegister() != NETCM_SUCCESS) {
            for (int32_t profile = 1; profile <= kProfiles; ++profile)
                close(profile);
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "a call is left behind";
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    int number_;
    std::mt19937 random_;
    Promises promises_;
};

// Gives back what one user was told.
Promises expect_no_more_than_was_promised(int number, const Promises& promises) {
    Promises told;
    for (const Event& event : events::of(number)) {
        EXPECT_THAT(event.type, AnyOf(NETCM_EVENT_OPEN_RSP, NETCM_EVENT_CLOSE_RSP, NETCM_EVENT_KILL_RSP,
                                      NETCM_EVENT_STOP_IND));
        EXPECT_TRUE(event.profile >= 1 && event.profile <= kProfiles);
        told.opens += event.type == NETCM_EVENT_OPEN_RSP;
        told.closes += event.type == NETCM_EVENT_CLOSE_RSP;
        told.kills += event.type == NETCM_EVENT_KILL_RSP;
        if (event.type == NETCM_EVENT_OPEN_RSP && event.result == 0 && event.details) {
            EXPECT_EQ(event.details->ProfileId, event.profile);
            EXPECT_STREQ(event.details->IfaceName, "lo");
        }
    }
    EXPECT_LE(told.opens, promises.opens);
    EXPECT_LE(told.kills, promises.kills);
    return told;
}

// One that says nothing: nobody reads it while the threads are at work.
Program quiet_server() {
    constexpr char kPath[] = "/tmp/random-use.toml";
    std::ofstream(kPath) << kConfig;
    return Program({CM_SERVER_PATH, "--config", kPath, "--db", ":memory:", "--log-level", "error"});
}

bool is_socket_there() {
    return access("/tmp/psServSocket", F_OK) == 0;
}

TEST(RandomUse, by_sixteen_threads_ends_with_everything_answered_and_nothing_left) {
    Program server = quiet_server();
    ASSERT_TRUE(eventually(is_socket_there));
    trace::stop_keeping();
    std::vector<std::unique_ptr<RandomUser>> users;
    for (int number = 0; number < kThreads; ++number)
        users.push_back(std::make_unique<RandomUser>(number));
    std::vector<std::thread> threads;
    const auto end = std::chrono::steady_clock::now() + kTime;
    for (const auto& user : users)
        threads.emplace_back([&user, end] { user->live(end); });
    for (std::thread& thread : threads)
        thread.join();

    Promises told;
    Promises promised;
    for (int number = 0; number < kThreads; ++number) {
        const Promises& of_user = users[static_cast<size_t>(number)]->promises();
        const Promises heard = expect_no_more_than_was_promised(number, of_user);
        told.opens += heard.opens;
        told.closes += heard.closes;
        promised.closes += of_user.closes;
    }
    EXPECT_GT(told.opens, 0u);
    // Counted for all together: when a close and a kill of another user cross, the kill's response ends the
    // call first, and the close's goes to whoever has been given the same call for the same profile since.
    EXPECT_LE(told.closes, promised.closes);
    EXPECT_EQ(g_NetCMClientAppInfo.RegCount, 0);
    EXPECT_EQ(g_NetCMClientAppInfo.IsRegistered, 0);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}

}  // namespace
}  // namespace quorvel::test
