// netcm profile against the real server and its store.
#include <gmock/gmock.h>

#include <quorvel/NetPM.h>

#include <fstream>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class NetcmProfile : public ::testing::Test {
  protected:
    CmServer server{"", {"--db", ":memory:"}};

    // Its id.
    std::string add(Words options) {
        options.insert(options.begin(), {"profile", "add"});
        return std::to_string(netcm_json(options)["profile_id"].get<int>());
    }
    json show(const std::string& id) { return netcm_json({"profile", "show", id, "--show-secrets"}); }
};

void write_file(const json& content) {
    std::ofstream("/tmp/profile.json") << content;
}

void expect_failure(const Words& words, const std::string& why) {
    const Ended ended = netcm(words);
    EXPECT_EQ(ended.status, 1) << ::testing::PrintToString(words);
    EXPECT_EQ(ended.err, "netcm: " + why + "\n");
}

TEST_F(NetcmProfile, add_takes_options_and_fills_in_what_follows_from_them) {
    const json pdp = show(add({"--name", "Cellular", "--apn", "internet", "--dns", "192.0.2.1,192.0.2.2",
                               "--user-name", "me", "--password", "secret"}));
    EXPECT_EQ(pdp["type"], "pdp");
    EXPECT_EQ(pdp["name"], "Cellular");
    EXPECT_EQ(pdp["apn"], "internet");
    EXPECT_EQ(pdp["dns"], json({"192.0.2.1", "192.0.2.2"}));
    EXPECT_EQ(pdp["static_dns"], true);
    EXPECT_EQ(pdp["static_address"], false);
    EXPECT_EQ(pdp["app_protocol"], 1);
    EXPECT_EQ(pdp["password"], "secret");
    EXPECT_EQ(pdp["proxy"], "0.0.0.0:80");
    EXPECT_FALSE(pdp.contains("essid"));

    const json wlan = show(add({"--name", "Home", "--essid", "my network", "--psk", "correct horse"}));
    EXPECT_EQ(wlan["type"], "wlan");
    EXPECT_EQ(wlan["security_mode"], 4);
    EXPECT_EQ(wlan["psk"], "correct horse");
    EXPECT_FALSE(wlan.contains("apn"));
    EXPECT_FALSE(wlan.contains("wep_keys"));
}

TEST_F(NetcmProfile, show_prints_what_add_reads) {
    const std::string first = add({"--name", "WEP", "--essid", "e", "--wep-keys", "one,two",
                                   "--wep-key-index", "1", "--address", "192.0.2.9"});
    json shown = show(first);
    write_file(shown);
    json again = show(add({"--file", "/tmp/profile.json"}));
    EXPECT_NE(again["profile_id"], shown["profile_id"]);
    again.erase("profile_id");
    shown.erase("profile_id");
    EXPECT_EQ(again, shown);
    EXPECT_EQ(shown["wep_keys"], json({"one", "two"}));
}

TEST_F(NetcmProfile, an_option_outdoes_the_file) {
    write_file({{"name", "File"}, {"apn", "file"}});
    const json profile = show(add({"--file", "/tmp/profile.json", "--apn", "option"}));
    EXPECT_EQ(profile["name"], "File");
    EXPECT_EQ(profile["apn"], "option");
}

TEST_F(NetcmProfile, secrets_are_masked_unless_they_are_asked_for) {
    const std::string id = add({"--name", "Home", "--essid", "e", "--psk", "correct horse"});
    EXPECT_EQ(netcm_json({"profile", "show", id})["psk"], "********");
    EXPECT_THAT(netcm({"profile", "show", id}).out, AllOf(HasSubstr("PSK"), Not(HasSubstr("correct"))));
    EXPECT_THAT(netcm({"profile", "show", id, "--show-secrets"}).out, HasSubstr("correct horse"));
}

TEST_F(NetcmProfile, a_masked_secret_is_never_stored) {
    const std::string id = add({"--name", "Home", "--essid", "e", "--psk", "correct horse"});
    write_file(netcm_json({"profile", "show", id}));
    const std::string why = "psk is masked: take a profile that was shown with --show-secrets";
    expect_failure({"profile", "add", "--file", "/tmp/profile.json"}, why);
    expect_failure({"profile", "edit", id, "--file", "/tmp/profile.json"}, why);
    EXPECT_EQ(show(id)["psk"], "correct horse");
}

