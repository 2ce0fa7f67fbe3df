// The two forms of a document.
#include "Printer.h"

#include <gtest/gtest.h>

#include <sstream>

namespace quorvel::netcm {
namespace {

std::string text_of(const Json& document) {
    std::ostringstream out;
    Printer(out, Format::kText).result(document);
    return out.str();
}

TEST(NetcmPrinter, an_object_is_a_line_per_member_with_the_values_aligned) {
    EXPECT_EQ(
        text_of({{"id", 1}, {"dns_servers", {"1.2.3.4", "5.6.7.8"}}, {"default", true}, {"apn", nullptr}}),
        "ID           1\n"
        "DNS servers  1.2.3.4, 5.6.7.8\n"
        "default      yes\n"
        "APN          -\n");
}

TEST(NetcmPrinter, a_list_of_objects_is_a_table) {
    EXPECT_EQ(text_of({{{"id", 1}, {"name", "Zürich"}, {"apn", "internet"}}, {{"id", 12}, {"name", "x"}}}),
              "ID  name    APN\n"
              "1   Zürich  internet\n"
              "12  x       -\n");
}

TEST(NetcmPrinter, text_that_is_no_utf_8_is_shown_as_text) {
    const Json network{{"hex", "436166e90a"}};
    EXPECT_EQ(text_of({{"essid", network}, {"names", {"x", network}}}),
              "essid  Caf\\xe9\\x0a\n"
              "names  x, Caf\\xe9\\x0a\n");
}

TEST(NetcmPrinter, a_list_of_plain_values_is_a_line_each) {
    EXPECT_EQ(text_of({3, 5}), "3\n5\n");
}

TEST(NetcmPrinter, what_is_nested_stands_below_its_name) {
    EXPECT_EQ(text_of({{"id", 1}, {"security", {{"mode", "psk"}, {"psk", "***"}}}, {"status", 0}}),
              "ID      1\n"
              "status  0\n"
              "security:\n"
              "  mode  psk\n"
              "  PSK   ***\n");
}

TEST(NetcmPrinter, an_empty_list_says_so) {
    EXPECT_EQ(text_of({{"ids", Json::array()}}), "IDs  none\n");
    EXPECT_EQ(text_of(Json::array()), "none\n");
}

TEST(NetcmPrinter, control_characters_never_reach_the_terminal) {
    EXPECT_EQ(text_of({{"name", "a\x1b[2Jb\n"}}), "name  a\\x1b[2Jb\\x0a\n");
}

TEST(NetcmPrinter, json_replaces_what_is_no_utf_8) {
    std::ostringstream out;
    Printer(out, Format::kJson).result({{"name", "a\xff"}});
    EXPECT_EQ(Json::parse(out.str())["name"], "a\xEF\xBF\xBD");
}

TEST(NetcmPrinter, an_event_is_one_line_in_either_form) {
    const Json event{
        {"time", "T"}, {"event", "ip_change"}, {"profile_id", 3}, {"dns_servers", Json::array()}};
    std::ostringstream text;
    Printer(text, Format::kText).event(event);
    EXPECT_EQ(text.str(), "T  ip change        profile ID 3  DNS servers none\n");
    std::ostringstream json;
    Printer(json, Format::kJson).event(event);
    EXPECT_EQ(json.str(), event.dump() + "\n");
}

}  // namespace
}  // namespace quorvel::netcm
