// Against DNS servers as people run them: an authoritative one (knot) and a forwarder's cache (dnsmasq).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "Callbacks.h"
#include "Host.h"
#include "Profiles.h"
#include "ServerNetwork.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

constexpr char kServer[] = "10.9.0.53";

class Knot : public ::testing::Test {
  protected:
    void SetUp() override { trace::clear(); }

    Resolution resolve(const char* name) {
        return std::move(Resolution().by_name(name, kServer, network_.ifname().c_str()));
    }
    void expect_error(const char* name, int herr) {
        const Resolution result = resolve(name);
        EXPECT_EQ(result.host, nullptr) << name;
        EXPECT_EQ(result.herr, herr) << name;
        EXPECT_EQ(result.error, ENOENT) << name;
    }

    ServerNetwork network_{"veth0", "10.9.0.1", kServer, knot_command(kServer)};
};

TEST_F(Knot, an_address) {
    Resolution result = resolve("www.example");
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "www.example");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
    EXPECT_EQ(result.ttl, 300u);
    EXPECT_EQ(result.needed, needed_for({"www.example"}, 1));
}

TEST_F(Knot, a_chain_of_aliases) {
    Resolution result = resolve("a.example");
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "c.example");
    EXPECT_THAT(aliases_of(result.host), ElementsAre("a.example", "b.example"));
    EXPECT_THAT(addresses_of(result.host), UnorderedElementsAre("192.0.2.2", "192.0.2.3"));
    EXPECT_EQ(result.ttl, 120u);
}

TEST_F(Knot, an_alias_of_nothing) {
    expect_error("lost.example", 4);
}

TEST_F(Knot, a_name_error_is_no_data) {
    expect_error("nobody.example", 4);
    EXPECT_TRUE(trace::contains("error response: 3\n"));
}

TEST_F(Knot, a_name_without_an_address_is_not_found) {
    expect_error("text.example", 1);
    EXPECT_TRUE(trace::contains("no error but no answer(s)\n"));
}

TEST_F(Knot, a_zone_that_cannot_be_loaded_is_a_server_failure) {
    expect_error("www.broken", 2);
    EXPECT_TRUE(trace::contains("error response: 2\n"));
}

TEST_F(Knot, a_zone_that_it_does_not_serve_is_refused) {
    expect_error("www.elsewhere", 3);
    EXPECT_TRUE(trace::contains("error response: 5\n"));
}

TEST_F(Knot, thirty_addresses_fit) {
    Resolution result = resolve("many.example");
    expect_layout(result.host, result.buffer);
    EXPECT_EQ(addresses_of(result.host).size(), 30u);
    EXPECT_THAT(addresses_of(result.host), ::testing::Each(StartsWith("198.51.100.")));
    EXPECT_EQ(result.needed, needed_for({"many.example"}, 30));
}

TEST_F(Knot, an_answer_of_more_than_512_bytes_comes_truncated) {
    const Resolution result = resolve("toomany.example");
    const bool truncated = std::ranges::any_of(
        trace::texts(), [](const std::string& text) { return text == "flags   : 0x8700\n"; });
    EXPECT_TRUE(truncated) << "the server sets TC and leaves the records out";
    EXPECT_EQ(result.host, nullptr);
    EXPECT_EQ(result.herr, 1);
}

TEST_F(Knot, the_name_of_an_address) {
    Resolution result = std::move(Resolution().by_address("192.0.2.1", kServer));
    expect_layout(result.host, result.buffer);
    EXPECT_STREQ(result.host->h_name, "www.example");
    EXPECT_THAT(addresses_of(result.host), ElementsAre("192.0.2.1"));
    EXPECT_THAT(aliases_of(result.host), IsEmpty());
    const Resolution one_of_two = std::move(Resolution().by_address("192.0.2.2", kServer));
    ASSERT_NE(one_of_two.host, nullptr);
    EXPECT_THAT(one_of_two.host->h_name,
                ::testing::AnyOf(std::string("c.example"), std::string("other.example")));
    const Resolution unknown = std::move(Resolution().by_address("192.0.2.99", kServer));
    EXPECT_EQ(unknown.host, nullptr);
    EXPECT_EQ(unknown.herr, 4);
}

