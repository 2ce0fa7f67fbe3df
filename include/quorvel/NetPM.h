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
 * The profile record
 *
 * A profile that is read is as the server has stored it. Set by the application. */

/* Which part of a profile holds. */
enum NetPMProfileType {
    NETPM_PROFILE_PDP = 0, /* packet data */
    NETPM_PROFILE_WLAN = 1 /* Wi-Fi */
};

/* An address in a profile. */
typedef struct NetPMIpAddr {
    uint32_t Ipv4;      /* network byte order */
    uint8_t Opaque[12]; /* carried as they are */
} NetPMIpAddr;

/* The quality of service of a UMTS connection. */
typedef struct NetPMQosUmts {
    uint32_t TrafficClass; /* traffic class, in the server's numbers */
    uint8_t Opaque[44];    /* carried as they are */
} NetPMQosUmts;

/* The quality of service that a packet-data profile asks for. */
typedef struct NetPMQosInfo {
    uint32_t QosType; /* which form Qos has, in the server's numbers */
    union {
        NetPMQosUmts QosUmts; /* for UMTS */
        uint8_t Opaque[48];   /* any other: carried as it is */
    } Qos;
} NetPMQosInfo;

/* How a packet-data profile logs in. */
typedef struct NetPMAuthInfo {
    uint32_t AuthType; /* kind of authentication, in the server's numbers */
    char UserName[32]; /* the user's name */
    char Password[32]; /* the user's password */
} NetPMAuthInfo;

/* What a packet-data profile says. */
typedef struct NetPMPdpProfInfo {
    char ProxyAddr[64];          /* dotted IPv4 address, colon, port */
    uint16_t BPrimaryPdpProfile; /* boolean: this is a primary profile */
    int32_t PrimaryPdpProfileId; /* of a secondary profile: its primary one */
    uint32_t ProtocolType;       /* kind of packet-data protocol, in the server's numbers */
    char Apn[104];               /* access point name */
    uint32_t AddrType;           /* kind of address, in the server's numbers */
    uint16_t BStaticIpAddr;      /* boolean: IpAddr is static */
    NetPMIpAddr IpAddr;          /* the static address */
    uint16_t BStaticDnsAddr;     /* boolean: DnsAddr are static */
    NetPMIpAddr DnsAddr[2];      /* the static DNS servers: primary, secondary */
    NetPMQosInfo QosInfo;        /* quality of service */
    NetPMAuthInfo AuthInfo;      /* authentication */
    NetPMIpAddr DefGateway;      /* default gateway */
    NetPMIpAddr NetMask;         /* net mask */
    char HomeURL[514];           /* address of the home page */
    uint16_t BSecureConnection;  /* boolean: the connection is a secure one */
    uint32_t AppProtoType;       /* application protocol: 1, 2 or 4 */
    int32_t lingerTime;          /* linger time, in the server's unit */
    uint8_t Opaque[8];           /* carried as they are */
} NetPMPdpProfInfo;

/* Security by WEP. */
typedef struct NetPMWlanProfSecWep {
    char wepKey[4][27];  /* the keys */
    uint8_t wepKeyIndex; /* 0 to 3: the key in use */
} NetPMWlanProfSecWep;

/* Security by a pre-shared key. */
typedef struct NetPMWlanProfSecPsk {
    char pskKey[65]; /* the key, or the passphrase */
} NetPMWlanProfSecPsk;

/* Security by EAP. */
typedef struct NetPMWlanProfSecEap {
    char username[51];             /* the user's name */
    char password[51];             /* the user's password */
    char ca_cert_filename[51];     /* file of the certificate authority's certificate */
    char client_cert_filename[51]; /* file of the client's certificate */
    char private_key_filename[51]; /* file of the client's private key */
    char private_key_passwd[51];   /* the key's password */
    int32_t wlan_eap_type;         /* EAP method, in the server's numbers */
} NetPMWlanProfSecEap;

