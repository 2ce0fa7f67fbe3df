// The question for the proper profile whose answer arrives as an event.
#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kAppProfReq = wire::NETPM_APPPROF_REQ;

class ProperProfile : public PmTest {
  protected:
    void SetUp() override {
        PmTest::SetUp();
        server.on(kAppProfReq, silence());
    }
    NetCMProperProfReq note(size_t index) {
        pthread_mutex_lock(&NetCMAppMutex);
        const NetCMProperProfReq request = g_NetCMClientAppInfo.ProperProfReq[index];
        pthread_mutex_unlock(&NetCMAppMutex);
        return request;
    }
    wire::Record answer_for(int32_t app, uint32_t profile) {
        wire::AppProfMsg message = {};
        message.Cmd = 109;
        message.AppProf.Param = static_cast<uint32_t>(app);
        message.AppProf.ProfileId = profile;
        return app_record(message);
    }
};

TEST_F(ProperProfile, the_question_is_noted_for_the_calling_thread_and_sent) {
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(6), 0u);
    ASSERT_TRUE(server.wait_for(kAppProfReq));
    const wire::AppProfMsg expected = {0, 9, 0, {6, 0, 0, {0, 0}}, 0, 0};
    EXPECT_EQ(last_payload(kAppProfReq), bytes_of(expected));
    EXPECT_EQ(note(0).InUse, 1);
    EXPECT_EQ(note(0).ThreadId, gettid());
    EXPECT_EQ(note(0).ReqKey, 6);
    EXPECT_TRUE(trace::contains_in_order(
        {"App-Profile cmd = 9\n", "<++++++++\tNETPM_APPPROF_REQ =  [13]\t+++++++++>\n"}));
    EXPECT_FALSE(trace::contains("<++++++++\tNETPM_APPPROF_RSP =  [114]\t+++++++++>\n"));
}

TEST_F(ProperProfile, the_answer_reaches_the_callback_of_the_thread_that_asked) {
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(6), 0u);
    ASSERT_TRUE(server.push(answer_for(6, 42)));
    ASSERT_TRUE(events::wait_for_user(0, 1));
    const Event event = events::of(0).front();
    EXPECT_EQ(event.type, 10u);
    EXPECT_EQ(event.profile, 42);
    EXPECT_EQ(event.result, 0);
    EXPECT_EQ(note(0).InUse, 0);
}

TEST_F(ProperProfile, any_application_id_may_be_asked_for) {
    for (const int32_t app : {0, -1})
        EXPECT_EQ(NetPMAppProfGetProperProfileAsync(app), 0u);
    EXPECT_TRUE(server.wait_for(kAppProfReq, 2));
    EXPECT_EQ(note(1).ReqKey, -1);
}

TEST_F(ProperProfile, the_seventeenth_question_is_sent_but_not_noted) {
    for (int32_t app = 1; app <= 17; ++app)
        EXPECT_EQ(NetPMAppProfGetProperProfileAsync(app), 0u);
    EXPECT_TRUE(server.wait_for(kAppProfReq, 17));
    for (int32_t i = 0; i < 16; ++i)
        EXPECT_EQ(note(static_cast<size_t>(i)).ReqKey, i + 1);
}

TEST_F(ProperProfile, the_next_question_takes_the_lowest_note_that_is_free) {
    for (const int32_t app : {5, 5, 6})
        EXPECT_EQ(NetPMAppProfGetProperProfileAsync(app), 0u);
    ASSERT_TRUE(server.push(answer_for(5, 42)));  // answers the first two
    ASSERT_TRUE(events::wait_for_user(0, 2));
    for (const int32_t app : {7, 8, 9})
        EXPECT_EQ(NetPMAppProfGetProperProfileAsync(app), 0u);
    EXPECT_EQ(note(0).ReqKey, 7);
    EXPECT_EQ(note(1).ReqKey, 8);
    EXPECT_EQ(note(2).ReqKey, 6);
    EXPECT_EQ(note(3).ReqKey, 9);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(note(i).InUse, 1) << i;
}

TEST_F(ProperProfile, a_question_that_could_not_be_sent_leaves_no_note) {
    calls::fail(Call::Send);
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(6), 1u);
    EXPECT_EQ(note(0).InUse, 0);
    EXPECT_EQ(note(0).ThreadId, -1);
    EXPECT_EQ(note(0).ReqKey, -1);
}

TEST_F(ProperProfile, a_link_that_the_last_thread_has_taken_down_is_not_brought_up) {
    EXPECT_EQ(
        result_when_overtaken_by_the_last_deregistration([] { return NetPMAppProfGetProperProfileAsync(6); }),
        6u);
    EXPECT_TRUE(trace::traced(5, "Cleint is not registered with CM\n", "client/PM/src/NetPMIntf"));
    EXPECT_NE(note(0).InUse, 1);
    EXPECT_EQ(server.count(kAppProfReq), 0u);
}

TEST_F(ProperProfile, a_broken_link_is_repaired_before_the_question_is_noted) {
    break_link();
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(6), 0u);
    EXPECT_TRUE(server.wait_for(kAppProfReq));
    EXPECT_TRUE(
        trace::contains_in_order({"CM server connection is re-established\n", "App-Profile cmd = 9\n"}));

    break_link();
    server.stop();
    calls::skip_sleeps();
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(7), 2u);
    EXPECT_NE(note(1).InUse, 1);
}

TEST(UnregisteredProperProfile, is_refused_with_6) {
    EXPECT_EQ(NetPMAppProfGetProperProfileAsync(0), 6u);
    EXPECT_EQ(trace::find("Cleint is not registered with CM\n").mask, trace::kCaller);
}

}  // namespace
}  // namespace quorvel::test
