// What the operations on the profile store make of their arguments and of the answers.
#include <functional>

#include "library/pm/profiles.h"
#include "library/pm/store_operations.h"

namespace quorvel::test {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr uint32_t kProfileReq = wire::NETPM_PROFILE_REQ;
constexpr std::byte kUntouched{0xEE};

class Store : public PmTest {
  protected:
    void agree(uint32_t command, const Bytes& data = {}, int32_t profile = kAnsweredProfile,
               uint32_t value = 0) {
        wire::PmResponseBlock block = agreement(command);
        block.ProfileId = profile;
        block.Value = value;
        block.ExtDataLength = static_cast<uint32_t>(data.size());
        server.on(kProfileReq, Answer().record(pm_record(block)).bytes(data));
    }
    void refuse(uint32_t command) {
        wire::PmResponseBlock block = agreement(command);
        block.Error = kRefusal;
        server.on(kProfileReq, Answer().record(pm_record(block)));
    }
    NetPMProfile sent_profile() const {
        return server.last(kProfileReq)->payload_as<NetPMProfile>(sizeof(wire::PmRequestHeader));
    }
    std::string sent_name() const {
        const Bytes payload = last_payload(kProfileReq);
        return {reinterpret_cast<const char*>(payload.data()) + sizeof(wire::PmRequestHeader),
                payload.size() - sizeof(wire::PmRequestHeader)};
    }
};

// Room for an answer with a guard behind it.
template <size_t Size>
struct GuardedRoom {
    Bytes bytes = Bytes(Size + 64, kUntouched);
    void* data() { return bytes.data(); }
    Bytes part(size_t from, size_t to) const {
        return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
                bytes.begin() + static_cast<std::ptrdiff_t>(to)};
    }
    Bytes behind(size_t from) const { return part(from, bytes.size()); }
};

wire::PmIdListBlock id_block(int32_t count) {
    wire::PmIdListBlock block = {};
    for (int32_t i = 0; i < NETPM_MAX_PROFILE_IDS; ++i)
        block.ProfileId[i] = 100 + i;
    block.Count = count;
    return block;
}

TEST_F(Store, an_added_profile_gets_the_answered_id) {
    agree(1, {}, 31);
    NetPMProfile profile = pdp_profile();
    int32_t id = 0;
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 0u);
    EXPECT_EQ(id, 31);
}

TEST_F(Store, a_profile_that_could_not_be_added_has_the_id_minus_1) {
    NetPMProfile profile = pdp_profile();
    int32_t id = 5;
    refuse(1);
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), kRefusal);
    EXPECT_EQ(id, -1);

    id = 5;
    server.on(kProfileReq, wrong_code(1));
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 1u);
    EXPECT_EQ(id, -1);
}

TEST_F(Store, a_profile_that_could_not_be_sent_has_the_id_minus_1) {
    NetPMProfile profile = pdp_profile();
    agree(1);
    for (const size_t nth : {1u, 2u}) {  // for the request and its data, and for the message
        int32_t id = 5;
        calls::fail(Call::Malloc, nth);
        EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 1u);
        EXPECT_TRUE(calls::has_failed(Call::Malloc));
        EXPECT_EQ(id, -1);
    }
    int32_t id = 5;
    calls::fail(Call::Send);
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 1u);
    EXPECT_EQ(id, -1);
    EXPECT_EQ(server.count(kProfileReq), 0u);
}

TEST_F(Store, a_profile_without_an_answer_has_the_id_minus_1) {
    NetPMProfile profile = pdp_profile();
    int32_t id = 5;
    server.on(kProfileReq, hang_up());
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 1u);
    EXPECT_EQ(id, -1);
}

TEST_F(Store, the_id_is_left_alone_when_nothing_was_asked) {
    break_link();
    server.stop();
    calls::skip_sleeps();
    NetPMProfile profile = pdp_profile();
    int32_t id = 5;
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 2u);
    EXPECT_EQ(id, 5);
}

TEST_F(Store, a_wlan_profile_may_have_any_protocol) {
    agree(1);
    NetPMProfile profile = wlan_profile();
    int32_t id = 0;
    EXPECT_EQ(profile.PdpProfInfo.AppProtoType, 0u);
    EXPECT_EQ(NetPMAddProfileInfo(&profile, &id), 0u);
}

