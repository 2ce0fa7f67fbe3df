// Packet data of the process's first call.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kGet = wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ;
constexpr uint32_t kSet = wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ;

class PacketData : public CallTest {
  protected:
    uint32_t get(User& who, uint32_t* state) {
        return who.run([=] { return NetCMGetPacketDataState(state); });
    }
    uint32_t set(User& who, uint32_t state) {
        return who.run([=] { return NetCMSetPacketDataState(state); });
    }
    // The profile that the last request was about.
    uint32_t asked_profile() { return server.last(kSet)->header.Arg4; }
};

TEST_F(PacketData, the_state_is_the_servers_word) {
    User& who = registered(0);
    who.open(7);
    wire::Record record = answer_record(kGet);
    record.Word2 = 3;
    server.on(kGet, Answer().record(record));
    uint32_t state = 0;
    EXPECT_EQ(get(who, &state), NETCM_SUCCESS);
    EXPECT_EQ(state, 3u);
    EXPECT_TRUE(traced_in_order({{0, "Client associated with active call. Call instance = [0]\n"},
                                 {0, "Found profile [7]. Thread-profile index [0]\n"},
                                 {2, "Received response = 117 \n"},
                                 {0, "Successfully retrieved packet data state [3]\n"}}));
}

TEST_F(PacketData, every_state_can_be_set) {
    User& who = registered(0);
    who.open(7);
    for (const uint32_t state : {1u, 2u, 3u}) {
        EXPECT_EQ(set(who, state), NETCM_SUCCESS);
        const wire::RequestHeader expected = {17, 0, server.client_id(), state, 7, 0};
        EXPECT_EQ(bytes_of(server.last(kSet)->header), bytes_of(expected));
    }
}

TEST_F(PacketData, other_states_are_refused) {
    User& who = registered(0);
    who.open(7);
    for (const uint32_t state : {0u, 4u, 0xffffffffu}) {
        EXPECT_EQ(set(who, state), NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(traced_in_order(
            {{5, trace::text("Error.. Invalid parameter. State = %d\n", static_cast<int>(state))}}));
    }
    EXPECT_EQ(server.count(kSet), 0u);
}

TEST_F(PacketData, a_null_state_is_refused) {
    User& who = registered(0);
    EXPECT_EQ(get(who, nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, "Error.. Invalid parameter \n"}}));
}

TEST_F(PacketData, before_the_registration_bad_arguments_are_not_looked_at) {
    EXPECT_EQ(get(user(0), nullptr), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(set(user(0), 0), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(trace::count("Cleint is not registered with CM\n"), 2u);
}

TEST_F(PacketData, without_a_call_the_server_is_not_asked) {
    User& who = registered(0);
    uint32_t state = 9;
    EXPECT_EQ(get(who, &state), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(set(who, 1), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(state, 9u);
    EXPECT_EQ(server.count(kGet) + server.count(kSet), 0u);
    EXPECT_TRUE(traced_in_order({{0, "Could not find active call for client \n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(PacketData, the_first_call_in_the_table_counts) {
    User& who = registered(0);
    who.open(7);
    who.open(8);
    EXPECT_EQ(set(who, 1), NETCM_SUCCESS);
    EXPECT_EQ(asked_profile(), 7u);
    with_table([](auto&) { return NetCMClientCleanCallInfo(0); });
    EXPECT_EQ(set(who, 1), NETCM_SUCCESS);
    EXPECT_EQ(asked_profile(), 8u);
    EXPECT_TRUE(traced_in_order({{0, "Client associated with active call. Call instance = [1]\n"}}));
}

TEST_F(PacketData, the_first_profile_of_the_first_thread_with_one_counts) {
    User& who = registered(0);
    who.open(7);
    set_entry(0, 0, -1, {});
    set_entry(0, 1, 0, {});
    set_entry(0, 3, 0, {-1, -1, 31, 32});
    set_entry(0, 4, 0, {41});
    EXPECT_EQ(set(who, 1), NETCM_SUCCESS);
    EXPECT_EQ(asked_profile(), 31u);
    EXPECT_TRUE(traced_in_order({{0, "Found profile [31]. Thread-profile index [3]\n"}}));
}

TEST_F(PacketData, a_call_without_a_profile_is_asked_about_as_profile_0) {
    User& who = registered(0);
    who.open(7);
    set_entry(0, 0, -1, {});
    EXPECT_EQ(set(who, 1), NETCM_SUCCESS);
    EXPECT_EQ(asked_profile(), 0u);
}

TEST_F(PacketData, a_failed_exchange_leaves_the_state_alone) {
    User& who = registered(0);
    who.open(7);
    uint32_t state = 9;
    for (const Answer& answer : {wrong_code(118), refusal(kGet, 33), hang_up()}) {
        server.on(kGet, answer);
        EXPECT_NE(get(who, &state), NETCM_SUCCESS);
        EXPECT_EQ(state, 9u);
    }
}

}  // namespace
}  // namespace quorvel::test
