#include "Lookup.h"

#include <arpa/inet.h>
#include <quorvel/NetDNS.h>

#include <array>
#include <cstddef>
#include <functional>
#include <mutex>

#include "Names.h"

namespace quorvel::netcm {
namespace {

using Clock = std::chrono::steady_clock;

// Room for whatever a response of 512 bytes can hold, its names written out.
struct Buffer {
    static constexpr int kSize = 16384;
    alignas(std::max_align_t) std::array<char, kSize> bytes;
};

struct Outcome {
    hostent* host = nullptr;
    int error = 0;
    unsigned ttl = 0;
    int needed = 0;
};

const char* error_text(const Outcome& outcome) {
    switch (outcome.error) {
        case NETDB_INTERNAL:
            return "the name is too long, or has an empty or a too long label";
        case TRY_AGAIN:
            return "the DNS server does not answer, or has failed";
        case NO_RECOVERY:
            return "the DNS server refuses the query";
        case NO_DATA:
            return "there is no such name";
        default:
            return "the DNS server's response holds no answer";
    }
}

using Query = std::function<Outcome(const char* server, const char* interface, Buffer& buffer)>;

Outcome ask_servers(Answer& answer, const NameServers& servers, const Query& query, Buffer& buffer) {
    const char* interface = servers.interface.empty() ? nullptr : servers.interface.c_str();
    answer.error = "there is no DNS server to ask";
    for (const std::string& server : servers.addresses) {
        const Outcome outcome = query(server.c_str(), interface, buffer);
        answer.source = server;
        if (outcome.host != nullptr) {
            answer.error.clear();
            answer.ttl = outcome.ttl;
            copy_host(answer, *outcome.host);
            return outcome;
        }
        answer.error = error_text(outcome);
    }
    return {};
}

bool is_in_cache(Answer& answer, Buffer& buffer) {
    hostent* host = nullptr;
    if (get_dns_result_fron_cache(answer.asked.c_str(), buffer.bytes.data(), Buffer::kSize, &host) != 0) {
        return false;
    }
    answer.source = kCacheSource;
    if (host == nullptr) {
        answer.error = "there is no such name";
    } else {
        copy_host(answer, *host);
    }
    return true;
}

void look_up_local(Answer& answer) {
    // The library answers into one buffer for all threads.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    constexpr int kAnyProfile = 1;
    const hostent* host = NetDNSGetHostByName(kAnyProfile, answer.asked.c_str());
    if (host == nullptr) {
        answer.error = "there is no memory for the lookup";
        return;
    }
    answer.source = kLocalSource;
    copy_host(answer, *host);
}

void look_up_now(Answer& answer, const NameServers& servers) {
    const Query by_name = [&](const char* server, const char* interface, Buffer& buffer) {
        Outcome out;
        out.host = dnet_gethostbyname_r(server, interface, answer.asked.c_str(), buffer.bytes.data(),
                                        Buffer::kSize, &out.error, &out.ttl, &out.needed);
        return out;
    };
    if (is_local_name(answer.asked)) {
        look_up_local(answer);
        return;
    }
    Buffer buffer;
    if (is_in_cache(answer, buffer)) {
        return;
    }
    const Outcome outcome = ask_servers(answer, servers, by_name, buffer);
    if (needs_no_server(answer.asked)) {
        answer.source = kLocalSource;
        answer.ttl.reset();
    } else if (outcome.host != nullptr) {
        update_dns_cache(answer.asked.c_str(), outcome.host, outcome.needed, outcome.ttl);
    }
}

void look_up_address_now(Answer& answer, const NameServers& servers) {
    in_addr address{};
    inet_pton(AF_INET, answer.asked.c_str(), &address);
    const Query by_address = [&](const char* server, const char* interface, Buffer& buffer) {
        Outcome out;
        out.host = dnet_gethostbyaddr_r(server, interface, reinterpret_cast<const char*>(&address),
                                        sizeof address, AF_INET, buffer.bytes.data(), Buffer::kSize,
                                        &out.error, &out.ttl, &out.needed);
        return out;
    };
    Buffer buffer;
    ask_servers(answer, servers, by_address, buffer);
}

template <class LookUp>
Answer timed(const std::string& asked, const NameServers& servers, LookUp look) {
    Answer answer;
    answer.asked = asked;
    const auto start = Clock::now();
    look(answer, servers);
    answer.time = Clock::now() - start;
    return answer;
}

}  // namespace

Answer look_up(const NameServers& servers, const std::string& name) {
    return timed(name, servers, look_up_now);
}

Answer look_up_address(const NameServers& servers, const std::string& address) {
    return timed(address, servers, look_up_address_now);
}

}  // namespace quorvel::netcm
