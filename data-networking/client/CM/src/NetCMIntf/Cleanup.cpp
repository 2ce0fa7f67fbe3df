// Killing every active packet-data connection of the device.
#include <cstring>

#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Pause.h"

using namespace quorvel;

namespace {

// Between two kills, so that the network has the time to take one connection down after the other.
constexpr unsigned kPauseSeconds = 2;

uint32_t kill_listed(const wire::ActiveConnection& connection) {
    char apn[sizeof connection.Apn + 1] = {};
    memcpy(apn, connection.Apn, sizeof connection.Apn);
    QV_TRACE(0, "APN = [%s], Profile ID = [%d]\n", apn, connection.ProfileId);
    const uint32_t status = NetCMConnectionKill(connection.ProfileId);
    if (status != NETCM_SUCCESS) {
        QV_TRACE(2, "Failed to send kill conn req, Profile ID = [%d]\n", connection.ProfileId);
        return status;
    }
    QV_TRACE(0, "Sent kill connection req, Profile ID = [%d]\n", connection.ProfileId);
    pause_for(kPauseSeconds);
    return status;
}

}  // namespace

extern "C" {

// The mutex stays held all the time: no connection comes or goes while they are killed one by one.
uint32_t NetCMConnectionCleanup(void) {
    QV_TRACE(0, "Request to close active PDP connections\n");
    const AppMutexGuard guard(QV_HERE);
    if (!registered(QV_HERE))
        return NETCM_ERR_NOT_REGISTERED;
    uint32_t status = repair_link(QV_HERE);
    if (status != NETCM_SUCCESS)
        return status;
    wire::ActiveConnection listed[NETCM_MAX_CALLS];
    uint32_t count = 0;
    status = NetCMGetActiveConnectionList(NETCM_IFACE_PDP, reinterpret_cast<uint8_t*>(listed), &count);
    if (status == NETCM_ERR_NOT_ACTIVE) {
        QV_TRACE(0, "No active PDP connections\n");
        return NETCM_SUCCESS;
    }
    if (status != NETCM_SUCCESS) {
        QV_TRACE(2, "Failed to retreive active APN list. Status = %d\n", static_cast<int>(status));
        return status;
    }
    QV_TRACE(0, "Successfully received active connection list. No. of active conns = %d\n",
             static_cast<int>(count));
    QV_TRACE(0, "Active connections are: \n");
    for (uint32_t i = 0; i < count; ++i)
        status = kill_listed(listed[i]);
    return status;
}

}  // extern "C"
