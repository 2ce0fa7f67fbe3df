// Pages that are made of records.
#include <algorithm>

#include "common/PmWire.h"
#include "protocol/status.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

TEST(Report, is_one_page_with_clients_calls_requests_and_what_went_wrong_first) {
    {
        CmServer server("", {"--record", "/tmp/flight.jsonl"});
        RawClient client(7);
        const uint32_t call = client.open(1);
        server.ctl({"suspend"});
        client.event();
        server.ctl({"resume"});
        client.event();
        client.start(99);
        server.ctl({"stop", std::to_string(call), "--status", "21", "--reason", "6"});
        client.event();
        ask_pm(client, wire::NETPM_CLIENT_ADD_PROFILE_REQ, -1, slot(pdp_profile("</script><b>", "internet")));
        server.stop();
    }
    const Ended ended = run({CM_SERVER_PATH, "report", "/tmp/flight.jsonl", "--html", "/tmp/report.html"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    const std::string page = content("/tmp/report.html");
    EXPECT_EQ(mode_of("/tmp/report.html"), 0600u);
    for (const char* from_elsewhere : {"src=", "href=", "@import", "url("})
        EXPECT_EQ(page.find(from_elsewhere), std::string::npos) << from_elsewhere;
    const json story = story_in("/tmp/report.html");
    ASSERT_EQ(story.at("clients").size(), 1u);
    EXPECT_EQ(story["clients"][0].at("application"), 7);
    ASSERT_EQ(story.at("calls").size(), 2u);
    std::vector<std::string> phases;
    for (const json& phase : story["calls"][0].at("phases"))
        phases.push_back(phase.at("name"));
    EXPECT_EQ(phases, (std::vector<std::string>{"starting", "up", "suspended", "up"}));
    EXPECT_EQ(story["calls"][0].at("why"), "ended: the network has ended it");
    EXPECT_EQ(story["calls"][1].at("why"), "refused: there is no such profile");
    EXPECT_GE(story.at("problems").size(), 2u);
    size_t with_latency = 0;
    for (const json& row : story.at("rows"))
        with_latency += row.contains("l") ? 1 : 0;
    EXPECT_EQ(with_latency, 4u);
    // Once more: what is there is left alone.
    EXPECT_EQ(run({CM_SERVER_PATH, "report", "/tmp/flight.jsonl", "--html", "/tmp/report.html"}).status, 1);
}

// One of the texts of a list, with all others when it is not there.
void expect_text(const json& list, const char* key, const std::string& wanted) {
    const bool found = std::ranges::any_of(list, [&](const json& one) { return one.at(key) == wanted; });
    EXPECT_TRUE(found) << wanted << "\nin\n" << list.dump(1);
}

std::string request(uint32_t code, uint32_t profile = 0) {
    return hex(code, 0, 1, 0, profile, 0);
}
std::string answer(uint32_t code, uint32_t profile, uint32_t call, uint32_t status = NETCM_SUCCESS,
                   uint32_t reason = 0) {
    return hex(code, 0, profile, call, status, reason, 0, 0, 0, 0);
}

void open_call(Made& made, uint32_t profile, uint32_t call, uint32_t client = 1) {
    made.add("request", request(wire::NETCM_CLIENT_START_REQ, profile), client);
    made.add("answer", answer(wire::NETCM_CLIENT_START_RSP, profile, call), client);
    made.add("event", answer(wire::NETCM_CLIENT_START_RSP, profile, call), client);
}

TEST(Report, tells_what_is_worst_first) {
    Made made;
    made.note({{"note", "client"}, {"client", 1}, {"process", 4711}, {"application", 7}});
    made.add("request", request(wire::NETCM_CLIENT_GET_SETTINGS_REQ));
    made.add("request", request(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ));
    made.wait(1400);
    made.add("answer", answer(wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP, 0, 0));
    made.add("answer", hex(wire::NETPM_PROFILE_RSP, 104, 0, 103, 0, 0, 0, 0, 0, 0));
    made.add("answer", hex(wire::NETPM_PROFILE_RSP, 104, 0, 4711, 0, 0, 0, 0, 0, 0));
    made.add("answer", hex(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, 0, 104, 113, 0, 0, 0, 0, 0, 0));
    made.add("answer", hex(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, 0, 104, 0, 0, 0, 0, 0, 0, 0));
    made.note({{"note", "turned away"}, {"process", 12}, {"why", "it is one too many"}});
    made.note({{"note", "lost"}, {"count", 3}, {"from", 8}, {"to", 10}, {"why", "No space left"}});
    made.note({{"note", "gone"}, {"client", 1}, {"why", "it does not read what it is sent"}});
    made.note({{"note", "end"}, {"why", "the server has died"}});
    const json story = made.report();
    std::vector<std::string> problems;
    for (const json& problem : story.at("problems"))
        problems.push_back(problem.at("text"));
    EXPECT_EQ(problems,
              (std::vector<std::string>{
                  "3 entries are lost here: No space left",
                  "end of the record: the server has died",
                  "NETPM_PROFILE_RSP: PM_ERR_UNKNOWN_PROFILE: there is no profile with this id",
                  "NETPM_PROFILE_RSP: error 4711",
                  "NETCM_CLIENT_PROPER_PROFILE_RSP: PM_ERR_UNKNOWN_APPLICATION: there is no application with "
                  "this id",
                  "the client has gone: it does not read what it is sent",
                  "NETCM_CLIENT_GET_NETIFACE_LIST_REQ has been answered after 1500 ms",
                  "process 12 is turned away: it is one too many",
                  "no answer to NETCM_CLIENT_GET_SETTINGS_REQ",
              }));
    const json& client = story.at("clients").at(0);
    EXPECT_EQ(client.at("process"), 4711);
    EXPECT_EQ(client.at("why"), "it does not read what it is sent");
    EXPECT_EQ(story.at("about").at("lost"), 3);
}

TEST(Report, tells_what_has_become_of_each_connection) {
    Made made;
    made.note({{"note", "client"}, {"client", 1}});
    made.note({{"note", "client"}, {"client", 2}});
    // One that was there before the record, of a client that is in it and of one that is not.
    const json users{{{"client", 1}, {"profile", 3}}, {{"client", 9}, {"profile", 4}}};
    made.note({{"note", "call"}, {"call", 7}, {"state", "suspended"}, {"users", users}});
    made.note({{"note", "call"}, {"call", 7}, {"state", "up"}, {"users", users}});
    made.add("event", answer(wire::NETCM_CLIENT_RESUME_IND, 99, 7));
    open_call(made, 1, 2);
    made.add("request", request(wire::NETCM_CLIENT_START_REQ, 1));
    made.add("event", answer(wire::NETCM_CLIENT_IP_CHANGE_IND, 1, 2));
    made.add("event", answer(wire::NETCM_CLIENT_KILL_RSP, 1, 2));
    open_call(made, 1, 3);
    made.add("event", answer(wire::NETCM_CLIENT_STOP_RSP, 1, 3));
    made.add("request", request(wire::NETCM_CLIENT_START_REQ, 5));
    made.add("answer", answer(wire::NETCM_CLIENT_START_RSP, 5, 0, cm::kStatusTransport, 2));
    open_call(made, 6, 4);
    made.add("event", answer(wire::NETCM_CLIENT_STOP_IND, 6, 4, cm::kStatusKilled));
    made.add("event", answer(wire::NETCM_CLIENT_SUSPEND_IND, 6, 4));
    open_call(made, 8, 5, 2);
    made.note({{"note", "gone"}, {"client", 2}, {"why", "it has closed"}});
    made.note({{"note", "operator"}, {"command", {{"command", "list"}}}});
    made.note({{"note", "end"}, {"why", "SIGTERM"}});
    const json story = made.report();
    const json& calls = story.at("calls");
    ASSERT_EQ(calls.size(), 6u);
    const auto phases = [&](size_t call) {
        std::string text;
        for (const json& phase : calls.at(call).at("phases"))
            text += phase.at("name").get<std::string>() + ": " + phase.at("text").get<std::string>() + "\n";
        return text;
    };
    EXPECT_EQ(phases(0), "suspended: open before\nup: runs again\n");
    EXPECT_EQ(calls[0].at("why"), "");
    EXPECT_EQ(phases(1), "starting: is asked for\nup: is up\nup: has another address\n");
    EXPECT_EQ(calls[1].at("why"), "killed");
    EXPECT_EQ(calls[2].at("why"), "closed by the client");
    EXPECT_EQ(calls[3].at("why"), "refused: the network interface is down");
    EXPECT_EQ(calls[4].at("why"), "ended: another client has killed the connection");
    EXPECT_EQ(calls[5].at("why"), "its client has gone: it has closed");
    expect_text(story.at("marks"), "text", R"(operator: {"command":"list"})");
    expect_text(story.at("marks"), "text", "end of the record: SIGTERM");
    for (const json& problem : story.at("problems"))
        EXPECT_EQ(problem.at("text").get<std::string>().find("has gone"), std::string::npos) << problem;
}

// Numbers count from the start of each server.
TEST(Report, keeps_the_clients_of_two_servers_apart) {
    Made made;
    for (const int started : {1000, 2000}) {
        made.note({{"note", "server"}, {"process", 5}, {"started", started}});
        made.note({{"note", "client"}, {"client", 1}, {"application", started}});
        open_call(made, 1, 0);
        made.note({{"note", "server gone"}});
    }
    const json story = made.report();
    ASSERT_EQ(story.at("clients").size(), 2u);
    EXPECT_EQ(story["clients"][0].at("application"), 1000);
    EXPECT_EQ(story["clients"][1].at("server"), 1);
    EXPECT_EQ(story.at("about").at("lost"), 0);
    expect_text(story.at("marks"), "text", "the server has gone");
}

}  // namespace
}  // namespace quorvel::test
