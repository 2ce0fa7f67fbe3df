// netcm resolve
#include <unistd.h>

#include <cstdio>

#include "../Command.h"
#include "../Status.h"
#include "../TimeLimit.h"
#include "../resolve/Background.h"
#include "../resolve/Inbox.h"
#include "../resolve/Lookup.h"
#include "../resolve/Names.h"

namespace quorvel::netcm {
namespace {

struct ResolveOptions {
    std::vector<std::string> names;
    std::string reverse;
    std::optional<int32_t> profile;
    bool at_once = false;
    NameServers given;  // by --server and --interface

    void define(CLI::App& command) {
        CLI::Option* name = command.add_option("NAME", names, "Host names")->type_name("");
        command.add_option("--reverse", reverse, "Find the name of this address")
            ->type_name("ADDRESS")
            ->check(CLI::ValidIPV4.description(""))
            ->excludes(name);
        command.add_option("--profile", profile, "Over this profile; 0 or nothing for the default")
            ->type_name("PROFILE")
            ->check(CLI::Range(0, kLargestId));
        command.add_flag("--async", at_once, "Resolve all names at once");
        command
            .add_option("--server", given.addresses,
                        "Ask this DNS server in place of the profile's; may be repeated")
            ->type_name("ADDRESS")
            ->expected(-1)
            ->allow_extra_args(false)
            ->check(CLI::ValidIPV4.description(""));
        command.add_option("--interface", given.interface, "With --server, ask over this network interface")
            ->type_name("INTERFACE");
    }

    bool needs_profile() const { return given.addresses.empty() || profile; }

    // Throws for what cannot be meant.
    void require_sense() const {
        if (names.empty() && reverse.empty()) {
            throw CLI::RequiredError("NAME or --reverse");
        }
        if (at_once && !reverse.empty()) {
            throw CLI::ValidationError("--async", "with --reverse there is one address only");
        }
        if (!given.interface.empty() && needs_profile()) {
            throw CLI::ValidationError(
                "--interface", profile ? "the profile's own interface is used; leave --profile or this away"
                                       : "without --server the profile's own interface is used");
        }
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

void resolve_one_by_one(const NameServers& servers, const ResolveOptions& options, Report& report,
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

// `look_up` is one of the two ways to look many names up.
template <class LookUp>
void resolve_at_once(const std::vector<std::string>& names, Report& report, LookUp look_up) {
    ProgressLine line;
    line.show({0, names.size()});
    look_up(names, [&](const Answer& answer, Progress progress) {
        line.clear();
        report.add(answer);
        line.show(progress);
    });
    line.clear();
}

void resolve_from(const NameServers& servers, const ResolveOptions& options, Report& report,
                  const std::function<bool()>& go_on) {
    if (!options.at_once) {
        resolve_one_by_one(servers, options, report, go_on);
        return;
    }
    resolve_at_once(options.names, report, [&servers](const auto& names, const OnAnswer& answered) {
        look_up_on_own_threads(servers, names, answered);
    });
}

// From the profile's servers, or from those given, over the profile's interface.
void resolve_over(const Event& opened, const ResolveOptions& options, Report& report,
                  const std::function<bool()>& go_on) {
    const Json connection = to_json(std::get<NetCMConnInfo>(opened.data));
    const NameServers own{connection["dns_servers"], connection["interface"]};
    if (!options.given.addresses.empty()) {
        resolve_from({options.given.addresses, own.interface}, options, report, go_on);
    } else if (options.at_once) {
        resolve_at_once(options.names, report, [&](const auto& names, const OnAnswer& answered) {
            look_up_in_background(opened.profile, own, names, answered);
        });
    } else {
        resolve_from(own, options, report, go_on);
    }
}

void resolve_over_profile(const CommonOptions& common, const ResolveOptions& options, Report& report) {
    Session session([] { inbox().interrupt(); });
    const Event opened = open(common, session, options.profile.value_or(0));
    stop_time_limit();
    resolve_over(opened, options, report, [&session] { return !session.interrupted(); });
    session.end(forget);
    if (session.interrupted()) {
        throw Failure("interrupted");
    }
}

// What the library never takes over a profile is answered before anything else is done.
void refuse_invalid(std::vector<std::string>& names, Report& report) {
    std::erase_if(names, [&report](const std::string& name) {
        if (is_valid_name(name)) {
            return false;
        }
        Answer answer;
        answer.asked = name;
        answer.error = "the name is not valid: it takes letters, digits, \"-\" and \".\"";
        report.add(answer);
        return true;
    });
}

void run_resolve(const CommonOptions& common, const ResolveOptions& asked) {
    asked.require_sense();
    ResolveOptions options = asked;
    Report report(common.printer());
    if (options.given.addresses.empty()) {
        refuse_invalid(options.names, report);
    }
    if (!options.needs_profile()) {
        resolve_from(options.given, options, report, [] { return true; });
    } else if (!options.names.empty() || !options.reverse.empty()) {
        resolve_over_profile(common, options, report);
    }
    report.require_all();
}

}  // namespace

void add_resolve_command(CLI::App& app, const CommonOptions& common) {
    add_command(app, common, "resolve", "Resolve host names over a profile's connection", run_resolve)
        ->footer(
            "Opens the profile, and asks its DNS servers over its interface; a name that has been asked "
            "before\n"
            "comes from the cache. With --server that server is asked instead: over the profile's interface "
            "when\n"
            "--profile is given too, else without any profile. --async looks up to ten names up at a time; "
            "over a\n"
            "profile's own servers the library then keeps the life time (TTL) to itself, and which of two "
            "servers\n"
            "has answered. --interface goes with --server alone, and --async not with --reverse.");
}

}  // namespace quorvel::netcm
