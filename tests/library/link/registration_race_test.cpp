// Threads that ask while others come and go, and what a link leaves behind.
#include <fcntl.h>

#include <algorithm>

#include "library/calls/CallTest.h"
#include "quorvel/NetPM.h"
#include "support/LeakCheck.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr char kReset[] = "Quorvel connection got reset, close the thread \n";

// What a thread may ask that has not registered itself, as long as the process is registered.
struct Question {
    const char* name;
    uint32_t (*ask)();

    friend std::ostream& operator<<(std::ostream& out, const Question& one) { return out << one.name; }
};

uint32_t ask_status() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}
uint32_t ask_setting() {
    uint32_t value = 0;
    uint32_t result = 99;
    return NetCMSettingsGet(2, &value, &result) == 0 ? result : 0;
}
uint32_t ask_interfaces() {
    int32_t list = 0;
    return NetCMGetNetIfaceList(&list);
}
uint32_t ask_device() {
    NetCMConnInfo info = {};
    return NetCMDeviceGetInfo(7, &info);
}
uint32_t ask_profile() {
    NetPMProfile profile = {};
    return NetPMGetProfileInfo(7, &profile);
}
uint32_t ask_binding() {
    NetPMAppProf binding = {};
    return NetPMAppProfGetAppInfo(7, &binding);
}
uint32_t ask_proper_profile() {
    return NetPMAppProfGetProperProfileAsync(7);
}

constexpr Question kQuestions[] = {
    {"status", ask_status},         {"setting", ask_setting},
    {"interfaces", ask_interfaces}, {"tunnel_indications", NetCMClientRegisterTunnelInd},
    {"device", ask_device},         {"profile", ask_profile},
    {"binding", ask_binding},       {"proper_profile", ask_proper_profile},
};

class LateQuestion : public CallTest, public ::testing::WithParamInterface<Question> {};

INSTANTIATE_TEST_SUITE_P(Of, LateQuestion, ::testing::ValuesIn(kQuestions),
                         [](const auto& instance) { return instance.param.name; });

// It is held between the check and the lock, until nobody is registered any more.
TEST_P(LateQuestion, behind_the_last_deregistration_gives_6_and_brings_nothing_up) {
    AppThread asker;
    registered(0);
    Gate gate;
    uint32_t result = 99;
    const std::string trying = trace::text("Thread [%d] trying to lock the Mutex \n", asker.tid());
    const auto holding = trace::on_line([&](const TraceLine& line) {
        if (line.text == trying)
            gate.pass();
    });
    asker.start([&] { result = GetParam().ask(); });
    ASSERT_TRUE(gate.is_somebody_waiting());
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
    const Descriptors descriptors_before = open_descriptors();
    const std::set<int32_t> threads_before = threads();
    gate.open();
    asker.wait();
    EXPECT_EQ(result, NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(leaked(descriptors_before, open_descriptors()), "");
    // A receiver that has been joined may still be on the kernel's list.
    EXPECT_TRUE(std::ranges::includes(threads_before, threads()));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u);
    EXPECT_TRUE(with_table([](const NetCMClientAppInfo& table) {
        return table.SyncSockFd == -1 && table.AsyncSockFd == -1 && table.RecvThreadId == kNoReceiver;
    }));
    // What it had brought up would be taken for a link of this registration.
    EXPECT_EQ(user(0).register_client(), NETCM_SUCCESS);
    EXPECT_EQ(user(0).deregister(), NETCM_SUCCESS);
}

class Asking : public CallTest, public ::testing::WithParamInterface<Question> {};

INSTANTIATE_TEST_SUITE_P(Of, Asking,
                         ::testing::Values(Question{"status", ask_status}, Question{"profile", ask_profile}),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Asking, beside_a_thread_that_comes_and_goes_leaves_nothing_behind) {
    constexpr int kRounds = 200;
    AppThread asker;
    User& who = user(0);
    trace::stop_keeping();
    const size_t descriptors_before = open_descriptors().size();
    const std::set<int32_t> threads_before = threads();
    std::atomic<bool> over{false};
    std::atomic<int> odd{0};
    asker.start([&] {
        while (!over) {
            const uint32_t result = GetParam().ask();
            odd += result == NETCM_SUCCESS || result == NETCM_ERR_NOT_REGISTERED ? 0 : 1;
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_EQ(who.register_client(), NETCM_SUCCESS);
        ASSERT_EQ(who.deregister(), NETCM_SUCCESS);
    }
    over = true;
    asker.wait();
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), static_cast<size_t>(kRounds));
    EXPECT_EQ(odd, 0);
    EXPECT_TRUE(eventually([&] { return open_descriptors().size() == descriptors_before; }));
    EXPECT_TRUE(eventually([&] { return threads() == threads_before; }));
}

