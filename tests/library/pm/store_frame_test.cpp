// What every operation on the profile store does alike.
#include "library/common/Cancellable.h"
#include "library/pm/store_operations.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kProfileReq = wire::NETPM_PROFILE_REQ;

class EveryOperation : public PmTest, public testing::WithParamInterface<StoreOperation> {
  protected:
    const StoreOperation& operation() const { return GetParam(); }

    // The answer of a profile manager that agrees, with data behind it where there shall be some.
    void agree(const Bytes& data = {}) {
        wire::PmResponseBlock block = agreement(operation().command);
        block.ExtDataLength = static_cast<uint32_t>(data.size());
        server.on(kProfileReq, Answer().record(pm_record(block)).bytes(data));
    }
    void answer(const wire::PmResponseBlock& block) {
        server.on(kProfileReq, Answer().record(pm_record(block)));
    }
    bool has_succeeded() const { return trace::contains(operation().done); }

    // The call fails, and leaves what it would have given as it was.
    void expect_untouched_outputs(uint32_t status) {
        constexpr std::byte kUntouched{0xEE};
        overwrite_outputs(kUntouched);
        EXPECT_EQ(operation().call(), status);
        const bool is_add = operation().name == "NetPMAddProfileInfo";
        EXPECT_EQ(outputs(), is_add ? outputs_with_id(-1, kUntouched) : Bytes(outputs().size(), kUntouched));
    }

    // Nothing of a failed exchange may be in the way of the next one.
    void expect_the_next_one_to_succeed() {
        agree();
        EXPECT_EQ(operation().call(), 0u);
    }
};

TEST_P(EveryOperation, sends_its_request_byte_for_byte) {
    agree();
    EXPECT_EQ(operation().call(), 0u);
    const wire::RequestHeader header = last_header(kProfileReq);
    EXPECT_EQ(header.Command, 12u);
    EXPECT_EQ(header.Param, 0u);
    EXPECT_EQ(header.ClientId, server.client_id());
    EXPECT_EQ(header.Arg3, 0xFFFFFFFFu);
    EXPECT_EQ(header.Arg4, 0xFFFFFFFFu);
    EXPECT_EQ(header.Arg5, 0u);
    EXPECT_EQ(last_payload(kProfileReq), bytes_of(operation().header) + operation().data);
    EXPECT_EQ(server.count(kProfileReq), 1u);
}

TEST_P(EveryOperation, traces_its_request_and_its_success_under_the_lock) {
    agree();
    operation().call();
    std::vector<std::string> expected = operation().sent;
    expected.push_back(operation().done);
    std::vector<std::string> seen;
    bool locked = false;
    for (const TraceLine& line : trace::lines()) {
        locked = locked || line.text.starts_with("Mutex locked by thread [");
        if (line.text.starts_with("Mutex unlocked by thread ["))
            locked = false;
        if (std::find(expected.begin(), expected.end(), line.text) == expected.end())
            continue;
        seen.push_back(line.text);
        EXPECT_TRUE(locked) << line.text;
        EXPECT_EQ(line.mask, trace::kNormal) << line.text;
        EXPECT_EQ(line.file, "data-networking/client/PM/src/NetPMIntf") << line.text;
    }
    EXPECT_EQ(seen, expected);
    EXPECT_FALSE(locked);
}

// Another thread, and the sink itself, may act on what they see.
TEST_P(EveryOperation, has_its_results_before_it_traces_its_success) {
    constexpr std::byte kUntouched{0xEE};
    wire::PmResponseBlock block = agreement(operation().command);
    block.Value = 0x12345678;
    const Bytes data = filled(84);
    block.ExtDataLength = static_cast<uint32_t>(data.size());
    server.on(kProfileReq, Answer().record(pm_record(block)).bytes(data));
    overwrite_outputs(kUntouched);
    Bytes at_success;
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text == operation().done)
            at_success = outputs();
    });
    EXPECT_EQ(operation().call(), 0u);
    EXPECT_EQ(at_success, outputs());
}

