#include "client/CM/src/NetCMClientCore/ConnectionRecord.h"

#include <algorithm>
#include <cstring>

#include "client/CM/src/NetCMIntf/Table.h"
#include "client/CM/src/NetCMPrivate.h"

namespace quorvel {
namespace {

// Both forms have fields of the same names; this copies the addresses that are valid.
template <class To, class From>
void copy_addresses(To& to, const From& from) {
    // The count is the server's word: it never leads past the two addresses there are.
    to.DnsCount = std::clamp(from.DnsCount, 0, NETCM_MAX_DNS);
    for (int32_t i = 0; i < to.DnsCount; ++i)
        NetCMCopyAddress(&to.DnsAddr[i], &from.DnsAddr[i]);
    NetCMCopyAddress(&to.IpAddr, &from.IpAddr);
    to.HasOptAddr1 = from.HasOptAddr1;
    if (from.HasOptAddr1 == 1)
        NetCMCopyAddress(&to.OptAddr1, &from.OptAddr1);
    to.HasOptAddr2 = from.HasOptAddr2;
    if (from.HasOptAddr2 == 1)
        NetCMCopyAddress(&to.OptAddr2, &from.OptAddr2);
}

void copy_name(char (&to)[32], const char (&from)[32]) {
    memcpy(to, from, sizeof to - 1);
    to[sizeof to - 1] = '\0';
    // Nothing stands behind the name: what the server left in its field stays with the server.
    const size_t length = strlen(to);
    memset(to + length, 0, sizeof to - length);
}

}  // namespace

bool read_connection_block(wire::ConnectionBlock& block) {
    if (NetCMClientReadMoreData(load(table().AsyncSockFd), &block, sizeof block) == NETCM_SUCCESS)
        return true;
    QV_TRACE(3, "Error reading PDP Activation response\n");
    return false;
}

void store_connection(NetCMCallConnInfo& stored, const wire::ConnectionBlock& block, EmptyName empty_name) {
    copy_addresses(stored, block);
    if (block.IfaceName[0] != '\0' || empty_name == EmptyName::Stored)
        copy_name(stored.IfaceName, block.IfaceName);
}

NetCMConnInfo deliverable(const NetCMCallConnInfo& stored, int32_t profile) {
    NetCMConnInfo info = {};
    info.ProfileId = profile;
    copy_addresses(info, stored);
    copy_name(info.IfaceName, stored.IfaceName);
    return info;
}

}  // namespace quorvel

extern "C" {

// An address of another type than IPv4 is not carried: only its type is, and the rest of the destination
// stays.
int32_t NetCMCopyAddress(NetCMAddr* destination, const NetCMAddr* source) {
    destination->Type = source->Type;
    if (source->Type == 0)
        memcpy(destination->Addr, source->Addr, 4);
    return 1;
}

}  // extern "C"
