/* An application in plain C: it uses the library, and nothing of a C++ run time or of the configuration store
 * comes along with it. */
#include <quorvel/NetCM.h>
#include <quorvel/NetDNS.h>
#include <quorvel/NetDebug.h>
#include <quorvel/NetPM.h>
#include <stdio.h>
#include <string.h>

static int is_mapped(const char* library) {
    char line[1024];
    int found = 0;
    FILE* maps = fopen("/proc/self/maps", "r");
    if (maps == NULL)
        return 1;
    while (fgets(line, sizeof line, maps) != NULL)
        if (strstr(line, library) != NULL)
            found = 1;
    fclose(maps);
    return found;
}

static int check(int holds, const char* what) {
    if (!holds)
        fprintf(stderr, "not so: %s\n", what);
    return holds ? 0 : 1;
}

int main(void) {
    int wrong = 0;
    int32_t error = 0;
    wrong += check(NetCMClientRegister(NULL) == NETCM_ERR_INVALID_PARAM, "a null callback is refused");
    wrong += check(NetCMGetTransportError(&error) == NETCM_ERR_NOT_REGISTERED, "nobody is registered");
    wrong += check(NetCMConnectionClose(0) == NETCM_ERR_INVALID_PROFILE, "0 is no profile to close");
    wrong += check(GenerateLevelInfo(5) == 0x1000000u, "level 5 has its mask");
    wrong += check(g_NetCMClientAppInfo.ClientId == -1, "there is no client id");
    wrong += check(is_mapped("libquorvel.so"), "the library is loaded");
    wrong += check(!is_mapped("libstdc++"), "no C++ run time is loaded");
    wrong += check(!is_mapped("libgconf") && !is_mapped("libglib"), "no configuration store is loaded");
    return wrong;
}
