// The entry points between the resolver's modules. They are exported, in a node of their own, so that the
// resolver can be tested and diagnosed piece by piece; applications do not call them.
#pragma once

#include <cstdint>

#include "quorvel/NetCM.h"
#include "quorvel/NetDNS.h"

namespace quorvel {

// Results of ps_gethostbyname_r and of the checks below.
enum LookupCode : int {
    kResolved = 0,
    kBufferTooSmall = 1,
    kInvalid = 2,  // argument, name, profile, or no information on the profile
    kNotFound = 3,
};

using DnsCallback = void (*)(hostent*, unsigned int);

}  // namespace quorvel

extern "C" {

// Lookup. *result is null whenever the result is not kResolved and the arguments are valid.
int ps_gethostbyname_r(int profile_id, const char* hostname, struct hostent** result, char* buf, int buflen);
int ps_check_valid_hostname(const char* hostname);  // kResolved or kInvalid
int ps_check_for_localhost(const char* hostname);   // 1 or 0
int generate_localhost_hostent_info(const char* hostname, char* buf, int buflen, struct hostent** result);
int getdevinfo(int profile_id, NetCMConnInfo* devinfo);  // 1, or -1

// Query manager.
int UpdateQueryList(const char* hostname, unsigned int* dnsid, unsigned short* in_progress,
                    quorvel::DnsCallback callback);  // 1, or 0 when all ids are in use
void send_query_result(const char* hostname, struct hostent* result);
void AbortDnsQuery(const char* hostname);

}  // extern "C"
