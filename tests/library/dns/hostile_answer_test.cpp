// What no server should send: nothing is read outside the message or written outside the buffer, and the
// result is the stated one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cerrno>

#include "Host.h"
#include "Responder.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;

template <class Make>
Resolution hostile_message(Make make) {
    Responder responder([make](const Exchange& exchange) { exchange.reply(make(exchange.query)); });
    trace::clear();
    return std::move(Resolution().by_name("www.example"));
}

template <class Fill>
Resolution hostile(Fill fill) {
    return hostile_message([fill](const Bytes& query) {
        Response response(query);
        fill(response);
        return response.bytes();
    });
}

void expect_failure(const Resolution& result, int herr) {
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, herr);
    EXPECT_EQ(result.error, ENOENT);
}

TEST(HostileHeader, fewer_than_12_bytes_fail) {
    for (size_t length = 0; length < 12; ++length) {
        const Resolution result = hostile_message([length](const Bytes& query) {
            return Bytes(query.begin(), query.begin() + static_cast<long>(length));
        });
        expect_failure(result, 1);
        const std::string shortage = "rx data 12 required, but " + std::to_string(length) + " received";
        EXPECT_TRUE(trace::contains_in_order({shortage, "unpack_header() failed\n"})) << length;
        EXPECT_EQ(trace::find(shortage).mask, trace::kInternal);
        EXPECT_FALSE(trace::contains("< header section >\n"));
    }
}

TEST(HostileHeader, another_id_fails) {
    unsigned asked = 0;
    const Resolution result = hostile_message([&asked](const Bytes& query) {
        asked = word_at(query, 0);
        return Response(query).id(static_cast<uint16_t>(asked + 1)).a("www.example", "1.2.3.4").bytes();
    });
    expect_failure(result, 1);
    EXPECT_TRUE(trace::traced(
        4, trace::text("invalid header id: expected %u, received %u\n", asked, (asked + 1u) & 0xffff),
        "dns/src/resolver"));
}

TEST(HostileHeader, what_follows_the_answers_is_counted_and_not_read) {
    const Resolution result = hostile_message([](const Bytes& query) {
        Bytes message = Response(query).a("www.example", "192.0.2.1").bytes();
        message[8] = 1;
        message[9] = 2;
        message[10] = message[11] = 0xff;
        return message;
    });
    ASSERT_NE(result.host, nullptr);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
    EXPECT_TRUE(
        trace::contains_in_order({"qdcount : 1\n", "ancount : 1\n", "nscount : 258\n", "arcount : 65535\n"}));
    EXPECT_TRUE(trace::traced(2, "arcount : 65535\n", "dns/src/resolver"));
}

TEST(HostileHeader, each_response_code_gives_its_error) {
    const int errors[] = {0, 3, 2, 4, 3, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int rcode = 1; rcode < 16; ++rcode) {
        const Resolution result = hostile([rcode](Response& r) {
            r.flags(static_cast<uint16_t>(0x8180 | rcode)).a("www.example", "192.0.2.1");
        });
        expect_failure(result, errors[rcode]);
        const std::string text = "error response: " + std::to_string(rcode) + "\n";
        EXPECT_EQ(trace::find(text).mask, trace::kInternal) << text;
    }
}

TEST(HostileHeader, no_answer_is_no_host) {
    expect_failure(hostile([](Response&) {}), 1);
    EXPECT_EQ(trace::find("no error but no answer(s)\n").mask, trace::kNormal);
}

TEST(HostileQuestion, a_response_without_its_question_is_understood) {
    Resolution result = hostile([](Response& r) { r.without_question().a("www.example", "192.0.2.1"); });
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, "www.example");
}

TEST(HostileQuestion, a_question_that_cannot_be_read_moves_one_byte_back) {
    // One question more than there is. At its place stands a label that reaches past the end; one byte before
    // it, the low byte of the first question's class is a label's length, 1, and there the answer begins.
    Resolution result = hostile([](Response& r) {
        r.questions(2).answers(1).raw({'<', 0, 0, kA, 0, kIn, 0, 0, 0, 9, 0, 4, 192, 0, 2, 5});
    });
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "<");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.5"));
    EXPECT_EQ(trace::count("< question section >\n"), 1u);
}

