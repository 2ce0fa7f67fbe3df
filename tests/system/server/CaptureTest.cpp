// Records as Wireshark shows them, and in other formats.
#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "common/PmWire.h"
#include "protocol/pm_errors.h"
#include "protocol/status.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "store/fields.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kCapture = "/tmp/made.pcapng";

std::string tshark(const std::string& file, std::vector<std::string> more) {
    std::vector<std::string> words{"tshark", "-2", "-X", "lua_script:" DISSECTOR, "-r", file};
    words.insert(words.end(), more.begin(), more.end());
    const Ended ended = run(words);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err.find("Lua"), std::string::npos) << ended.err;
    EXPECT_EQ(ended.out.find("Lua Error"), std::string::npos) << ended.out;
    return ended.out;
}

void expect_in(const std::string& text, const std::string& wanted) {
    EXPECT_NE(text.find(wanted), std::string::npos) << wanted;
}

TEST(Capture, names_every_request_answer_and_event) {
    Made made;
    for (const wire::CommandEntry& command : wire::kCommands)
        if (command.code != wire::NETPM_PROFILE_REQ && command.code != wire::NETPM_APPPROF_REQ)
            made.add("request", hex(command.code, 1, 0, 0, 0, 0));
    for (const wire::EventEntry& event : wire::kEvents)
        made.add(event.code == 1 ? "answer" : "event", hex(event.code, 0, 1, 0, 0, 0, 0, 0, 0, 0));
    for (const wire::PmCommandEntry& command : wire::kPmCommands) {
        made.add("request", hex(wire::NETPM_PROFILE_REQ, 0, 0, 0, 0, 0) + hex(command.code, 0, 0, 0, 0));
        made.add("answer", hex(wire::NETPM_PROFILE_RSP, 100 + command.code, 0, 0, 0, 0, 0, 0, 0, 0));
    }
    for (const wire::PmCommandEntry& command : wire::kAppProfCommands) {
        made.add("request",
                 hex(wire::NETPM_APPPROF_REQ, 0, 0, 0, 0, 0) + hex(0, command.code, 0, 0, 0, 0, 0, 0, 0));
        made.add("answer",
                 hex(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, 0, 100 + command.code, 0, 0, 0, 0, 0, 0, 0));
    }
    made.convert(kCapture);
    const std::string text = tshark(kCapture, {"-V"});
    for (const wire::CommandEntry& command : wire::kCommands)
        expect_in(text, std::string("Request: ") + command.name + " (" + std::to_string(command.code) + ")");
    for (const wire::EventEntry& event : wire::kEvents)
        expect_in(text,
                  std::string("Answer or event: ") + event.name + " (" + std::to_string(event.code) + ")");
    for (const wire::PmCommandEntry& command : wire::kPmCommands) {
        expect_in(text, std::string("command: ") + command.name + " (" + std::to_string(command.code) + ")");
        expect_in(text, std::string("command: ") + command.name + " (answer) (" +
                            std::to_string(100 + command.code) + ")");
    }
    for (const wire::PmCommandEntry& command : wire::kAppProfCommands) {
        expect_in(text,
                  std::string("applications: ") + command.name + " (" + std::to_string(command.code) + ")");
        expect_in(text, std::string("applications: ") + command.name + " (answer) (" +
                            std::to_string(100 + command.code) + ")");
    }
    EXPECT_EQ(text.find("Shorter or longer"), std::string::npos);
    EXPECT_EQ(text.find("Unknown code"), std::string::npos);
}

