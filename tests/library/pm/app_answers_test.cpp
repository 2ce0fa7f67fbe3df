// What the application-profile operations make of their arguments and of the answers.
#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

using testing::ElementsAre;

constexpr uint32_t kAppProfReq = wire::NETPM_APPPROF_REQ;
constexpr NetPMAppProf kAnswered = {11, 12, 13, {14, 15}};

class AppProfile : public PmTest {
  protected:
    void agree(uint32_t command, const NetPMAppProf& record = kAnswered) {
        server.on(kAppProfReq, Answer().record(app_record({0, 100 + command, 0, record, 0, 0})));
    }
    void refuse(uint32_t command) {
        server.on(kAppProfReq, Answer().record(app_record({0, 100 + command, 4242, kAnswered, 0, 0})));
    }
    void expect_refused_here(const char* message) {
        EXPECT_EQ(trace::find(message).mask, trace::kCaller) << message;
        EXPECT_EQ(server.count(kAppProfReq), 0u);
    }
    void expect_refused_here(uint32_t result, const char* message) {
        EXPECT_EQ(result, 19u) << message;
        expect_refused_here(message);
    }
};

TEST_F(AppProfile, an_application_id_below_1_is_answered_with_0_without_traffic) {
    for (const int32_t app : {0, -3}) {
        EXPECT_EQ(NetPMAppProfAddAppId(app), 0u);
        EXPECT_EQ(NetPMAppProfDeleteAppId(app), 0u);
        EXPECT_EQ(NetPMAppProfCheckAppId(app), 0u);
        EXPECT_EQ(trace::count("Invalid App ID [" + std::to_string(app) + "]\n"), 3u);
    }
    expect_refused_here("Invalid App ID [0]\n");
}

TEST_F(AppProfile, null_pointers_and_bad_ids_are_refused_without_traffic) {
    expect_refused_here(NetPMAppProfSetProfId(6, 0), "Invalid ProfileId [0]\n");
    expect_refused_here(NetPMAppProfSetProfId(6, -1), "Invalid ProfileId [-1]\n");
    expect_refused_here(NetPMAppProfGetProperProfile(6, nullptr), "Invalid ProfileId pointer\n");
    expect_refused_here(NetPMAppProfGetAppProfId(6, nullptr), "Invalid ProfileId pointer\n");
    expect_refused_here(NetPMAppProfSetNetIfaceList(6, nullptr), "Invalid NetIfaceList pointer\n");
    expect_refused_here(NetPMAppProfGetAppNetIfaceList(6, nullptr), "Invalid NetIfaceList pointer\n");
    expect_refused_here(NetPMAppProfSetAppInfo(6, nullptr), "Invalid AppProf pointer\n");
    expect_refused_here(NetPMAppProfGetAppInfo(6, nullptr), "Invalid AppProf pointer\n");
}

TEST_F(AppProfile, an_application_is_known_when_the_lower_half_of_the_answered_id_is_not_0) {
    agree(3, {1, 0, 0, {0, 0}});
    EXPECT_EQ(NetPMAppProfCheckAppId(6), 1u);
    agree(3, {0x10000, 0, 0, {0, 0}});
    EXPECT_EQ(NetPMAppProfCheckAppId(6), 0u);
    agree(3, {0, 0, 0, {0, 0}});
    EXPECT_EQ(NetPMAppProfCheckAppId(6), 0u);
    refuse(3);
    EXPECT_EQ(NetPMAppProfCheckAppId(6), 0u);
}

TEST_F(AppProfile, the_binding_is_the_answered_record) {
    agree(4);
    NetPMAppProf binding = {};
    EXPECT_EQ(NetPMAppProfGetAppInfo(6, &binding), 0u);
    EXPECT_EQ(bytes_of(binding), bytes_of(kAnswered));
}

// Whoever has the mutex next may act on what it sees.
TEST_F(AppProfile, results_are_there_before_the_mutex_is_given_back) {
    NetPMAppProf read = {};
    NetPMAppProf set = {60, 61, 62, {63, 64}};
    uint32_t proper = 0;
    std::vector<bool> are_there;
    const std::function<bool()> checks[] = {[&] { return bytes_of(read) == bytes_of(kAnswered); },
                                            [&] { return bytes_of(set) == bytes_of(kAnswered); },
                                            [&] { return proper == kAnswered.AppId; }};
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text.starts_with("Mutex unlocked by thread ["))
            are_there.push_back(checks[are_there.size()]());
    });
    agree(4);
    EXPECT_EQ(NetPMAppProfGetAppInfo(6, &read), 0u);
    agree(5);
    EXPECT_EQ(NetPMAppProfSetAppInfo(6, &set), 0u);
    agree(8);
    EXPECT_EQ(NetPMAppProfGetProperProfile(6, &proper), 0u);
    EXPECT_THAT(are_there, ElementsAre(true, true, true));
}

TEST_F(AppProfile, the_interfaces_are_0_before_they_are_asked_for) {
    uint32_t list[2] = {7, 8};
    std::vector<uint32_t> while_asking;
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text == "App-Profile cmd = 4\n")
            while_asking = {list[0], list[1]};
    });
    agree(4);
    EXPECT_EQ(NetPMAppProfGetAppNetIfaceList(6, list), 0u);
    EXPECT_THAT(while_asking, ElementsAre(0, 0));
    EXPECT_THAT(list, ElementsAre(14, 15));
}

