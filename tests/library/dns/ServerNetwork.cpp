#include "ServerNetwork.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "Host.h"

namespace quorvel::test::dns {
namespace {

void run(const std::string& command) {
    if (system(command.c_str()) != 0)
        throw std::runtime_error("failed: " + command);
}

// One byte through a pipe: a child and its parent wait for each other.
class Signal {
  public:
    Signal() {
        if (pipe2(ends_, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
    }
    ~Signal() {
        close(ends_[0]);
        close(ends_[1]);
    }
    void give() {
        if (write(ends_[1], "", 1) != 1)
            _exit(1);
    }
    void wait() {
        char byte = 0;
        if (read(ends_[0], &byte, 1) != 1)
            _exit(1);
    }

  private:
    int ends_[2];
};

[[noreturn]] void become_server(const std::string& address, const std::vector<std::string>& command,
                                Signal& ready, Signal& linked, Signal& configured) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (unshare(CLONE_NEWNET) != 0)
        _exit(1);
    ready.give();
    linked.wait();
    run("ip link set lo up && ip link set eth0 up && ip addr add " + address + "/24 dev eth0");
    configured.give();
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const int log = open("/tmp/dns-server.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(1);
}

std::string log_of_servers() {
    std::ifstream log("/tmp/dns-server.log");
    return {std::istreambuf_iterator<char>(log), {}};
}

// A server that is not there yet refuses at once, so that waiting is trying.
void wait_until_it_answers(const std::string& server, const std::string& ifname) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        if (Resolution().by_name("www.example", server.c_str(), ifname.c_str()).host != nullptr)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    throw std::runtime_error("the DNS server does not answer; it said:\n" + log_of_servers());
}

}  // namespace

ServerNetwork::ServerNetwork(const std::string& ifname, const std::string& address,
                             const std::string& server_address, const std::vector<std::string>& command)
    : ifname_(ifname) {
    Signal ready;
    Signal linked;
    Signal configured;
    server_ = fork();
    if (server_ == 0)
        become_server(server_address, command, ready, linked, configured);
    ready.wait();
    run("ip link add " + ifname + " type veth peer name eth0 netns " + std::to_string(server_) +
        " && ip addr add " + address + "/24 dev " + ifname + " && ip link set " + ifname + " up");
    linked.give();
    // A packet that finds no neighbour yet waits a second for the next try.
    configured.wait();
    wait_until_it_answers(server_address, ifname);
}

ServerNetwork::~ServerNetwork() {
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
}

std::vector<std::string> knot_command(const std::string& address) {
    mkdir("/tmp/knot", 0755);
    const std::string zones = QUORVEL_ZONES;
    std::ofstream("/tmp/knot/knot.conf")
        << "server:\n  rundir: /tmp/knot\n  listen: " << address
        << "@53\ndatabase:\n  storage: /tmp/knot\ntemplate:\n  - id: default\n"
        << "    storage: /tmp/knot\n    journal-content: none\n    zonefile-sync: -1\n"
        << "zone:\n  - domain: example\n    file: \"" << zones << "/example.zone\"\n"
        << "  - domain: 2.0.192.in-addr.arpa\n    file: \"" << zones
        << "/reverse.zone\"\n  - domain: broken\n    file: /tmp/knot/missing.zone\n";
    return {"/usr/sbin/knotd", "-c", "/tmp/knot/knot.conf"};
}

std::vector<std::string> dnsmasq_command(const std::string& address,
                                         const std::vector<std::string>& options) {
    std::vector<std::string> command{
        "/usr/sbin/dnsmasq", "--no-daemon", "--conf-file=/dev/null",      "--no-resolv", "--no-hosts",
        "--bind-interfaces", "--pid-file",  "--listen-address=" + address};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

}  // namespace quorvel::test::dns
