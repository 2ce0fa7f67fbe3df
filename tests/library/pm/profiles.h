// Profiles with a different value in every field.
#pragma once

#include <arpa/inet.h>

#include <cstring>

#include "quorvel/NetPM.h"

namespace quorvel::test {

inline NetPMIpAddr address(const char* dotted) {
    NetPMIpAddr result = {};
    result.Ipv4 = inet_addr(dotted);
    return result;
}

inline NetPMProfile pdp_profile() {
    NetPMProfile profile = {};
    profile.ProfileId = 7;
    profile.ProfileType = NETPM_PROFILE_PDP;
    strcpy(profile.ProfileName, "Internet");
    profile.ProfileAttr = 3;
    NetPMPdpProfInfo& pdp = profile.PdpProfInfo;
    strcpy(pdp.ProxyAddr, "10.0.0.1:8080");
    pdp.BPrimaryPdpProfile = 1;
    pdp.PrimaryPdpProfileId = 12;
    pdp.ProtocolType = 13;
    strcpy(pdp.Apn, "internet.example");
    pdp.AddrType = 14;
    pdp.BStaticIpAddr = 1;
    pdp.IpAddr = address("10.1.0.1");
    pdp.BStaticDnsAddr = 1;
    pdp.DnsAddr[0] = address("10.1.0.2");
    pdp.DnsAddr[1] = address("10.1.0.3");
    pdp.QosInfo.QosType = 15;
    pdp.QosInfo.Qos.QosUmts.TrafficClass = 16;
    pdp.AuthInfo.AuthType = 17;
    strcpy(pdp.AuthInfo.UserName, "user");
    strcpy(pdp.AuthInfo.Password, "secret");
    pdp.DefGateway = address("10.1.0.4");
    pdp.NetMask = address("255.255.255.0");
    strcpy(pdp.HomeURL, "http://home.example");
    pdp.BSecureConnection = 1;
    pdp.AppProtoType = 2;
    pdp.lingerTime = 18;
    return profile;
}

inline NetPMProfile wlan_profile(int32_t sec_mode = 1) {
    NetPMProfile profile = {};
    profile.ProfileId = 8;
    profile.ProfileType = NETPM_PROFILE_WLAN;
    strcpy(profile.ProfileName, "Home");
    profile.ProfileAttr = 4;
    NetPMWlanProfInfo& wlan = profile.WlanProfInfo;
    strcpy(wlan.ProxyAddr, "10.0.0.2:3128");
    strcpy(wlan.essid, "home network");
    strcpy(wlan.bssid, "ab:cd");
    wlan.freq = 21;
    wlan.rate = 22;
    wlan.standard = 23;
    wlan.wlan_mode = 24;
    wlan.security.sec_mode = sec_mode;
    wlan.security.encrypt_mode = 25;
    NetPMWlanProfNetInfo& net = wlan.net_info;
    net.addr_type = 26;
    net.IpConfigType = 27;
    net.ip_addr = address("192.168.0.2");
    net.def_gateway = address("192.168.0.1");
    net.net_mask = address("255.255.0.0");
    net.DnsConfigType = 28;
    net.dns_addr[0] = address("192.168.0.3");
    net.dns_addr[1] = address("192.168.0.4");
    strcpy(net.ifname, "wlan0");
    return profile;
}

}  // namespace quorvel::test
