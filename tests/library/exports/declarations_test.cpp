// Each function and object of the public headers with its type.
#include <gtest/gtest.h>

#include <type_traits>

#include "quorvel/NetCM.h"
#include "quorvel/NetDNS.h"
#include "quorvel/NetDebug.h"
#include "quorvel/NetPM.h"

namespace quorvel::test {
namespace {

template <class Wanted, class Declared>
constexpr bool is_a(Declared&) {
    return std::is_same_v<Wanted, Declared>;
}

#define EXPECT_TYPE(name, ...) EXPECT_TRUE((is_a<__VA_ARGS__>(name))) << #name

TEST(PublicDeclarations, registration_and_connections) {
    EXPECT_TYPE(NetCMClientRegister, uint32_t(NetCMEventCallback));
    EXPECT_TYPE(NetCMClientDeRegister, uint32_t());
    EXPECT_TYPE(NetCMConnectionOpen, uint32_t(const int32_t*, int32_t));
    EXPECT_TYPE(NetCMConnectionClose, uint32_t(int32_t));
    EXPECT_TYPE(NetCMConnectionKill, uint32_t(int32_t));
    EXPECT_TYPE(NetCMConnectionCleanup, uint32_t());
    EXPECT_TYPE(NetCMGetTransportError, uint32_t(int32_t*));
    EXPECT_TYPE(ps_call_act_time, double[2]);
    EXPECT_TYPE(ps_call_deact_time, double[2]);
}

TEST(PublicDeclarations, settings_and_state) {
    EXPECT_TYPE(NetCMSettingsGet, uint32_t(uint32_t, uint32_t*, uint32_t*));
    EXPECT_TYPE(NetCMSettingsSet, uint32_t(uint32_t, uint32_t*, uint32_t*));
    EXPECT_TYPE(NetCMGetNetworkStatus, uint32_t(uint32_t, uint32_t*));
    EXPECT_TYPE(NetCMGetPacketDataState, uint32_t(uint32_t*));
    EXPECT_TYPE(NetCMSetPacketDataState, uint32_t(uint32_t));
    EXPECT_TYPE(NetCMGetNetIfaceList, uint32_t(int32_t*));
    EXPECT_TYPE(NetCMNetIfaceSupport, uint32_t(uint32_t));
    EXPECT_TYPE(NetCMResetStatInfo, uint32_t(uint32_t));
}

TEST(PublicDeclarations, what_is_connected) {
    EXPECT_TYPE(NetCMGetActiveProfileIDs, uint32_t(uint8_t*, uint32_t*));
    EXPECT_TYPE(NetCMGetActiveProfileNameList, uint32_t(uint8_t*, uint32_t*));
    EXPECT_TYPE(NetCMGetActiveConnectionList, uint32_t(uint32_t, uint8_t*, uint32_t*));
    EXPECT_TYPE(NetCMGetStatInfo, uint32_t(uint32_t*));
    EXPECT_TYPE(NetCMDeviceGetInfo, uint32_t(int32_t, NetCMConnInfo*));
}

TEST(PublicDeclarations, tunnel_data) {
    EXPECT_TYPE(NetCMClientRegisterTunnelInd, uint32_t());
    EXPECT_TYPE(NetCMClientDeRegisterTunnelInd, uint32_t());
    EXPECT_TYPE(NetCMTunnelRequest, uint32_t(NetCMTunnelData*));
}

TEST(PublicDeclarations, the_table_and_who_the_application_is) {
    EXPECT_TYPE(g_NetCMClientAppInfo, NetCMClientAppInfo);
    EXPECT_TYPE(NetCMAppMutex, pthread_mutex_t);
    EXPECT_TYPE(EvtDeliveryHandle, void*);
    EXPECT_TYPE(NetCMClientGetAppId, int(int32_t*));
    EXPECT_TYPE(NetCMClientGetAppName, int(int32_t, char*));
}

TEST(PublicDeclarations, the_profile_store) {
    EXPECT_TYPE(NetPMAddProfileInfo, uint32_t(NetPMProfile*, int32_t*));
    EXPECT_TYPE(NetPMModifyProfileInfo, uint32_t(int32_t, NetPMProfile*));
    EXPECT_TYPE(NetPMDeleteProfileInfo, uint32_t(int32_t));
    EXPECT_TYPE(NetPMGetProfileInfo, uint32_t(int32_t, NetPMProfile*));
    EXPECT_TYPE(NetPMGetProfileStatus, uint32_t(int32_t, uint16_t*));
    EXPECT_TYPE(NetPMGetDefaultProfileInfo, uint32_t(NetPMProfile*));
    EXPECT_TYPE(NetPMGetDefaultProfileId, uint32_t(int32_t*));
    EXPECT_TYPE(NetPMSetDefaultProfileId, uint32_t(int32_t));
    EXPECT_TYPE(NetPMGetProfileIdList, uint32_t(uint32_t, int32_t, int32_t*, int32_t*));
    EXPECT_TYPE(NetPMRestoreProfileInfo, uint32_t());
    EXPECT_TYPE(NetPMGetProfileAttributes, uint32_t(int32_t, uint32_t*));
    EXPECT_TYPE(NetPMReadPartialProfileInfo, uint32_t(uint32_t, void*, int32_t*));
    EXPECT_TYPE(NetPMGetProfileIdForAPN, uint32_t(const char*, void*));
    EXPECT_TYPE(NetPMGetFindProfileIds, uint32_t(uint32_t, const char*, void*));
}

TEST(PublicDeclarations, which_profile_an_application_uses) {
    EXPECT_TYPE(NetPMAppProfAddAppId, uint32_t(int32_t));
    EXPECT_TYPE(NetPMAppProfDeleteAppId, uint32_t(int32_t));
    EXPECT_TYPE(NetPMAppProfCheckAppId, uint32_t(int32_t));
    EXPECT_TYPE(NetPMAppProfGetAppInfo, uint32_t(int32_t, NetPMAppProf*));
    EXPECT_TYPE(NetPMAppProfSetAppInfo, uint32_t(int32_t, NetPMAppProf*));
    EXPECT_TYPE(NetPMAppProfSetProfId, uint32_t(int32_t, int32_t));
    EXPECT_TYPE(NetPMAppProfGetAppProfId, uint32_t(int32_t, uint32_t*));
    EXPECT_TYPE(NetPMAppProfSetNetIfaceList, uint32_t(int32_t, const uint32_t*));
    EXPECT_TYPE(NetPMAppProfGetAppNetIfaceList, uint32_t(int32_t, uint32_t*));
    EXPECT_TYPE(NetPMAppProfGetProperProfile, uint32_t(int32_t, uint32_t*));
    EXPECT_TYPE(NetPMAppProfGetProperProfileAsync, uint32_t(int32_t));
    EXPECT_TYPE(NetPMAppProfChangePayment, uint32_t(const char*, const char*));
}

TEST(PublicDeclarations, names) {
    EXPECT_TYPE(NetDNSGetHostByName, hostent * (int, const char*));
    EXPECT_TYPE(NetDNSGetHostByNameAsync, int(int, const char*, void (*)(hostent*, unsigned), unsigned*));
    EXPECT_TYPE(dnet_gethostbyname_r,
                hostent * (const char*, const char*, const char*, char*, int, int*, unsigned*, int*));
    EXPECT_TYPE(dnet_gethostbyaddr_r, hostent * (const char*, const char*, const char*, int, int, char*, int,
                                                 int*, unsigned*, int*));
    EXPECT_TYPE(get_dns_result_fron_cache, int(const char*, char*, int, hostent**));
    EXPECT_TYPE(update_dns_cache, void(const char*, hostent*, int, unsigned));
    EXPECT_TYPE(clear_dns_cache, void());
}

TEST(PublicDeclarations, sockets_of_the_resolver) {
    EXPECT_TYPE(_dns_debug, int);
    EXPECT_TYPE(dns_getenv, void());
    EXPECT_TYPE(dns_socket, int(int, const char*));
    EXPECT_TYPE(dns_connect, int(int, const char*, int));
    EXPECT_TYPE(dns_send, int(int, const void*, int));
    EXPECT_TYPE(dns_poll, int(int, int));
    EXPECT_TYPE(dns_recv, int(int, void*, int));
    EXPECT_TYPE(dns_close, int(int));
}

TEST(PublicDeclarations, traces) {
    EXPECT_TYPE(GenerateMidInfo, uint32_t(uint32_t, uint32_t));
    EXPECT_TYPE(GenerateLevelInfo, uint32_t(uint32_t));
    EXPECT_TYPE(logfile, FILE*);
    EXPECT_TYPE(NetDebugPrint, void(const char*, int, const char*, ...));
    EXPECT_TYPE(NetCleanLogfile, int());
    EXPECT_TYPE(NetCloseLogfile, int());
}

}  // namespace
}  // namespace quorvel::test
