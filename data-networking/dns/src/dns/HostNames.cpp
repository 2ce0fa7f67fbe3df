// What a host name must look like, and the names that mean this machine.
#include <arpa/inet.h>
#include <strings.h>

#include <cctype>
#include <cstring>

#include "dns/src/HostBuilder.h"
#include "dns/src/NetDNSPrivate.h"

using namespace quorvel;

namespace {

constexpr char kLoopbackAddress[] = "127.0.0.1";
constexpr size_t kLoopbackPrefix = 4;  // "127."
constexpr char kLocalName[] = "LOCALHOST";

bool is_alphanumeric(char character) {
    return isalnum(static_cast<unsigned char>(character)) != 0;
}

bool may_be_in_a_name(char character) {
    return is_alphanumeric(character) || character == '-' || character == '.';
}

}  // namespace

extern "C" {

// Neither the length of the name nor that of its labels is checked here: the encoder of the query does.
int ps_check_valid_hostname(const char* hostname) {
    if (hostname == nullptr)
        return kInvalid;
    const size_t length = strlen(hostname);
    if (length <= 1 || !is_alphanumeric(hostname[0]) || hostname[length - 1] == '-')
        return kInvalid;
    for (const char* at = hostname; *at != '\0'; ++at)
        if (!may_be_in_a_name(*at))
            return kInvalid;
    return kResolved;
}

int ps_check_for_localhost(const char* hostname) {
    if (hostname == nullptr)
        return 0;
    if (inet_addr(hostname) != INADDR_NONE && strncmp(hostname, kLoopbackAddress, kLoopbackPrefix) == 0)
        return 1;
    return strcasecmp(hostname, kLocalName) == 0 ? 1 : 0;
}

int generate_localhost_hostent_info(const char* hostname, char* buf, int buflen, struct hostent** result) {
    if (hostname == nullptr || buf == nullptr || result == nullptr)
        return kInvalid;
    in_addr_t address = inet_addr(hostname);
    if (address == INADDR_NONE)
        address = inet_addr(kLoopbackAddress);
    hostent* host = lay_single(hostname, address, buf, buflen);
    if (host == nullptr)
        return kBufferTooSmall;
    *result = host;
    return kResolved;
}

}  // extern "C"
