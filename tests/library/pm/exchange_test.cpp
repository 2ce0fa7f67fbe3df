// The entry points below the operations: one request out, one answer in.
#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kProfileReq = wire::NETPM_PROFILE_REQ;
constexpr uint32_t kAppProfReq = wire::NETPM_APPPROF_REQ;
constexpr char kUnit[] = "data-networking/client/PM/src/NetPMReqRsp";

wire::PmRequestHeader request_of(uint32_t command) {
    wire::PmRequestHeader header = {};
    header.Command = command;
    return header;
}

class Exchange : public PmTest {
  protected:
    uint32_t exchange() { return NetPMSendReceiveSync(&request, sizeof request, &context); }

    wire::PmRequestHeader request = request_of(13);
    wire::PmResponseBlock block = {};
    PmRspContext context = {0, &block, nullptr};
};

TEST_F(Exchange, a_request_without_data_is_44_bytes) {
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(last_payload(kProfileReq), bytes_of(request));
    EXPECT_TRUE(trace::contains("Sent Request to the CM server 44\n"));
    EXPECT_EQ(trace::find("Sent Request to the CM server 44\n").file, kUnit);
}

TEST_F(Exchange, the_answer_is_words_1_to_6_of_the_record) {
    const wire::PmResponseBlock sent = {101, 2, 3, 4, 0, 6};
    server.on(kProfileReq, Answer().record(pm_record(sent)));
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(bytes_of(block), bytes_of(sent));
    EXPECT_TRUE(
        trace::contains_in_order({"Received response = 113 \n", "!!!!Extended Data Length [0]!!!!\n"}));
}

TEST_F(Exchange, without_extended_data_nothing_is_allocated_for_it) {
    server.on(kProfileReq, Answer().record(pm_record({101, 2, 3, 4, 0, 6})));
    calls::reset();
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(calls::count(Call::Malloc), 1u);  // the message that is sent
    EXPECT_EQ(context.pExtRspData, nullptr);
    EXPECT_EQ(context.ExtLength, 0u);
}

TEST_F(Exchange, extended_data_belong_to_the_caller) {
    server.on(kProfileReq, Answer().record(pm_record({101, 2, 0, 0, 300, 0})).bytes(filled(300)));
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(context.ExtLength, 300u);
    ASSERT_NE(context.pExtRspData, nullptr);
    EXPECT_EQ(memcmp(context.pExtRspData, filled(300).data(), 300), 0);
    const std::string where = std::to_string(narrow(context.pExtRspData));
    EXPECT_TRUE(trace::contains_in_order({"!!!!Extended Data Length [300]!!!!\n",
                                          "NetPMReadSyncRsp ::: pRspData->pExtRspData   = " + where + "\n"}));
    free(context.pExtRspData);
}

TEST_F(Exchange, data_whose_reading_fails_are_freed_and_forgotten) {
    server.on(kProfileReq, cut_short_data(pm_record({101, 2, 0, 0, 300, 0}), filled(299)));
    EXPECT_EQ(exchange(), 1u);
    EXPECT_EQ(context.pExtRspData, nullptr);
    EXPECT_TRUE(trace::contains("Error reading socket, retval = 0\n"));
    EXPECT_TRUE(trace::wait_for_prefix("NetPMReadSyncRsp ::: FREEING pRspData->pExtRspData   = ",
                                       std::chrono::milliseconds(0)));
}

TEST_F(Exchange, a_failed_allocation_keeps_the_length_and_drains_the_data) {
    server.on(kProfileReq, Answer().record(pm_record({101, 2, 0, 0, 2000, 0})).bytes(filled(2000)));
    calls::fail(Call::Malloc, 2);
    EXPECT_EQ(exchange(), 1u);
    EXPECT_EQ(context.ExtLength, 2000u);
    EXPECT_EQ(context.pExtRspData, nullptr);
    EXPECT_EQ(trace::find("Memory allocation failed \n").mask, trace::kInternal);

    calls::reset();
    server.on(kProfileReq, Answer().record(pm_record({101, 9, 0, 0, 0, 0})));
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(block.ProfileId, 9);
}

TEST_F(Exchange, many_megabytes_of_data_are_read_whole) {
    constexpr uint32_t kLength = (2u << 20) + 1;
    const Bytes data = filled(kLength);
    server.on(kProfileReq, Answer().record(pm_record({101, 2, 0, 0, kLength, 0})).bytes(data));
    EXPECT_EQ(exchange(), 0u);
    EXPECT_EQ(context.ExtLength, kLength);
    ASSERT_NE(context.pExtRspData, nullptr);
    EXPECT_EQ(memcmp(context.pExtRspData, data.data(), kLength), 0);
    free(context.pExtRspData);
}

