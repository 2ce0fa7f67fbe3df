// The answer to an asynchronous question for the profile that fits an application.
#include "CallTest.h"

namespace quorvel::test {
namespace {

constexpr int32_t kAppId = 4711;

wire::Record response(int32_t app_id, int32_t profile) {
    wire::Record record{};
    record.Code = wire::NETCM_CLIENT_PROPER_PROFILE_RSP;
    record.Status = 44;
    record.Word5 = static_cast<uint32_t>(app_id);
    record.Word6 = static_cast<uint32_t>(profile);
    record.Word7 = 7;
    record.Word8 = 8;
    record.Word9 = 9;
    return record;
}

class ProperProfile : public CallTest {
  protected:
    ProperProfile() {
        // Nothing resets these but their answers.
        for (NetCMProperProfReq& request : g_NetCMClientAppInfo.ProperProfReq)
            request = {0, -1, -1};
        registered(0);
        registered(1);
        trace::clear();
    }
    void ask(int place, int32_t tid, int32_t key = kAppId) {
        with_table([=](NetCMClientAppInfo& table) {
            table.ProperProfReq[place] = {1, tid, key};
            return 0;
        });
    }
    NetCMProperProfReq pending(int place) {
        return with_table([=](const NetCMClientAppInfo& table) { return table.ProperProfReq[place]; });
    }
    void expect_free(int place) {
        const NetCMProperProfReq request = pending(place);
        EXPECT_EQ(request.InUse, 0);
        EXPECT_EQ(request.ThreadId, -1);
        EXPECT_EQ(request.ReqKey, -1);
    }
};

TEST_F(ProperProfile, everybody_who_asked_is_told_and_nobody_else) {
    ask(0, user(1).tid());
    ask(1, user(1).tid());
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_PROPER_PROFILE_RSP, 12, 0},
                                         {1, NETCM_EVENT_PROPER_PROFILE_RSP, 12, 0}}));
    for (const Event& event : events::all())
        EXPECT_EQ(event.words, (std::vector<uint32_t>{44, kAppId, 12, 7, 8, 9}));
    expect_free(0);
    expect_free(1);
    EXPECT_TRUE(traced_in_order({{0, "Received proper profile response from server \n", kInternal},
                                 {0, "Proper profile rsp for app id : 4711 \n", kCore},
                                 {0, "Proper profile rsp for profile id : 12 \n", kCore}}));
    expect_all_on_receiver();
}

TEST_F(ProperProfile, the_walk_ends_at_the_first_that_asked_for_another_application) {
    ask(0, user(0).tid());
    ask(1, user(0).tid(), 5);
    ask(2, user(1).tid());
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_PROPER_PROFILE_RSP, 12, 0}}));
    expect_free(0);
    EXPECT_EQ(pending(1).ReqKey, 5);
    EXPECT_EQ(pending(2).ReqKey, kAppId);
}

TEST_F(ProperProfile, the_walk_ends_at_a_free_place) {
    ask(1, user(1).tid());
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_EQ(pending(1).InUse, 1);
}

TEST_F(ProperProfile, sixteen_that_asked_are_all_told) {
    for (int place = 0; place < NETCM_MAX_PROPER_PROFILES; ++place)
        ask(place, user(place % 2).tid());
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(events::of(0).size(), 8u);
    EXPECT_EQ(events::of(1).size(), 8u);
}

TEST_F(ProperProfile, one_that_has_left_costs_the_others_nothing) {
    ask(0, 123456789);
    ask(1, user(1).tid());
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_PROPER_PROFILE_RSP, 12, 0}}));
    expect_free(0);
}

TEST_F(ProperProfile, one_without_a_callback_is_skipped) {
    ask(0, user(0).tid());
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_and_settle(response(kAppId, 12)));
    EXPECT_EQ(events::count(), 0u);
    expect_free(0);
}

TEST_F(ProperProfile, a_free_place_is_nobodys_even_for_the_application_minus_one) {
    ASSERT_TRUE(push_and_settle(response(-1, 12)));
    EXPECT_EQ(events::count(), 0u);
}

TEST_F(ProperProfile, places_that_were_never_used_are_nobodys_either) {
    // As they are when the process starts.
    with_table([](NetCMClientAppInfo& table) {
        for (NetCMProperProfReq& request : table.ProperProfReq)
            request = {};
        return 0;
    });
    ASSERT_TRUE(push_and_settle(response(0, 12)));
    EXPECT_EQ(events::count(), 0u);
}

}  // namespace
}  // namespace quorvel::test
