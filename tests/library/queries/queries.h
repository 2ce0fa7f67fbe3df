// Every query that is one exchange with the server.
#pragma once

#include <functional>
#include <ostream>
#include <vector>

#include "support/Answer.h"

namespace quorvel::test {

// One query as the application makes it, and what it must look like on the wire and in the trace.
struct Query {
    const char* name;
    std::function<uint32_t()> ask;  // the status, whatever style the function reports it in
    uint32_t command;
    uint32_t words[4];  // Param, Arg3, Arg4, Arg5
    uint32_t answer;
    const char* requested;  // null: not traced
    const char* succeeded;
    const char* refused;  // of status 33
    bool two_blanks = false;
    const char* unread = "Error reading response from CM server \n";
    Bytes block = {};
    bool traces_answer = true;
    bool needs_call = false;
    bool names_the_new_client = false;  // behind a repair of the link
};

const std::vector<Query>& queries();

inline void PrintTo(const Query& query, std::ostream* out) {
    *out << query.name;
}

}  // namespace quorvel::test