TEST_F(Exchange, an_answer_to_the_other_kind_of_request_is_dropped) {
    block.ProfileId = 5;
    server.on(kProfileReq, Answer().record(app_record({})));
    EXPECT_EQ(exchange(), 1u);
    EXPECT_EQ(block.ProfileId, 5);
}

TEST_F(Exchange, a_message_that_cannot_be_allocated_is_a_failure) {
    calls::fail(Call::Malloc, 1);
    EXPECT_EQ(NetCMSendPMReq(kProfileReq, &request, sizeof request), 1u);
    EXPECT_EQ(trace::find("Memory allocation for tempBuf failed\n").mask, trace::kInternal);
    EXPECT_EQ(server.count(kProfileReq), 0u);
}

TEST_F(Exchange, a_length_that_wraps_is_a_failed_allocation) {
    for (const uint32_t length : {0xFFFFFFFFu, 0xFFFFFFFFu - 23}) {
        trace::clear();
        EXPECT_EQ(NetCMSendPMReq(kProfileReq, &request, length), 1u);
        EXPECT_TRUE(trace::contains("Memory allocation for tempBuf failed\n"));
    }
    EXPECT_EQ(server.count(kProfileReq), 0u);
}

TEST_F(Exchange, a_message_may_be_a_header_alone) {
    EXPECT_EQ(NetCMSendPMReq(kProfileReq, nullptr, 0), 0u);
    EXPECT_TRUE(trace::contains("Sent Request to the CM server 24\n"));
}

TEST_F(Exchange, a_send_that_fails_is_reported_twice) {
    calls::fail(Call::Send);
    EXPECT_EQ(exchange(), 1u);
    EXPECT_TRUE(trace::contains_in_order(
        {"Error Sending request to CM Server 1\n", "Error Sending request to CM server. Error = 1 \n"}));
}

TEST_F(Exchange, the_answer_to_an_application_request_is_words_1_to_9_of_the_record) {
    wire::AppProfMsg sent = {1, 101, 3, {4, 5, 6, {7, 8}}, 9, 10};
    server.on(kAppProfReq, Answer().record(app_record(sent)));
    wire::AppProfMsg message = {};
    message.Cmd = 1;
    EXPECT_EQ(NetPMAppProfSendSyncReq(&message, sizeof message), 0u);
    EXPECT_EQ(NetPMAppProfRecvSyncRsp(&message, 0), 0);  // the length is not looked at
    EXPECT_EQ(bytes_of(message), bytes_of(sent));
    EXPECT_EQ(last_header(kAppProfReq).Command, 13u);
    EXPECT_TRUE(trace::contains_in_order(
        {"<++++++++\tNETPM_APPPROF_REQ =  [13]\t+++++++++>\n", "Sent Request to the CM server 60\n",
         "<++++++++\tNETPM_APPPROF_RSP =  [114]\t+++++++++>\n", "Received response = 114 \n"}));
}

TEST_F(Exchange, a_response_of_a_third_event_is_read_and_nothing_is_copied) {
    server.on(kProfileReq, wrong_code(118));
    ASSERT_EQ(NetCMSendPMReq(kProfileReq, &request, sizeof request), 0u);
    uint32_t out[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(NetCMReadSyncRsp(118, out), 0);
    EXPECT_THAT(out, testing::ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
}

TEST_F(Exchange, a_failed_read_leaves_the_callers_words_alone) {
    server.on(kProfileReq, cut_short(kProfileReq, 20));
    ASSERT_EQ(NetCMSendPMReq(kProfileReq, &request, sizeof request), 0u);
    uint32_t out[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(NetCMReadSyncRsp(113, out), 1);
    EXPECT_EQ(out[0], 1u);
    EXPECT_TRUE(trace::contains("Error Receiving Response from CM Server 1\n"));
}

TEST_F(Exchange, a_time_out_while_data_are_read_is_a_failure) {
    char data[4];
    calls::answer_next_poll(0);
    EXPECT_EQ(NetCMClientReadMoreSyncData(data, sizeof data), 1u);
    EXPECT_TRUE(trace::contains("Error reading socket, retval = 0\n"));
}

}  // namespace
}  // namespace quorvel::test