TEST(HostileQuestion, each_of_several_unreadable_questions_moves_one_byte_back) {
    const Resolution result = hostile([](Response& r) { r.questions(3).answers(1).raw({60}); });
    expect_failure(result, 1);
    // The second question is looked for behind the first, the third one byte before, the answer two bytes
    // before.
    const int end = 12 + 13 + 4;
    EXPECT_TRUE(trace::contains_in_order(
        {"rx data " + std::to_string(end + 61) + " required, but " + std::to_string(end + 1) + " received",
         "rx data " + std::to_string(end + 2) + " required, but " + std::to_string(end + 1) + " received",
         "unpack_answer() failed\n"}));
}

TEST(HostileQuestion, the_most_unreadable_questions_end) {
    const Resolution result = hostile_message([](const Bytes& query) {
        Bytes message(query.begin(), query.begin() + 12);
        message[2] = 0x81;
        message[4] = message[5] = 0xff;
        message[7] = 1;
        return message;
    });
    expect_failure(result, 1);
    EXPECT_TRUE(trace::contains("unpack_answer() failed\n"));
}

// The header is in the machine's own order once it has been examined.
constexpr bool kSwapped = std::endian::native == std::endian::little;

TEST(HostileQuestion, a_walk_back_into_the_header_reads_it_as_examined) {
    const Resolution result = hostile_message([](const Bytes& query) {
        Bytes message(query.begin(), query.begin() + 12);
        message[2] = 0x81;
        message[5] = message[7] = message[11] = 1;
        return message;
    });
    expect_failure(result, 1);
    // The answer is looked for at byte 11: swapped it is the end of a name, else a label of one byte.
    const std::string_view shortage =
        kSwapped ? "rx data 14 required, but 12 received" : "rx data 13 required, but 12 received";
    EXPECT_TRUE(trace::contains_in_order(
        {"arcount : 1\n", "rx data 13 required, but 12 received", shortage, "unpack_answer() failed\n"}));
}

// No byte of this header begins a name, and where the id's do not either, the questions lead before the
// message.
TEST(HostileQuestion, a_walk_back_past_the_beginning_ends) {
    bool id_is_unreadable = false;
    for (int attempt = 0; !id_is_unreadable && attempt < 100; ++attempt) {
        const Resolution result = hostile_message([&](const Bytes& query) {
            const auto is_unreadable = [](uint8_t byte) { return byte >= 0x40 && byte < 0xc0; };
            id_is_unreadable = is_unreadable(query[0]) && is_unreadable(query[1]);
            Bytes message(12, 0x40);
            std::copy_n(query.begin(), 2, message.begin());
            message[2] = 0x81;
            message[3] = 0x80;
            return message;
        });
        expect_failure(result, 1);
        EXPECT_TRUE(trace::contains_in_order({"qdcount : 16448\n", "unpack_answer() failed\n"}));
    }
    EXPECT_TRUE(id_is_unreadable);
}

Bytes whole_answer(const Bytes& query) {
    return Response(query)
        .cname("www.example", "b.example", 7)
        .record(pointer_to(kQuestionAt), kA, kIn, 7, address_bytes("192.0.2.1"))
        .bytes();
}

TEST(HostileAnswer, a_message_cut_at_any_byte_fails) {
    size_t length = 12;
    for (;; ++length) {
        bool whole = false;
        const Resolution result = hostile_message([length, &whole](const Bytes& query) {
            Bytes message = whole_answer(query);
            whole = length >= message.size();
            message.resize(std::min(length, message.size()));
            return message;
        });
        if (whole) {
            EXPECT_NE(result.host, nullptr);
            break;
        }
        expect_failure(result, 1);
        EXPECT_EQ(trace::find("unpack_answer() failed\n").mask, trace::kInternal) << length;
    }
    EXPECT_GT(length, 70u);
}

