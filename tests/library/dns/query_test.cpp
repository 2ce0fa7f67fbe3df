// The query as it goes over the wire.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "Host.h"
#include "Responder.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

// The bytes behind the header of the one query that a lookup sends.
Bytes question_of(const char* name) {
    Responder responder(answer_with("192.0.2.1"));
    Resolution().by_name(name);
    EXPECT_EQ(responder.query_count(), 1u);
    const Bytes query = responder.queries().at(0);
    return {query.begin() + 12, query.end()};
}

const Bytes kTypeAClassIn{0, 1, 0, 1};

TEST(Query, the_header_asks_one_question_and_wants_recursion) {
    Responder responder(answer_with("192.0.2.1"));
    Resolution().by_name("example.org");
    const Bytes query = responder.queries().at(0);
    EXPECT_EQ(query.size(), 12u + 13 + 4);
    const uint16_t expected[] = {0x0100, 1, 0, 0, 0};
    for (size_t word = 0; word < 5; ++word)
        EXPECT_EQ(word_at(query, 2 + 2 * word), expected[word]) << word;
}

TEST(Query, the_name_is_sent_as_labels_with_type_and_class_behind_it) {
    EXPECT_EQ(question_of("www.example.org"), labels("www.example.org") + kTypeAClassIn);
}

TEST(Query, the_id_is_the_first_number_of_a_generator_seeded_with_the_time) {
    Responder responder(answer_with("192.0.2.1"));
    for (;;) {
        const time_t before = time(nullptr);
        Resolution().by_name("example.org");
        if (time(nullptr) != before)
            continue;
        srand(static_cast<unsigned>(before));
        EXPECT_EQ(word_at(responder.queries().back(), 0), static_cast<uint16_t>(rand()));
        return;
    }
}

TEST(Query, two_queries_of_one_second_carry_the_same_id) {
    Responder responder(answer_with("192.0.2.1"));
    for (;;) {
        const time_t before = time(nullptr);
        Resolution().by_name("one.example");
        Resolution().by_name("two.example");
        if (time(nullptr) != before)
            continue;
        const std::vector<Bytes> queries = responder.queries();
        EXPECT_EQ(word_at(queries.end()[-1], 0), word_at(queries.end()[-2], 0));
        return;
    }
}

TEST(Query, a_label_of_63_characters_is_accepted) {
    const std::string name = long_label(63) + ".org";
    EXPECT_EQ(question_of(name.c_str()), labels(name) + kTypeAClassIn);
}

void expect_invalid_label(const std::string& name) {
    Responder responder(silence());
    trace::clear();
    const Resolution result = std::move(Resolution().by_name(name.c_str()));
    EXPECT_EQ(result.host, nullptr) << name;
    EXPECT_EQ(result.herr, -1) << name;
    EXPECT_EQ(result.error, EINVAL) << name;
    EXPECT_EQ(trace::find("invalid label\n").mask, trace::kInternal) << name;
    EXPECT_EQ(responder.query_count(), 0u) << name;
}

TEST(Query, a_label_of_64_characters_with_a_dot_behind_it_fails) {
    expect_invalid_label(long_label(64) + ".org");
}

TEST(Query, empty_labels_fail) {
    for (const char* name : {"a..b", ".a", ".", "a.."})
        expect_invalid_label(name);
}

TEST(Query, the_last_label_is_sent_whatever_its_length) {
    const std::string label = long_label(70);
    EXPECT_EQ(question_of(label.c_str()), labels(label) + kTypeAClassIn);
    const std::string last = "www." + long_label(64);
    EXPECT_EQ(question_of(last.c_str()), labels(last) + kTypeAClassIn);
}

TEST(Query, a_final_dot_costs_the_last_label_its_last_character) {
    EXPECT_EQ(question_of("ab."), (Bytes{2, 'a', 0, 0}) + kTypeAClassIn);
    EXPECT_EQ(question_of("a."), (Bytes{1, 0, 0}) + kTypeAClassIn);
    EXPECT_EQ(question_of("www.org."), (Bytes{3, 'w', 'w', 'w', 3, 'o', 'r', 0, 0}) + kTypeAClassIn);
}

TEST(Query, an_empty_name_asks_for_the_root) {
    EXPECT_EQ(question_of(""), (Bytes{0}) + kTypeAClassIn);
}

TEST(Query, a_name_of_255_characters_is_accepted) {
    EXPECT_EQ(question_of(long_label(255).c_str()).size(), 1u + 255 + 1 + 4);
}

