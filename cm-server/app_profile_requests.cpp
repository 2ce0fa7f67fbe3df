// Which profile an application uses, and the payment setting.
#include <algorithm>
#include <array>

#include "handlers.h"
#include "protocol/cursor.h"
#include "protocol/pm_message.h"

namespace quorvel::cm {
namespace {

NetPMAppProf known(Store& store, uint32_t id) {
    const auto application = store.application(id);
    if (!application)
        throw PmRefusal(PM_ERR_UNKNOWN_APPLICATION);
    return *application;
}

void add(Store& store, AppProfMsg& message) {
    store.add_application(message.Application.AppId);
}

void remove(Store& store, AppProfMsg& message) {
    store.remove_application(message.Application.AppId);
}

void check(Store& store, AppProfMsg& message) {
    message.Application.AppId = store.application(message.Application.AppId) ? 1 : 0;
}

void get(Store& store, AppProfMsg& message) {
    message.Application = known(store, message.Application.AppId);
}

void set(Store& store, AppProfMsg& message) {
    NetPMAppProf changed = known(store, message.Application.AppId);
    changed.Param = message.Application.Param;
    if (message.BProfIdValid != 0)
        changed.ProfileId = message.Application.ProfileId;
    if (message.BNetIfaceListValid != 0)
        std::ranges::copy(message.Application.NetIfaceList, changed.NetIfaceList);
    store.set_application(changed);
    message.Application = changed;
}

void get_proper(Store& store, AppProfMsg& message) {
    message.Application.AppId = static_cast<uint32_t>(store.proper_profile(message.Application.AppId));
}

void set_payment(Store& store, AppProfMsg& message) {
    store.set_payment(message.Application.Param, message.Application.ProfileId);
}

struct Entry {
    uint32_t command;
    const char* words;
    void (*handler)(Store&, AppProfMsg&);
};
constexpr uint32_t kGetProperProfileAsync = 9;
constexpr std::array kHandlers{
    Entry{1, "adds application ", add},
    Entry{2, "deletes application ", remove},
    Entry{3, "asks whether it knows application ", check},
    Entry{4, "reads the binding of application ", get},
    Entry{5, "binds application ", set},
    Entry{8, "asks for the profile of application ", get_proper},
    Entry{kGetProperProfileAsync, "asks for an event with the profile of application ", get_proper},
    Entry{10, "changes the payment setting, application ", set_payment},
};

const char* carry_out(Store& store, AppProfMsg& message) {
    const auto found = std::ranges::find(kHandlers, message.Cmd, &Entry::command);
    try {
        if (found == kHandlers.end())
            throw PmRefusal(PM_ERR_UNKNOWN_COMMAND);
        found->handler(store, message);
    } catch (const PmRefusal& refusal) {
        message.Result = refusal.error;
    } catch (const DatabaseError& error) {
        log::error("the store fails: ", error.what());
        message.Result = PM_ERR_STORE;
    }
    return found == kHandlers.end() ? "asks something unknown of application " : found->words;
}

// The event of the asynchronous request names the application and the profile in words of its own.
Message event_of(uint32_t application, const AppProfMsg& answer) {
    Message message = make_message(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, answer.Result);
    message.record.Word2 = answer.Cmd;
    message.record.Word5 = application;
    message.record.Word6 = answer.Result == PM_SUCCESS ? answer.Application.AppId : 0;
    return message;
}

}  // namespace

void ask_application_profile(Services services, Client& client, const Request& request) {
    AppProfMsg message{};
    Cursor cursor(request.payload);
    if (!cursor.read(message))
        return;
    const uint32_t application = message.Application.AppId;
    const bool with_event = message.Cmd == kGetProperProfileAsync;
    message.Result = PM_SUCCESS;
    const char* words = carry_out(services.store, message);
    message.Cmd += kPmAnswer;
    log_request(client, words, log::field("application", static_cast<int32_t>(application)),
                outcome(static_cast<PmError>(message.Result)));
    if (with_event)
        services.clients.push(client.id, event_of(application, message));
    else
        client.sync->send(to_message(message));
}

}  // namespace quorvel::cm
