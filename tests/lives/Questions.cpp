#include "Questions.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "Answers.h"
#include "common/PmWire.h"
#include "quorvel/NetDNS.h"

namespace quorvel::lives {
namespace {

// One question: who asks, and with what.
struct Ask {
    Model& model;
    int user;
    Random& random;
};

Asked about(uint32_t command, int32_t detail = 0) {
    return {command, static_cast<uint32_t>(detail)};
}
Asked about_profile(wire::PmCommand command, int32_t subject) {
    return {wire::NETPM_PROFILE_REQ, detail_of(command, subject)};
}
Asked about_application(wire::AppProfCommand command, int32_t application) {
    return {wire::NETPM_APPPROF_REQ, detail_of(command, application)};
}

// ---- The connection manager

// These two say by their result that there is a status in another place.
uint32_t status_of(uint32_t result, uint32_t status) {
    if (result == 1)
        return NETCM_SUCCESS;
    return result == 2 ? static_cast<uint32_t>(NETCM_ERR_REREGISTER_FAILED) : status;
}

void get_setting(Ask ask) {
    const int32_t key = ask.random.below(5);
    uint32_t value = 0;
    uint32_t status = 0;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMSettingsGet", key);
    const uint32_t result = NetCMSettingsGet(static_cast<uint32_t>(key), &value, &status);
    ask.model.exchanged(op, status_of(result, status), about(wire::NETCM_CLIENT_GET_SETTINGS_REQ, key),
                        value);
}

void set_setting(Ask ask) {
    const int32_t key = ask.random.below(5);
    uint32_t value = 7;
    uint32_t status = 0;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMSettingsSet", key);
    const uint32_t result = NetCMSettingsSet(static_cast<uint32_t>(key), &value, &status);
    ask.model.exchanged(op, status_of(result, status), about(wire::NETCM_CLIENT_SET_SETTINGS_REQ, key));
}

void network_status(Ask ask) {
    uint32_t status = 0;
    const int32_t iface = ask.random.between(1, 2);
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetNetworkStatus", iface);
    const uint32_t result = NetCMGetNetworkStatus(static_cast<uint32_t>(iface), &status);
    ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ), status);
}

void get_packet_data(Ask ask) {
    uint32_t state = 0;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetPacketDataState");
    const uint32_t result = NetCMGetPacketDataState(&state);
    ask.model.exchanged_for_call(op, result, about(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ), state);
}

void set_packet_data(Ask ask) {
    const int32_t state = ask.random.between(1, 3);
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMSetPacketDataState", state);
    const uint32_t result = NetCMSetPacketDataState(static_cast<uint32_t>(state));
    ask.model.exchanged_for_call(op, result, about(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, state));
}

void list_interfaces(Ask ask) {
    int32_t list = 0;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetNetIfaceList");
    const uint32_t result = NetCMGetNetIfaceList(&list);
    if (result == NETCM_SUCCESS && (list & 3) != 3)
        ask.model.object("the list of interfaces is another one");
    ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ),
                        static_cast<uint32_t>(list) >> 2);
}

void supports_interface(Ask ask) {
    const int32_t iface = ask.random.between(1, 2);
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMNetIfaceSupport", iface);
    const uint32_t yes = NetCMNetIfaceSupport(static_cast<uint32_t>(iface));
    ask.model.agreed(op, yes == 1, about(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ));
}

void reset_statistics(Ask ask) {
    const int32_t level = ask.random.below(5);
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMResetStatInfo", level);
    const uint32_t result = NetCMResetStatInfo(static_cast<uint32_t>(level));
    ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_RESET_STAT_INFO_REQ, level));
}

void get_statistics(Ask ask) {
    uint32_t counters[6] = {};
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetStatInfo");
    const uint32_t result = NetCMGetStatInfo(counters);
    for (uint32_t i = 0; result == NETCM_SUCCESS && i < 6; ++i)
        if (counters[i] != counters[0] + i)
            ask.model.object("the statistics do not fit together");
    ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_GET_STAT_INFO_REQ), counters[0]);
}

