// Nothing but a table: loading GConf costs a process megabytes and some twenty libraries, so the one library
// that is linked with it is loaded when somebody asks for a name, and not before.
//
// The entries are ordinary dynamic symbols. A program that defines one of these functions is called through
// the table in GConf's place.
#define GLIB_DISABLE_DEPRECATION_WARNINGS
#if __has_include(<gconf/gconf-client.h>)
#include <gconf/gconf-client.h>  // its declarations and ours have to agree
#endif

#include "gconf-helper/GConfFunctions.h"

extern "C"
    __attribute__((visibility("default"))) constinit const quorvel::GConfFunctions quorvel_gconf_functions{
        .g_type_init = g_type_init,
        .gconf_client_get_default = gconf_client_get_default,
        .gconf_client_get_string = gconf_client_get_string,
        .g_object_unref = g_object_unref,
        .g_free = g_free,
        .g_error_free = g_error_free,
    };