TEST_F(NetcmProfile, no_secret_is_in_what_is_traced) {
    write_file({{"name", "File"}, {"essid", "e"}, {"wep_keys", {"hidden secret"}}});
    const auto traced = [](const Words& words) {
        const Ended ended = run(Words{"env", "QUORVEL_TRACE=all"} + netcm_command(words));
        EXPECT_EQ(ended.status, 0) << ended.err;
        EXPECT_THAT(ended.err, HasSubstr("PM/src/NetPMReqRsp"));
        EXPECT_THAT(ended.out + ended.err, Not(HasSubstr("hidden")));
        return ended.out;
    };
    traced({"profile", "add", "--file", "/tmp/profile.json"});
    const std::string id =
        json::parse(traced({"profile", "add", "--name", "A", "--apn", "a", "--password", "hidden", "--json"}))
            .at("profile_id")
            .dump();
    traced({"profile", "show", id});
    traced({"profile", "edit", id, "--password", "hidden again"});
    traced({"profile", "default", id});
    traced({"profile", "show", "--json"});
}

TEST_F(NetcmProfile, edit_changes_the_fields_given_and_no_other) {
    const std::string id = add({"--name", "Home", "--essid", "e", "--psk", "correct horse", "--rate", "54"});
    netcm_json({"profile", "edit", id, "--name", "Garden"});
    json profile = show(id);
    EXPECT_EQ(profile["name"], "Garden");
    EXPECT_EQ(profile["psk"], "correct horse");
    EXPECT_EQ(profile["rate"], 54);
    // With another security mode the old one's secrets are gone.
    netcm_json({"profile", "edit", id, "--security-mode", "5", "--eap-password", "x"});
    profile = show(id);
    EXPECT_EQ(profile["eap_password"], "x");
    EXPECT_EQ(profile["eap_user_name"], "");
    EXPECT_FALSE(profile.contains("psk"));
    EXPECT_EQ(profile["rate"], 54);
}

TEST_F(NetcmProfile, edit_takes_the_fields_of_a_file_and_what_options_say_instead) {
    const std::string id = add({"--name", "Home", "--essid", "e", "--psk", "correct horse", "--rate", "54"});
    write_file({{"profile_id", 99}, {"name", "File"}, {"rate", 11}, {"bssid", nullptr}});
    EXPECT_EQ(netcm_json({"profile", "edit", id, "--file", "/tmp/profile.json", "--name", "Option"}),
              json({{"profile_id", std::stoi(id)}}));
    const json profile = show(id);
    EXPECT_EQ(profile["name"], "Option");
    EXPECT_EQ(profile["rate"], 11);
    EXPECT_EQ(profile["psk"], "correct horse");
    EXPECT_EQ(profile["essid"], "e");
}

TEST_F(NetcmProfile, edit_refuses_what_would_be_no_profile_and_changes_nothing) {
    const std::string id = add({"--name", "Home", "--essid", "e", "--psk", "correct horse"});
    const json before = show(id);
    const auto expect_refused = [&](const Words& words, const std::string& why) {
        expect_failure(Words{"profile", "edit", id} + words, why);
        EXPECT_EQ(show(id), before);
    };
    expect_refused({}, "nothing to change: name fields, or a file with --file");
    expect_refused({"--name", ""}, "a profile needs a name");
    expect_refused({"--apn", "a"}, "apn does not belong to a wlan profile with security mode 4");
    expect_refused({"--wep-keys", "w"}, "wep_keys does not belong to a wlan profile with security mode 4");
    expect_refused({"--security-mode", "0"}, "security_mode must be 1 to 9");
    expect_refused({"--type", "pdp"}, "app_protocol must be 1, 2 or 4");
    write_file({{"colour", "red"}});
    expect_refused({"--file", "/tmp/profile.json"}, "a profile has no colour");
    EXPECT_EQ(netcm({"profile", "edit", id, "--rate", "fast"}).status, 2);
    EXPECT_EQ(netcm({"profile", "edit"}).status, 2);
    EXPECT_THAT(netcm({"profile", "edit", "77", "--rate", "1"}).err,
                HasSubstr("cannot read profile 77: PM_ERR_UNKNOWN_PROFILE"));
}

TEST_F(NetcmProfile, a_network_name_of_any_bytes_is_kept) {
    const std::string id = add({"--name", "Home", "--essid", "Caf\xe9"});
    const json shown = show(id);
    EXPECT_EQ(shown["essid"], json({{"hex", "436166e9"}}));
    EXPECT_THAT(netcm({"profile", "show", id}).out, HasSubstr("Caf\\xe9\n"));
    EXPECT_EQ(netcm_json({"profile", "list", "--type", "wlan"})[0]["network"], shown["essid"]);
    write_file(shown);
    EXPECT_EQ(show(add({"--file", "/tmp/profile.json"}))["essid"], shown["essid"]);
    EXPECT_EQ(netcm_json({"profile", "find", "--essid", "Caf\xe9"}).size(), 2u);
}

