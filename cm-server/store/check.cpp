#include "store/check.h"

#include <cstring>

#include "common/SecurityForm.h"
#include "store/fields.h"
#include "store/store.h"

namespace quorvel::cm {
namespace {

void require(bool good, PmError error) {
    if (!good)
        throw PmRefusal(error);
}

bool is_app_protocol(uint32_t type) {
    return type == 1 || type == 2 || type == 4;
}

void check_wlan(const NetPMWlanProfInfo& wlan) {
    require(wlan.essid[0] != '\0', PM_ERR_NO_NETWORK_NAME);
    require(wire::security_form(wlan.security.sec_mode) != wire::SecurityForm::kInvalid, PM_ERR_BAD_SECURITY);
}

}  // namespace

void check_profile(const NetPMProfile& profile) {
    require(profile.ProfileType <= NETPM_PROFILE_WLAN, PM_ERR_UNKNOWN_TYPE);
    require(profile.ProfileName[0] != '\0', PM_ERR_EMPTY_NAME);
    require(std::memchr(profile.ProfileName, '\0', sizeof(profile.ProfileName)) != nullptr,
            PM_ERR_UNENDED_TEXT);
    for (const Field& field : profile_fields())
        require(!has_part(profile, field.part) || ends_within(profile, field), PM_ERR_UNENDED_TEXT);
    if (profile.ProfileType == NETPM_PROFILE_PDP)
        require(is_app_protocol(profile.PdpProfInfo.AppProtoType), PM_ERR_BAD_PROTOCOL);
    else
        check_wlan(profile.WlanProfInfo);
    if (has_part(profile, Part::kWep))
        require(profile.WlanProfInfo.security.form.wep.wepKeyIndex <= 3, PM_ERR_BAD_KEY_INDEX);
}

}  // namespace quorvel::cm
