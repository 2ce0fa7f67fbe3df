// A program that defines one of the functions: GConf itself gives the others, and nothing of it is in the
// process before it is needed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "gconf-helper/GConfFunctions.h"
#include "quorvel/NetCM.h"
#include "support/TraceCapture.h"

namespace {

std::string asked_key;
bool has_client = false;

}  // namespace

// g_free is GLib's own here, and that is free.
__attribute__((visibility("default"))) char* gconf_client_get_string(_GConfClient* client, const char* key,
                                                                     _GError**) {
    asked_key = key;
    has_client = client != nullptr;
    return strdup("of the program");
}

namespace quorvel::test {
namespace {

bool is_loaded(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find(library) != std::string::npos)
            return true;
    return false;
}

TEST(AppNamePart, what_the_program_defines_is_called_and_the_rest_is_loaded) {
    EXPECT_FALSE(is_loaded("libgconf-2"));
    EXPECT_FALSE(is_loaded("libglib-2.0"));

    char name[NETCM_APP_NAME_SIZE] = {};
    EXPECT_EQ(NetCMClientGetAppName(11, name), 0);
    EXPECT_STREQ(name, "of the program");
    EXPECT_EQ(asked_key, "/System/AppInfo/11/AppName");
    EXPECT_TRUE(has_client);
    EXPECT_TRUE(is_loaded("libgconf-2"));
    EXPECT_TRUE(trace::contains("App ID [11] App Name[of the program]\n"));
}

}  // namespace
}  // namespace quorvel::test
