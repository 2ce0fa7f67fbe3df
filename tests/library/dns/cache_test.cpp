// The host cache, through its three operations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <ctime>

#include "Host.h"
#include "Responder.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kFound = 0;
constexpr int kNotFound = 3;
hostent* const kUntouched = reinterpret_cast<hostent*>(0x10);

struct Cached {
    explicit Cached(const char* name, int size = 4096) : buffer(size) {
        code = get_dns_result_fron_cache(name, buffer.data(), buffer.size(), &host);
    }
    HostBuffer buffer;
    hostent* host = kUntouched;
    int code;
};

// Caches a host that a lookup has given for an address text, with a life time of the test's.
void cache_address(const std::string& name, unsigned ttl = 1000) {
    Resolution lookup;
    lookup.by_name(name.c_str());
    ASSERT_NE(lookup.host, nullptr);
    update_dns_cache(name.c_str(), lookup.host, lookup.needed, ttl);
}

std::string nth_name(int n) {
    return "10.0.0." + std::to_string(n);
}

class Cache : public ::testing::Test {
  protected:
    void SetUp() override { trace::clear(); }
    void TearDown() override { clear_dns_cache(); }
};

TEST_F(Cache, an_empty_cache_finds_nothing_and_writes_nothing) {
    const Cached cached("10.0.0.1");
    EXPECT_EQ(cached.code, kNotFound);
    EXPECT_EQ(cached.host, kUntouched);
    EXPECT_TRUE(
        trace::contains_in_order({"Finding host[10.0.0.1] in cache\n", "[10.0.0.1] host not found\n"}));
    EXPECT_EQ(trace::find("[10.0.0.1] host not found\n").file, "data-networking/dns/src/dnscache_list");
    EXPECT_EQ(trace::find("[10.0.0.1] host not found\n").mask, trace::kNormal);
}

TEST_F(Cache, a_host_is_given_out_as_a_copy_in_the_callers_buffer) {
    cache_address("10.0.0.1");
    Cached cached("10.0.0.1", needed_for({"10.0.0.1"}, 1));
    EXPECT_EQ(cached.code, kFound);
    expect_layout(cached.host, cached.buffer);
    EXPECT_STREQ(cached.host->h_name, "10.0.0.1");
    EXPECT_THAT(addresses_of(cached.host), ElementsAre("10.0.0.1"));
    EXPECT_THAT(aliases_of(cached.host), IsEmpty());
    EXPECT_TRUE(trace::contains_in_order(
        {"Caching positive response for host [10.0.0.1]\n", "Number of hosts = 1\n",
         "Adding host information to the list\n", "Host [10.0.0.1] successfully added to the list\n",
         "[10.0.0.1] host found\n", "10.0.0.1 host found in positive client cache\n"}));
}

TEST_F(Cache, a_copy_that_does_not_fit_is_a_miss) {
    cache_address("10.0.0.1");
    const int whole = needed_for({"10.0.0.1"}, 1);
    for (const auto& [size, needed] : {std::pair{1, kHostAliases},
                                       {kHostAliases, kHostAddresses},
                                       {kHostAddresses, kHostData},
                                       {kHostData, kHostData + 9},
                                       {whole - 1, whole}}) {
        trace::clear();
        const Cached cached("10.0.0.1", size);
        EXPECT_EQ(cached.code, kNotFound);
        EXPECT_EQ(cached.host, nullptr);
        const std::string text =
            "buffer not enough needed " + std::to_string(needed) + " provided " + std::to_string(size) + "\n";
        EXPECT_EQ(trace::find(text).mask, trace::kInternal) << text;
    }
    EXPECT_EQ(Cached("10.0.0.1", whole).code, kFound);
}

TEST_F(Cache, missing_pointers_are_survived) {
    cache_address("10.0.0.1");
    HostBuffer buffer(4096);
    hostent* host = kUntouched;
    EXPECT_EQ(get_dns_result_fron_cache("10.0.0.1", nullptr, 4096, &host), kNotFound);
    EXPECT_EQ(host, nullptr);
    EXPECT_EQ(get_dns_result_fron_cache("10.0.0.1", buffer.data(), -1, &host), kNotFound);
    EXPECT_EQ(get_dns_result_fron_cache("10.0.0.1", buffer.data(), buffer.size(), nullptr), kFound);
    EXPECT_EQ(get_dns_result_fron_cache(nullptr, buffer.data(), buffer.size(), &host), kNotFound);
    EXPECT_EQ(trace::find("Invalid hostname argument passed\n").mask, trace::kCaller);
    update_dns_cache(nullptr, nullptr, 0, 0);
    EXPECT_FALSE(trace::contains("Number of hosts = 2\n"));
    update_dns_cache("nobody", nullptr, 0, 0);
    EXPECT_EQ(get_dns_result_fron_cache("nobody", buffer.data(), buffer.size(), nullptr), kFound);
}

TEST_F(Cache, names_are_compared_with_their_case) {
    update_dns_cache("Name", nullptr, 0, 0);
    EXPECT_EQ(Cached("Name").code, kFound);
    EXPECT_EQ(Cached("name").code, kNotFound);
}

