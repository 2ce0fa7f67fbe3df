// The exchange with a server: attempts, sockets, and who may answer.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ostream>
#include <set>

#include "Host.h"
#include "Responder.h"
#include "support/LibraryCalls.h"
#include "support/Proc.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;

void expect_no_response(const Resolution& result) {
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, 2);
    EXPECT_EQ(result.error, EAGAIN);
    EXPECT_EQ(trace::find("dns_lookup() failed\n").mask, trace::kInternal);
}

TEST(Exchange, an_answer_leaves_no_descriptor_open) {
    Responder responder(answer_with("192.0.2.1"));
    const Descriptors before = open_descriptors();
    EXPECT_NE(Resolution().by_name("example.org").host, nullptr);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Exchange, a_server_that_is_not_there_is_asked_twice_over_two_sockets) {
    const auto start = std::chrono::steady_clock::now();
    expect_no_response(Resolution().by_name("example.org"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(trace::count("recv() failed: 111\n"), 2u);
    EXPECT_EQ(trace::count("dns_recv() failed\n"), 2u);
    EXPECT_EQ(trace::find("dns_recv() failed\n").mask, trace::kInternal);
}

TEST(Exchange, an_interface_that_is_not_there_uses_up_both_attempts) {
    Responder responder(answer_with("192.0.2.1"));
    expect_no_response(Resolution().by_name("example.org", "127.0.0.1", "no-such-interface"));
    EXPECT_EQ(trace::count("setsockopt() failed: 19\n"), 2u);
    EXPECT_EQ(trace::count("dns_socket() failed\n"), 2u);
    EXPECT_EQ(responder.query_count(), 0u);
}

TEST(Exchange, a_server_address_that_is_none_uses_up_both_attempts) {
    const Descriptors before = open_descriptors();
    for (const char* server : {"999.1.1.1", "", static_cast<const char*>(nullptr)}) {
        trace::clear();
        expect_no_response(Resolution().by_name("example.org", server));
        EXPECT_EQ(trace::count("inet_addr() failed\n"), 2u);
        EXPECT_EQ(trace::count("dns_connect() failed\n"), 2u);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(Exchange, a_query_over_an_interface_is_answered_over_it) {
    Responder responder(answer_with("192.0.2.1"));
    EXPECT_NE(Resolution().by_name("example.org", "127.0.0.1", "lo").host, nullptr);
}

TEST(Exchange, an_answer_from_elsewhere_is_not_taken) {
    Responder responder([](const Exchange& exchange) {
        const Bytes forged = Response(exchange.query).a("example.org", "203.0.113.66").bytes();
        exchange.reply_from("127.0.0.2", 53, forged);
        exchange.reply_from("127.0.0.1", 5353, forged);
        exchange.reply(Response(exchange.query).a("example.org", "192.0.2.1"));
    });
    const Resolution result = std::move(Resolution().by_name("example.org"));
    ASSERT_NE(result.host, nullptr);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
}

TEST(Exchange, descriptors_0_to_2_are_never_used) {
    Responder responder(answer_with("192.0.2.1"));
    const int kept[] = {dup(0), dup(1), dup(2)};
    const int before = kept[2];
    for (int fd = 0; fd < 3; ++fd)
        close(fd);
    const int fd = dns_socket(1, nullptr);
    const hostent* host = Resolution().by_name("example.org").host;
    const bool free_still = fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
    for (int standard = 0; standard < 3; ++standard) {
        dup2(kept[standard], standard);
        close(kept[standard]);
    }
    dns_close(fd);
    EXPECT_GT(fd, before);
    EXPECT_NE(host, nullptr);
    EXPECT_TRUE(free_still);
}

// A step of the exchange that fails, and what the attempt that meets it traces.
struct FailingStep {
    const char* name;
    Call call;
    int error;
    std::string own_line;
    std::string step_line;
    bool keeps_socket;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.name;
}

const FailingStep kSteps[] = {
    {"socket", Call::Socket, EMFILE, "socket() failed: 24\n", "dns_socket() failed\n", false},
    {"connect", Call::Connect, ENETUNREACH, "connect() failed: 101\n", "dns_connect() failed\n", false},
    {"send", Call::Send, EPERM, "send() failed: 1\n", "dns_send() failed\n", true},
    {"poll", Call::Poll, ENOMEM, "poll() failed: 12\n", "dns_poll() failed\n", true},
    {"receive", Call::Receive, EIO, "recv() failed: 5\n", "dns_recv() failed\n", false},
};

std::vector<std::string> internal_errors() {
    std::vector<std::string> texts;
    for (const TraceLine& line : trace::lines())
        if (line.mask == trace::kInternal)
            texts.push_back(line.text);
    return texts;
}

class FailingExchange : public ::testing::TestWithParam<FailingStep> {
  protected:
    Responder responder_{answer_with("192.0.2.1")};
    const Descriptors before_ = open_descriptors();
};

TEST_P(FailingExchange, the_second_attempt_succeeds) {
    calls::fail(GetParam().call, 1, GetParam().error);
    const Resolution result = std::move(Resolution().by_name("example.org"));
    ASSERT_NE(result.host, nullptr);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
    EXPECT_EQ(result.herr, 0);
    EXPECT_THAT(internal_errors(), ElementsAre(GetParam().own_line, GetParam().step_line));
    EXPECT_TRUE(trace::traced(4, GetParam().own_line, "dns/src/netutil"));
    EXPECT_TRUE(trace::traced(4, GetParam().step_line, "dns/src/resolver"));
    EXPECT_EQ(calls::count(Call::Socket), GetParam().keeps_socket ? 1u : 2u);
    EXPECT_EQ(open_descriptors(), before_);
}

TEST_P(FailingExchange, two_failed_attempts_are_all) {
    calls::fail(GetParam().call, 1, GetParam().error, calls::kForEver);
    expect_no_response(Resolution().by_name("example.org"));
    EXPECT_THAT(internal_errors(), ElementsAre(GetParam().own_line, GetParam().step_line, GetParam().own_line,
                                               GetParam().step_line, "dns_lookup() failed\n"));
    EXPECT_EQ(calls::count(GetParam().call), 2u);
    EXPECT_EQ(calls::count(Call::Socket), GetParam().keeps_socket ? 1u : 2u);
    EXPECT_EQ(open_descriptors(), before_);
}

INSTANTIATE_TEST_SUITE_P(Exchange, FailingExchange, ::testing::ValuesIn(kSteps),
                         [](const auto& step) { return std::string(step.param.name); });

TEST(Exchange, after_a_time_out_the_query_is_sent_again_on_the_same_socket) {
    Responder responder(answer_with("192.0.2.1"));
    calls::answer_next_poll(0);
    EXPECT_NE(Resolution().by_name("example.org").host, nullptr);
    EXPECT_TRUE(trace::contains_in_order({"poll() timed out\n", "dns_poll() timed out\n"}));
    EXPECT_EQ(calls::count(Call::Socket), 1u);
    EXPECT_EQ(calls::count(Call::Connect), 1u);
    EXPECT_EQ(calls::count(Call::Send), 2u);
}

// A failure of each kind uses up an attempt, whatever the other one's was.
TEST(Exchange, two_different_failures_are_two_attempts) {
    Responder responder(answer_with("192.0.2.1"));
    const Descriptors before = open_descriptors();
    calls::answer_next_poll(0);
    calls::fail(Call::Send, 2, EPERM);
    expect_no_response(Resolution().by_name("example.org"));
    EXPECT_THAT(internal_errors(), ElementsAre("dns_poll() timed out\n", "send() failed: 1\n",
                                               "dns_send() failed\n", "dns_lookup() failed\n"));
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ExchangeSlow, silence_is_waited_for_twice_on_one_socket) {
    Responder responder(silence());
    const auto start = std::chrono::steady_clock::now();
    expect_no_response(Resolution().by_name("example.org"));
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(4000));
    EXPECT_LT(taken, std::chrono::milliseconds(8000));
    EXPECT_EQ(trace::count("poll() timed out\n"), 2u);
    EXPECT_EQ(trace::find("poll() timed out\n").mask, trace::kNormal);
    EXPECT_EQ(trace::count("dns_poll() timed out\n"), 2u);
    EXPECT_EQ(trace::find("dns_poll() timed out\n").mask, trace::kInternal);
    const std::vector<Bytes> queries = responder.queries();
    ASSERT_EQ(queries.size(), 2u);
    EXPECT_EQ(queries[0], queries[1]);
    const std::vector<uint16_t> senders = responder.senders();
    EXPECT_EQ(senders[0], senders[1]);
}

TEST(ExchangeSlow, an_answer_to_the_second_query_is_taken) {
    int asked = 0;
    Responder responder([&asked](const Exchange& exchange) {
        if (++asked == 2)
            exchange.reply(Response(exchange.query).a("example.org", "192.0.2.1"));
    });
    EXPECT_NE(Resolution().by_name("example.org").host, nullptr);
}

}  // namespace
}  // namespace quorvel::test::dns
