// The records of NetPM.h: they travel as they are, and are the same to the byte in both data models.
#include "Records.h"
#include "quorvel/NetPM.h"

namespace quorvel::test {
namespace {

TEST(ProfileRecords, a_profile) {
    EXPECT_SIZE(NetPMProfile, 968);
    EXPECT_FIELD(NetPMProfile, Opaque, 0, uint32_t);
    EXPECT_FIELD(NetPMProfile, ProfileId, 4, int32_t);
    EXPECT_FIELD(NetPMProfile, ProfileType, 8, uint32_t);
    EXPECT_FIELD(NetPMProfile, ProfileName, 12, char[28]);
    EXPECT_FIELD(NetPMProfile, ProfileAttr, 40, uint32_t);
    EXPECT_FIELD(NetPMProfile, ProxyAddr, 44, char[64]);
    EXPECT_FIELD(NetPMProfile, PdpProfInfo, 44, NetPMPdpProfInfo);
    EXPECT_FIELD(NetPMProfile, WlanProfInfo, 44, NetPMWlanProfInfo);
}

TEST(ProfileRecords, an_address) {
    EXPECT_SIZE(NetPMIpAddr, 16);
    EXPECT_FIELD(NetPMIpAddr, Ipv4, 0, uint32_t);
    EXPECT_FIELD(NetPMIpAddr, Opaque, 4, uint8_t[12]);
}

TEST(ProfileRecords, the_packet_data_part) {
    EXPECT_SIZE(NetPMPdpProfInfo, 924);
    EXPECT_FIELD(NetPMPdpProfInfo, ProxyAddr, 0, char[64]);
    EXPECT_FIELD(NetPMPdpProfInfo, BPrimaryPdpProfile, 64, uint16_t);
    EXPECT_FIELD(NetPMPdpProfInfo, PrimaryPdpProfileId, 68, int32_t);
    EXPECT_FIELD(NetPMPdpProfInfo, ProtocolType, 72, uint32_t);
    EXPECT_FIELD(NetPMPdpProfInfo, Apn, 76, char[104]);
    EXPECT_FIELD(NetPMPdpProfInfo, AddrType, 180, uint32_t);
    EXPECT_FIELD(NetPMPdpProfInfo, BStaticIpAddr, 184, uint16_t);
    EXPECT_FIELD(NetPMPdpProfInfo, IpAddr, 188, NetPMIpAddr);
    EXPECT_FIELD(NetPMPdpProfInfo, BStaticDnsAddr, 204, uint16_t);
    EXPECT_FIELD(NetPMPdpProfInfo, DnsAddr, 208, NetPMIpAddr[2]);
    EXPECT_FIELD(NetPMPdpProfInfo, QosInfo, 240, NetPMQosInfo);
    EXPECT_FIELD(NetPMPdpProfInfo, AuthInfo, 292, NetPMAuthInfo);
    EXPECT_FIELD(NetPMPdpProfInfo, DefGateway, 360, NetPMIpAddr);
    EXPECT_FIELD(NetPMPdpProfInfo, NetMask, 376, NetPMIpAddr);
    EXPECT_FIELD(NetPMPdpProfInfo, HomeURL, 392, char[514]);
    EXPECT_FIELD(NetPMPdpProfInfo, BSecureConnection, 906, uint16_t);
    EXPECT_FIELD(NetPMPdpProfInfo, AppProtoType, 908, uint32_t);
    EXPECT_FIELD(NetPMPdpProfInfo, lingerTime, 912, int32_t);
    EXPECT_FIELD(NetPMPdpProfInfo, Opaque, 916, uint8_t[8]);
}

TEST(ProfileRecords, quality_of_service) {
    EXPECT_SIZE(NetPMQosInfo, 52);
    EXPECT_FIELD(NetPMQosInfo, QosType, 0, uint32_t);
    EXPECT_PART(NetPMQosInfo, Qos, 4, 48);
    EXPECT_FIELD(NetPMQosInfo, Qos.QosUmts, 4, NetPMQosUmts);
    EXPECT_FIELD(NetPMQosInfo, Qos.Opaque, 4, uint8_t[48]);
    EXPECT_SIZE(NetPMQosUmts, 48);
    EXPECT_FIELD(NetPMQosUmts, TrafficClass, 0, uint32_t);
    EXPECT_FIELD(NetPMQosUmts, Opaque, 4, uint8_t[44]);
}

TEST(ProfileRecords, authentication) {
    EXPECT_SIZE(NetPMAuthInfo, 68);
    EXPECT_FIELD(NetPMAuthInfo, AuthType, 0, uint32_t);
    EXPECT_FIELD(NetPMAuthInfo, UserName, 4, char[32]);
    EXPECT_FIELD(NetPMAuthInfo, Password, 36, char[32]);
}

TEST(ProfileRecords, the_wifi_part) {
    EXPECT_SIZE(NetPMWlanProfInfo, 548);
    EXPECT_FIELD(NetPMWlanProfInfo, ProxyAddr, 0, char[64]);
    EXPECT_FIELD(NetPMWlanProfInfo, essid, 64, char[33]);
    EXPECT_FIELD(NetPMWlanProfInfo, bssid, 97, char[7]);
    EXPECT_FIELD(NetPMWlanProfInfo, freq, 104, int32_t);
    EXPECT_FIELD(NetPMWlanProfInfo, rate, 108, int32_t);
    EXPECT_FIELD(NetPMWlanProfInfo, standard, 112, int32_t);
    EXPECT_FIELD(NetPMWlanProfInfo, wlan_mode, 116, int32_t);
    EXPECT_FIELD(NetPMWlanProfInfo, security, 120, NetPMWlanProfSecurity);
    EXPECT_FIELD(NetPMWlanProfInfo, net_info, 440, NetPMWlanProfNetInfo);
}

TEST(ProfileRecords, security_and_its_forms) {
    EXPECT_SIZE(NetPMWlanProfSecurity, 320);
    EXPECT_FIELD(NetPMWlanProfSecurity, sec_mode, 0, int32_t);
    EXPECT_PART(NetPMWlanProfSecurity, form, 4, 312);
    EXPECT_FIELD(NetPMWlanProfSecurity, form.wep, 4, NetPMWlanProfSecWep);
    EXPECT_FIELD(NetPMWlanProfSecurity, form.psk, 4, NetPMWlanProfSecPsk);
    EXPECT_FIELD(NetPMWlanProfSecurity, form.eap, 4, NetPMWlanProfSecEap);
    EXPECT_FIELD(NetPMWlanProfSecurity, form.Opaque, 4, uint8_t[312]);
    EXPECT_FIELD(NetPMWlanProfSecurity, encrypt_mode, 316, int32_t);

    EXPECT_SIZE(NetPMWlanProfSecWep, 109);
    EXPECT_FIELD(NetPMWlanProfSecWep, wepKey, 0, char[4][27]);
    EXPECT_FIELD(NetPMWlanProfSecWep, wepKeyIndex, 108, uint8_t);
    EXPECT_SIZE(NetPMWlanProfSecPsk, 65);
    EXPECT_FIELD(NetPMWlanProfSecPsk, pskKey, 0, char[65]);
    EXPECT_SIZE(NetPMWlanProfSecEap, 312);
    EXPECT_FIELD(NetPMWlanProfSecEap, username, 0, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, password, 51, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, ca_cert_filename, 102, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, client_cert_filename, 153, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, private_key_filename, 204, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, private_key_passwd, 255, char[51]);
    EXPECT_FIELD(NetPMWlanProfSecEap, wlan_eap_type, 308, int32_t);
}

TEST(ProfileRecords, the_network_of_a_wifi_profile) {
    EXPECT_SIZE(NetPMWlanProfNetInfo, 108);
    EXPECT_FIELD(NetPMWlanProfNetInfo, addr_type, 0, int32_t);
    EXPECT_FIELD(NetPMWlanProfNetInfo, IpConfigType, 4, int32_t);
    EXPECT_FIELD(NetPMWlanProfNetInfo, ip_addr, 8, NetPMIpAddr);
    EXPECT_FIELD(NetPMWlanProfNetInfo, def_gateway, 24, NetPMIpAddr);
    EXPECT_FIELD(NetPMWlanProfNetInfo, net_mask, 40, NetPMIpAddr);
    EXPECT_FIELD(NetPMWlanProfNetInfo, DnsConfigType, 56, int32_t);
    EXPECT_FIELD(NetPMWlanProfNetInfo, dns_addr, 60, NetPMIpAddr[2]);
    EXPECT_FIELD(NetPMWlanProfNetInfo, ifname, 92, char[16]);
}

TEST(ProfileRecords, lists_in_a_callers_buffer) {
    EXPECT_SIZE(NetPMProfileIdList, 84);
    EXPECT_FIELD(NetPMProfileIdList, ProfileId, 0, int32_t[20]);
    EXPECT_FIELD(NetPMProfileIdList, Count, 80, int32_t);
    EXPECT_SIZE(NetPMPartialProfile, 140);
    EXPECT_FIELD(NetPMPartialProfile, ProfileId, 0, int32_t);
    EXPECT_FIELD(NetPMPartialProfile, ProfileType, 4, uint32_t);
    EXPECT_FIELD(NetPMPartialProfile, ProfileName, 8, char[28]);
    EXPECT_FIELD(NetPMPartialProfile, NetworkName, 36, char[104]);
}

TEST(ProfileRecords, an_applications_binding) {
    EXPECT_SIZE(NetPMAppProf, 20);
    EXPECT_FIELD(NetPMAppProf, AppId, 0, uint32_t);
    EXPECT_FIELD(NetPMAppProf, Param, 4, uint32_t);
    EXPECT_FIELD(NetPMAppProf, ProfileId, 8, uint32_t);
    EXPECT_FIELD(NetPMAppProf, NetIfaceList, 12, uint32_t[2]);
}

}  // namespace
}  // namespace quorvel::test