TEST(NetcmProfileList, of_as_many_profiles_as_are_listed_says_that_there_may_be_more) {
    std::string config;
    for (int i = 0; i < NETPM_MAX_PARTIAL_PROFILES - 1; ++i) {
        config += "[[profile]]\nname = \"p\"\napn = \"a\"\n";
    }
    const CmServer server(config, {"--db", ":memory:"});
    EXPECT_EQ(netcm({"profile", "list"}).err, "");
    netcm({"profile", "add", "--name", "last", "--apn", "a"});
    const std::string warning =
        "netcm: these are 20 pdp profiles, as many as are listed at a time; there may be more\n";
    EXPECT_EQ(netcm({"profile", "list"}).err, warning);
    EXPECT_EQ(netcm({"profile", "list", "--ids"}).err, warning);
    EXPECT_EQ(netcm({"profile", "list", "--type", "wlan"}).err, "");
}

TEST_F(NetcmProfile, list_shows_both_types_and_the_default) {
    const std::string id = add({"--name", "Home", "--essid", "my network"});
    json list = netcm_json({"profile", "list"});
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0], json({{"profile_id", 1},
                             {"type", "pdp"},
                             {"name", "local"},
                             {"network", "local"},
                             {"default", true}}));
    EXPECT_EQ(list[1]["network"], "my network");
    EXPECT_EQ(list[1]["default"], false);
    EXPECT_EQ(netcm_json({"profile", "list", "--ids"}), json({1, std::stoi(id)}));
    EXPECT_EQ(netcm_json({"profile", "list", "--type", "wlan"}), json::array({list[1]}));
}

TEST_F(NetcmProfile, default_is_read_and_changed) {
    EXPECT_EQ(netcm_json({"profile", "default"}), json({{"profile_id", 1}}));
    const std::string id = add({"--name", "Other", "--apn", "other"});
    EXPECT_EQ(netcm_json({"profile", "default", id}), json({{"profile_id", std::stoi(id)}}));
    EXPECT_EQ(netcm_json({"profile", "show"})["name"], "Other");
}

TEST_F(NetcmProfile, find_by_access_point_or_network_name) {
    const std::string pdp = add({"--name", "A", "--apn", "somewhere"});
    const std::string wlan = add({"--name", "B", "--essid", "some where"});
    EXPECT_EQ(netcm_json({"profile", "find", "--apn", "somewhere"}), json({std::stoi(pdp)}));
    EXPECT_EQ(netcm_json({"profile", "find", "--essid", "some where"}), json({std::stoi(wlan)}));
    EXPECT_EQ(netcm_json({"profile", "find", "--apn", "nowhere"}), json::array());
    EXPECT_EQ(netcm({"profile", "find"}).status, 2);
}

TEST_F(NetcmProfile, delete_and_restore) {
    const std::string id = add({"--name", "Short", "--apn", "lived"});
    netcm_json({"profile", "delete", id});
    const Ended gone = netcm({"profile", "show", id});
    EXPECT_EQ(gone.status, 1);
    EXPECT_THAT(gone.err, HasSubstr("cannot read profile " + id + ": "));
    add({"--name", "Another", "--apn", "one"});
    EXPECT_EQ(netcm_json({"profile", "restore"}), json({1}));
}

TEST_F(NetcmProfile, attributes_and_status) {
    const std::string id = add({"--name", "A", "--apn", "a", "--attributes", "4294967295"});
    EXPECT_EQ(netcm_json({"profile", "attributes", id})["attributes"], 4294967295u);
    EXPECT_EQ(netcm_json({"profile", "status", id})["status"], 0);
}

TEST_F(NetcmProfile, a_refusal_is_named_as_the_server_names_it) {
    for (const char* command : {"show", "delete", "attributes", "status", "default"}) {
        const Ended ended = netcm({"profile", command, "77"});
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.err, HasSubstr("PM_ERR_UNKNOWN_PROFILE (103): there is no profile with this id"))
            << command;
    }
}

// All of it is found before anything is sent: there is no server.
TEST(NetcmProfileInput, impossible_options_are_wrong_usage) {
    const std::vector<Words> wrong{
        {"--dns", "1.2.3"},       {"--dns", "1.2.3.4,x"},    {"--name", "a name of twenty-eight bytes"},
        {"--rate", "fast"},       {"--rate", "2147483648"},  {"--attributes", "-1"},
        {"--wep-key-index", "4"}, {"--static-dns", "maybe"}, {"--proxy", "proxy.example:80"},
        {"--type", "lan"}};
    for (const Words& words : wrong) {
        const Ended ended = netcm(Words{"profile", "add", "--name", "x"} + words);
        EXPECT_EQ(ended.status, 2) << ::testing::PrintToString(words);
    }
}