TEST_P(EveryOperation, has_its_new_id_before_it_traces_its_refusal) {
    wire::PmResponseBlock block = agreement(operation().command);
    block.Error = kRefusal;
    answer(block);
    overwrite_outputs(std::byte{0xEE});
    Bytes at_refusal;
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text == operation().refused)
            at_refusal = outputs();
    });
    EXPECT_EQ(operation().call(), kRefusal);
    EXPECT_EQ(at_refusal, outputs());
}

TEST_P(EveryOperation, does_not_bring_up_a_link_that_the_last_thread_has_taken_down) {
    agree();
    EXPECT_EQ(result_when_overtaken_by_the_last_deregistration(operation().call), 6u);
    const std::string message = operation().name == "NetPMModifyProfileInfo"
                                    ? "Client is not registered with CM\n"
                                    : "Cleint is not registered with CM\n";
    EXPECT_TRUE(trace::traced(5, message, "client/PM/src/NetPMIntf"));
    EXPECT_EQ(server.count(kProfileReq), 0u);
}

TEST_P(EveryOperation, that_is_cancelled_ends_behind_its_answer) {
    auto gate = std::make_shared<Gate>();
    server.on(kProfileReq, Answer().wait_at(gate).record(pm_record(agreement(operation().command))));
    uint32_t status = 99;
    Cancellable thread([&] { status = operation().call(); });
    ASSERT_TRUE(gate->is_somebody_waiting());
    thread.cancel();
    gate->open();
    ASSERT_TRUE(thread.ended_behind_the_body());
    EXPECT_EQ(status, 0u);
    expect_the_next_one_to_succeed();
}

TEST_P(EveryOperation, returns_a_refusal_unchanged_with_its_own_message) {
    wire::PmResponseBlock block = agreement(operation().command);
    block.Error = kRefusal;
    answer(block);
    EXPECT_EQ(operation().call(), kRefusal);
    EXPECT_EQ(trace::find(operation().refused).mask, trace::kNormal);
    EXPECT_TRUE(trace::contains(operation().refused));
    EXPECT_FALSE(has_succeeded());
}

TEST_P(EveryOperation, a_failure_leaves_the_outputs_alone) {
    wire::PmResponseBlock block = agreement(operation().command);
    block.Value = 0x12345678;
    block.ExtDataLength = 972;
    block.Error = kRefusal;
    server.on(kProfileReq, Answer().record(pm_record(block)).bytes(filled(972)));
    expect_untouched_outputs(kRefusal);

    block.Error = 0;
    ++block.RspCode;
    server.on(kProfileReq, Answer().record(pm_record(block)).bytes(filled(972)));
    expect_untouched_outputs(1);

    server.on(kProfileReq, hang_up());
    expect_untouched_outputs(1);
}

TEST_P(EveryOperation, an_answer_to_another_command_is_a_failure_without_a_message) {
    for (const uint32_t error : {0u, kRefusal}) {
        wire::PmResponseBlock block = agreement(operation().command);
        ++block.RspCode;
        block.Error = error;
        answer(block);
        EXPECT_EQ(operation().call(), 1u);
        EXPECT_FALSE(trace::contains(operation().refused));
        EXPECT_FALSE(has_succeeded());
        EXPECT_FALSE(trace::contains("Error in sending/receiving the Request to/from Server Reason = 1 \n"));
    }
}

TEST_P(EveryOperation, a_record_of_another_event_is_a_failed_exchange) {
    server.on(kProfileReq, wrong_code(wire::NETCM_CLIENT_PROPER_PROFILE_RSP));
    EXPECT_EQ(operation().call(), 1u);
    EXPECT_TRUE(
        trace::contains_in_order({"Unknown Event received. \n", "Error Receiving Response from CM Server 1\n",
                                  "Error in sending/receiving the Request to/from Server Reason = 1 \n"}));
    expect_the_next_one_to_succeed();
}

