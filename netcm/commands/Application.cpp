// netcm app
#include <quorvel/NetPM.h>

#include "../Command.h"
#include "../Status.h"

namespace quorvel::netcm {
namespace {

std::string of_application(const char* what, int32_t app) {
    return std::string(what) + " application " + std::to_string(app);
}

struct AppOption {
    int32_t app = 0;

    void define(CLI::App& command) {
        command.add_option("APPLICATION", app, "Application id")
            ->type_name("")
            ->required()
            ->check(CLI::Range(1, kLargestId));
    }
};

// The library tells no more than that it was not done.
void require_done(uint32_t answer, const std::string& what) {
    if (answer != 1) {
        throw Failure(what + ": refused, or the CM server could not be asked");
    }
}

void run_add_application(const CommonOptions& common, const AppOption& options) {
    Session session;
    require_done(NetPMAppProfAddAppId(options.app), of_application("cannot add", options.app));
    common.printer().result({{"app_id", options.app}});
    session.end(forget);
}

void run_delete_application(const CommonOptions& common, const AppOption& options) {
    Session session;
    require_done(NetPMAppProfDeleteAppId(options.app), of_application("cannot delete", options.app));
    common.printer().result({{"app_id", options.app}});
    session.end(forget);
}

void run_check(const CommonOptions& common, const AppOption& options) {
    Session session;
    const bool known = NetPMAppProfCheckAppId(options.app) == 1;
    common.printer().result({{"app_id", options.app}, {"known", known}});
    session.end(forget);
}

Json interfaces_to_json(const uint32_t (&list)[2]) {
    Json interfaces = Json::array();
    for (const uint32_t interface : list) {
        if (interface != 0) {
            interfaces.push_back(interface_name(interface));
        }
    }
    return interfaces;
}

Json binding_to_json(const NetPMAppProf& binding) {
    Json out{{"app_id", binding.AppId}, {"profile_id", nullptr}};
    if (binding.ProfileId != 0) {
        out["profile_id"] = binding.ProfileId;
    }
    out["interfaces"] = interfaces_to_json(binding.NetIfaceList);
    return out;
}

void print_binding(const CommonOptions& common, int32_t app) {
    NetPMAppProf binding{};
    require_success(NetPMAppProfGetAppInfo(app, &binding), of_application("cannot read the binding of", app));
    common.printer().result(binding_to_json(binding));
}

void run_show_application(const CommonOptions& common, const AppOption& options) {
    Session session;
    print_binding(common, options.app);
    session.end(forget);
}

struct BindOptions : AppOption {
    int32_t profile = 0;

    void define(CLI::App& command) {
        AppOption::define(command);
        add_profile(command, profile);
    }
};

void run_bind(const CommonOptions& common, const BindOptions& options) {
    Session session;
    require_success(NetPMAppProfSetProfId(options.app, options.profile),
                    of_application("cannot bind", options.app));
    print_binding(common, options.app);
    session.end(forget);
}

struct InterfacesOptions : AppOption {
    std::vector<uint32_t> interfaces;

    void define(CLI::App& command) {
        AppOption::define(command);
        add_interface(command, "INTERFACE", interfaces, "The interfaces that it may use from now on")
            ->expected(0, 2);
    }
};

void run_application_interfaces(const CommonOptions& common, const InterfacesOptions& options) {
    Session session;
    uint32_t list[2]{};
    if (!options.interfaces.empty()) {
        std::ranges::copy(options.interfaces, list);
        require_success(NetPMAppProfSetNetIfaceList(options.app, list),
                        of_application("cannot set the interfaces of", options.app));
    }
    require_success(NetPMAppProfGetAppNetIfaceList(options.app, list),
                    of_application("cannot read the interfaces of", options.app));
    common.printer().result({{"app_id", options.app}, {"interfaces", interfaces_to_json(list)}});
    session.end(forget);
}

struct ProperOptions : AppOption {
    bool as_event = false;

    void define(CLI::App& command) {
        AppOption::define(command);
        command.add_flag("--async", as_event, "Ask without waiting, and take the answer from an event");
    }
};

void print_proper_event(const CommonOptions& common, const ProperOptions& options, Session& session) {
    const std::string what = of_application("cannot ask for the profile of", options.app);
    require_success(NetPMAppProfGetProperProfileAsync(options.app), what);
    const EventTest is_answer = [&](const Event& event) {
        const auto* proper = std::get_if<ProperProfile>(&event.data);
        return proper != nullptr && proper->app_id == options.app;
    };
    const Event event = await(common, session, is_answer, "proper-profile response");
    common.printer().event(to_json(event));
    require_success(std::get<ProperProfile>(event.data).status, what);
}

void run_proper(const CommonOptions& common, const ProperOptions& options) {
    Session session;
    if (options.as_event) {
        print_proper_event(common, options, session);
    } else {
        uint32_t profile = 0;
        require_success(NetPMAppProfGetProperProfile(options.app, &profile),
                        of_application("cannot read the profile of", options.app));
        common.printer().result({{"app_id", options.app}, {"profile_id", profile}});
    }
    session.end(forget);
}

struct PaymentOptions {
    std::string csc;
    std::string payment;

    void define(CLI::App& command) {
        command.add_option("CSC", csc, "Code of the country and the operator")
            ->type_name("VGR|VOD")
            ->required()
            ->check(CLI::IsMember({"VGR", "VOD"}).description(""));
        command.add_option("PAYMENT", payment, "Paid before or after use")
            ->type_name("PRE|POST")
            ->required()
            ->check(CLI::IsMember({"PRE", "POST"}).description(""));
    }
};

void run_payment(const CommonOptions& common, const PaymentOptions& options) {
    Session session;
    require_success(NetPMAppProfChangePayment(options.csc.c_str(), options.payment.c_str()),
                    "cannot change the payment setting");
    common.printer().result({{"csc", options.csc}, {"payment", options.payment}});
    session.end(forget);
}

}  // namespace

void add_application_commands(CLI::App& app, const CommonOptions& common) {
    CLI::App* application = app.add_subcommand("app", "Bind applications to profiles");
    application->require_subcommand(1);
    add_command(*application, common, "add", "Make an application known", run_add_application);
    add_command(*application, common, "delete", "Forget an application", run_delete_application);
    add_command(*application, common, "check", "Print whether an application is known", run_check);
    add_command(*application, common, "show", "Print an application's profile and interfaces",
                run_show_application);
    add_command(*application, common, "bind", "Bind an application to a profile", run_bind);
    add_command(*application, common, "interfaces", "Print, or set and print, the interfaces it may use",
                run_application_interfaces);
    add_command(*application, common, "proper", "Print the profile that an application is to use now",
                run_proper);
    add_command(*application, common, "payment", "Change the payment setting of the device", run_payment);
}

}  // namespace quorvel::netcm
