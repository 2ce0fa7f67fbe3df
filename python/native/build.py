"""Writes the C source of the module quorvel._native.

    build.py OUTPUT
"""

import sys

import cffi

DECLARATIONS = """
    enum qv_operation { QV_OPEN, QV_CLOSE, QV_KILL, QV_CLEANUP, QV_TUNNEL, QV_TUNNEL_REGISTER, QV_TUNNEL_DEREGISTER,
        QV_GET_SETTING, QV_SET_SETTING, QV_NETWORK_STATUS, QV_GET_PACKET_DATA, QV_SET_PACKET_DATA, QV_INTERFACES,
        QV_RESET_STATISTICS, QV_STATISTICS, QV_ACTIVE_PROFILES, QV_ACTIVE_NAMES, QV_ACTIVE_CONNECTIONS,
        QV_ADD_PROFILE, QV_CHANGE_PROFILE, QV_DELETE_PROFILE, QV_READ_PROFILE, QV_PROFILE_STATUS,
        QV_PROFILE_ATTRIBUTES, QV_DEFAULT_PROFILE, QV_DEFAULT_PROFILE_ID, QV_SET_DEFAULT_PROFILE, QV_PROFILE_IDS,
        QV_PROFILE_LIST, QV_FIND_PROFILES, QV_RESTORE_PROFILES, QV_ADD_APPLICATION, QV_DELETE_APPLICATION,
        QV_CHECK_APPLICATION, QV_READ_APPLICATION, QV_CHANGE_APPLICATION, QV_SET_APPLICATION_PROFILE,
        QV_PROPER_PROFILE, QV_CHANGE_PAYMENT, QV_LOOK_UP, QV_OPERATIONS, ... };
    enum qv_lookup_status { QV_FOUND, QV_NOT_FOUND, QV_LOOKUP_REFUSED, ... };

    typedef struct { uint32_t addresses; uint32_t names; ...; } qv_host;
    typedef struct {
        uint64_t request; uint32_t status; int32_t profile; int32_t result; int32_t reason; uint32_t id;
        uint32_t length; unsigned char data[]; ...;
    } qv_message;
    typedef ... qv_mailbox;

    qv_mailbox *qv_mailbox_open(void);
    int qv_mailbox_descriptor(const qv_mailbox *);
    int qv_mailbox_is_ours(const qv_mailbox *);
    qv_message *qv_mailbox_take(qv_mailbox *, uint32_t *);
    void qv_mailbox_close(qv_mailbox *);
    void qv_message_free(qv_message *);

    int64_t qv_client_start(qv_mailbox *, qv_mailbox *, uint64_t);
    uint32_t qv_client_ask(int64_t, int, int32_t, uint32_t, const void *, uint32_t, qv_mailbox *, uint64_t,
        qv_mailbox *);
    void qv_client_forget(int64_t, uint64_t);
    void qv_client_abandon(int64_t, qv_mailbox *);
    uint32_t qv_client_end(int64_t, qv_mailbox *, uint64_t);

    enum NetCMStatus { NETCM_SUCCESS, NETCM_ERR_FAILURE, NETCM_ERR_REREGISTER_FAILED, NETCM_ERR_ALREADY_REGISTERED,
        NETCM_ERR_REREGISTER_RETRY_EXHAUSTED, NETCM_ERR_NO_FREE_ENTRY, NETCM_ERR_NOT_REGISTERED,
        NETCM_ERR_INVALID_PROFILE, NETCM_ERR_NOT_ACTIVE, NETCM_ERR_ALREADY_EXISTS, NETCM_ERR_CLOSING,
        NETCM_ERR_CALL_CLOSING, NETCM_ERR_MAX_LIMIT, NETCM_ERR_NO_FREE_KILL_ENTRY, NETCM_ERR_NO_FREE_TUNNEL_ENTRY,
        NETCM_ERR_INVALID_PARAM, ... };
    enum NetIface { NETCM_IFACE_PDP, NETCM_IFACE_WIFI, ... };
    enum NetCMEventType { NETCM_EVENT_OPEN_RSP, NETCM_EVENT_CLOSE_RSP, NETCM_EVENT_KILL_RSP, NETCM_EVENT_STOP_IND,
        NETCM_EVENT_SUSPEND_IND, NETCM_EVENT_RESUME_IND, NETCM_EVENT_TUNNEL_RSP, NETCM_EVENT_TUNNEL_IND,
        NETCM_EVENT_NETWORK_STATUS_IND, NETCM_EVENT_IP_CHANGE_IND, NETCM_EVENT_PROPER_PROFILE_RSP, ... };

    typedef struct { uint32_t Type; uint8_t Addr[16]; ...; } NetCMAddr;
    typedef struct {
        int32_t ProfileId; char IfaceName[32]; NetCMAddr DnsAddr[2]; int32_t DnsCount; NetCMAddr IpAddr;
        uint16_t HasOptAddr1; NetCMAddr OptAddr1; uint16_t HasOptAddr2; NetCMAddr OptAddr2; ...;
    } NetCMConnInfo;

    enum NetPMProfileType { NETPM_PROFILE_PDP, NETPM_PROFILE_WLAN, ... };
    typedef struct { uint32_t Ipv4; uint8_t Opaque[12]; ...; } NetPMIpAddr;
    typedef struct { uint32_t TrafficClass; uint8_t Opaque[44]; } NetPMQosUmts;
    typedef struct { uint32_t QosType; union { NetPMQosUmts QosUmts; uint8_t Opaque[48]; } Qos; } NetPMQosInfo;
    typedef struct { uint32_t AuthType; char UserName[32]; char Password[32]; ...; } NetPMAuthInfo;
    typedef struct {
        char ProxyAddr[64]; uint16_t BPrimaryPdpProfile; int32_t PrimaryPdpProfileId; uint32_t ProtocolType;
        char Apn[104]; uint32_t AddrType; uint16_t BStaticIpAddr; NetPMIpAddr IpAddr; uint16_t BStaticDnsAddr;
        NetPMIpAddr DnsAddr[2]; NetPMQosInfo QosInfo; NetPMAuthInfo AuthInfo; NetPMIpAddr DefGateway;
        NetPMIpAddr NetMask; char HomeURL[514]; uint16_t BSecureConnection; uint32_t AppProtoType;
        int32_t lingerTime; ...;
    } NetPMPdpProfInfo;
    typedef struct { char wepKey[4][27]; uint8_t wepKeyIndex; } NetPMWlanProfSecWep;
    typedef struct { char pskKey[65]; } NetPMWlanProfSecPsk;
    typedef struct {
        char username[51]; char password[51]; char ca_cert_filename[51]; char client_cert_filename[51];
        char private_key_filename[51]; char private_key_passwd[51]; int32_t wlan_eap_type;
    } NetPMWlanProfSecEap;
    typedef struct {
        int32_t sec_mode;
        union { NetPMWlanProfSecWep wep; NetPMWlanProfSecPsk psk; NetPMWlanProfSecEap eap; uint8_t Opaque[312]; } form;
        int32_t encrypt_mode;
    } NetPMWlanProfSecurity;
    typedef struct {
        int32_t addr_type; int32_t IpConfigType; NetPMIpAddr ip_addr; NetPMIpAddr def_gateway; NetPMIpAddr net_mask;
        int32_t DnsConfigType; NetPMIpAddr dns_addr[2]; char ifname[16]; ...;
    } NetPMWlanProfNetInfo;
    typedef struct {
        char ProxyAddr[64]; char essid[33]; char bssid[7]; int32_t freq; int32_t rate; int32_t standard;
        int32_t wlan_mode; NetPMWlanProfSecurity security; NetPMWlanProfNetInfo net_info; ...;
    } NetPMWlanProfInfo;
    typedef struct {
        int32_t ProfileId; uint32_t ProfileType; char ProfileName[28]; uint32_t ProfileAttr; char ProxyAddr[64];
        NetPMPdpProfInfo PdpProfInfo; NetPMWlanProfInfo WlanProfInfo; ...;
    } NetPMProfile;
    typedef struct { int32_t ProfileId; uint32_t ProfileType; char ProfileName[28]; char NetworkName[104]; ...; }
        NetPMPartialProfile;
    typedef struct { uint32_t AppId; uint32_t Param; uint32_t ProfileId; uint32_t NetIfaceList[2]; ...; } NetPMAppProf;

    struct hostent { char *h_name; char **h_aliases; char **h_addr_list; ...; };
    struct hostent *dnet_gethostbyname_r(const char *, const char *, const char *, char *, int, int *, unsigned int *,
        int *);
    struct hostent *dnet_gethostbyaddr_r(const char *, const char *, const char *, int, int, char *, int, int *,
        unsigned int *, int *);
    void clear_dns_cache(void);
"""

HEADERS = """
    #include <quorvel/NetCM.h>
    #include <quorvel/NetDNS.h>
    #include <quorvel/NetPM.h>
    #include "binding.h"
"""

builder = cffi.FFI()
builder.cdef(DECLARATIONS)
builder.set_source("quorvel._native", HEADERS)
builder.emit_c_code(sys.argv[1])
