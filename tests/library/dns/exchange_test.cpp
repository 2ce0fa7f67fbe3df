// The exchange with a server: attempts, sockets, and who may answer.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <set>

#include "Host.h"
#include "Responder.h"
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
