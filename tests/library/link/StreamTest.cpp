#include "StreamTest.h"

#include "library/pm/pm_test.h"

namespace quorvel::test {
namespace {

Bytes settings_answer(int32_t key) {
    wire::Record record = answer_record(wire::NETCM_CLIENT_GET_SETTINGS_REQ);
    record.Word2 = 1000 + static_cast<uint32_t>(key);
    return bytes_of(record);
}
int32_t ask_settings(int32_t key) {
    uint32_t value = 0;
    uint32_t result = 0;
    return NetCMSettingsGet(static_cast<uint32_t>(key), &value, &result) == 1
               ? static_cast<int32_t>(value) - 1000
               : -1;
}

wire::PmResponseBlock pm_answer(wire::PmCommand command, int32_t profile) {
    return {.RspCode = wire::kPmAnswer + command,
            .ProfileId = profile,
            .Error = 0,
            .Reserved = 0,
            .ExtDataLength = 0,
            .Value = static_cast<uint32_t>(profile)};
}

Bytes attributes_answer(int32_t profile) {
    return bytes_of(pm_record(pm_answer(wire::NETPM_CLIENT_GET_PROFILE_ATTR_REQ, profile)));
}
int32_t ask_attributes(int32_t profile) {
    uint32_t attributes = 0;
    return NetPMGetProfileAttributes(profile, &attributes) == 0 ? static_cast<int32_t>(attributes) : -1;
}

Bytes profile_answer(int32_t profile) {
    wire::PmResponseBlock block = pm_answer(wire::NETPM_CLIENT_GET_PROFILE_REQ, profile);
    wire::PmProfileSlot slot = {};
    slot.Profile.ProfileId = profile;
    block.ExtDataLength = sizeof slot;
    return bytes_of(pm_record(block)) + bytes_of(slot);
}
int32_t ask_profile(int32_t profile) {
    NetPMProfile out = {};
    return NetPMGetProfileInfo(profile, &out) == 0 ? out.ProfileId : -1;
}

Bytes list_answer(int32_t profile) {
    wire::ProfileIdBlock block = {};
    block.Count = 1;
    block.ProfileId[0] = profile;
    return bytes_of(answer_record(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ)) + bytes_of(block);
}
int32_t ask_list(int32_t) {
    uint8_t ids[sizeof(wire::ProfileIdBlock::ProfileId)] = {};
    uint32_t count = 0;
    if (NetCMGetActiveProfileIDs(ids, &count) != 0 || count != 1)
        return -1;
    int32_t profile = 0;
    std::memcpy(&profile, ids, sizeof profile);
    return profile;
}

// The profile 1 is call 1.
Bytes open_answer(int32_t profile) {
    wire::Record record = answer_record(wire::NETCM_CLIENT_START_REQ);
    record.CallId = static_cast<uint32_t>(profile);
    return bytes_of(record);
}
int32_t ask_open(int32_t profile) {
    if (NetCMConnectionOpen(&profile, 1) != 0)
        return -1;
    int32_t call_id = -1;
    int32_t index = -1;
    pthread_mutex_lock(&NetCMAppMutex);
    NetCMGetCallIdFromProfileId(profile, &call_id, &index);
    pthread_mutex_unlock(&NetCMAppMutex);
    return call_id;
}

}  // namespace

const Operation kSettings = {"settings", wire::NETCM_CLIENT_GET_SETTINGS_REQ, settings_answer, ask_settings};
const Operation kAttributes = {"attributes", wire::NETPM_PROFILE_REQ, attributes_answer, ask_attributes};
const Operation kProfile = {"profile", wire::NETPM_PROFILE_REQ, profile_answer, ask_profile};
const Operation kList = {"list", wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, list_answer, ask_list};
const Operation kOpen = {"open", wire::NETCM_CLIENT_START_REQ, open_answer, ask_open};

}  // namespace quorvel::test
