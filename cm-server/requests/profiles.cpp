// Requests to the profile manager.
#include <algorithm>
#include <array>

#include "protocol/cursor.h"
#include "protocol/pm_message.h"
#include "requests/handlers.h"

namespace quorvel::cm {
namespace {

// One request, and the answer that is being made.
struct Exchange {
    Services services;
    uid_t user;
    wire::PmRequestHeader header{};
    std::span<const std::byte> data;
    PmAnswer answer;
};

// Exactly what a command needs, or a refusal.
template <class T>
T data_of(const Exchange& exchange) {
    T result{};
    Cursor cursor(exchange.data);
    if (!cursor.read(result) || cursor.remaining() != 0)
        throw PmRefusal(PM_ERR_BAD_REQUEST);
    return result;
}

template <class Field>
std::string text_of(const Exchange& exchange) {
    const auto field = data_of<std::array<char, sizeof(Field)>>(exchange);
    return {field.begin(), std::ranges::find(field, '\0')};
}

NetPMProfileType type_of(uint32_t number) {
    if (number > NETPM_PROFILE_WLAN)
        throw PmRefusal(PM_ERR_UNKNOWN_TYPE);
    return static_cast<NetPMProfileType>(number);
}

// Type 2 asks for the profiles of every type.
std::optional<NetPMProfileType> type_or_all(uint32_t number) {
    constexpr uint32_t kEveryType = 2;
    return number == kEveryType ? std::nullopt : std::optional(type_of(number));
}

int32_t default_of(Store& store) {
    const auto id = store.default_id();
    if (!id)
        throw PmRefusal(PM_ERR_NO_DEFAULT);
    return *id;
}

void add(Exchange& exchange) {
    Store& store = exchange.services.store;
    const NetPMProfile profile = data_of<wire::PmProfileSlot>(exchange).Profile;
    if (has_quota(exchange.user) && store.count_of(exchange.user) >= exchange.services.limits.profiles)
        throw PmRefusal(PM_ERR_TOO_MANY);
    exchange.answer.profile = store.add(profile, exchange.user);
}

void modify(Exchange& exchange) {
    exchange.services.store.modify(exchange.header.ProfileId, data_of<wire::PmProfileSlot>(exchange).Profile);
}

void remove(Exchange& exchange) {
    if (exchange.services.calls.find(exchange.header.ProfileId))
        throw PmRefusal(PM_ERR_IN_USE);
    exchange.services.store.remove(exchange.header.ProfileId);
}

void send_profile(Exchange& exchange, int32_t id) {
    exchange.answer.profile = id;
    append(exchange.answer.data, wire::PmProfileSlot{exchange.services.store.read(id), {}});
}

void get(Exchange& exchange) {
    send_profile(exchange, exchange.header.ProfileId);
}

void get_default(Exchange& exchange) {
    send_profile(exchange, default_of(exchange.services.store));
}

void get_default_id(Exchange& exchange) {
    exchange.answer.profile = default_of(exchange.services.store);
}

void set_default(Exchange& exchange) {
    exchange.services.store.set_default(exchange.header.ProfileId);
}

void get_status(Exchange& exchange) {
    exchange.services.store.read(exchange.header.ProfileId);
    const auto call = exchange.services.calls.find(exchange.header.ProfileId);
    if (call)
        exchange.answer.value = static_cast<uint32_t>(exchange.services.calls.all()[*call].state);
}

void get_attributes(Exchange& exchange) {
    exchange.answer.value = exchange.services.store.read(exchange.header.ProfileId).ProfileAttr;
}

constexpr size_t kLongestList = std::size(NetPMProfileIdList{}.ProfileId);

void send_ids(Exchange& exchange, const std::vector<int32_t>& ids, size_t most) {
    NetPMProfileIdList list{};
    const size_t count = std::min({ids.size(), most, std::size(list.ProfileId)});
    std::copy_n(ids.begin(), count, list.ProfileId);
    list.Count = static_cast<int32_t>(count);
    append(exchange.answer.data, list);
}

void list_ids(Exchange& exchange) {
    send_ids(exchange, exchange.services.store.ids(type_or_all(exchange.header.Arg), kLongestList),
             exchange.header.Arg2);
}

NetPMPartialProfile partial(const NetPMProfile& profile) {
    NetPMPartialProfile result{};
    result.ProfileId = profile.ProfileId;
    result.ProfileType = profile.ProfileType;
    put_text(result.ProfileName, profile.ProfileName);
    put_text(result.NetworkName,
             profile.ProfileType == NETPM_PROFILE_PDP ? profile.PdpProfInfo.Apn : profile.WlanProfInfo.essid);
    return result;
}

void list_partial(Exchange& exchange) {
    const auto ids =
        exchange.services.store.ids(type_or_all(exchange.header.Arg), NETPM_MAX_PARTIAL_PROFILES);
    for (const int32_t id : ids)
        append(exchange.answer.data, partial(exchange.services.store.read(id)));
    exchange.answer.profile = static_cast<int32_t>(ids.size());
}

void find_by_apn(Exchange& exchange) {
    send_ids(
        exchange,
        exchange.services.store.find(NETPM_PROFILE_PDP, text_of<wire::PmApnField>(exchange), kLongestList),
        kLongestList);
}

void find(Exchange& exchange) {
    const NetPMProfileType type = type_of(exchange.header.Arg);
    const std::string key = type == NETPM_PROFILE_PDP ? text_of<wire::PmApnField>(exchange)
                                                      : text_of<wire::PmEssidField>(exchange);
    send_ids(exchange, exchange.services.store.find(type, key, kLongestList), kLongestList);
}

// A restored profile may be another one under the id of an open connection.
void restore(Exchange& exchange) {
    if (!exchange.services.calls.in_use().empty())
        throw PmRefusal(PM_ERR_IN_USE);
    exchange.services.store.restore();
}

using ProfileCommand = StoreCommand<Exchange&>;
constexpr std::array kProfileCommands{
    ProfileCommand{wire::NETPM_CLIENT_ADD_PROFILE_REQ, "adds a profile", add},
    ProfileCommand{wire::NETPM_CLIENT_MODIFY_PROFILE_REQ, "changes a profile", modify},
    ProfileCommand{wire::NETPM_CLIENT_DELETE_PROFILE_REQ, "deletes a profile", remove},
    ProfileCommand{wire::NETPM_CLIENT_GET_PROFILE_REQ, "reads a profile", get},
    ProfileCommand{wire::NETPM_CLIENT_GET_PROFILE_STATUS_REQ, "asks for the status of a profile", get_status},
    ProfileCommand{wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ, "reads the default profile", get_default},
    ProfileCommand{wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ, "asks for the default profile",
                   get_default_id},
    ProfileCommand{wire::NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ, "makes a profile the default", set_default},
    ProfileCommand{wire::NETPM_CLIENT_GET_POFILE_LIST_REQ, "lists profiles", list_ids},
    ProfileCommand{wire::NETPM_CLIENT_RESTORE_PROFILES_REQ, "restores the factory's profiles", restore},
    ProfileCommand{wire::NETPM_CLIENT_GET_PROFILE_ATTR_REQ, "asks for the attributes of a profile",
                   get_attributes},
    ProfileCommand{wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ, "lists profiles with their networks",
                   list_partial},
    ProfileCommand{wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ, "finds profiles by access point",
                   find_by_apn},
    ProfileCommand{wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ, "finds profiles", find},
};

}  // namespace

void ask_profile_manager(Services services, Client& client, const Request& request) {
    Exchange exchange{services, client.peer.uid, {}, {}, {}};
    Cursor cursor(request.payload);
    if (!cursor.read(exchange.header))
        return;  // not reached: for the compiler
    exchange.data = cursor.take(cursor.remaining());
    exchange.answer.profile = exchange.header.ProfileId;
    const auto [words, error] = carry_out(kProfileCommands, exchange.header.Command,
                                          "asks the profile manager something unknown", exchange);
    if (error != PM_SUCCESS)
        exchange.answer.refuse(error);
    log_request(client, words, ", profile ", log::field("profile", exchange.answer.profile),
                outcome(exchange.answer.error));
    client.sync->send(to_message(exchange.answer, exchange.header.Command));
}

}  // namespace quorvel::cm
