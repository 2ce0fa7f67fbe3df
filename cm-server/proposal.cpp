#include "proposal.h"

#include <net/if.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <vector>

#include "events.h"
#include "networkmanager/discovery.h"
#include "quorvel/NetPM.h"

namespace quorvel::cm {
namespace {

// What is no text stands in no file.
std::optional<std::string> quoted(const std::string& text) {
    constexpr char kDelete = 0x7f;
    if (text.find(kDelete) != std::string::npos)
        return std::nullopt;
    try {
        // Both languages spell their texts alike.
        return nlohmann::json(text).dump();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

// As much of it as a field takes, and no half of a character.
std::string cut(const std::string& text, size_t field) {
    size_t size = std::min(text.size(), field - 1);
    while (size < text.size() && size > 0 && (static_cast<unsigned char>(text[size]) & 0xc0U) == 0x80)
        --size;
    return text.substr(0, size);
}

std::string line(const char* key, const std::string& value) {
    return std::string(key) + " = " + value + "\n";
}

class Proposal {
  public:
    std::string text() const { return text_; }

    void note(const std::string& about) { text_ += "\n# " + about + "\n"; }

    // A network for one access point, and a profile that leads to it.
    void network_and_profile(bool wlan, const std::string& name, const std::string& access_point,
                             const std::string& way) {
        const std::string kind = wlan ? line("kind", "\"wlan\"") : "";
        const std::string key = line(wlan ? "essid" : "apn", *quoted(access_point));
        text_ += "[[network]]\n" + kind + key + way + "\n[[profile]]\n";
        text_ += line("name", *quoted(cut(name, sizeof(NetPMProfile::ProfileName)))) + kind + key;
    }
    // One for every profile of its kind.
    void network_for_all(bool wlan, const std::string& way) {
        text_ += std::string("[[network]]\n") + (wlan ? line("kind", "\"wlan\"") : "") + way;
    }

  private:
    std::string text_ =
        "# What cm-server --discover has found here. Keep what you need, put it into a file, and see what\n"
        "# cm-server --check-config --config FILE says of it. The first network that fits a profile is "
        "taken.\n";
};

const std::string& bearer() {
    static const std::string text = line("bearer", "\"networkmanager\"");
    return text;
}

// A connection that NetworkManager has, by its name, or by its UUID where another has that name.
class Connections {
  public:
    Connections(Proposal& proposal, const std::vector<StoredConnection>& all)
        : proposal_(proposal), all_(all) {}

    void propose() {
        for (const StoredConnection& connection : all_)
            if (!connection.made_by_us && connection.type != "loopback")
                propose(connection);
    }

  private:
    void propose(const StoredConnection& connection) {
        const auto has_its_name = [&](const StoredConnection& other) { return other.id == connection.id; };
        const bool unique = std::ranges::count_if(all_, has_its_name) == 1 && quoted(connection.id);
        const std::string& name = unique ? connection.id : connection.uuid;
        const std::string about =
            "NetworkManager's connection " + *quoted(name) + " (" + connection.type + ")";
        const bool wlan = connection.type == "802-11-wireless";
        const std::string access_point = cut(wlan ? connection.essid : name, sizeof(NetPMPdpProfInfo::Apn));
        if (!quoted(access_point) || access_point.empty())
            return proposal_.note(about + " has a network name that is no text.");
        if (!taken_.emplace(wlan, access_point).second)
            return proposal_.note(about + " leads where one above does, too.");
        proposal_.note(about + ".");
        proposal_.network_and_profile(wlan, name, access_point, bearer() + line("connection", *quoted(name)));
    }

    Proposal& proposal_;
    const std::vector<StoredConnection>& all_;
    std::set<std::pair<bool, std::string>> taken_;
};

void propose_devices(Proposal& proposal, const std::vector<Device>& devices) {
    constexpr uint32_t kEthernet = 1;
    std::set<uint32_t> proposed;
    for (const Device& device : devices) {
        const bool wlan = device.type == kWifiDevice;
        if (device.type == kEthernet && device.state > kDeviceUnmanaged && device.connections.empty())
            proposal.note(device.interface + " has no connection in NetworkManager; this makes one: " +
                          "nmcli connection add type ethernet ifname " + device.interface);
        if ((!wlan && device.type != kModemDevice) || !proposed.insert(device.type).second)
            continue;
        proposal.note(
            (wlan ? "Wi-Fi on " : "The modem ") + device.interface +
            ": NetworkManager makes a connection of every other profile of the kind, such as\n# " +
            (wlan ? "kind = \"wlan\", essid = \"home\", security-mode = \"psk\", psk = \"a passphrase\"."
                  : "apn = \"internet\", user-name = \"me\", auth-type = \"chap\", password = \"secret\"."));
        proposal.network_for_all(wlan, bearer());
    }
}

std::vector<std::string> interfaces() {
    const std::unique_ptr<struct if_nameindex, Freed<if_freenameindex>> all(if_nameindex());
    std::vector<std::string> names;
    for (const struct if_nameindex* one = all.get(); one != nullptr && one->if_index != 0; ++one)
        names.emplace_back(one->if_name);
    std::erase(names, "lo");
    std::ranges::sort(names);
    return names;
}

void propose_interfaces(Proposal& proposal) {
    const auto names = interfaces();
    for (const std::string& name : names) {
        const std::string way = line("interface", *quoted(name));
        if (std::filesystem::exists("/sys/class/net/" + name + "/phy80211")) {
            proposal.note("The interface " + name + ", for every Wi-Fi profile.");
            proposal.network_for_all(true, way);
            continue;
        }
        proposal.note("The interface " + name + ".");
        proposal.network_and_profile(false, name, name, way);
    }
    if (names.empty())
        proposal.note("There is no interface but the loopback, which is served without a configuration.");
}

}  // namespace

std::string propose_configuration() {
    Proposal proposal;
    const Discovery found = ask_networkmanager();
    if (found.why_not.empty()) {
        Connections(proposal, found.connections).propose();
        propose_devices(proposal, found.devices);
        return proposal.text();
    }
    proposal.note("Connections follow interfaces that somebody else brings up: " + found.why_not + ".");
    propose_interfaces(proposal);
    return proposal.text();
}

}  // namespace quorvel::cm
