// Lookups whose caller waits, into the one buffer of the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A name that takes 88 bytes of a result, and an answer that repeats it as aliases.
const std::string kLongName = [] {
    std::string name(87, 'n');
    name[50] = '.';
    return name;
}();

Responder::Script answer_in_long(int aliases, int addresses) {
    return [=](const Exchange& exchange) {
        Response response(exchange.query);
        for (int n = 0; n < aliases; ++n)
            response.record(pointer_to(kQuestionAt), kCname, kIn, 60, {0});
        for (int n = 1; n <= addresses; ++n)
            response.record(pointer_to(kQuestionAt), kA, kIn, 60, {10, 0, 0, static_cast<uint8_t>(n)});
        exchange.reply(response);
    };
}

class WaitingLookup : public ProfileTest {};

TEST_F(WaitingLookup, gives_the_host) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    const hostent* host = NetDNSGetHostByName(kProfile, "www.example");
    ASSERT_NE(host, nullptr);
    EXPECT_STREQ(host->h_name, "www.example");
    EXPECT_THAT(addresses_of(host), ElementsAre("192.0.2.1"));
}

TEST_F(WaitingLookup, traces_every_step_and_nothing_else) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    ASSERT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    std::string lines;
    for (const TraceLine& line : trace::lines()) {
        EXPECT_EQ(line.mask, trace::kNormal) << line.text;
        lines += line.file.substr(line.file.rfind('/') + 1) + ": " + line.text;
    }
    const auto thread = static_cast<int>(gettid());
    const std::string expected =
        "dns: Request to get hostname \n"
        "NetCMIntf: Profile[1] exist for the callinstance 0 \n"
        "NetCMIntf: Getting device request for profile id [1] \n" +
        trace::text("NetCMIntf: Thread [%d] trying to lock the Mutex \n", thread) +
        trace::text("NetCMIntf: Mutex locked by thread [%d] \n", thread) +
        "NetCMIntf: Profile [1] found in the call list\n"
        "NetCMIntf: Profile [1] is Active\n" +
        trace::text("NetCMIntf: Mutex unlocked by thread [%d] \n", thread) +
        "dns: Last DNS address changed \n"
        "dnscache_list: clearing all DNS Cache entries \n"
        "dnscache_list: Finding host[www.example] in cache\n"
        "dnscache_list: [www.example] host not found\n"
        "dns: Host not found in cache, Querying..."
        "dns: DNS server addr = 127.0.0.1, ifname = lo, query = www.example \n"
        "resolver: < header section >\n" +
        trace::text("resolver: id      : %u\n", word_at(responder.queries().at(0), 0)) +
        "resolver: flags   : 0x8180\n"
        "resolver: qdcount : 1\n"
        "resolver: ancount : 1\n"
        "resolver: nscount : 0\n"
        "resolver: arcount : 0\n"
        "resolver: < question section >\n"
        "resolver: qname  : www.example\n"
        "resolver: qtype  : 1\n"
        "resolver: qclass : 1\n"
        "resolver: < answer section >\n"
        "resolver: name   : www.example\n"
        "resolver: type   : 1\n"
        "resolver: class  : 1\n"
        "resolver: ttl    : 60\n"
        "resolver: rdlen  : 4\n"
        "resolver: rdata  : 192.0.2.1\n" +
        trace::text("dns: Successfully resolved ttl 60  hostname www.example needed buf length  %d\n",
                    needed_for({"www.example"}, 1)) +
        "dnscache_list: Finding host[www.example] in cache\n"
        "dnscache_list: [www.example] host not found\n"
        "dnscache_list: Caching positive response for host [www.example]\n"
        "dnscache_list: Number of hosts = 1\n"
        "dnscache_list: Adding host information to the list\n"
        "dnscache_list: Host [www.example] successfully added to the list\n";
    EXPECT_EQ(lines, expected);
}

