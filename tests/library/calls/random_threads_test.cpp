// Sixteen threads that do everything at once, in no order, with every result checked.
#include <random>

#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr int kThreads = 16;
constexpr std::chrono::seconds kTime{2};

// A server that carries four calls, brings each up at once, and obeys closes and kills.
class BusyServer {
  public:
    explicit BusyServer(ScriptedServer& server) {
        server.on(wire::NETCM_CLIENT_START_REQ, [this](const Request& request) { return start(request); });
        server.on(wire::NETCM_CLIENT_STOP_REQ, [this](const Request& request) { return stop(request); });
        server.on(wire::NETCM_CLIENT_KILL_REQ, [this](const Request& request) { return kill(request); });
    }

  private:
    Answer start(const Request& request) {
        wire::Record answer = answer_record(request.command());
        const auto profile = static_cast<int32_t>(request.header.Arg4);
        const auto place = std::find(std::begin(calls_), std::end(calls_), 0);
        if (place == std::end(calls_)) {
            answer.Status = 21;
            answer.Word5 = 4;
            return Answer().record(answer);
        }
        *place = profile;
        answer.CallId = static_cast<uint32_t>(place - std::begin(calls_));
        Bytes up = bytes_of(start_response(static_cast<int32_t>(answer.CallId), profile));
        const Bytes block = bytes_of(connection_block());
        up.insert(up.end(), block.begin(), block.end());
        return Answer().record(answer).push(up);
    }
    Answer stop(const Request& request) {
        const auto call = static_cast<int32_t>(request.header.Arg3);
        calls_[call] = 0;
        return Answer().push(stop_response(call, static_cast<int32_t>(request.header.Arg4)));
    }
    Answer kill(const Request& request) {
        const auto profile = static_cast<int32_t>(request.header.Arg4);
        std::replace(std::begin(calls_), std::end(calls_), profile, 0);
        return Answer().push(kill_response(profile));
    }

    int32_t calls_[NETCM_MAX_CALLS] = {};  // the profile of each call, 0: free
};

class RandomThreads : public CallTest {
  protected:
    RandomThreads() : busy_server_(server) {}

    // All threads do one thing after another until the time is over.
    void let_loose(std::atomic<size_t>& steps) {
        const auto until = std::chrono::steady_clock::now() + kTime;
        for (int number = 0; number < kThreads; ++number) {
            user(number).thread().start([&steps, until, number] {
                std::minstd_rand random(static_cast<unsigned>(number + 1));
                while (std::chrono::steady_clock::now() < until) {
                    step(random);
                    ++steps;
                }
            });
        }
        for (int number = 0; number < kThreads; ++number)
            user(number).thread().wait();
    }

    // One step of a thread: an operation and the results that it may have, whatever the others do meanwhile.
    static void step(std::minstd_rand& random) {
        const auto profile = static_cast<int32_t>(1 + random() % 6);
        switch (random() % 8) {
            case 0:
            case 1:
                expect_one_of(NetCMConnectionOpen(&profile, 1), {0, 10, 13, 14, 21});
                break;
            case 2:
            case 3:
                expect_one_of(NetCMConnectionClose(profile), {0, 9});
                break;
            case 4:
                expect_one_of(NetCMConnectionKill(profile), {0, 11, 13, 16});
                break;
            case 5:
                ask_about(profile);
                break;
            case 6:
                ask_for_settings(static_cast<uint32_t>(random() % 5));
                break;
            default:
                ask_for_state();
        }
    }

  private:
    static void expect_one_of(uint32_t status, const std::vector<uint32_t>& expected) {
        EXPECT_THAT(expected, ::testing::Contains(status));
    }
    static void ask_about(int32_t profile) {
        NetCMConnInfo info{};
        const uint32_t status = NetCMDeviceGetInfo(profile, &info);
        expect_one_of(status, {0, 9});
        if (status == 0) {
            EXPECT_EQ(info.ProfileId, profile);
            EXPECT_STREQ(info.IfaceName, "pdp0");
        }
    }
    static void ask_for_settings(uint32_t key) {
        uint32_t value = 99;
        uint32_t result = 99;
        EXPECT_EQ(NetCMSettingsGet(key, &value, &result), 1u);
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(value, 0u);
    }
    static void ask_for_state() {
        uint32_t state = 99;
        EXPECT_EQ(NetCMGetNetworkStatus(NETCM_IFACE_WIFI, &state), NETCM_SUCCESS);
        EXPECT_EQ(state, 0u);
        expect_one_of(NetCMGetPacketDataState(&state), {0, 6});
    }

    BusyServer busy_server_;
};

TEST_F(RandomThreads, every_result_is_one_that_the_operation_has) {
    for (int number = 0; number < kThreads; ++number)
        registered(number);
    std::atomic<size_t> steps{0};
    {
        // Results are looked at one by one, and there are too many lines to keep.
        std::atomic<size_t> lines{0};
        const auto too_many = trace::on_line([&](const TraceLine&) {
            if (++lines % 20000 == 0)
                trace::clear();
        });
        let_loose(steps);
    }
    EXPECT_GT(steps, 100u);

    // The table is whole: every call that is in use has a user or is on its way to its end.
    trace::clear();
    EXPECT_TRUE(settled());
    for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index) {
        const NetCMCallInfo stored = call(index);
        if (stored.InUse == 0)
            continue;
        EXPECT_EQ(stored.CallId, index);
        const bool used = std::any_of(std::begin(stored.ThreadProf), std::end(stored.ThreadProf),
                                      [](const NetCMThreadProf& entry) { return entry.ThreadIndex != -1; });
        EXPECT_TRUE(used || stored.CallState > 4) << index;
    }
    // Every event is of a kind that these operations have, and came with the mutex held.
    for (const Event& event : events::all()) {
        EXPECT_LE(event.type, 3u);
        EXPECT_TRUE(event.mutex_was_held);
    }
}

}  // namespace
}  // namespace quorvel::test
