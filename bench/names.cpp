#include <ares.h>
#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <net/if.h>
#include <poll.h>
#include <resolv.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "Ares.h"
#include "Benchmarks.h"
#include "Responder.h"
#include "common/Exported.h"
#include "dns/src/resolver/Name.h"
#include "dns/src/resolver/Resolver.h"
#include "quorvel/NetDNS.h"

// The decoder is built into this program, its debug level is the library's.
int* quorvel::exported::dns_debug = &_dns_debug;

namespace quorvel::bench {
namespace {

constexpr int kRounds = 41;
constexpr int kCacheRounds = 161;  // short ones

// --- a lookup, answered by a name server
// --------------------------------------------------------------------

void bare_lookup(const Message& query) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, "lo", 3);
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(53);
    server.sin_addr.s_addr = inet_addr(kNameServer);
    must(connect(fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0, "connect");
    must(send(fd, query.data(), query.size(), 0) > 0, "send");
    pollfd waiting{fd, POLLIN, 0};
    poll(&waiting, 1, 2000);
    uint8_t answer[512];
    must(recv(fd, answer, sizeof answer, 0) > 0, "recv");
    close(fd);
}

void our_lookup() {
    char buffer[2048];
    int error = 0;
    unsigned ttl = 0;
    int needed = 0;
    must(dnet_gethostbyname_r(kNameServer, "lo", kHostName, buffer, sizeof buffer, &error, &ttl, &needed) !=
             nullptr,
         "dnet_gethostbyname_r");
}

void ares_lookup(Ares& channel) {
    channel.ask(kHostName, kHostAddresses);
    channel.wait();
}

// What no user of c-ares does: the channel reads its files and draws its random numbers each time.
void ares_lookup_with_a_new_channel() {
    Ares channel(kServerOnly);
    ares_lookup(channel);
}

void resolv_lookup() {
    struct __res_state state {};
    must(res_ninit(&state) == 0, "libresolv");
    state.nscount = 1;
    state.nsaddr_list[0].sin_family = AF_INET;
    state.nsaddr_list[0].sin_port = htons(53);
    state.nsaddr_list[0].sin_addr.s_addr = inet_addr(kNameServer);
    uint8_t answer[512];
    must(res_nquery(&state, kHostName, C_IN, T_A, answer, sizeof answer) > 0, "a lookup by libresolv");
    res_nclose(&state);
}

void measure_lookup(Report& report) {
    const Responder responder;
    const Message query = query_message();
    const Contestant bare{"bare socket calls",
                          [&](int times) { return time_of(times, [&] { bare_lookup(query); }); }};
    const Contestant ours{"dnet_gethostbyname_r", [](int times) { return time_of(times, our_lookup); }};
    const auto compare = [&](const char* title, const std::vector<Contestant>& contestants, int rounds) {
        report.begin(title);
        report.add(contestants, interleave(contestants, rounds, 100), 0, "us", 1000);
    };
    // By themselves, since others leave the kernel more to clean up, which would fall on one of the two; and
    // in many short rounds: the bar is narrow, and the machine is never quiet for long.
    compare("A name, from a server on the loopback interface", {bare, ours}, 801);
    report.set_bar(ours.name, Bar::AtMost, 1.05);
    const auto kept_ares = [](Ares& channel) {
        return [&channel](int times) { return time_of(times, [&channel] { ares_lookup(channel); }); };
    };
    Ares ordinary(kHostsFileAndServer);
    Ares leanest(kServerOnly, ARES_FLAG_STAYOPEN);
    compare("The same, beside other resolvers",
            {bare,
             ours,
             {"c-ares, its channel kept", kept_ares(ordinary)},
             {"the same, no hosts file, its socket kept", kept_ares(leanest)},
             {"c-ares, a new channel for each name",
              [](int times) { return time_of(times, ares_lookup_with_a_new_channel); }},
             {"libresolv", [](int times) { return time_of(times, resolv_lookup); }}},
            kRounds);
}

// --- decoding an answer
// --------------------------------------------------------------------------------------

using HostBuffer = std::array<char, 1024>;

Response received_answer() {
    const Message answer = answer_message();
    Response response{};
    std::copy(answer.begin(), answer.end(), response.bytes.begin());
    response.length = static_cast<int>(answer.size());
    response.answer_offset = static_cast<int>(query_message().size());
    response.answers = 5;
    return response;
}

// The host, and how many bytes of the buffer it takes.
hostent* our_decoding(const Response& response, HostBuffer& buffer, int& needed) {
    const Query query{kNameServer, nullptr, kTypeA, kHostName};
    uint32_t ttl = 0;
    int error = 0;
    Name name;
    hostent* host = unpack_answer(query, response, name, buffer.data(), static_cast<int>(buffer.size()),
                                  {&ttl, &needed}, ErrorCode(&error));
    must(host != nullptr, "decoding");
    return host;
}

void ares_decoding(const Message& answer) {
    hostent* host = nullptr;
    ares_addrttl ttls[8];
    int count = 8;
    must(ares_parse_a_reply(answer.data(), static_cast<int>(answer.size()), &host, ttls, &count) ==
             ARES_SUCCESS,
         "decoding by c-ares");
    ares_free_hostent(host);
}

// What every user of libresolv writes: each record parsed, names expanded, addresses copied.
void resolv_decoding(const Message& answer) {
    ns_msg message;
    must(ns_initparse(answer.data(), static_cast<int>(answer.size()), &message) == 0,
         "decoding by libresolv");
    char alias[NS_MAXDNAME];
    in_addr addresses[8];
    int count = 0;
    for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
        ns_rr record;
        must(ns_parserr(&message, ns_s_an, i, &record) == 0, "a record by libresolv");
        if (ns_rr_type(record) == ns_t_cname)
            must(ns_name_uncompress(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(record), alias,
                                    sizeof alias) >= 0,
                 "a name by libresolv");
        else
            memcpy(&addresses[count++], ns_rr_rdata(record), sizeof addresses[0]);
    }
    must(count == 4, "addresses by libresolv");
}

