// Lookups over a profile: from which server, and when from the cache.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

hostent* const kUntouched = reinterpret_cast<hostent*>(0x10);

struct Lookup {
    explicit Lookup(const char* name, int profile = kProfile, int size = 4096) : buffer(size) {
        code = ps_gethostbyname_r(profile, name, &host, buffer.data(), buffer.size());
    }
    HostBuffer buffer;
    hostent* host = kUntouched;
    int code;
};

// Answers with an error code for every name.
Responder::Script refuse(uint16_t rcode) {
    return [rcode](const Exchange& exchange) {
        exchange.reply(Response(exchange.query).flags(static_cast<uint16_t>(0x8180 | rcode)));
    };
}

class Lookups : public ProfileTest {};

TEST_F(Lookups, missing_arguments_are_refused) {
    char buffer[64];
    hostent* host = nullptr;
    EXPECT_EQ(ps_gethostbyname_r(kProfile, nullptr, &host, buffer, sizeof buffer), 2);
    EXPECT_EQ(ps_gethostbyname_r(kProfile, "ab", nullptr, buffer, sizeof buffer), 2);
    EXPECT_EQ(ps_gethostbyname_r(kProfile, "ab", &host, nullptr, sizeof buffer), 2);
    EXPECT_EQ(ps_gethostbyname_r(kProfile, "ab", &host, buffer, 0), 2);
    EXPECT_EQ(ps_gethostbyname_r(kProfile, "localhost", &host, buffer, -1), 2);
    EXPECT_EQ(trace::count("Invalid parameter passed  hostname\n"), 5u);
    EXPECT_TRUE(trace::traced(5, "Invalid parameter passed  hostname\n", "dns/src/dns"));
}

TEST_F(Lookups, local_names_need_no_profile) {
    for (const char* name : {"localhost", "LocalHost", "127.0.0.5"}) {
        trace::clear();
        Lookup lookup(name, -5);
        EXPECT_EQ(lookup.code, 0);
        expect_layout(lookup.host, lookup.buffer);
        EXPECT_STREQ(lookup.host->h_name, name);
        EXPECT_THAT(trace::texts(), IsEmpty());
    }
    EXPECT_EQ(Lookup("localhost", -5, 100).code, 1);
}

TEST_F(Lookups, a_profile_that_nobody_uses_is_invalid) {
    for (const int profile : {0, -1, 2}) {
        trace::clear();
        const Lookup lookup("www.example", profile);
        EXPECT_EQ(lookup.code, 2);
        EXPECT_EQ(lookup.host, nullptr);
        EXPECT_TRUE(trace::contains_in_order({"Request to get hostname \n", "Invalid profile ID\n"}));
        EXPECT_EQ(trace::find("Invalid profile ID\n").mask, trace::kCaller);
    }
}

TEST_F(Lookups, an_invalid_name_is_refused) {
    for (const char* name : {"a", "-abc", "abc-", "a_b", ""}) {
        trace::clear();
        EXPECT_EQ(Lookup(name).code, 2) << name;
        EXPECT_TRUE(trace::traced(5, "Invalid HostName\n", "dns/src/dns")) << name;
    }
}

TEST_F(Lookups, a_connection_that_is_not_up_has_no_information) {
    set_active(0, false);
    EXPECT_EQ(Lookup("www.example").code, 2);
    EXPECT_EQ(trace::find("Error getting device info \n").mask, trace::kInternal);
}

TEST_F(Lookups, a_connection_without_an_interface_has_no_information) {
    open_profile("", "127.0.0.1");
    EXPECT_EQ(Lookup("www.example").code, 2);
    EXPECT_TRUE(trace::contains("Error getting device info \n"));
}

TEST_F(Lookups, device_information_is_1_or_minus_1) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    NetCMConnInfo info{};
    EXPECT_EQ(getdevinfo(kProfile, &info), 1);
    EXPECT_STREQ(info.IfaceName, "lo");
    EXPECT_EQ(getdevinfo(kProfile, nullptr), -1);
    EXPECT_EQ(getdevinfo(2, &info), -1);
}

TEST_F(Lookups, without_a_server_nothing_is_found_and_nothing_sent) {
    Responder responder(answer_with("192.0.2.1"));
    const Lookup lookup("www.example");
    EXPECT_EQ(lookup.code, 3);
    EXPECT_EQ(lookup.host, nullptr);
    EXPECT_EQ(responder.query_count(), 0u);
    EXPECT_TRUE(trace::contains("Host not found in cache, Querying..."));
}