TEST_F(Store, a_packet_data_profile_may_have_the_protocols_1_2_and_4) {
    agree(2);
    for (const uint32_t protocol : {1u, 2u, 4u}) {
        NetPMProfile profile = pdp_profile();
        profile.PdpProfInfo.AppProtoType = protocol;
        EXPECT_EQ(NetPMModifyProfileInfo(7, &profile), 0u) << protocol;
    }
}

TEST_F(Store, an_empty_proxy_becomes_no_proxy_in_the_callers_record_and_on_the_wire) {
    int32_t id = 0;
    for (const NetPMProfile& original : {pdp_profile(), wlan_profile()}) {
        agree(1);
        NetPMProfile added = original;
        memset(added.ProxyAddr, 0, sizeof added.ProxyAddr);
        EXPECT_EQ(NetPMAddProfileInfo(&added, &id), 0u);
        EXPECT_STREQ(added.ProxyAddr, "0.0.0.0:80");
        EXPECT_STREQ(sent_profile().ProxyAddr, "0.0.0.0:80");

        agree(2);
        NetPMProfile modified = original;
        modified.ProxyAddr[0] = '\0';
        EXPECT_EQ(NetPMModifyProfileInfo(7, &modified), 0u);
        EXPECT_STREQ(modified.ProxyAddr, "0.0.0.0:80");
        EXPECT_STREQ(sent_profile().ProxyAddr, "0.0.0.0:80");
    }
}

TEST_F(Store, a_proxy_is_adjusted_when_it_is_added_and_sent_as_it_is_when_it_is_modified) {
    int32_t id = 0;
    agree(1);
    NetPMProfile added = pdp_profile();
    strcpy(added.ProxyAddr, "010.001.000.255:0080");
    EXPECT_EQ(NetPMAddProfileInfo(&added, &id), 0u);
    EXPECT_STREQ(added.ProxyAddr, "10.1.0.255:80");
    EXPECT_STREQ(sent_profile().ProxyAddr, "10.1.0.255:80");

    agree(2);
    NetPMProfile modified = pdp_profile();
    strcpy(modified.ProxyAddr, "010.001.000.255:0080");
    EXPECT_EQ(NetPMModifyProfileInfo(7, &modified), 0u);
    EXPECT_STREQ(modified.ProxyAddr, "010.001.000.255:0080");
    EXPECT_STREQ(sent_profile().ProxyAddr, "010.001.000.255:0080");
}

TEST_F(Store, a_profile_is_read_byte_for_byte) {
    const Bytes slot = filled(972);
    for (const bool is_default : {false, true}) {
        agree(is_default ? 6 : 4, slot);
        NetPMProfile profile = {};
        EXPECT_EQ(is_default ? NetPMGetDefaultProfileInfo(&profile) : NetPMGetProfileInfo(7, &profile), 0u);
        EXPECT_EQ(bytes_of(profile), Bytes(slot.begin(), slot.begin() + 968));
    }
}

TEST_F(Store, a_profile_that_is_sent_short_ends_in_zeros) {
    agree(4, filled(100));
    NetPMProfile profile;
    memset(&profile, 0xEE, sizeof profile);
    EXPECT_EQ(NetPMGetProfileInfo(7, &profile), 0u);
    EXPECT_EQ(bytes_of(profile), filled(100) + Bytes(868));
}

TEST_F(Store, an_answer_without_a_profile_gives_zeros) {
    agree(4);
    NetPMProfile profile;
    memset(&profile, 0xEE, sizeof profile);
    EXPECT_EQ(NetPMGetProfileInfo(7, &profile), 0u);
    EXPECT_EQ(bytes_of(profile), Bytes(968));
}

TEST_F(Store, a_profile_that_is_sent_long_is_copied_no_further_than_its_record) {
    agree(4, filled(5000));
    GuardedRoom<sizeof(NetPMProfile)> room;
    EXPECT_EQ(NetPMGetProfileInfo(7, static_cast<NetPMProfile*>(room.data())), 0u);
    EXPECT_EQ(room.part(0, 968), [] {
        auto b = filled(5000);
        b.resize(968);
        return b;
    }());
    EXPECT_THAT(room.behind(968), Each(kUntouched));
}

