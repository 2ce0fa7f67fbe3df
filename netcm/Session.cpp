#include "Session.h"

#include <quorvel/NetCM.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "Status.h"

namespace quorvel::netcm {
namespace {

using namespace std::chrono_literals;

// How long a close response may take before netcm leaves without it.
constexpr auto kCloseTime = 10s;
constexpr auto kCloseTimeInterrupted = 4s;

// Never destroyed: a thread of the library may still deliver while the process ends.
Queue<Event>& queue() {
    static auto* const the_queue = new Queue<Event>;
    return *the_queue;
}

void on_event(NetCMEvent* event) {
    queue().push(copy_event(*event));
}

class TableLock {
  public:
    TableLock() { pthread_mutex_lock(&NetCMAppMutex); }
    ~TableLock() { pthread_mutex_unlock(&NetCMAppMutex); }
    TableLock(const TableLock&) = delete;
    TableLock& operator=(const TableLock&) = delete;
};

bool is_of_this_thread(const NetCMThreadProf& use) {
    return use.ThreadIndex >= 0 &&
           g_NetCMClientAppInfo.ThreadInfo[use.ThreadIndex].ThreadId == static_cast<int32_t>(gettid());
}

std::string name_of(int32_t profile) {
    return profile == 0 ? "the default profile" : "profile " + std::to_string(profile);
}

int32_t transport_error() {
    int32_t error = -1;
    NetCMGetTransportError(&error);
    return error;
}

int32_t reason_of(const Event& event) {
    const Reason* reason = std::get_if<Reason>(&event.data);
    return reason == nullptr ? -1 : reason->word;
}

}  // namespace

std::vector<int32_t> profiles_in_use() {
    const TableLock lock;
    std::vector<int32_t> profiles;
    for (const NetCMCallInfo& call : g_NetCMClientAppInfo.CallInfo) {
        for (const NetCMThreadProf& use : call.ThreadProf) {
            for (const int32_t profile : use.ProfileId) {
                if (call.InUse == 1 && is_of_this_thread(use) && profile > 0) {
                    profiles.push_back(profile);
                }
            }
        }
    }
    return profiles;
}

Session::Session(const std::function<void()>& on_interrupt)
    : watch_([on_interrupt] {
          queue().interrupt();
          on_interrupt();
      }) {
    require_success(NetCMClientRegister(on_event), "cannot register with the CM server");
    registered_ = true;
}

Session::~Session() {
    try {
        end([](const Event&) {});
    } catch (const Failure&) {
        // The command has told of its own failure; this one would only hide it.
    }
}

bool Session::interrupted() const {
    return queue().interrupted();
}

std::optional<Event> Session::await(const EventTest& test, Deadline deadline, const EventHandler& seen) {
    std::optional<Event> event;
    // The time is looked at as well: events that never cease must not keep netcm longer than it was asked to
    // stay.
    do {
        event = queue().next(deadline);
        if (!event || test(*event)) {
            return event;
        }
        seen(*event);
    } while (!has_passed(deadline));
    return std::nullopt;
}

void Session::follow(Deadline deadline, const EventHandler& seen) {
    await([](const Event&) { return false; }, deadline, seen);
}

void Session::tell(uint32_t type) {
    queue().push({std::chrono::system_clock::now(), type, 0, 0, {}});
}

std::optional<Event> Session::open(int32_t profile, Deadline deadline, const EventHandler& seen) {
    const std::string what = "cannot open " + name_of(profile);
    const bool default_one = profile == 0;
    if (const uint32_t status = NetCMConnectionOpen(&profile, 1); status != NETCM_SUCCESS) {
        if (default_one && status == NETCM_ERR_INVALID_PROFILE) {
            throw Failure(std::string("cannot open a connection: ") + kNoDefaultProfile);
        }
        throw Failure(what + ": " + describe_open_failure(status, transport_error()));
    }
    const auto is_response = [](const Event& event) { return event.type == NETCM_EVENT_OPEN_RSP; };
    std::optional<Event> response = await(is_response, deadline, seen);
    if (response && response->result != 0) {
        seen(*response);
        const auto status = static_cast<uint32_t>(response->result);
        throw Failure(what + ": " + describe_open_failure(status, reason_of(*response)));
    }
    return response;
}

// A connection is released by its close response, and just as well by an indication that it has ended.
void Session::await_released(const EventHandler& seen) {
    const Deadline deadline = in(interrupted() ? kCloseTimeInterrupted : kCloseTime);
    for (bool in_use = true; in_use;) {
        in_use = !profiles_in_use().empty();
        // In slices: a connection of a server that has died ends without a further event.
        const Deadline slice = in_use ? std::min(deadline, in(100ms)) : in(0s);
        std::optional<Event> event = queue().next(slice, OnInterrupt::kKeepWaiting);
        if (in_use && !event && has_passed(deadline)) {
            throw Failure("the CM server has not answered the close; leaving without its response");
        }
        for (; event; event = queue().next(in(0s), OnInterrupt::kKeepWaiting)) {
            seen(*event);
        }
    }
}

void Session::end(const EventHandler& seen) {
    if (!registered_) {
        return;
    }
    registered_ = false;
    for (const int32_t profile : profiles_in_use()) {
        const uint32_t status = NetCMConnectionClose(profile);
        // The server may have died under it: then the connection is ending by itself.
        if (status != NETCM_ERR_FAILURE) {
            require_success(status, "cannot close " + name_of(profile));
        }
    }
    await_released(seen);
    require_success(NetCMClientDeRegister(), "cannot deregister");
}

}  // namespace quorvel::netcm