TEST(HostileAnswer, the_shortage_names_the_offset_that_would_be_needed) {
    hostile_message([](const Bytes& query) {
        Bytes message = whole_answer(query);
        message.resize(message.size() - 4);
        return message;
    });
    // Header, question, first record; then owner, type, class, life time and length of the second.
    const int second_data = 12 + 17 + (13 + 10 + 11) + 12;
    EXPECT_TRUE(trace::contains("rx data " + std::to_string(second_data + 4) + " required, but " +
                                std::to_string(second_data) + " received"));
}

TEST(HostileAnswer, more_answers_announced_than_sent_fail) {
    expect_failure(hostile([](Response& r) { r.a("www.example", "192.0.2.1").answers(65535); }), 1);
}

TEST(HostileAnswer, a_data_length_past_the_end_fails) {
    for (const uint16_t length : {uint16_t{5}, uint16_t{512}, uint16_t{65535}})
        expect_failure(hostile([length](Response& r) {
                           r.record(labels("x"), kA, kIn, 1, address_bytes("192.0.2.1"), length);
                       }),
                       1);
}

TEST(HostileAnswer, an_address_of_fewer_bytes_is_filled_with_zeros) {
    for (size_t length = 0; length < 4; ++length) {
        Resolution result = hostile([length](Response& r) {
            Bytes address = address_bytes("255.254.253.252");
            address.resize(length);
            r.record(labels("x"), kA, kIn, 1, address);
        });
        expect_layout(result.host, result.buffer);
        Bytes expected = address_bytes("255.254.253.252");
        std::fill(expected.begin() + static_cast<long>(length), expected.end(), 0);
        EXPECT_EQ(Bytes(result.host->h_addr_list[0], result.host->h_addr_list[0] + 4), expected);
        EXPECT_EQ(result.needed, needed_for({"x"}, 1));
    }
}

TEST(HostileAnswer, an_address_of_more_bytes_is_kept_whole) {
    Resolution result =
        hostile([](Response& r) { r.record(labels("x"), kA, kIn, 1, Bytes(16, 7)).a("x", "192.0.2.1"); });
    EXPECT_THAT(addresses_of(result.host), ElementsAre("7.7.7.7", "192.0.2.1"));
    EXPECT_EQ(result.host->h_addr_list[1] - result.host->h_addr_list[0], 16);
    EXPECT_EQ(result.needed, needed_for({"x"}, 5));
}

TEST(HostileAnswer, addresses_without_a_slot_are_dropped) {
    Resolution result = hostile([](Response& r) {
        for (int index = 0; index < 40; ++index)
            r.record({0}, kA, kIn, 1, {});
    });
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(addresses_of(result.host).size(), 34u);
    EXPECT_EQ(result.needed, needed_for({""}, 34));
}

TEST(HostileAnswer, aliases_without_a_slot_are_dropped) {
    Resolution result = hostile([](Response& r) {
        for (int index = 0; index < 38; ++index)
            r.record({0}, kCname, kIn, 1, {0});
    });
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(aliases_of(result.host).size(), 34u);
}

TEST(HostileAnswer, an_alias_target_that_cannot_be_read_fails) {
    expect_failure(hostile([](Response& r) { r.record(labels("x"), kCname, kIn, 1, {60, 'x'}); }), 1);
    EXPECT_EQ(trace::find("expand_name(CNAME) failed\n").mask, trace::kInternal);
}

TEST(HostileAnswer, only_the_first_512_bytes_are_read) {
    const Resolution result = hostile([](Response& r) {
        for (int index = 0; index < 40; ++index)
            r.a("www.example", "192.0.2.1");
    });
    expect_failure(result, 1);
    EXPECT_TRUE(trace::contains("unpack_answer() failed\n"));
}

