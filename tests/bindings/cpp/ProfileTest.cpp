// Profiles by their names, to the store and back.
#include "Bound.h"

namespace quorvel::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

Address address(const char* text) {
    return Address::parse(text).value();
}

class CppProfile : public Bound {
  protected:
    Profiles profiles = registration.profiles();
};

TEST_F(CppProfile, for_packet_data_keep_every_field) {
    PacketData mail;
    mail.apn = "mail.example";
    mail.protocol_type = 1;
    mail.address_type = 2;
    mail.static_address = address("10.1.2.3");
    mail.static_dns = {address("10.0.0.1"), address("10.0.0.2")};
    mail.auth_type = 2;
    mail.user_name = "user";
    mail.password = "secret";
    mail.gateway = address("10.1.2.1");
    mail.net_mask = address("255.255.255.0");
    mail.home_url = "http://mail.example/";
    mail.secure_connection = true;
    mail.app_protocol = 2;
    mail.linger_time = -3;
    mail.primary = true;
    mail.primary_profile = 1;
    mail.qos_type = 4;
    mail.traffic_class = 5;
    Profile profile;
    profile.name = "Mail";
    profile.attributes = 6;
    profile.proxy = "010.001.000.255:0080";
    profile.network = mail;
    const std::int32_t id = profiles.add(profile);
    ASSERT_GT(id, 0);

    const Profile stored = profiles.get(id);
    EXPECT_EQ(stored.id, id);
    EXPECT_EQ(stored.name, "Mail");
    EXPECT_EQ(stored.attributes, 6u);
    EXPECT_EQ(stored.proxy, "10.1.0.255:80");
    const auto& read = std::get<PacketData>(stored.network);
    EXPECT_EQ(read.apn, mail.apn);
    EXPECT_EQ(read.protocol_type, 1u);
    EXPECT_EQ(read.address_type, 2u);
    EXPECT_EQ(read.static_address, mail.static_address);
    EXPECT_EQ(read.static_dns, mail.static_dns);
    EXPECT_EQ(read.auth_type, 2u);
    EXPECT_EQ(read.user_name, "user");
    EXPECT_EQ(read.password, "secret");
    EXPECT_EQ(read.gateway, mail.gateway);
    EXPECT_EQ(read.net_mask, mail.net_mask);
    EXPECT_EQ(read.home_url, mail.home_url);
    EXPECT_TRUE(read.secure_connection);
    EXPECT_EQ(read.app_protocol, 2u);
    EXPECT_EQ(read.linger_time, -3);
    EXPECT_TRUE(read.primary);
    EXPECT_EQ(read.primary_profile, 1);
    EXPECT_EQ(read.qos_type, 4u);
    EXPECT_EQ(read.traffic_class, 5u);
}

TEST_F(CppProfile, for_wifi_keep_every_field_and_form_of_security) {
    Wep wep;
    wep.keys = {"one", "two", "three", "four"};
    wep.key_index = 3;
    Eap eap{"user", "password", "ca.pem", "client.pem", "key.pem", "of the key", 25};
    Wifi home;
    home.essid = std::string(32, 'e');
    home.bssid = "abcdef";
    home.frequency = 2412;
    home.rate = 54;
    home.standard = 1;
    home.mode = 2;
    home.encryption_mode = 3;
    home.address_type = 1;
    home.ip_config_type = 2;
    home.address = address("192.0.2.9");
    home.gateway = address("192.0.2.1");
    home.net_mask = address("255.255.255.0");
    home.dns_config_type = 1;
    home.dns = {address("192.0.2.2"), address("192.0.2.3")};
    home.interface = "wlan0";
    home.security = wep;
    Profile profile;
    profile.name = "Home";
    profile.network = home;
    profile.id = profiles.add(profile);

    auto read = std::get<Wifi>(profiles.get(profile.id).network);
    EXPECT_EQ(read.essid, home.essid);
    EXPECT_EQ(read.bssid, "abcdef");
    EXPECT_EQ(read.frequency, 2412);
    EXPECT_EQ(read.rate, 54);
    EXPECT_EQ(read.standard, 1);
    EXPECT_EQ(read.mode, 2);
    EXPECT_EQ(read.encryption_mode, 3);
    EXPECT_EQ(read.address_type, 1);
    EXPECT_EQ(read.ip_config_type, 2);
    EXPECT_EQ(read.address, home.address);
    EXPECT_EQ(read.gateway, home.gateway);
    EXPECT_EQ(read.net_mask, home.net_mask);
    EXPECT_EQ(read.dns_config_type, 1);
    EXPECT_EQ(read.dns, home.dns);
    EXPECT_EQ(read.interface, "wlan0");
    EXPECT_EQ(read.security_mode, 2);
    EXPECT_EQ(std::get<Wep>(read.security).keys, wep.keys);
    EXPECT_EQ(std::get<Wep>(read.security).key_index, 3);

    // Another form takes its place, and nothing of the one before is left.
    profile = profiles.get(profile.id);
    std::get<Wifi>(profile.network).security = Psk{"passphrase"};
    std::get<Wifi>(profile.network).security_mode = 6;
    profiles.modify(profile);
    read = std::get<Wifi>(profiles.get(profile.id).network);
    EXPECT_EQ(read.security_mode, 6);
    EXPECT_EQ(std::get<Psk>(read.security).key, "passphrase");
    EXPECT_EQ(profiles.get(profile.id).record.WlanProfInfo.security.form.wep.wepKey[1][0], '\0')
        << "behind the passphrase's end";

    std::get<Wifi>(profile.network).security = eap;
    std::get<Wifi>(profile.network).security_mode = 0;
    profiles.modify(profile);
    read = std::get<Wifi>(profiles.get(profile.id).network);
    EXPECT_EQ(read.security_mode, 5);
    const Eap& stored = std::get<Eap>(read.security);
    EXPECT_EQ(stored.user_name, eap.user_name);
    EXPECT_EQ(stored.password, eap.password);
    EXPECT_EQ(stored.ca_certificate, eap.ca_certificate);
    EXPECT_EQ(stored.client_certificate, eap.client_certificate);
    EXPECT_EQ(stored.private_key, eap.private_key);
    EXPECT_EQ(stored.private_key_password, eap.private_key_password);
    EXPECT_EQ(stored.type, 25);
}

