// Records that are none, that are broken, or that hold less than was asked for.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "common/PmWire.h"
#include "protocol/status.h"
#include "record/pcapng.h"
#include "server/RawClient.h"
#include "server/Recorded.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr const char* kBroken = "/tmp/broken";

Ended convert(const std::string& from, const std::string& to = "/tmp/out.jsonl") {
    return run({CM_SERVER_PATH, "convert", from, to});
}

void expect_refused(const std::string& content, const std::string& why) {
    std::ofstream(kBroken, std::ios::binary) << content;
    const Ended ended = convert(kBroken);
    EXPECT_EQ(ended.status, 1) << why;
    EXPECT_THAT(ended.err, HasSubstr(std::string("cm-server: ") + kBroken + why));
    EXPECT_FALSE(std::filesystem::exists("/tmp/out.jsonl"));
}

TEST(BrokenRecord, is_refused_with_its_line) {
    const std::string good = "{\"note\":\"begin\",\"time\":1}\n";
    expect_refused("", ": there is nothing in it");
    expect_refused("no line at all", ": is no record");
    expect_refused(good + "nonsense\n", ":2: is no entry of a record: ");
    expect_refused(good + R"({"time":1,"client":1,"direction":"sideways","bytes":""})" + "\n",
                   ":2: is no entry of a record: there is no direction \"sideways\"");
    expect_refused(good + R"({"time":1,"client":1,"direction":"event","bytes":"zz"})" + "\n",
                   ":2: is no entry of a record: this is no hexadecimal data");
    expect_refused(good + R"({"time":1,"client":1,"direction":"event","bytes":"123"})" + "\n",
                   ":2: is no entry of a record: hexadecimal data has two digits for each byte");
}

// What a capture consists of.
std::string words(std::initializer_list<uint32_t> all) {
    std::string text;
    for (const uint32_t word : all)
        text.append(reinterpret_cast<const char*>(&word), sizeof(word));
    return text;
}
std::string block(uint32_t type, const std::string& body) {
    const auto size = static_cast<uint32_t>(body.size() + 12);
    return words({type, size}) + body + words({size});
}
const std::string kSection = block(0x0A0D0D0A, words({0x1A2B3C4D, 1, ~0U, ~0U}));

std::string packet(const std::string& data, uint32_t length) {
    std::string padded = data;
    padded.resize((data.size() + 3) / 4 * 4);
    const auto size = static_cast<uint32_t>(data.size());
    return block(6, words({0, 0, 1000, size, length}) + padded);
}
std::string packet(const std::string& data) {
    return packet(data, static_cast<uint32_t>(data.size()));
}

// The tags of the dissector, and the header of a packet: version, kind, byte order.
std::string tagged(char version, char kind, char little) {
    cm::PacketHeader header{};
    header.version = static_cast<uint8_t>(version);
    header.kind = static_cast<uint8_t>(kind);
    header.little = static_cast<uint8_t>(little);
    return std::string("\0\x0c\0\x08quorvel\0\0\0\0", 16) +
           std::string(reinterpret_cast<const char*>(&header), sizeof(header));
}

TEST(BrokenRecord, is_read_as_far_as_it_goes) {
    std::ofstream(kBroken)
        << "{\"note\":\"begin\",\"time\":1}\n{\"note\":\"gone\",\"client\":1,\"time\":2}\n{\"no";
    EXPECT_EQ(convert(kBroken).status, 0);
    const auto lines = lines_of("/tmp/out.jsonl");
    EXPECT_EQ(lines.at(lines.size() - 2).at("note"), "gone");
    EXPECT_EQ(lines.back().at("why"), std::string(kBroken) + " ends within an entry");
}

