// netcm resolve --async while some names take their time. These tests hold answers back for less than the
// library waits for them.
#include <gmock/gmock.h>

#include <condition_variable>
#include <csignal>
#include <mutex>

#include "Netcm.h"
#include "library/dns/Responder.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

// One server twice, with two attempts of two seconds each: a name may be held back for 8 seconds.
constexpr const char* kOverLoopback = R"(
dns = ["127.0.0.1", "127.0.0.1"]

[[profile]]
name = "first"
apn = "first"
interface = "lo"
)";

// Answers every name at once, but those that begin with "slow" when it is told to.
class HoldingServer {
  public:
    void wait_for_held(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return held_.size() >= count; });
    }

    void release() {
        const std::lock_guard lock(mutex_);
        released_ = true;
        for (const dns::Exchange& exchange : held_) {
            answer(exchange);
        }
    }

  private:
    static void answer(const dns::Exchange& exchange) { dns::answer_with("192.0.2.5")(exchange); }

    void receive(const dns::Exchange& exchange) {
        const std::lock_guard lock(mutex_);
        if (released_ || !dns::asked_name(exchange.query).starts_with("slow")) {
            answer(exchange);
            return;
        }
        held_.push_back(exchange);
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<dns::Exchange> held_;
    bool released_ = false;
    dns::Responder responder_{[this](const dns::Exchange& exchange) { receive(exchange); }};
};

// Ten names are looked up at a time.
Words slow_names(int count) {
    Words names;
    for (int i = 0; i < count; ++i) {
        names.push_back("slow" + std::to_string(i) + ".test");
    }
    return names;
}

class NetcmResolveLossSlow : public ::testing::Test {
  protected:
    CmServer server_{kOverLoopback};
    HoldingServer dns_;
};

class NetcmResolveManySlow : public NetcmResolveLossSlow, public ::testing::WithParamInterface<Words> {};

TEST_P(NetcmResolveManySlow, prints_the_answer_that_is_there_and_how_far_it_is) {
    Program netcm(netcm_command(Words{"resolve", "--async", "slow.test", "fast.test"} + GetParam()),
                  StandardError::kTerminal);
    netcm.wait_for_err("0 of 2 names");
    netcm.wait_for_out("asked         fast.test\nname          fast.test\n");
    netcm.wait_for_err("1 of 2 names");
    dns_.release();
    netcm.wait_for_out("asked         slow.test\nname          slow.test\n");
    const Ended ended = netcm.wait();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "0 of 2 names\r\x1b[K1 of 2 names\r\x1b[K\r\x1b[K");
}

TEST_P(NetcmResolveManySlow, keeps_its_progress_from_a_file) {
    dns_.release();
    EXPECT_EQ(netcm(Words{"resolve", "--async", "slow.test", "fast.test"} + GetParam()).err, "");
}

TEST_P(NetcmResolveManySlow, answers_from_the_cache_what_has_been_asked_before) {
    // The second question for it waits until one of the ten before is done: the first one, by then cached.
    Program netcm(netcm_command(Words{"resolve", "--async", "--json", "fast.test"} + GetParam() +
                                slow_names(9) + Words{"fast.test"}));
    netcm.wait_for_out("\"source\":\"cache\"");
    dns_.release();
    const Ended ended = netcm.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    const auto answers = json_lines(ended.out);
    ASSERT_EQ(answers.size(), 11u);
    EXPECT_EQ(answers[1]["asked"], "fast.test");
    EXPECT_EQ(answers[1]["source"], "cache");
}

INSTANTIATE_TEST_SUITE_P(Servers, NetcmResolveManySlow,
                         ::testing::Values(Words{}, Words{"--server", "127.0.0.1", "--server", "127.0.0.1"}),
                         [](const auto& words) { return words.param.empty() ? "own" : "given"; });

TEST_F(NetcmResolveLossSlow, a_connection_that_ends_ends_what_has_not_been_asked) {
    Program netcm(Words{"env", "QUORVEL_TRACE=all"} +
                  netcm_command(Words{"resolve", "--async", "--json"} + slow_names(10) +
                                Words{"late.test", "later.test"}));
    dns_.wait_for_held(10);
    server_.ctl({"stop"});
    // Events are taken one after another: behind this one the connection is gone.
    server_.ctl({"network-status"});
    netcm.wait_for_err("Received PDP/WLAN status change indication");
    dns_.release();
    const Ended ended = netcm.wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("netcm: 2 of 12 not resolved\n"));
    const auto answers = json_lines(ended.out);
    ASSERT_EQ(answers.size(), 12u);
    for (const json& answer : answers) {
        const bool late = answer["asked"].get<std::string>().starts_with("late");
        EXPECT_EQ(answer.value("error", ""), late ? "the connection has ended" : "") << answer;
    }
}

TEST_F(NetcmResolveLossSlow, an_interrupt_leaves_what_is_under_way) {
    Program netcm(netcm_command(Words{"resolve", "--async"} + slow_names(10)));
    dns_.wait_for_held(10);
    netcm.send_signal(SIGINT);
    const Ended ended = netcm.wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "netcm: interrupted\n");
}

}  // namespace
}  // namespace quorvel::test
