#include "library/queries/queries.h"

#include <gtest/gtest.h>

#include "quorvel/NetCM.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kUntouched = 0xabcdef01;

// The status of the functions that hand it out through a pointer.
template <class Function>
uint32_t status_of(Function function, uint32_t key, uint32_t value) {
    uint32_t result = kUntouched;
    switch (function(key, &value, &result)) {
        case 1:
            EXPECT_EQ(result, NETCM_SUCCESS);
            return NETCM_SUCCESS;
        case 0:
            EXPECT_NE(result, NETCM_SUCCESS);
            return result;
        default:
            EXPECT_EQ(result, kUntouched);
            return NETCM_ERR_REREGISTER_FAILED;
    }
}

template <class Block>
Bytes one_entry() {
    Block block{};
    block.Count = 1;
    return bytes_of(block);
}

uint32_t ask_network_status() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}
uint32_t ask_packet_data() {
    uint32_t state = 0;
    return NetCMGetPacketDataState(&state);
}
uint32_t ask_interfaces() {
    int32_t list = 0;
    return NetCMGetNetIfaceList(&list);
}
uint32_t ask_statistics() {
    uint32_t counters[6];
    return NetCMGetStatInfo(counters);
}
template <class Function>
uint32_t ask_list(Function function) {
    uint8_t room[1600];
    uint32_t count = 0;
    return function(room, &count);
}
uint32_t ask_connections() {
    return ask_list([](uint8_t* room, uint32_t* count) {
        return NetCMGetActiveConnectionList(NETCM_IFACE_WIFI, room, count);
    });
}

}  // namespace

const std::vector<Query>& queries() {
    static const std::vector<Query> all = {
        {"network_status",
         ask_network_status,
         20,
         {0, 0, 0, 0},
         121,
         "Request to get network status\n",
         "Success.. PDP status = [8]\n",
         "Error getting network status. Error = 33 \n"},
        {"settings_get",
         [] { return status_of(NetCMSettingsGet, 3, 0); },
         23,
         {0, 3, 0, 0},
         126,
         "Request to retrieve CM settings. Key = 3\n",
         "Success retrieving CM Settings. Key= 3, Value = 2\n",
         "Error reading single PDP Mode. Error = 33 \n"},
        {"settings_set",
         [] { return status_of(NetCMSettingsSet, 4, 77); },
         22,
         {0, 4, 77, 0},
         125,
         "Request to set CMsettings. Type = 4\n",
         "Successfully set CM settings. Key = 4, Value = 77 \n",
         "Error updating CM settings. Error = 33 \n"},
        {.name = "packet_data_get",
         .ask = ask_packet_data,
         .command = 16,
         .words = {0, 0, 7, 0},
         .answer = 117,
         .requested = "Request to retrieve packet data state\n",
         .succeeded = "Successfully retrieved packet data state [2]\n",
         .refused = "Error reading packet data state. Error = 33 \n",
         .needs_call = true},
        {.name = "packet_data_set",
         .ask = [] { return NetCMSetPacketDataState(3); },
         .command = 17,
         .words = {0, 3, 7, 0},
         .answer = 118,
         .requested = "Request to set packet data state to [3]\n",
         .succeeded = "Successfully set packet data state to [3]\n",
         .refused = "Error setting packet data state. Error = 33 \n",
         .needs_call = true},
        {"interfaces",
         ask_interfaces,
         21,
         {0, 0, 0, 0},
         124,
         nullptr,
         "Successfully read network interface list [2]\n",
         "Failed to read network interface list. Status = 33\n",
         true},
        {"reset_statistics",
         [] { return NetCMResetStatInfo(4); },
         11,
         {0, 0, 4, 0},
         108,
         "Request to reset statistics information \n",
         "Successfully reset the requested call statistics info\n",
         "Failed to reset the requested call statistics info\n",
         true},
        {.name = "statistics",
         .ask = ask_statistics,
         .command = 10,
         .words = {0, 0, 0, 0},
         .answer = 107,
         .requested = nullptr,
         .succeeded = "Successfully retrieved Call statistics info\n",
         .refused = "Error reading call statistics info. Error = 33 \n",
         .two_blanks = true,
         .block = bytes_of(wire::StatisticsBlock{})},
        {.name = "profile_ids",
         .ask = [] { return ask_list(NetCMGetActiveProfileIDs); },
         .command = 6,
         .words = {0, 0, 0, 0},
         .answer = 103,
         .requested = "Request to get active Profile ids list \n",
         .succeeded = nullptr,
         .refused = "Error reading active profile Ids, Error = 33 \n",
         .block = one_entry<wire::ProfileIdBlock>(),
         .traces_answer = false},
        {.name = "profile_names",
         .ask = [] { return ask_list(NetCMGetActiveProfileNameList); },
         .command = 15,
         .words = {0, 0, 0, 0},
         .answer = 116,
         .requested = "Request to get active profile name list \n",
         .succeeded = nullptr,
         .refused = "Error reading active APN list, Error = 33 \n",
         .unread = "Error reading response from CM\n",
         .block = one_entry<wire::ProfileNameBlock>(),
         .traces_answer = false},
        {.name = "connections",
         .ask = ask_connections,
         .command = 14,
         .words = {2, 0, 0, 0},
         .answer = 115,
         .requested = "Request to get active APN list \n",
         .succeeded = nullptr,
         .refused = "Error reading active APN list, Error = 33 \n",
         .block = one_entry<wire::ActiveConnectionBlock>(),
         .traces_answer = false},
        {.name = "register_tunnel",
         .ask = NetCMClientRegisterTunnelInd,
         .command = 18,
         .words = {0, 0, 0, 0},
         .answer = 119,
         .requested = "Request to register for receiving tunnel indication\n",
         .succeeded = "Successfully registered to receive tunnel indication\n",
         .refused = "Error registering to receive tunnel ind. Error = 33 \n",
         .names_the_new_client = true},
        {.name = "deregister_tunnel",
         .ask = NetCMClientDeRegisterTunnelInd,
         .command = 19,
         .words = {0, 0, 0, 0},
         .answer = 120,
         .requested = "Request to de-register for receiving tunnel indication\n",
         .succeeded = "Successfully de-registered for tunnel indication\n",
         .refused = "Error de-registering for tunnel ind. Error = 33 \n",
         .names_the_new_client = true},
    };
    return all;
}

}  // namespace quorvel::test
