// The server's settings. This pair answers with a truth value and hands the status out through a pointer,
// unlike the rest of the API; applications of long standing are built on it.
#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

constexpr uint32_t kHighestKey = 4;
constexpr uint32_t kDone = 1;
constexpr uint32_t kFailed = 0;

// Whether the request may be made; otherwise the status has been handed out where there is a place for it.
bool may_ask(uint32_t key, const uint32_t* value, uint32_t* result) {
    if (result == nullptr)
        return false;
    if (!registered(QV_HERE)) {
        *result = NETCM_ERR_NOT_REGISTERED;
        return false;
    }
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

// Turns the outcome of an exchange into this pair's style. `success` and `refused` trace it.
template <class Success, class Refused>
uint32_t report(uint32_t status, const wire::Record& answer, uint32_t* result, Success success,
                Refused refused) {
    if (status == NETCM_ERR_REREGISTER_FAILED)
        return status;
    *result = status != NETCM_SUCCESS ? status : answer.Status;
    if (status != NETCM_SUCCESS)
        return kFailed;
    if (answer.Status != 0) {
        refused(static_cast<int>(answer.Status));
        return kFailed;
    }
    success();
    return kDone;
}

}  // namespace

extern "C" {

uint32_t NetCMSettingsGet(uint32_t key, uint32_t* value, uint32_t* result) {
    QV_TRACE(0, "Request to retrieve CM settings. Key = %d\n", static_cast<int>(key));
    if (!may_ask(key, value, result))
        return kFailed;
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_GET_SETTINGS_REQ);
    request.Arg3 = key;
    const AppMutexGuard guard(QV_HERE);
    wire::Record answer;
    const uint32_t status = ask(QV_HERE, request, wire::NETCM_CLIENT_GET_SETTINGS_RSP, answer);
    const auto success = [&] {
        *value = answer.Word2;
        QV_TRACE(0, "Success retrieving CM Settings. Key= %d, Value = %d\n", static_cast<int>(key),
                 static_cast<int>(answer.Word2));
    };
    // Says "PDP Mode" of every key; log readers know it so.
    return report(status, answer, result, success,
                  [](int error) { QV_TRACE(3, "Error reading single PDP Mode. Error = %d \n", error); });
}

uint32_t NetCMSettingsSet(uint32_t key, uint32_t* value, uint32_t* result) {
    QV_TRACE(0, "Request to set CMsettings. Type = %d\n", static_cast<int>(key));
    if (!may_ask(key, value, result))
        return kFailed;
    wire::RequestHeader request = request_header(wire::NETCM_CLIENT_SET_SETTINGS_REQ);
    request.Arg3 = key;
    request.Arg4 = *value;
    const AppMutexGuard guard(QV_HERE);
    wire::Record answer;
    const uint32_t status = ask(QV_HERE, request, wire::NETCM_CLIENT_SET_SETTINGS_RSP, answer);
    const auto success = [&] {
        QV_TRACE(0, "Successfully set CM settings. Key = %d, Value = %d \n", static_cast<int>(key),
                 static_cast<int>(request.Arg4));
    };
    return report(status, answer, result, success,
                  [](int error) { QV_TRACE(3, "Error updating CM settings. Error = %d \n", error); });
}

}  // extern "C"