TEST_F(WaitingLookup, every_failure_is_null) {
    EXPECT_EQ(NetDNSGetHostByName(kProfile, nullptr), nullptr);
    EXPECT_EQ(NetDNSGetHostByName(kProfile, "a"), nullptr);
    EXPECT_EQ(NetDNSGetHostByName(99, "www.example"), nullptr);
    EXPECT_EQ(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
}

TEST_F(WaitingLookup, a_missing_name_is_refused) {
    EXPECT_EQ(NetDNSGetHostByName(kProfile, nullptr), nullptr);
    EXPECT_THAT(trace::texts(), ElementsAre("Invalid parameter passed  hostname\n"));
    EXPECT_TRUE(trace::traced(5, "Invalid parameter passed  hostname\n", "dns/src/dns"));
}

// Any call ends the result before it, also one that is refused.
TEST_F(WaitingLookup, a_refused_call_empties_the_buffer) {
    const hostent* host = NetDNSGetHostByName(kProfile, "localhost");
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(NetDNSGetHostByName(kProfile, "a"), nullptr);
    EXPECT_EQ(host->h_name, nullptr);
}

TEST_F(WaitingLookup, a_name_out_of_the_last_result_is_empty_and_refused) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    for (const char* name : {"www.example", "localhost"}) {
        const hostent* host = NetDNSGetHostByName(kProfile, name);
        ASSERT_NE(host, nullptr);
        const size_t asked = responder.query_count();
        trace::clear();
        EXPECT_EQ(NetDNSGetHostByName(kProfile, host->h_name), nullptr);
        EXPECT_TRUE(trace::contains_in_order({"Request to get hostname \n", "Invalid HostName\n"}));
        EXPECT_TRUE(trace::traced(5, "Invalid HostName\n", "dns/src/dns"));
        EXPECT_EQ(responder.query_count(), asked);
    }
}

// The buffer shrinks back, which may move it.
TEST_F(WaitingLookup, a_name_out_of_a_larger_last_result_is_refused) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(13, 1));
    const hostent* host = NetDNSGetHostByName(kProfile, kLongName.c_str());
    ASSERT_NE(host, nullptr);
    const char* alias = host->h_aliases[12];
    ASSERT_EQ(alias, kLongName);
    const size_t asked = responder.query_count();
    EXPECT_EQ(NetDNSGetHostByName(kProfile, alias), nullptr);
    EXPECT_TRUE(trace::contains("Invalid HostName\n"));
    EXPECT_EQ(responder.query_count(), asked);
}

TEST_F(WaitingLookup, the_result_stays_in_one_buffer_that_is_cleared_for_the_next) {
    const hostent* first = NetDNSGetHostByName(kProfile, "localhost");
    ASSERT_NE(first, nullptr);
    const hostent* second = NetDNSGetHostByName(kProfile, "127.9");
    EXPECT_EQ(second, first);
    const char* name = second->h_name;
    EXPECT_STREQ(name, "127.9");
    EXPECT_EQ(std::string(name + 6 + 4, 10), std::string(10, '\0')) << "nothing of the longer result is left";
}

TEST_F(WaitingLookup, a_result_that_fills_the_first_buffer_needs_no_other) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(1, 9));  // 212 bytes of data
    ASSERT_NE(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr);
    EXPECT_EQ(responder.query_count(), 1u);
}

TEST_F(WaitingLookup, a_result_that_is_too_long_is_asked_for_again_with_twice_the_room) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(1, 10));  // 216 bytes of data
    const hostent* host = NetDNSGetHostByName(kProfile, kLongName.c_str());
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(addresses_of(host).size(), 10u);
    EXPECT_EQ(trace::count("Not enough memory \n"), 1u);
    EXPECT_EQ(trace::count("Request to get hostname \n"), 2u);
    EXPECT_EQ(responder.query_count(), 2u);
}

TEST_F(WaitingLookup, the_buffer_doubles_until_the_result_fits_and_starts_small_again) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(13, 1));  // 1236 bytes of data
    ASSERT_NE(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr);
    EXPECT_EQ(responder.query_count(), 3u);
    clear_dns_cache();
    const hostent* host = NetDNSGetHostByName(kProfile, kLongName.c_str());
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(aliases_of(host).size(), 13u);
    EXPECT_EQ(responder.query_count(), 6u);
}

TEST_F(WaitingLookup, without_memory_there_is_no_host_and_nothing_is_checked) {
    for (const char* name : {"localhost", "www.example", "a", static_cast<const char*>(nullptr)}) {
        calls::fail(Call::Malloc);
        EXPECT_EQ(NetDNSGetHostByName(kProfile, name), nullptr);
        EXPECT_TRUE(calls::has_failed(Call::Malloc));
        EXPECT_THAT(trace::texts(), IsEmpty());
    }
    EXPECT_NE(NetDNSGetHostByName(kProfile, "localhost"), nullptr);
}

TEST_F(WaitingLookup, a_buffer_that_cannot_grow_is_no_host_and_is_made_anew) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(1, 10));
    calls::fail(Call::Malloc, 2);
    EXPECT_EQ(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    EXPECT_NE(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr);
}

