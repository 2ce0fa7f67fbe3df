// The answer section as a hostent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "Host.h"
#include "Responder.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The lookup of a name whose server answers with what `fill` adds to the response.
template <class Fill>
Resolution resolve(Fill fill, int size = 4096, const char* name = "www.example") {
    Responder responder([fill](const Exchange& exchange) {
        Response response(exchange.query);
        fill(response);
        exchange.reply(response);
    });
    trace::clear();
    return std::move(Resolution(size).by_name(name));
}

TEST(Answer, an_address_record_gives_name_and_address) {
    Resolution result = resolve([](Response& r) { r.a("www.example", "192.0.2.7", 300); });
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "www.example");
    EXPECT_THAT(aliases_of(result.host), IsEmpty());
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.7"));
    EXPECT_EQ(result.herr, 0);
    EXPECT_EQ(result.ttl, 300u);
    EXPECT_EQ(result.needed, needed_for({"www.example"}, 1));
}

TEST(Answer, an_alias_record_before_the_address_gives_the_other_name) {
    Resolution result =
        resolve([](Response& r) { r.cname("a.example", "b.example").a("b.example", "192.0.2.1"); }, 4096,
                "a.example");
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "b.example");
    EXPECT_THAT(aliases_of(result.host), ElementsAre("a.example"));
    EXPECT_EQ(result.needed, needed_for({"a.example", "b.example"}, 1));
}

TEST(Answer, a_chain_of_aliases_keeps_its_order) {
    Resolution result = resolve([](Response& r) {
        r.cname("a.example", "b.example").cname("b.example", "c.example");
        r.a("c.example", "192.0.2.1").a("c.example", "192.0.2.2");
    });
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "c.example");
    EXPECT_THAT(aliases_of(result.host), ElementsAre("a.example", "b.example"));
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1", "192.0.2.2"));
}

TEST(Answer, the_data_are_packed_in_the_order_of_the_records) {
    Resolution result = resolve([](Response& r) {
        r.cname("a.example", "b.example").a("b.example", "192.0.2.1").a("b.example", "192.0.2.2");
    });
    const char* data = result.buffer.data() + kHostData;
    EXPECT_EQ(result.host->h_aliases[0], data);
    EXPECT_EQ(result.host->h_name, data + sizeof "a.example");
    EXPECT_EQ(result.host->h_addr_list[0], data + 2 * sizeof "a.example");
    EXPECT_EQ(result.host->h_addr_list[1], result.host->h_addr_list[0] + 4);
}

TEST(Answer, compressed_names_are_expanded) {
    Resolution result = resolve([](Response& r) {
        const int at_example = kQuestionAt + 4;
        r.record(pointer_to(kQuestionAt), kCname, kIn, 60, Bytes{3, 'c', 'd', 'n'} + pointer_to(at_example));
        r.record(Bytes{3, 'c', 'd', 'n'} + pointer_to(at_example), kA, kIn, 60, address_bytes("192.0.2.9"));
    });
    EXPECT_STREQ(result.host->h_name, "cdn.example");
    EXPECT_THAT(aliases_of(result.host), ElementsAre("www.example"));
    EXPECT_TRUE(trace::contains("rdata  : cdn.example\n"));
}

TEST(Answer, either_top_bit_makes_a_pointer) {
    for (const uint8_t bits : Bytes{0x40, 0x80, 0xC0}) {
        Resolution result = resolve([bits](Response& r) {
            r.record({bits, kQuestionAt}, kA, kIn, 60, address_bytes("192.0.2.1"));
        });
        ASSERT_NE(result.host, nullptr);
        EXPECT_STREQ(result.host->h_name, "www.example");
    }
}

TEST(Answer, a_pointer_to_a_pointer_is_followed) {
    Resolution result = resolve([](Response& r) {
        const int second = kQuestionAt + 13 + 4;
        r.record(pointer_to(kQuestionAt), kA, kIn, 60, address_bytes("192.0.2.1"));
        r.record(pointer_to(second), kA, kIn, 60, address_bytes("192.0.2.2"));
    });
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1", "192.0.2.2"));
    EXPECT_EQ(trace::count("name   : www.example\n"), 2u);
}

