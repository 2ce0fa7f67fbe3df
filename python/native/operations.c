/* Each operation as a call of the library. */
#include <quorvel/NetCM.h>
#include <quorvel/NetPM.h>
#include <string.h>

#include "client.h"

/* What the lists of active connections hold. */
enum {
    kMostActive = 16,
    kNameBytes = 100,
    kMostConnections = 4,
    kConnectionBytes = 176,
    kFirstTextBytes = 128
};

static uint32_t give(qv_output* out, uint32_t status, const void* data, size_t length) {
    if (status == NETCM_SUCCESS) {
        memcpy(out->data, data, length);
        out->length = length;
    }
    return status;
}

static uint32_t give_word(qv_output* out, uint32_t status, uint32_t word) {
    return give(out, status, &word, sizeof word);
}

/* The two functions of settings answer 1 for success. */
static uint32_t setting(uint32_t answer, uint32_t result) {
    return answer == 1 ? NETCM_SUCCESS : answer == NETCM_ERR_REREGISTER_FAILED ? answer : result;
}

/* A list of which there is nothing is empty. */
static uint32_t give_list(qv_output* out, uint32_t status, const void* data, uint32_t count, size_t size) {
    return status == NETCM_ERR_NOT_ACTIVE && count == 0 ? NETCM_SUCCESS
                                                        : give(out, status, data, count * size);
}

static uint32_t limited(int32_t count, uint32_t most) {
    return count < 0 ? 0 : (uint32_t)count > most ? most : (uint32_t)count;
}

/* The library changes the record that it is given. */
static int take_record(const qv_job* job, void* record, size_t size) {
    if (job->data_length != size)
        return 0;
    memcpy(record, job->data, size);
    return 1;
}

static uint32_t ask_settings(const qv_job* job, qv_output* out) {
    uint32_t value = job->b;
    uint32_t result = NETCM_ERR_FAILURE;
    const uint32_t key = (uint32_t)job->a;
    if (job->operation == QV_SET_SETTING)
        return setting(NetCMSettingsSet(key, &value, &result), result);
    const uint32_t answer = NetCMSettingsGet(key, &value, &result);
    return give_word(out, setting(answer, result), value);
}

static uint32_t ask_state(const qv_job* job, qv_output* out) {
    uint32_t word = 0;
    int32_t mask = 0;
    uint32_t statistics[6] = {0};
    uint32_t status = 0;
    switch (job->operation) {
        case QV_NETWORK_STATUS:
            status = NetCMGetNetworkStatus((uint32_t)job->a, &word);
            return give_word(out, status, word);
        case QV_GET_PACKET_DATA:
            status = NetCMGetPacketDataState(&word);
            return give_word(out, status, word);
        case QV_INTERFACES:
            status = NetCMGetNetIfaceList(&mask);
            return give_word(out, status, (uint32_t)mask);
        default:
            status = NetCMGetStatInfo(statistics);
            return give(out, status, statistics, sizeof statistics);
    }
}

static uint32_t ask_active(const qv_job* job, qv_output* out) {
    uint8_t list[kMostActive * kNameBytes] = {0};
    uint32_t count = 0;
    uint32_t status = 0;
    switch (job->operation) {
        case QV_ACTIVE_PROFILES:
            status = NetCMGetActiveProfileIDs(list, &count);
            return give_list(out, status, list, limited((int32_t)count, kMostActive), sizeof(int32_t));
        case QV_ACTIVE_NAMES:
            status = NetCMGetActiveProfileNameList(list, &count);
            return give_list(out, status, list, limited((int32_t)count, kMostActive), kNameBytes);
        default:
            status = NetCMGetActiveConnectionList((uint32_t)job->a, list, &count);
            return give_list(out, status, list, limited((int32_t)count, kMostConnections), kConnectionBytes);
    }
}

static uint32_t change_store(const qv_job* job, qv_output* out) {
    NetPMProfile profile;
    int32_t id = 0;
    if (!take_record(job, &profile, sizeof profile))
        return NETCM_ERR_INVALID_PARAM;
    if (job->operation == QV_CHANGE_PROFILE)
        return NetPMModifyProfileInfo(job->a, &profile);
    const uint32_t status = NetPMAddProfileInfo(&profile, &id);
    return give_word(out, status, (uint32_t)id);
}

static uint32_t read_store(const qv_job* job, qv_output* out) {
    NetPMProfile profile;
    uint16_t state = 0;
    uint32_t word = 0;
    int32_t id = 0;
    uint32_t status = 0;
    switch (job->operation) {
        case QV_READ_PROFILE:
            status = NetPMGetProfileInfo(job->a, &profile);
            return give(out, status, &profile, sizeof profile);
        case QV_DEFAULT_PROFILE:
            status = NetPMGetDefaultProfileInfo(&profile);
            return give(out, status, &profile, sizeof profile);
        case QV_PROFILE_STATUS:
            status = NetPMGetProfileStatus(job->a, &state);
            return give_word(out, status, state);
        case QV_PROFILE_ATTRIBUTES:
            status = NetPMGetProfileAttributes(job->a, &word);
            return give_word(out, status, word);
        default:
            status = NetPMGetDefaultProfileId(&id);
            return give_word(out, status, (uint32_t)id);
    }
}

