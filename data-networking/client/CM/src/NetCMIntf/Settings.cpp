// The server's settings. This pair answers with a truth value and hands the status out through a pointer,
// unlike the rest of the API; applications of long standing are built on it.
#include "client/CM/src/NetCMIntf/Query.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

constexpr uint32_t kHighestKey = 4;
constexpr uint32_t kDone = 1;
constexpr uint32_t kFailed = 0;

// Whether the request may be made; otherwise the status has been handed out where there is a place for it.
bool may_ask(uint32_t key, const uint32_t* value, uint32_t* result) {
    if (!registered(QV_HERE)) {
        if (result != nullptr)
            *result = NETCM_ERR_NOT_REGISTERED;
        return false;
    }
    if (result == nullptr)
        return false;
    if (value == nullptr) {
        QV_TRACE(5, "Error.. Invalid input parameter\n");
        *result = NETCM_ERR_INVALID_PARAM;
        return false;
    }
    if (key > kHighestKey) {
        QV_TRACE(5, "Error.. Invalid settings type. Key = %d \n", static_cast<int>(key));
        *result = NETCM_ERR_INVALID_PARAM;
        return false;
    }
    return true;
}

// The outcome of a query in this pair's style. A link that could not be repaired is told by the function's
// own result alone; the same number from the server is a status like any other.
uint32_t report(uint32_t status, bool refused, uint32_t* result) {
    if (status == NETCM_ERR_REREGISTER_FAILED && !refused)
        return status;
    *result = status;
    return status == NETCM_SUCCESS ? kDone : kFailed;
}

}  // namespace

extern "C" {

uint32_t NetCMSettingsGet(uint32_t key, uint32_t* value, uint32_t* result) {
    QV_TRACE(0, "Request to retrieve CM settings. Key = %d\n", static_cast<int>(key));
    if (!may_ask(key, value, result))
        return kFailed;
    Query query = {.request = request_header(wire::NETCM_CLIENT_GET_SETTINGS_REQ),
                   .answer = wire::NETCM_CLIENT_GET_SETTINGS_RSP};
    query.request.Arg3 = key;
    bool refused = false;
    const uint32_t status = ask(
        QV_HERE, query,
        [&](const wire::Record& answer) -> uint32_t {
            *value = answer.Word2;
            QV_TRACE(0, "Success retrieving CM Settings. Key= %d, Value = %d\n", static_cast<int>(key),
                     static_cast<int>(answer.Word2));
            return NETCM_SUCCESS;
        },
        [&](int error) {
            refused = true;
            // Speaks of the PDP mode whatever the key: log readers know it so.
            QV_TRACE(3, "Error reading single PDP Mode. Error = %d \n", error);
        });
    return report(status, refused, result);
}

uint32_t NetCMSettingsSet(uint32_t key, uint32_t* value, uint32_t* result) {
    QV_TRACE(0, "Request to set CMsettings. Type = %d\n", static_cast<int>(key));
    if (!may_ask(key, value, result))
        return kFailed;
    Query query = {.request = request_header(wire::NETCM_CLIENT_SET_SETTINGS_REQ),
                   .answer = wire::NETCM_CLIENT_SET_SETTINGS_RSP};
    query.request.Arg3 = key;
    query.request.Arg4 = *value;
    bool refused = false;
    const uint32_t status = ask(
        QV_HERE, query,
        [&](const wire::Record&) -> uint32_t {
            QV_TRACE(0, "Successfully set CM settings. Key = %d, Value = %d \n", static_cast<int>(key),
                     static_cast<int>(query.request.Arg4));
            return NETCM_SUCCESS;
        },
        [&](int error) {
            refused = true;
            QV_TRACE(3, "Error updating CM settings. Error = %d \n", error);
        });
    return report(status, refused, result);
}

}  // extern "C"
