// Lists of what is connected. Three queries of one shape: a record, then a block with a count and its
// entries.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "client/CM/src/NetCMIntf/Query.h"
#include "client/CM/src/NetCMPrivate.h"

using namespace quorvel;

namespace {

// What one list has of its own: codes, block and wording.
struct ProfileIds {
    using Block = wire::ProfileIdBlock;
    static constexpr wire::Command kCommand = wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ;
    static constexpr wire::Event kAnswer = wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP;
    static constexpr ReadFailure kReadFailure = ReadFailure::Server;
    static constexpr auto& entries(const Block& block) { return block.ProfileId; }
    static void requested() { QV_TRACE(0, "Request to get active Profile ids list \n"); }
    static bool registered() {
        if (client_is_registered())
            return true;
        QV_TRACE(2, "Cleint is not yet registered with CM\n");
        return false;
    }
    static void no_block() { QV_TRACE(3, "Error reading Active profile ID response\n"); }
    static void refused(int status) {
        QV_TRACE(3, "Error reading active profile Ids, Error = %d \n", status);
    }
};

struct ProfileNames {
    using Block = wire::ProfileNameBlock;
    static constexpr wire::Command kCommand = wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ;
    static constexpr wire::Event kAnswer = wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP;
    static constexpr ReadFailure kReadFailure = ReadFailure::Plain;
    static constexpr auto& entries(const Block& block) { return block.Name; }
    static void requested() { QV_TRACE(0, "Request to get active profile name list \n"); }
    static bool registered() { return quorvel::registered(QV_HERE); }
    static void no_block() { QV_TRACE(3, "Error getting active profile name list response\n"); }
    static void refused(int status) { QV_TRACE(3, "Error reading active APN list, Error = %d \n", status); }
};

struct Connections {
    using Block = wire::ActiveConnectionBlock;
    static constexpr wire::Command kCommand = wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ;
    static constexpr wire::Event kAnswer = wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP;
    static constexpr ReadFailure kReadFailure = ReadFailure::Server;
    static constexpr auto& entries(const Block& block) { return block.Connection; }
    static void requested() { QV_TRACE(0, "Request to get active APN list \n"); }
    static bool registered() { return quorvel::registered(QV_HERE); }
    static void no_block() { QV_TRACE(3, "Error active APN list response\n"); }
    static void refused(int status) { QV_TRACE(3, "Error reading active APN list, Error = %d \n", status); }
};

// The exchange and the block behind it: 0 with at least one entry, or the status.
template <class List>
uint32_t read_block(uint32_t net_iface, typename List::Block& block) QV_REQUIRES(app_mutex) {
    Query query = {.request = request_header(List::kCommand),
                   .answer = List::kAnswer,
                   .read_failure = List::kReadFailure,
                   .arrival = Arrival::Silent};
    query.request.Param = net_iface;
    const auto read = [&](const wire::Record&) QV_REQUIRES(app_mutex) -> uint32_t {
        if (NetCMClientReadMoreData(table().SyncSockFd, &block, sizeof block) != NETCM_SUCCESS) {
            List::no_block();
            return NETCM_ERR_FAILURE;
        }
        return block.Count == 0 ? NETCM_ERR_NOT_ACTIVE : NETCM_SUCCESS;
    };
    return ask_locked(QV_HERE, query, read, List::refused);
}

template <class List>
uint32_t read_list(uint32_t net_iface, uint8_t* out, uint32_t* count) {
    *count = 0;
    List::requested();
    if (!List::registered())
        return NETCM_ERR_NOT_REGISTERED;
    int32_t thread_index = 0;
    if (NetCMGetThreadIndex(NetCMGetCurrentTid(), &thread_index) != 0) {
        QV_TRACE(2, "Thread info not found with CM\n");
        return NETCM_ERR_NOT_REGISTERED;
    }
    const AppMutexGuard guard(QV_HERE);
    typename List::Block block;
    const uint32_t status = read_block<List>(net_iface, block);
    if (status != NETCM_SUCCESS) {
        table().ThreadInfo[thread_index].LastSyncError = -1;
        return status;
    }
    const auto& entries = List::entries(block);
    *count = std::min(block.Count, static_cast<uint32_t>(std::size(entries)));
    memcpy(out, entries, *count * sizeof entries[0]);
    return NETCM_SUCCESS;
}

bool valid(const uint8_t* out, const uint32_t* count) {
    if (out != nullptr && count != nullptr)
        return true;
    QV_TRACE(5, "Invalid input parameter \n");
    return false;
}

}  // namespace

extern "C" {

uint32_t NetCMGetActiveProfileIDs(uint8_t* ids, uint32_t* count) {
    if (!valid(ids, count))
        return NETCM_ERR_INVALID_PARAM;
    return read_list<ProfileIds>(0, ids, count);
}

uint32_t NetCMGetActiveProfileNameList(uint8_t* names, uint32_t* count) {
    if (!valid(names, count))
        return NETCM_ERR_INVALID_PARAM;
    return read_list<ProfileNames>(0, names, count);
}

uint32_t NetCMGetActiveConnectionList(uint32_t netIface, uint8_t* list, uint32_t* count) {
    if (!valid(list, count))
        return NETCM_ERR_INVALID_PARAM;
    if (netIface != NETCM_IFACE_PDP && netIface != NETCM_IFACE_WIFI) {
        QV_TRACE(5, "Invalid input parameter. NetIface = %d \n", static_cast<int>(netIface));
        return NETCM_ERR_INVALID_PARAM;
    }
    return read_list<Connections>(netIface, list, count);
}

}  // extern "C"