TEST_F(Cache, a_name_that_is_there_is_left_as_it_is) {
    cache_address("10.0.0.1", 1000);
    trace::clear();
    cache_address("10.0.0.1", 0);
    update_dns_cache("10.0.0.1", nullptr, 0, 0);
    EXPECT_FALSE(trace::contains("Adding host information to the list\n"));
    EXPECT_NE(Cached("10.0.0.1").host, nullptr);
}

TEST_F(Cache, a_negative_entry_answers_with_no_host) {
    update_dns_cache("gone.example", nullptr, 0, 0);
    const Cached cached("gone.example", 1);
    EXPECT_EQ(cached.code, kFound);
    EXPECT_EQ(cached.host, nullptr);
    EXPECT_TRUE(trace::contains_in_order(
        {"Caching negative response for host [gone.example] ttlvalue [300]\n", "Number of hosts = 1\n",
         "Host [gone.example] successfully added to the list\n",
         "gone.example host found in negative client cache\n"}));
}

class CacheOverTime : public Cache {
  protected:
    void SetUp() override {
        Cache::SetUp();
        calls::stop_time(kNow);
    }
    static constexpr time_t kNow = 1'000'000;
};

TEST_F(CacheOverTime, a_negative_entry_ends_after_300_seconds) {
    update_dns_cache("gone.example", nullptr, 0, 0);
    EXPECT_TRUE(trace::traced(2, "Timestamp stored [1000300]\n", "dns/src/dnscache_list"));
    calls::stop_time(kNow + 299);
    EXPECT_EQ(Cached("gone.example").code, kFound);
    calls::stop_time(kNow + 300);
    trace::clear();
    EXPECT_EQ(Cached("gone.example").code, kNotFound);
    EXPECT_TRUE(trace::contains_in_order(
        {"Deleting expired host [gone.example]\n", "Deleted host [gone.example]\n"}));
}

TEST_F(CacheOverTime, a_host_is_found_while_a_second_of_its_life_time_is_left) {
    cache_address("10.0.0.1", 60);
    calls::stop_time(kNow + 59);
    EXPECT_EQ(Cached("10.0.0.1").code, kFound);
    calls::stop_time(kNow + 60);
    EXPECT_EQ(Cached("10.0.0.1").code, kNotFound);
}

TEST_F(CacheOverTime, a_clock_that_is_set_back_lengthens_a_life) {
    cache_address("10.0.0.1", 60);
    calls::stop_time(kNow - 1000);
    EXPECT_EQ(Cached("10.0.0.1").code, kFound);
}

TEST_F(Cache, a_host_of_no_life_time_is_deleted_by_the_first_search) {
    cache_address("10.0.0.1", 0);
    trace::clear();
    EXPECT_EQ(Cached("10.0.0.1").code, kNotFound);
    EXPECT_TRUE(
        trace::contains_in_order({"Deleting expired host [10.0.0.1]\n", "Deleted host [10.0.0.1]\n"}));
    trace::clear();
    EXPECT_EQ(Cached("10.0.0.1").code, kNotFound);
    EXPECT_FALSE(trace::contains("Deleting expired host [10.0.0.1]\n"));
}

TEST_F(Cache, an_expired_host_inside_the_list_is_unlinked) {
    cache_address(nth_name(1));
    cache_address(nth_name(2), 0);
    cache_address(nth_name(3));
    EXPECT_EQ(Cached(nth_name(2).c_str()).code, kNotFound);
    EXPECT_EQ(Cached(nth_name(1).c_str()).code, kFound);
    EXPECT_EQ(Cached(nth_name(3).c_str()).code, kFound);
}

TEST_F(Cache, an_expired_host_is_replaced) {
    cache_address("10.0.0.1", 0);
    cache_address("10.0.0.1", 1000);
    EXPECT_EQ(Cached("10.0.0.1").code, kFound);
}

TEST_F(Cache, the_longest_life_time_does_not_wrap) {
    cache_address("10.0.0.1", UINT_MAX);
    EXPECT_EQ(Cached("10.0.0.1").code, kFound);
}

TEST_F(Cache, the_11th_host_takes_the_place_of_the_one_used_longest_ago) {
    for (int n = 1; n <= 10; ++n)
        cache_address(nth_name(n));
    EXPECT_TRUE(trace::contains("Number of hosts = 10\n"));
    EXPECT_FALSE(trace::contains("Deleting last host\n"));
    trace::clear();
    cache_address(nth_name(11));
    EXPECT_TRUE(trace::contains_in_order(
        {"Number of hosts = 11\n", "Deleting last host\n", "Deleting last host [10.0.0.1]\n"}));
    EXPECT_EQ(Cached(nth_name(1).c_str()).code, kNotFound);
    for (int n = 2; n <= 11; ++n)
        EXPECT_EQ(Cached(nth_name(n).c_str()).code, kFound) << n;
}