TEST(Query, a_name_of_256_characters_fails_before_a_socket_is_opened) {
    trace::clear();
    const Resolution result =
        std::move(Resolution().by_name(long_label(256).c_str(), "127.0.0.1", "no-such-interface"));
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, -1);
    EXPECT_EQ(result.error, EINVAL);
    EXPECT_EQ(trace::find("query too long\n").mask, trace::kInternal);
    EXPECT_FALSE(trace::contains("dns_socket() failed\n"));
}

TEST(Query, the_address_255_255_255_255_is_asked_for_as_a_name) {
    EXPECT_EQ(question_of("255.255.255.255"), labels("255.255.255.255") + kTypeAClassIn);
}

TEST(Query, a_missing_name_fails_without_a_query) {
    const Resolution result = std::move(Resolution().by_name(nullptr));
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, -1);
    EXPECT_EQ(result.error, EINVAL);
}

TEST(ReverseQuery, an_address_is_asked_for_backwards_below_in_addr_arpa) {
    Responder responder([](const Exchange& exchange) {
        exchange.reply(Response(exchange.query).ptr(asked_name(exchange.query), "host.example"));
    });
    Resolution().by_address("1.2.3.4");
    const Bytes query = responder.queries().at(0);
    EXPECT_EQ(asked_name(query), "4.3.2.1.in-addr.arpa");
    EXPECT_EQ(word_at(query, query.size() - 4), kPtr);
    EXPECT_EQ(word_at(query, query.size() - 2), kIn);
}

TEST(ReverseQuery, bytes_above_127_are_written_as_numbers) {
    Responder responder(answer_with("192.0.2.1"));
    Resolution().by_address("255.128.200.254");
    EXPECT_EQ(asked_name(responder.queries().at(0)), "254.200.128.255.in-addr.arpa");
}

TEST(ReverseQuery, four_bytes_are_read_whatever_length_and_type_say) {
    Responder responder(answer_with("192.0.2.1"));
    const char address[] = {10, 20, 30, 40};
    HostBuffer buffer(1024);
    for (const int length : {-1, 0, 4, 255})
        dnet_gethostbyaddr_r("127.0.0.1", nullptr, address, length, AF_INET6, buffer.data(), buffer.size(),
                             nullptr, nullptr, nullptr);
    ASSERT_EQ(responder.query_count(), 4u);
    for (const Bytes& query : responder.queries())
        EXPECT_EQ(asked_name(query), "40.30.20.10.in-addr.arpa");
}

TEST(ReverseQuery, a_length_above_255_is_a_query_that_is_too_long) {
    const char address[] = {10, 20, 30, 40};
    HostBuffer buffer(1024);
    int herr = 0;
    EXPECT_EQ(dnet_gethostbyaddr_r("127.0.0.1", nullptr, address, 256, AF_INET, buffer.data(), buffer.size(),
                                   &herr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(herr, -1);
    EXPECT_TRUE(trace::contains("query too long\n"));
}

TEST(ReverseQuery, a_missing_address_fails_without_a_query) {
    HostBuffer buffer(1024);
    int herr = 0;
    EXPECT_EQ(dnet_gethostbyaddr_r("127.0.0.1", nullptr, nullptr, 4, AF_INET, buffer.data(), buffer.size(),
                                   &herr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(herr, -1);
}

TEST(PacketDump, is_off_up_to_level_2) {
    Responder responder(answer_with("192.0.2.1"));
    for (const char* level : {"0", "2", "-5", "abc"}) {
        setenv("QVDNS_DEBUG", level, 1);
        trace::clear();
        Resolution().by_name("example.org");
        EXPECT_FALSE(trace::contains("0x01 ")) << level;
    }
    unsetenv("QVDNS_DEBUG");
}

TEST(PacketDump, shows_both_packets_byte_by_byte_above_level_2) {
    Responder responder(answer_with("192.0.2.1"));
    setenv("QVDNS_DEBUG", "3", 1);
    trace::clear();
    testing::internal::CaptureStderr();
    Resolution().by_name("ex");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n\n");
    unsetenv("QVDNS_DEBUG");

    EXPECT_TRUE(trace::contains_in_order({"<packet to send (20 bytes)>\n", "0x02 ", "0x65 ", "0x78 ", "0x00 ",
                                          "<packet received (36 bytes)>\n", "0xc0 ", "0x02 ", "0x01 "}));
    EXPECT_EQ(trace::find("<packet to send (20 bytes)>\n").mask, trace::kInternal);
    EXPECT_EQ(trace::find("0x65 ").mask, trace::kInternal);
    size_t dumped = 0;
    for (const std::string& text : trace::texts())
        dumped += text.size() == 5 && text.compare(0, 2, "0x") == 0 ? 1 : 0;
    EXPECT_EQ(dumped, 20u + 36);
}

}  // namespace
}  // namespace quorvel::test::dns