void list_profile_ids(Ask ask) {
    int32_t ids[16] = {};
    uint32_t count = 99;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetActiveProfileIDs", 0, Needs::Thread);
    const uint32_t result = NetCMGetActiveProfileIDs(reinterpret_cast<uint8_t*>(ids), &count);
    for (uint32_t i = 0; result == NETCM_SUCCESS && i < count; ++i)
        if (ids[i] != ids[0] + static_cast<int32_t>(i))
            ask.model.object("the profile ids do not fit together");
    ask.model.listed(op, result, about(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ), count,
                     static_cast<uint32_t>(ids[0]));
}

void list_profile_names(Ask ask) {
    char names[16][100] = {};
    uint32_t count = 99;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetActiveProfileNameList", 0, Needs::Thread);
    const uint32_t result = NetCMGetActiveProfileNameList(reinterpret_cast<uint8_t*>(names), &count);
    for (uint32_t i = 0; result == NETCM_SUCCESS && i < count; ++i)
        if (number_of(names[i]) != number_of(names[0]) + static_cast<int32_t>(i))
            ask.model.object("the profile names do not fit together");
    ask.model.listed(op, result, about(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ), count,
                     static_cast<uint32_t>(number_of(names[0])));
}

void list_connections(Ask ask) {
    wire::ActiveConnection list[4] = {};
    uint32_t count = 99;
    const int32_t iface = ask.random.between(1, 2);
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetActiveConnectionList", iface, Needs::Thread);
    const uint32_t result =
        NetCMGetActiveConnectionList(static_cast<uint32_t>(iface), reinterpret_cast<uint8_t*>(list), &count);
    ask.model.listed(op, result, about(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, iface), count,
                     static_cast<uint32_t>(number_of(list[0].Apn)));
}

void transport_error(Ask ask) {
    int32_t error = 0;
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMGetTransportError", 0, Needs::Thread);
    const uint32_t result = NetCMGetTransportError(&error);
    ask.model.transport_error(op, result, error);
}

void register_for_tunnel_data(Ask ask) {
    if (ask.random.one_in(2)) {
        Op op(ask.model, ask.user, Kind::Exchange, "NetCMClientRegisterTunnelInd");
        const uint32_t result = NetCMClientRegisterTunnelInd();
        return ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ));
    }
    Op op(ask.model, ask.user, Kind::Exchange, "NetCMClientDeRegisterTunnelInd");
    const uint32_t result = NetCMClientDeRegisterTunnelInd();
    ask.model.exchanged(op, result, about(wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ));
}

void send_tunnel_data(Ask ask) {
    const int32_t param = ask.random.below(1000);
    std::string data = tunnel_bytes(static_cast<uint32_t>(param));
    NetCMTunnelData record = {param, 0, static_cast<uint32_t>(data.size()), data.data()};
    Op op(ask.model, ask.user, Kind::Tunnel, "NetCMTunnelRequest", param, Needs::Thread);
    const uint32_t result = NetCMTunnelRequest(&record);
    ask.model.tunnelled(op, result, record.RequestId);
}

// ---- Stored profiles

int32_t any_profile(Random& random) {
    return random.between(1, kProfiles);
}

void change_profile(Ask ask) {
    const int32_t subject = any_profile(ask.random);
    NetPMProfile profile = profile_of(static_cast<uint32_t>(subject));
    switch (ask.random.below(5)) {
        case 0: {
            int32_t id = 0;
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAddProfileInfo", subject);
            const uint32_t result = NetPMAddProfileInfo(&profile, &id);
            return ask.model.exchanged(op, result, about_profile(wire::NETPM_CLIENT_ADD_PROFILE_REQ, subject),
                                       static_cast<uint32_t>(id));
        }
        case 1: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMModifyProfileInfo", subject);
            const uint32_t result = NetPMModifyProfileInfo(subject, &profile);
            return ask.model.exchanged(op, result,
                                       about_profile(wire::NETPM_CLIENT_MODIFY_PROFILE_REQ, subject));
        }
        case 2: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMDeleteProfileInfo", subject);
            const uint32_t result = NetPMDeleteProfileInfo(subject);
            return ask.model.exchanged(op, result,
                                       about_profile(wire::NETPM_CLIENT_DELETE_PROFILE_REQ, subject));
        }
        case 3: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMSetDefaultProfileId", subject);
            const uint32_t result = NetPMSetDefaultProfileId(subject);
            return ask.model.exchanged(op, result,
                                       about_profile(wire::NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ, subject));
        }
        default: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMRestoreProfileInfo");
            const uint32_t result = NetPMRestoreProfileInfo();
            return ask.model.exchanged(op, result, about_profile(wire::NETPM_CLIENT_RESTORE_PROFILES_REQ, 0));
        }
    }
}

