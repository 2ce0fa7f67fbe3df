#include "record/secrets.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "common/PmWire.h"
#include "common/SecurityForm.h"
#include "protocol/cursor.h"
#include "store/fields.h"

namespace quorvel::cm {
namespace {

constexpr size_t kProfile = offsetof(wire::PmProfileSlot, Profile);
constexpr size_t kForm = offsetof(NetPMProfile, WlanProfInfo.security.form);
constexpr size_t kFormSize = sizeof(NetPMWlanProfSecurity::form);

Secret whole(size_t at, size_t size) {
    return {static_cast<uint32_t>(at), static_cast<uint32_t>(size)};
}

// What a security form holds beside its fields is left over from another one, and as secret.
void add_form(Secrets& secrets, size_t at, const NetPMProfile& profile) {
    std::array<bool, kFormSize> open{};
    for (const Field& field : profile_fields()) {
        const bool of_a_form =
            field.part == Part::kWep || field.part == Part::kPsk || field.part == Part::kEap;
        if (of_a_form && has_part(profile, field.part) && !is_secret(field.column))
            std::fill_n(open.begin() + static_cast<ptrdiff_t>(field.offset - kForm), field.size, true);
    }
    for (const Field& field : profile_fields())
        if (field.offset >= kForm && field.offset < kForm + kFormSize && has_part(profile, field.part) &&
            is_secret(field.column)) {
            secrets.push_back(whole(at + kProfile + field.offset, field.size));
            std::fill_n(open.begin() + static_cast<ptrdiff_t>(field.offset - kForm), field.size, true);
        }
    for (size_t i = 0; i < kFormSize;) {
        const size_t end = static_cast<size_t>(
            std::find(open.begin() + static_cast<ptrdiff_t>(i), open.end(), true) - open.begin());
        if (end > i)
            secrets.push_back(whole(at + kProfile + kForm + i, end - i));
        i = std::max(end, i) + 1;
    }
}

Secrets secrets_of_profile(size_t at, std::span<const std::byte> data) {
    wire::PmProfileSlot slot{};
    if (data.empty())
        return {};
    if (data.size() != sizeof(slot))
        return {whole(at, data.size())};
    std::memcpy(&slot, data.data(), sizeof(slot));
    Secrets secrets;
    if (slot.Profile.ProfileType == NETPM_PROFILE_PDP) {
        for (const Field& field : profile_fields())
            if (field.part == Part::kPdp && is_secret(field.column))
                secrets.push_back(whole(at + kProfile + field.offset, field.size));
        return secrets;
    }
    add_form(secrets, at, slot.Profile);
    return secrets;
}

bool carries_a_key(uint32_t command) {
    return command == wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ ||
           command == wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ;
}

bool carries_a_list(uint32_t command) {
    return carries_a_key(command) || command == wire::NETPM_CLIENT_GET_POFILE_LIST_REQ ||
           command == wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ;
}

}  // namespace

bool is_secret(std::string_view column) {
    constexpr std::array<std::string_view, 8> kSecrets{"password",     "wep_key_0",       "wep_key_1",
                                                       "wep_key_2",    "wep_key_3",       "psk",
                                                       "eap_password", "eap_key_password"};
    return std::ranges::find(kSecrets, column) != kSecrets.end();
}

Secrets secrets_of(const Request& request) {
    wire::PmRequestHeader header{};
    Cursor cursor(request.payload);
    if (request.header.Command != wire::NETPM_PROFILE_REQ || !cursor.read(header) ||
        carries_a_key(header.Command))
        return {};
    return secrets_of_profile(sizeof(request.header) + sizeof(header), cursor.take(cursor.remaining()));
}

Secrets secrets_of(const Message& meant) {
    if (meant.record.Code != wire::NETPM_PROFILE_RSP || carries_a_list(meant.record.Word1 - wire::kPmAnswer))
        return {};
    return secrets_of_profile(sizeof(meant.record), meant.block);
}

void hide(std::span<std::byte> bytes, std::span<const Secret> secrets) {
    constexpr std::array<std::byte, 3> kStars{std::byte{'*'}, std::byte{'*'}, std::byte{'*'}};
    for (const Secret& secret : secrets) {
        if (secret.at >= bytes.size())
            continue;
        const auto range = bytes.subspan(secret.at, std::min<size_t>(secret.size, bytes.size() - secret.at));
        const bool empty = std::ranges::all_of(range, [](std::byte byte) { return byte == std::byte{0}; });
        std::ranges::fill(range, std::byte{0});
        if (!empty)
            std::copy_n(kStars.begin(), std::min(range.size(), kStars.size()), range.begin());
    }
}

}  // namespace quorvel::cm