TEST(Answer, records_that_point_to_one_name_are_all_owned_by_it) {
    Resolution result = resolve([](Response& r) {
        // The target is where the data of the first record are: behind the question, the owner and ten bytes.
        const Bytes target = pointer_to(kQuestionAt + 13 + 4 + 2 + 10);
        r.record(pointer_to(kQuestionAt), kCname, kIn, 60, labels("cdn.example"));
        r.record(target, kA, kIn, 60, address_bytes("192.0.2.1"));
        r.record(target, kA, kIn, 60, address_bytes("192.0.2.2"));
        r.record(pointer_to(kQuestionAt), kCname, kIn, 60, target);
        r.record(target, kA, kIn, 60, address_bytes("192.0.2.3"));
    });
    EXPECT_STREQ(result.host->h_name, "cdn.example");
    EXPECT_THAT(aliases_of(result.host), ElementsAre("www.example", "www.example"));
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1", "192.0.2.2", "192.0.2.3"));
    EXPECT_TRUE(trace::contains_in_order({"name   : www.example\n", "rdata  : cdn.example\n",
                                          "name   : cdn.example\n", "name   : cdn.example\n",
                                          "name   : www.example\n", "rdata  : cdn.example\n",
                                          "name   : cdn.example\n"}));
}

TEST(Answer, the_root_is_an_empty_name) {
    Resolution result = resolve([](Response& r) { r.a("", "192.0.2.1"); });
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, "");
    EXPECT_EQ(result.needed, needed_for({""}, 1));
}

TEST(Answer, the_life_time_is_that_of_the_last_record_whatever_it_is) {
    Resolution result = resolve([](Response& r) {
        r.a("www.example", "192.0.2.1", 300);
        r.record(labels("other.example"), kTxt, kChaos, 4000000000u, {0});
    });
    EXPECT_EQ(result.ttl, 4000000000u);
    EXPECT_TRUE(trace::contains("ttl    : 4000000000\n"));
}

TEST(Answer, records_of_other_types_and_classes_are_skipped) {
    Resolution result = resolve([](Response& r) {
        r.record(labels("www.example"), kTxt, kIn, 60, {3, 'a', 'b', 'c'});
        r.record(labels("www.example"), kA, kChaos, 60, address_bytes("198.51.100.1"));
        r.record(labels("www.example"), kCname, kChaos, 60, labels("other.example"));
        r.ptr("www.example", "other.example");
        r.a("www.example", "192.0.2.1");
    });
    expect_layout(result.host, result.buffer);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
    EXPECT_THAT(aliases_of(result.host), IsEmpty());
}

TEST(Answer, without_a_usable_record_the_host_has_no_name) {
    Resolution result = resolve([](Response& r) {
        r.record(labels("www.example"), kTxt, kIn, 60, {1, 'x'});
    });
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(result.host->h_name, nullptr);
    EXPECT_THAT(addresses_of(result.host), IsEmpty());
    EXPECT_EQ(result.herr, 0);
    EXPECT_EQ(result.needed, kHostData);
}

TEST(Answer, an_alias_alone_gives_an_alias_and_no_name) {
    Resolution result = resolve([](Response& r) { r.cname("www.example", "gone.example"); });
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(result.host->h_name, nullptr);
    EXPECT_THAT(aliases_of(result.host), ElementsAre("www.example"));
}

TEST(Answer, what_is_behind_the_counted_answers_is_not_read) {
    Resolution result = resolve([](Response& r) {
        r.a("www.example", "192.0.2.1").raw({0xff, 0xff, 0xff}).answers(1);
    });
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
}