void read_profile(Ask ask) {
    const int32_t subject = any_profile(ask.random);
    NetPMProfile profile{};
    const bool is_default = ask.random.one_in(3);
    Op op(ask.model, ask.user, Kind::Exchange,
          is_default ? "NetPMGetDefaultProfileInfo" : "NetPMGetProfileInfo", subject);
    const uint32_t result =
        is_default ? NetPMGetDefaultProfileInfo(&profile) : NetPMGetProfileInfo(subject, &profile);
    if (result == NETCM_SUCCESS && !is_profile_of(profile, profile.ProfileAttr))
        ask.model.object("a profile does not fit together");
    ask.model.exchanged(op, result,
                        is_default ? about_profile(wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ, 0)
                                   : about_profile(wire::NETPM_CLIENT_GET_PROFILE_REQ, subject),
                        profile.ProfileAttr);
}

void ask_about_profile(Ask ask) {
    const int32_t subject = any_profile(ask.random);
    switch (ask.random.below(3)) {
        case 0: {
            uint16_t status = 0;
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMGetProfileStatus", subject);
            const uint32_t result = NetPMGetProfileStatus(subject, &status);
            return ask.model.exchanged(op, result,
                                       about_profile(wire::NETPM_CLIENT_GET_PROFILE_STATUS_REQ, subject),
                                       ask.model.ticket_with(status));
        }
        case 1: {
            int32_t id = 0;
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMGetDefaultProfileId");
            const uint32_t result = NetPMGetDefaultProfileId(&id);
            return ask.model.exchanged(op, result,
                                       about_profile(wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, 0),
                                       static_cast<uint32_t>(id));
        }
        default: {
            uint32_t attributes = 0;
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMGetProfileAttributes", subject);
            const uint32_t result = NetPMGetProfileAttributes(subject, &attributes);
            return ask.model.exchanged(
                op, result, about_profile(wire::NETPM_CLIENT_GET_PROFILE_ATTR_REQ, subject), attributes);
        }
    }
}

void list_stored_profiles(Ask ask) {
    int32_t ids[20] = {};
    int32_t count = 0;
    const int32_t type = ask.random.below(3);
    const int32_t room = ask.random.between(1, 20);
    Op op(ask.model, ask.user, Kind::Exchange, "NetPMGetProfileIdList", type);
    const uint32_t result = NetPMGetProfileIdList(static_cast<uint32_t>(type), room, ids, &count);
    for (int32_t i = 0; result == NETCM_SUCCESS && i < count; ++i)
        if (count > room || ids[i] != ids[0] + i)
            ask.model.object("the stored ids do not fit together");
    // An empty list carries no ticket.
    const bool has_ticket = result != NETCM_SUCCESS || count > 0;
    ask.model.exchanged(op, result, about_profile(wire::NETPM_CLIENT_GET_POFILE_LIST_REQ, type),
                        has_ticket ? std::optional(static_cast<uint32_t>(ids[0])) : std::nullopt);
}

void read_partial_profiles(Ask ask) {
    NetPMPartialProfile entries[20] = {};
    int32_t count = 0;
    const int32_t type = ask.random.below(3);
    Op op(ask.model, ask.user, Kind::Exchange, "NetPMReadPartialProfileInfo", type);
    const uint32_t result = NetPMReadPartialProfileInfo(static_cast<uint32_t>(type), entries, &count);
    for (int32_t i = 0; result == NETCM_SUCCESS && i < count; ++i)
        if (count > 20 || entries[i].ProfileId != entries[0].ProfileId + i)
            ask.model.object("the partial profiles do not fit together");
    ask.model.exchanged(op, result, about_profile(wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ, type),
                        static_cast<uint32_t>(entries[0].ProfileId));
}

