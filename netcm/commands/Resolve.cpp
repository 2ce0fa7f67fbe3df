// netcm resolve
#include <unistd.h>

#include <cstdio>

#include "../Command.h"
#include "../Status.h"
#include "../resolve/Background.h"
#include "../resolve/Lookup.h"

namespace quorvel::netcm {
namespace {

struct ResolveOptions {
    std::vector<std::string> names;
    std::string reverse;
    int32_t profile = 0;
    bool in_background = false;
    NameServers servers;

    void define(CLI::App& command) {
        CLI::Option* name = command.add_option("NAME", names, "Host names")->type_name("");
        CLI::Option* address = command.add_option("--reverse", reverse, "Find the name of this address")
                                   ->type_name("ADDRESS")
                                   ->check(CLI::ValidIPV4.description(""))
                                   ->excludes(name);
        CLI::Option* over =
            command.add_option("--profile", profile, "Over this profile; 0 or nothing for the default")
                ->type_name("PROFILE")
                ->check(CLI::Range(0, kLargestId));
        CLI::Option* background = command.add_flag("--async", in_background, "Resolve all names at once");
        background->excludes(address);
        CLI::Option* server =
            command.add_option("--server", servers.addresses, "Ask this DNS server; no profile is opened")
                ->type_name("ADDRESS")
                ->expected(1)
                ->allow_extra_args(false)
                ->check(CLI::ValidIPV4.description(""))
                ->excludes(over)
                ->excludes(background);
        command.add_option("--interface", servers.interface, "Ask over this network interface")
            ->type_name("INTERFACE")
            ->needs(server);
    }
};

// On a terminal, how far it is, below what has been printed.
class ProgressLine {
  public:
    void show(Progress progress) {
        if (shown_ && progress.done < progress.all) {
            std::fprintf(stderr, "%zu of %zu names", progress.done, progress.all);
        }
    }
    void clear() {
        if (shown_) {
            std::fputs("\r\033[K", stderr);
        }
    }

  private:
    bool shown_ = isatty(STDERR_FILENO) == 1;
};

class Report {
  public:
    explicit Report(Printer printer) : printer_(printer) {}

    void add(const Answer& answer) {
        printer_.record(to_json(answer));
        failed_ += answer.error.empty() ? 0 : 1;
        ++all_;
    }
    void require_all() const {
        if (failed_ > 0) {
            throw Failure(std::to_string(failed_) + " of " + std::to_string(all_) + " not resolved");
        }
    }

  private:
    Printer printer_;
    size_t failed_ = 0;
    size_t all_ = 0;
};

void resolve_one_by_one(const ResolveOptions& options, const NameServers& servers, Report& report,
                        const std::function<bool()>& go_on) {
    if (!options.reverse.empty()) {
        report.add(look_up_address(servers, options.reverse));
    }
    for (const std::string& name : options.names) {
        if (go_on()) {
            report.add(look_up(servers, name));
        }
    }
}

void resolve_at_once(const ResolveOptions& options, int32_t profile, Report& report,
                     const std::function<bool()>& go_on) {
    ProgressLine line;
    line.show({0, options.names.size()});
    const auto answered = [&](const Answer& answer, Progress progress) {
        line.clear();
        report.add(answer);
        line.show(progress);
    };
    look_up_in_background(profile, options.names, answered, go_on);
    line.clear();
}

void resolve_over_profile(const ResolveOptions& options, Report& report) {
    Session session;
    const std::optional<Event> response = session.open(options.profile, forget);
    if (!response) {
        throw Failure("interrupted before the connection was up");
    }
    const Json connection = to_json(std::get<NetCMConnInfo>(response->data));
    const auto go_on = [&session] { return !session.interrupted(); };
    if (options.in_background) {
        resolve_at_once(options, response->profile, report, go_on);
    } else {
        resolve_one_by_one(options, {connection["dns_servers"], connection["interface"]}, report, go_on);
    }
    session.end(forget);
    if (session.interrupted()) {
        throw Failure("interrupted");
    }
}

void run_resolve(const CommonOptions& common, const ResolveOptions& options) {
    if (options.names.empty() && options.reverse.empty()) {
        throw CLI::RequiredError("NAME or --reverse");
    }
    Report report(common.printer());
    if (options.servers.addresses.empty()) {
        resolve_over_profile(options, report);
    } else {
        resolve_one_by_one(options, options.servers, report, [] { return true; });
    }
    report.require_all();
}

}  // namespace

void add_resolve_command(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "resolve", "Resolve host names over a profile's connection", run_resolve)
        ->footer(
            "Opens the profile, and asks its DNS servers over its interface; a name that has been asked "
            "before\n"
            "comes from the cache. With --async the library tells neither the server nor the life time "
            "(TTL).");
}

}  // namespace quorvel::netcm
