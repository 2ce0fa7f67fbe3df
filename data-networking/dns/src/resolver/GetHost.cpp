// The two entries of the resolver: a host by its name, a host by its address.
#include <arpa/inet.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "common/CancelHold.h"
#include "common/Trace.h"
#include "dns/src/HostBuilder.h"
#include "dns/src/resolver/Name.h"
#include "dns/src/resolver/Resolver.h"
#include "quorvel/NetDNS.h"

namespace quorvel {
namespace {

hostent* ask(const Query& query, char* buffer, int length, AnswerOut out, ErrorCode error) {
    Response response;
    Name name;
    if (dns_lookup(query, response, name, error) < 0)
        return nullptr;
    if (query.type == kTypePtr)
        QV_TRACE(2, "End of gethostbyaddr_r\n");
    return unpack_answer(query, response, name, buffer, length, out, error);
}

// A name that is an address needs no server. Its life time is nobody's to say and stays as the caller has it.
hostent* answer_address(const char* name, in_addr_t address, char* buffer, int length, int* needed,
                        ErrorCode error) {
    if (needed != nullptr)
        *needed = static_cast<int>(std::min<size_t>(size_of_single(name), INT_MAX));
    hostent* host = lay_single(name, address, buffer, length);
    if (host == nullptr) {
        QV_TRACE(4, "buffer not enough\n");
        error.fail(ERANGE, NETDB_INTERNAL);
        return nullptr;
    }
    error.succeed();
    return host;
}

}  // namespace
}  // namespace quorvel

using namespace quorvel;

extern "C" {

struct hostent* dnet_gethostbyname_r(const char* server, const char* ifname, const char* name, char* buf,
                                     int buflen, int* h_errnop, unsigned int* ttlp, int* neededp) {
    const CancelHold hold;
    dns_getenv();
    const ErrorCode error(h_errnop);
    if (name == nullptr) {
        error.fail(EINVAL, NETDB_INTERNAL);
        return nullptr;
    }
    // The text 255.255.255.255 is not told from text that is no address, and is asked for as a name.
    const in_addr_t address = inet_addr(name);
    if (address != INADDR_NONE)
        return answer_address(name, address, buf, buflen, neededp, error);
    return ask({server, ifname, kTypeA, name}, buf, buflen, {ttlp, neededp}, error);
}

struct hostent* dnet_gethostbyaddr_r(const char* server, const char* ifname, const char* addr, int addrlen,
                                     int /*type*/, char* buf, int buflen, int* h_errnop, unsigned int* ttlp,
                                     int* neededp) {
    const CancelHold hold;
    dns_getenv();
    QV_TRACE(2, "Beginning of gethostbyaddr_r\n");
    const ErrorCode error(h_errnop);
    if (addr == nullptr) {
        error.fail(EINVAL, NETDB_INTERNAL);
        return nullptr;
    }
    // Four bytes are read whatever length is given; the length is only held against the longest name.
    const size_t length = addrlen < 0 ? 0 : static_cast<size_t>(addrlen);
    return ask({server, ifname, kTypePtr, std::string_view(addr, length)}, buf, buflen, {ttlp, neededp},
               error);
}

}  // extern "C"