TEST(Answer, every_record_is_traced) {
    resolve([](Response& r) { r.cname("www.example", "b.example", 60).a("b.example", "192.0.2.1", 30); });
    EXPECT_TRUE(trace::contains_in_order(
        {"< header section >\n", "flags   : 0x8180\n",   "qdcount : 1\n",          "ancount : 2\n",
         "nscount : 0\n",        "arcount : 0\n",        "< question section >\n", "qname  : www.example\n",
         "qtype  : 1\n",         "qclass : 1\n",         "< answer section >\n",   "name   : www.example\n",
         "type   : 5\n",         "class  : 1\n",         "ttl    : 60\n",          "rdlen  : 11\n",
         "rdata  : b.example\n", "< answer section >\n", "name   : b.example\n",   "type   : 1\n",
         "class  : 1\n",         "ttl    : 30\n",        "rdlen  : 4\n",           "rdata  : 192.0.2.1\n"}));
    EXPECT_EQ(trace::find("< answer section >\n").mask, trace::kNormal);
    EXPECT_EQ(trace::find("< answer section >\n").file, "data-networking/dns/src/resolver");
}

TEST(Answer, each_buffer_length_from_1_to_the_needed_one_is_too_small) {
    Responder responder([](const Exchange& exchange) {
        exchange.reply(Response(exchange.query).cname("a.example", "b.example").a("b.example", "192.0.2.1"));
    });
    const int whole = needed_for({"a.example", "b.example"}, 1);
    for (int size = 1; size < whole; ++size) {
        const Resolution result = std::move(Resolution(size).by_name("a.example"));
        EXPECT_EQ(result.host, nullptr) << size;
        EXPECT_EQ(result.herr, -1) << size;
        EXPECT_EQ(result.error, ERANGE) << size;
        EXPECT_GT(result.needed, size);
        EXPECT_LE(result.needed, whole);
    }
    const Resolution fits = std::move(Resolution(whole).by_name("a.example"));
    EXPECT_NE(fits.host, nullptr);
    EXPECT_EQ(fits.needed, whole);
}

TEST(Answer, the_needed_length_grows_with_each_check) {
    const auto fill = [](Response& r) { r.a("www.example", "192.0.2.1"); };
    EXPECT_EQ(resolve(fill, kHostAliases - 1).needed, kHostAliases);
    EXPECT_EQ(resolve(fill, kHostAliases).needed, kHostAddresses);
    EXPECT_EQ(resolve(fill, kHostAddresses - 1).needed, kHostAddresses);
    EXPECT_EQ(resolve(fill, kHostAddresses).needed, kHostData);
    EXPECT_EQ(resolve(fill, kHostData - 1).needed, kHostData);
    EXPECT_EQ(resolve(fill, kHostData).needed, kHostData + 12);
    EXPECT_EQ(resolve(fill, kHostData + 12).needed, kHostData + 16);
    EXPECT_EQ(trace::find("buffer not enough\n").mask, trace::kInternal);
}

// The structure as it is in the buffer, which a failed call does not return.
hostent left_in(Resolution& result) {
    hostent host;
    memcpy(&host, result.buffer.data(), sizeof host);
    return host;
}

TEST(Answer, a_buffer_that_is_too_small_holds_the_structure_as_far_as_it_came) {
    const auto fill = [](Response& r) { r.a("www.example", "192.0.2.1").a("www.example", "192.0.2.2"); };
    for (const int size : {kHostAliases, kHostAddresses, kHostData - 1, kHostData, kHostData + 11,
                           kHostData + 12, kHostData + 16, kHostData + 19}) {
        Resolution result = resolve(fill, size);
        ASSERT_EQ(result.host, nullptr) << size;
        const hostent host = left_in(result);
        char* const start = result.buffer.data();
        EXPECT_EQ(reinterpret_cast<char*>(host.h_aliases), start + kHostAliases) << size;
        if (size < kHostAddresses)
            continue;
        EXPECT_EQ(reinterpret_cast<char*>(host.h_addr_list), start + kHostAddresses) << size;
        EXPECT_EQ(host.h_name, size < kHostData + 12 ? nullptr : start + kHostData) << size;
        if (size < kHostData)
            continue;
        EXPECT_THAT(aliases_of(&host), IsEmpty()) << size;
        EXPECT_EQ(addresses_of(&host).size(), size < kHostData + 16 ? 0u : 1u) << size;
        EXPECT_EQ(host.h_addrtype, AF_INET) << size;
        EXPECT_EQ(host.h_length, 4) << size;
    }
    Resolution none = resolve(fill, kHostAliases - 1);
    EXPECT_EQ(std::string(none.buffer.data(), kHostAliases - 1), std::string(kHostAliases - 1, '\x5a'));
}