TEST_F(Cache, a_hit_protects_a_host) {
    for (int n = 1; n <= 10; ++n)
        cache_address(nth_name(n));
    trace::clear();
    EXPECT_EQ(Cached(nth_name(1).c_str()).code, kFound);
    EXPECT_TRUE(trace::contains_in_order({"[10.0.0.1] host found\n", "Bring to the front\n",
                                          "Moving recently queried host info to the front\n"}));
    cache_address(nth_name(11));
    EXPECT_EQ(Cached(nth_name(1).c_str()).code, kFound);
    EXPECT_EQ(Cached(nth_name(2).c_str()).code, kNotFound);
}

TEST_F(Cache, the_first_host_is_not_moved) {
    cache_address("10.0.0.1");
    trace::clear();
    EXPECT_EQ(Cached("10.0.0.1").code, kFound);
    EXPECT_FALSE(trace::contains("Bring to the front\n"));
}

TEST_F(Cache, clearing_empties_it) {
    cache_address("10.0.0.1");
    update_dns_cache("gone.example", nullptr, 0, 0);
    clear_dns_cache();
    EXPECT_TRUE(trace::contains("clearing all DNS Cache entries \n"));
    EXPECT_EQ(Cached("10.0.0.1").code, kNotFound);
    EXPECT_EQ(Cached("gone.example").code, kNotFound);
}

class CacheOfAnswers : public Cache {
  protected:
    // What a server's answer gave.
    Resolution answer() {
        Responder responder([](const Exchange& exchange) {
            exchange.reply(Response(exchange.query)
                               .cname("a.example", "b.example")
                               .cname("b.example", "c.example")
                               .a("c.example", "192.0.2.1")
                               .a("c.example", "192.0.2.2"));
        });
        return std::move(Resolution().by_name("a.example"));
    }
};

TEST_F(CacheOfAnswers, name_and_aliases_find_the_host) {
    const Resolution lookup = answer();
    update_dns_cache("a.example", lookup.host, lookup.needed, 1000);
    for (const char* name : {"a.example", "b.example", "c.example"}) {
        Cached cached(name, lookup.needed);
        EXPECT_EQ(cached.code, kFound);
        expect_layout(cached.host, cached.buffer);
        EXPECT_STREQ(cached.host->h_name, "c.example");
        EXPECT_THAT(aliases_of(cached.host), ElementsAre("a.example", "b.example"));
        EXPECT_THAT(addresses_of(cached.host), ElementsAre("192.0.2.1", "192.0.2.2"));
    }
    EXPECT_EQ(Cached("d.example").code, kNotFound);
}

TEST_F(CacheOfAnswers, a_size_that_is_too_small_is_not_cached) {
    const Resolution lookup = answer();
    for (const int size : {INT_MIN, -1, 0, 1, kHostData, lookup.needed - 1}) {
        trace::clear();
        update_dns_cache("a.example", lookup.host, size, 1000);
        EXPECT_EQ(Cached("a.example").code, kNotFound) << size;
        EXPECT_FALSE(trace::contains("Host [a.example] successfully added to the list\n"));
    }
}

TEST_F(CacheOfAnswers, a_copy_that_does_not_fit_is_a_miss_wherever_it_ends) {
    const Resolution lookup = answer();
    update_dns_cache("a.example", lookup.host, lookup.needed, 1000);
    for (int size = 1; size < lookup.needed; ++size)
        EXPECT_EQ(Cached("a.example", size).code, kNotFound) << size;
    EXPECT_EQ(Cached("a.example", lookup.needed).code, kFound);
}

TEST_F(CacheOfAnswers, a_host_without_a_name_is_not_cached) {
    hostent nameless{};
    update_dns_cache("a.example", &nameless, 1000, 1000);
    EXPECT_EQ(Cached("a.example").code, kNotFound);
    cache_address("10.0.0.1");
    EXPECT_TRUE(trace::contains("Number of hosts = 1\n"));
}

TEST_F(CacheOfAnswers, a_host_of_the_applications_own_is_copied_as_it_is) {
    char name[] = "six.example";
    char address[16] = {1, 2, 3, 4, 5};
    char* addresses[] = {address, nullptr};
    hostent host{name, nullptr, AF_INET6, 16, addresses};
    update_dns_cache(name, &host, kHostData + 28, 1000);
    Cached cached(name);
    ASSERT_EQ(cached.code, kFound);
    EXPECT_EQ(cached.host->h_addrtype, AF_INET6);
    EXPECT_EQ(cached.host->h_length, 16);
    EXPECT_EQ(memcmp(cached.host->h_addr_list[0], address, sizeof address), 0);
    EXPECT_THAT(aliases_of(cached.host), IsEmpty());
}

TEST_F(CacheOfAnswers, the_nameless_part_of_a_hosts_lists_may_be_missing) {
    char name[] = "bare.example";
    hostent host{name, nullptr, AF_INET, -4, nullptr};
    update_dns_cache(name, &host, 4096, 1000);
    const Cached cached(name);
    ASSERT_EQ(cached.code, kFound);
    EXPECT_THAT(addresses_of(cached.host), IsEmpty());
}

}  // namespace
}  // namespace quorvel::test::dns
