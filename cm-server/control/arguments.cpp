#include "control/arguments.h"

#include <arpa/inet.h>

#include <charconv>

#include "control/control.h"
#include "log.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

std::string joined(const std::vector<uint32_t>& numbers) {
    std::string text;
    for (const uint32_t number : numbers)
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    return text;
}

uint32_t only_call(const Calls& calls) {
    const auto used = calls.in_use();
    if (used.empty())
        throw ControlError("there is no call");
    if (used.size() > 1)
        throw ControlError("there are several calls, name one of them: " + joined(used));
    return used.front();
}

}  // namespace

uint32_t number(const json& arguments, const char* key, uint32_t otherwise) {
    return arguments.value(key, otherwise);
}

in_addr address(const json& text) {
    in_addr result{};
    inet_pton(AF_INET, text.get<std::string>().c_str(), &result);
    return result;
}

std::vector<std::byte> bytes(const json& hex) {
    const auto text = hex.get<std::string>();
    std::vector<std::byte> result;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        uint8_t value = 0;
        const auto parsed = std::from_chars(&text[i], &text[i] + 2, value, 16);
        if (parsed.ptr != &text[i] + 2)
            throw ControlError("this is no hexadecimal data");
        result.push_back(std::byte{value});
    }
    if (text.size() % 2 != 0)
        throw ControlError("hexadecimal data has two digits for each byte");
    return result;
}

void log_command(const json& command) {
    constexpr size_t kShownDigits = 256;
    json shown = command;
    if (const auto hex = shown.find("hex"); hex != shown.end() && hex->is_string())
        if (auto& digits = hex->get_ref<std::string&>(); digits.size() > kShownDigits)
            digits = digits.substr(0, kShownDigits) + "... (" + std::to_string(digits.size() / 2) + " bytes)";
    log::info("the operator asks: ", shown.dump());
}

uint32_t chosen_call(const Calls& calls, const json& arguments) {
    if (arguments.contains("profile")) {
        const uint32_t profile = number(arguments, "profile", 0);
        const auto found = calls.find(static_cast<int32_t>(profile));
        if (!found)
            throw ControlError("there is no call of profile " + std::to_string(profile));
        return *found;
    }
    if (!arguments.contains("call"))
        return only_call(calls);
    const uint32_t id = number(arguments, "call", 0);
    if (id >= kCallCount || calls.all()[id].state == Call::State::kFree)
        throw ControlError("there is no call " + std::to_string(id));
    return id;
}

uint32_t connected_call(const Calls& calls, const json& arguments) {
    const uint32_t call = chosen_call(calls, arguments);
    if (!calls.all()[call].connected())
        throw ControlError(describe_call(calls, call) + " is not up yet");
    return call;
}

std::vector<uint32_t> clients_to_tell(Clients& clients, const json& arguments,
                                      bool (*concerned)(const Client&)) {
    if (arguments.contains("client")) {
        const uint32_t id = number(arguments, "client", 0);
        if (clients.find(id) == nullptr)
            throw ControlError("there is no client " + std::to_string(id));
        return {id};
    }
    std::vector<uint32_t> result;
    for (const auto& [id, client] : clients.all())
        if (concerned(client))
            result.push_back(id);
    return result;
}

std::string describe_call(const Calls& calls, uint32_t call) {
    return "call " + std::to_string(call) + " (" + describe(calls.all()[call].users.first_profile()) + ")";
}

std::string describe_clients(const std::vector<uint32_t>& clients) {
    return (clients.size() == 1 ? "client " : "clients ") + joined(clients);
}

json to_json(const Client& client, const Calls& calls) {
    json used = json::array();
    for (const uint32_t id : calls.in_use())
        for (const int32_t profile : calls.all()[id].users.of(client.id))
            used.push_back({{"call", id}, {"profile", profile}});
    return {{"client", client.id},
            {"process", client.peer.pid},
            {"user", client.peer.uid},
            {"application", client.app_id},
            {"events", client.async != nullptr},
            {"tunnel-indications", client.wants_tunnel_indications},
            {"calls", used}};
}

json to_json(uint32_t id, const Call& call) {
    json profiles = json::array();
    call.users.each_profile([&](const Profile& profile) {
        profiles.push_back(
            {{"profile", profile.id}, {"name", profile.name}, {"access-point", profile.access_point}});
        return true;
    });
    json users = json::array();
    call.users.each([&](uint32_t client, int32_t profile) {
        users.push_back({{"client", client}, {"profile", profile}});
    });
    json result{{"call", id}, {"state", to_text(call.state)}, {"profiles", profiles}, {"users", users}};
    if (!call.connected())
        return result;
    result["interface"] = call.addresses.interface;
    result["address"] = to_text(call.addresses.address);
    result["dns"] = json::array();
    for (const in_addr server : call.addresses.dns)
        result["dns"].push_back(to_text(server));
    return result;
}

}  // namespace quorvel::cm
