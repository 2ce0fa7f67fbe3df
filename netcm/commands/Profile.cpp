// netcm profile
#include <quorvel/NetPM.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "../Command.h"
#include "../JsonText.h"
#include "../Status.h"
#include "../profile/Fields.h"
#include "../profile/Record.h"

namespace quorvel::netcm {
namespace {

std::string of_profile(const char* what, int32_t profile) {
    return std::string(what) + " profile " + std::to_string(profile);
}

struct ProfileOption {
    int32_t profile = 0;

    void define(CLI::App& command) { add_profile(command, profile); }
};

// Not every command needs one.
struct OptionalProfile {
    std::optional<int32_t> profile;

    void define(CLI::App& command) {
        command.add_option("PROFILE", profile, "Profile id")->type_name("")->check(CLI::Range(1, kLargestId));
    }
};

// ---- list -----------------------------------------------------------------------------------------------

int32_t default_profile() {
    int32_t profile = 0;
    require_success(NetPMGetDefaultProfileId(&profile), "cannot read the default profile's id");
    return profile;
}

// Nothing may be the default; that is no reason not to list the others.
int32_t default_profile_or_none() {
    int32_t profile = 0;
    return NetPMGetDefaultProfileId(&profile) == 0 ? profile : 0;
}

template <size_t N>
std::string text_of(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

// The CM server lists no more at a time, and does not say whether there are.
void warn_of_more(uint32_t type, int32_t count, int32_t most) {
    if (count >= most) {
        std::fprintf(stderr,
                     "netcm: these are %d %s profiles, as many as are listed at a time; there may be more\n",
                     most, type == NETPM_PROFILE_WLAN ? "wlan" : "pdp");
    }
}

void append_profiles(Json& list, uint32_t type, int32_t default_id) {
    std::array<NetPMPartialProfile, NETPM_MAX_PARTIAL_PROFILES> profiles{};
    static_assert(sizeof profiles >= NETPM_LIST_ROOM);
    int32_t count = 0;
    require_success(NetPMReadPartialProfileInfo(type, profiles.data(), &count), "cannot list the profiles");
    count = std::clamp(count, 0, NETPM_MAX_PARTIAL_PROFILES);
    warn_of_more(type, count, NETPM_MAX_PARTIAL_PROFILES);
    for (const NetPMPartialProfile& profile : std::span(profiles).first(static_cast<size_t>(count))) {
        list.push_back({{"profile_id", profile.ProfileId},
                        {"type", profile.ProfileType == NETPM_PROFILE_WLAN ? "wlan" : "pdp"},
                        {"name", text_to_json(text_of(profile.ProfileName))},
                        {"network", text_to_json(text_of(profile.NetworkName))},
                        {"default", profile.ProfileId == default_id}});
    }
}

Json profile_ids(uint32_t type) {
    std::array<int32_t, NETPM_MAX_PROFILE_IDS> ids{};
    int32_t count = 0;
    const auto room = static_cast<int32_t>(ids.size());
    require_success(NetPMGetProfileIdList(type, room, ids.data(), &count), "cannot list the profiles' ids");
    count = std::clamp(count, 0, room);
    warn_of_more(type, count, room);
    return std::vector(ids.begin(), ids.begin() + count);
}

struct ProfileListOptions {
    std::string type = "all";
    bool ids_only = false;

    void define(CLI::App& command) {
        command.add_option("--type", type, "Only profiles of this type")
            ->type_name("pdp|wlan|all")
            ->check(CLI::IsMember({"pdp", "wlan", "all"}).description(""));
        command.add_flag("--ids", ids_only, "Only the ids");
    }
};

void run_list_profiles(const CommonOptions& common, const ProfileListOptions& options) {
    Session session;
    Json list = Json::array();
    const int32_t default_id = options.ids_only ? 0 : default_profile_or_none();
    for (const auto& [name, type] :
         {std::pair("pdp", NETPM_PROFILE_PDP), std::pair("wlan", NETPM_PROFILE_WLAN)}) {
        if (options.type != name && options.type != "all") {
            continue;
        }
        if (options.ids_only) {
            const Json ids = profile_ids(type);
            list.insert(list.end(), ids.begin(), ids.end());
        } else {
            append_profiles(list, type, default_id);
        }
    }
    common.printer().result(list);
    session.end(forget);
}

// ---- show -----------------------------------------------------------------------------------------------

NetPMProfile read_profile(int32_t profile) {
    NetPMProfile record{};
    require_success(NetPMGetProfileInfo(profile, &record), of_profile("cannot read", profile));
    return record;
}

NetPMProfile read_default_profile() {
    NetPMProfile record{};
    require_success(NetPMGetDefaultProfileInfo(&record), "cannot read the default profile");
    return record;
}

struct ShowOptions : OptionalProfile {
    bool show_secrets = false;

    void define(CLI::App& command) {
        OptionalProfile::define(command);
        command.add_flag("--show-secrets", show_secrets, "Print passwords and keys, not asterisks");
    }
};

void run_show_profile(const CommonOptions& common, const ShowOptions& options) {
    Session session;
    const NetPMProfile record = options.profile ? read_profile(*options.profile) : read_default_profile();
    common.printer().result(to_json(record, options.show_secrets ? Secrets::kShow : Secrets::kMask));
    session.end(forget);
}

// ---- add, edit, delete ----------------------------------------------------------------------------------

std::string option_name(std::string key) {
    std::ranges::replace(key, '_', '-');
    return "--" + key;
}

const char* type_name(const Field& field) {
    switch (field.kind) {
        case Kind::kType:
            return "pdp|wlan";
        case Kind::kFlag:
            return "yes|no";
        case Kind::kAddress:
            return field.count > 1 ? "ADDRESS[,...]" : "ADDRESS";
        case Kind::kText:
        case Kind::kProxy:
            return field.count > 1 ? "TEXT[,...]" : "TEXT";
        default:
            return "NUMBER";
    }
}

// Two types of profiles may have a field of the same name with different values.
std::string problem_with_option(const std::string& key, const std::string& text) {
    std::string complaint;
    for (const Field& field : profile_fields()) {
        if (key == field.key) {
            const std::string problem = problem_with(field, text);
            if (problem.empty()) {
                return "";
            }
            complaint = "\"" + printable(masked(field, text)) + "\" " + problem;
        }
    }
    return complaint;
}

Json read_json(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw Failure("cannot read " + path + ": " + std::strerror(errno));
    }
    const std::string text(std::istreambuf_iterator<char>(file), {});
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        // The parser's own words quote what they stumble over, and that may be a password.
        const auto before = std::string_view(text).substr(0, error.byte);
        throw Failure(path + " is no JSON: see line " + std::to_string(1 + std::ranges::count(before, '\n')));
    }
}

struct FieldOptions {
    FieldValues given;
    std::string file;