TEST(Capture, names_every_status_reason_and_error) {
    struct Name {
        uint32_t number;
        const char* name;
    };
    static constexpr Name kStatuses[] = {
#define STATUS(name) {name, #name}
        STATUS(NETCM_ERR_FAILURE),
        STATUS(NETCM_ERR_REREGISTER_FAILED),
        STATUS(NETCM_ERR_ALREADY_REGISTERED),
        STATUS(NETCM_ERR_REREGISTER_RETRY_EXHAUSTED),
        STATUS(NETCM_ERR_NO_FREE_ENTRY),
        STATUS(NETCM_ERR_NOT_REGISTERED),
        STATUS(NETCM_ERR_INVALID_PROFILE),
        STATUS(NETCM_ERR_NOT_ACTIVE),
        STATUS(NETCM_ERR_ALREADY_EXISTS),
        STATUS(NETCM_ERR_CLOSING),
        STATUS(NETCM_ERR_CALL_CLOSING),
        STATUS(NETCM_ERR_MAX_LIMIT),
        STATUS(NETCM_ERR_NO_FREE_KILL_ENTRY),
        STATUS(NETCM_ERR_NO_FREE_TUNNEL_ENTRY),
        STATUS(NETCM_ERR_INVALID_PARAM)
#undef STATUS
    };
    Made made;
    for (const Name& status : kStatuses)
        made.add("answer", hex(wire::NETCM_CLIENT_START_RSP, 0, 1, 0, status.number, 0, 0, 0, 0, 0));
    for (uint32_t reason = 0; reason <= 6; ++reason)
        made.add("event",
                 hex(wire::NETCM_CLIENT_STOP_IND, 0, 1, 0, cm::kStatusTransport, reason, 0, 0, 0, 0));
    made.add("event", hex(wire::NETCM_CLIENT_STOP_IND, 0, 1, 0, cm::kStatusKilled, 0, 0, 0, 0, 0));
    for (const cm::PmErrorEntry& error : cm::kPmErrors)
        made.add("answer", hex(wire::NETPM_PROFILE_RSP, 101, 0, error.number, 0, 0, 0, 0, 0, 0));
    made.convert(kCapture);
    const std::string text = tshark(kCapture, {"-V"});
    for (const Name& status : kStatuses)
        expect_in(text, std::string("Status: ") + status.name + " (" + std::to_string(status.number) + ")");
    for (uint32_t reason = 0; reason <= 6; ++reason)
        expect_in(text, "Reason: " + cm::to_text(static_cast<cm::Reason>(reason)) + " (" +
                            std::to_string(reason) + ")");
    expect_in(text, "Status: another client has killed the connection (22)");
    for (const cm::PmErrorEntry& error : cm::kPmErrors)
        expect_in(text, std::string("Error: ") + error.name + " (" + std::to_string(error.number) + ")");
}

// A profile with something of its own in each field of these parts.
NetPMProfile full_profile(uint32_t type, int32_t security_mode) {
    NetPMProfile profile{};
    profile.ProfileId = 7;
    profile.ProfileType = type;
    put(profile.ProfileName, "full");
    if (type == NETPM_PROFILE_WLAN)
        profile.WlanProfInfo.security.sec_mode = security_mode;
    int number = 1;
    for (const cm::Field& field : cm::profile_fields()) {
        ++number;
        if (!cm::has_part(profile, field.part) || std::string_view(field.column) == "security_mode")
            continue;
        if (field.kind == cm::Field::Kind::kText)
            cm::set_field(profile, field, "t" + std::to_string(number));
        else if (field.kind == cm::Field::Kind::kAddress)
            cm::set_field(profile, field, "192.0.2." + std::to_string(number));
        else
            cm::set_field(profile, field, int64_t{number});
    }
    return profile;
}

TEST(Capture, shows_every_field_of_a_profile) {
    const std::vector<NetPMProfile> profiles{
        full_profile(NETPM_PROFILE_PDP, 0), full_profile(NETPM_PROFILE_WLAN, 1),
        full_profile(NETPM_PROFILE_WLAN, 2), full_profile(NETPM_PROFILE_WLAN, 4),
        full_profile(NETPM_PROFILE_WLAN, 5)};
    Made made;
    for (const NetPMProfile& profile : profiles)
        made.add("answer",
                 hex(wire::NETPM_PROFILE_RSP, 104, 7, 0, 0, sizeof(wire::PmProfileSlot), 0, 0, 0, 0) +
                     hex_of(slot(profile)));
    made.convert(kCapture);
    const json packets = json::parse(tshark(kCapture, {"-T", "json"}));
    ASSERT_EQ(packets.size(), profiles.size() + 1);
    for (size_t i = 0; i < profiles.size(); ++i) {
        const std::string shown = packets[i + 1].dump();
        for (const cm::Field& field : cm::profile_fields()) {
            const std::string name = std::string("\"quorvel.stored.") + field.column + "\":\"";
            if (!cm::has_part(profiles[i], field.part))
                continue;
            const cm::FieldValue value = cm::get_field(profiles[i], field);
            const auto* text = std::get_if<std::string>(&value);
            expect_in(shown,
                      name + (text != nullptr ? *text : std::to_string(std::get<int64_t>(value))) + "\"");
        }
    }
}

// What tshark gives of these fields, for each packet.
class Table {
  public:
    using Row = std::map<std::string, std::string>;