TEST_F(AppProfile, a_binding_that_cannot_be_read_leaves_the_callers_record_alone) {
    const NetPMAppProf original = {60, 61, 62, {63, 64}};
    NetPMAppProf binding = original;
    refuse(4);
    EXPECT_EQ(NetPMAppProfGetAppInfo(6, &binding), 4242u);
    EXPECT_EQ(bytes_of(binding), bytes_of(original));
    agree(5);
    EXPECT_EQ(NetPMAppProfGetAppInfo(6, &binding), 1u);
    EXPECT_EQ(bytes_of(binding), bytes_of(original));
    server.on(kAppProfReq, hang_up());
    EXPECT_EQ(NetPMAppProfGetAppInfo(6, &binding), 1u);
    EXPECT_EQ(bytes_of(binding), bytes_of(original));
}

TEST_F(AppProfile, a_set_binding_comes_back_as_it_was_stored) {
    agree(5);
    NetPMAppProf binding = {60, 61, 62, {63, 64}};
    EXPECT_EQ(NetPMAppProfSetAppInfo(6, &binding), 0u);
    EXPECT_EQ(bytes_of(binding), bytes_of(kAnswered));
}

TEST_F(AppProfile, a_refused_binding_is_left_as_it_was) {
    refuse(5);
    const NetPMAppProf original = {60, 61, 62, {63, 64}};
    NetPMAppProf binding = original;
    EXPECT_EQ(NetPMAppProfSetAppInfo(6, &binding), 4242u);
    EXPECT_EQ(bytes_of(binding), bytes_of(original));
}

TEST_F(AppProfile, the_bound_profile_is_that_of_the_answered_record) {
    agree(4);
    uint32_t profile = 0;
    EXPECT_EQ(NetPMAppProfGetAppProfId(6, &profile), 0u);
    EXPECT_EQ(profile, 13u);
}

TEST_F(AppProfile, a_refusal_leaves_no_profile) {
    refuse(4);
    uint32_t profile = 0;
    EXPECT_EQ(NetPMAppProfGetAppProfId(6, &profile), 4242u);
    EXPECT_EQ(profile, 0xFFFFFFFFu);
}

TEST_F(AppProfile, the_interfaces_are_those_of_the_answered_record) {
    agree(4);
    uint32_t list[2] = {};
    EXPECT_EQ(NetPMAppProfGetAppNetIfaceList(6, list), 0u);
    EXPECT_THAT(list, ElementsAre(14, 15));
}

TEST_F(AppProfile, a_refusal_leaves_no_interfaces) {
    refuse(4);
    uint32_t list[2] = {1, 2};
    EXPECT_EQ(NetPMAppProfGetAppNetIfaceList(6, list), 4242u);
    EXPECT_THAT(list, ElementsAre(0, 0));
}

TEST_F(AppProfile, the_proper_profile_stands_in_the_answered_application_word) {
    agree(8);
    uint32_t profile = 0;
    EXPECT_EQ(NetPMAppProfGetProperProfile(6, &profile), 0u);
    EXPECT_EQ(profile, 11u);
}

TEST_F(AppProfile, a_proper_profile_that_nobody_tells_leaves_the_callers_word_alone) {
    uint32_t profile = 55;
    refuse(8);
    EXPECT_EQ(NetPMAppProfGetProperProfile(6, &profile), 4242u);
    EXPECT_EQ(profile, 55u);
    agree(4);
    EXPECT_EQ(NetPMAppProfGetProperProfile(6, &profile), 1u);
    EXPECT_EQ(profile, 55u);
    server.on(kAppProfReq, hang_up());
    EXPECT_EQ(NetPMAppProfGetProperProfile(6, &profile), 1u);
    EXPECT_EQ(profile, 55u);
}

TEST_F(AppProfile, a_payment_change_traces_both_codes) {
    agree(10);
    EXPECT_EQ(NetPMAppProfChangePayment("VGR", "PRE"), 0u);
    EXPECT_TRUE(trace::contains_in_order({"Received CSC[8], Payment[1]\n", "App-Profile cmd = 10\n"}));
    EXPECT_EQ(NetPMAppProfChangePayment("VOD", "POST"), 0u);
    EXPECT_TRUE(trace::contains("Received CSC[9], Payment[0]\n"));
}

TEST_F(AppProfile, payment_words_are_exact) {
    const char* const kBad[][2] = {{nullptr, "PRE"}, {"VGR", nullptr}, {"VODA", "PRE"}, {"VO", "PRE"},
                                   {"vgr", "PRE"},   {"", "PRE"},      {"VGR", "pre"},  {"VGR", "POSTS"},
                                   {"VGR", ""},      {"XXX", "POST"}};
    for (const auto& [csc, payment] : kBad)
        expect_refused_here(NetPMAppProfChangePayment(csc, payment), "Invalid Parameter\n");
    EXPECT_EQ(trace::count("Invalid Parameter\n"), std::size(kBad));
}

}  // namespace
}  // namespace quorvel::test