    void define(CLI::App& command) {
        command.add_option("--file", file, "Read a JSON object, as `profile show --json` prints it")
            ->type_name("FILE");
        for (const Field& field : profile_fields()) {
            if (!given.contains(field.key)) {
                define_field(command, field);
            }
        }
    }

    // An option outdoes the file.
    FieldValues values() const {
        FieldValues values = file.empty() ? FieldValues() : values_from_json(read_json(file));
        for (const auto& [key, texts] : given) {
            if (!texts.empty()) {
                values[key] = texts;
            }
        }
        return values;
    }

  private:
    void define_field(CLI::App& command, const Field& field) {
        const std::string key = field.key;
        CLI::Option* option =
            command.add_option(option_name(key), given[key], field.help)
                ->type_name(type_name(field))
                ->allow_extra_args(false)
                ->check([key](const std::string& text) { return problem_with_option(key, text); });
        if (field.count > 1) {
            option->delimiter(',');
        } else {
            option->expected(1);
        }
    }
};

void run_add_profile(const CommonOptions& common, const FieldOptions& options) {
    NetPMProfile record = make_profile(options.values());
    Session session;
    int32_t profile = 0;
    require_success(NetPMAddProfileInfo(&record, &profile), "cannot add the profile");
    common.printer().result({{"profile_id", profile}});
    session.end(forget);
}

struct EditOptions : ProfileOption {
    FieldOptions fields;