TEST(Answer, that_cannot_be_read_on_leaves_what_was_read) {
    Resolution result = resolve(
        [](Response& r) { r.cname("www.example", "b.example").a("b.example", "192.0.2.1").answers(3); });
    EXPECT_EQ(result.host, nullptr);
    const hostent host = left_in(result);
    EXPECT_STREQ(host.h_name, "b.example");
    EXPECT_THAT(aliases_of(&host), ElementsAre("www.example"));
    EXPECT_THAT(addresses_of(&host), ElementsAre("192.0.2.1"));
}

TEST(AddressAsName, a_buffer_that_is_too_small_holds_the_structure_as_far_as_it_came) {
    Resolution result(kHostData + 12);
    EXPECT_EQ(result.by_name("10.0.0.1").host, nullptr);
    const hostent host = left_in(result);
    EXPECT_STREQ(host.h_name, "10.0.0.1");
    EXPECT_THAT(addresses_of(&host), IsEmpty());
}

TEST(Answer, a_missing_buffer_is_a_buffer_of_no_length) {
    Responder responder(answer_with("192.0.2.1"));
    int needed = 0;
    EXPECT_EQ(
        dnet_gethostbyname_r("127.0.0.1", nullptr, "a.example", nullptr, 1000, nullptr, nullptr, &needed),
        nullptr);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(needed, kHostAliases);
    HostBuffer buffer(10);
    EXPECT_EQ(dnet_gethostbyname_r("127.0.0.1", nullptr, "a.example", buffer.data(), -10, nullptr, nullptr,
                                   nullptr),
              nullptr);
    EXPECT_EQ(errno, ERANGE);
}

TEST(Answer, results_that_nobody_wants_are_not_stored) {
    Responder responder(answer_with("192.0.2.1"));
    HostBuffer buffer(1024);
    EXPECT_NE(dnet_gethostbyname_r("127.0.0.1", nullptr, "a.example", buffer.data(), buffer.size(), nullptr,
                                   nullptr, nullptr),
              nullptr);
}

TEST(Answer, a_buffer_that_is_not_aligned_will_do) {
    Responder responder(answer_with("192.0.2.1"));
    HostBuffer buffer(1024);
    EXPECT_NE(static_cast<void*>(dnet_gethostbyname_r("127.0.0.1", nullptr, "a.example", buffer.data() + 1,
                                                      buffer.size() - 1, nullptr, nullptr, nullptr)),
              nullptr);
}

TEST(AddressAsName, is_answered_at_once_with_the_stated_length) {
    trace::clear();
    Resolution result(kHostData + 13);
    result.by_name("10.0.0.1", "no server at all", "no-such-interface");
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(result.needed, kHostData + 13);
    EXPECT_STREQ(result.host->h_name, "10.0.0.1");
    EXPECT_EQ(result.host->h_name, result.buffer.data() + kHostData);
    EXPECT_EQ(result.host->h_addr_list[0], result.buffer.data() + kHostData + 9);
    EXPECT_THAT(addresses_of(result.host), ElementsAre("10.0.0.1"));
    EXPECT_THAT(aliases_of(result.host), IsEmpty());
    EXPECT_EQ(result.herr, 0);
    EXPECT_EQ(result.ttl, 987654u) << "the life time is not written";
}

