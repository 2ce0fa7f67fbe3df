#include "Profiles.h"

#include <arpa/inet.h>

#include <cstring>

#include "client/CM/src/NetCMPrivate.h"

namespace quorvel::test::dns {
namespace {

void set_server(NetCMAddr& server, const char* address) {
    server = NetCMAddr{};
    if (address != nullptr) {
        ASSERT_EQ(inet_pton(AF_INET, address, server.Addr), 1);
    }
}

template <class Change>
void change_table(Change change) {
    pthread_mutex_lock(&NetCMAppMutex);
    change(g_NetCMClientAppInfo);
    pthread_mutex_unlock(&NetCMAppMutex);
}

}  // namespace

void open_profile(const char* ifname, const char* primary, const char* secondary) {
    open_profile(0, kProfile, ifname, primary, secondary);
}

void open_profile(int32_t call, int32_t profile, const char* ifname, const char* primary,
                  const char* secondary) {
    change_table([=](NetCMClientAppInfo& table) {
        NetCMCallInfo& entry = table.CallInfo[call];
        entry.InUse = 1;
        entry.CallId = call;
        entry.IsActive = 1;
        entry.ThreadProf[0].ThreadIndex = 0;
        entry.ThreadProf[0].ProfileId[0] = profile;
        strncpy(entry.ConnInfo.IfaceName, ifname, sizeof entry.ConnInfo.IfaceName);
        set_server(entry.ConnInfo.DnsAddr[0], primary);
        set_server(entry.ConnInfo.DnsAddr[1], secondary);
    });
}

void set_active(int32_t call, bool active) {
    change_table([=](NetCMClientAppInfo& table) { table.CallInfo[call].IsActive = active ? 1 : 0; });
}

ProfileTest::ProfileTest() {
    change_table([](NetCMClientAppInfo& table) {
        NetCMClientLibInit();
        table.ClientId = 100;
        table.IsRegistered = 1;
    });
    open_profile("lo", nullptr);
}

ProfileTest::~ProfileTest() {
    change_table([](NetCMClientAppInfo& table) {
        NetCMClientLibInit();
        table.IsRegistered = 0;
    });
}

}  // namespace quorvel::test::dns
