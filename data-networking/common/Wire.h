// What travels between the library and the CM server: records, and the one table of codes.
//
// Shared by the library, the server, the tests and the tools, and by nothing that an application sees.
// Both ends run on one machine: every integer is in its byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "quorvel/NetCM.h"

namespace quorvel::wire {

inline constexpr char kServerPath[] = "/tmp/psServSocket";

// A request: written on the sync socket, and once on the async socket to register it.
struct RequestHeader {
    uint32_t Command;
    uint32_t Param;
    uint32_t ClientId;
    uint32_t Arg3;
    uint32_t Arg4;
    uint32_t Arg5;
};
static_assert(sizeof(RequestHeader) == 24);
static_assert(offsetof(RequestHeader, ClientId) == 8 && offsetof(RequestHeader, Arg5) == 20);

// A response on the sync socket, or an event on the async socket.
struct Record {
    uint32_t Code;
    uint32_t Word1;
    uint32_t Word2;
    uint32_t CallId;
    uint32_t Status;
    uint32_t Word5;
    uint32_t Word6;
    uint32_t Word7;
    uint32_t Word8;
    uint32_t Word9;
};
static_assert(sizeof(Record) == 40);
static_assert(offsetof(Record, CallId) == 12 && offsetof(Record, Status) == 16 &&
              offsetof(Record, Word9) == 36);

// Follows a successful start response and an IP change indication.
struct ConnectionBlock {
    int32_t DnsCount;
    NetCMAddr DnsAddr[2];
    NetCMAddr IpAddr;
    uint16_t HasOptAddr1;
    uint16_t Padding1;
    NetCMAddr OptAddr1;
    uint16_t HasOptAddr2;
    uint16_t Padding2;
    NetCMAddr OptAddr2;
    char IfaceName[32];
};
static_assert(sizeof(ConnectionBlock) == 144);
static_assert(offsetof(ConnectionBlock, DnsAddr) == 4 && offsetof(ConnectionBlock, IpAddr) == 44);
static_assert(offsetof(ConnectionBlock, HasOptAddr1) == 64 && offsetof(ConnectionBlock, OptAddr1) == 68);
static_assert(offsetof(ConnectionBlock, HasOptAddr2) == 88 && offsetof(ConnectionBlock, OptAddr2) == 92);
static_assert(offsetof(ConnectionBlock, IfaceName) == 112);

// Blocks that follow the answers of the list queries and of the statistics query.
struct ProfileIdBlock {
    uint32_t Count;
    int32_t ProfileId[16];
};
static_assert(sizeof(ProfileIdBlock) == 68);

struct ProfileNameBlock {
    uint32_t Count;
    char Name[16][100];
};
static_assert(sizeof(ProfileNameBlock) == 1604);

struct ActiveConnection {
    int32_t ProfileId;
    char Apn[104];
    uint8_t Opaque[68];
};
static_assert(sizeof(ActiveConnection) == 176 && offsetof(ActiveConnection, Apn) == 4);

struct ActiveConnectionBlock {
    uint32_t Count;
    ActiveConnection Connection[4];
};
static_assert(sizeof(ActiveConnectionBlock) == 708);

struct StatisticsBlock {
    uint32_t Counter[6];
};
static_assert(sizeof(StatisticsBlock) == 24);

// The one list of requests: name, command code, code of the answer (0: none).
#define QV_COMMANDS(X)                                        \
    X(NETCM_CLIENT_REGISTER_REQ, 1, 1)                        \
    X(NETCM_CLIENT_ASYNC_REGISTER_REQ, 2, 0)                  \
    X(NETCM_CLIENT_START_REQ, 4, 101)                         \
    X(NETCM_CLIENT_STOP_REQ, 5, 102)                          \
    X(NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ, 6, 103)        \
    X(NETCM_CLIENT_TUNNEL_REQ, 7, 104)                        \
    X(NETCM_CLIENT_KILL_REQ, 8, 105)                          \
    X(NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, 9, 106)        \
    X(NETCM_CLIENT_GET_STAT_INFO_REQ, 10, 107)                \
    X(NETCM_CLIENT_RESET_STAT_INFO_REQ, 11, 108)              \
    X(NETPM_PROFILE_REQ, 12, 113)                             \
    X(NETPM_APPPROF_REQ, 13, 114)                             \
    X(NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, 14, 115)         \
    X(NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ, 15, 116) \
    X(NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ, 16, 117)        \
    X(NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ, 17, 118)        \
    X(NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ, 18, 119)          \
    X(NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ, 19, 120)        \
    X(NETCM_CLIENT_GET_NETWORK_STATUS_REQ, 20, 121)           \
    X(NETCM_CLIENT_GET_NETIFACE_LIST_REQ, 21, 124)            \
    X(NETCM_CLIENT_SET_SETTINGS_REQ, 22, 125)                 \
    X(NETCM_CLIENT_GET_SETTINGS_REQ, 23, 126)

// The one list of responses and events: name, code.
#define QV_EVENTS(X)                                      \
    X(NETCM_CLIENT_REGISTER_RSP, 1)                       \
    X(NETCM_CLIENT_START_RSP, 101)                        \
    X(NETCM_CLIENT_STOP_RSP, 102)                         \
    X(NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP, 103)       \
    X(NETCM_CLIENT_TUNNEL_RSP, 104)                       \
    X(NETCM_CLIENT_KILL_RSP, 105)                         \
    X(NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP, 106)       \
    X(NETCM_CLIENT_GET_STAT_INFO_RSP, 107)                \
    X(NETCM_CLIENT_RESET_STAT_INFO_RSP, 108)              \
    X(NETCM_CLIENT_STOP_IND, 109)                         \
    X(NETCM_CLIENT_SUSPEND_IND, 110)                      \
    X(NETCM_CLIENT_RESUME_IND, 111)                       \
    X(NETCM_CLIENT_TUNNEL_IND, 112)                       \
    X(NETPM_PROFILE_RSP, 113)                             \
    X(NETCM_CLIENT_PROPER_PROFILE_RSP, 114)               \
    X(NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP, 115)         \
    X(NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP, 116) \
    X(NETCM_CLIENT_GET_PACKET_DATA_STATE_RSP, 117)        \
    X(NETCM_CLIENT_SET_PACKET_DATA_STATE_RSP, 118)        \
    X(NETCM_CLIENT_REGISTER_TUNNEL_IND_RSP, 119)          \
    X(NETCM_CLIENT_DEREGISTER_TUNNEL_IND_RSP, 120)        \
    X(NETCM_CLIENT_GET_NETWORK_STATUS_RSP, 121)           \
    X(NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 122)        \
    X(NETCM_CLIENT_IP_CHANGE_IND, 123)                    \
    X(NETCM_CLIENT_GET_NETIFACE_LIST_RSP, 124)            \
    X(NETCM_CLIENT_SET_SETTINGS_RSP, 125)                 \
    X(NETCM_CLIENT_GET_SETTINGS_RSP, 126)

enum Command : uint32_t {
#define X(name, code, answer) name = code,
    QV_COMMANDS(X)
#undef X
};

enum Event : uint32_t {
#define X(name, code) name = code,
    QV_EVENTS(X)
#undef X
};

struct CommandEntry {
    const char* name;
    uint32_t code;
    uint32_t answer;
};

struct EventEntry {
    const char* name;
    uint32_t code;
};

inline constexpr CommandEntry kCommands[] = {
#define X(name, code, answer) {#name, code, answer},
    QV_COMMANDS(X)
#undef X
};

inline constexpr EventEntry kEvents[] = {
#define X(name, code) {#name, code},
    QV_EVENTS(X)
#undef X
};

// The entry of a code, or null when there is no such code.
constexpr const CommandEntry* find_command(uint32_t code) {
    for (const CommandEntry& entry : kCommands)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

constexpr const EventEntry* find_event(uint32_t code) {
    for (const EventEntry& entry : kEvents)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

}  // namespace quorvel::wire
