// The platform as a test wants it: application id and event system, defined in the test program, which the
// library calls in place of the platform's own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quorvel::test {

// One call of the event system, in the order of the calls.
struct EventSystemCall {
    std::string function;
    std::string name;  // the published event
    void* handle;      // what was passed as handle
};

namespace platform {

// What `app_get_current_id` gives: an id, 4711 without a call, or a failure with an error code and no id.
void set_app_id(int app_id);
void fail_app_id(int error);

// Results of the event system. Without a call: the handle exists, opening and publishing succeed.
void set_event_handle_exists(bool exists);
void set_event_library_open_result(int result);
void set_event_publish_result(int result);

std::vector<EventSystemCall> event_system_calls();
size_t published(const std::string& name);

}  // namespace platform
}  // namespace quorvel::test