void find_profiles(Ask ask) {
    union {
        NetPMProfileIdList list;
        char room[NETPM_LIST_ROOM];
    } found = {};
    char name[32];
    const int32_t number = ask.random.below(1000);
    std::snprintf(name, sizeof name, "name%d", number);
    const bool by_apn = ask.random.one_in(2);
    Op op(ask.model, ask.user, Kind::Exchange, by_apn ? "NetPMGetProfileIdForAPN" : "NetPMGetFindProfileIds",
          number);
    const uint32_t result =
        by_apn ? NetPMGetProfileIdForAPN(name, &found)
               : NetPMGetFindProfileIds(static_cast<uint32_t>(ask.random.below(2)), name, &found);
    for (int32_t i = 0; result == NETCM_SUCCESS && i < found.list.Count; ++i)
        if (found.list.ProfileId[i] != found.list.ProfileId[0] + i)
            ask.model.object("the found ids do not fit together");
    ask.model.exchanged(op, result,
                        about_profile(by_apn ? wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ
                                             : wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ,
                                      number),
                        static_cast<uint32_t>(found.list.ProfileId[0]));
}

// ---- Applications and their profiles

void ask_yes_or_no_about_application(Ask ask) {
    constexpr struct {
        const char* name;
        uint32_t (*function)(int32_t);
        wire::AppProfCommand command;
    } kQuestions[] = {{"NetPMAppProfAddAppId", NetPMAppProfAddAppId, wire::NETPM_APPPROF_ADD_APP_ID},
                      {"NetPMAppProfDeleteAppId", NetPMAppProfDeleteAppId, wire::NETPM_APPPROF_DELETE_APP_ID},
                      {"NetPMAppProfCheckAppId", NetPMAppProfCheckAppId, wire::NETPM_APPPROF_CHECK_APP_ID}};
    const auto& question = kQuestions[ask.random.below(3)];
    const int32_t application = ask.random.between(1, 9);
    Op op(ask.model, ask.user, Kind::Exchange, question.name, application);
    const uint32_t yes = question.function(application);
    ask.model.agreed(op, yes == 1, about_application(question.command, application));
}

void read_binding(Ask ask) {
    const int32_t application = ask.random.between(1, 9);
    const Asked asked = about_application(wire::NETPM_APPPROF_GET_APP_INFO, application);
    switch (ask.random.below(3)) {
        case 0: {
            NetPMAppProf binding{};
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfGetAppInfo", application);
            const uint32_t result = NetPMAppProfGetAppInfo(application, &binding);
            return ask.model.exchanged(op, result, asked, binding.Param);
        }
        case 1: {
            uint32_t profile = 0;
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfGetAppProfId", application);
            const uint32_t result = NetPMAppProfGetAppProfId(application, &profile);
            return ask.model.exchanged(op, result, asked, profile - 1);
        }
        default: {
            uint32_t list[2] = {9, 9};
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfGetAppNetIfaceList", application);
            const uint32_t result = NetPMAppProfGetAppNetIfaceList(application, list);
            if (result != NETCM_SUCCESS ? list[0] != 0 || list[1] != 0 : list[1] != list[0] + 1)
                ask.model.object("the interfaces of an application do not fit together");
            return ask.model.exchanged(op, result, asked, list[0] - 2);
        }
    }
}

void change_binding(Ask ask) {
    const int32_t application = ask.random.between(1, 9);
    const Asked asked = about_application(wire::NETPM_APPPROF_SET_APP_INFO, application);
    switch (ask.random.below(4)) {
        case 0: {
            NetPMAppProf binding = {static_cast<uint32_t>(application), 1, 2, {1, 2}};
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfSetAppInfo", application);
            const uint32_t result = NetPMAppProfSetAppInfo(application, &binding);
            return ask.model.exchanged(op, result, asked, binding.Param);
        }
        case 1: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfSetProfId", application);
            const uint32_t result = NetPMAppProfSetProfId(application, 3);
            return ask.model.exchanged(op, result, asked);
        }
        case 2: {
            const uint32_t list[2] = {1, 2};
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfSetNetIfaceList", application);
            const uint32_t result = NetPMAppProfSetNetIfaceList(application, list);
            return ask.model.exchanged(op, result, asked);
        }
        default: {
            Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfChangePayment");
            const uint32_t result = NetPMAppProfChangePayment("VGR", "PRE");
            return ask.model.exchanged(op, result, about_application(wire::NETPM_APPPROF_CHANGE_PAYMENT, -1));
        }
    }
}

