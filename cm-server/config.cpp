#include "config.h"

#include <arpa/inet.h>

#include <fstream>
#include <sstream>

#include "config_reader.h"

namespace quorvel::cm {
namespace {

Profile read_profile(ConfigTable& table, int32_t id) {
    Profile profile;
    profile.id = id;
    profile.name = table.text("name").value_or("");
    if (profile.name.empty())
        table.fault("a profile needs a name");
    profile.kind =
        table.choice("kind", {"pdp", "wlan"}).value_or(0) == 0 ? NETCM_IFACE_PDP : NETCM_IFACE_WIFI;
    const char* access_point = profile.kind == NETCM_IFACE_PDP ? "apn" : "essid";
    profile.access_point = table.text(access_point).value_or("");
    profile.interface = table.text("interface").value_or("");
    profile.dns = table.addresses("dns");
    return profile;
}

void read_profiles(ConfigTable& root, Config& config) {
    root.tables("profile", [&](ConfigTable& table) {
        const auto id = static_cast<int32_t>(config.profiles.size() + 1);
        config.profiles.push_back(read_profile(table, id));
        if (!table.flag("default").value_or(false))
            return;
        if (config.default_profile != 0)
            table.fault("there is a default profile already");
        config.default_profile = id;
    });
    if (config.default_profile == 0)
        config.default_profile = 1;
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
        throw;
    }
}

}  // namespace

Config built_in_config() {
    Config config;
    Profile profile;
    profile.id = config.default_profile = 1;
    profile.name = "local";
    profile.access_point = "local";
    profile.interface = "lo";
    config.profiles.push_back(profile);
    return config;
}

Config read_config(const std::string& path) {
    const toml::table root = parse(path);
    ConfigFaults faults(path);
    ConfigTable table(root, faults);
    Config config;
    config.dns = table.addresses("dns");
    config.packet_data_interface = table.text("packet-data-interface").value_or(config.packet_data_interface);
    read_profiles(table, config);
    table.finish();
    faults.raise();
    if (config.profiles.empty())
        config.profiles = built_in_config().profiles;
    return config;
}

std::vector<in_addr> system_name_servers(const std::string& path) {
    std::vector<in_addr> servers;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        in_addr address{};
        if (words >> key >> value && key == "nameserver" && inet_pton(AF_INET, value.c_str(), &address) == 1)
            servers.push_back(address);
    }
    return servers;
}

}  // namespace quorvel::cm
