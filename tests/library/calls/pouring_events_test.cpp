// Threads that come and go while events pour in.
#include "CallTest.h"

namespace quorvel::test {
namespace {

class PouringEvents : public CallTest {
  protected:
    // Pushes status changes until it is stopped, whether or not anybody listens. A paced one never has more
    // under way than the socket holds: its server answers requests meanwhile.
    class Flood {
      public:
        enum class Pace { AsFastAsPossible, AsTheyAreTaken };
        explicit Flood(ScriptedServer& server, Pace pace = Pace::AsFastAsPossible)
            : server_(server), pace_(pace), thread_([this] { pour(); }) {}
        ~Flood() {
            stopping_ = true;
            thread_.join();
        }
        Flood(const Flood&) = delete;
        Flood& operator=(const Flood&) = delete;

      private:
        static constexpr size_t kAtOnce = 50;

        void pour() {
            Bytes many;
            for (size_t i = 0; i < kAtOnce; ++i) {
                const Bytes one = bytes_of(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0));
                many.insert(many.end(), one.begin(), one.end());
            }
            for (size_t pushed = 0; !stopping_;) {
                if (pace_ == Pace::AsTheyAreTaken && !events::wait_for(pushed, std::chrono::milliseconds(10)))
                    continue;
                if (server_.wait_for_async_socket(std::chrono::milliseconds(1)) && server_.try_push(many))
                    pushed += kAtOnce;
            }
        }

        ScriptedServer& server_;
        const Pace pace_;
        std::atomic<bool> stopping_{false};
        std::thread thread_;
    };

    void TearDown() override { trace::clear(); }
};

TEST_F(PouringEvents, the_last_thread_leaves_and_returns_round_after_round) {
    User& who = user(0);
    const Flood flood(server);
    for (int round = 0; round < 60; ++round) {
        ASSERT_EQ(who.register_client(), NETCM_SUCCESS) << round;
        ASSERT_TRUE(events::wait_for(events::count() + 10));
        ASSERT_EQ(who.deregister(), NETCM_SUCCESS) << round;
        const size_t before = events::count();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(events::count(), before) << "nothing comes after the return";
        if (round % 10 == 9)
            trace::clear();
    }
}

TEST_F(PouringEvents, one_of_several_threads_leaves_and_returns) {
    registered(0);
    User& guest = user(1);
    const Flood flood(server);
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(guest.register_client(), NETCM_SUCCESS);
        ASSERT_TRUE(events::wait_for_user(1, events::of(1).size() + 1));
        ASSERT_EQ(guest.deregister(), NETCM_SUCCESS);
        const size_t before = events::of(1).size();
        ASSERT_TRUE(events::wait_for_user(0, events::of(0).size() + 1));
        ASSERT_EQ(events::of(1).size(), before);
        if (round % 10 == 9) {
            trace::clear();
            events::clear();
        }
    }
}

TEST_F(PouringEvents, requests_are_answered_in_between) {
    User& who = registered(0);
    const Flood flood(server, Flood::Pace::AsTheyAreTaken);
    for (int round = 0; round < 200; ++round) {
        uint32_t status = 0;
        ASSERT_EQ(who.run([&] { return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status); }), NETCM_SUCCESS);
    }
    EXPECT_TRUE(events::wait_for(1000));
}

TEST_F(PouringEvents, the_last_thread_leaves_from_a_callback_in_the_middle_of_the_flood) {
    User& who = user(0);
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(who.register_client(), NETCM_SUCCESS);
        std::atomic<bool> left{false};
        const auto leaving = events::during([&](const Event&) {
            if (left)
                return;
            g_NetCMClientAppInfo.ThreadInfo[0].ThreadId = NetCMGetCurrentTid();
            EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS);
            left = true;
        });
        {
            const Flood flood(server);
            ASSERT_TRUE(trace::wait_for_prefix("Client unregistered successfully. TID = "));
        }
        trace::clear();
    }
}

}  // namespace
}  // namespace quorvel::test
