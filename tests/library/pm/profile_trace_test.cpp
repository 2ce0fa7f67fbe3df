#include <gmock/gmock.h>

#include "client/PM/src/NetPMPrivate.h"
#include "library/pm/profiles.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using Texts = std::vector<std::string>;

Texts operator+(Texts first, const Texts& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Texts kWlanCommon = {"ProfInfo->ProfileId [8]\n", "ProfInfo->ProfileType [1]\n",
                           "ProfInfo->ProfileName [Home]\n", "ProfInfo->ProfileAttr [4]\n"};
const Texts kWlan = {"WlanProfInfo : ProxyAddr [10.0.0.2:3128]\n",
                     "WlanProfInfo : essid [home network]\n",
                     "WlanProfInfo : bssid [ab:cd]\n",
                     "WlanProfInfo : freq [21]\n",
                     "WlanProfInfo : rate [22]\n",
                     "WlanProfInfo : standard [23]\n",
                     "WlanProfInfo : wlan_mode [24]\n"};
const Texts kNetInfo = {"WlanProfInfo : addr_type [26]\n",
                        "WlanProfInfo : IpConfigType [27]\n",
                        "WlanProfInfo : ip_addr [192.168.0.2]\n",
                        "WlanProfInfo : def_gateway [192.168.0.1]\n",
                        "WlanProfInfo : net_mask [255.255.0.0]\n",
                        "WlanProfInfo : DnsConfigType [28]\n",
                        "WlanProfInfo : dns_addr[0] [192.168.0.3]\n",
                        "WlanProfInfo : dns_addr[1] [192.168.0.4]\n",
                        "WlanProfInfo : ifname [wlan0]\n"};

Texts security_lines(int32_t sec_mode) {
    return {"Wlan security : sec_mode[" + std::to_string(sec_mode) + "]\n",
            "Wlan security : encrypt_mode[25]\n"};
}

// The lines behind the two that every security block has.
Texts form_lines(const NetPMProfile& profile) {
    trace::clear();
    EXPECT_EQ(PrintNetPMWlanProfSecurity(&profile.WlanProfInfo.security), 0u);
    Texts lines = trace::texts();
    const Texts head = security_lines(profile.WlanProfInfo.security.sec_mode);
    EXPECT_TRUE(lines.size() >= 2 && lines[0] == head[0] && lines[1] == head[1]);
    lines.erase(lines.begin(), lines.begin() + 2);
    return lines;
}

TEST(ProfileTrace, a_packet_data_profile_is_traced_field_by_field) {
    const NetPMProfile profile = pdp_profile();
    EXPECT_EQ(PrintNetPMProfile(&profile), 0u);
    EXPECT_THAT(
        trace::texts(),
        ElementsAre(
            "ProfInfo->ProfileId [7]\n", "ProfInfo->ProfileType [0]\n", "ProfInfo->ProfileName [Internet]\n",
            "ProfInfo->ProfileAttr [3]\n", "PdpProfInfo->ProxyAddr [10.0.0.1:8080]\n",
            "PdpProfInfo->BPrimaryPdpProfile [1]\n", "PdpProfInfo->PrimaryPdpProfileId [12]\n",
            "PdpProfInfo->ProtocolType [13]\n", "PdpProfInfo->Apn [internet.example]\n",
            "PdpProfInfo->AddrType [14]",  // without a line end
            "PdpProfInfo->BStaticIpAddr [1]\n", "PdpProfInfo->IpAddr [10.1.0.1]\n",
            "PdpProfInfo->BStaticDnsAddr [1]\n", "PdpProfInfo->DnsAddr[i] [10.1.0.2]\n",
            "PdpProfInfo->DnsAddr[i] [10.1.0.3]\n", "PdpProfInfo->QosInfo.QosType [15]\n",
            "PdpProfInfo->QosInfo.Qos.QosUmts.TrafficClass [16]\n", "PdpProfInfo->AuthInfo.AuthType [17]\n",
            "PdpProfInfo->AuthInfo.UserName [user]\n", "PdpProfInfo->AuthInfo.Password [secret]\n",
            "PdpProfInfo->ProtocolType [13]\n",  // for the second time
            "PdpProfInfo->DefGateway [10.1.0.4]\n", "PdpProfInfo->NetMask [255.255.255.0]\n",
            "PdpProfInfo->HomeURL [http://home.example]\n", "PdpProfInfo->BSecureConnection [1]\n",
            "PdpProfInfo->AppProtoType [2]\n", "PdpProfInfo->lingerTime [18]\n"));
}

TEST(ProfileTrace, a_wlan_profile_is_traced_with_its_network_before_its_security) {
    const NetPMProfile profile = wlan_profile();
    EXPECT_EQ(PrintNetPMProfile(&profile), 0u);
    EXPECT_THAT(trace::texts(), ElementsAreArray(kWlanCommon + kWlan + kNetInfo + security_lines(1)));
}

TEST(ProfileTrace, every_line_is_of_the_dump_level_and_names_its_unit) {
    const NetPMProfile pdp = pdp_profile();
    const NetPMProfile wlan = wlan_profile(5);
    PrintNetPMPDPProfile(&pdp);
    PrintNetPMWlanProfile(&wlan);
    for (const TraceLine& line : trace::lines()) {
        EXPECT_EQ(line.mask, trace::kNormal) << line.text;
        EXPECT_EQ(line.mid, 0x5000100u) << line.text;
        const bool is_pdp = line.text.starts_with("PdpProfInfo");
        EXPECT_EQ(line.file, is_pdp ? "data-networking/client/PM/src/NetPMPdpUtil"
                                    : "data-networking/client/PM/src/NetPMWlanUtil")
            << line.text;
    }
}

TEST(ProfileTrace, a_profile_of_an_unknown_type_is_refused_after_its_common_lines) {
    NetPMProfile profile = pdp_profile();
    profile.ProfileType = 2;
    EXPECT_EQ(PrintNetPMProfile(&profile), 19u);
    EXPECT_THAT(trace::texts(), ElementsAre("ProfInfo->ProfileId [7]\n", "ProfInfo->ProfileType [2]\n",
                                            "ProfInfo->ProfileName [Internet]\n",
                                            "ProfInfo->ProfileAttr [3]\n", "Invalid profile type [2]\n"));
}

TEST(ProfileTrace, texts_that_fill_their_field_end_with_it) {
    NetPMProfile profile = pdp_profile();
    memset(profile.ProfileName, 'n', sizeof profile.ProfileName);
    memset(profile.PdpProfInfo.HomeURL, 'u', sizeof profile.PdpProfInfo.HomeURL);
    PrintNetPMProfile(&profile);
    EXPECT_TRUE(trace::contains("ProfInfo->ProfileName [" + std::string(28, 'n') + "]\n"));
    EXPECT_TRUE(trace::contains("PdpProfInfo->HomeURL [" + std::string(514, 'u') + "]\n"));
}

TEST(SecurityTrace, an_open_network_has_no_more_than_its_two_modes) {
    EXPECT_THAT(form_lines(wlan_profile(1)), ElementsAre());
}

TEST(SecurityTrace, of_the_wep_keys_only_the_one_in_use_is_traced) {
    for (const int32_t mode : {2, 3}) {
        NetPMProfile profile = wlan_profile(mode);
        NetPMWlanProfSecWep& wep = profile.WlanProfInfo.security.form.wep;
        strcpy(wep.wepKey[0], "first");
        memset(wep.wepKey[2], '3', sizeof wep.wepKey[2]);  // runs into the fourth key
        wep.wepKeyIndex = 2;
        EXPECT_THAT(form_lines(profile), ElementsAre("WlanProfInfo : wepKey [" + std::string(27, '3') + "]\n",
                                                     "WlanProfInfo : wepKeyIndex [2]\n"));
    }
}

TEST(SecurityTrace, a_wep_index_without_a_key_shows_no_key) {
    NetPMProfile profile = wlan_profile(2);
    profile.WlanProfInfo.security.form.wep.wepKeyIndex = 255;
    EXPECT_THAT(form_lines(profile), ElementsAre("WlanProfInfo : wepKeyIndex [255]\n"));
}

TEST(SecurityTrace, a_pre_shared_key_is_traced_in_its_three_modes) {
    for (const int32_t mode : {4, 6, 8}) {
        NetPMProfile profile = wlan_profile(mode);
        strcpy(profile.WlanProfInfo.security.form.psk.pskKey, "passphrase");
        EXPECT_THAT(form_lines(profile), ElementsAre("WlanProfInfo : pskKey [passphrase]\n")) << mode;
    }
}

TEST(SecurityTrace, eap_is_traced_field_by_field_in_its_three_modes) {
    for (const int32_t mode : {5, 7, 9}) {
        NetPMProfile profile = wlan_profile(mode);
        NetPMWlanProfSecEap& eap = profile.WlanProfInfo.security.form.eap;
        strcpy(eap.username, "user");
        strcpy(eap.password, "pass");
        strcpy(eap.ca_cert_filename, "ca.pem");
        strcpy(eap.client_cert_filename, "client.pem");
        strcpy(eap.private_key_filename, "key.pem");
        strcpy(eap.private_key_passwd, "keypass");
        eap.wlan_eap_type = 31;
        EXPECT_THAT(form_lines(profile),
                    ElementsAre("WlanProfInfo : username [user]\n", "WlanProfInfo : password [pass]\n",
                                "WlanProfInfo : ca_cert_filename [ca.pem]\n",
                                "WlanProfInfo : client_cert_filename [client.pem]\n",
                                "WlanProfInfo : private_key_filename [key.pem]\n",
                                "WlanProfInfo : private_key_passwd [keypass]\n",
                                "WlanProfInfo : wlan_eap_type [31]\n"))
            << mode;
    }
}

TEST(SecurityTrace, an_unknown_mode_is_refused_after_the_two_modes) {
    for (const int32_t mode : {0, 10, -1}) {
        const NetPMProfile profile = wlan_profile(mode);
        trace::clear();
        EXPECT_EQ(PrintNetPMWlanProfSecurity(&profile.WlanProfInfo.security), 19u);
        EXPECT_THAT(trace::texts(),
                    ElementsAreArray(security_lines(mode) +
                                     Texts{"Invalid sec mode [" + std::to_string(mode) + "]\n"}));
        EXPECT_EQ(PrintNetPMProfile(&profile), 19u);
    }
}

}  // namespace
}  // namespace quorvel::test