    Table(const std::string& file, const std::vector<std::string>& names) {
        std::vector<std::string> words{"-T", "fields", "-E", "separator=|"};
        for (const std::string& name : names)
            words.insert(words.end(), {"-e", name});
        std::istringstream lines(tshark(file, words));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream values(line);
            Row& row = rows_.emplace_back();
            for (const std::string& name : names)
                std::getline(values, row[name], '|');
        }
    }
    const std::vector<Row>& rows() const { return rows_; }
    // The only one with this value, of this kind.
    const Row& row(const std::string& name, const std::string& value, const std::string& kind = "") const {
        const Row* found = nullptr;
        for (const Row& row : rows_)
            if (row.at(name) == value && (kind.empty() || row.at("quorvel.kind") == kind)) {
                EXPECT_EQ(found, nullptr) << name << " " << value;
                found = &row;
            }
        if (found == nullptr)
            throw std::runtime_error("no packet has " + name + " " + value);
        return *found;
    }

  private:
    std::vector<Row> rows_;
};

class CaptureOfServer : public ::testing::Test {
  public:
    static constexpr const char* kFlight = "/tmp/flight.pcapng";
};

TEST_F(CaptureOfServer, follows_requests_to_answers_and_connections_to_their_events) {
    {
        CmServer server("", {"--record", kFlight});
        RawClient client;
        const uint32_t call = client.open(1);
        server.ctl({"suspend"});
        client.event();
        server.ctl({"resume"});
        client.event();
        client.stop(call, 1);
        server.stop();
    }
    EXPECT_EQ(mode_of(kFlight), 0600u);
    const Table table(
        kFlight, {"frame.number", "quorvel.kind", "quorvel.command", "quorvel.code", "quorvel.answered_in",
                  "quorvel.answers", "quorvel.latency", "quorvel.event_in", "quorvel.opened_in",
                  "quorvel.connection.address", "quorvel.connection.interface"});
    const auto& open = table.row("quorvel.command", "4");
    const auto& stop = table.row("quorvel.command", "5");
    const auto& accepted = table.row("quorvel.code", "101", "1");
    const auto& up = table.row("quorvel.code", "101", "2");
    const auto& suspended = table.row("quorvel.code", "110");
    const auto& resumed = table.row("quorvel.code", "111");
    const auto& stopped = table.row("quorvel.code", "102");
    const std::string number = "frame.number";
    EXPECT_EQ(open.at("quorvel.answered_in"), accepted.at(number));
    EXPECT_EQ(accepted.at("quorvel.answers"), open.at(number));
    EXPECT_EQ(accepted.at("quorvel.latency").substr(0, 3), "0.0");
    EXPECT_EQ(stop.at("quorvel.answered_in"), stopped.at(number));
    EXPECT_EQ(open.at("quorvel.event_in"), up.at(number) + "," + suspended.at(number) + "," +
                                               resumed.at(number) + "," + stopped.at(number));
    for (const auto* event : {&up, &suspended, &resumed, &stopped})
        EXPECT_EQ(event->at("quorvel.opened_in"), open.at(number));
    EXPECT_EQ(up.at("quorvel.connection.address"), "127.0.0.1");
    EXPECT_EQ(up.at("quorvel.connection.interface"), "lo");
    expect_in(tshark(kFlight, {}), "1 --> NETCM_CLIENT_START_REQ profile=1");
    EXPECT_EQ(tshark(kFlight, {"-Y", "_ws.malformed || quorvel.malformed || quorvel.unknown"}), "");
}

TEST_F(CaptureOfServer, shows_the_blocks_of_answers) {
    {
        CmServer server("", {"--record", kFlight});
        RawClient client;
        client.open(1);
        client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ);
        client.sync().block<wire::ProfileIdBlock>();
        client.ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ);
        client.sync().block<wire::ProfileNameBlock>();
        client.ask(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, {.Param = NETCM_IFACE_PDP});
        client.sync().block<wire::ActiveConnectionBlock>();
        client.ask(wire::NETCM_CLIENT_GET_STAT_INFO_REQ);
        client.sync().block<wire::StatisticsBlock>();
        ask_pm(client, wire::NETPM_CLIENT_GET_POFILE_LIST_REQ, 0, {}, 2, 16);
        ask_pm(client, wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ, 0, {}, 2);
        server.stop();
    }
    const Table table(kFlight, {"quorvel.kind", "quorvel.code", "quorvel.pm.command", "quorvel.count",
                                "quorvel.listed_profile", "quorvel.listed_name", "quorvel.listed_network",
                                "quorvel.active.access_point", "quorvel.active.interface",
                                "quorvel.active.address", "quorvel.active.users",
                                "quorvel.statistics.received_bytes", "quorvel.malformed", "quorvel.unknown"});
    EXPECT_EQ(table.row("quorvel.code", "103").at("quorvel.listed_profile"), "1");
    EXPECT_EQ(table.row("quorvel.code", "116").at("quorvel.listed_name"), "local");
    const auto& active = table.row("quorvel.code", "115");
    EXPECT_EQ(active.at("quorvel.active.access_point"), "local");
    EXPECT_EQ(active.at("quorvel.active.interface"), "lo");
    EXPECT_EQ(active.at("quorvel.active.address"), "127.0.0.1");
    EXPECT_EQ(active.at("quorvel.active.users"), "1");
    EXPECT_NE(table.row("quorvel.code", "107").at("quorvel.statistics.received_bytes"), "");
    EXPECT_EQ(table.row("quorvel.pm.command", "110").at("quorvel.listed_profile"), "1");
    EXPECT_EQ(table.row("quorvel.pm.command", "115").at("quorvel.listed_name"), "local");
    EXPECT_EQ(table.row("quorvel.pm.command", "115").at("quorvel.listed_network"), "local");
    for (const auto& row : table.rows())
        EXPECT_EQ(row.at("quorvel.malformed") + row.at("quorvel.unknown"), "");
}

