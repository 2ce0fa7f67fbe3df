#include "Record.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "../JsonText.h"
#include "../Printer.h"
#include "../Status.h"
#include "Fields.h"

namespace quorvel::netcm {
namespace {

bool is_number(const Field& field) {
    return field.kind == Kind::kSigned || field.kind == Kind::kUnsigned || field.kind == Kind::kKeyIndex;
}

bool is_unset(const Field& field, const std::string& text) {
    return text.empty() || (field.kind == Kind::kAddress && text == "0.0.0.0");
}

Json value_to_json(const Field& field, const std::string& text, Secrets secrets) {
    if (field.kind == Kind::kFlag) {
        return text == "yes";
    }
    if (is_number(field)) {
        return Json::parse(text);
    }
    return text_to_json(secrets == Secrets::kMask ? masked(field, text) : text);
}

// Places at the end that are not set are not listed.
Json list_to_json(const NetPMProfile& profile, const Field& field, Secrets secrets) {
    Json list = Json::array();
    size_t used = 0;
    for (size_t i = 0; i < field.count; ++i) {
        const std::string text = read_field(profile, field, i);
        used = is_unset(field, text) ? used : i + 1;
        list.push_back(value_to_json(field, text, secrets));
    }
    list.erase(list.begin() + static_cast<Json::difference_type>(used), list.end());
    return list;
}

// The value as text; nothing when it is of the wrong kind.
std::optional<std::string> plain_value(const Field& field, const Json& value) {
    if (field.kind == Kind::kFlag) {
        return value.is_boolean() ? std::optional(value.get<bool>() ? "yes" : "no") : std::nullopt;
    }
    if (is_number(field)) {
        return value.is_number_integer() ? std::optional(value.dump()) : std::nullopt;
    }
    return text_from_json(value);
}

std::string value_from_json(const Field& field, const Json& value) {
    const std::optional<std::string> text = plain_value(field, value);
    if (!text) {
        throw Failure(std::string(field.key) + ": " + masked(field, value.dump()) + " is of the wrong kind");
    }
    if (field.secret && *text == kAsterisks) {
        throw Failure(std::string(field.key) +
                      " is masked: take a profile that was shown with --show-secrets");
    }
    return *text;
}

const Field* find_field(const std::string& key) {
    const auto fields = profile_fields();
    const auto found = std::ranges::find_if(fields, [&](const Field& field) { return key == field.key; });
    return found == fields.end() ? nullptr : &*found;
}

const Field& field_of(const NetPMProfile& profile, const std::string& key) {
    for (const Field& field : profile_fields()) {
        if (key == field.key && has_field(profile, field)) {
            return field;
        }
    }
    const bool pdp = profile.ProfileType == NETPM_PROFILE_PDP;
    const std::string mode = pdp ? "" : std::to_string(profile.WlanProfInfo.security.sec_mode);
    throw Failure(key + (pdp ? " does not belong to a pdp profile"
                             : " does not belong to a wlan profile with security mode " + mode));
}

void check_value(const std::string& key, const Field& field, const std::string& text) {
    if (const std::string problem = problem_with(field, text); !problem.empty()) {
        throw Failure(key + ": \"" + printable(masked(field, text)) + "\" " + problem);
    }
}

void set_field(NetPMProfile& profile, const std::string& key, const std::vector<std::string>& texts) {
    const Field& field = field_of(profile, key);
    const size_t least = field.count == 1 ? 1 : 0;
    if (texts.size() < least || texts.size() > field.count) {
        throw Failure(key + " takes " +
                      (least == 1 ? "one value" : "at most " + std::to_string(field.count) + " values"));
    }
    for (const std::string& text : texts) {
        check_value(key, field, text);
    }
    for (size_t i = 0; i < field.count; ++i) {
        const std::string none = field.kind == Kind::kAddress ? "0.0.0.0" : "";
        store_field(profile, field, i, i < texts.size() ? texts[i] : none);
    }
}

// What decides which other fields there are comes first, and takes away what there was of the others.
void set_type(NetPMProfile& profile, FieldValues& values) {
    const uint32_t before = profile.ProfileType;
    if (const auto type = values.extract("type")) {
        set_field(profile, "type", type.mapped());
    }
    if (profile.ProfileType != before) {
        std::memset(&profile.WlanProfInfo, 0, sizeof(NetPMProfile) - offsetof(NetPMProfile, WlanProfInfo));
    }
}

void set_security_mode(NetPMProfile& profile, FieldValues& values) {
    const auto mode = values.extract("security_mode");
    if (!mode) {
        return;
    }
    const NetPMProfile before = profile;
    set_field(profile, "security_mode", mode.mapped());
    const auto same_form = [&](const Field& field) {
        return has_field(before, field) == has_field(profile, field);
    };
    if (!std::ranges::all_of(profile_fields(), same_form)) {
        std::memset(&profile.WlanProfInfo.security.form, 0, sizeof profile.WlanProfInfo.security.form);
    }
}

void require(bool good, const char* what) {
    if (!good) {
        throw Failure(what);
    }
}

void check(const NetPMProfile& profile) {
    require(profile.ProfileName[0] != '\0', "a profile needs a name");
    if (profile.ProfileType == NETPM_PROFILE_PDP) {
        const uint32_t protocol = profile.PdpProfInfo.AppProtoType;
        return require(protocol == 1 || protocol == 2 || protocol == 4, "app_protocol must be 1, 2 or 4");
    }
    const int32_t mode = profile.WlanProfInfo.security.sec_mode;
    require(profile.WlanProfInfo.essid[0] != '\0', "a wlan profile needs an essid");
    require(mode >= 1 && mode <= 9, "security_mode must be 1 to 9");
}

void imply(FieldValues& values, const char* given, const char* key, const char* text) {
    if (values.contains(given)) {
        values.emplace(key, std::vector<std::string>{text});
    }
}

bool is_wlan_only(const std::string& key) {
    const auto has_key = [&](const Field& field) { return key == field.key; };
    return std::ranges::all_of(profile_fields(), [&](const Field& field) {
        return !has_key(field) || (field.part != Part::kEvery && field.part != Part::kPdp);
    });
}

void fill_in(FieldValues& values) {
    const bool wlan =
        std::ranges::any_of(values, [](const auto& value) { return is_wlan_only(value.first); });
    const auto& type = *values.emplace("type", std::vector<std::string>{wlan ? "wlan" : "pdp"}).first;
    if (type.second == std::vector<std::string>{"pdp"}) {
        values.emplace("app_protocol", std::vector<std::string>{"1"});
        return;
    }
    imply(values, "wep_keys", "security_mode", "2");
    imply(values, "psk", "security_mode", "4");
    imply(values, "eap_type", "security_mode", "5");
    imply(values, "eap_user_name", "security_mode", "5");
    values.emplace("security_mode", std::vector<std::string>{"1"});
}

}  // namespace

Json to_json(const NetPMProfile& profile, Secrets secrets) {
    Json out{{"profile_id", profile.ProfileId}};
    for (const Field& field : profile_fields()) {
        if (!has_field(profile, field)) {
            continue;
        }
        out[field.key] = field.count > 1 ? list_to_json(profile, field, secrets)
                                         : value_to_json(field, read_field(profile, field, 0), secrets);
    }
    return out;
}

FieldValues values_from_json(const Json& object) {
    require(object.is_object(), "a profile is a JSON object");
    FieldValues values;
    for (const auto& member : object.items()) {
        const Field* field = find_field(member.key());
        if (field == nullptr && member.key() != "profile_id") {
            throw Failure("a profile has no " + member.key());
        }
        if (field == nullptr || member.value().is_null()) {
            continue;
        }
        std::vector<std::string>& texts = values[member.key()];
        const Json list = member.value().is_array() ? member.value() : Json::array({member.value()});
        for (const Json& value : list) {
            texts.push_back(value_from_json(*field, value));
        }
    }
    return values;
}

void change_profile(NetPMProfile& profile, FieldValues values) {
    set_type(profile, values);
    set_security_mode(profile, values);
    const bool pdp = profile.ProfileType == NETPM_PROFILE_PDP;
    imply(values, "dns", pdp ? "static_dns" : "dns_config_type", pdp ? "yes" : "1");
    if (pdp) {
        imply(values, "address", "static_address", "yes");
    }
    for (const auto& [key, texts] : values) {
        set_field(profile, key, texts);
    }
    check(profile);
}

NetPMProfile make_profile(FieldValues values) {
    fill_in(values);
    NetPMProfile profile{};
    change_profile(profile, std::move(values));
    return profile;
}

}  // namespace quorvel::netcm
