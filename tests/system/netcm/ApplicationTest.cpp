// netcm app against the real server and its store.
#include <gmock/gmock.h>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

class NetcmApp : public ::testing::Test {
  protected:
    CmServer server{"", {"--db", ":memory:"}};
};

TEST_F(NetcmApp, is_added_checked_and_deleted) {
    EXPECT_EQ(netcm_json({"app", "check", "7"}), json({{"app_id", 7}, {"known", false}}));
    netcm_json({"app", "add", "7"});
    EXPECT_EQ(netcm_json({"app", "check", "7"})["known"], true);
    const Ended again = netcm({"app", "add", "7"});
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.err, HasSubstr("netcm: cannot add application 7: refused"));
    netcm_json({"app", "delete", "7"});
    EXPECT_EQ(netcm({"app", "delete", "7"}).status, 1);
    EXPECT_EQ(netcm_json({"app", "check", "7"})["known"], false);
}

TEST_F(NetcmApp, is_bound_to_a_profile_and_to_interfaces) {
    netcm_json({"app", "add", "7"});
    EXPECT_EQ(netcm_json({"app", "show", "7"})["profile_id"], nullptr);
    EXPECT_EQ(netcm_json({"app", "bind", "7", "1"})["profile_id"], 1);
    EXPECT_EQ(netcm_json({"app", "interfaces", "7", "wifi", "pdp"})["interfaces"], json({"wifi", "pdp"}));
    EXPECT_EQ(netcm_json({"app", "interfaces", "7"})["interfaces"], json({"wifi", "pdp"}));
    // Each leaves the other as it is.
    EXPECT_EQ(netcm_json({"app", "show", "7"}),
              json({{"app_id", 7}, {"profile_id", 1}, {"interfaces", {"wifi", "pdp"}}}));
}

TEST_F(NetcmApp, learns_its_proper_profile_at_once_or_by_an_event) {
    netcm_json({"app", "add", "7"});
    netcm_json({"app", "bind", "7", "1"});
    EXPECT_EQ(netcm_json({"app", "proper", "7"}), json({{"app_id", 7}, {"profile_id", 1}}));
    const json event = netcm_json({"app", "proper", "7", "--async"});
    EXPECT_EQ(event["event"], "proper_profile");
    EXPECT_EQ(event["profile_id"], 1);
    EXPECT_EQ(event["app_id"], 7);
}

TEST_F(NetcmApp, that_nobody_knows_is_refused) {
    for (const std::vector<std::string>& words : {std::vector<std::string>{"app", "show", "9"},
                                                  {"app", "bind", "9", "1"},
                                                  {"app", "interfaces", "9"}}) {
        const Ended ended = netcm(words);
        EXPECT_EQ(ended.status, 1) << ::testing::PrintToString(words);
        EXPECT_THAT(ended.err, HasSubstr("PM_ERR_UNKNOWN_APPLICATION (113)"));
    }
}

TEST_F(NetcmApp, payment_takes_two_codes) {
    EXPECT_EQ(netcm_json({"app", "payment", "VOD", "PRE"}), json({{"csc", "VOD"}, {"payment", "PRE"}}));
    EXPECT_EQ(netcm({"app", "payment", "VODA", "PRE"}).status, 2);
    EXPECT_EQ(netcm({"app", "payment", "VGR", "pre"}).status, 2);
}

TEST_F(NetcmApp, an_id_below_1_is_wrong_usage) {
    EXPECT_EQ(netcm({"app", "add", "0"}).status, 2);
}

}  // namespace
}  // namespace quorvel::test
