// What every application-profile operation that waits for its answer does alike.
#include "library/common/Cancellable.h"
#include "library/pm/app_operations.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kAppProfReq = wire::NETPM_APPPROF_REQ;
constexpr uint32_t kRefusal = 4242;

class EveryAppOperation : public PmTest, public testing::WithParamInterface<AppOperation> {
  protected:
    const AppOperation& operation() const { return GetParam(); }

    void answer(uint32_t code, uint32_t result) {
        server.on(kAppProfReq, Answer().record(app_record({0, code, result, {1, 2, 3, {4, 5}}, 0, 0})));
    }
    void agree() { answer(100 + operation().command, 0); }

    uint32_t success() const { return operation().answers_with_truth ? 1 : 0; }
    // What becomes of a failure in an operation that answers with a truth value.
    uint32_t as_result(uint32_t status) const { return operation().answers_with_truth ? 0 : status; }
};

TEST_P(EveryAppOperation, sends_its_message_byte_for_byte) {
    agree();
    EXPECT_EQ(operation().call(), success());
    const wire::RequestHeader header = last_header(kAppProfReq);
    EXPECT_EQ(header.Command, 13u);
    EXPECT_EQ(header.Param, 0u);
    EXPECT_EQ(header.ClientId, server.client_id());
    EXPECT_EQ(header.Arg3, 0xFFFFFFFFu);
    EXPECT_EQ(header.Arg4, 0xFFFFFFFFu);
    EXPECT_EQ(header.Arg5, 0u);
    EXPECT_EQ(last_payload(kAppProfReq), bytes_of(operation().message));
    EXPECT_EQ(server.count(kAppProfReq), 1u);
}

TEST_P(EveryAppOperation, traces_its_command_before_it_is_sent) {
    agree();
    operation().call();
    const std::string command = "App-Profile cmd = " + std::to_string(operation().command) + "\n";
    EXPECT_TRUE(trace::contains_in_order({command, "<++++++++\tNETPM_APPPROF_REQ =  [13]\t+++++++++>\n"}));
    EXPECT_EQ(trace::find(command).mask, trace::kNormal);
    EXPECT_EQ(trace::find(command).file, "data-networking/client/PM/src/NetPMIntf");
}

TEST_P(EveryAppOperation, asks_and_is_answered_under_the_lock) {
    agree();
    operation().call();
    const std::string thread = std::to_string(gettid());
    EXPECT_TRUE(trace::contains_in_order(
        {"Thread [" + thread + "] trying to lock the Mutex \n", "Mutex locked by thread [" + thread + "] \n",
         "<++++++++\tNETPM_APPPROF_REQ =  [13]\t+++++++++>\n", "Received response = 114 \n",
         "Mutex unlocked by thread [" + thread + "] \n"}));
    EXPECT_EQ(trace::count("Mutex locked by thread [" + thread + "] \n"), 1u);
    EXPECT_EQ(trace::texts().back(), "Mutex unlocked by thread [" + thread + "] \n");
}

TEST_P(EveryAppOperation, a_lock_that_fails_is_traced_and_the_operation_goes_on) {
    agree();
    calls::fail(Call::MutexLock, 1, EINVAL);
    calls::fail(Call::MutexUnlock, 1, EPERM);
    EXPECT_EQ(operation().call(), success());
    EXPECT_TRUE(trace::contains_in_order({"Error locking mutex. Error = 22 \n", "Received response = 114 \n",
                                          "Error unlocking mutex. Error = 1 \n"}));
}

TEST_P(EveryAppOperation, returns_a_refusal) {
    answer(100 + operation().command, kRefusal);
    EXPECT_EQ(operation().call(), as_result(kRefusal));
}

TEST_P(EveryAppOperation, an_answer_to_another_command_is_a_failure) {
    answer(101 + operation().command, 0);
    EXPECT_EQ(operation().call(), as_result(1));
}

