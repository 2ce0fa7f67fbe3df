// What an application does with names.
#include <arpa/inet.h>

#include <cstring>

#include "Run.h"
#include "library/dns/Callbacks.h"
#include "library/dns/Responder.h"
#include "quorvel/NetDNS.h"
#include "support/Eventually.h"

namespace quorvel::sweep {

const std::vector<Scenario>& name_scenarios();

namespace {

namespace dns = test::dns;

constexpr char kAddress[] = "192.0.2.7";

// A connection with a DNS server, for as long as there is a body for it.
template <class Body>
void with_names(Run& run, Body body) {
    const dns::Responder first(dns::answer_with(kAddress), "127.0.0.1");
    const dns::Responder second(dns::answer_with(kAddress), "127.0.0.2");
    clear_dns_cache();
    if (!run.enter())
        return;
    if (run.open(1)) {
        body();
        run.close(1);
    }
    clear_dns_cache();
    if (!run.is_hurt())
        run.leave();
}

bool is_the_host(const hostent* host) {
    in_addr wanted{};
    inet_pton(AF_INET, kAddress, &wanted);
    return host != nullptr && host->h_addr_list[0] != nullptr &&
           memcmp(host->h_addr_list[0], &wanted, sizeof wanted) == 0 && host->h_addr_list[1] == nullptr;
}

void expect_host_or_none(Run& run, const char* what, const hostent* host) {
    if (run.is_hurt())
        run.expect(host == nullptr || is_the_host(host), std::string(what) + ": another host");
    else
        run.expect(is_the_host(host), std::string(what) + ": not the host");
}

void looks_a_name_up(Run& run) {
    with_names(run, [&] {
        expect_host_or_none(run, "asked", NetDNSGetHostByName(1, "www.example"));
        expect_host_or_none(run, "kept", NetDNSGetHostByName(1, "www.example"));
        char buffer[1024];
        hostent* host = nullptr;
        const int found = get_dns_result_fron_cache("www.example", buffer, sizeof buffer, &host);
        run.expect(found == 3 || (found == 0 && is_the_host(host)), "the cache has something else");
    });
}

void looks_ten_up_in_the_background(Run& run) {
    with_names(run, [&] {
        dns::callbacks::clear();
        size_t accepted = 0;
        for (int number = 0; number < 10; ++number) {
            unsigned id = 0;
            const std::string name = "host" + std::to_string(number) + ".example";
            const int result = NetDNSGetHostByNameAsync(1, name.c_str(), dns::callbacks::note, &id);
            run.expect(result == 0 || (id >= 1 && id <= 10), "an accepted lookup has no id");
            run.expect(result == 1 || (run.is_hurt() && result == 0), "a lookup is not accepted");
            accepted += result == 1 ? 1 : 0;
        }
        run.expect(dns::callbacks::wait_for(accepted), "an accepted lookup is never answered");
        for (const dns::Delivery& delivery : dns::callbacks::deliveries()) {
            const bool found = delivery.found && delivery.addresses == std::vector<std::string>{kAddress};
            run.expect(found || (run.is_hurt() && !delivery.found), "a lookup finds something else");
        }
        run.expect(dns::callbacks::deliveries().size() == accepted, "a lookup is answered more than once");
    });
}

void asks_a_server(Run& run) {
    const dns::Responder responder(dns::answer_with(kAddress), "127.0.0.1");
    alignas(void*) char buffer[1024];
    int error = 0;
    unsigned life = 0;
    int needed = 0;
    const hostent* host =
        dnet_gethostbyname_r("127.0.0.1", "lo", "www.example", buffer, sizeof buffer, &error, &life, &needed);
    expect_host_or_none(run, "the query", host);
    run.expect(host != nullptr || (error >= -1 && error <= 4), "an unknown error " + std::to_string(error));
}

// The cache keeps ten of them, those used last.
void keeps_names(Run& run) {
    clear_dns_cache();
    for (int number = 0; number < 12; ++number) {
        const std::string name = "192.0.2." + std::to_string(number);
        alignas(void*) char bytes[1024];
        int needed = 0;
        hostent* host = dnet_gethostbyname_r("127.0.0.1", nullptr, name.c_str(), bytes, sizeof bytes, nullptr,
                                             nullptr, &needed);
        if (run.expect(host != nullptr, "an address is not laid out"))
            update_dns_cache(name.c_str(), host, needed, 60);
    }
    update_dns_cache("nobody", nullptr, 0, 0);
    char copy[1024];
    hostent* found = nullptr;
    const int result = get_dns_result_fron_cache(kAddress, copy, sizeof copy, &found);
    run.expect(result == 0 ? is_the_host(found) : run.is_hurt() && result == 3,
               "the cache has something else");
    clear_dns_cache();
}

}  // namespace

const std::vector<Scenario>& name_scenarios() {
    static const std::vector<Scenario> all = {
        {"looks_a_name_up", looks_a_name_up},
        {"looks_ten_up_in_the_background", looks_ten_up_in_the_background, false, true},
        {"asks_a_server", asks_a_server, true},
        {"keeps_names", keeps_names, true},
    };
    return all;
}

}  // namespace quorvel::sweep
