// Asking: the cache first, then one server after the other.
#include "dns/src/dns/Lookup.h"

#include <arpa/inet.h>

#include <atomic>
#include <cerrno>

#include "common/CancelHold.h"
#include "common/Trace.h"
#include "dns/src/InChild.h"

namespace quorvel {
namespace {

// The primary server of the lookup before, of whatever profile and thread. There is no lock: two lookups that
// change it at once empty the cache once too often or too seldom.
std::atomic<in_addr_t> last_server{0};

// What one network's servers say need not hold in another.
void forget_other_networks(in_addr_t primary) {
    if (last_server.load(std::memory_order_relaxed) == primary)
        return;
    QV_TRACE(2, "Last DNS address changed \n");
    clear_dns_cache();
    last_server.store(primary, std::memory_order_relaxed);
}

struct Buffer {
    char* bytes;
    int length;
};

// The host, or null; `herr` and errno then say why.
hostent* ask_server(in_addr_t address, const Route& route, const char* hostname, Buffer buffer, int& herr) {
    char server[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, server, sizeof server);
    QV_TRACE(2, "DNS server addr = %s, ifname = %s, query = %s \n", server, route.ifname, hostname);
    // An address given as a name has no life time: it is never answered from the cache.
    unsigned int ttl = 0;
    int needed = 0;
    errno = 0;
    hostent* host = dnet_gethostbyname_r(server, route.ifname, hostname, buffer.bytes, buffer.length, &herr,
                                         &ttl, &needed);
    if (host == nullptr)
        return nullptr;
    QV_TRACE(2, "Successfully resolved ttl %d  hostname %s needed buf length  %d\n", static_cast<int>(ttl),
             hostname, needed);
    update_dns_cache(hostname, host, needed, ttl);
    return host;
}

int ask_servers(const Route& route, const char* hostname, hostent** result, Buffer buffer) {
    int error = errno;  // of the last server; what it was where there is none
    QV_TRACE(2, "Host not found in cache, Querying...");
    int herr = 0;
    for (const in_addr_t address : route.servers) {
        if (address == 0)
            break;
        *result = ask_server(address, route, hostname, buffer, herr);
        if (*result != nullptr)
            return kResolved;
        error = errno;
        if (error == ERANGE) {
            QV_TRACE(4, "Not enough memory \n");
            return kBufferTooSmall;
        }
    }
    QV_TRACE(4, "errno: %d, herr: %d\n", error, herr);
    return kNotFound;
}

}  // namespace

void forget_server_in_child() {
    last_server.store(0, std::memory_order_relaxed);
}

int resolve(const Route& route, const char* hostname, hostent** result, char* buffer, int length) {
    if (route.local)
        return generate_localhost_hostent_info(hostname, buffer, length, result);
    forget_other_networks(route.servers[0]);
    if (get_dns_result_fron_cache(hostname, buffer, length, result) == kResolved)
        return *result != nullptr ? kResolved : kNotFound;
    return ask_servers(route, hostname, result, {buffer, length});
}

}  // namespace quorvel

using namespace quorvel;

extern "C" int ps_gethostbyname_r(int profile_id, const char* hostname, struct hostent** result, char* buf,
                                  int buflen) {
    if (hostname == nullptr || result == nullptr || buf == nullptr || buflen <= 0) {
        QV_TRACE(5, "Invalid parameter passed  hostname\n");
        return kInvalid;
    }
    const CancelHold hold;
    *result = nullptr;
    Route route;
    const int code = find_route(profile_id, hostname, route);
    return code != kResolved ? code : resolve(route, hostname, result, buf, buflen);
}