TEST_F(CppProfile, keep_what_has_no_name) {
    Profile profile = profiles.get(1);
    profile.record.PdpProfInfo.IpAddr.Opaque[3] = 7;
    profile.record.PdpProfInfo.Opaque[1] = 8;
    profile.name = "Renamed";
    profiles.modify(profile);
    const Profile stored = profiles.get(1);
    EXPECT_EQ(stored.name, "Renamed");
    EXPECT_EQ(stored.record.PdpProfInfo.IpAddr.Opaque[3], 7);
    EXPECT_EQ(stored.record.PdpProfInfo.Opaque[1], 8);
}

TEST_F(CppProfile, whose_texts_do_not_fit_are_refused_by_name) {
    const auto refused = [&](const char* field, auto change) {
        Profile profile;
        profile.name = "Name";
        change(profile);
        const std::optional<Error> error = error_of([&] { profiles.add(profile); });
        ASSERT_TRUE(error) << field;
        EXPECT_EQ(error->code(), std::errc::invalid_argument);
        EXPECT_THAT(error->what(), HasSubstr(field));
    };
    refused("name", [](Profile& p) { p.name = std::string(28, 'x'); });
    refused("proxy", [](Profile& p) { p.proxy = std::string(64, '1'); });
    refused("apn", [](Profile& p) { std::get<PacketData>(p.network).apn = std::string(104, 'x'); });
    refused("apn", [](Profile& p) { std::get<PacketData>(p.network).apn = std::string("a\0b", 3); });
    refused("essid", [](Profile& p) {
        Wifi wifi;
        wifi.essid = std::string(33, 'x');
        p.network = wifi;
    });
    refused("key", [](Profile& p) {
        Wifi wifi;
        wifi.essid = "x";
        wifi.security = Psk{std::string(65, 'x')};
        p.network = wifi;
    });
    EXPECT_THAT(profiles.ids(), ElementsAre(1)) << "nothing was sent";
}

TEST_F(CppProfile, are_listed_found_chosen_and_removed) {
    Profile mail;
    mail.name = "Mail";
    std::get<PacketData>(mail.network).apn = "mail.example";
    mail.id = profiles.add(mail);
    Profile home;
    home.name = "Home";
    Wifi wifi;
    wifi.essid = "home";
    home.network = wifi;
    home.id = profiles.add(home);
    EXPECT_THAT(profiles.ids(), ElementsAre(1, mail.id, home.id));
    EXPECT_THAT(profiles.ids(Profiles::Kind::wifi), ElementsAre(home.id));
    EXPECT_THAT(profiles.find_apn("mail.example"), ElementsAre(mail.id));
    EXPECT_THAT(profiles.find_essid("home"), ElementsAre(home.id));
    EXPECT_THAT(profiles.find_essid("nowhere"), IsEmpty());
    const std::vector<ProfileSummary> summaries = profiles.summaries(Profiles::Kind::wifi);
    ASSERT_EQ(summaries.size(), 1u);
    EXPECT_EQ(summaries[0].id, home.id);
    EXPECT_TRUE(summaries[0].is_wifi);
    EXPECT_EQ(summaries[0].name, "Home");
    EXPECT_EQ(summaries[0].network, "home");
    profiles.set_default(mail.id);
    EXPECT_EQ(profiles.default_id(), mail.id);
    EXPECT_EQ(profiles.get_default().name, "Mail");
    EXPECT_EQ(registration.open().profile(), mail.id);
    EXPECT_EQ(profiles.attributes(mail.id), 0u);
    static_cast<void>(profiles.status(mail.id));
    profiles.remove(home.id);
    EXPECT_EQ(code_of([&] { profiles.get(home.id); }).value(), 103);
    profiles.restore();
    EXPECT_THAT(profiles.ids(), ElementsAre(1));
}

TEST_F(CppProfile, are_bound_to_applications) {
    EXPECT_FALSE(profiles.knows_application(7));
    EXPECT_TRUE(profiles.add_application(7));
    EXPECT_TRUE(profiles.knows_application(7));
    const Binding stored = profiles.bind({7, 0, 1, {1, 2}});
    EXPECT_EQ(stored.profile, 1u);
    EXPECT_EQ(profiles.binding(7).interfaces, (std::array<std::uint32_t, 2>{1, 2}));
    EXPECT_EQ(profiles.proper_profile(7), 1u);
    EXPECT_TRUE(profiles.remove_application(7));
    EXPECT_EQ(code_of([&] { profiles.binding(7); }).value(), 113);
    EXPECT_FALSE(profiles.add_application(0));
}

}  // namespace
}  // namespace quorvel::test
