#include "support/Platform.h"

#include <algorithm>
#include <mutex>

#include "appmgr_ids.h"
#include "evtsys.h"

namespace quorvel::test {
namespace {

struct State {
    std::mutex mutex;
    int app_id = 4711;
    int app_id_result = 1;
    int app_id_error = 0;
    bool handle_exists = true;
    int open_result = 0;
    int publish_result = 0;
    std::vector<EventSystemCall> calls;
};

// Never destroyed: threads of the library may outlive main.
State& state() {
    static State& instance = *new State;
    return instance;
}

template <class Change>
auto locked(Change change) {
    State& all = state();
    const std::lock_guard lock(all.mutex);
    return change(all);
}

}  // namespace

namespace platform {

void set_app_id(int app_id) {
    locked([=](State& s) {
        s.app_id = app_id;
        s.app_id_result = 1;
        s.app_id_error = 0;
    });
}

void fail_app_id(int error) {
    locked([=](State& s) {
        s.app_id_result = 0;
        s.app_id_error = error;
    });
}

void set_event_handle_exists(bool exists) {
    locked([=](State& s) { s.handle_exists = exists; });
}

void set_event_library_open_result(int result) {
    locked([=](State& s) { s.open_result = result; });
}

void set_event_publish_result(int result) {
    locked([=](State& s) { s.publish_result = result; });
}

std::vector<EventSystemCall> event_system_calls() {
    return locked([](State& s) { return s.calls; });
}

size_t published(const std::string& name) {
    return locked([&](State& s) {
        return static_cast<size_t>(
            std::count_if(s.calls.begin(), s.calls.end(), [&](const EventSystemCall& call) {
                return call.function == "EvtSysEventPublish" && call.name == name;
            }));
    });
}

}  // namespace platform
}  // namespace quorvel::test

#define QV_STANDIN extern "C" __attribute__((visibility("default")))

QV_STANDIN int app_get_current_id(int* app_id, int* error) {
    return quorvel::test::locked([=](quorvel::test::State& s) {
        *error = s.app_id_error;
        if (s.app_id_result != 0)
            *app_id = s.app_id;
        return s.app_id_result;
    });
}

QV_STANDIN int EvtSysEventHandleExist(void* handle) {
    return quorvel::test::locked([=](quorvel::test::State& s) {
        s.calls.push_back({"EvtSysEventHandleExist", "", handle});
        return s.handle_exists ? 1 : 0;
    });
}

QV_STANDIN int EvtSysLibraryOpen(void** handle) {
    return quorvel::test::locked([=](quorvel::test::State& s) {
        s.calls.push_back({"EvtSysLibraryOpen", "", static_cast<void*>(handle)});
        return s.open_result;
    });
}

QV_STANDIN int EvtSysEventPublish(void* handle, const char* name) {
    return quorvel::test::locked([=](quorvel::test::State& s) {
        s.calls.push_back({"EvtSysEventPublish", name, handle});
        return s.publish_result;
    });
}
