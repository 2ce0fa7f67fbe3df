// An application's display name, from the platform's configuration.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "client/CM/src/NetCMClientAppMgrIntf/GConf.h"
#include "client/CM/src/NetCMPrivate.h"

extern "C" [[noreturn]] void __assert_fail(const char* assertion, const char* file, unsigned line,
                                           const char* function) noexcept;

using namespace quorvel;

namespace {

struct ConfigurationValue {
    _GConfClient* client;
    char* text;
    _GError* error;
};

ConfigurationValue gconf_get_string(const GConfFunctions& gconf, const char* key) {
    gconf.g_type_init();
    ConfigurationValue value{gconf.gconf_client_get_default(), nullptr, nullptr};
    // Fatal in every build: a session without a configuration client is beyond repair from here.
    if (value.client == nullptr)                        // not reached: ends the process
        __assert_fail("p_gconf_client != ((void *)0)",  // not reached: ends the process
                      QV_UNIT ".cpp", __LINE__, "gconf_get_string");
    value.text = gconf.gconf_client_get_string(value.client, key, &value.error);
    return value;
}

void hand_out(const GConfFunctions& gconf, const ConfigurationValue& value, int32_t app_id, char* name) {
    gconf.g_object_unref(value.client);
    // An empty value is not freed: where a program stands in for GConf it may be a constant.
    if (value.text[0] == '\0')
        return;
    QV_TRACE(2, "App ID [%d] App Name[%s]\n", app_id, value.text);
    strncpy(name, value.text, NETCM_APP_NAME_SIZE);  // a longer name comes without a terminator
    gconf.g_free(value.text);
}

void release(const GConfFunctions& gconf, const ConfigurationValue& value) {
    if (value.error != nullptr)
        gconf.g_error_free(value.error);
    gconf.g_object_unref(value.client);
}

}  // namespace

extern "C" {

int NetCMClientGetAppName(int32_t appId, char* name) {
    const pid_t process = getpid();
    char key[64];
    snprintf(key, sizeof key, "/System/AppInfo/%d/AppName", appId);

    const GConfSession session;
    const GConfFunctions* gconf = session.functions();
    const ConfigurationValue value = gconf != nullptr ? gconf_get_string(*gconf, key) : ConfigurationValue{};
    if (value.text != nullptr && value.error == nullptr) {
        hand_out(*gconf, value, appId, name);
        return 0;
    }
    QV_TRACE(2, "Failed to read string value at [%s]\n", key);
    if (gconf != nullptr)
        release(*gconf, value);
    snprintf(name, NETCM_APP_NAME_SIZE, "%s_%d", "No Name", process);
    QV_TRACE(2, "Failed to get app name : app_id [%d] app name[%s]\n", appId, name);
    return 1;
}

}  // extern "C"
