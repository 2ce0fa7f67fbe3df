// Profiles between record and JSON, without a server.
#include "profile/Record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "profile/Fields.h"

namespace quorvel::netcm {
namespace {

std::string any_text(std::mt19937& random, size_t room) {
    std::string text(random() % room, ' ');
    // Any bytes, of which hardly one text in a thousand is UTF-8, or readable ones.
    const bool readable = random() % 2 == 0;
    for (char& c : text) {
        c = static_cast<char>(readable ? ' ' + random() % 95 : 1 + random() % 255);
    }
    return text;
}

std::string any_value(std::mt19937& random, const Field& field) {
    switch (field.kind) {
        case Kind::kType:
            return random() % 2 == 0 ? "pdp" : "wlan";
        case Kind::kText:
            return any_text(random, field.size);
        case Kind::kProxy:
            return "10.1." + std::to_string(random() % 256) + ".9:" + std::to_string(random() % 65536);
        case Kind::kAddress:
            return "192.0.2." + std::to_string(random() % 255 + 1);
        case Kind::kFlag:
            return random() % 2 == 0 ? "yes" : "no";
        case Kind::kSigned:
            return std::to_string(static_cast<int32_t>(random()));
        case Kind::kUnsigned:
            return std::to_string(static_cast<uint32_t>(random()));
        case Kind::kKeyIndex:
            return std::to_string(random() % 4);
    }
    return "";
}

// A profile with something in every field that its type and security mode have.
NetPMProfile any_profile(std::mt19937& random) {
    NetPMProfile profile{};
    profile.ProfileType = random() % 2;
    const auto mode = static_cast<int32_t>(random() % 9 + 1);
    if (profile.ProfileType == NETPM_PROFILE_WLAN) {
        profile.WlanProfInfo.security.sec_mode = mode;
    }
    for (const Field& field : profile_fields()) {
        const std::string key = field.key;
        for (size_t i = 0; has_field(profile, field) && i < field.count; ++i) {
            if (key != "type" && key != "security_mode") {
                store_field(profile, field, i, any_value(random, field));
            }
        }
    }
    std::strncpy(profile.ProfileName, "name", sizeof profile.ProfileName);
    if (profile.ProfileType == NETPM_PROFILE_PDP) {
        profile.PdpProfInfo.AppProtoType = 4;
    } else {
        std::strncpy(profile.WlanProfInfo.essid, "essid", sizeof profile.WlanProfInfo.essid);
    }
    return profile;
}

TEST(NetcmRecord, from_record_to_json_and_back_nothing_changes) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 2000; ++i) {
        const NetPMProfile profile = any_profile(random);
        const Json json = to_json(profile, Secrets::kShow);
        const NetPMProfile back = make_profile(values_from_json(Json::parse(json.dump())));
        EXPECT_EQ(std::memcmp(&profile, &back, sizeof profile), 0) << json.dump(2);
    }
}

TEST(NetcmRecord, text_that_is_no_utf_8_is_an_object_with_its_bytes) {
    NetPMProfile profile =
        make_profile({{"name", {"Zürich"}}, {"essid", {"Caf\xe9"}}, {"psk", {"\xff\x01"}}});
    const Json shown = to_json(profile, Secrets::kShow);
    EXPECT_EQ(shown["name"], "Zürich");
    EXPECT_EQ(shown["essid"], Json({{"hex", "436166e9"}}));
    EXPECT_EQ(shown["psk"], Json({{"hex", "ff01"}}));
    EXPECT_EQ(to_json(profile, Secrets::kMask)["psk"], "********");
}

TEST(NetcmRecord, no_secret_is_in_masked_json) {
    for (int32_t mode = 1; mode <= 9; ++mode) {
        NetPMProfile profile{};
        profile.ProfileType = NETPM_PROFILE_WLAN;
        profile.WlanProfInfo.security.sec_mode = mode;
        for (const Field& field : profile_fields()) {
            for (size_t i = 0; field.secret && has_field(profile, field) && i < field.count; ++i) {
                store_field(profile, field, i, "hidden");
            }
        }
        EXPECT_EQ(to_json(profile, Secrets::kMask).dump().find("hidden"), std::string::npos) << mode;
    }
}

TEST(NetcmRecord, what_the_program_does_not_know_survives_a_change) {
    NetPMProfile profile = make_profile({{"name", {"n"}}});
    profile.Opaque = 0x12345678;
    std::memset(profile.PdpProfInfo.Opaque, 0x5a, sizeof profile.PdpProfInfo.Opaque);
    NetPMProfile changed = profile;
    change_profile(changed, {{"name", {"m"}}});
    std::strcpy(profile.ProfileName, "m");
    EXPECT_EQ(std::memcmp(&profile, &changed, sizeof profile), 0);
}

}  // namespace
}  // namespace quorvel::netcm
