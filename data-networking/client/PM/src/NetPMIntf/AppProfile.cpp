// Which profile an application uses.
#include <cstring>
#include <span>

#include "client/CM/src/NetCMIntf/Request.h"
#include "client/CM/src/NetCMPrivate.h"
#include "client/PM/src/NetPMIntf/Invalid.h"
#include "client/PM/src/NetPMPrivate.h"
#include "common/CancelHold.h"

using namespace quorvel;

namespace {

constexpr uint32_t kUnknownProfile = 0xFFFFFFFF;

wire::AppProfMsg message_for(wire::AppProfCommand command, int32_t app_id) {
    wire::AppProfMsg message = {};
    message.Cmd = command;
    message.AppProf.AppId = static_cast<uint32_t>(app_id);
    return message;
}

bool is_registered() {
    if (client_is_registered())
        return true;
    QV_TRACE(5, "Cleint is not registered with CM\n");
    return false;
}

uint32_t send_message(const wire::AppProfMsg& message) QV_REQUIRES(app_mutex) {
    QV_TRACE(2, "App-Profile cmd = %d\n", message.Cmd);
    return NetPMAppProfSendSyncReq(&message, sizeof message);
}

// The last thread may have deregistered while this one waited for the mutex: the link is then not brought up
// again.
uint32_t ready_link(Here here) QV_REQUIRES(app_mutex) {
    return is_registered() ? repair_link(here) : static_cast<uint32_t>(NETCM_ERR_NOT_REGISTERED);
}

// Sends the message and leaves the answer in it. Returns the status of the operation.
uint32_t exchange(wire::AppProfMsg& message) QV_REQUIRES(app_mutex) {
    const uint32_t ready = ready_link(QV_HERE);
    if (ready != NETCM_SUCCESS)
        return ready;
    const uint32_t expected = wire::kPmAnswer + message.Cmd;
    const uint32_t sent = send_message(message);
    if (sent != NETCM_SUCCESS)
        return sent;
    message = {};
    const int32_t received = NetPMAppProfRecvSyncRsp(&message, sizeof message);
    if (received != NETCM_SUCCESS)
        return static_cast<uint32_t>(received);
    return message.Cmd == expected ? message.Result : static_cast<uint32_t>(NETCM_ERR_FAILURE);
}

// The same, with the mutex. `take` takes the results out of the answer: whoever has the mutex next sees them.
template <class Take>
uint32_t ask(wire::AppProfMsg& message, Take take) {
    const CancelHold hold;
    if (!is_registered())
        return NETCM_ERR_NOT_REGISTERED;
    const AppMutexGuard lock(QV_HERE);
    const uint32_t status = exchange(message);
    if (status == NETCM_SUCCESS)
        take(message.AppProf);
    return status;
}

uint32_t ask(wire::AppProfMsg& message) {
    return ask(message, [](const NetPMAppProf&) {});
}

// For the operations that answer with a truth value: whether the profile manager knows, and agreed.
bool ask_about_app(wire::AppProfCommand command, int32_t app_id, wire::AppProfMsg& message) {
    if (app_id < 1) {
        QV_TRACE(5, "Invalid App ID [%d]\n", app_id);
        return false;
    }
    message = message_for(command, app_id);
    return ask(message) == NETCM_SUCCESS;
}

// Notes who is to get the answer that comes later; null when there is no room for a note.
NetCMProperProfReq* note_request(int32_t app_id) QV_REQUIRES(app_mutex) {
    const int32_t tid = NetCMGetCurrentTid();
    const Lock lock(table_lock);
    for (NetCMProperProfReq& request : table().ProperProfReq) {
        if (request.InUse == 1)
            continue;
        request = {.InUse = 1, .ThreadId = tid, .ReqKey = app_id};
        return &request;
    }
    return nullptr;
}

// No answer will come to what was not sent, and a note that nothing frees hides those behind it.
void take_back(NetCMProperProfReq* note) {
    const Lock lock(table_lock);
    if (note != nullptr)
        *note = {.InUse = 0, .ThreadId = -1, .ReqKey = -1};
}

const wire::PaymentWord* find_word(std::span<const wire::PaymentWord> words, const char* text) {
    if (text == nullptr)
        return nullptr;
    for (const wire::PaymentWord& entry : words)
        if (strcmp(entry.word, text) == 0)
            return &entry;
    return nullptr;
}

}  // namespace