TEST_F(Lookups, without_a_primary_server_the_secondary_is_not_asked) {
    open_profile("lo", nullptr, "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    EXPECT_EQ(Lookup("www.example").code, 3);
    EXPECT_EQ(responder.query_count(), 0u);
}

TEST_F(Lookups, the_primary_server_answers) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder primary(answer_with("192.0.2.1"));
    Responder secondary(answer_with("192.0.2.2"), "127.0.0.2");
    Lookup lookup("www.example");
    EXPECT_EQ(lookup.code, 0);
    expect_layout(lookup.host, lookup.buffer);
    EXPECT_THAT(addresses_of(lookup.host), ElementsAre("192.0.2.1"));
    EXPECT_EQ(secondary.query_count(), 0u);
    const std::string resolved = "Successfully resolved ttl 60  hostname www.example needed buf length  " +
                                 std::to_string(needed_for({"www.example"}, 1)) + "\n";
    EXPECT_TRUE(trace::contains_in_order(
        {"Request to get hostname \n", "Last DNS address changed \n", "clearing all DNS Cache entries \n",
         "Finding host[www.example] in cache\n", "Host not found in cache, Querying...",
         "DNS server addr = 127.0.0.1, ifname = lo, query = www.example \n", resolved,
         "Caching positive response for host [www.example]\n"}));
}

TEST_F(Lookups, the_secondary_server_is_asked_when_the_primary_knows_nothing) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    for (const uint16_t rcode : {uint16_t{2}, uint16_t{3}, uint16_t{5}}) {
        Responder primary(refuse(rcode));
        Responder secondary(answer_with("192.0.2.2"), "127.0.0.2");
        Lookup lookup(("www" + std::to_string(rcode) + ".example").c_str());
        EXPECT_EQ(lookup.code, 0);
        EXPECT_THAT(addresses_of(lookup.host), ElementsAre("192.0.2.2"));
        EXPECT_EQ(primary.query_count(), 1u);
    }
}

TEST_F(Lookups, a_server_that_is_not_there_is_followed_by_the_secondary) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder secondary(answer_with("192.0.2.2"), "127.0.0.2");
    EXPECT_EQ(Lookup("www.example").code, 0);
}

TEST_F(Lookups, a_failed_lookup_says_why_and_is_not_cached) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder primary(refuse(2));
    Responder secondary(refuse(3), "127.0.0.2");
    for (int turn = 0; turn < 2; ++turn) {
        trace::clear();
        const Lookup lookup("www.example");
        EXPECT_EQ(lookup.code, 3);
        EXPECT_EQ(lookup.host, nullptr);
        EXPECT_EQ(trace::find("errno: 2, herr: 4\n").mask, trace::kInternal);
    }
    EXPECT_EQ(primary.query_count(), 2u);
    EXPECT_EQ(secondary.query_count(), 2u);
}

TEST_F(Lookups, a_sink_that_changes_errno_changes_nothing) {
    const auto hook = trace::on_line([](const TraceLine&) { errno = EDOM; });
    {
        open_profile("lo", "127.0.0.1", "127.0.0.2");
        Responder primary(refuse(2));
        Responder secondary(refuse(3), "127.0.0.2");
        EXPECT_EQ(Lookup("www.example").code, 3);
        EXPECT_TRUE(trace::contains("errno: 2, herr: 4\n"));
    }
    EXPECT_EQ(Lookup("www.example").code, 3);
    EXPECT_TRUE(trace::contains("errno: 11, herr: 2\n")) << "nobody listens there any more";
    {
        Responder responder(answer_with("192.0.2.1"));
        HostBuffer small(kHostData);
        hostent* host = nullptr;
        EXPECT_EQ(ps_gethostbyname_r(kProfile, "www.example", &host, small.data(), small.size()), 1);
        EXPECT_TRUE(trace::contains("Not enough memory \n"));
    }
    open_profile("no-such-device", "127.0.0.1");
    trace::clear();
    EXPECT_EQ(Lookup("www.example").code, 3);
    EXPECT_TRUE(trace::contains("setsockopt() failed: 19\n"));
    EXPECT_TRUE(trace::contains("errno: 11, herr: 2\n"));
}

TEST_F(Lookups, the_second_lookup_is_answered_from_the_cache) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    EXPECT_EQ(Lookup("www.example").code, 0);
    trace::clear();
    Lookup again("www.example");
    EXPECT_EQ(again.code, 0);
    expect_layout(again.host, again.buffer);
    EXPECT_THAT(addresses_of(again.host), ElementsAre("192.0.2.1"));
    EXPECT_EQ(responder.query_count(), 1u);
    EXPECT_FALSE(trace::contains("Last DNS address changed \n"));
    EXPECT_FALSE(trace::contains("Host not found in cache, Querying..."));
}