TEST(AddressAsName, a_buffer_that_is_too_small_fails_and_tells_the_whole_length) {
    for (const int size : {1, kHostAliases, kHostAddresses, kHostData - 1, kHostData, kHostData + 12}) {
        trace::clear();
        const Resolution result = std::move(Resolution(size).by_name("10.0.0.1"));
        EXPECT_EQ(result.host, nullptr) << size;
        EXPECT_EQ(result.herr, -1) << size;
        EXPECT_EQ(result.error, ERANGE) << size;
        EXPECT_EQ(result.needed, kHostData + 13) << size;
        EXPECT_TRUE(trace::contains("buffer not enough\n")) << size;
    }
}

TEST(AddressAsName, short_forms_are_addresses_too) {
    Resolution result;
    result.by_name("10.1");
    ASSERT_NE(result.host, nullptr);
    EXPECT_STREQ(result.host->h_name, "10.1");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("10.0.0.1"));
}

template <class Fill>
Resolution reverse(Fill fill, int size = 4096) {
    Responder responder([fill](const Exchange& exchange) {
        Response response(exchange.query);
        fill(response);
        exchange.reply(response);
    });
    trace::clear();
    return std::move(Resolution(size).by_address("1.2.3.4"));
}

TEST(ReverseAnswer, gives_the_name_and_the_address_that_was_asked_for) {
    Resolution result = reverse([](Response& r) { r.ptr("4.3.2.1.in-addr.arpa", "host.example", 99); });
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "host.example");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("1.2.3.4"));
    EXPECT_EQ(result.ttl, 99u);
    EXPECT_EQ(result.needed, needed_for({"host.example"}, 1));
    EXPECT_TRUE(trace::contains_in_order({"Beginning of gethostbyaddr_r\n", "End of gethostbyaddr_r\n",
                                          "type   : 12\n", "rdata  : host.example\n"}));
}

TEST(ReverseAnswer, only_the_first_name_is_taken) {
    Resolution result = reverse([](Response& r) {
        r.record(labels("x"), kPtr, kChaos, 1, labels("chaos.example"));
        r.cname("x", "y").a("x", "198.51.100.1");
        r.ptr("x", "first.example").ptr("x", "second.example");
    });
    EXPECT_STREQ(result.host->h_name, "first.example");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("1.2.3.4"));
    EXPECT_THAT(aliases_of(result.host), IsEmpty());
}

TEST(ReverseAnswer, a_name_that_cannot_be_read_fails) {
    const Resolution result = reverse([](Response& r) { r.record(labels("x"), kPtr, kIn, 1, {9, 'x'}); });
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, 1);
    EXPECT_EQ(result.error, ENOENT);
    EXPECT_EQ(trace::find("expand_name(PTR) failed\n").mask, trace::kInternal);
}

TEST(ReverseAnswer, each_buffer_that_is_too_small_fails) {
    const auto fill = [](Response& r) { r.ptr("x", "host.example"); };
    const int whole = needed_for({"host.example"}, 1);
    for (const int size : {kHostData, kHostData + 12, whole - 4, whole - 1}) {
        const Resolution result = reverse(fill, size);
        EXPECT_EQ(result.host, nullptr) << size;
        EXPECT_EQ(result.error, ERANGE) << size;
        EXPECT_EQ(result.herr, -1) << size;
    }
    EXPECT_NE(reverse(fill, whole).host, nullptr);
}

TEST(ReverseAnswer, a_failed_lookup_does_not_trace_its_end) {
    Responder responder([](const Exchange& e) { e.reply(Response(e.query).flags(0x8183)); });
    trace::clear();
    EXPECT_EQ(Resolution().by_address("1.2.3.4").host, nullptr);
    EXPECT_TRUE(trace::contains("Beginning of gethostbyaddr_r\n"));
    EXPECT_FALSE(trace::contains("End of gethostbyaddr_r\n"));
}

}  // namespace
}  // namespace quorvel::test::dns
