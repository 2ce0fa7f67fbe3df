// The background worker: one detached thread for each name that is being resolved.
#pragma once

#include <cstdint>

namespace quorvel {

// What a worker is to resolve; it frees both blocks.
struct QueryRecord {
    int profile_id;
    char* hostname;
};

// A record for a copy of the name, or null, traced.
QueryRecord* new_query_record(int profile_id, const char* hostname);
void free_query_record(QueryRecord* record);

// The thread's function; it takes the record over.
void* resolve_in_background(void* record);

// Called as the worker's last act, with the number of forks that lay behind it when it began.
void worker_has_ended(uint32_t forks);

}  // namespace quorvel