TEST_P(EveryOperation, a_server_that_hangs_up_is_a_failed_exchange) {
    server.on(kProfileReq, hang_up());
    EXPECT_EQ(operation().call(), 1u);
    EXPECT_TRUE(trace::contains("Error in sending/receiving the Request to/from Server Reason = 1 \n"));
}

TEST_P(EveryOperation, a_server_that_stays_silent_is_a_failed_exchange) {
    server.on(kProfileReq, silence());
    calls::answer_next_poll(0);
    EXPECT_EQ(operation().call(), 1u);
    EXPECT_TRUE(trace::contains_in_order(
        {"POLLing timeout  \n", "Error in sending/receiving the Request to/from Server Reason = 1 \n"}));
}

TEST_P(EveryOperation, a_write_that_fails_is_a_failed_exchange) {
    calls::fail(Call::Send);
    EXPECT_EQ(operation().call(), 1u);
    EXPECT_TRUE(trace::contains_in_order(
        {"Error Sending request to CM Server 1\n", "Error Sending request to CM server. Error = 1 \n",
         "Error in sending/receiving the Request to/from Server Reason = 1 \n"}));
    expect_the_next_one_to_succeed();
}

TEST_P(EveryOperation, any_failed_allocation_fails_it_and_leaves_the_stream_in_step) {
    agree(filled(100));
    size_t failed = 0;
    for (;; ++failed) {
        trace::clear();
        calls::fail(Call::Malloc, failed + 1);
        const uint32_t status = operation().call();
        if (!calls::has_failed(Call::Malloc)) {
            EXPECT_EQ(status, 0u);
            break;
        }
        EXPECT_EQ(status, 1u) << failed;
        EXPECT_FALSE(has_succeeded());
    }
    // The message that is sent and the data of the answer; what is sent together with a request's own data
    // needs a block of its own.
    EXPECT_EQ(failed, operation().data.empty() ? 2u : 3u);
}

TEST_P(EveryOperation, data_that_end_early_are_a_failed_exchange) {
    wire::PmResponseBlock block = agreement(operation().command);
    block.ExtDataLength = 972;
    server.on(kProfileReq, cut_short_data(pm_record(block), filled(100)));
    EXPECT_EQ(operation().call(), 1u);
    EXPECT_TRUE(trace::contains("Error in sending/receiving the Request to/from Server Reason = 1 \n"));
    EXPECT_FALSE(has_succeeded());
}

TEST_P(EveryOperation, a_length_that_cannot_be_had_is_answered_like_a_failed_allocation) {
    for (const uint32_t length : {(16u << 20) + 1, 0x80000000u, 0xFFFFFFFFu}) {
        wire::PmResponseBlock block = agreement(operation().command);
        block.ExtDataLength = length;
        answer(block);
        trace::clear();
        EXPECT_EQ(operation().call(), 1u);
        EXPECT_EQ(trace::find("Memory allocation failed \n").mask, trace::kInternal);
    }
}

TEST_P(EveryOperation, data_behind_a_refusal_are_drained) {
    wire::PmResponseBlock block = agreement(operation().command);
    block.Error = kRefusal;
    block.ExtDataLength = 50;
    server.on(kProfileReq, Answer().record(pm_record(block)).bytes(filled(50)));
    EXPECT_EQ(operation().call(), kRefusal);
    expect_the_next_one_to_succeed();
}

TEST_P(EveryOperation, a_broken_link_is_repaired_first) {
    break_link();
    agree();
    EXPECT_EQ(operation().call(), 0u);
    EXPECT_TRUE(trace::contains_in_order({"CM server connection is broken, Re-Register with CM\n",
                                          "CM server connection is re-established\n", operation().done}));
    EXPECT_EQ(trace::find("CM server connection is re-established\n").file,
              "data-networking/client/PM/src/NetPMIntf");
    EXPECT_EQ(last_header(kProfileReq).ClientId, server.client_id());  // the new one
}

