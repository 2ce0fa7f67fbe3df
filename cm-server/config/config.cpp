#include "config/config.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>

#include "config/limits.h"
#include "config/profiles.h"
#include "config/reader.h"
#include "protocol/message.h"

namespace quorvel::cm {
namespace {

void read_profiles(ConfigTable& root, Config& config) {
    root.tables("profile", [&](ConfigTable& table) {
        config.profiles.push_back(read_factory_profile(table));
        const FactoryProfile& added = config.profiles.back();
        const auto rival = [&](const FactoryProfile& other) {
            return &other != &added && other.is_default &&
                   other.record.ProfileType == added.record.ProfileType;
        };
        if (added.is_default && std::ranges::any_of(config.profiles, rival))
            table.fault("there is a default profile of this kind already");
    });
}

std::optional<std::chrono::milliseconds> milliseconds(ConfigTable& table, const char* key) {
    return table.duration(key, std::chrono::milliseconds(0), std::chrono::hours(1));
}

Reason read_reason(ConfigTable& table) {
    const auto number = table.number_or_word(
        "refusal", 0, UINT32_MAX, all_of(reason_words()),
        [](const std::string& word) -> std::optional<int64_t> { return number_of(reason_words(), word); });
    const auto reason = static_cast<Reason>(number.value_or(0));
    if (number && !is_known(reason)) {
        std::string all;
        for (uint32_t known = 1; is_known(static_cast<Reason>(known)); ++known)
            all += (known == 1 ? "" : ", ") + std::to_string(known) + " (" +
                   to_text(static_cast<Reason>(known)) + ")";
        table.fault_at("refusal", " must be 0 for none, or a reason: " + all);
    }
    return reason;
}

Simulation read_simulation(ConfigTable& table) {
    Simulation simulation;
    simulation.delay = milliseconds(table, "delay").value_or(simulation.delay);
    simulation.refusal = read_reason(table);
    simulation.lost_after = milliseconds(table, "lost-after");
    constexpr uint32_t kExample = 0xC0000201;  // 192.0.2.1
    simulation.address = table.address("address").value_or(in_addr{htonl(kExample)});
    return simulation;
}

enum class BearerKind : uint8_t { kLink, kSimulated, kNetworkManager };

void read_bearer(ConfigTable& table, Network& network) {
    const auto kind =
        static_cast<BearerKind>(table.choice("bearer", {"link", "simulated", "networkmanager"}).value_or(0));
    const bool simulated = kind == BearerKind::kSimulated;
    network.interface = table.text("interface", IFNAMSIZ - 1).value_or(simulated ? "simulated0" : "");
    if (simulated)
        network.simulation = read_simulation(table);
    else
        for (const char* key : {"delay", "refusal", "lost-after", "address"})
            table.refuse(key, " needs bearer = \"simulated\"");
    if (kind != BearerKind::kNetworkManager)
        table.refuse("connection", " needs bearer = \"networkmanager\"");
    else
        network.managed = Managed{table.text("connection").value_or("")};
    if (kind == BearerKind::kLink && network.interface.empty())
        table.fault("a network needs an interface");
}

Network read_network(ConfigTable& table) {
    Network network;
    const bool pdp = table.choice("kind", {"pdp", "wlan"}).value_or(0) == 0;
    network.kind = pdp ? NETCM_IFACE_PDP : NETCM_IFACE_WIFI;
    table.refuse(pdp ? "essid" : "apn", pdp ? " needs kind = \"wlan\"" : " needs kind = \"pdp\"");
    network.access_point = table.text(pdp ? "apn" : "essid").value_or("");
    network.dns = table.addresses("dns");
    read_bearer(table, network);
    return network;
}

toml::table parse(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw ConfigError(path + ": cannot be read");
    try {
        return toml::parse(file, path);
    } catch (const toml::parse_error& error) {
        ConfigFaults faults(path);
        faults.add(error.source(), std::string(error.description()));
        faults.raise();
        throw;  // not reached: for the compiler
    }
}

}  // namespace

Config built_in_config() {
    Config config;
    FactoryProfile profile;
    NetPMProfile& record = profile.record;
    put_text(record.ProfileName, "local");
    put_text(record.ProxyAddr, "0.0.0.0:80");
    put_text(record.PdpProfInfo.Apn, "local");
    record.PdpProfInfo.AppProtoType = 1;
    config.profiles.push_back(profile);
    config.networks.push_back({NETCM_IFACE_PDP, "", "lo", {}, {}, {}, 0});
    return config;
}

Config read_config(const std::string& path) {
    const toml::table root = parse(path);
    ConfigFaults faults(path);
    ConfigTable table(root, faults);
    Config config;
    config.dns = table.addresses("dns");
    config.set_up_limit = milliseconds(table, "set-up-limit").value_or(config.set_up_limit);
    config.good_copy_after = milliseconds(table, "good-copy-after").value_or(config.good_copy_after);
    table.tables("network", [&](ConfigTable& entry) { config.networks.push_back(read_network(entry)); });
    if (const auto level = table.choice("log-level", {"error", "warning", "info", "debug"}))
        config.log_level = static_cast<log::Level>(*level);
    table.table("limits", [&](ConfigTable& entry) { config.limits = read_limits(entry); });
    read_profiles(table, config);
    table.finish();
    faults.raise();
    config.has_profiles = !config.profiles.empty();
    const Config built_in = built_in_config();
    if (config.profiles.empty())
        config.profiles = built_in.profiles;
    if (config.networks.empty())
        config.networks = built_in.networks;
    return config;
}

Network network_of(const Config& config, const Profile& profile) {
    Network result;
    const auto fits = [&](const Network& network) {
        return network.kind == profile.kind &&
               (network.access_point.empty() || network.access_point == profile.access_point);
    };
    if (const auto found = std::ranges::find_if(config.networks, fits); found != config.networks.end())
        result = *found;
    result.profile = profile.id;
    if (!profile.interface.empty()) {
        result.interface = profile.interface;
        result.simulation.reset();
    }
    if (!profile.dns.empty())
        result.dns = profile.dns;
    if (result.dns.empty() && !result.managed)
        result.dns = config.dns.empty() ? system_name_servers() : config.dns;
    return result;
}

std::vector<in_addr> system_name_servers(const std::string& path) {
    // A file that cannot be looked at now says nothing about its content.
    static std::map<std::string, std::vector<in_addr>> known;
    std::vector<in_addr> servers;
    errno = 0;
    std::ifstream file(path);
    if (!file && errno != ENOENT)
        return known[path];
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        in_addr address{};
        if (words >> key >> value && key == "nameserver" && inet_pton(AF_INET, value.c_str(), &address) == 1)
            servers.push_back(address);
    }
    known[path] = servers;
    return servers;
}

}  // namespace quorvel::cm
