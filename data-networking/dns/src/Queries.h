// The query manager for the module that starts its queries, which holds a lock of its own meanwhile: what is
// done under locks is not traced there.
#pragma once

#include "dns/src/NetDNSPrivate.h"

namespace quorvel {

// How a request has been entered.
struct Entry {
    enum class As {
        Refused,    // all ids are in use
        First,      // for its name: somebody has to make the query
        Joined,     // a query that is being made
        Forgotten,  // there was no memory for its name: the id stays assigned, and the query runs for nobody
        Nameless,   // it only takes an id
    };
    As as = As::Refused;
    unsigned int id = 0;
};

// `dnsid`, which may be null, has the id before a callback can be called with it.
Entry enter_query(const char* hostname, unsigned int* dnsid, DnsCallback callback);
void trace_entry(const char* hostname, const Entry& entry);

// Frees the ids of everybody who waits for the name; calls and traces nothing.
void drop_query(const char* hostname);
void trace_dropped(const char* hostname);

}  // namespace quorvel