TEST_F(CaptureOfServer, becomes_lines_again_and_is_replayed) {
    {
        CmServer server("", {"--record", kFlight});
        RawClient client;
        client.open(1);
        client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77});
        server.stop();
    }
    EXPECT_EQ(run({CM_SERVER_PATH, "convert", kFlight, "/tmp/flight.jsonl"}).status, 0);
    const auto lines = lines_of("/tmp/flight.jsonl");
    EXPECT_EQ(lines.front().at("note"), "begin");
    EXPECT_EQ(expect_whole(lines, 1), 0u);
    EXPECT_NE(content("/tmp/flight.jsonl").find(R"("fields":{"key":2,"value":77})"), std::string::npos);
    EXPECT_EQ(run({CM_SERVER_PATH, "convert", kFlight, "/tmp/flight.txt"}).status, 0);
    expect_in(content("/tmp/flight.txt"), "  1 --> NETCM_CLIENT_SET_SETTINGS_REQ key=2 value=77\n");
    Program replay({CM_SERVER_PATH, "replay", kFlight, "--once"});
    replay.wait_for_err("listening on");
    {
        RawClient client;
        client.open(1);
        EXPECT_EQ(client.ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 2, .Arg4 = 77}).Status, 0u);
    }
    const Ended ended = replay.wait();
    EXPECT_EQ(ended.status, 0) << ended.out;
}

TEST_F(CaptureOfServer, is_read_as_far_as_it_goes) {
    {
        CmServer server("", {"--record", kFlight});
        RawClient().open(1);
        server.stop();
    }
    const std::string whole = content(kFlight);
    std::ofstream("/tmp/cut.pcapng", std::ios::binary) << whole.substr(0, whole.size() - 50);
    const Ended ended = run({CM_SERVER_PATH, "convert", "/tmp/cut.pcapng", "/tmp/cut.jsonl"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(notes(lines_of("/tmp/cut.jsonl"), "lost").at(0).at("why"),
              "/tmp/cut.pcapng ends within an entry");
}

TEST(Convert, says_what_is_missing_though_nobody_has_marked_it) {
    CmServer("", {"--record", "/tmp/flight.jsonl"}).stop();
    CmServer server("", {"--record", "/tmp/flight.jsonl"});
    RawClient client;
    client.open(1);
    server.stop();
    // Somebody has taken a line out.
    std::istringstream text(content("/tmp/flight.jsonl"));
    std::ofstream torn("/tmp/torn.jsonl");
    for (std::string line; std::getline(text, line);)
        if (line.find("\"number\":3,") == std::string::npos)
            torn << line << "\n";
    torn.close();
    const Ended ended = run({CM_SERVER_PATH, "convert", "/tmp/torn.jsonl", "/tmp/out.jsonl"});
    EXPECT_NE(ended.out.find("has lost 1 entries"), std::string::npos) << ended.out;
    EXPECT_EQ(notes(lines_of("/tmp/out.jsonl"), "lost").at(0).at("from"), 3);
}

TEST(Convert, overwrites_nothing_and_refuses_names_it_does_not_know) {
    CmServer("", {"--record", "/tmp/flight.jsonl"}).stop();
    std::ofstream("/tmp/there.txt") << "precious";
    EXPECT_EQ(run({CM_SERVER_PATH, "convert", "/tmp/flight.jsonl", "/tmp/there.txt"}).status, 1);
    EXPECT_EQ(content("/tmp/there.txt"), "precious");
    EXPECT_EQ(run({CM_SERVER_PATH, "convert", "/tmp/flight.jsonl", "/tmp/out.doc"}).status, 1);
    EXPECT_EQ(run({CM_SERVER_PATH, "convert", "/tmp/there.txt", "/tmp/out.jsonl"}).status, 1);
    EXPECT_EQ(files_of("/tmp/out.jsonl"), 0u);
}

}  // namespace
}  // namespace quorvel::test