void proper_profile(Ask ask) {
    uint32_t profile = 0;
    const int32_t application = ask.random.between(1, 9);
    Op op(ask.model, ask.user, Kind::Exchange, "NetPMAppProfGetProperProfile", application);
    const uint32_t result = NetPMAppProfGetProperProfile(application, &profile);
    ask.model.exchanged(op, result, about_application(wire::NETPM_APPPROF_GET_PROPER_PROFILE, application),
                        profile);
}

// Few applications, so that several threads ask for the same.
void proper_profile_later(Ask ask) {
    const int32_t application = ask.random.between(1, 2);
    Op op(ask.model, ask.user, Kind::Proper, "NetPMAppProfGetProperProfileAsync", application);
    const uint32_t result = NetPMAppProfGetProperProfileAsync(application);
    ask.model.asked_proper_profile(op, result);
}

using Question = void (*)(Ask);

// What is asked more often stands here more often.
constexpr Question kQuestions[] = {get_setting,
                                   get_setting,
                                   set_setting,
                                   network_status,
                                   network_status,
                                   get_packet_data,
                                   set_packet_data,
                                   list_interfaces,
                                   supports_interface,
                                   reset_statistics,
                                   get_statistics,
                                   list_profile_ids,
                                   list_profile_names,
                                   list_connections,
                                   transport_error,
                                   transport_error,
                                   register_for_tunnel_data,
                                   change_profile,
                                   change_profile,
                                   read_profile,
                                   read_profile,
                                   ask_about_profile,
                                   ask_about_profile,
                                   list_stored_profiles,
                                   read_partial_profiles,
                                   find_profiles,
                                   ask_yes_or_no_about_application,
                                   read_binding,
                                   change_binding,
                                   proper_profile};

// The answers to these come to the thread that has asked, later.
constexpr Question kQuestionsForLater[] = {send_tunnel_data, send_tunnel_data, proper_profile_later};

}  // namespace

void ask_something(Model& model, int user, Random& random) {
    // What a thread of the library asks for, another user of a life may hear, if it has the same thread.
    const bool may_wait = user != kLocalUser && user != kNobody;
    const int later = may_wait ? static_cast<int>(std::size(kQuestionsForLater)) : 0;
    const int which = random.below(static_cast<int>(std::size(kQuestions)) + later) - later;
    (which < 0 ? kQuestionsForLater[-1 - which] : kQuestions[which])({model, user, random});
}

void ask_nonsense(Model& model, Random& random) {
    const auto expect = [&](const char* what, uint32_t result, uint32_t meant) {
        if (result != meant)
            model.object(std::string(what) + " = " + std::to_string(result) + ", not " +
                         std::to_string(meant));
    };
    const int32_t below_zero = -3;
    switch (random.below(8)) {
        case 0:
            return expect("open of a negative profile", NetCMConnectionOpen(&below_zero, 1),
                          NETCM_ERR_INVALID_PROFILE);
        case 1:
            return expect("open of 21 profiles", NetCMConnectionOpen(&below_zero, 21),
                          NETCM_ERR_INVALID_PARAM);
        case 2:
            return expect("open of nothing", NetCMConnectionOpen(nullptr, 1), NETCM_ERR_INVALID_PARAM);
        case 3:
            return expect("close of 0", NetCMConnectionClose(0), NETCM_ERR_INVALID_PROFILE);
        case 4:
            return expect("kill of -1", NetCMConnectionKill(-1), NETCM_ERR_INVALID_PROFILE);
        case 5:
            return expect("registration without a callback", NetCMClientRegister(nullptr),
                          NETCM_ERR_INVALID_PARAM);
        case 6:
            return expect("a host of this machine", NetDNSGetHostByName(1, "localhost") != nullptr ? 1 : 0,
                          1);
        default:
            return expect("a host over a profile that is not open",
                          NetDNSGetHostByName(77, random.one_in(2) ? "host.example" : "-") != nullptr ? 1 : 0,
                          0);
    }
}

}  // namespace quorvel::lives
