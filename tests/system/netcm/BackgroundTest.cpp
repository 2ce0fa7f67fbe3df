// The background lookups of netcm, with a library that runs out of something.
#include <gmock/gmock.h>

#include "library/dns/Profiles.h"
#include "library/dns/Responder.h"
#include "resolve/Background.h"
#include "support/LibraryCalls.h"

namespace quorvel::test {
namespace {

using dns::kProfile;
using netcm::Answer;
using netcm::Progress;
using ::testing::ElementsAre;

class NetcmBackground : public dns::ProfileTest {
  protected:
    NetcmBackground() { dns::open_profile("lo", "127.0.0.1"); }

    static std::vector<Answer> look_up(const std::vector<std::string>& names, int profile = kProfile) {
        std::vector<Answer> answers;
        const netcm::NameServers servers{{"127.0.0.1", "127.0.0.2"}, "lo"};
        netcm::look_up_in_background(profile, servers, names, [&](const Answer& answer, Progress progress) {
            answers.push_back(answer);
            EXPECT_EQ(progress.done, answers.size());
            EXPECT_EQ(progress.all, names.size());
        });
        return answers;
    }

    dns::Responder responder_{dns::answer_with("192.0.2.1")};
};

TEST_F(NetcmBackground, names_both_servers_of_a_profile) {
    const auto answers = look_up({"www.test"});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].source, "127.0.0.1 or 127.0.0.2");
    EXPECT_THAT(answers[0].addresses, ElementsAre("192.0.2.1"));
}

TEST_F(NetcmBackground, a_name_without_a_thread_holds_back_no_other) {
    calls::fail(Call::ThreadCreate);
    const auto answers = look_up({"first.test", "second.test"});
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0].asked, "first.test");
    EXPECT_EQ(answers[0].error, "there is no memory or no thread for the lookup");
    EXPECT_EQ(answers[1].asked, "second.test");
    EXPECT_EQ(answers[1].error, "");
}

TEST_F(NetcmBackground, a_name_without_memory_is_not_asked_for_again) {
    calls::fail(Call::Malloc, 3);  // behind the entry in the list of names and its text
    const auto answers = look_up({"first.test", "second.test"});
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    EXPECT_EQ(answers[0].error, "there is no memory or no thread for the lookup");
    EXPECT_EQ(answers[1].error, "");
}

TEST_F(NetcmBackground, a_connection_that_ends_during_a_lookup_is_the_reason) {
    dns::set_active(0, false);
    const auto answers = look_up({"www.test"});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].error, "the connection has ended");
}

TEST_F(NetcmBackground, a_connection_that_has_ended_refuses_every_name) {
    constexpr int kUnused = 2;
    const auto answers = look_up({"www.test", "localhost", "other.test"}, kUnused);
    ASSERT_EQ(answers.size(), 3u);
    for (const Answer& answer : answers) {
        EXPECT_EQ(answer.error, answer.asked == "localhost" ? "" : "the connection has ended");
    }
}

TEST_F(NetcmBackground, a_hundred_names_are_each_answered_once) {
    std::vector<std::string> names;
    for (int i = 0; i < 100; ++i) {
        names.push_back("www" + std::to_string(i % 40) + ".test");
    }
    std::vector<std::string> asked;
    for (const Answer& answer : look_up(names)) {
        EXPECT_EQ(answer.name, answer.asked) << answer.error;
        asked.push_back(answer.asked);
    }
    EXPECT_THAT(asked, ::testing::UnorderedElementsAreArray(names));
}

}  // namespace
}  // namespace quorvel::test
