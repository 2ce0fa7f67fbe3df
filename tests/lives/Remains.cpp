#include "Remains.h"

#include <algorithm>

#include "quorvel/NetCM.h"
#include "support/Eventually.h"
#include "support/LeakCheck.h"
#include "support/LibraryFaults.h"

namespace quorvel::lives {
namespace {

std::string what_is_left_in_the_table() {
    const NetCMClientAppInfo& table = g_NetCMClientAppInfo;
    std::string left;
    pthread_mutex_lock(&NetCMAppMutex);
    if (table.IsRegistered != 0 || table.ClientId != -1 || table.RegCount != 0)
        left += "the registration; ";
    if (table.SyncSockFd != -1 || table.AsyncSockFd != -1)
        left += "sockets; ";
    for (const NetCMCallInfo& call : table.CallInfo)
        left += call.InUse != 0 || call.CallState != 0 ? "a call; " : "";
    for (const NetCMThreadInfo& thread : table.ThreadInfo)
        left += thread.ThreadId != -1 ? "a thread; " : "";
    for (const NetCMKillReq& kill : table.KillReq)
        left += kill.ThreadId != -1 ? "a kill; " : "";
    for (const NetCMTunnelReq& request : table.TunnelReq)
        left += request.ThreadId != -1 ? "a tunnel request; " : "";
    pthread_mutex_unlock(&NetCMAppMutex);
    return left;
}

bool is_among(const std::set<int32_t>& now, const std::set<int32_t>& before) {
    return std::includes(before.begin(), before.end(), now.begin(), now.end());
}

}  // namespace

Remains::Remains()
    : descriptors_(test::open_descriptors()),
      threads_(test::threads()),
      blocks_(test::calls::blocks_of_library()) {
    test::calls::reset();
    test::calls::skip_sleeps();
}

std::string Remains::find() const {
    std::string left;
    if (!test::eventually([this] { return is_among(test::threads(), threads_); }, std::chrono::seconds(5)))
        left += "threads; ";
    const std::string descriptors = test::leaked(descriptors_, test::open_descriptors());
    if (!descriptors.empty())
        left += "descriptors: " + descriptors + "; ";
    const long blocks = test::calls::blocks_of_library() - blocks_;
    if (blocks != 0)
        left += std::to_string(blocks) + " blocks of memory; ";
    return left + what_is_left_in_the_table();
}

}  // namespace quorvel::lives