TEST_F(Store, a_refused_read_leaves_the_callers_record_alone) {
    refuse(4);
    NetPMProfile profile;
    memset(&profile, 0xEE, sizeof profile);
    EXPECT_EQ(NetPMGetProfileInfo(7, &profile), kRefusal);
    EXPECT_THAT(bytes_of(profile), Each(kUntouched));
}

TEST_F(Store, the_status_is_the_lower_half_of_the_value) {
    agree(5, {}, 7, 0xABCD1234);
    uint16_t status = 0;
    EXPECT_EQ(NetPMGetProfileStatus(7, &status), 0u);
    EXPECT_EQ(status, 0x1234);
}

TEST_F(Store, the_attributes_are_the_whole_value) {
    agree(14, {}, 7, 0xABCD1234);
    uint32_t attributes = 0;
    EXPECT_EQ(NetPMGetProfileAttributes(7, &attributes), 0u);
    EXPECT_EQ(attributes, 0xABCD1234u);
}

TEST_F(Store, the_default_id_is_the_answered_profile) {
    agree(7, {}, 12);
    int32_t id = 0;
    EXPECT_EQ(NetPMGetDefaultProfileId(&id), 0u);
    EXPECT_EQ(id, 12);
}

TEST_F(Store, a_list_gives_as_many_ids_as_the_server_counts) {
    agree(10, bytes_of(id_block(3)));
    int32_t ids[5] = {-1, -1, -1, -1, -1};
    int32_t count = -1;
    EXPECT_EQ(NetPMGetProfileIdList(0, 5, ids, &count), 0u);
    EXPECT_EQ(count, 3);
    EXPECT_THAT(ids, ElementsAre(100, 101, 102, -1, -1));
}

TEST_F(Store, a_list_gives_no_more_ids_than_the_caller_has_room_for) {
    agree(10, bytes_of(id_block(20)));
    int32_t ids[3] = {-1, -1, -1};
    int32_t count = -1;
    EXPECT_EQ(NetPMGetProfileIdList(2, 2, ids, &count), 0u);
    EXPECT_EQ(count, 2);
    EXPECT_THAT(ids, ElementsAre(100, 101, -1));
}

TEST_F(Store, a_list_gives_no_more_ids_than_the_block_holds) {
    for (const int32_t lie : {21, 1000, 0x7FFFFFFF}) {
        agree(10, bytes_of(id_block(lie)) + filled(400));
        int32_t ids[30];
        std::fill(std::begin(ids), std::end(ids), -1);
        int32_t count = -1;
        EXPECT_EQ(NetPMGetProfileIdList(0, 30, ids, &count), 0u);
        EXPECT_EQ(count, 20);
        EXPECT_EQ(ids[19], 119);
        EXPECT_EQ(ids[20], -1);
    }
}

TEST_F(Store, a_negative_count_and_a_missing_block_are_an_empty_list) {
    for (const Bytes& data : {bytes_of(id_block(-3)), Bytes{}, filled(80)}) {
        agree(10, data);
        int32_t id = -1;
        int32_t count = -1;
        EXPECT_EQ(NetPMGetProfileIdList(0, 1, &id, &count), 0u);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(id, -1);
    }
}

TEST_F(Store, a_block_that_ends_within_its_count_counts_what_came_of_it) {
    agree(10, filled(80) + Bytes{std::byte{2}});
    int32_t ids[3] = {-1, -1, -1};
    int32_t count = -1;
    EXPECT_EQ(NetPMGetProfileIdList(0, 3, ids, &count), 0u);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(ids[2], -1);
}

TEST_F(Store, an_apn_is_sent_in_a_field_of_zeros_with_at_most_99_characters) {
    agree(16);
    GuardedRoom<NETPM_LIST_ROOM> room;
    EXPECT_EQ(NetPMGetProfileIdForAPN(std::string(300, 'a').c_str(), room.data()), 0u);
    EXPECT_EQ(sent_name(), std::string(99, 'a') + std::string(1, '\0'));
}

