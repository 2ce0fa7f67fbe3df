// Which profile an application uses, and the payment setting.
#include <algorithm>
#include <array>

#include "protocol/cursor.h"
#include "protocol/pm_message.h"
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

NetPMAppProf known(Store& store, uint32_t id) {
    const auto application = store.application(id);
    if (!application)
        throw PmRefusal(PM_ERR_UNKNOWN_APPLICATION);
    return *application;
}

void add(Store& store, wire::AppProfMsg& message) {
    store.add_application(message.AppProf.AppId);
}

void remove(Store& store, wire::AppProfMsg& message) {
    store.remove_application(message.AppProf.AppId);
}

void check(Store& store, wire::AppProfMsg& message) {
    message.AppProf.AppId = store.application(message.AppProf.AppId) ? 1 : 0;
}

void get(Store& store, wire::AppProfMsg& message) {
    message.AppProf = known(store, message.AppProf.AppId);
}

void set(Store& store, wire::AppProfMsg& message) {
    NetPMAppProf changed = known(store, message.AppProf.AppId);
    // The two belong together: whoever sets the interfaces alone sends a 0 for both.
    if (message.BProfIdValid != 0) {
        changed.Param = message.AppProf.Param;
        changed.ProfileId = message.AppProf.ProfileId;
    }
    if (message.BNetIfaceListValid != 0)
        std::ranges::copy(message.AppProf.NetIfaceList, changed.NetIfaceList);
    store.set_application(changed);
    message.AppProf = changed;
}

void get_proper(Store& store, wire::AppProfMsg& message) {
    message.AppProf.AppId = static_cast<uint32_t>(store.proper_profile(message.AppProf.AppId));
}

void set_payment(Store& store, wire::AppProfMsg& message) {
    store.set_payment(message.AppProf.Param, message.AppProf.ProfileId);
}

using AppProfileCommand = StoreCommand<Store&, wire::AppProfMsg&>;
constexpr std::array kAppProfileCommands{
    AppProfileCommand{wire::NETPM_APPPROF_ADD_APP_ID, "adds application ", add},
    AppProfileCommand{wire::NETPM_APPPROF_DELETE_APP_ID, "deletes application ", remove},
    AppProfileCommand{wire::NETPM_APPPROF_CHECK_APP_ID, "asks whether it knows application ", check},
    AppProfileCommand{wire::NETPM_APPPROF_GET_APP_INFO, "reads the binding of application ", get},
    AppProfileCommand{wire::NETPM_APPPROF_SET_APP_INFO, "binds application ", set},
    AppProfileCommand{wire::NETPM_APPPROF_GET_PROPER_PROFILE, "asks for the profile of application ",
                      get_proper},
    AppProfileCommand{wire::NETPM_APPPROF_ASYNC_PROPER_PROFILE,
                      "asks for an event with the profile of application ", get_proper},
    AppProfileCommand{wire::NETPM_APPPROF_CHANGE_PAYMENT, "changes the payment setting, application ",
                      set_payment},
};

// The event of the asynchronous request names the application and the profile in words of its own.
Message event_of(uint32_t application, const wire::AppProfMsg& answer) {
    Message message = make_message(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, answer.Result);
    message.record.Word2 = answer.Cmd;
    message.record.Word5 = application;
    message.record.Word6 = answer.Result == PM_SUCCESS ? answer.AppProf.AppId : 0;
    return message;
}

}  // namespace

void ask_application_profile(Services services, Client& client, const Request& request) {
    wire::AppProfMsg message{};
    Cursor cursor(request.payload);
    if (!cursor.read(message))
        return;  // not reached: for the compiler
    const uint32_t application = message.AppProf.AppId;
    const bool with_event = message.Cmd == wire::NETPM_APPPROF_ASYNC_PROPER_PROFILE;
    const auto [words, error] = carry_out(kAppProfileCommands, message.Cmd,
                                          "asks something unknown of application ", services.store, message);
    message.Result = error;
    message.Cmd += wire::kPmAnswer;
    log_request(client, words, log::field("application", static_cast<int32_t>(application)), outcome(error));
    if (with_event)
        services.clients.push(client.id, event_of(application, message));
    else
        client.sync->send(to_message(message));
}

}  // namespace quorvel::cm
