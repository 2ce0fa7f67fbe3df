// Profile id 0: the server says which profile is meant.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kCommand = wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ;

class DefaultProfile : public CallTest {
  protected:
    // Opens profile 0 and expects this failure, before anything is started.
    void expect_failure(uint32_t status) {
        EXPECT_EQ(registered(0).open(0), status);
        EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 0u);
        EXPECT_TRUE(is_free(0));
        EXPECT_TRUE(traced_in_order(
            {{3, trace::text("Failed to read default profile ID. Err = %d\n", static_cast<int>(status))}}));
    }
};

TEST_F(DefaultProfile, the_servers_default_is_opened) {
    User& who = registered(0);
    server.on(kCommand, [](const Request& request) {
        wire::Record record = answer_record(request.command());
        record.Word2 = 42;
        return Answer().record(record);
    });
    trace::clear();
    EXPECT_EQ(who.open(0), NETCM_SUCCESS);
    const wire::RequestHeader question = {9, 0, server.client_id(), 0, 0, 0};
    EXPECT_EQ(bytes_of(server.last(kCommand)->header), bytes_of(question));
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_START_REQ)->header.Arg4, 42u);
    EXPECT_EQ(call(0).ThreadProf[0].ProfileId[0], 42);
    EXPECT_TRUE(traced_in_order({{0, "Sending request to CM server for default profile id \n"},
                                 {0, "Successfully read default profile [ID:42] from profile manager\n"},
                                 {0, "No Call exists with profile [42] \n"},
                                 {0, "Sending start request to PS server for profile id [42]\n"}}));
}

TEST_F(DefaultProfile, another_id_asks_nothing) {
    EXPECT_EQ(registered(0).open(7), NETCM_SUCCESS);
    EXPECT_EQ(server.count(kCommand), 0u);
}

TEST_F(DefaultProfile, a_default_that_is_open_already_is_joined) {
    User& who = registered(0);
    bring_up(registered(1), 1);
    join(who, 0);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 1u);
    EXPECT_EQ(events::of(0).at(0).profile, 1);
}

TEST_F(DefaultProfile, a_question_that_cannot_be_sent_ends_the_open) {
    registered(0);
    calls::fail(Call::Send);
    EXPECT_EQ(user(0).open(0), NETCM_ERR_FAILURE);
    EXPECT_TRUE(traced_in_order({{2, "Error Sending request to CM Server  \n"},
                                 {3, "Failed to read default profile ID. Err = 1\n"}}));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_START_REQ), 0u);
}

TEST_F(DefaultProfile, an_answer_that_does_not_come_ends_the_open) {
    server.on(kCommand, hang_up());
    expect_failure(NETCM_ERR_FAILURE);
}

TEST_F(DefaultProfile, an_answer_with_another_code_ends_the_open) {
    server.on(kCommand, wrong_code(wire::NETCM_CLIENT_START_RSP));
    expect_failure(NETCM_ERR_FAILURE);
}

TEST_F(DefaultProfile, a_refusal_is_returned_unchanged) {
    server.on(kCommand, refusal(kCommand, 33, 5));
    expect_failure(33);
    EXPECT_TRUE(traced_in_order({{3, "Error getting default profile ID = 33 \n"},
                                 {3, "Failed to read default profile ID. Err = 33\n"}}));
}

}  // namespace
}  // namespace quorvel::test
