#include "library/pm/app_operations.h"

namespace quorvel::test {
namespace {

NetPMAppProf binding;
uint32_t word;
uint32_t list[2];

NetPMAppProf& given_binding() {
    binding = {60, 61, 62, {63, 64}};
    return binding;
}

wire::AppProfMsg message(uint32_t command, const NetPMAppProf& record, uint16_t profile_id_valid = 0,
                         uint16_t list_valid = 0) {
    return {0, command, 0, record, profile_id_valid, list_valid};
}

}  // namespace

const std::vector<AppOperation>& app_operations() {
    static const NetPMAppProf only_app = {6, 0, 0, {0, 0}};
    static const uint32_t interfaces[2] = {1, 3};
    static const std::vector<AppOperation> all = {
        {"NetPMAppProfAddAppId", 1, [] { return NetPMAppProfAddAppId(6); }, message(1, only_app), true},
        {"NetPMAppProfDeleteAppId", 2, [] { return NetPMAppProfDeleteAppId(6); }, message(2, only_app), true},
        {"NetPMAppProfCheckAppId", 3, [] { return NetPMAppProfCheckAppId(6); }, message(3, only_app), true},
        {"NetPMAppProfGetAppInfo", 4, [] { return NetPMAppProfGetAppInfo(6, &binding); },
         message(4, only_app), false},
        {"NetPMAppProfGetAppProfId", 4, [] { return NetPMAppProfGetAppProfId(6, &word); },
         message(4, only_app), false},
        {"NetPMAppProfGetAppNetIfaceList", 4, [] { return NetPMAppProfGetAppNetIfaceList(6, list); },
         message(4, only_app), false},
        {"NetPMAppProfSetProfId", 5, [] { return NetPMAppProfSetProfId(6, 5); },
         message(5, {6, 6, 5, {0, 0}}, 1, 0), false},
        {"NetPMAppProfSetNetIfaceList", 5, [] { return NetPMAppProfSetNetIfaceList(6, interfaces); },
         message(5, {6, 0, 0, {1, 3}}, 0, 1), false},
        {"NetPMAppProfSetAppInfo", 5, [] { return NetPMAppProfSetAppInfo(6, &given_binding()); },
         message(5, {60, 61, 62, {63, 64}}, 1, 1), false},
        {"NetPMAppProfGetProperProfile", 8, [] { return NetPMAppProfGetProperProfile(6, &word); },
         message(8, only_app), false},
        {"NetPMAppProfChangePayment_VGR_PRE", 10, [] { return NetPMAppProfChangePayment("VGR", "PRE"); },
         message(10, {0xFFFFFFFF, 8, 1, {0, 0}}, 1, 0), false},
        {"NetPMAppProfChangePayment_VOD_POST", 10, [] { return NetPMAppProfChangePayment("VOD", "POST"); },
         message(10, {0xFFFFFFFF, 9, 0, {0, 0}}, 1, 0), false},
    };
    return all;
}

}  // namespace quorvel::test
