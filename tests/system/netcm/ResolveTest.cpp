// netcm resolve over a profile, against a real DNS server.
#include <gmock/gmock.h>

#include <csignal>
#include <map>

#include "Netcm.h"
#include "library/dns/Responder.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr const char* kOverLoopback = R"(
dns = ["127.0.0.1"]

[[profile]]
name = "first"
apn = "first"
interface = "lo"
)";

class NetcmResolve : public ::testing::Test {
  protected:
    NetcmResolve() { dnsmasq.wait_for_err("started"); }

    CmServer server{kOverLoopback, {"--db", ":memory:"}};
    Program dnsmasq{{"/usr/sbin/dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
                     "--listen-address=127.0.0.1", "--bind-interfaces", "--user=root",
                     "--pid-file=", "--host-record=www.test,192.0.2.5", "--cname=alias.test,www.test",
                     "--local-ttl=77", "--local=/test/"}};
};

TEST_F(NetcmResolve, tells_the_server_and_then_the_cache) {
    const auto answers = netcm_json_lines({"resolve", "www.test", "www.test"});
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0]["name"], "www.test");
    EXPECT_EQ(answers[0]["addresses"], json({"192.0.2.5"}));
    EXPECT_EQ(answers[0]["ttl"], 77);
    EXPECT_EQ(answers[0]["source"], "127.0.0.1");
    EXPECT_GT(answers[0]["milliseconds"], 0);
    EXPECT_EQ(answers[1]["source"], "cache");
    EXPECT_EQ(answers[1]["addresses"], json({"192.0.2.5"}));
}

TEST_F(NetcmResolve, shows_aliases) {
    const auto answer = netcm_json({"resolve", "alias.test", "--profile", "1"});
    EXPECT_EQ(answer["name"], "www.test");
    EXPECT_EQ(answer["aliases"], json({"alias.test"}));
}

TEST_F(NetcmResolve, finds_the_name_of_an_address) {
    EXPECT_EQ(netcm_json({"resolve", "--reverse", "192.0.2.5"})["name"], "www.test");
}

TEST_F(NetcmResolve, a_name_that_does_not_exist_fails_after_the_others) {
    const Ended ended = netcm({"resolve", "nosuch.test", "www.test", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "netcm: 1 of 2 not resolved\n");
    const auto answers = json_lines(ended.out);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0]["error"], "there is no such name");
    EXPECT_EQ(answers[1]["name"], "www.test");
}

TEST_F(NetcmResolve, prints_an_answer_for_people) {
    const Ended ended = netcm({"resolve", "alias.test", "nosuch.test"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.out, MatchesRegex("asked         alias.test\n"
                                        "name          www.test\n"
                                        "aliases       alias.test\n"
                                        "addresses     192.0.2.5\n"
                                        "TTL           77\n"
                                        "source        127.0.0.1\n"
                                        "milliseconds  [0-9.]+\n"
                                        "\n"
                                        "asked         nosuch.test\n"
                                        "error         there is no such name\n"
                                        "source        127.0.0.1\n"
                                        "milliseconds  [0-9.]+\n"));
}

TEST_F(NetcmResolve, asks_nobody_for_a_local_name_or_an_address) {
    dnsmasq.send_signal(SIGTERM);
    dnsmasq.wait();
    for (const Words& how : {Words{}, Words{"--async"}, Words{"--server", "127.0.0.1"}}) {
        const Words words = Words{"resolve", "localhost", "LocalHost", "127.0.0.5", "10.1"} + how;
        std::map<std::string, json> addresses;
        for (const json& answer : netcm_json_lines(words)) {
            EXPECT_EQ(answer["source"], "local");
            EXPECT_EQ(answer["name"], answer["asked"]);
            EXPECT_FALSE(answer.contains("ttl"));
            addresses[answer["asked"]] = answer["addresses"];
        }
        const json loopback{"127.0.0.1"};
        EXPECT_EQ(addresses, (std::map<std::string, json>{{"localhost", loopback},
                                                          {"LocalHost", loopback},
                                                          {"127.0.0.5", json{"127.0.0.5"}},
                                                          {"10.1", json{"10.0.0.1"}}}));
    }
}

TEST_F(NetcmResolve, answers_every_name_in_the_background) {
    std::vector<std::string> words{"resolve", "--async", "--json"};
    for (int i = 0; i < 30; ++i) {
        words.push_back(i % 3 == 0   ? "www.test"
                        : i % 3 == 1 ? "alias.test"
                                     : "n" + std::to_string(i) + ".test");
    }
    words.push_back("a_b");
    const Ended ended = netcm(words);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "netcm: 11 of 31 not resolved\n");
    size_t resolved = 0;
    const auto answers = json_lines(ended.out);
    for (const json& answer : answers) {
        resolved += answer.contains("name") ? 1 : 0;
        if (answer["asked"] != "a_b") {
            EXPECT_THAT(answer["source"], AnyOf("127.0.0.1", "cache"));
        }
    }
    EXPECT_EQ(resolved, 20u);
    EXPECT_EQ(answers[0]["asked"], "a_b") << "what is never asked for waits for nobody";
    EXPECT_THAT(answers[0]["error"], StartsWith("the name is not valid"));
}

TEST_F(NetcmResolve, asks_a_server_without_any_profile) {
    server.stop();
    const auto answer = netcm_json({"resolve", "--interface", "lo", "--server", "127.0.0.1", "www.test"});
    EXPECT_EQ(answer["addresses"], json({"192.0.2.5"}));
}