TEST_P(EveryAppOperation, a_record_of_another_event_is_a_failure) {
    server.on(kAppProfReq, wrong_code(wire::NETPM_PROFILE_RSP));
    EXPECT_EQ(operation().call(), as_result(1));
}

TEST_P(EveryAppOperation, a_server_that_hangs_up_is_a_failure) {
    server.on(kAppProfReq, hang_up());
    EXPECT_EQ(operation().call(), as_result(1));
}

TEST_P(EveryAppOperation, a_server_that_stays_silent_is_a_failure) {
    server.on(kAppProfReq, silence());
    calls::answer_next_poll(0);
    EXPECT_EQ(operation().call(), as_result(1));
}

TEST_P(EveryAppOperation, an_allocation_or_a_write_that_fails_is_a_failure) {
    agree();
    calls::fail(Call::Malloc);
    EXPECT_EQ(operation().call(), as_result(1));
    EXPECT_TRUE(trace::contains("Memory allocation for tempBuf failed\n"));
    calls::fail(Call::Send);
    EXPECT_EQ(operation().call(), as_result(1));
    calls::reset();
    EXPECT_EQ(operation().call(), success());
}

TEST_P(EveryAppOperation, a_broken_link_is_repaired_first) {
    break_link();
    agree();
    EXPECT_EQ(operation().call(), success());
    EXPECT_TRUE(trace::contains_in_order({"CM server connection is broken, Re-Register with CM\n",
                                          "CM server connection is re-established\n"}));
    EXPECT_EQ(last_header(kAppProfReq).ClientId, server.client_id());
}

TEST_P(EveryAppOperation, a_link_that_cannot_be_repaired_is_2) {
    break_link();
    server.stop();
    calls::skip_sleeps();
    EXPECT_EQ(operation().call(), as_result(2));
    EXPECT_TRUE(trace::contains("Failed to Re-Register with CM\n"));
}

TEST_P(EveryAppOperation, does_not_bring_up_a_link_that_the_last_thread_has_taken_down) {
    agree();
    EXPECT_EQ(result_when_overtaken_by_the_last_deregistration(operation().call), as_result(6));
    EXPECT_TRUE(trace::traced(5, "Cleint is not registered with CM\n", "client/PM/src/NetPMIntf"));
    EXPECT_EQ(server.count(kAppProfReq), 0u);
}

TEST_P(EveryAppOperation, that_is_cancelled_ends_behind_its_answer) {
    auto gate = std::make_shared<Gate>();
    server.on(kAppProfReq, Answer().wait_at(gate).record(
                               app_record({0, 100 + operation().command, 0, {1, 2, 3, {4, 5}}, 0, 0})));
    uint32_t result = 99;
    Cancellable thread([&] { result = operation().call(); });
    ASSERT_TRUE(gate->is_somebody_waiting());
    thread.cancel();
    gate->open();
    ASSERT_TRUE(thread.ended_behind_the_body());
    EXPECT_EQ(result, success());
    agree();
    EXPECT_EQ(operation().call(), success());
}

class EveryUnregisteredAppOperation : public testing::TestWithParam<AppOperation> {};

TEST_P(EveryUnregisteredAppOperation, is_refused_with_6_before_anything_is_locked) {
    EXPECT_EQ(GetParam().call(), GetParam().answers_with_truth ? 0u : 6u);
    EXPECT_EQ(trace::find("Cleint is not registered with CM\n").mask, trace::kCaller);
    EXPECT_EQ(trace::texts().back(), "Cleint is not registered with CM\n");
}

INSTANTIATE_TEST_SUITE_P(AppProfile, EveryAppOperation, testing::ValuesIn(app_operations()),
                         name_of<AppOperation>);
INSTANTIATE_TEST_SUITE_P(AppProfile, EveryUnregisteredAppOperation, testing::ValuesIn(app_operations()),
                         name_of<AppOperation>);

}  // namespace
}  // namespace quorvel::test
