#include "appmgr_ids.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace {

int parse(const char* text, int& id) {
    const char* end = text + strlen(text);
    int value = 0;
    const auto [rest, result] = std::from_chars(text, end, value);
    if (result == std::errc::invalid_argument || rest != end)
        return EINVAL;
    if (result == std::errc::result_out_of_range)
        return ERANGE;
    id = value;
    return 0;
}

int read_id(int* id) {
    const char* text = secure_getenv("QUORVEL_APP_ID");
    if (text == nullptr)
        return ENOENT;
    return id == nullptr ? EINVAL : parse(text, *id);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int app_get_current_id(int* appId, int* error) {
    const int failure = read_id(appId);
    if (failure != 0 && error != nullptr)
        *error = failure;
    return failure == 0;
}
