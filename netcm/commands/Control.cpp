// netcm status, interfaces, settings, packet-data
#include <quorvel/NetCM.h>

#include <array>

#include "../Command.h"
#include "../ServerWords.h"
#include "../Status.h"

namespace quorvel::netcm {
namespace {

constexpr std::array<uint32_t, 2> kBothInterfaces{NETCM_IFACE_PDP, NETCM_IFACE_WIFI};

struct InterfaceChoice {
    uint32_t interface = 0;

    void define(CLI::App& command) { add_interface(command, "INTERFACE", interface, "Only this interface"); }
    bool includes(uint32_t other) const { return interface == 0 || interface == other; }
};

void run_status(const CommonOptions& common, const InterfaceChoice& choice) {
    Session session;
    Json list = Json::array();
    for (const uint32_t interface : kBothInterfaces) {
        if (choice.includes(interface)) {
            uint32_t status = 0;
            require_success(NetCMGetNetworkStatus(interface, &status), "cannot read the network's status");
            list.push_back({{"interface", interface_name(interface)}, {"status", status}});
            if (const char* meaning = network_status_text(status)) {
                list.back()["meaning"] = meaning;
            }
        }
    }
    common.printer().result(list);
    session.end(forget);
}

void run_interfaces(const CommonOptions& common, const NoOptions&) {
    Session session;
    int32_t mask = 0;
    require_success(NetCMGetNetIfaceList(&mask), "cannot list the interfaces");
    Json list = Json::array();
    for (const uint32_t interface : kBothInterfaces) {
        const bool available = (static_cast<uint32_t>(mask) & interface) != 0;
        list.push_back({{"interface", interface_name(interface)}, {"available", available}});
    }
    common.printer().result(list);
    session.end(forget);
}

constexpr uint32_t kLargestKey = 4;

CLI::Option* add_key(CLI::App& command, std::optional<uint32_t>& key) {
    return command.add_option("KEY", key, "Settings key, 0 to 4")
        ->type_name("")
        ->check(CLI::Range(0u, kLargestKey));
}

// The settings functions answer 1 or 0 with the status beside it; only a broken link is a status of theirs.
uint32_t settings_status(uint32_t answer, uint32_t result) {
    constexpr uint32_t kDone = 1;
    if (answer == kDone) {
        return NETCM_SUCCESS;
    }
    return answer == NETCM_ERR_REREGISTER_FAILED ? answer : result;
}

Json read_setting(uint32_t key) {
    uint32_t value = 0;
    uint32_t result = NETCM_ERR_FAILURE;
    const uint32_t answer = NetCMSettingsGet(key, &value, &result);
    require_success(settings_status(answer, result), "cannot read setting " + std::to_string(key));
    return {{"key", key}, {"value", value}};
}

struct SettingsGetOptions {
    std::optional<uint32_t> key;

    void define(CLI::App& command) { add_key(command, key); }
};

void run_settings_get(const CommonOptions& common, const SettingsGetOptions& options) {
    Session session;
    if (options.key) {
        common.printer().result(read_setting(*options.key));
    } else {
        Json list = Json::array();
        for (uint32_t key = 0; key <= kLargestKey; ++key) {
            list.push_back(read_setting(key));
        }
        common.printer().result(list);
    }
    session.end(forget);
}

struct SettingsSetOptions {
    std::optional<uint32_t> key;
    uint32_t value = 0;

    void define(CLI::App& command) {
        add_key(command, key)->required();
        command.add_option("VALUE", value, "Its new value, 0 to 4294967295")->type_name("")->required();
    }
};

void run_settings_set(const CommonOptions& common, const SettingsSetOptions& options) {
    Session session;
    uint32_t value = options.value;
    uint32_t result = NETCM_ERR_FAILURE;
    const uint32_t answer = NetCMSettingsSet(*options.key, &value, &result);
    require_success(settings_status(answer, result), "cannot change setting " + std::to_string(*options.key));
    common.printer().result(read_setting(*options.key));
    session.end(forget);
}

constexpr const char* kNeedsConnection =
    "Packet data belongs to a connection of this process: name a profile to open first with --open.";

struct PacketDataOptions {
    std::optional<int32_t> open_first;

    void define(CLI::App& command) {
        command.add_option("--open", open_first, "Open this profile first; 0 for the default profile")
            ->type_name("PROFILE")
            ->check(CLI::Range(0, kLargestId));
    }

    void open_with(const CommonOptions& common, Session& session) const {
        if (open_first) {
            open(common, session, *open_first);
        }
    }
};

void print_packet_data_state(const CommonOptions& common) {
    uint32_t state = 0;
    require_success(NetCMGetPacketDataState(&state), "cannot read the packet-data state", kNeedsConnection);
    common.printer().result({{"packet_data_state", state}});
}

void run_packet_data_get(const CommonOptions& common, const PacketDataOptions& options) {
    Session session;
    options.open_with(common, session);
    print_packet_data_state(common);
    session.end(forget);
}

struct PacketDataSetOptions : PacketDataOptions {
    uint32_t state = 0;

    void define(CLI::App& command) {
        command.add_option("STATE", state, "The new state, 1 to 3")
            ->type_name("")
            ->required()
            ->check(CLI::Range(1u, 3u));
        PacketDataOptions::define(command);
    }
};

void run_packet_data_set(const CommonOptions& common, const PacketDataSetOptions& options) {
    Session session;
    options.open_with(common, session);
    require_success(NetCMSetPacketDataState(options.state), "cannot set the packet-data state",
                    kNeedsConnection);
    print_packet_data_state(common);
    session.end(forget);
}

void add_settings_commands(CLI::App& app, const CommonOptions& common) {
    CLI::App* settings = app.add_subcommand("settings", "Read and change the CM server's settings");
    settings->require_subcommand(1);
    settings->footer("What the values of a key mean is the CM server's affair.");
    add_command(*settings, common, "get", "Print one setting, or all", run_settings_get);
    add_command(*settings, common, "set", "Change a setting, and print it as it is now", run_settings_set);
}

void add_packet_data_commands(CLI::App& app, const CommonOptions& common) {
    CLI::App* packet_data = app.add_subcommand("packet-data", "Read and change the packet-data state");
    packet_data->require_subcommand(1);
    packet_data->footer(kNeedsConnection);
    add_command(*packet_data, common, "get", "Print the state", run_packet_data_get);
    add_command(*packet_data, common, "set", "Change the state, and print it as it is now",
                run_packet_data_set);
}

}  // namespace

void add_control_commands(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "status", "Print the network's status for each interface", run_status);
    add_command(app, common, "interfaces", "Print which network interfaces are available", run_interfaces);
    add_settings_commands(app, common);
    add_packet_data_commands(app, common);
}

}  // namespace quorvel::netcm
