// State of the interfaces and of packet data.
#include "client/CM/src/NetCMIntf/Calls.h"
#include "client/CM/src/NetCMIntf/Query.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

bool is_interface(uint32_t net_iface) {
    return net_iface == NETCM_IFACE_PDP || net_iface == NETCM_IFACE_WIFI;
}

// The process's first call in use, and the first profile of its first user.
struct FirstCall {
    int32_t index = -1;
    int32_t entry = -1;
    int32_t profile = 0;
};

// The place of an entry's first profile, or -1.
int32_t first_profile(const NetCMThreadProf& entry) QV_REQUIRES(table_lock) {
    for (int32_t place = 0; place < NETCM_MAX_PROFILES; ++place)
        if (load(entry.ProfileId[place]) != -1)
            return place;
    return -1;
}

FirstCall first_call() {
    const Lock lock(table_lock);
    FirstCall first;
    for (int32_t index = 0; index < NETCM_MAX_CALLS && first.index < 0; ++index)
        if (load(slot(index).record->InUse) == 1)
            first.index = index;
    if (first.index < 0)
        return first;
    const NetCMCallInfo& call = *slot(first.index).record;
    for (int32_t i = 0; i < NETCM_MAX_THREADS && first.entry < 0; ++i) {
        const int32_t place = in_use(call.ThreadProf[i]) ? first_profile(call.ThreadProf[i]) : -1;
        if (place < 0)
            continue;
        first.entry = i;
        first.profile = load(call.ThreadProf[i].ProfileId[place]);
    }
    return first;
}

// Packet data is read and switched for the process's first call, whose profile goes into the request.
uint32_t add_profile(Here here, wire::RequestHeader& request) QV_REQUIRES(app_mutex) {
    const FirstCall call = first_call();
    if (call.index < 0) {
        QV_TRACE_AT(here, 0, "Could not find active call for client \n");
        return NETCM_ERR_NOT_REGISTERED;
    }
    QV_TRACE_AT(here, 0, "Client associated with active call. Call instance = [%d]\n", call.index);
    if (call.entry >= 0)
        QV_TRACE(0, "Found profile [%d]. Thread-profile index [%d]\n", call.profile, call.entry);
    request.Arg4 = static_cast<uint32_t>(call.profile);
    return NETCM_SUCCESS;
}

}  // namespace

extern "C" {

uint32_t NetCMGetNetworkStatus(uint32_t netIface, uint32_t* status) {
    QV_TRACE(0, "Request to get network status\n");
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    if (!is_interface(netIface) || status == nullptr) {
        QV_TRACE(5, "Error.. Invalid parameter NetIface[%d] Status [%p]\n", static_cast<int>(netIface),
                 static_cast<void*>(status));
        return NETCM_ERR_INVALID_PARAM;
    }
    // Cleared before the exchange: a caller that looks only at the status reads "none" after a failure. The
    // header keeps the client id of before a repair of the link.
    *status = 0;
    const Query query = {.request = request_header(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ),
                         .answer = wire::NETCM_CLIENT_GET_NETWORK_STATUS_RSP};
    return ask(
        QV_HERE, query,
        [&](const wire::Record& answer) -> uint32_t {
            *status = netIface == NETCM_IFACE_PDP ? answer.Word8 : answer.Word7;
            if (netIface == NETCM_IFACE_PDP)
                QV_TRACE(0, "Success.. PDP status = [%d]\n", static_cast<int>(*status));
            else
                QV_TRACE(0, "Success.. Wi-Fi status = [%d]\n", static_cast<int>(*status));
            return NETCM_SUCCESS;
        },
        [](int error) { QV_TRACE(3, "Error getting network status. Error = %d \n", error); });
}

uint32_t NetCMGetPacketDataState(uint32_t* state) {
    QV_TRACE(0, "Request to retrieve packet data state\n");
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    if (state == nullptr) {
        QV_TRACE(5, "Error.. Invalid parameter \n");
        return NETCM_ERR_INVALID_PARAM;
    }
    const Query query = {.request = request_header(wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ),
                         .answer = wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_RSP,
                         .complete = add_profile};
    return ask(
        QV_HERE, query,
        [&](const wire::Record& answer) -> uint32_t {
            *state = answer.Word2;
            QV_TRACE(0, "Successfully retrieved packet data state [%d]\n", static_cast<int>(*state));
            return NETCM_SUCCESS;
        },
        [](int error) { QV_TRACE(3, "Error reading packet data state. Error = %d \n", error); });
}

uint32_t NetCMSetPacketDataState(uint32_t state) {
    QV_TRACE(0, "Request to set packet data state to [%d]\n", static_cast<int>(state));
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    if (state < 1 || state > 3) {
        QV_TRACE(5, "Error.. Invalid parameter. State = %d\n", static_cast<int>(state));
        return NETCM_ERR_INVALID_PARAM;
    }
    Query query = {.request = request_header(wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ),
                   .answer = wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_RSP,
                   .complete = add_profile};
    query.request.Arg3 = state;
    return ask(
        QV_HERE, query,
        [&](const wire::Record&) -> uint32_t {
            QV_TRACE(0, "Successfully set packet data state to [%d]\n", static_cast<int>(state));
            return NETCM_SUCCESS;
        },
        [](int error) { QV_TRACE(3, "Error setting packet data state. Error = %d \n", error); });
}

uint32_t NetCMGetNetIfaceList(int32_t* ifaceList) {
    if (ifaceList == nullptr) {
        QV_TRACE(5, "Invalid input parameter\n");
        return NETCM_ERR_INVALID_PARAM;
    }
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    const Query query = {.request = request_header(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ),
                         .answer = wire::NETCM_CLIENT_GET_NETIFACE_LIST_RSP,
                         .send_failure = SendFailure::TwoBlanks};
    return ask(
        QV_HERE, query,
        [&](const wire::Record& answer) -> uint32_t {
            *ifaceList = static_cast<int32_t>(answer.Word2);
            QV_TRACE(0, "Successfully read network interface list [%d]\n", *ifaceList);
            return NETCM_SUCCESS;
        },
        [](int error) { QV_TRACE(3, "Failed to read network interface list. Status = %d\n", error); });
}

// A list that cannot be read counts as empty.
uint32_t NetCMNetIfaceSupport(uint32_t netIface) {
    int32_t list = 0;
    NetCMGetNetIfaceList(&list);
    return NetCMNetIfaceSupportEx(netIface, static_cast<uint32_t>(list));
}

uint32_t NetCMNetIfaceSupportEx(uint32_t netIface, uint32_t ifaceList) {
    if (!client_is_registered()) {
        QV_TRACE(2, "Cleint is not yet registered with CM\n");
        return 0;
    }
    return is_interface(netIface) && (netIface & ifaceList) != 0 ? 1 : 0;
}

}  // extern "C"
