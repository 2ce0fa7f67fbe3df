// The background worker: one detached thread for each name that is being resolved.
#pragma once

#include <cstdint>

#include "common/Lock.h"

namespace quorvel {

// What a worker is to resolve; it frees both blocks.
struct QueryRecord {
    int profile_id;
    char* hostname;
    Mutex held;  // until the worker may begin
};

// What there was no memory for.
enum class Missing { Nothing, Record, Name };

// A record for a copy of the name, or null. Traces nothing. Its worker is held back.
QueryRecord* new_query_record(int profile_id, const char* hostname, Missing& missing);
void free_query_record(QueryRecord* record);

// The thread's function; it takes the record over. A worker begins when it is let go: the lines of its
// request come before its own.
void* resolve_in_background(void* record);
void let_go(QueryRecord* record);

// Called as the worker's last act, with the number of forks that lay behind it when it began.
void worker_has_ended(uint32_t forks);

}  // namespace quorvel