    void define(CLI::App& command) {
        ProfileOption::define(command);
        fields.define(command);
    }
};

void run_edit(const CommonOptions& common, const EditOptions& options) {
    const FieldValues values = options.fields.values();
    if (values.empty()) {
        throw Failure("nothing to change: name fields, or a file with --file");
    }
    Session session;
    NetPMProfile record = read_profile(options.profile);
    change_profile(record, values);
    require_success(NetPMModifyProfileInfo(options.profile, &record),
                    of_profile("cannot change", options.profile));
    common.printer().result({{"profile_id", options.profile}});
    session.end(forget);
}

void run_delete_profile(const CommonOptions& common, const ProfileOption& options) {
    Session session;
    require_success(NetPMDeleteProfileInfo(options.profile), of_profile("cannot delete", options.profile));
    common.printer().result({{"profile_id", options.profile}});
    session.end(forget);
}

// ---- the rest -------------------------------------------------------------------------------------------

void run_default(const CommonOptions& common, const OptionalProfile& options) {
    Session session;
    if (options.profile) {
        require_success(NetPMSetDefaultProfileId(*options.profile),
                        of_profile("cannot make the default:", *options.profile));
    }
    common.printer().result({{"profile_id", default_profile()}});
    session.end(forget);
}

struct FindOptions {
    std::string apn;
    std::string essid;

    void define(CLI::App& command) {
        CLI::Option_group* key = command.add_option_group("key", "One of");
        key->add_option("--apn", apn, "Packet-data profiles with this access point")->type_name("APN");
        key->add_option("--essid", essid, "Wi-Fi profiles with this network name")->type_name("ESSID");
        key->require_option(1);
    }
};

void run_find_profiles(const CommonOptions& common, const FindOptions& options) {
    constexpr uint32_t kByEssid = 1;
    Session session;
    std::array<std::byte, NETPM_LIST_ROOM> room{};
    const uint32_t status = options.essid.empty()
                                ? NetPMGetProfileIdForAPN(options.apn.c_str(), room.data())
                                : NetPMGetFindProfileIds(kByEssid, options.essid.c_str(), room.data());
    require_success(status, "cannot find profiles");
    NetPMProfileIdList found{};
    std::memcpy(&found, room.data(), sizeof found);
    const auto count = static_cast<size_t>(std::clamp(found.Count, 0, NETPM_MAX_PROFILE_IDS));
    common.printer().result(std::vector(found.ProfileId, found.ProfileId + count));
    session.end(forget);
}

void run_restore(const CommonOptions& common, const NoOptions&) {
    Session session;
    require_success(NetPMRestoreProfileInfo(), "cannot restore the profiles");
    Json ids = profile_ids(NETPM_PROFILE_PDP);
    const Json wlan = profile_ids(NETPM_PROFILE_WLAN);
    ids.insert(ids.end(), wlan.begin(), wlan.end());
    common.printer().result(ids);
    session.end(forget);
}

void run_attributes(const CommonOptions& common, const ProfileOption& options) {
    Session session;
    uint32_t attributes = 0;
    require_success(NetPMGetProfileAttributes(options.profile, &attributes),
                    of_profile("cannot read the attributes of", options.profile));
    common.printer().result({{"profile_id", options.profile}, {"attributes", attributes}});
    session.end(forget);
}

void run_profile_status(const CommonOptions& common, const ProfileOption& options) {
    Session session;
    uint16_t status = 0;
    require_success(NetPMGetProfileStatus(options.profile, &status),
                    of_profile("cannot read the status of", options.profile));
    common.printer().result({{"profile_id", options.profile}, {"status", status}});
    session.end(forget);
}

}  // namespace

void add_profile_commands(CLI::App& app, const CommonOptions& common) {
    CLI::App* profile = app.add_subcommand("profile", "Keep the stored connection profiles");
    profile->require_subcommand(1);
    add_command(*profile, common, "list", "List the stored profiles", run_list_profiles);
    add_command(*profile, common, "show", "Print a profile, or the default one", run_show_profile);
    add_command(*profile, common, "add", "Add a profile, and print its id", run_add_profile)
        ->footer(
            "Everything is checked before it is sent. A password given as an option is seen by everyone who "
            "can\n"
            "list processes: --file /dev/stdin keeps it away from them.");
    add_command(*profile, common, "edit", "Change some fields of a profile", run_edit);
    add_command(*profile, common, "delete", "Delete a profile", run_delete_profile);
    add_command(*profile, common, "default",
                "Print the default profile's id, after making a profile the default", run_default);
    add_command(*profile, common, "find", "Find profiles by their network", run_find_profiles);
    add_command(*profile, common, "restore", "Put the profiles back to the factory's, and list their ids",
                run_restore)
        ->footer("All other profiles are lost.");
    add_command(*profile, common, "attributes", "Print the attribute bits of a profile", run_attributes);
    add_command(*profile, common, "status", "Print the status of a profile", run_profile_status);
}

}  // namespace quorvel::netcm