TEST_P(EveryOperation, a_link_that_cannot_be_repaired_is_2) {
    break_link();
    server.stop();
    calls::skip_sleeps();
    EXPECT_EQ(operation().call(), 2u);
    EXPECT_TRUE(trace::contains_in_order(
        {"CM server connection is broken, Re-Register with CM\n", "Failed to Re-Register with CM\n"}));
    for (const std::string& line : operation().sent)
        EXPECT_FALSE(trace::contains(line));
    EXPECT_EQ(calls::sleeps().size(), 3u);
    server.start();
    expect_the_next_one_to_succeed();
}

TEST_P(EveryOperation, a_lock_that_fails_is_traced_and_the_operation_goes_on) {
    agree();
    calls::fail(Call::MutexLock, 1, EINVAL);
    calls::fail(Call::MutexUnlock, 1, EPERM);
    EXPECT_EQ(operation().call(), 0u);
    EXPECT_TRUE(trace::contains_in_order(
        {"Error locking mutex. Error = 22 \n", operation().done, "Error unlocking mutex. Error = 1 \n"}));
}

// What is traced at the levels 0 to 3, with what follows `address` left out: it is the heap's.
std::vector<std::string> normal_lines(const std::string& address) {
    std::vector<std::string> result;
    for (const TraceLine& line : trace::lines())
        if (line.mask == trace::kNormal)
            result.push_back(line.text.starts_with(address) ? address : line.text);
    return result;
}

class WholeTrace : public PmTest {};

TEST_F(WholeTrace, of_a_profile_that_is_read) {
    wire::PmResponseBlock block = agreement(4);
    block.ExtDataLength = 972;
    server.on(kProfileReq, Answer().record(pm_record(block)).bytes(filled(972)));
    NetPMProfile profile = {};
    EXPECT_EQ(NetPMGetProfileInfo(5, &profile), 0u);
    const std::string thread = std::to_string(gettid());
    const std::string socket = std::to_string(g_NetCMClientAppInfo.SyncSockFd);
    const std::string address = "NetPMReadSyncRsp ::: pRspData->pExtRspData   = ";
    const std::vector<std::string> expected{
        "Thread [" + thread + "] trying to lock the Mutex \n",
        "Mutex locked by thread [" + thread + "] \n",
        "NetPMGetProfileInfo: NETPM_CLIENT_GET_PROFILE_REQ profileID =5\n",
        "Successfully written 44 byte on socket FD = " + socket + " \n",
        "Sent Request to the CM server 44\n",
        "POLL ret = 1,  \n",
        "POLLIN \n",
        "socket FD = [" + socket + "] Retval = [40]\n",
        "Received response Event = 113 \n",
        "Received Requested Response = 113 \n",
        "Received response = 113 \n",
        "!!!!Extended Data Length [972]!!!!\n",
        address,
        "POLL ret = 1,  \n",
        "POLLIN \n",
        "socket FD = [" + socket + "] Retval = [972]\n",
        "Successfully Retrived profile information , profile id is 77 \n",
        "Mutex unlocked by thread [" + thread + "] \n"};
    EXPECT_EQ(normal_lines(address), expected);
    EXPECT_EQ(trace::lines().size(), expected.size());
}

class EveryUnregisteredOperation : public testing::TestWithParam<StoreOperation> {};

TEST_P(EveryUnregisteredOperation, is_refused_with_6_before_anything_is_locked) {
    EXPECT_EQ(GetParam().call(), 6u);
    const std::string message = GetParam().name == "NetPMModifyProfileInfo"
                                    ? "Client is not registered with CM\n"
                                    : "Cleint is not registered with CM\n";
    EXPECT_EQ(trace::find(message).mask, trace::kCaller);
    EXPECT_EQ(trace::texts().back(), message);
}

INSTANTIATE_TEST_SUITE_P(Store, EveryOperation, testing::ValuesIn(store_operations()),
                         name_of<StoreOperation>);
INSTANTIATE_TEST_SUITE_P(Store, EveryUnregisteredOperation, testing::ValuesIn(store_operations()),
                         name_of<StoreOperation>);

}  // namespace
}  // namespace quorvel::test