TEST(BrokenCapture, is_refused_with_what_is_wrong_in_it) {
    expect_refused(block(0x0A0D0D0A, words({0x12345678})), ": is no pcapng file");
    expect_refused(kSection + words({1, 8, 0}), ": a block of 8 bytes makes no sense");
    expect_refused(kSection + words({1, 13, 0}), ": a block of 13 bytes makes no sense");
    expect_refused(kSection + block(6, words({0, 0})), ": a packet is too short");
    expect_refused(kSection + packet("abcd", 5), ": a packet is not whole");
    expect_refused(kSection + block(6, words({0, 0, 0, 400, 400})), ": a packet is not whole");
    expect_refused(kSection + packet("abcd"), ": a packet is none of a CM server");
    expect_refused(kSection + packet(std::string(64, 'x')), ": a packet is none of a CM server");
    expect_refused(kSection + packet(tagged(99, 0, 1)), ": a packet is of an unknown kind");
    expect_refused(kSection + packet(tagged(cm::kPacketVersion, 9, 1)), ": a packet is of an unknown kind");
    expect_refused(kSection + packet(tagged(cm::kPacketVersion, 1, 0)),
                   ": was recorded on a machine with another byte order; Wireshark can read it");
    expect_refused(kSection, ": there is nothing in it");
}

TEST(BrokenCapture, of_the_other_byte_order_is_read_block_by_block) {
    std::string swapped = kSection;
    for (size_t i = 0; i < swapped.size(); i += 4)
        std::reverse(swapped.begin() + static_cast<ptrdiff_t>(i),
                     swapped.begin() + static_cast<ptrdiff_t>(i) + 4);
    expect_refused(swapped, ": there is nothing in it");
}

TEST(RecordOfOne, holds_this_client_and_what_concerns_all) {
    Made made;
    made.note({{"note", "begin"}, {"record", "r"}, {"part", 1}});
    made.add("request", hex(wire::NETCM_CLIENT_GET_SETTINGS_REQ, 0, 1, 5, 0, 0), 1);
    made.add("request", hex(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, 0, 2, 0, 3, 0), 2);
    made.note({{"note", "gone"}, {"client", 2}, {"why", "it has closed"}});
    made.note({{"note", "end"}, {"why", "SIGTERM"}});
    made.convert("/tmp/all.txt");
    const Ended ended = run({CM_SERVER_PATH, "convert", Made::kPath, "/tmp/one.txt", "--client", "1"});
    EXPECT_EQ(ended.out, "/tmp/one.txt: 1 messages\n") << ended.err;
    const std::string text = content("/tmp/one.txt");
    EXPECT_THAT(text, HasSubstr("  1 --> NETCM_CLIENT_GET_SETTINGS_REQ key=5\n"));
    EXPECT_THAT(text, HasSubstr("*** begin "));
    EXPECT_THAT(text, EndsWith("*** end why=SIGTERM\n"));
    EXPECT_EQ(text.find("gone"), std::string::npos);
    EXPECT_THAT(content("/tmp/all.txt"), HasSubstr("  2 --> NETCM_CLIENT_RESET_STAT_INFO_REQ level=3\n"));
    const Ended nobody = run({CM_SERVER_PATH, "replay", Made::kPath, "--client", "77"});
    EXPECT_EQ(nobody.err, std::string("cm-server: ") + Made::kPath + ": there is nothing of this client\n");
}

TEST(RecordOfNobody, cannot_be_replayed) {
    {
        Made made;
        made.note({{"note", "end"}, {"why", "SIGTERM"}});
    }
    const Ended ended = run({CM_SERVER_PATH, "replay", Made::kPath});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, std::string("cm-server: ") + Made::kPath + ": there is nothing of a client\n");
}