TEST_F(Lookups, an_answer_of_no_life_time_is_asked_for_again) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1", 0));
    EXPECT_EQ(Lookup("www.example").code, 0);
    EXPECT_EQ(Lookup("www.example").code, 0);
    EXPECT_EQ(responder.query_count(), 2u);
}

TEST_F(Lookups, an_address_given_as_a_name_is_laid_out_and_never_found_in_the_cache) {
    open_profile("lo", "127.0.0.1");
    EXPECT_EQ(Lookup("10.0.0.1").code, 0);
    trace::clear();
    Lookup again("10.0.0.1");
    EXPECT_EQ(again.code, 0);
    EXPECT_THAT(addresses_of(again.host), ElementsAre("10.0.0.1"));
    EXPECT_TRUE(trace::contains("Deleting expired host [10.0.0.1]\n"));
}

TEST_F(Lookups, a_negative_entry_is_not_found) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    EXPECT_EQ(Lookup("www.example").code, 0);
    update_dns_cache("gone.example", nullptr, 0, 0);
    const Lookup lookup("gone.example");
    EXPECT_EQ(lookup.code, 3);
    EXPECT_EQ(lookup.host, nullptr);
    EXPECT_EQ(responder.query_count(), 1u);
}

TEST_F(Lookups, a_negative_entry_is_looked_up_again_after_300_seconds) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    calls::stop_time(5000);
    EXPECT_EQ(Lookup("www.example").code, 0);  // makes the server the known one
    update_dns_cache("gone.example", nullptr, 0, 0);
    calls::stop_time(5299);
    EXPECT_EQ(Lookup("gone.example").code, 3);
    EXPECT_EQ(responder.query_count(), 1u);
    calls::stop_time(5300);
    EXPECT_EQ(Lookup("gone.example").code, 0);
    EXPECT_EQ(responder.query_count(), 2u);
}

TEST_F(Lookups, an_answer_without_a_name_is_given_out_and_not_cached) {
    open_profile("lo", "127.0.0.1");
    Responder responder([](const Exchange& exchange) {
        exchange.reply(Response(exchange.query).record(labels("www.example"), kTxt, kIn, 60, {1, 'x'}));
    });
    for (int turn = 0; turn < 2; ++turn) {
        const Lookup lookup("www.example");
        EXPECT_EQ(lookup.code, 0);
        ASSERT_NE(lookup.host, nullptr);
        EXPECT_EQ(lookup.host->h_name, nullptr);
    }
    EXPECT_EQ(responder.query_count(), 2u);
}

TEST_F(Lookups, another_primary_server_empties_the_cache) {
    open_profile(0, 1, "lo", "127.0.0.1");
    open_profile(1, 2, "lo", "127.0.0.2");
    Responder first(answer_with("192.0.2.1"));
    Responder second(answer_with("192.0.2.2"), "127.0.0.2");
    for (int turn = 1; turn <= 2; ++turn) {
        EXPECT_THAT(addresses_of(Lookup("www.example", 1).host), ElementsAre("192.0.2.1"));
        EXPECT_THAT(addresses_of(Lookup("www.example", 2).host), ElementsAre("192.0.2.2"));
    }
    EXPECT_EQ(trace::count("Last DNS address changed \n"), 4u);
    EXPECT_EQ(first.query_count(), 2u);
    EXPECT_EQ(second.query_count(), 2u);
}

TEST_F(Lookups, a_buffer_that_is_too_small_ends_the_lookup_at_the_first_server) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder primary(answer_with("192.0.2.1"));
    Responder secondary(answer_with("192.0.2.2"), "127.0.0.2");
    const Lookup lookup("www.example", kProfile, kHostData + 8);
    EXPECT_EQ(lookup.code, 1);
    EXPECT_EQ(lookup.host, nullptr);
    EXPECT_EQ(trace::find("Not enough memory \n").mask, trace::kInternal);
    EXPECT_EQ(secondary.query_count(), 0u);
}

TEST_F(Lookups, an_interface_name_that_fills_its_field_is_taken_whole) {
    open_profile("an-interface-name-of-32-letters-", "127.0.0.1");
    EXPECT_EQ(Lookup("www.example").code, 3);
    EXPECT_TRUE(trace::contains(
        "DNS server addr = 127.0.0.1, ifname = an-interface-name-of-32-letters-, query = www.example \n"));
}

}  // namespace
}  // namespace quorvel::test::dns
