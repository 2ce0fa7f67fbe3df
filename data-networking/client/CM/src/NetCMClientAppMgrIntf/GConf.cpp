#include "client/CM/src/NetCMClientAppMgrIntf/GConf.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>

// Weak: the library runs in processes without GConf, and finds it there in those that use it themselves.
#pragma weak g_type_init
#pragma weak gconf_client_get_default
#pragma weak gconf_client_get_string
#pragma weak g_object_unref
#pragma weak g_free
#pragma weak g_error_free

namespace quorvel {
namespace {

constinit const GConfFunctions kInProcess{
    .g_type_init = ::g_type_init,
    .gconf_client_get_default = ::gconf_client_get_default,
    .gconf_client_get_string = ::gconf_client_get_string,
    .g_object_unref = ::g_object_unref,
    .g_free = ::g_free,
    .g_error_free = ::g_error_free,
};
pthread_mutex_t session_mutex = PTHREAD_MUTEX_INITIALIZER;
// From the helper, once it is needed; guarded by session_mutex.
const GConfFunctions* loaded = nullptr;

bool is_complete(const GConfFunctions& functions) {
    const bool there[] = {functions.g_type_init != nullptr,
                          functions.gconf_client_get_default != nullptr,
                          functions.gconf_client_get_string != nullptr,
                          functions.g_object_unref != nullptr,
                          functions.g_free != nullptr,
                          functions.g_error_free != nullptr};
    return std::find(std::begin(there), std::end(there), false) == std::end(there);
}

// The helper lies in a folder beside this library, wherever that was loaded from.
bool find_helper(char (&path)[PATH_MAX]) {
    Dl_info self{};
    if (dladdr(&loaded, &self) == 0)  // not reached: the system never says so
        return false;                 // not reached: the system never says so
    const char* slash = strrchr(self.dli_fname, '/');
    const int folder_length = slash != nullptr ? static_cast<int>(slash + 1 - self.dli_fname) : 0;
    const int length = snprintf(path, sizeof path, "%.*s%s", folder_length, self.dli_fname, kGConfHelper);
    return static_cast<size_t>(length) < sizeof path;
}

const GConfFunctions* load_helper() {
    char path[PATH_MAX];
    if (!find_helper(path))  // not reached: the system never says so
        return nullptr;      // not reached: the system never says so
    void* helper = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    return helper != nullptr ? static_cast<const GConfFunctions*>(dlsym(helper, kGConfTable)) : nullptr;
}

const GConfFunctions* find_functions() {
    if (is_complete(kInProcess))
        return &kInProcess;
    if (loaded == nullptr)
        loaded = load_helper();
    return loaded;
}

}  // namespace

GConfSession::GConfSession() {
    pthread_mutex_lock(&session_mutex);
    functions_ = find_functions();
}

GConfSession::~GConfSession() {
    pthread_mutex_unlock(&session_mutex);
}

}  // namespace quorvel
