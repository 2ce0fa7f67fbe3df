#include "networkmanager/RealNetworkManager.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "support/Eventually.h"

namespace quorvel::test {
namespace {

void mount_here(const char* type, const char* place, unsigned long flags = 0) {
    if (mount(type, place, type, flags, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), std::string("mounting ") + place);
}

// NetworkManager takes plugins of root's alone. Where root is the one of an ordinary user's namespace, the
// machine's files are nobody's: copies are his own. Modems and Wi-Fi are plugins.
void own_plugins() {
    for (const auto& libraries : std::filesystem::directory_iterator("/usr/lib")) {
        const std::filesystem::path plugins = libraries.path() / "NetworkManager";
        struct stat file {};
        if (stat(plugins.c_str(), &file) != 0 || file.st_uid == geteuid())
            continue;
        const std::filesystem::path copy = "/tmp/nm/plugins" / libraries.path().filename();
        std::filesystem::create_directories(copy);
        std::filesystem::copy(plugins, copy, std::filesystem::copy_options::recursive);
        if (mount(copy.c_str(), plugins.c_str(), nullptr, MS_BIND, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), "covering " + plugins.string());
    }
}

std::string shell(std::string_view command) {
    const Ended ended = run({"sh", "-c", std::string(command)});
    if (ended.status != 0)
        throw std::runtime_error(std::string(command) + " failed: " + ended.out + ended.err);
    return ended.out;
}

std::unique_ptr<Program> start_program(const std::string& command) {
    return std::make_unique<Program>(std::vector<std::string>{"sh", "-c", "exec " + command});
}

void end_program(std::unique_ptr<Program>& program) {
    if (program == nullptr)
        return;
    program->send_signal(SIGKILL);
    program->wait();
    program.reset();
}

}  // namespace

bool has_network_manager() {
    return access("/usr/sbin/NetworkManager", X_OK) == 0;
}

RealNetworkManager::RealNetworkManager() {
    mount_here("tmpfs", "/run");
    mount_here("tmpfs", "/var/lib/NetworkManager");
    // Of this network, and read-only: no udev is waited for then.
    mount_here("sysfs", "/sys", MS_RDONLY);
    std::filesystem::create_directories("/run/dbus");
    std::filesystem::create_directories("/tmp/connections");
    std::filesystem::create_directories("/tmp/nm/conf.d");
    own_plugins();
    start_behind();
    bus_ = start_program("dbus-daemon --nofork --config-file='" NETWORK_MANAGER_FILES "/bus.conf'");
    if (!eventually([] { return access("/run/dbus/system_bus_socket", F_OK) == 0; }))
        throw std::runtime_error("there is no message bus");
    start();
    nmcli("connection add type ethernet ifname eth9 con-name wired autoconnect no ipv6.method disabled");
}

RealNetworkManager::~RealNetworkManager() {
    for (auto* program : {&manager_, &bus_, &names_, &behind_})
        end_program(*program);
}

void RealNetworkManager::start_behind() {
    behind_ = start_program("unshare --net sh -c 'ip link set lo up; echo there; exec sleep infinity'");
    behind_->wait_for_out("there");
    shell("ip link set lo up");
    shell("ip link add eth9 type veth peer name gw0 netns " + std::to_string(behind_->pid()));
    behind("ip address add 10.70.0.1/24 dev gw0");
    behind("ip link set gw0 up");
    names_ = start_program(
        "nsenter --target " + std::to_string(behind_->pid()) +
        " --net dnsmasq --no-daemon --conf-file=/dev/null --no-resolv --no-hosts --pid-file= --no-ping"
        " --dhcp-authoritative --dhcp-leasefile=/tmp/nm/leases --interface=gw0 --bind-interfaces"
        " --dhcp-range=10.70.0.50,10.70.0.50,1h --host-record=www.example.com,192.0.2.80");
    names_->wait_for_err("started");
}

void RealNetworkManager::start() {
    manager_ = start_program("/usr/sbin/NetworkManager --debug --config='" NETWORK_MANAGER_FILES
                             "/NetworkManager.conf' --config-dir=/tmp/nm/conf.d --state-file=/tmp/nm/state"
                             " --pid-file=/tmp/nm/pid");
    const auto knows_device = [] {
        const std::string devices = run({"nmcli", "-t", "-f", "DEVICE,STATE", "device"}).out;
        return devices.find("eth9:") != std::string::npos && devices.find("eth9:un") == std::string::npos;
    };
    if (!eventually(knows_device))
        throw std::runtime_error("NetworkManager does not take eth9");
}

void RealNetworkManager::kill() {
    end_program(manager_);
}

void RealNetworkManager::stop_dhcp() {
    end_program(names_);
}

std::string RealNetworkManager::nmcli(std::string_view arguments) {
    return shell("nmcli " + std::string(arguments));
}

bool RealNetworkManager::is_active(const std::string& connection) {
    return ("\n" + nmcli("-t -f NAME connection show --active")).find("\n" + connection + "\n") !=
           std::string::npos;
}

void RealNetworkManager::behind(std::string_view command) const {
    shell("nsenter --target " + std::to_string(behind_->pid()) + " --net " + std::string(command));
}

}  // namespace quorvel::test