TEST_F(Knot, a_final_dot_asks_for_a_name_that_is_not_there) {
    expect_error("www.example.", 3);
}

// Two networks, with different answers at the same address: only the interface tells them apart.
class TwoNetworks : public ProfileTest {
  protected:
    TwoNetworks() {
        open_profile(0, 1, "veth0", kServer);
        open_profile(1, 2, "veth1", kServer);
        trace::clear();
    }

    static std::vector<std::string> options(const std::string& address) {
        return {"--host-record=www.example," + address, "--local-ttl=77",
                "--host-record=zero.example," + address + ",0", "--cname=alias.example,www.example",
                "--ptr-record=1.2.0.192.in-addr.arpa,host.example"};
    }
    static std::vector<std::string> lookup(int profile, const char* name) {
        const hostent* host = NetDNSGetHostByName(profile, name);
        return host != nullptr ? addresses_of(host) : std::vector<std::string>{};
    }

    ServerNetwork first_{"veth0", "10.9.0.1", kServer, dnsmasq_command(kServer, options("192.0.2.10"))};
    ServerNetwork second_{"veth1", "10.9.0.2", kServer, dnsmasq_command(kServer, options("192.0.2.20"))};
};

TEST_F(TwoNetworks, a_query_leaves_over_the_interface_that_it_names) {
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_THAT(addresses_of(Resolution().by_name("www.example", kServer, "veth0").host),
                    ElementsAre("192.0.2.10"));
        EXPECT_THAT(addresses_of(Resolution().by_name("www.example", kServer, "veth1").host),
                    ElementsAre("192.0.2.20"));
    }
}

TEST_F(TwoNetworks, a_lookup_leaves_over_its_profiles_interface) {
    EXPECT_THAT(lookup(1, "www.example"), ElementsAre("192.0.2.10"));
    EXPECT_THAT(lookup(2, "www.example"), ElementsAre("192.0.2.10"))
        << "one server address in both networks: the cache has no reason to forget";
    clear_dns_cache();
    EXPECT_THAT(lookup(2, "www.example"), ElementsAre("192.0.2.20"));
}

TEST_F(TwoNetworks, a_background_lookup_leaves_over_its_profiles_interface) {
    unsigned id = 0;
    EXPECT_EQ(NetDNSGetHostByNameAsync(2, "www.example", callbacks::note, &id), 1);
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_THAT(callbacks::deliveries()[0].addresses, ElementsAre("192.0.2.20"));
}

TEST_F(TwoNetworks, the_second_lookup_comes_from_the_cache) {
    EXPECT_THAT(lookup(1, "alias.example"), ElementsAre("192.0.2.10"));
    trace::clear();
    EXPECT_THAT(lookup(1, "alias.example"), ElementsAre("192.0.2.10"));
    EXPECT_THAT(lookup(1, "www.example"), ElementsAre("192.0.2.10")) << "the alias brought the name along";
    EXPECT_FALSE(trace::contains("Host not found in cache, Querying..."));
}

TEST_F(TwoNetworks, an_answer_of_no_life_time_is_asked_for_each_time) {
    for (int turn = 0; turn < 2; ++turn) {
        trace::clear();
        EXPECT_THAT(lookup(1, "zero.example"), ElementsAre("192.0.2.10"));
        EXPECT_TRUE(trace::contains("Host not found in cache, Querying..."));
        EXPECT_TRUE(trace::contains("ttl    : 0\n"));
    }
}

TEST_F(TwoNetworks, life_time_alias_and_refusal_of_dnsmasq) {
    Resolution alias = std::move(Resolution().by_name("alias.example", kServer, "veth0"));
    expect_layout(alias.host, alias.buffer);
    EXPECT_STREQ(alias.host->h_name, "www.example");
    EXPECT_THAT(aliases_of(alias.host), ElementsAre("alias.example"));
    EXPECT_EQ(alias.ttl, 77u);
    const Resolution refused = std::move(Resolution().by_name("www.elsewhere", kServer, "veth0"));
    EXPECT_EQ(refused.host, nullptr);
    EXPECT_EQ(refused.herr, 3);
}

}  // namespace
}  // namespace quorvel::test::dns
