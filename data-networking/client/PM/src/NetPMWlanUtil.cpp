// Wi-Fi profiles in the trace.
#include "client/PM/src/FieldTrace.h"
#include "client/PM/src/NetPMPrivate.h"
#include "common/SecurityForm.h"

using namespace quorvel;

#define QV_FIELD_ADDRESSES(before, record, field) \
    for (int i = 0; i < 2; ++i)                   \
        QV_TRACE(0, before #field "[%d] [%s]\n", i, dotted((record).field[i]));

#define QV_WLAN_FIELDS(X) \
    X(TEXT, ProxyAddr)    \
    X(TEXT, essid)        \
    X(TEXT, bssid)        \
    X(NUMBER, freq)       \
    X(NUMBER, rate)       \
    X(NUMBER, standard)   \
    X(NUMBER, wlan_mode)

#define QV_NET_INFO_FIELDS(X) \
    X(NUMBER, addr_type)      \
    X(NUMBER, IpConfigType)   \
    X(ADDRESS, ip_addr)       \
    X(ADDRESS, def_gateway)   \
    X(ADDRESS, net_mask)      \
    X(NUMBER, DnsConfigType)  \
    X(ADDRESSES, dns_addr)    \
    X(TEXT, ifname)

#define QV_EAP_FIELDS(X)          \
    X(TEXT, username)             \
    X(TEXT, password)             \
    X(TEXT, ca_cert_filename)     \
    X(TEXT, client_cert_filename) \
    X(TEXT, private_key_filename) \
    X(TEXT, private_key_passwd)   \
    X(NUMBER, wlan_eap_type)

extern "C" {

#define X(kind, field) QV_FIELD_##kind("WlanProfInfo : ", record, field)

uint32_t PrintNetPMWlanProfile(const NetPMProfile* profile) {
    const NetPMWlanProfInfo& record = profile->WlanProfInfo;
    QV_WLAN_FIELDS(X)
    PrintNetPMWlanProfNetInfo(&record.net_info);
    return PrintNetPMWlanProfSecurity(&record.security);
}

uint32_t PrintNetPMWlanProfNetInfo(const NetPMWlanProfNetInfo* net_info) {
    const NetPMWlanProfNetInfo& record = *net_info;
    QV_NET_INFO_FIELDS(X)
    return NETCM_SUCCESS;
}

uint32_t PrintNetPMWlanProfSecWep(const NetPMWlanProfSecWep* wep) {
    // Of the four keys only the one in use; an index that is none has none.
    if (wep->wepKeyIndex < 4)
        QV_TRACE(0, "WlanProfInfo : wepKey [%s]\n", FieldText(wep->wepKey[wep->wepKeyIndex]).c_str());
    const NetPMWlanProfSecWep& record = *wep;
    X(NUMBER, wepKeyIndex)
    return NETCM_SUCCESS;
}

uint32_t PrintNetPMWlanProfSecPsk(const NetPMWlanProfSecPsk* psk) {
    const NetPMWlanProfSecPsk& record = *psk;
    X(TEXT, pskKey)
    return NETCM_SUCCESS;
}

uint32_t PrintNetPMWlanProfSecEap(const NetPMWlanProfSecEap* eap) {
    const NetPMWlanProfSecEap& record = *eap;
    QV_EAP_FIELDS(X)
    return NETCM_SUCCESS;
}

#undef X

uint32_t PrintNetPMWlanProfSecurity(const NetPMWlanProfSecurity* security) {
    QV_TRACE(0, "Wlan security : sec_mode[%d]\n", security->sec_mode);
    QV_TRACE(0, "Wlan security : encrypt_mode[%d]\n", security->encrypt_mode);
    switch (wire::security_form(security->sec_mode)) {  // not reached: for the compiler
        case wire::SecurityForm::kOpen:
            return NETCM_SUCCESS;
        case wire::SecurityForm::kWep:
            return PrintNetPMWlanProfSecWep(&security->form.wep);
        case wire::SecurityForm::kPsk:
            return PrintNetPMWlanProfSecPsk(&security->form.psk);
        case wire::SecurityForm::kEap:
            return PrintNetPMWlanProfSecEap(&security->form.eap);
        case wire::SecurityForm::kInvalid:
            break;
    }
    QV_TRACE(2, "Invalid sec mode [%d]\n", security->sec_mode);
    return NETCM_ERR_INVALID_PARAM;
}

}  // extern "C"
