#include "Ares.h"

#include <arpa/inet.h>
#include <poll.h>

#include "Measure.h"
#include "Responder.h"

namespace quorvel::bench {
namespace {

constexpr int kPatienceMs = 2000;  // shorter than c-ares' own, which would ask again

int address_count(const ares_addrinfo& answer) {
    int count = 0;
    for (const ares_addrinfo_node* node = answer.nodes; node != nullptr; node = node->ai_next)
        ++count;
    return count;
}

}  // namespace

Ares::Ares(const char* lookups, int flags) {
    ares_options options{};
    in_addr server{inet_addr(kNameServer)};
    options.servers = &server;
    options.nservers = 1;
    options.lookups = const_cast<char*>(lookups);
    options.flags = flags;
    must(ares_init_options(&channel_, &options, ARES_OPT_SERVERS | ARES_OPT_LOOKUPS | ARES_OPT_FLAGS) ==
             ARES_SUCCESS,
         "c-ares");
}

Ares::~Ares() {
    ares_destroy(channel_);
}

void Ares::ask(const char* name, int addresses) {
    ++in_flight_;
    expected_addresses_ = addresses;
    // Nobody else here sorts the addresses, for which c-ares connects a socket to each of them.
    ares_addrinfo_hints hints{};
    hints.ai_family = AF_INET;
    hints.ai_flags = ARES_AI_NOSORT;
    ares_getaddrinfo(
        channel_, name, nullptr, &hints,
        [](void* ares, int status, int, ares_addrinfo* answer) {
            static_cast<Ares*>(ares)->take(status, answer);
        },
        this);
}

void Ares::wait() {
    while (in_flight_ > 0)
        process_one_wakeup();
    must(all_resolved_, "a lookup by c-ares");
}

void Ares::process_one_wakeup() {
    ares_socket_t socket = ARES_SOCKET_BAD;
    must(ares_getsock(channel_, &socket, 1) != 0, "the socket of c-ares");
    pollfd waiting{socket, POLLIN, 0};
    must(poll(&waiting, 1, kPatienceMs) > 0, "an answer to c-ares");
    ares_process_fd(channel_, socket, ARES_SOCKET_BAD);
}

void Ares::take(int status, ares_addrinfo* answer) {
    --in_flight_;
    if (status != ARES_SUCCESS || address_count(*answer) != expected_addresses_)
        all_resolved_ = false;
    ares_freeaddrinfo(answer);
}

}  // namespace quorvel::bench
