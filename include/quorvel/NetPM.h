/* Stored profiles: adding, changing, reading and finding them, and binding applications to them.
 *
 * Rules that hold for every function of this header; those of NetCM.h hold as well:
 *
 *  1. Results. Where nothing else is said, a function returns a status: NETCM_SUCCESS (0), NETCM_ERR_FAILURE (1:
 *     socket, protocol or memory), NETCM_ERR_REREGISTER_FAILED (2), NETCM_ERR_NOT_REGISTERED (6),
 *     NETCM_ERR_INVALID_PARAM (19), or, when the server's profile manager has refused the request, its own error
 *     number unchanged. Outputs are written on success only, unless the function says otherwise.
 *  2. Registration. The process must be registered (NetCMClientRegister); the calling thread need not be. A request
 *     that waits while the last thread deregisters is refused as any other: it does not register the process again.
 *  3. What blocks. Every request waits for the server's answer, at most 60 seconds, one request of a process after
 *     another; with a broken link it first registers the process again. Arguments are checked before anything is
 *     locked or sent.
 *  4. Ownership. Arguments belong to the caller; nothing is kept after the call, and nothing has to be freed.
 *  5. Records are the wire's, byte for byte, in the machine's byte order. Text fields end with a NUL within their
 *     field, unused bytes are 0. Numbers whose meaning is not given here are the server's and pass unchanged.
 *  6. Threads. Every function may be called from any thread. Its outputs are written before its success is traced and
 *     before the next request of the process begins.
 *  7. Cancellation. A thread that is cancelled (pthread_cancel, deferred) while it is in one of these functions is
 *     cancelled at the first cancellation point after it has returned, and waits for the server until then. Ending the
 *     thread in the sink of the traces (pthread_exit) and jumping out of it are forbidden.
 *  8. Fork. The child is not registered: every function gives there what it gives without a registration, until the
 *     child registers itself.
 */
#ifndef QUORVEL_NETPM_H
#define QUORVEL_NETPM_H

#include <stdint.h>

/* A union without a name is C11 and C++. C99 has it as an extension, which GCC and clang let pass in silence here. */
#if defined(__GNUC__) && !defined(__cplusplus)
#define QUORVEL_EXTENSION __extension__
#else
#define QUORVEL_EXTENSION
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------------------------
 * The profile record */

enum NetPMProfileType {
    NETPM_PROFILE_PDP = 0, /* packet data */
    NETPM_PROFILE_WLAN = 1 /* Wi-Fi */
};

typedef struct NetPMIpAddr {
    uint32_t Ipv4; /* network byte order */
    uint8_t Opaque[12];
} NetPMIpAddr;

typedef struct NetPMQosUmts {
    uint32_t TrafficClass;
    uint8_t Opaque[44];
} NetPMQosUmts;

typedef struct NetPMQosInfo {
    uint32_t QosType;
    union {
        NetPMQosUmts QosUmts;
        uint8_t Opaque[48];
    } Qos;
} NetPMQosInfo;

typedef struct NetPMAuthInfo {
    uint32_t AuthType;
    char UserName[32];
    char Password[32];
} NetPMAuthInfo;

/* What a packet-data profile says. */
typedef struct NetPMPdpProfInfo {
    char ProxyAddr[64];          /* dotted IPv4 address, colon, port */
    uint16_t BPrimaryPdpProfile; /* boolean */
    int32_t PrimaryPdpProfileId; /* of a secondary profile: its primary one */
    uint32_t ProtocolType;
    char Apn[104];
    uint32_t AddrType;
    uint16_t BStaticIpAddr; /* boolean: IpAddr is static */
    NetPMIpAddr IpAddr;
    uint16_t BStaticDnsAddr; /* boolean: DnsAddr are static */
    NetPMIpAddr DnsAddr[2];  /* primary, secondary */
    NetPMQosInfo QosInfo;
    NetPMAuthInfo AuthInfo;
    NetPMIpAddr DefGateway;
    NetPMIpAddr NetMask;
    char HomeURL[514];
    uint16_t BSecureConnection; /* boolean */
    uint32_t AppProtoType;      /* 1, 2 or 4 */
    int32_t lingerTime;
    uint8_t Opaque[8];
} NetPMPdpProfInfo;

/* Security forms of a Wi-Fi profile; sec_mode tells which one holds. */
typedef struct NetPMWlanProfSecWep {
    char wepKey[4][27];
    uint8_t wepKeyIndex; /* 0 to 3: the key in use */
} NetPMWlanProfSecWep;

typedef struct NetPMWlanProfSecPsk {
    char pskKey[65];
} NetPMWlanProfSecPsk;

typedef struct NetPMWlanProfSecEap {
    char username[51];
    char password[51];
    char ca_cert_filename[51];
    char client_cert_filename[51];
    char private_key_filename[51];
    char private_key_passwd[51];
    int32_t wlan_eap_type;
} NetPMWlanProfSecEap;

