// The frame of every query on the sync socket. A query is its checks, its codes, its wording, and what it
// does with the answer; the steps between stand here once.
#pragma once

#include "client/CM/src/NetCMIntf/Request.h"

namespace quorvel {

// How a query words its failures.
enum class SendFailure { Plain, TwoBlanks };
enum class ReadFailure { Server, Plain };
enum class Arrival { Traced, Silent };

struct Query {
    wire::RequestHeader request;
    wire::Event answer;
    SendFailure send_failure = SendFailure::Plain;
    ReadFailure read_failure = ReadFailure::Server;
    Arrival arrival = Arrival::Traced;
    // Fills in, once the link is good, what only the table knows; its failure ends the query.
    uint32_t (*complete)(Here here, wire::RequestHeader& request) = nullptr;
};

// Repairs the link, sends, and reads the answer. Returns 0 when it has come, whatever its status.
uint32_t exchange(Here here, Query query, wire::Record& answer) QV_REQUIRES(app_mutex);

// `use(answer)` gets an answer of status 0 and gives the result; `refused(status)` traces any other.
template <class Use, class Refused>
uint32_t ask_locked(Here here, const Query& query, Use use, Refused refused) QV_REQUIRES(app_mutex) {
    wire::Record answer = {};
    const uint32_t status = exchange(here, query, answer);
    if (status != NETCM_SUCCESS)
        return status;
    if (answer.Status != 0) {
        refused(static_cast<int>(answer.Status));
        return answer.Status;
    }
    return use(answer);
}

template <class Use, class Refused>
uint32_t ask(Here here, const Query& query, Use use, Refused refused) {
    const AppMutexGuard guard(here);
    return ask_locked(here, query, use, refused);
}

}  // namespace quorvel
