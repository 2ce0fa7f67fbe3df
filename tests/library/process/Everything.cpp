#include "Everything.h"

#include "quorvel/NetPM.h"

namespace quorvel::test {
namespace {

struct Room {
    uint32_t number = 0;
    uint32_t result = 0;
    int32_t id = 0;
    uint16_t status = 0;
    uint32_t list[2] = {};
    uint8_t bytes[NETPM_LIST_ROOM] = {};
    int32_t ids[NETPM_MAX_PROFILE_IDS] = {};
    uint32_t counters[6] = {};
    NetCMConnInfo details = {};
    NetPMProfile profile = {};
    NetPMAppProf binding = {};
    char byte = 0;
    NetCMTunnelData tunnel = {.Param = 0, .RequestId = 0, .DataLength = 1, .Data = &byte};
};

constexpr int32_t kProfile = 7;
constexpr int32_t kApp = 5;

void ask_connection_manager(Room& room, Results& results) {
    const auto note = [&](const char* name, uint32_t result) { results.emplace_back(name, result); };
    const int32_t profile = kProfile;
    note("deregister", NetCMClientDeRegister());
    note("open", NetCMConnectionOpen(&profile, 1));
    note("close", NetCMConnectionClose(kProfile));
    note("kill", NetCMConnectionKill(kProfile));
    note("cleanup", NetCMConnectionCleanup());
    note("transport error", NetCMGetTransportError(&room.id));
    note("settings get", NetCMSettingsGet(2, &room.number, &room.result) * 100 + room.result);
    note("settings set", NetCMSettingsSet(2, &room.number, &room.result) * 100 + room.result);
    note("network status", NetCMGetNetworkStatus(NETCM_IFACE_PDP, &room.number));
    note("packet data get", NetCMGetPacketDataState(&room.number));
    note("packet data set", NetCMSetPacketDataState(1));
    note("interfaces", NetCMGetNetIfaceList(&room.id));
    note("interface support", NetCMNetIfaceSupport(NETCM_IFACE_PDP));
    note("reset statistics", NetCMResetStatInfo(1));
    note("ids", NetCMGetActiveProfileIDs(room.bytes, &room.number));
    note("names", NetCMGetActiveProfileNameList(room.bytes, &room.number));
    note("connections", NetCMGetActiveConnectionList(NETCM_IFACE_PDP, room.bytes, &room.number));
    note("statistics", NetCMGetStatInfo(room.counters));
    note("device", NetCMDeviceGetInfo(kProfile, &room.details));
    note("tunnel indications", NetCMClientRegisterTunnelInd());
    note("no tunnel indications", NetCMClientDeRegisterTunnelInd());
    note("tunnel", NetCMTunnelRequest(&room.tunnel));
}

void ask_profile_store(Room& room, Results& results) {
    const auto note = [&](const char* name, uint32_t result) { results.emplace_back(name, result); };
    room.profile.ProfileType = 1;
    note("add", NetPMAddProfileInfo(&room.profile, &room.id));
    note("modify", NetPMModifyProfileInfo(kProfile, &room.profile));
    note("delete", NetPMDeleteProfileInfo(kProfile));
    note("read", NetPMGetProfileInfo(kProfile, &room.profile));
    note("status", NetPMGetProfileStatus(kProfile, &room.status));
    note("default", NetPMGetDefaultProfileInfo(&room.profile));
    note("default id", NetPMGetDefaultProfileId(&room.id));
    note("set default", NetPMSetDefaultProfileId(kProfile));
    note("id list", NetPMGetProfileIdList(2, NETPM_MAX_PROFILE_IDS, room.ids, &room.id));
    note("restore", NetPMRestoreProfileInfo());
    note("attributes", NetPMGetProfileAttributes(kProfile, &room.number));
    note("partial", NetPMReadPartialProfileInfo(2, room.bytes, &room.id));
    note("by apn", NetPMGetProfileIdForAPN("apn", room.bytes));
    note("find", NetPMGetFindProfileIds(0, "apn", room.bytes));
}

void ask_bindings(Room& room, Results& results) {
    const auto note = [&](const char* name, uint32_t result) { results.emplace_back(name, result); };
    note("add app", NetPMAppProfAddAppId(kApp));
    note("delete app", NetPMAppProfDeleteAppId(kApp));
    note("check app", NetPMAppProfCheckAppId(kApp));
    note("app info", NetPMAppProfGetAppInfo(kApp, &room.binding));
    note("set app info", NetPMAppProfSetAppInfo(kApp, &room.binding));
    note("bind", NetPMAppProfSetProfId(kApp, kProfile));
    note("bound", NetPMAppProfGetAppProfId(kApp, &room.number));
    note("set interfaces", NetPMAppProfSetNetIfaceList(kApp, room.list));
    note("app interfaces", NetPMAppProfGetAppNetIfaceList(kApp, room.list));
    note("proper profile", NetPMAppProfGetProperProfile(kApp, &room.number));
    note("proper profile later", NetPMAppProfGetProperProfileAsync(kApp));
    note("payment", NetPMAppProfChangePayment("VGR", "PRE"));
}

}  // namespace

Results results_of_everything() {
    Room room;
    Results results;
    ask_connection_manager(room, results);
    ask_profile_store(room, results);
    ask_bindings(room, results);
    return results;
}

}  // namespace quorvel::test