typedef struct NetPMWlanProfSecurity {
    int32_t sec_mode; /* 1: open network, 2 and 3: wep, 4, 6 and 8: psk, 5, 7 and 9: eap */
    union {
        NetPMWlanProfSecWep wep;
        NetPMWlanProfSecPsk psk;
        NetPMWlanProfSecEap eap;
        uint8_t Opaque[312];
    } form;
    int32_t encrypt_mode;
} NetPMWlanProfSecurity;

typedef struct NetPMWlanProfNetInfo {
    int32_t addr_type;
    int32_t IpConfigType;
    NetPMIpAddr ip_addr;
    NetPMIpAddr def_gateway;
    NetPMIpAddr net_mask;
    int32_t DnsConfigType;
    NetPMIpAddr dns_addr[2]; /* primary, secondary */
    char ifname[16];         /* network interface */
} NetPMWlanProfNetInfo;

/* What a Wi-Fi profile says. */
typedef struct NetPMWlanProfInfo {
    char ProxyAddr[64]; /* as in a packet-data profile */
    char essid[33];     /* network name, up to 32 characters */
    char bssid[7];      /* access point, as text */
    int32_t freq;
    int32_t rate;
    int32_t standard;
    int32_t wlan_mode;
    NetPMWlanProfSecurity security;
    NetPMWlanProfNetInfo net_info;
} NetPMWlanProfInfo;

/* A profile: 968 bytes. */
typedef struct NetPMProfile {
    uint32_t Opaque;
    int32_t ProfileId;    /* given by the server, above 0 */
    uint32_t ProfileType; /* one of NetPMProfileType */
    char ProfileName[28]; /* display name */
    uint32_t ProfileAttr;
    QUORVEL_EXTENSION union {
        char ProxyAddr[64]; /* both parts begin with it */
        NetPMPdpProfInfo PdpProfInfo;
        NetPMWlanProfInfo WlanProfInfo;
    };
} NetPMProfile;

/* ---------------------------------------------------------------------------------------------------------------
 * Lists in a caller's buffer */

#define NETPM_MAX_PROFILE_IDS 20
#define NETPM_MAX_PARTIAL_PROFILES 20

/* The room, in bytes, that NetPMReadPartialProfileInfo, NetPMGetProfileIdForAPN and NetPMGetFindProfileIds need at
 * `out`. They copy what the server has sent, whole, whatever it is: nothing is written behind what was sent, and
 * nothing beyond this room. What a server sends that keeps to the two records below is no longer. */
#define NETPM_LIST_ROOM 2800

/* What NetPMGetProfileIdForAPN and NetPMGetFindProfileIds find, at the start of the caller's buffer: 84 bytes. */
typedef struct NetPMProfileIdList {
    int32_t ProfileId[NETPM_MAX_PROFILE_IDS];
    int32_t Count; /* how many of ProfileId are valid */
} NetPMProfileIdList;

/* One entry of what NetPMReadPartialProfileInfo puts into the caller's buffer: 140 bytes, at most 20 of them. */
typedef struct NetPMPartialProfile {
    int32_t ProfileId;
    uint32_t ProfileType;
    char ProfileName[28];
    char NetworkName[104]; /* the APN, or the ESSID of a Wi-Fi profile */
} NetPMPartialProfile;

/* ---------------------------------------------------------------------------------------------------------------
 * The profile store */

/* Adds a profile.
 *
 *   profile  not null; a profile that is no Wi-Fi profile must have an AppProtoType of 1, 2 or 4. Its ProxyAddr is
 *            changed in place: an empty one becomes "0.0.0.0:80", any other loses the leading zeros of its groups
 *            ("010.001.000.255:0080" becomes "10.1.0.255:80")
 *   newId    not null; the id that the server has given, or -1 when the exchange failed or was refused. It stays
 *            untouched when nothing was asked: with the results 2, 6 and 19 */
uint32_t NetPMAddProfileInfo(NetPMProfile *profile, int32_t *newId);

/* Replaces a stored profile.
 *
 *   profileId  above 0
 *   profile    not null; AppProtoType as for an added profile. An empty ProxyAddr becomes "0.0.0.0:80" in place;
 *              any other is sent as it is */
uint32_t NetPMModifyProfileInfo(int32_t profileId, NetPMProfile *profile);

/* Deletes the stored profile `profileId`, which is above 0. */
uint32_t NetPMDeleteProfileInfo(int32_t profileId);

/* Reads a stored profile.
 *
 *   profileId  above 0
 *   out        not null; the whole record is written, with zeros where the server has sent less */
uint32_t NetPMGetProfileInfo(int32_t profileId, NetPMProfile *out);

/* Reads the status of a stored profile, in the server's numbers, into `status`, which is not null.
 * `profileId` is above 0. */
uint32_t NetPMGetProfileStatus(int32_t profileId, uint16_t *status);

/* Reads the default profile into `out`, which is not null: as NetPMGetProfileInfo. */
uint32_t NetPMGetDefaultProfileInfo(NetPMProfile *out);

/* Reads the id of the default profile into `profileId`, which is not null. */
uint32_t NetPMGetDefaultProfileId(int32_t *profileId);