TEST_F(WaitingLookup, any_failed_allocation_leaves_a_host_or_null) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(13, 1));
    for (size_t nth = 1;; ++nth) {
        clear_dns_cache();
        calls::fail(Call::Malloc, nth);
        const hostent* host = NetDNSGetHostByName(kProfile, kLongName.c_str());
        const bool failed = calls::has_failed(Call::Malloc);
        calls::reset();
        if (host != nullptr) {
            EXPECT_EQ(aliases_of(host).size(), 13u);
        }
        if (!failed) {
            EXPECT_NE(host, nullptr);
            EXPECT_GT(nth, 4u) << "three buffers, and a node and a copy for the cache";
            break;
        }
        EXPECT_NE(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr) << nth;
    }
}

TEST_F(WaitingLookup, threads_are_served_one_after_another) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    std::vector<std::thread> threads;
    for (int n = 0; n < 8; ++n)
        threads.emplace_back([n] { NetDNSGetHostByName(kProfile, ("www" + std::to_string(n)).c_str()); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(responder.query_count(), 8u);
    // Between a question to the cache and its answer's arrival there no other thread's lines are traced.
    int32_t busy = 0;
    for (const TraceLine& line : trace::lines()) {
        if (line.text.rfind("Finding host[", 0) == 0 && busy == 0)
            busy = line.thread;
        if (busy != 0 && line.file != "data-networking/client/CM/src/NetCMIntf" &&
            line.text != "Request to get hostname \n") {
            EXPECT_EQ(line.thread, busy) << line.text;
        }
        if (line.text.rfind("Host [", 0) == 0)
            busy = 0;
    }
}

// A callback of the application holds the connection manager's mutex, and may resolve names while another
// thread is about to ask the connection manager.
TEST_F(WaitingLookup, a_thread_with_the_application_mutex_does_not_wait_for_one_that_wants_it) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1"));
    pthread_mutex_lock(&NetCMAppMutex);
    auto other = std::async(std::launch::async,
                            [] { return NetDNSGetHostByName(kProfile, "other.example") != nullptr; });
    EXPECT_TRUE(trace::wait_for("Getting device request for profile id [1] \n"));
    EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    pthread_mutex_unlock(&NetCMAppMutex);
    EXPECT_TRUE(other.get());
}

// Also between its tries nobody comes in: the buffer is one thread's for the whole call.
TEST_F(WaitingLookup, another_thread_does_not_come_between_the_tries) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_in_long(1, 10));
    std::future<bool> other;
    std::atomic<bool> started{false};
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text != "Request to get hostname \n" || trace::count(line.text) != 2 ||
            started.exchange(true))
            return;
        std::promise<int32_t> thread;
        std::future<int32_t> id = thread.get_future();
        other = std::async(std::launch::async, [thread = std::move(thread)]() mutable {
            thread.set_value(static_cast<int32_t>(gettid()));
            return NetDNSGetHostByName(kProfile, "other.example") != nullptr;
        });
        EXPECT_TRUE(trace::wait_for(trace::text("Mutex unlocked by thread [%d] \n", id.get())));
    });
    EXPECT_NE(NetDNSGetHostByName(kProfile, kLongName.c_str()), nullptr);
    ASSERT_TRUE(other.valid());
    EXPECT_TRUE(other.get());
    EXPECT_TRUE(trace::contains_in_order({"Not enough memory \n",
                                          "Host [" + kLongName + "] successfully added to the list\n",
                                          "Finding host[other.example] in cache\n"}));
}

TEST_F(WaitingLookup, a_life_time_runs_out) {
    open_profile("lo", "127.0.0.1");
    Responder responder(answer_with("192.0.2.1", 2));
    calls::stop_time(5000);
    EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    calls::stop_time(5001);
    EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    EXPECT_EQ(responder.query_count(), 1u);
    calls::stop_time(5002);
    EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    EXPECT_EQ(responder.query_count(), 2u);
}

class LookupsSlow : public ProfileTest {};

TEST_F(LookupsSlow, a_silent_primary_server_is_given_up_for_the_secondary) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder primary(silence());
    Responder secondary(answer_with("192.0.2.2"), "127.0.0.2");
    const auto start = std::chrono::steady_clock::now();
    const hostent* host = NetDNSGetHostByName(kProfile, "www.example");
    ASSERT_NE(host, nullptr);
    EXPECT_THAT(addresses_of(host), ElementsAre("192.0.2.2"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    EXPECT_EQ(primary.query_count(), 2u);
}

TEST_F(LookupsSlow, two_silent_servers_take_8_seconds) {
    open_profile("lo", "127.0.0.1", "127.0.0.2");
    Responder primary(silence());
    Responder secondary(silence(), "127.0.0.2");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::seconds(8));
    EXPECT_LT(taken, std::chrono::seconds(14));
    EXPECT_TRUE(trace::contains("errno: 11, herr: 2\n"));
}

}  // namespace
}  // namespace quorvel::test::dns