TEST_F(Store, a_searched_name_fills_its_field_and_goes_no_further) {
    agree(17);
    GuardedRoom<NETPM_LIST_ROOM> room;
    EXPECT_EQ(NetPMGetFindProfileIds(0, std::string(300, 'a').c_str(), room.data()), 0u);
    EXPECT_EQ(sent_name(), std::string(100, 'a'));
    EXPECT_EQ(NetPMGetFindProfileIds(1, std::string(32, 'e').c_str(), room.data()), 0u);
    EXPECT_EQ(sent_name(), std::string(32, 'e'));
    EXPECT_EQ(NetPMGetFindProfileIds(1, std::string(33, 'e').c_str(), room.data()), 0u);
    EXPECT_EQ(sent_name(), std::string(32, 'e'));
}

// The three operations that copy what comes behind the answer as it is.
struct Copying {
    uint32_t command;
    std::function<uint32_t(void* out)> call;
};

std::vector<Copying> copying_operations() {
    static int32_t count;
    return {{15, [](void* out) { return NetPMReadPartialProfileInfo(0, out, &count); }},
            {16, [](void* out) { return NetPMGetProfileIdForAPN("internet", out); }},
            {17, [](void* out) { return NetPMGetFindProfileIds(0, "internet", out); }},
            {17, [](void* out) { return NetPMGetFindProfileIds(1, "home", out); }}};
}

TEST_F(Store, lists_are_copied_whole_and_nothing_behind_them_is_written) {
    for (const Copying& operation : copying_operations())
        for (const size_t size : {0u, 10u, 84u, 100u, 200u, 2799u, 2800u}) {
            GuardedRoom<NETPM_LIST_ROOM> room;
            agree(operation.command, filled(size));
            EXPECT_EQ(operation.call(room.data()), 0u);
            EXPECT_EQ(room.part(0, size), filled(size)) << operation.command;
            EXPECT_THAT(room.behind(size), Each(kUntouched)) << operation.command;
        }
}

TEST_F(Store, nothing_is_written_beyond_the_documented_room) {
    const Bytes longer = filled(5000);
    for (const Copying& operation : copying_operations()) {
        GuardedRoom<NETPM_LIST_ROOM> room;
        agree(operation.command, longer);
        EXPECT_EQ(operation.call(room.data()), 0u);
        EXPECT_EQ(room.part(0, 2800), Bytes(longer.begin(), longer.begin() + 2800)) << operation.command;
        EXPECT_THAT(room.behind(2800), Each(kUntouched)) << operation.command;
    }
}

TEST_F(Store, a_partial_list_is_counted_by_the_answered_profile_word) {
    NetPMPartialProfile entries[2] = {};
    entries[1].ProfileId = 9;
    GuardedRoom<NETPM_LIST_ROOM> room;
    int32_t count = -1;
    agree(15, bytes_of(entries), 2);
    EXPECT_EQ(NetPMReadPartialProfileInfo(1, room.data(), &count), 0u);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(room.part(0, sizeof entries), bytes_of(entries));
}

TEST_F(Store, a_partial_count_is_the_servers_word_whatever_it_is) {
    GuardedRoom<NETPM_LIST_ROOM> room;
    int32_t count = -1;
    for (const int32_t word : {0, 21, 1000000, -4}) {
        agree(15, {}, word);
        EXPECT_EQ(NetPMReadPartialProfileInfo(0, room.data(), &count), 0u);
        EXPECT_EQ(count, word);
    }
}

TEST_F(Store, an_answer_in_pieces_is_put_together) {
    wire::PmResponseBlock block = agreement(4);
    block.ExtDataLength = 972;
    server.on(kProfileReq, Answer().in_pieces(bytes_of(pm_record(block)) + filled(972), 37));
    NetPMProfile profile = {};
    EXPECT_EQ(NetPMGetProfileInfo(7, &profile), 0u);
    EXPECT_EQ(bytes_of(profile), [] {
        auto b = filled(972);
        b.resize(968);
        return b;
    }());
}

}  // namespace
}  // namespace quorvel::test
