// The server's settings, and this pair's own style of results.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kGet = wire::NETCM_CLIENT_GET_SETTINGS_REQ;
constexpr uint32_t kSet = wire::NETCM_CLIENT_SET_SETTINGS_REQ;
constexpr uint32_t kUntouched = 99;

using Function = uint32_t (*)(uint32_t key, uint32_t* value, uint32_t* result);

class Settings : public CallTest {
  protected:
    uint32_t value = kUntouched;
    uint32_t result = kUntouched;

    uint32_t ask(User& who, Function function, uint32_t key) {
        return who.run([=, this] { return function(key, &value, &result); });
    }
};

TEST_F(Settings, every_key_can_be_read) {
    User& who = registered(0);
    server.on(kGet, [](const Request& request) {
        wire::Record record = answer_record(request.command());
        record.Word2 = request.header.Arg3 + 100;
        return Answer().record(record);
    });
    for (uint32_t key = 0; key <= 4; ++key) {
        result = kUntouched;
        EXPECT_EQ(ask(who, NetCMSettingsGet, key), 1u);
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(value, key + 100);
    }
}

TEST_F(Settings, every_key_can_be_set) {
    User& who = registered(0);
    for (uint32_t key = 0; key <= 4; ++key) {
        value = 1000 + key;
        result = kUntouched;
        EXPECT_EQ(ask(who, NetCMSettingsSet, key), 1u);
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(value, 1000 + key);
        const wire::RequestHeader expected = {22, 0, server.client_id(), key, 1000 + key, 0};
        EXPECT_EQ(bytes_of(server.last(kSet)->header), bytes_of(expected));
    }
}

TEST_F(Settings, a_refusal_is_handed_out_through_the_pointer) {
    User& who = registered(0);
    server.on(kGet, refusal(kGet, 33));
    EXPECT_EQ(ask(who, NetCMSettingsGet, 1), 0u);
    EXPECT_EQ(result, 33u);
    EXPECT_EQ(value, kUntouched);
    server.on(kSet, refusal(kSet, 34));
    EXPECT_EQ(ask(who, NetCMSettingsSet, 1), 0u);
    EXPECT_EQ(result, 34u);
}

TEST_F(Settings, a_failed_exchange_is_handed_out_as_1) {
    User& who = registered(0);
    server.on(kGet, wrong_code(118));
    EXPECT_EQ(ask(who, NetCMSettingsGet, 1), 0u);
    EXPECT_EQ(result, NETCM_ERR_FAILURE);
    EXPECT_EQ(value, kUntouched);
}

TEST_F(Settings, a_link_that_cannot_be_repaired_is_the_result_itself) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet}) {
        EXPECT_EQ(ask(who, function, 1), NETCM_ERR_REREGISTER_FAILED);
        EXPECT_EQ(result, kUntouched);
        EXPECT_EQ(value, kUntouched);
    }
}

TEST_F(Settings, before_the_registration_the_result_is_6) {
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet}) {
        result = kUntouched;
        EXPECT_EQ(ask(user(0), function, 5), 0u);
        EXPECT_EQ(result, NETCM_ERR_NOT_REGISTERED);
        EXPECT_EQ(user(0).run([=, this] { return function(1, nullptr, &result); }), 0u);
        EXPECT_EQ(result, NETCM_ERR_NOT_REGISTERED);
    }
    EXPECT_TRUE(traced_in_order({{0, "Request to retrieve CM settings. Key = 5\n"},
                                 {2, "Cleint is not registered with CM\n"},
                                 {0, "Request to set CMsettings. Type = 5\n"},
                                 {2, "Cleint is not registered with CM\n"}}));
}

TEST_F(Settings, a_key_above_4_is_refused) {
    User& who = registered(0);
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet}) {
        for (const uint32_t key : {5u, 0xffffffffu}) {
            result = kUntouched;
            trace::clear();
            EXPECT_EQ(ask(who, function, key), 0u);
            EXPECT_EQ(result, NETCM_ERR_INVALID_PARAM);
            EXPECT_TRUE(traced_in_order(
                {{5, trace::text("Error.. Invalid settings type. Key = %d \n", static_cast<int>(key))}}));
        }
    }
    EXPECT_EQ(server.count(kGet) + server.count(kSet), 0u);
}

TEST_F(Settings, a_null_value_is_refused) {
    User& who = registered(0);
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet}) {
        result = kUntouched;
        trace::clear();
        EXPECT_EQ(who.run([=, this] { return function(5, nullptr, &result); }), 0u);
        EXPECT_EQ(result, NETCM_ERR_INVALID_PARAM);
        EXPECT_TRUE(traced_in_order({{5, "Error.. Invalid input parameter\n"}}));
        EXPECT_FALSE(trace::contains("Error.. Invalid settings type. Key = 5 \n"));
    }
}

TEST_F(Settings, with_a_null_result_nothing_is_done_registered_or_not) {
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet})
        EXPECT_EQ(user(0).run([=, this] { return function(0, &value, nullptr); }), 0u);
    User& who = registered(0);
    for (const Function function : {NetCMSettingsGet, NetCMSettingsSet})
        EXPECT_EQ(who.run([=, this] { return function(0, &value, nullptr); }), 0u);
    EXPECT_EQ(value, kUntouched);
    EXPECT_EQ(server.count(kGet) + server.count(kSet), 0u);
}

TEST_F(Settings, a_refusal_that_has_the_number_of_a_broken_link_is_a_refusal) {
    User& who = registered(0);
    server.on(kGet, refusal(kGet, NETCM_ERR_REREGISTER_FAILED));
    EXPECT_EQ(ask(who, NetCMSettingsGet, 1), 0u);
    EXPECT_EQ(result, NETCM_ERR_REREGISTER_FAILED);
    EXPECT_EQ(value, kUntouched);
}

}  // namespace
}  // namespace quorvel::test
