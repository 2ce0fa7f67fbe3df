// Adding, changing, reading, listing and finding stored profiles.
#include <algorithm>
#include <cstring>

#include "client/PM/src/NetPMIntf/Invalid.h"
#include "client/PM/src/NetPMIntf/StoreExchange.h"
#include "client/PM/src/NetPMPrivate.h"

using namespace quorvel;

namespace {

constexpr char kNoProxy[] = "0.0.0.0:80";

bool has_known_protocol(const NetPMProfile& profile) {
    if (profile.ProfileType == NETPM_PROFILE_WLAN)
        return true;
    const uint32_t protocol = profile.PdpProfInfo.AppProtoType;
    return protocol == 1 || protocol == 2 || protocol == 4;
}

bool has_proxy(const NetPMProfile& profile) {
    return profile.ProxyAddr[0] != '\0';
}
void set_no_proxy(NetPMProfile& profile) {
    memcpy(profile.ProxyAddr, kNoProxy, sizeof kNoProxy);
}

uint32_t read_profile(const StoreRequest& request, NetPMProfile& out) {
    return ask_store(request, [&](const StoreAnswer& answer) {
        wire::PmProfileSlot slot = {};
        answer.copy_ext_to(&slot, sizeof slot);
        out = slot.Profile;
    });
}

// A name in a field of fixed size, as the server searches for it.
template <class Field>
uint32_t find_ids(wire::PmCommand command, uint32_t arg, const char* name, size_t longest, void* out) {
    Field field = {};
    memcpy(field, name, strnlen(name, longest));
    return ask_store({.command = command, .arg = arg, .data = std::as_bytes(std::span(field))},
                     [=](const StoreAnswer& answer) { answer.copy_ext_to(out, NETPM_LIST_ROOM); });
}

}  // namespace

