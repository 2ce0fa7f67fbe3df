// Opening a connection: what is checked, what is asked, what the table holds then.
#include "CallTest.h"

namespace quorvel::test {
namespace {

class Open : public CallTest {
  protected:
    // The calling thread's lock has been neither tried nor taken.
    static bool nobody_locked() { return calls::count(Call::MutexLock) == 0; }
    uint32_t open_many(User& who, const std::vector<int32_t>& ids, int32_t count) {
        return who.run([&] { return NetCMConnectionOpen(ids.data(), count); });
    }
};

TEST_F(Open, a_count_out_of_range_is_refused_before_any_lock) {
    User& who = user(0);
    for (const int32_t count : {0, 21, -1}) {
        EXPECT_EQ(open_many(who, {7}, count), NETCM_ERR_INVALID_PARAM) << count;
        EXPECT_TRUE(traced_in_order(
            {{5, trace::text("Invalid profileCount parameter. profileCount = [%d]\n", count)}}));
    }
    EXPECT_TRUE(nobody_locked());
}

TEST_F(Open, a_null_array_is_refused_before_any_lock) {
    EXPECT_EQ(user(0).run([] { return NetCMConnectionOpen(nullptr, 1); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(traced_in_order({{5, "NULL ProfileId parameter\n"}}));
    EXPECT_TRUE(nobody_locked());
}

TEST_F(Open, the_count_is_checked_before_the_array) {
    EXPECT_EQ(user(0).run([] { return NetCMConnectionOpen(nullptr, 0); }), NETCM_ERR_INVALID_PARAM);
    EXPECT_FALSE(trace::contains("NULL ProfileId parameter\n"));
}

TEST_F(Open, a_negative_first_id_is_refused_silently) {
    User& who = user(0);
    EXPECT_EQ(who.open(-1), NETCM_ERR_INVALID_PROFILE);
    EXPECT_TRUE(nobody_locked());
    // The only line is the one with the time.
    EXPECT_EQ(trace::texts(),
              (std::vector{trace::text("PS Connection Open START TIME = %f\n", ps_call_act_time[0])}));
}

TEST_F(Open, an_unregistered_process_is_refused) {
    EXPECT_EQ(user(0).open(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Open Connection Request from the client [-1] with profile ID [7]\n"},
                                 {2, "Cleint is not yet registered with CM\n"}}));
}

TEST_F(Open, an_unregistered_thread_is_refused) {
    registered(0);
    EXPECT_EQ(user(1).open(7), NETCM_ERR_NOT_REGISTERED);
    EXPECT_TRUE(traced_in_order({{2, "Thread information is not present with CM\n"}}));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 0u);
}

TEST_F(Open, the_start_request_is_exact_to_the_byte) {
    User& who = registered(0);
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    const wire::RequestHeader expected = {4, 0, server.client_id(), 0, 7, 0};
    ASSERT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 1u);
    EXPECT_EQ(bytes_of(server.last(wire::NETCM_CLIENT_START_REQ)->header), bytes_of(expected));
    EXPECT_FALSE(server.last(wire::NETCM_CLIENT_START_REQ)->is_async);
}

TEST_F(Open, an_accepted_call_stands_in_the_table_and_is_not_active) {
    User& who = registered(0);
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.InUse, 1);
    EXPECT_EQ(stored.CallId, 0);
    EXPECT_EQ(stored.IsActive, 0);
    EXPECT_EQ(stored.CallState, 0u);
    EXPECT_EQ(stored.ThreadProf[0].ThreadIndex, 0);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[0], 7);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[1], -1);
    EXPECT_EQ(stored.ThreadProf[1].ThreadIndex, -1);
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(Open, the_answers_call_id_is_the_index_of_the_record) {
    User& who = registered(0);
    server.once(wire::NETCM_CLIENT_START_REQ, [](const Request& request) {
        wire::Record record = answer_record(request.command());
        record.CallId = 3;
        return Answer().record(record);
    });
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_EQ(call(0).InUse, 0);
    EXPECT_EQ(call(3).CallId, 3);
}

TEST_F(Open, of_twenty_ids_only_the_first_is_opened) {
    User& who = registered(0);
    std::vector<int32_t> ids;
    for (int32_t id = 11; id < 31; ++id)
        ids.push_back(id);
    EXPECT_EQ(open_many(who, ids, 20), NETCM_SUCCESS);
    ASSERT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 1u);
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_START_REQ)->header.Arg4, 11u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[1], -1);
}

TEST_F(Open, every_step_is_traced_in_order) {
    User& who = registered(0);
    trace::clear();
    const auto client = static_cast<int>(server.client_id());
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    const int async = with_table([](const auto& table) { return table.AsyncSockFd; });
    const auto receiver = with_table([](const auto& table) { return table.RecvThreadId; });
    EXPECT_TRUE(traced_in_order(
        {{2, trace::text("PS Connection Open START TIME = %f\n", ps_call_act_time[0])},
         {0, trace::text("Open Connection Request from the client [%d] with profile ID [7]\n", client)},
         {0, trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())},
         {0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
         {0, trace::text("Found thread [%d] index at [0]\n", who.tid())},
         {0, trace::text("Async socket already exist %d \n", async)},
         {0, trace::text("Async socket = %d \n", async)},
         {0, "No Call exists with profile [7] \n"},
         {0, "Sending start request to PS server for profile id [7]\n"},
         {2, "Sent Request to the CM \n"},
         {2, "Received response = 101 \n"},
         {0,
          trace::text("Successfull.. recd call id is 0, threadid = %u  \n", static_cast<uint32_t>(receiver))},
         {0, "Call Info stored at index [0]\n"},
         {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(Open, the_time_of_the_request_is_kept) {
    const auto now = [] {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    };
    User& who = registered(0);
    const double before = now();
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_GE(ps_call_act_time[0], before - 0.001);
    EXPECT_LE(ps_call_act_time[0], now() + 0.001);
}

TEST_F(Open, a_fifth_call_is_refused_by_its_id) {
    User& who = registered(0);
    for (const uint32_t id : {4u, 5u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        server.once(wire::NETCM_CLIENT_START_REQ, [=](const Request& request) {
            wire::Record record = answer_record(request.command());
            record.CallId = id;
            return Answer().record(record);
        });
        EXPECT_EQ(who.open(7), NETCM_ERR_INVALID_PARAM) << id;
        EXPECT_TRUE(trace::contains(trace::text("Invalid call ID [%d]\n", static_cast<int>(id))));
    }
    for (int32_t index = 0; index < 4; ++index)
        EXPECT_TRUE(is_free(index)) << index;
}

TEST_F(Open, a_second_profile_may_get_the_same_call) {
    User& who = registered(0);
    User& other = registered(1);
    const auto same_call = [](const Request& request) {
        return Answer().record(answer_record(request.command()));
    };
    server.on(wire::NETCM_CLIENT_START_REQ, same_call);
    EXPECT_EQ(who.open(7), NETCM_SUCCESS);
    EXPECT_EQ(who.open(8), NETCM_SUCCESS);
    EXPECT_EQ(other.open(9), NETCM_SUCCESS);
    EXPECT_TRUE(traced_in_order({{0, "Call already exists for this APN\n"}}));
    const NetCMCallInfo stored = call(0);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[0], 7);
    EXPECT_EQ(stored.ThreadProf[0].ProfileId[1], 8);
    EXPECT_EQ(stored.ThreadProf[1].ThreadIndex, 1);
    EXPECT_EQ(stored.ThreadProf[1].ProfileId[0], 9);
}

}  // namespace
}  // namespace quorvel::test