TEST_F(NetcmResolve, asks_a_server_for_many_names_at_once) {
    server.stop();
    Words words{"resolve", "--async", "--server", "127.0.0.1", "--interface", "lo"};
    for (int i = 0; i < 25; ++i) {
        words.push_back(i % 2 == 0 ? "www.test" : "alias.test");
    }
    const auto answers = netcm_json_lines(words);
    ASSERT_EQ(answers.size(), 25u);
    for (const json& answer : answers) {
        EXPECT_EQ(answer["addresses"], json({"192.0.2.5"}));
        EXPECT_TRUE(answer["source"] == "cache" || answer["ttl"] == 77) << answer;
    }
}

TEST_F(NetcmResolve, asks_a_server_over_the_profiles_interface) {
    for (const Words& how :
         {Words{"www.test"}, Words{"www.test", "--async"}, Words{"--reverse", "192.0.2.5"}}) {
        const auto answer = netcm_json(Words{"resolve", "--profile", "1", "--server", "127.0.0.1"} + how);
        EXPECT_EQ(answer["name"], "www.test");
        EXPECT_EQ(answer["source"], "127.0.0.1");
    }
    server.stop();
    EXPECT_EQ(netcm({"resolve", "www.test", "--profile", "1", "--server", "127.0.0.1"}).status, 1);
}

TEST_F(NetcmResolve, finds_the_name_of_an_address_without_any_profile) {
    server.stop();
    const auto answer = netcm_json({"resolve", "--reverse", "192.0.2.5", "--server", "127.0.0.1"});
    EXPECT_EQ(answer["asked"], "192.0.2.5");
    EXPECT_EQ(answer["name"], "www.test");
    EXPECT_EQ(answer["source"], "127.0.0.1");
}

TEST_F(NetcmResolve, asks_the_next_server_when_one_is_not_there) {
    const auto answer = netcm_json({"resolve", "www.test", "--server", "127.0.0.9", "--server", "127.0.0.1"});
    EXPECT_EQ(answer["source"], "127.0.0.1");
}

TEST_F(NetcmResolve, as_does_an_application_in_c) {
    const Ended ended = run({EXAMPLE_RESOLVE_PATH, "alias.test"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "www.test  192.0.2.5\n");
    EXPECT_EQ(run({EXAMPLE_RESOLVE_PATH, "nosuch.test"}).status, 1);
}

// The error that a server leads to.
std::string error_of(const dns::Responder::Script& script) {
    const dns::Responder responder(script);
    const Ended ended = netcm({"resolve", "www.test", "--server", "127.0.0.1", "--json"});
    EXPECT_EQ(ended.status, 1);
    const json answer = json_lines(ended.out).at(0);
    EXPECT_EQ(answer["source"], "127.0.0.1");
    return answer["error"];
}

dns::Responder::Script response_code(uint16_t code) {
    return [code](const dns::Exchange& exchange) {
        exchange.reply(dns::Response(exchange.query).flags(static_cast<uint16_t>(0x8180 | code)));
    };
}

TEST(NetcmResolveServer, what_a_server_refuses_is_said) {
    EXPECT_EQ(error_of(response_code(0)), "the DNS server's response holds no answer");
    EXPECT_EQ(error_of(response_code(2)), "the DNS server does not answer, or has failed");
    EXPECT_EQ(error_of(response_code(3)), "there is no such name");
    EXPECT_EQ(error_of(response_code(5)), "the DNS server refuses the query");
}

TEST(NetcmResolveServer, a_server_that_is_not_there_is_named) {
    const Ended ended = netcm({"resolve", "www.test", "--server", "127.0.0.1"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "netcm: 1 of 1 not resolved\n");
    EXPECT_THAT(ended.out, HasSubstr("error         the DNS server does not answer, or has failed\n"
                                     "source        127.0.0.1\n"));
}

TEST(NetcmResolveServerSlow, a_silent_server_is_named) {
    EXPECT_EQ(error_of(dns::silence()), "the DNS server does not answer, or has failed");
}

TEST(NetcmResolveServer, a_name_that_no_message_holds_is_refused) {
    const Ended ended = netcm({"resolve", "a..b", "--server", "127.0.0.1"});
    EXPECT_THAT(ended.out, HasSubstr("the name is too long, or has an empty or a too long label\n"));
}

TEST(NetcmResolveInput, a_name_that_is_never_asked_for_needs_no_connection) {
    const Ended ended = netcm({"resolve", "a_b", "-", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "netcm: 2 of 2 not resolved\n");
    for (const json& answer : json_lines(ended.out)) {
        EXPECT_EQ(answer["error"], "the name is not valid: it takes letters, digits, \"-\" and \".\"");
    }
}

TEST(NetcmResolveInput, what_cannot_be_meant_is_explained) {
    const std::map<std::string, Words> wrong{
        {"--async: with --reverse there is one address only", {"--reverse", "192.0.2.5", "--async"}},
        {"--interface: without --server the profile's own interface is used",
         {"a.test", "--interface", "lo"}},
        {"--interface: the profile's own interface is used; leave --profile or this away",
         {"a.test", "--interface", "lo", "--server", "127.0.0.1", "--profile", "1"}},
        {"NAME or --reverse is required", {}},
        {"NAME excludes --reverse", {"a.test", "--reverse", "192.0.2.5"}},
    };
    for (const auto& [reason, options] : wrong) {
        const Ended ended = netcm(Words{"resolve"} + options);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.err, "netcm: " + reason + "\nTry 'netcm resolve --help'.\n");
    }
}

TEST(NetcmResolveInput, wrong_options_are_wrong_usage) {
    EXPECT_EQ(netcm({"resolve"}).status, 2);
    EXPECT_EQ(netcm({"resolve", "--reverse", "name"}).status, 2);
    EXPECT_EQ(netcm({"resolve", "a.test", "--server", "999.1.1.1"}).status, 2);
}

}  // namespace
}  // namespace quorvel::test
