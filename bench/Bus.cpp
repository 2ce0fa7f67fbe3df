#include "Bus.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <system_error>

#include "Server.h"

namespace quorvel::bench {
namespace {

constexpr char kAddress[] = "unix:path=/tmp/bench-bus";
constexpr char kName[] = "org.quorvel.Bench";
constexpr char kPath[] = "/org/quorvel/Bench";

int check(int result, const char* what) {
    if (result < 0)
        throw std::system_error(-result, std::generic_category(), what);
    return result;
}

int answer(sd_bus_message* message, void*, sd_bus_error*) {
    uint32_t interface = 0;
    uint32_t client = 0;
    check(sd_bus_message_read(message, "uu", &interface, &client), "reading a call");
    return sd_bus_reply_method_return(message, "uu", 0u, interface);
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetNetworkStatus", "uu", "uu", answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

[[noreturn]] void serve(sd_bus* bus) {
    check(sd_bus_add_object_vtable(bus, nullptr, kPath, kName, kMethods, nullptr), "the object");
    for (;;)
        if (check(sd_bus_process(bus, nullptr), "processing") == 0)
            check(sd_bus_wait(bus, UINT64_MAX), "waiting");
}

sd_bus* on_descriptor(int fd, bool server) {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "a bus");
    check(sd_bus_set_fd(bus, fd, fd), "its descriptor");
    sd_id128_t id{};
    sd_id128_randomize(&id);
    if (server)
        check(sd_bus_set_server(bus, 1, id), "the server's end");
    check(sd_bus_start(bus), "starting");
    return bus;
}

sd_bus* on_daemon() {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "a bus");
    check(sd_bus_set_address(bus, kAddress), "its address");
    check(sd_bus_set_bus_client(bus, 1), "the client's end");
    check(sd_bus_start(bus), "starting");
    return bus;
}

// The daemon, and the pipe on which it says that it listens.
pid_t start_daemon() {
    int ends[2];
    check(pipe(ends), "a pipe");
    const pid_t pid = start_helper([&ends] {
        dup2(ends[1], STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // it complains of limits that it cannot raise
        execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1",
               (std::string("--address=") + kAddress).c_str(), nullptr);
    });
    close(ends[1]);
    char byte = 0;
    if (read(ends[0], &byte, 1) != 1)
        throw std::runtime_error("dbus-daemon cannot be started");
    close(ends[0]);
    return pid;
}

}  // namespace

BusPair::BusPair(Kind kind) {
    if (kind == Kind::PeerToPeer)
        connect_peers();
    else
        connect_through_daemon();
}

BusPair::~BusPair() {
    sd_bus_flush_close_unref(bus_);
    while (!helpers_.empty()) {
        end_helper(helpers_.back());
        helpers_.pop_back();
    }
}

void BusPair::connect_peers() {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "a socket pair");
    helpers_.push_back(start_helper([&ends] {
        close(ends[0]);
        serve(on_descriptor(ends[1], true));
    }));
    close(ends[1]);
    bus_ = on_descriptor(ends[0], false);
}

void BusPair::connect_through_daemon() {
    helpers_.push_back(start_daemon());
    helpers_.push_back(start_helper([] {
        sd_bus* bus = on_daemon();
        check(sd_bus_request_name(bus, kName, 0), "the service's name");
        serve(bus);
    }));
    bus_ = on_daemon();
    destination_ = kName;
    for (int tries = 0; tries < 500; ++tries) {
        if (sd_bus_get_name_creds(bus_, kName, 0, nullptr) >= 0)
            return;
        usleep(10'000);
    }
    throw std::runtime_error("the service on the bus does not start");
}

void BusPair::call() {
    sd_bus_message* reply = nullptr;
    sd_bus_error error{};
    check(sd_bus_call_method(bus_, destination_, kPath, kName, "GetNetworkStatus", &error, &reply, "uu", 1u,
                             7u),
          "a call");
    uint32_t status = 0;
    uint32_t interface = 0;
    check(sd_bus_message_read(reply, "uu", &status, &interface), "reading a reply");
    sd_bus_message_unref(reply);
}

}  // namespace quorvel::bench
