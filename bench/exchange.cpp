#include <poll.h>

#include "Benchmarks.h"
#include "Bus.h"
#include "Server.h"
#include "quorvel/NetCM.h"

namespace quorvel::bench {
namespace {

constexpr int kRounds = 61;
constexpr int kTimes = 1000;
constexpr char kOurs[] = "NetCMGetNetworkStatus";

// What the library sends and reads, on the library's own socket to the same server.
void bare_exchange() {
    const int fd = g_NetCMClientAppInfo.SyncSockFd;
    wire::RequestHeader request{};
    request.Command = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;
    request.Param = NETCM_IFACE_PDP;
    wire::Record answer{};
    write_all(fd, &request, sizeof request);
    pollfd waiting{fd, POLLIN, 0};
    poll(&waiting, 1, 60'000);
    read_all(fd, &answer, sizeof answer);
}

void library_exchange() {
    uint32_t status = 0;
    NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

}  // namespace

void measure_exchange(Report& report) {
    BusPair peers(BusPair::Kind::PeerToPeer);
    BusPair through_daemon(BusPair::Kind::ThroughDaemon);
    const std::vector<Contestant> contestants{
        {"bare write, poll, read", [](int times) { return time_of(times, bare_exchange); }},
        {kOurs, [](int times) { return time_of(times, library_exchange); }},
        {"sd-bus, peer to peer",
         [&](int times) { return time_of(times / 4, [&] { peers.call(); }) * times / (times / 4); }},
        {"sd-bus, through dbus-daemon",
         [&](int times) { return time_of(times / 4, [&] { through_daemon.call(); }) * times / (times / 4); }},
    };
    const std::vector<Rounds> rounds = interleave(contestants, kRounds, kTimes);
    report.begin("One request and its answer");
    report.add(contestants, rounds, 0, "us", 1000);
    report.set_bar(kOurs, Bar::AtMost, 1.10);
}

}  // namespace quorvel::bench