/* Makes the profile `profileId`, which is above 0, the default one. */
uint32_t NetPMSetDefaultProfileId(int32_t profileId);

/* Lists the ids of the stored profiles.
 *
 *   profileType  0 packet data, 1 Wi-Fi, 2 both
 *   maxCount     entries that `ids` has room for, at least 1; at most 20 ids are delivered
 *   ids          not null
 *   count        not null; how many ids have been written */
uint32_t NetPMGetProfileIdList(uint32_t profileType, int32_t maxCount, int32_t *ids, int32_t *count);

/* Puts the stored profiles back to what the device was delivered with. */
uint32_t NetPMRestoreProfileInfo(void);

/* Reads the attributes of a stored profile, in the server's bits, into `attr`, which is not null.
 * `profileId` is above 0. */
uint32_t NetPMGetProfileAttributes(int32_t profileId, uint32_t *attr);

/* Reads a few parameters of the stored profiles of a type.
 *
 *   profileType  as for NetPMGetProfileIdList; not checked here
 *   out          not null, with room for NETPM_LIST_ROOM bytes; gets at most 20 NetPMPartialProfile
 *   count        not null; the number of entries as the server states it. It is the server's word and not limited
 *                here: `out` holds at most 20, whatever it says, so look at no more than
 *                NETPM_MAX_PARTIAL_PROFILES, and at none when it is negative */
uint32_t NetPMReadPartialProfileInfo(uint32_t profileType, void *out, int32_t *count);

/* Finds the profiles of an access point name.
 *
 *   apn  not null, not empty; the first 99 characters count
 *   out  not null, with room for NETPM_LIST_ROOM bytes; gets a NetPMProfileIdList */
uint32_t NetPMGetProfileIdForAPN(const char *apn, void *out);

/* Finds the profiles of an access point name or of a network name.
 *
 *   netIface  0: `key` is an APN, of which the first 100 characters count;
 *             1: `key` is an ESSID, of which the first 32 characters count
 *   key       not null, not empty
 *   out       as for NetPMGetProfileIdForAPN */
uint32_t NetPMGetFindProfileIds(uint32_t netIface, const char *key, void *out);

/* ---------------------------------------------------------------------------------------------------------------
 * Which profile an application uses
 *
 * An application is named by its id, a number above 0. */

/* The binding of one application: 20 bytes. */
typedef struct NetPMAppProf {
    uint32_t AppId;
    uint32_t Param; /* a second word of the application; the server's */
    uint32_t ProfileId;
    uint32_t NetIfaceList[2]; /* interfaces that the application may use */
} NetPMAppProf;

/* These three give a truth value, not a status: 1 when the application has been added, has been deleted, or
 * is known; 0 for a refusal and for every failure alike, an id below 1 included. */
uint32_t NetPMAppProfAddAppId(int32_t appId);
uint32_t NetPMAppProfDeleteAppId(int32_t appId);
uint32_t NetPMAppProfCheckAppId(int32_t appId);

/* Reads an application's binding into `out`, which is not null. */
uint32_t NetPMAppProfGetAppInfo(int32_t appId, NetPMAppProf *out);

/* Sets an application's profile and its interfaces at once.
 *
 *   rec  not null; sent whole, so its own AppId names the application, not `appId`. On success it holds the
 * binding as the server has stored it */
uint32_t NetPMAppProfSetAppInfo(int32_t appId, NetPMAppProf *rec);

/* Binds an application to the profile `profileId`, which is above 0. */
uint32_t NetPMAppProfSetProfId(int32_t appId, int32_t profileId);

/* Reads the profile that an application is bound to into `profileId`, which is not null and becomes
 * 0xFFFFFFFF when the binding cannot be read. */
uint32_t NetPMAppProfGetAppProfId(int32_t appId, uint32_t *profileId);

/* Sets the interfaces that an application may use to list[0] and list[1]; `list` is not null. */
uint32_t NetPMAppProfSetNetIfaceList(int32_t appId, const uint32_t list[2]);

/* Reads the interfaces that an application may use into list[0] and list[1]; `list` is not null, and both
 * become 0 when the binding cannot be read. */
uint32_t NetPMAppProfGetAppNetIfaceList(int32_t appId, uint32_t list[2]);

/* Asks which profile an application is to use now; `profileId` is not null. */
uint32_t NetPMAppProfGetProperProfile(int32_t appId, uint32_t *profileId);

/* Asks the same without waiting: returns as soon as the request is sent. The answer arrives as a
 * NETCM_EVENT_PROPER_PROFILE_RSP at the callback of the calling thread, when that thread is registered and
 * fewer than 16 such requests of the process are under way. */
uint32_t NetPMAppProfGetProperProfileAsync(int32_t appId);

/* Changes the payment setting of the device.
 *
 *   csc      "VGR" or "VOD"
 *   payment  "PRE" or "POST"
 *
 * Anything else, null included, is NETCM_ERR_INVALID_PARAM. */
uint32_t NetPMAppProfChangePayment(const char *csc, const char *payment);

#ifdef __cplusplus
}
#endif

#endif