static uint32_t search_store(const qv_job* job, qv_output* out) {
    int32_t ids[NETPM_MAX_PROFILE_IDS] = {0};
    unsigned char room[NETPM_LIST_ROOM] = {0};
    NetPMProfileIdList found;
    int32_t count = 0;
    uint32_t status = 0;
    switch (job->operation) {
        case QV_PROFILE_IDS:
            status = NetPMGetProfileIdList((uint32_t)job->a, NETPM_MAX_PROFILE_IDS, ids, &count);
            return give(out, status, ids, limited(count, NETPM_MAX_PROFILE_IDS) * sizeof ids[0]);
        case QV_PROFILE_LIST:
            status = NetPMReadPartialProfileInfo((uint32_t)job->a, room, &count);
            return give(out, status, room,
                        limited(count, NETPM_MAX_PARTIAL_PROFILES) * sizeof(NetPMPartialProfile));
        default:
            status = NetPMGetFindProfileIds((uint32_t)job->a, (const char*)job->data, room);
            memcpy(&found, room, sizeof found);
            return give(out, status, found.ProfileId,
                        limited(found.Count, NETPM_MAX_PROFILE_IDS) * sizeof found.ProfileId[0]);
    }
}

static uint32_t ask_applications(const qv_job* job, qv_output* out) {
    NetPMAppProf binding;
    uint32_t word = 0;
    uint32_t status = 0;
    switch (job->operation) {
        case QV_ADD_APPLICATION:
            return give_word(out, NETCM_SUCCESS, NetPMAppProfAddAppId(job->a));
        case QV_DELETE_APPLICATION:
            return give_word(out, NETCM_SUCCESS, NetPMAppProfDeleteAppId(job->a));
        case QV_CHECK_APPLICATION:
            return give_word(out, NETCM_SUCCESS, NetPMAppProfCheckAppId(job->a));
        case QV_READ_APPLICATION:
            status = NetPMAppProfGetAppInfo(job->a, &binding);
            return give(out, status, &binding, sizeof binding);
        case QV_CHANGE_APPLICATION:
            if (!take_record(job, &binding, sizeof binding))
                return NETCM_ERR_INVALID_PARAM;
            status = NetPMAppProfSetAppInfo(job->a, &binding);
            return give(out, status, &binding, sizeof binding);
        case QV_SET_APPLICATION_PROFILE:
            return NetPMAppProfSetProfId(job->a, (int32_t)job->b);
        default:
            status = NetPMAppProfGetProperProfile(job->a, &word);
            return give_word(out, status, word);
    }
}

/* Two texts behind one another. */
static uint32_t change_payment(const qv_job* job) {
    const char* first = (const char*)job->data;
    const size_t length = strnlen(first, kFirstTextBytes);
    if (length >= job->data_length)
        return NETCM_ERR_INVALID_PARAM;
    return NetPMAppProfChangePayment(first, first + length + 1);
}

uint32_t qv_perform(const qv_job* job, qv_output* out) {
    switch (job->operation) {
        case QV_CLEANUP:
            return NetCMConnectionCleanup();
        case QV_TUNNEL_REGISTER:
            return NetCMClientRegisterTunnelInd();
        case QV_TUNNEL_DEREGISTER:
            return NetCMClientDeRegisterTunnelInd();
        case QV_GET_SETTING:
        case QV_SET_SETTING:
            return ask_settings(job, out);
        case QV_NETWORK_STATUS:
        case QV_GET_PACKET_DATA:
        case QV_INTERFACES:
        case QV_STATISTICS:
            return ask_state(job, out);
        case QV_SET_PACKET_DATA:
            return NetCMSetPacketDataState((uint32_t)job->a);
        case QV_RESET_STATISTICS:
            return NetCMResetStatInfo((uint32_t)job->a);
        case QV_ACTIVE_PROFILES:
        case QV_ACTIVE_NAMES:
        case QV_ACTIVE_CONNECTIONS:
            return ask_active(job, out);
        case QV_ADD_PROFILE:
        case QV_CHANGE_PROFILE:
            return change_store(job, out);
        case QV_DELETE_PROFILE:
            return NetPMDeleteProfileInfo(job->a);
        case QV_READ_PROFILE:
        case QV_PROFILE_STATUS:
        case QV_PROFILE_ATTRIBUTES:
        case QV_DEFAULT_PROFILE:
        case QV_DEFAULT_PROFILE_ID:
            return read_store(job, out);
        case QV_SET_DEFAULT_PROFILE:
            return NetPMSetDefaultProfileId(job->a);
        case QV_PROFILE_IDS:
        case QV_PROFILE_LIST:
        case QV_FIND_PROFILES:
            return search_store(job, out);
        case QV_RESTORE_PROFILES:
            return NetPMRestoreProfileInfo();
        case QV_CHANGE_PAYMENT:
            return change_payment(job);
        default:
            return ask_applications(job, out);
    }
}
