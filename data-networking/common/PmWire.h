// What travels to and from the profile manager behind the CM server: its records, and the tables of its
// commands.
//
// A request is a CM request (NETPM_PROFILE_REQ, NETPM_APPPROF_REQ) with one of these records behind its
// header; an answer is a CM record whose words from word 1 on are one of these. Shared as Wire.h is.
#pragma once

#include <span>

#include "common/Wire.h"
#include "quorvel/NetPM.h"

namespace quorvel::wire {

static_assert(sizeof(NetPMIpAddr) == 16);
static_assert(sizeof(NetPMQosInfo) == 52 && offsetof(NetPMQosInfo, Qos) == 4);
static_assert(sizeof(NetPMQosUmts) == 48 && offsetof(NetPMQosUmts, TrafficClass) == 0);
static_assert(sizeof(NetPMAuthInfo) == 68);

static_assert(sizeof(NetPMPdpProfInfo) == 924 && offsetof(NetPMPdpProfInfo, ProxyAddr) == 0);
static_assert(offsetof(NetPMPdpProfInfo, BPrimaryPdpProfile) == 64);
static_assert(offsetof(NetPMPdpProfInfo, PrimaryPdpProfileId) == 68);
static_assert(offsetof(NetPMPdpProfInfo, ProtocolType) == 72 && offsetof(NetPMPdpProfInfo, Apn) == 76);
static_assert(sizeof(NetPMPdpProfInfo::Apn) == 104 && offsetof(NetPMPdpProfInfo, AddrType) == 180);
static_assert(offsetof(NetPMPdpProfInfo, BStaticIpAddr) == 184 && offsetof(NetPMPdpProfInfo, IpAddr) == 188);
static_assert(offsetof(NetPMPdpProfInfo, BStaticDnsAddr) == 204 &&
              offsetof(NetPMPdpProfInfo, DnsAddr) == 208);
static_assert(offsetof(NetPMPdpProfInfo, QosInfo) == 240);
static_assert(offsetof(NetPMPdpProfInfo, AuthInfo.AuthType) == 292);
static_assert(offsetof(NetPMPdpProfInfo, AuthInfo.UserName) == 296);
static_assert(offsetof(NetPMPdpProfInfo, AuthInfo.Password) == 328);
static_assert(offsetof(NetPMPdpProfInfo, DefGateway) == 360 && offsetof(NetPMPdpProfInfo, NetMask) == 376);
static_assert(offsetof(NetPMPdpProfInfo, HomeURL) == 392 && sizeof(NetPMPdpProfInfo::HomeURL) == 514);
static_assert(offsetof(NetPMPdpProfInfo, BSecureConnection) == 906);
static_assert(offsetof(NetPMPdpProfInfo, AppProtoType) == 908 &&
              offsetof(NetPMPdpProfInfo, lingerTime) == 912);

static_assert(sizeof(NetPMWlanProfSecWep::wepKey) == size_t{4} * 27);
static_assert(offsetof(NetPMWlanProfSecWep, wepKeyIndex) == 108);
static_assert(offsetof(NetPMWlanProfSecPsk, pskKey) == 0 && sizeof(NetPMWlanProfSecPsk::pskKey) >= 65);
static_assert(sizeof(NetPMWlanProfSecEap) == 312 && offsetof(NetPMWlanProfSecEap, username) == 0);
static_assert(offsetof(NetPMWlanProfSecEap, password) == 51);
static_assert(offsetof(NetPMWlanProfSecEap, ca_cert_filename) == 102);
static_assert(offsetof(NetPMWlanProfSecEap, client_cert_filename) == 153);
static_assert(offsetof(NetPMWlanProfSecEap, private_key_filename) == 204);
static_assert(offsetof(NetPMWlanProfSecEap, private_key_passwd) == 255);
static_assert(offsetof(NetPMWlanProfSecEap, wlan_eap_type) == 308);

static_assert(sizeof(NetPMWlanProfSecurity) == 320 && offsetof(NetPMWlanProfSecurity, sec_mode) == 0);
static_assert(offsetof(NetPMWlanProfSecurity, form) == 4 && sizeof(NetPMWlanProfSecurity::form) == 312);
static_assert(offsetof(NetPMWlanProfSecurity, encrypt_mode) == 316);

static_assert(offsetof(NetPMWlanProfNetInfo, addr_type) == 0 &&
              offsetof(NetPMWlanProfNetInfo, IpConfigType) == 4);
static_assert(offsetof(NetPMWlanProfNetInfo, ip_addr) == 8 &&
              offsetof(NetPMWlanProfNetInfo, def_gateway) == 24);
static_assert(offsetof(NetPMWlanProfNetInfo, net_mask) == 40);
static_assert(offsetof(NetPMWlanProfNetInfo, DnsConfigType) == 56);
static_assert(offsetof(NetPMWlanProfNetInfo, dns_addr) == 60 && offsetof(NetPMWlanProfNetInfo, ifname) == 92);
static_assert(sizeof(NetPMWlanProfNetInfo::ifname) >= 16);

static_assert(sizeof(NetPMWlanProfInfo) <= sizeof(NetPMPdpProfInfo));
static_assert(offsetof(NetPMWlanProfInfo, ProxyAddr) == 0 && offsetof(NetPMWlanProfInfo, essid) == 64);
static_assert(sizeof(NetPMWlanProfInfo::essid) == 33 && offsetof(NetPMWlanProfInfo, bssid) == 97);
static_assert(offsetof(NetPMWlanProfInfo, freq) == 104 && offsetof(NetPMWlanProfInfo, rate) == 108);
static_assert(offsetof(NetPMWlanProfInfo, standard) == 112 && offsetof(NetPMWlanProfInfo, wlan_mode) == 116);
static_assert(offsetof(NetPMWlanProfInfo, security) == 120 && offsetof(NetPMWlanProfInfo, net_info) == 440);

static_assert(sizeof(NetPMProfile) == 968 && offsetof(NetPMProfile, ProfileId) == 4);
static_assert(offsetof(NetPMProfile, ProfileType) == 8 && offsetof(NetPMProfile, ProfileName) == 12);
static_assert(sizeof(NetPMProfile::ProfileName) == 28 && offsetof(NetPMProfile, ProfileAttr) == 40);
static_assert(offsetof(NetPMProfile, PdpProfInfo) == 44 && offsetof(NetPMProfile, WlanProfInfo) == 44);
static_assert(offsetof(NetPMProfile, ProxyAddr) == 44 && sizeof(NetPMProfile::ProxyAddr) == 64);

static_assert(sizeof(NetPMProfileIdList) == 84 && offsetof(NetPMProfileIdList, Count) == 80);
static_assert(sizeof(NetPMPartialProfile) == 140 && offsetof(NetPMPartialProfile, NetworkName) == 36);
static_assert(sizeof(NetPMAppProf) == 20 && offsetof(NetPMAppProf, NetIfaceList) == 12);

// Begins the payload of NETPM_PROFILE_REQ; DataLength bytes follow.
struct PmRequestHeader {
    uint32_t Command;
    int32_t ProfileId;
    uint32_t Arg;
    uint32_t DataLength;
    uint32_t Arg2;
};
static_assert(sizeof(PmRequestHeader) == 20 && offsetof(PmRequestHeader, DataLength) == 12);

// Words 1 to 6 of the record that answers; ExtDataLength bytes follow the record on the socket.
struct PmResponseBlock {
    uint32_t RspCode;
    int32_t ProfileId;
    uint32_t Error;
    uint32_t Reserved;
    uint32_t ExtDataLength;
    uint32_t Value;
};
static_assert(sizeof(PmResponseBlock) == 24 && offsetof(PmResponseBlock, ExtDataLength) == 16);

// 16 MiB, thousands of times the largest answer there is. A length beyond it is a stream out of step: the
// server decides how much an answer brings, not how much of its memory, nor of its time with reading, an
// application loses.
inline constexpr uint32_t kLargestExtData = 16U << 20;

// A profile as it travels, in a request to add or change one and behind the answer that reads one.
struct PmProfileSlot {
    NetPMProfile Profile;
    uint8_t Zero[4];
};
static_assert(sizeof(PmProfileSlot) == 972);

// The data of NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ and NETPM_CLIENT_FIND_PROFILE_IDS_REQ. A name that
// fills its field has no NUL.
using PmApnField = char[100];
using PmEssidField = char[32];

// The answers behind which a list comes: of ids for the list, by-APN and find commands, of parameters for the
// partial one, where the answer's ProfileId is the number of entries.
using PmIdListBlock = NetPMProfileIdList;
struct PmPartialListBlock {
    NetPMPartialProfile Entry[NETPM_MAX_PARTIAL_PROFILES];
};
static_assert(sizeof(PmPartialListBlock) == NETPM_LIST_ROOM && sizeof(PmIdListBlock) <= NETPM_LIST_ROOM);

// The payload of NETPM_APPPROF_REQ, and words 1 to 9 of the record that answers it.
struct AppProfMsg {
    uint32_t Unused;
    uint32_t Cmd;
    uint32_t Result;
    NetPMAppProf AppProf;
    uint16_t BProfIdValid;
    uint16_t BNetIfaceListValid;
};
static_assert(sizeof(AppProfMsg) == 36 && offsetof(AppProfMsg, AppProf) == 12);
static_assert(offsetof(AppProfMsg, BProfIdValid) == 32 && offsetof(AppProfMsg, BNetIfaceListValid) == 34);

// A command N of either table is answered with N + 100. That these answers share numbers with events of the
// CM server means nothing: they stand in another word.
inline constexpr uint32_t kPmAnswer = 100;

// The one list of profile commands: name, code.
#define QV_PM_COMMANDS(X)                            \
    X(NETPM_CLIENT_ADD_PROFILE_REQ, 1)               \
    X(NETPM_CLIENT_MODIFY_PROFILE_REQ, 2)            \
    X(NETPM_CLIENT_DELETE_PROFILE_REQ, 3)            \
    X(NETPM_CLIENT_GET_PROFILE_REQ, 4)               \
    X(NETPM_CLIENT_GET_PROFILE_STATUS_REQ, 5)        \
    X(NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ, 6)       \
    X(NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, 7)    \
    X(NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ, 8)    \
    X(NETPM_CLIENT_GET_POFILE_LIST_REQ, 10)          \
    X(NETPM_CLIENT_RESTORE_PROFILES_REQ, 13)         \
    X(NETPM_CLIENT_GET_PROFILE_ATTR_REQ, 14)         \
    X(NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ, 15) \
    X(NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ, 16)   \
    X(NETPM_CLIENT_FIND_PROFILE_IDS_REQ, 17)

// The one list of application-profile commands: name, code.
#define QV_APPPROF_COMMANDS(X)               \
    X(NETPM_APPPROF_ADD_APP_ID, 1)           \
    X(NETPM_APPPROF_DELETE_APP_ID, 2)        \
    X(NETPM_APPPROF_CHECK_APP_ID, 3)         \
    X(NETPM_APPPROF_GET_APP_INFO, 4)         \
    X(NETPM_APPPROF_SET_APP_INFO, 5)         \
    X(NETPM_APPPROF_GET_PROPER_PROFILE, 8)   \
    X(NETPM_APPPROF_ASYNC_PROPER_PROFILE, 9) \
    X(NETPM_APPPROF_CHANGE_PAYMENT, 10)

// The codes that NETPM_APPPROF_CHANGE_PAYMENT carries in Param and in ProfileId.
enum CscCode : uint32_t { kCscVgr = 8, kCscVod = 9 };
enum PaymentCode : uint32_t { kPaymentPost = 0, kPaymentPre = 1 };

struct PaymentWord {
    const char* word;
    uint32_t code;
};
inline constexpr PaymentWord kCscWords[] = {{"VGR", kCscVgr}, {"VOD", kCscVod}};
inline constexpr PaymentWord kPaymentWords[] = {{"PRE", kPaymentPre}, {"POST", kPaymentPost}};

#define X(name, code) name = code,
enum PmCommand : uint32_t { QV_PM_COMMANDS(X) };
enum AppProfCommand : uint32_t { QV_APPPROF_COMMANDS(X) };
#undef X

struct PmCommandEntry {
    const char* name;
    uint32_t code;
};

#define X(name, code) {#name, code},
inline constexpr PmCommandEntry kPmCommands[] = {QV_PM_COMMANDS(X)};
inline constexpr PmCommandEntry kAppProfCommands[] = {QV_APPPROF_COMMANDS(X)};
#undef X

// The entry of a code in either table, or null.
constexpr const PmCommandEntry* find_entry(std::span<const PmCommandEntry> table, uint32_t code) {
    for (const PmCommandEntry& entry : table)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

}  // namespace quorvel::wire