/* How a Wi-Fi network is secured; sec_mode tells which form holds. */
typedef struct NetPMWlanProfSecurity {
    int32_t sec_mode; /* 1: open network, 2 and 3: wep, 4, 6 and 8: psk, 5, 7 and 9: eap */
    union {
        NetPMWlanProfSecWep wep; /* sec_mode 2 and 3 */
        NetPMWlanProfSecPsk psk; /* sec_mode 4, 6 and 8 */
        NetPMWlanProfSecEap eap; /* sec_mode 5, 7 and 9 */
        uint8_t Opaque[312];     /* any other: carried as it is */
    } form;
    int32_t encrypt_mode; /* encryption, in the server's numbers */
} NetPMWlanProfSecurity;

/* The addresses of a Wi-Fi profile. */
typedef struct NetPMWlanProfNetInfo {
    int32_t addr_type;       /* kind of address, in the server's numbers */
    int32_t IpConfigType;    /* how the address is configured, in the server's numbers */
    NetPMIpAddr ip_addr;     /* the address */
    NetPMIpAddr def_gateway; /* default gateway */
    NetPMIpAddr net_mask;    /* net mask */
    int32_t DnsConfigType;   /* how the DNS servers are configured, in the server's numbers */
    NetPMIpAddr dns_addr[2]; /* the DNS servers: primary, secondary */
    char ifname[16];         /* network interface */
} NetPMWlanProfNetInfo;

/* What a Wi-Fi profile says. */
typedef struct NetPMWlanProfInfo {
    char ProxyAddr[64];             /* as in a packet-data profile */
    char essid[33];                 /* network name, up to 32 characters */
    char bssid[7];                  /* access point, as text */
    int32_t freq;                   /* frequency of the channel */
    int32_t rate;                   /* bit rate */
    int32_t standard;               /* Wi-Fi standard, in the server's numbers */
    int32_t wlan_mode;              /* kind of network, in the server's numbers */
    NetPMWlanProfSecurity security; /* how it is secured */
    NetPMWlanProfNetInfo net_info;  /* addresses */
} NetPMWlanProfInfo;

/* A profile: 968 bytes. */
typedef struct NetPMProfile {
    uint32_t Opaque;      /* carried as it is */
    int32_t ProfileId;    /* above 0. Set by the server */
    uint32_t ProfileType; /* one of NetPMProfileType */
    char ProfileName[28]; /* display name */
    uint32_t ProfileAttr; /* attributes, in the server's bits */
    QUORVEL_EXTENSION union {
        char ProxyAddr[64];             /* both parts begin with it */
        NetPMPdpProfInfo PdpProfInfo;   /* of a packet-data profile */
        NetPMWlanProfInfo WlanProfInfo; /* of a Wi-Fi profile */
    };
} NetPMProfile;

/* ---------------------------------------------------------------------------------------------------------------
 * Lists in a caller's buffer
 *
 * Set by the server. */

/* How long the lists can be. */
#define NETPM_MAX_PROFILE_IDS 20      /* of NetPMProfileIdList */
#define NETPM_MAX_PARTIAL_PROFILES 20 /* NetPMPartialProfile in one buffer */

/* The room, in bytes, that NetPMReadPartialProfileInfo, NetPMGetProfileIdForAPN and NetPMGetFindProfileIds need at
 * `out`. They copy what the server has sent, whole, whatever it is: nothing is written behind what was sent, and
 * nothing beyond this room. A NetPMProfileIdList and 20 NetPMPartialProfile are no longer. */
#define NETPM_LIST_ROOM 2800

/* What NetPMGetProfileIdForAPN and NetPMGetFindProfileIds find, at the start of the caller's buffer: 84 bytes. */
typedef struct NetPMProfileIdList {
    int32_t ProfileId[NETPM_MAX_PROFILE_IDS]; /* what has been found */
    int32_t Count;                            /* how many of ProfileId are valid */
} NetPMProfileIdList;