extern "C" {

uint32_t NetPMAppProfAddAppId(int32_t appId) {
    wire::AppProfMsg message;
    return ask_about_app(wire::NETPM_APPPROF_ADD_APP_ID, appId, message);
}

uint32_t NetPMAppProfDeleteAppId(int32_t appId) {
    wire::AppProfMsg message;
    return ask_about_app(wire::NETPM_APPPROF_DELETE_APP_ID, appId, message);
}

// The answer's AppId says whether the application is known, in its lower half.
uint32_t NetPMAppProfCheckAppId(int32_t appId) {
    wire::AppProfMsg message;
    return ask_about_app(wire::NETPM_APPPROF_CHECK_APP_ID, appId, message) &&
           static_cast<uint16_t>(message.AppProf.AppId) != 0;
}

uint32_t NetPMAppProfGetAppInfo(int32_t appId, NetPMAppProf* out) {
    if (out == nullptr)
        return QV_INVALID("Invalid AppProf pointer\n");
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_GET_APP_INFO, appId);
    return ask(message, [=](const NetPMAppProf& answer) { *out = answer; });
}

uint32_t NetPMAppProfSetAppInfo(int32_t appId, NetPMAppProf* rec) {
    if (rec == nullptr)
        return QV_INVALID("Invalid AppProf pointer\n");
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_SET_APP_INFO, appId);
    message.AppProf = *rec;
    message.BProfIdValid = 1;
    message.BNetIfaceListValid = 1;
    return ask(message, [=](const NetPMAppProf& answer) { *rec = answer; });
}

uint32_t NetPMAppProfSetProfId(int32_t appId, int32_t profileId) {
    if (profileId <= 0)
        return QV_INVALID("Invalid ProfileId [%d]\n", profileId);
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_SET_APP_INFO, appId);
    message.AppProf.Param = static_cast<uint32_t>(appId);
    message.AppProf.ProfileId = static_cast<uint32_t>(profileId);
    message.BProfIdValid = 1;
    return ask(message);
}

uint32_t NetPMAppProfGetAppProfId(int32_t appId, uint32_t* profileId) {
    if (profileId == nullptr)
        return QV_INVALID("Invalid ProfileId pointer\n");
    NetPMAppProf binding = {};
    const uint32_t status = NetPMAppProfGetAppInfo(appId, &binding);
    *profileId = status == NETCM_SUCCESS ? binding.ProfileId : kUnknownProfile;
    return status;
}

uint32_t NetPMAppProfSetNetIfaceList(int32_t appId, const uint32_t list[2]) {
    if (list == nullptr)
        return QV_INVALID("Invalid NetIfaceList pointer\n");
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_SET_APP_INFO, appId);
    message.AppProf.NetIfaceList[0] = list[0];
    message.AppProf.NetIfaceList[1] = list[1];
    message.BNetIfaceListValid = 1;
    return ask(message);
}

uint32_t NetPMAppProfGetAppNetIfaceList(int32_t appId, uint32_t list[2]) {
    if (list == nullptr)
        return QV_INVALID("Invalid NetIfaceList pointer\n");
    list[0] = list[1] = 0;
    NetPMAppProf binding = {};
    const uint32_t status = NetPMAppProfGetAppInfo(appId, &binding);
    if (status == NETCM_SUCCESS)
        memcpy(list, binding.NetIfaceList, sizeof binding.NetIfaceList);
    return status;
}

uint32_t NetPMAppProfGetProperProfile(int32_t appId, uint32_t* profileId) {
    if (profileId == nullptr)
        return QV_INVALID("Invalid ProfileId pointer\n");
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_GET_PROPER_PROFILE, appId);
    // The answer names the profile where a request names the application.
    return ask(message, [=](const NetPMAppProf& answer) { *profileId = answer.AppId; });
}

uint32_t NetPMAppProfGetProperProfileAsync(int32_t appId) {
    const CancelHold hold;
    if (!is_registered())
        return NETCM_ERR_NOT_REGISTERED;
    const AppMutexGuard lock(QV_HERE);
    const uint32_t ready = ready_link(QV_HERE);
    if (ready != NETCM_SUCCESS)
        return ready;
    NetCMProperProfReq* note = note_request(appId);
    const uint32_t sent = send_message(message_for(wire::NETPM_APPPROF_ASYNC_PROPER_PROFILE, appId));
    if (sent != NETCM_SUCCESS)
        take_back(note);
    return sent;
}

uint32_t NetPMAppProfChangePayment(const char* csc, const char* payment) {
    const wire::PaymentWord* csc_word = find_word(wire::kCscWords, csc);
    const wire::PaymentWord* payment_word = find_word(wire::kPaymentWords, payment);
    if (csc_word == nullptr || payment_word == nullptr)
        return QV_INVALID("Invalid Parameter\n");
    QV_TRACE(2, "Received CSC[%d], Payment[%d]\n", csc_word->code, payment_word->code);
    wire::AppProfMsg message = message_for(wire::NETPM_APPPROF_CHANGE_PAYMENT, -1);
    message.AppProf.Param = csc_word->code;
    message.AppProf.ProfileId = payment_word->code;
    message.BProfIdValid = 1;
    return ask(message);
}

}  // extern "C"