class RegistrationRace : public CallTest {};

// By the time it begins another link may be shown.
TEST_F(RegistrationRace, a_receiver_reads_its_own_pipe_whatever_is_shown) {
    User& who = user(0);
    int other[2];
    ASSERT_EQ(pipe2(other, O_CLOEXEC | O_NONBLOCK), 0);
    Gate gate;
    {
        const auto holding = trace::on_line([&](const TraceLine& line) {
            if (line.text.starts_with("In Quorvel Thread, pid"))
                gate.pass();
        });
        EXPECT_EQ(who.register_client(), NETCM_SUCCESS);
        ASSERT_TRUE(gate.is_somebody_waiting());
        __atomic_store_n(&pipe_fds[0], other[0], __ATOMIC_RELEASE);
        gate.open();
    }
    who.thread().start([] { EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS); });
    EXPECT_TRUE(who.thread().done(std::chrono::seconds(20)));
    EXPECT_EQ(fcntl(other[0], F_GETFD), FD_CLOEXEC) << "it is not the library's to close";
    close(other[0]);
    close(other[1]);
}

// The receiver has registered itself, and is the last to leave.
TEST_F(RegistrationRace, a_callback_may_take_the_link_down_bring_it_up_and_take_it_down_again) {
    User& who = registered(0);
    enum class Step { Register, Stay, Leave };
    std::atomic<Step> step{Step::Register};
    std::atomic<bool> left{false};
    const auto stepping = events::during([&](const Event&) {
        const Step now = step.exchange(Step::Stay);
        if (now == Step::Register) {
            EXPECT_EQ(NetCMClientRegister(events::callback_of(5)), NETCM_SUCCESS);
        }
        if (now != Step::Leave)
            return;
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS);
            EXPECT_EQ(NetCMClientRegister(events::callback_of(5)), NETCM_SUCCESS);
        }
        EXPECT_EQ(NetCMClientDeRegister(), NETCM_SUCCESS);
        left = true;
    });
    const wire::Record event = indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0);
    ASSERT_TRUE(server.push(event));
    ASSERT_TRUE(events::wait_for(2)) << "the receiver is told as well";
    EXPECT_EQ(who.deregister(), NETCM_SUCCESS);
    step = Step::Leave;
    ASSERT_TRUE(server.push(event));
    ASSERT_TRUE(eventually([&] { return left.load(); }));
    EXPECT_EQ(with_table([](const NetCMClientAppInfo& table) { return table.RegCount; }), 0);
    EXPECT_EQ(__atomic_load_n(&PendingEventRecord, __ATOMIC_ACQUIRE), nullptr);
    registered(0);
    events::clear();
    ASSERT_TRUE(server.push(event));
    EXPECT_TRUE(events::wait_for_user(0, 1));
    EXPECT_FALSE(trace::contains(kReset));
}

TEST_F(RegistrationRace, a_server_that_names_a_client_minus_1_has_refused_it) {
    wire::Record answer = answer_record(wire::NETCM_CLIENT_REGISTER_REQ);
    answer.Word1 = static_cast<uint32_t>(-1);
    server.on(wire::NETCM_CLIENT_REGISTER_REQ, Answer().record(answer));
    EXPECT_EQ(user(0).register_client(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED);
    EXPECT_EQ(trace::count("Client not Registered Error = 0\n"), 3u);
    EXPECT_TRUE(trace::traced(3, "Client not Registered Error = 0\n", "client/CM/src/NetCMClientInternal"));
    server.forget_scripts();
    EXPECT_EQ(user(0).register_client(), NETCM_SUCCESS) << "nobody is locked out";
    EXPECT_EQ(user(0).run(ask_status), NETCM_SUCCESS);
}

}  // namespace
}  // namespace quorvel::test
