// netcm resolve over a profile, against a real DNS server.
#include <gmock/gmock.h>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

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
    Program dnsmasq{{"dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
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
    for (const json& answer : json_lines(ended.out)) {
        resolved += answer.contains("name") ? 1 : 0;
    }
    EXPECT_EQ(resolved, 20u);
}

TEST_F(NetcmResolve, asks_a_server_without_any_profile) {
    server.stop();
    const auto answer = netcm_json({"resolve", "--interface", "lo", "--server", "127.0.0.1", "www.test"});
    EXPECT_EQ(answer["addresses"], json({"192.0.2.5"}));
}

TEST_F(NetcmResolve, as_does_an_application_in_c) {
    const Ended ended = run({EXAMPLE_RESOLVE_PATH, "alias.test"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "www.test  192.0.2.5\n");
    EXPECT_EQ(run({EXAMPLE_RESOLVE_PATH, "nosuch.test"}).status, 1);
}

TEST(NetcmResolveInput, wrong_options_are_wrong_usage) {
    EXPECT_EQ(netcm({"resolve"}).status, 2);
    EXPECT_EQ(netcm({"resolve", "--reverse", "name"}).status, 2);
    EXPECT_EQ(netcm({"resolve", "a.test", "--interface", "lo"}).status, 2);
    EXPECT_EQ(netcm({"resolve", "a.test", "--server", "127.0.0.1", "--async"}).status, 2);
}

}  // namespace
}  // namespace quorvel::test
