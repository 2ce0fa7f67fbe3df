// netcm tunnel send and listen.
#include <gmock/gmock.h>

#include <csignal>
#include <fstream>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

TEST(NetcmTunnel, prints_what_the_server_sends_back) {
    CmServer server;
    const json text = netcm_json({"tunnel", "send", "hello"});
    EXPECT_EQ(text["event"], "tunnel_response");
    EXPECT_EQ(text["length"], 5);
    EXPECT_EQ(text["data"], "68656c6c6f");
    EXPECT_EQ(text["text"], "hello");
    const json bytes = netcm_json({"tunnel", "send", "--hex", "00 ff:1B", "--param", "-7"});
    EXPECT_EQ(bytes["data"], "00ff1b");
    EXPECT_FALSE(bytes.contains("text"));
}

TEST(NetcmTunnel, sends_a_file) {
    CmServer server;
    std::string content;
    for (int i = 0; i < 3000; ++i) {
        content += static_cast<char>(i);
    }
    std::ofstream("/tmp/data", std::ios::binary) << content;
    const json answer = netcm_json({"tunnel", "send", "--file", "/tmp/data"});
    EXPECT_EQ(answer["length"], 3000);
    EXPECT_THAT(answer["data"].get<std::string>(), ::testing::StartsWith("000102"));
}

TEST(NetcmTunnel, sends_nothing_as_well) {
    CmServer server;
    EXPECT_EQ(netcm_json({"tunnel", "send", ""})["length"], 0);
}

TEST(NetcmTunnel, says_that_there_is_nothing_to_send) {
    const Ended ended = netcm({"tunnel", "send"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.err,
              "netcm: data to send (DATA, --hex or --file) is required\nTry 'netcm tunnel send --help'.\n");
}

TEST(NetcmTunnel, names_a_file_that_cannot_be_read) {
    const Ended ended = netcm({"tunnel", "send", "--file", "/tmp/nosuch"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "netcm: cannot read /tmp/nosuch: No such file or directory\n");
}

TEST(NetcmTunnel, wrong_digits_or_two_sources_are_wrong_usage) {
    EXPECT_EQ(netcm({"tunnel", "send", "--hex", "123"}).status, 2);
    EXPECT_EQ(netcm({"tunnel", "send", "--hex", "1g"}).status, 2);
    EXPECT_EQ(netcm({"tunnel", "send", "text", "--hex", "12"}).status, 2);
}

TEST(NetcmTunnel, listens_until_it_is_interrupted) {
    CmServer server;
    Program listen(netcm_command({"tunnel", "listen", "--json"}));
    server.program().wait_for_err("wants tunnel indications");
    server.ctl({"tunnel", "one", "--id", "8"});
    server.ctl({"tunnel", "--hex", "00"});
    listen.wait_for_out("\"00\"");
    listen.send_signal(SIGINT);
    const Ended ended = listen.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    const auto events = json_lines(ended.out);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["event"], "tunnel_data");
    EXPECT_EQ(events[0]["request_id"], 8);
    EXPECT_EQ(events[0]["text"], "one");
    EXPECT_EQ(events[1]["data"], "00");
    EXPECT_THAT(server.stop().err, HasSubstr("wants no tunnel indications any more"));
}

TEST(ExampleTunnel, prints_what_the_server_sends_back) {
    CmServer server;
    const Ended ended = run({EXAMPLE_TUNNEL_PATH, "hello"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "request 1: hello\n");
}

}  // namespace
}  // namespace quorvel::test