void measure_decoding(Report& report) {
    const Message answer = answer_message();
    const Response response = received_answer();
    HostBuffer buffer;
    int needed = 0;
    const std::vector<Contestant> contestants{
        {"quorvel",
         [&](int times) { return time_of(times, [&] { our_decoding(response, buffer, needed); }); }},
        {"c-ares", [&](int times) { return time_of(times, [&] { ares_decoding(answer); }); }},
        {"libresolv", [&](int times) { return time_of(times, [&] { resolv_decoding(answer); }); }},
    };
    const std::vector<Rounds> rounds = interleave(contestants, kRounds, 20'000);
    report.begin("Decoding an answer of 195 bytes: an alias and four addresses");
    report.add(contestants, rounds, 0, "ns", 1);
    report.set_bar("c-ares", Bar::AtLeast, 5);
    report.set_bar("libresolv", Bar::AtLeast, 2.5);
}

// --- the cache
// ------------------------------------------------------------------------------------------------

// Where a block begins and where its copy goes: another place in each round, since the two decide over as
// much as is measured. The compiler does not see how long the buffer is: it would copy by a string
// instruction, which is slower than the C library's copy.
template <size_t kStep, size_t kPeriod>
class Places {
  public:
    char* next() {
        at_ = (at_ + kStep) % kPeriod;
        char* place = bytes_.data() + at_;
        asm volatile("" : "+r"(place));
        return place;
    }

  private:
    alignas(kPeriod) std::array<char, kPeriod + sizeof(HostBuffer)> bytes_{};
    size_t at_ = 0;
};

constexpr size_t kAlignment = 16;  // of what the allocator gives
constexpr size_t kLineBytes = 64;
constexpr size_t kPageBytes = 4096;

void measure_cache(Report& report) {
    HostBuffer buffer;
    int size = 0;
    const hostent* host = our_decoding(received_answer(), buffer, size);
    update_dns_cache(kHostName, const_cast<hostent*>(host), size, 3600);

    std::mutex lock;
    Places<kAlignment, kLineBytes> blocks;
    Places<kLineBytes, kPageBytes> copies;
    const std::vector<Contestant> contestants{
        {"lock and copy of the same block",
         [&](int times) {
             return time_of(times, [&, copy = copies.next(), block = blocks.next()] {
                 const std::lock_guard guard(lock);
                 memcpy(copy, block, static_cast<size_t>(size));
                 asm volatile("" : : : "memory");
             });
         }},
        {"get_dns_result_fron_cache",
         [&](int times) {
             return time_of(times, [copy = copies.next()] {
                 hostent* result = nullptr;
                 must(get_dns_result_fron_cache(kHostName, copy, sizeof(HostBuffer), &result) == 0,
                      "the cache");
             });
         }},
    };
    const std::vector<Rounds> rounds = interleave(contestants, kCacheRounds, 50'000);
    report.begin("A name from the cache");
    report.add(contestants, rounds, 0, "ns", 1);
    report.set_bar("get_dns_result_fron_cache", Bar::AtMost, 1.5);
    clear_dns_cache();
}

}  // namespace

void measure_names(Report& report) {
    measure_lookup(report);
    measure_decoding(report);
    measure_cache(report);
}

}  // namespace quorvel::bench
