// The functions of GConf and GLib that an application's name takes, and the table that hands them on.
#pragma once

struct _GConfClient;
struct _GError;

extern "C" {
void g_type_init();
_GConfClient* gconf_client_get_default();
char* gconf_client_get_string(_GConfClient* client, const char* key, _GError** error);
void g_object_unref(void* object);
void g_free(void* memory);
void g_error_free(_GError* error);
}

namespace quorvel {

struct GConfFunctions {
    decltype(&::g_type_init) g_type_init;
    decltype(&::gconf_client_get_default) gconf_client_get_default;
    decltype(&::gconf_client_get_string) gconf_client_get_string;
    decltype(&::g_object_unref) g_object_unref;
    decltype(&::g_free) g_free;
    decltype(&::g_error_free) g_error_free;
};

// The helper library that is linked with GConf, from the folder of ours, and the table that it exports.
inline constexpr char kGConfHelper[] = "quorvel/libquorvel-gconf.so.0";
inline constexpr char kGConfTable[] = "quorvel_gconf_functions";

}  // namespace quorvel