TEST(NetcmProfileInput, no_secret_is_in_a_complaint_about_an_option) {
    const std::string secret = "hidden" + std::string(80, 'x');
    for (const char* option : {"--psk", "--password", "--eap-password", "--eap-key-password", "--wep-keys"}) {
        const Ended ended = netcm({"profile", "add", "--name", "n", option, secret});
        EXPECT_EQ(ended.status, 2);
        EXPECT_THAT(ended.err, AllOf(HasSubstr("\"********\" has 86 bytes"), Not(HasSubstr("hidden"))));
    }
}

void expect_refused(const Words& words, const std::string& why) {
    expect_failure(Words{"profile", "add"} + words, why);
}

TEST(NetcmProfileInput, fields_that_do_not_go_together_are_named) {
    expect_refused({"--apn", "a"}, "a profile needs a name");
    expect_refused({"--name", "n", "--type", "wlan"}, "a wlan profile needs an essid");
    expect_refused({"--name", "n", "--apn", "a", "--essid", "e"},
                   "apn does not belong to a wlan profile with security mode 1");
    expect_refused({"--name", "n", "--type", "pdp", "--essid", "e"},
                   "essid does not belong to a pdp profile");
    expect_refused({"--name", "n", "--essid", "e", "--security-mode", "1", "--psk", "secret"},
                   "psk does not belong to a wlan profile with security mode 1");
    expect_refused({"--name", "n", "--essid", "e", "--security-mode", "10"}, "security_mode must be 1 to 9");
    expect_refused({"--name", "n", "--app-protocol", "3"}, "app_protocol must be 1, 2 or 4");
    expect_refused({"--name", "n", "--dns", "1.1.1.1,2.2.2.2,3.3.3.3"}, "dns takes at most 2 values");
}

void expect_file_refused(const json& content, const std::string& why) {
    write_file(content);
    expect_refused({"--file", "/tmp/profile.json"}, why);
}

TEST(NetcmProfileInput, a_wrong_file_is_explained) {
    expect_file_refused({{"name", "n"}, {"colour", "red"}}, "a profile has no colour");
    expect_file_refused({{"name", 5}}, "name: 5 is of the wrong kind");
    expect_file_refused({{"name", "n"}, {"rate", "54"}}, "rate: \"54\" is of the wrong kind");
    expect_file_refused({{"name", "n"}, {"static_dns", "yes"}}, "static_dns: \"yes\" is of the wrong kind");
    expect_file_refused({{"name", "n"}, {"attributes", 4294967296}},
                        "attributes: \"4294967296\" is no number from 0 to 4294967295");
    expect_file_refused({{"name", json::array()}}, "name takes one value");
    expect_file_refused({{"name", "n"}, {"apn", std::string(104, 'a')}},
                        "apn: \"" + std::string(104, 'a') + "\" has 104 bytes, and there is room for 103");
    expect_file_refused({{"name", "n"}, {"essid", {{"hex", "4"}}}},
                        "essid: {\"hex\":\"4\"} is of the wrong kind");
    expect_file_refused({{"name", {{"hex", "00"}}}}, "name: \"\\x00\" holds a zero byte");
    expect_file_refused(json::array(), "a profile is a JSON object");
    expect_refused({"--file", "/tmp/nosuch"}, "cannot read /tmp/nosuch: No such file or directory");
}

TEST(NetcmProfileInput, no_secret_is_in_a_complaint_about_a_file) {
    const std::string secret = "hidden" + std::string(80, 'x');
    expect_file_refused({{"name", "n"}, {"psk", secret}, {"essid", "e"}},
                        "psk: \"********\" has 86 bytes, and there is room for 64");
    expect_file_refused({{"name", "n"}, {"essid", "e"}, {"wep_keys", {"good", secret}}},
                        "wep_keys: \"********\" has 86 bytes, and there is room for 26");
    expect_file_refused({{"name", "n"}, {"password", 12345678}}, "password: ******** is of the wrong kind");
    expect_file_refused({{"name", "n"}, {"psk", {{"hidden", 1}}}}, "psk: ******** is of the wrong kind");
    std::ofstream("/tmp/profile.json") << "{\n\"name\": \"n\",\n\"psk\": \"hidden\" \"hidden\"\n}\n";
    expect_refused({"--file", "/tmp/profile.json"}, "/tmp/profile.json is no JSON: see line 3");
    std::ofstream("/tmp/profile.json") << "{";
    expect_refused({"--file", "/tmp/profile.json"}, "/tmp/profile.json is no JSON: see line 1");
}

TEST(ExampleProfile, prints_the_profile_that_it_has_added_and_deletes_it) {
    CmServer server;
    for (const char* id : {"2", "3"}) {
        const Ended ended = run({EXAMPLE_PROFILE_PATH});
        EXPECT_EQ(ended.status, 0) << ended.err;
        EXPECT_EQ(ended.out,
                  std::string("profile  ") + id + "\nname     Picture messages\nproxy    192.0.2.8:8080\n");
    }
}

}  // namespace
}  // namespace quorvel::test