// Words that no command has: a text shows them as they are.
TEST(RecordOfNonsense, is_shown_as_numbers) {
    Made made;
    made.add("request", "0500");
    made.add("event", "65");
    made.add("event", hex(4711, 0, 5, 0, 0, 0, 0, 0, 0, 0));
    made.add("request", hex(wire::NETPM_PROFILE_REQ, 0, 1, 0, 0, 0) + hex(77, 2, 4, 0, 5));
    made.add("request", hex(wire::NETPM_APPPROF_REQ, 0, 1, 0, 0, 0) + hex(0, 88, 0, 0, 0, 0, 0, 0, 0));
    made.add("answer", hex(wire::NETPM_PROFILE_RSP, 104, 3, 4711, 0, 9, 8, 0, 0, 0) + "0102");
    made.add("event", hex(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, 0, 0, 0, 0, 7, 3, 0, 0, 0));
    made.add("event", hex(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0, 3, 9, 0, 0, 0, 0, 0, 0));
    made.add("event", hex(wire::NETCM_CLIENT_TUNNEL_IND, 0, 12, 34, 0, 0, 0, 0, 0, 0));
    made.add("answer", hex(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP, 0, 0, 0, 0, 0, 0, 0, 0, 0) + "0100");
    made.add("answer", hex(wire::NETCM_CLIENT_SET_SETTINGS_RSP, 0, 6, 0, 4711, 0, 0, 0, 0, 0));
    made.add("request", hex(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, 0, 1, 2, 6, 0));
    made.convert("/tmp/made.txt");
    const std::string text = content("/tmp/made.txt");
    for (const char* shown : {
             " --> code 0\n",
             " <== code 4711 status=0 value=5\n",
             " --> NETPM_PROFILE_REQ arg=4 arg2=5 pm=77 profile=2\n",
             " --> NETPM_APPPROF_REQ app-profile=88 application=0 param=0 profile=0 result=0\n",
             " <-- NETPM_PROFILE_RSP data=2 error=4711 length=9 pm=NETPM_CLIENT_GET_PROFILE_REQ profile=3 "
             "value=8\n",
             " <== NETCM_CLIENT_PROPER_PROFILE_RSP application=7 profile=3 status=0\n",
             " <== NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND packet-data=ready wifi=9\n",
             " <== NETCM_CLIENT_TUNNEL_IND id=34 length=12 status=0\n",
             " <-- NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP status=0\n",
             " <-- NETCM_CLIENT_SET_SETTINGS_RSP status=4711 value=6 why=status 4711\n",
             " --> NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ profile=6 state=2\n",
         })
        EXPECT_THAT(text, HasSubstr(shown));
}

TEST(RecordOfRefusals, says_why_in_words) {
    Made made;
    const std::vector<std::pair<uint32_t, std::string>> statuses{
        {NETCM_ERR_FAILURE, "it has failed"},
        {NETCM_ERR_INVALID_PROFILE, "there is no such profile"},
        {NETCM_ERR_NOT_ACTIVE, "the client does not use such a connection"},
        {NETCM_ERR_MAX_LIMIT, "there is no room for another one"},
        {NETCM_ERR_INVALID_PARAM, "an argument is out of range"},
        {cm::kStatusKilled, "another client has killed the connection"},
        {4711, "status 4711"},
    };
    for (const auto& [status, words] : statuses)
        made.add("event", hex(wire::NETCM_CLIENT_STOP_IND, 0, 1, 0, status, 0, 0, 0, 0, 0));
    for (uint32_t reason = 0; reason <= 7; ++reason)
        made.add("event",
                 hex(wire::NETCM_CLIENT_STOP_IND, 0, 1, 0, cm::kStatusTransport, reason, 0, 0, 0, 0));
    made.convert("/tmp/made.txt");
    const std::string text = content("/tmp/made.txt");
    for (const auto& [status, words] : statuses)
        EXPECT_THAT(text, HasSubstr(" status=" + std::to_string(status) + " why=" + words + "\n"));
    for (const char* words :
         {"no reason given", "there is no such network interface", "the network interface is down",
          "the network interface has no IPv4 address", "it took too long", "the network has refused it",
          "the network has ended it", "reason 7"})
        EXPECT_THAT(text, HasSubstr(std::string(" status=21 why=") + words + "\n"));
}

TEST(RecordMade, on_a_full_disk_is_no_half_file) {
    ASSERT_EQ(mkdir("/tmp/full", 0700), 0);
    ASSERT_EQ(mount("tmpfs", "/tmp/full", "tmpfs", 0, "size=8k"), 0);
    Made made;
    for (int i = 0; i < 200; ++i)
        made.add("request", hex(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ, 0, 1, 0, 0, 0));
    made.convert("/tmp/all.jsonl");
    const Ended ended = convert("/tmp/all.jsonl", "/tmp/full/made.txt");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "cm-server: /tmp/full/made.txt: No space left on device\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/full/made.txt"));
    umount2("/tmp/full", MNT_DETACH);
}

}  // namespace
}  // namespace quorvel::test
