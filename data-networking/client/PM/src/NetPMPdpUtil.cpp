// Packet-data profiles in the trace.
#include "client/PM/src/FieldTrace.h"
#include "client/PM/src/NetPMPrivate.h"

// Readers of these traces know their quirks: ProtocolType comes twice, AddrType without a line end, and both
// DNS servers under the same words.
#define QV_FIELD_OPEN_NUMBER(before, record, field) \
    QV_TRACE(0, before #field " [%d]", static_cast<int>((record).field));
#define QV_FIELD_ADDRESSES(before, record, field)     \
    for (const NetPMIpAddr& address : (record).field) \
        QV_TRACE(0, before #field "[i] [%s]\n", ::quorvel::dotted(address));

#define QV_PDP_FIELDS(X)                        \
    X(TEXT, ProxyAddr)                          \
    X(NUMBER, BPrimaryPdpProfile)               \
    X(NUMBER, PrimaryPdpProfileId)              \
    X(NUMBER, ProtocolType)                     \
    X(TEXT, Apn)                                \
    X(OPEN_NUMBER, AddrType)                    \
    X(NUMBER, BStaticIpAddr)                    \
    X(ADDRESS, IpAddr)                          \
    X(NUMBER, BStaticDnsAddr)                   \
    X(ADDRESSES, DnsAddr)                       \
    X(NUMBER, QosInfo.QosType)                  \
    X(NUMBER, QosInfo.Qos.QosUmts.TrafficClass) \
    X(NUMBER, AuthInfo.AuthType)                \
    X(TEXT, AuthInfo.UserName)                  \
    X(TEXT, AuthInfo.Password)                  \
    X(NUMBER, ProtocolType)                     \
    X(ADDRESS, DefGateway)                      \
    X(ADDRESS, NetMask)                         \
    X(TEXT, HomeURL)                            \
    X(NUMBER, BSecureConnection)                \
    X(NUMBER, AppProtoType)                     \
    X(NUMBER, lingerTime)

uint32_t PrintNetPMPDPProfile(const NetPMProfile* profile) {
#define X(kind, field) QV_FIELD_##kind("PdpProfInfo->", profile->PdpProfInfo, field)
    QV_PDP_FIELDS(X)
#undef X
    return NETCM_SUCCESS;
}