extern "C" {

uint32_t NetPMAddProfileInfo(NetPMProfile* profile, int32_t* newId) {
    if (profile == nullptr || newId == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    if (!has_known_protocol(*profile))
        return QV_INVALID("PDP Application protocol type is wrong \n");
    if (has_proxy(*profile))
        NetPMAdjustIpStr(profile->ProxyAddr);
    else
        set_no_proxy(*profile);

    const wire::PmProfileSlot slot = {.Profile = *profile, .Zero = {}};
    return ask_store({.command = wire::NETPM_CLIENT_ADD_PROFILE_REQ,
                      .profile_id = -1,
                      .data = std::as_bytes(std::span(&slot, 1)),
                      .new_id = newId});
}

// Unlike for an added profile, a proxy that is there is sent as it is.
uint32_t NetPMModifyProfileInfo(int32_t profileId, NetPMProfile* profile) {
    if (profileId <= 0 || profile == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    if (!has_known_protocol(*profile))
        return QV_INVALID("PDP Application protocol type is wrong \n");
    if (!has_proxy(*profile))
        set_no_proxy(*profile);

    const wire::PmProfileSlot slot = {.Profile = *profile, .Zero = {}};
    return ask_store({.command = wire::NETPM_CLIENT_MODIFY_PROFILE_REQ,
                      .profile_id = profileId,
                      .data = std::as_bytes(std::span(&slot, 1))});
}

uint32_t NetPMDeleteProfileInfo(int32_t profileId) {
    if (profileId <= 0)
        return QV_INVALID("Invalid profile ID [%d]\n", profileId);
    return ask_store({.command = wire::NETPM_CLIENT_DELETE_PROFILE_REQ, .profile_id = profileId});
}

uint32_t NetPMGetProfileInfo(int32_t profileId, NetPMProfile* out) {
    if (profileId <= 0 || out == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    return read_profile({.command = wire::NETPM_CLIENT_GET_PROFILE_REQ, .profile_id = profileId}, *out);
}

uint32_t NetPMGetProfileStatus(int32_t profileId, uint16_t* status) {
    if (profileId <= 0 || status == nullptr)
        return QV_INVALID("Invalid input parameters\n");
    return ask_store({.command = wire::NETPM_CLIENT_GET_PROFILE_STATUS_REQ, .profile_id = profileId},
                     [=](const StoreAnswer& answer) { *status = static_cast<uint16_t>(answer.block.Value); });
}

uint32_t NetPMGetDefaultProfileInfo(NetPMProfile* out) {
    if (out == nullptr)
        return QV_INVALID("Invalid ProfInfo pointer\n");
    return read_profile({.command = wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ}, *out);
}

uint32_t NetPMGetDefaultProfileId(int32_t* profileId) {
    if (profileId == nullptr)
        return QV_INVALID("Invalid profile ID pointer\n");
    return ask_store({.command = wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ},
                     [=](const StoreAnswer& answer) { *profileId = answer.block.ProfileId; });
}

uint32_t NetPMSetDefaultProfileId(int32_t profileId) {
    if (profileId <= 0)
        return QV_INVALID("Invalid profile ID [%d]\n", profileId);
    return ask_store({.command = wire::NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ, .profile_id = profileId});
}

uint32_t NetPMGetProfileIdList(uint32_t profileType, int32_t maxCount, int32_t* ids, int32_t* count) {
    if (ids == nullptr || count == nullptr || maxCount < 1)
        return QV_INVALID("Invalid input parameters\n");
    if (profileType > 2)
        return QV_INVALID("Invalid Profile type [%d]\n", profileType);
    return ask_store({.command = wire::NETPM_CLIENT_GET_POFILE_LIST_REQ,
                      .arg = profileType,
                      .arg2 = static_cast<uint32_t>(maxCount)},
                     [=](const StoreAnswer& answer) {
                         wire::PmIdListBlock list = {};
                         answer.copy_ext_to(&list, sizeof list);
                         *count = std::clamp(list.Count, 0, std::min(maxCount, NETPM_MAX_PROFILE_IDS));
                         std::copy_n(list.ProfileId, *count, ids);
                     });
}

uint32_t NetPMRestoreProfileInfo(void) {
    return ask_store({.command = wire::NETPM_CLIENT_RESTORE_PROFILES_REQ});
}

uint32_t NetPMGetProfileAttributes(int32_t profileId, uint32_t* attr) {
    if (profileId <= 0 || attr == nullptr)
        return QV_INVALID("Invalid input parameters\n");
    return ask_store({.command = wire::NETPM_CLIENT_GET_PROFILE_ATTR_REQ, .profile_id = profileId},
                     [=](const StoreAnswer& answer) { *attr = answer.block.Value; });
}

uint32_t NetPMReadPartialProfileInfo(uint32_t profileType, void* out, int32_t* count) {
    if (out == nullptr || count == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    return ask_store({.command = wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ, .arg = profileType},
                     [=](const StoreAnswer& answer) {
                         *count = answer.block.ProfileId;
                         answer.copy_ext_to(out, NETPM_LIST_ROOM);
                     });
}

uint32_t NetPMGetProfileIdForAPN(const char* apn, void* out) {
    if (apn == nullptr || out == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    if (*apn == '\0')
        return QV_INVALID("Invalid APN parameter\n");
    using Field = wire::PmApnField;
    return find_ids<Field>(wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ, 0, apn, sizeof(Field) - 1, out);
}

uint32_t NetPMGetFindProfileIds(uint32_t netIface, const char* key, void* out) {
    if (key == nullptr || out == nullptr)
        return QV_INVALID("Invalid input parameter\n");
    if (*key == '\0')
        return QV_INVALID("Invalid APN/ESSID parameter\n");
    constexpr wire::PmCommand command = wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ;
    switch (netIface) {
        case NETPM_PROFILE_PDP:
            return find_ids<wire::PmApnField>(command, netIface, key, sizeof(wire::PmApnField), out);
        case NETPM_PROFILE_WLAN:
            return find_ids<wire::PmEssidField>(command, netIface, key, sizeof(wire::PmEssidField), out);
        default:
            return QV_INVALID("Invalid input parameter. NetIface = %d \n", netIface);
    }
}

}  // extern "C"