/* One entry of what NetPMReadPartialProfileInfo puts into the caller's buffer: 140 bytes, at most 20 of them. */
typedef struct NetPMPartialProfile {
    int32_t ProfileId;     /* id of the profile */
    uint32_t ProfileType;  /* one of NetPMProfileType */
    char ProfileName[28];  /* display name */
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
 *            untouched when nothing was asked: with the results 2, 6 and 19
 *
 * Example: examples/profile.c */
uint32_t NetPMAddProfileInfo(NetPMProfile *profile, int32_t *newId);

/* Replaces a stored profile.
 *
 *   profileId  above 0
 *   profile    not null; AppProtoType as for an added profile. An empty ProxyAddr becomes "0.0.0.0:80" in place;
 *              any other is sent as it is */
uint32_t NetPMModifyProfileInfo(int32_t profileId, NetPMProfile *profile);

/* Deletes a stored profile.
 *
 *   profileId  above 0 */
uint32_t NetPMDeleteProfileInfo(int32_t profileId);

/* Reads a stored profile.
 *
 *   profileId  above 0
 *   out        not null; the whole record is written, with zeros where the server has sent less */
uint32_t NetPMGetProfileInfo(int32_t profileId, NetPMProfile *out);

/* Reads the status of a stored profile.
 *
 *   profileId  above 0
 *   status     not null; in the server's numbers */
uint32_t NetPMGetProfileStatus(int32_t profileId, uint16_t *status);

/* Reads the default profile.
 *
 *   out  as for NetPMGetProfileInfo */
uint32_t NetPMGetDefaultProfileInfo(NetPMProfile *out);

/* Reads the id of the default profile.
 *
 *   profileId  not null */
uint32_t NetPMGetDefaultProfileId(int32_t *profileId);

/* Makes a profile the default one.
 *
 *   profileId  above 0 */
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

/* Reads the attributes of a stored profile.
 *
 *   profileId  above 0
 *   attr       not null; in the server's bits */
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
 * An application is named by its id `appId`, a number above 0. */

/* The binding of one application: 20 bytes. One that is read is as the server has stored it. Set by the application. */
typedef struct NetPMAppProf {
    uint32_t AppId;           /* which application */
    uint32_t Param;           /* a second word of the application; the server's */
    uint32_t ProfileId;       /* the profile that it is bound to */
    uint32_t NetIfaceList[2]; /* interfaces that the application may use */
} NetPMAppProf;

/* Adds an application, deletes it, or asks whether it is known.
 *
 * Returns 1 when the application has been added, has been deleted, or is known; 0 for a refusal and for every failure
 * alike, an id below 1 included: a truth value, and no result as in rule 1. */
uint32_t NetPMAppProfAddAppId(int32_t appId);
uint32_t NetPMAppProfDeleteAppId(int32_t appId);
uint32_t NetPMAppProfCheckAppId(int32_t appId);

/* Reads an application's binding.
 *
 *   out  not null */
uint32_t NetPMAppProfGetAppInfo(int32_t appId, NetPMAppProf *out);

/* Sets an application's profile and its interfaces at once.
 *
 *   rec  not null; sent whole, so its own AppId names the application, not `appId`. On success it holds the
 *        binding as the server has stored it */
uint32_t NetPMAppProfSetAppInfo(int32_t appId, NetPMAppProf *rec);

/* Binds an application to a profile.
 *
 *   profileId  above 0 */
uint32_t NetPMAppProfSetProfId(int32_t appId, int32_t profileId);

/* Reads the profile that an application is bound to.
 *
 *   profileId  not null; becomes 0xFFFFFFFF when the binding cannot be read */
uint32_t NetPMAppProfGetAppProfId(int32_t appId, uint32_t *profileId);

/* Sets the interfaces that an application may use.
 *
 *   list  not null; list[0] and list[1], the NetIfaceList of the binding */
uint32_t NetPMAppProfSetNetIfaceList(int32_t appId, const uint32_t list[2]);

/* Reads the interfaces that an application may use.
 *
 *   list  not null; list[0] and list[1], which both become 0 when the binding cannot be read */
uint32_t NetPMAppProfGetAppNetIfaceList(int32_t appId, uint32_t list[2]);

/* Asks which profile an application is to use now.
 *
 *   profileId  not null */
uint32_t NetPMAppProfGetProperProfile(int32_t appId, uint32_t *profileId);

/* Asks which profile an application is to use now, without waiting: the function is done as soon as the request is
 * sent. The answer arrives as a NETCM_EVENT_PROPER_PROFILE_RSP at the callback of the calling thread, when that thread is registered and
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