TEST(HostileName, a_pointer_to_itself_ends) {
    const Resolution result = hostile(
        [](Response& r) { r.record(pointer_to(12 + 13 + 4), kA, kIn, 1, address_bytes("192.0.2.1")); });
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, "");
}

TEST(HostileName, the_longest_chain_of_pointers_is_read_and_a_longer_one_is_not) {
    for (const int pointers : {127, 128}) {
        const Resolution result = hostile([pointers](Response& r) {
            // Behind the record, whose owner is the first of them.
            int at = 12 + 13 + 4 + 2 + 10 + 4;
            r.record(pointer_to(at), kA, kIn, 1, address_bytes("192.0.2.1"));
            for (int pointer = 1; pointer < pointers; ++pointer)
                r.raw(pointer_to(at += 2));
            r.raw({1, 'a', 0});
        });
        ASSERT_NE(result.host, nullptr) << pointers;
        EXPECT_STREQ(result.host->h_name, pointers == 127 ? "a" : "") << pointers;
    }
}

TEST(HostileName, a_circle_through_labels_ends_where_the_text_is_full) {
    const Resolution result = hostile([](Response& r) {
        r.record(Bytes{3, 'a', 'b', 'c'} + pointer_to(12 + 13 + 4), kA, kIn, 1, address_bytes("192.0.2.1"));
    });
    ASSERT_NE(result.host, nullptr);
    EXPECT_EQ(std::string(result.host->h_name).substr(0, 8), "abc.abc.");
    EXPECT_LT(strlen(result.host->h_name), 256u);
}

TEST(HostileName, pointers_outside_the_message_end_the_name) {
    for (const int target : {200, 511, 512, 0x3fff}) {
        const Resolution result = hostile([target](Response& r) {
            r.record(Bytes{1, 'a'} + pointer_to(target), kA, kIn, 1, address_bytes("192.0.2.1"));
        });
        ASSERT_NE(result.host, nullptr) << target;
        EXPECT_STREQ(result.host->h_name, "a") << target;
    }
}

TEST(HostileName, a_pointer_into_the_header_reads_it_as_examined) {
    const Resolution result = hostile_message([](const Bytes& query) {
        Bytes message = Response(query).record(pointer_to(8), kA, kIn, 1, address_bytes("192.0.2.1")).bytes();
        message[8] = 'a';  // swapped a label of one byte, else a pointer that leads nowhere
        message[9] = 1;
        return message;
    });
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, kSwapped ? "a" : "");
}

TEST(HostileName, an_owner_that_cannot_be_read_to_its_end_is_tried_again_for_each_record) {
    const Resolution result = hostile([](Response& r) {
        for (int record = 0; record < 3; ++record)
            r.record(pointer_to(500), kA, kIn, 1, address_bytes("192.0.2.1"));
    });
    const int received = 12 + 13 + 4 + 3 * (2 + 10 + 4);
    EXPECT_EQ(trace::count("rx data 501 required, but " + std::to_string(received) + " received"), 3u);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1", "192.0.2.1", "192.0.2.1"));
}

TEST(HostileName, the_longest_name_is_read_and_a_longer_one_is_not) {
    const std::string label(63, 'l');
    const std::string longest = label + "." + label + "." + label + "." + long_label(61);
    Resolution result = hostile([&](Response& r) { r.a(longest, "192.0.2.1"); });
    ASSERT_NE(result.host, nullptr);
    EXPECT_EQ(result.host->h_name, longest);
    expect_failure(hostile([&](Response& r) { r.a(longest + ".lll", "192.0.2.1"); }), 1);
    EXPECT_TRUE(trace::contains("unpack_answer() failed\n"));
}

TEST(HostileName, a_zero_byte_in_a_label_ends_the_stored_name) {
    const Resolution result = hostile([](Response& r) {
        r.record({4, 'a', 'b', 0, 'c', 0}, kA, kIn, 1, address_bytes("192.0.2.1"));
    });
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, "ab");
    EXPECT_EQ(result.needed, needed_for({"ab"}, 1));
}

}  // namespace
}  // namespace quorvel::test::dns
