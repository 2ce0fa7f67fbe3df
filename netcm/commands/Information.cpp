// netcm list, stats, info
#include <quorvel/NetCM.h>

#include <array>
#include <vector>

#include "../Command.h"
#include "../Lists.h"
#include "../ServerWords.h"
#include "../Status.h"

namespace quorvel::netcm {
namespace {

struct ListOptions {
    std::string what = "all";
    uint32_t interface = 0;

    void define(CLI::App& command) {
        command.add_option("WHAT", what, "What to list (all)")
            ->type_name("ids|names|connections|all")
            ->check(CLI::IsMember({"ids", "names", "connections", "all"}).description(""));
        add_interface(command, "--interface", interface, "Only the connections of this interface");
    }
};

Json connections_of(uint32_t interface) {
    if (interface != 0) {
        return active_connections(interface);
    }
    Json list = active_connections(NETCM_IFACE_PDP);
    for (const Json& connection : active_connections(NETCM_IFACE_WIFI)) {
        list.push_back(connection);
    }
    return list;
}

void run_list(const CommonOptions& common, const ListOptions& options) {
    Session session;
    Json lists = Json::object();
    const auto wanted = [&](const char* what) { return options.what == what || options.what == "all"; };
    if (wanted("ids")) {
        lists["ids"] = active_ids();
    }
    if (wanted("names")) {
        lists["names"] = active_names();
    }
    if (wanted("connections")) {
        lists["connections"] = connections_of(options.interface);
    }
    common.printer().result(options.what == "all" ? lists : lists[options.what]);
    session.end(forget);
}

struct StatsOptions {
    std::optional<uint32_t> reset;

    void define(CLI::App& command) {
        // What a level means is the server's affair; these are the words for cm-server's.
        const NamedNumbers levels{
            {"all", 0}, {"bytes", 1}, {"packets", 2}, {"errors", 3}, {"bytes-and-packets", 4}};
        command
            .add_option("--reset", reset,
                        "Reset these counters first: all (0), bytes (1), packets (2), errors (3) or "
                        "bytes-and-packets (4)")
            ->transform(one_of(levels))
            ->type_name("WHICH")
            ->expected(0, 1)
            ->default_str("all");
    }
};

void run_stats(const CommonOptions& common, const StatsOptions& options) {
    Session session;
    if (options.reset) {
        require_success(NetCMResetStatInfo(*options.reset), "cannot reset the statistics");
    }
    std::array<uint32_t, kCounterNames.size()> counters{};
    require_success(NetCMGetStatInfo(counters.data()), "cannot read the statistics");
    Json statistics;
    for (size_t i = 0; i < counters.size(); ++i) {
        statistics[kCounterNames[i]] = counters[i];
    }
    common.printer().result(statistics);
    session.end(forget);
}

struct InfoOptions {
    int32_t profile = 0;
    bool open_first = false;

    void define(CLI::App& command) {
        add_profile(command, profile);
        command.add_flag("--open", open_first, "Open the profile first");
    }
};

void run_info(const CommonOptions& common, const InfoOptions& options) {
    const std::string what = "no details of profile " + std::to_string(options.profile);
    Session session;
    if (options.open_first) {
        open(common, session, options.profile);
    }
    NetCMConnInfo info{};
    require_success(
        NetCMDeviceGetInfo(options.profile, &info), what,
        "A process knows the details of its own connections only: open the profile here with --open.");
    common.printer().result(to_json(info));
    session.end(forget);
}

}  // namespace

void add_information_commands(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "list", "List the active profiles and connections of the device", run_list);
    add_command(app, common, "stats", "Print the call statistics", run_stats);
    add_command(app, common, "info", "Print the details of a connection of this process", run_info);
}

}  // namespace quorvel::netcm
