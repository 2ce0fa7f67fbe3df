// Profiles in the trace, and addresses in the form that the server expects.
#include <cstring>

#include "client/PM/src/FieldTrace.h"
#include "client/PM/src/NetPMPrivate.h"

using namespace quorvel;

namespace {

constexpr size_t kAddressField = sizeof(NetPMProfile::ProxyAddr);
constexpr size_t kAddressText = kAddressField - 1;

#define QV_PROFILE_FIELDS(X) \
    X(NUMBER, ProfileId)     \
    X(NUMBER, ProfileType)   \
    X(TEXT, ProfileName)     \
    X(NUMBER, ProfileAttr)

// The text of an address field while it is written: what does not fit is left out.
class AddressText {
  public:
    void append(char c) {
        if (length_ < kAddressText)
            text_[length_++] = c;
    }
    void copy_to(char* field) const {
        memset(field, 0, kAddressText);
        memcpy(field, text_, length_ + 1);
    }
    const char* c_str() const { return text_; }

  private:
    char text_[kAddressField] = {};
    size_t length_ = 0;
};

bool begins_number(char c) {
    return c >= '1' && c <= '9';
}
bool ends_group(char c) {
    return c == '.' || c == ':' || c == '\0';
}

}  // namespace

extern "C" {

void NetPMAdjustIpStr(char* ip) {
    QV_TRACE(2, "Original ip string = %s\n", FieldText<kAddressField>(ip).c_str());
    AddressText adjusted;
    bool in_number = false;  // what comes before the first digit other than 0 of a group is dropped
    for (size_t i = 0; i < kAddressText; ++i) {
        const char c = ip[i];
        if (ends_group(c)) {
            if (!in_number)
                adjusted.append('0');
            if (c == '\0')
                break;
            adjusted.append(c);
            in_number = false;
            continue;
        }
        in_number = in_number || begins_number(c);
        if (in_number)
            adjusted.append(c);
    }
    adjusted.copy_to(ip);
    QV_TRACE(2, "Modified ip string = %s\n", adjusted.c_str());
}

uint32_t PrintNetPMProfile(const NetPMProfile* profile) {
#define X(kind, field) QV_FIELD_##kind("ProfInfo->", *profile, field)
    QV_PROFILE_FIELDS(X)
#undef X
    switch (profile->ProfileType) {
        case NETPM_PROFILE_PDP:
            return PrintNetPMPDPProfile(profile);
        case NETPM_PROFILE_WLAN:
            return PrintNetPMWlanProfile(profile);
        default:
            QV_TRACE(2, "Invalid profile type [%d]\n", static_cast<int>(profile->ProfileType));
            return NETCM_ERR_INVALID_PARAM;
    }
}

}  // extern "C"
