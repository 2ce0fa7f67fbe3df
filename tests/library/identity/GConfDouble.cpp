#include "GConfDouble.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "gconf-helper/GConfFunctions.h"

namespace quorvel::test {

GConfDouble& gconf() {
    static GConfDouble instance;
    return instance;
}

}  // namespace quorvel::test

using quorvel::test::gconf;

struct _GConfClient {};
struct _GError {};

namespace {

_GConfClient the_client;
_GError the_error;
// A constant: whoever frees it ends the test program.
char the_empty_value[] = "";

}  // namespace

#pragma GCC visibility push(default)

void g_type_init() {
    gconf().calls.emplace_back("g_type_init");
}

_GConfClient* gconf_client_get_default() {
    gconf().calls.emplace_back("gconf_client_get_default");
    return gconf().has_client ? &the_client : nullptr;
}

char* gconf_client_get_string(_GConfClient* client, const char* key, _GError** error) {
    EXPECT_EQ(client, &the_client);
    EXPECT_EQ(*error, nullptr);
    gconf().calls.push_back("gconf_client_get_string " + std::string(key));
    if (gconf().gives_error)
        *error = &the_error;
    if (!gconf().value)
        return nullptr;
    return gconf().value->empty() ? the_empty_value : strdup(gconf().value->c_str());
}

void g_object_unref(void* object) {
    EXPECT_EQ(object, &the_client);
    gconf().calls.emplace_back("g_object_unref");
}

void g_free(void* memory) {
    gconf().calls.push_back("g_free " + std::string(static_cast<const char*>(memory)));
    free(memory);
}

void g_error_free(_GError* error) {
    EXPECT_EQ(error, &the_error);
    gconf().calls.emplace_back("g_error_free");
}

#pragma GCC visibility pop
