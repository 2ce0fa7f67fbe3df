#include "control/commands.h"

#include <algorithm>
#include <array>

#include "common/PmWire.h"
#include "control/arguments.h"
#include "control/control.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;
using Command = json (*)(Services services, const json& arguments);

json done(const std::string& text) {
    return {{"text", text}};
}

json suspend(Services services, const json& arguments) {
    const uint32_t call = connected_call(services.calls, arguments);
    if (services.calls.all()[call].state == Call::State::kSuspended)
        throw ControlError(describe_call(services.calls, call) + " is suspended already");
    services.calls.suspend(call, number(arguments, "status", 0));
    return done(describe_call(services.calls, call) + " is suspended");
}

json resume(Services services, const json& arguments) {
    const uint32_t call = connected_call(services.calls, arguments);
    if (services.calls.all()[call].state != Call::State::kSuspended)
        throw ControlError(describe_call(services.calls, call) + " is not suspended");
    services.calls.resume(call, number(arguments, "status", 0));
    return done(describe_call(services.calls, call) + " runs again");
}

json stop(Services services, const json& arguments) {
    const uint32_t call = connected_call(services.calls, arguments);
    const std::string name = describe_call(services.calls, call);
    const auto reason =
        static_cast<Reason>(number(arguments, "reason", static_cast<uint32_t>(Reason::kLost)));
    services.calls.end(call, number(arguments, "status", kStatusTransport), reason);
    return done(name + " is ended: " + to_text(reason));
}

json change_address(Services services, const json& arguments) {
    const uint32_t call = connected_call(services.calls, arguments);
    Addresses addresses = services.calls.all()[call].addresses;
    addresses.address = address(arguments.at("address"));
    if (arguments.contains("dns")) {
        addresses.dns.clear();
        for (const json& server : arguments["dns"])
            addresses.dns.push_back(address(server));
    }
    addresses.interface = arguments.value("interface", addresses.interface);
    services.calls.change(call, addresses);
    return done(describe_call(services.calls, call) + " has the address " + to_text(addresses.address));
}

json network_status(Services services, const json& arguments) {
    Message message = services.networks.indication();
    message.record.Word2 = number(arguments, "packet-data", message.record.Word2);
    message.record.CallId = number(arguments, "wifi", message.record.CallId);
    const auto receivers = clients_to_tell(services.clients, arguments, [](const Client&) { return true; });
    if (receivers.empty())
        throw ControlError("there is no client to tell");
    for (const uint32_t id : receivers)
        services.clients.push(id, message);
    return done("packet data " + with_word(network_status_words(), message.record.Word2) + ", Wi-Fi " +
                with_word(network_status_words(), message.record.CallId) + ": told " +
                describe_clients(receivers));
}

json tunnel(Services services, const json& arguments) {
    Message message = make_message(wire::NETCM_CLIENT_TUNNEL_IND);
    message.block = bytes(arguments.at("hex"));
    message.record.Word2 = static_cast<uint32_t>(message.block.size());
    message.record.CallId = number(arguments, "id", 0);
    const auto receivers = clients_to_tell(
        services.clients, arguments, [](const Client& client) { return client.wants_tunnel_indications; });
    if (receivers.empty())
        throw ControlError("no client has registered for tunnel indications");
    for (const uint32_t id : receivers)
        services.clients.push(id, message);
    return done(std::to_string(message.block.size()) + " bytes of tunnel data: sent to " +
                describe_clients(receivers));
}

json answer_kill(Services services, const json& arguments) {
    const uint32_t call = chosen_call(services.calls, arguments);
    const std::string name = describe_call(services.calls, call);
    const uint32_t status = number(arguments, "status", 0);
    services.calls.answer_kill(call, status, static_cast<Reason>(number(arguments, "reason", 0)));
    return done("the kill of " + name + " is answered with status " + with_word(status_names(), status));
}

json list(Services services, const json&) {
    json data{{"clients", json::array()}, {"calls", json::array()}};
    for (const auto& [id, client] : services.clients.all())
        data["clients"].push_back(to_json(client, services.calls));
    for (const uint32_t id : services.calls.in_use())
        data["calls"].push_back(to_json(id, services.calls.all()[id]));
    return {{"data", data}};
}

std::string word_of(std::span<const wire::PaymentWord> words, uint32_t code) {
    const auto found = std::ranges::find(words, code, &wire::PaymentWord::code);
    return found == words.end() ? std::to_string(code) : found->word;
}

json payment(Services services, const json&) {
    const auto setting = services.store.payment();
    if (!setting)
        return done("no application has made a payment setting");
    return done("CSC " + word_of(wire::kCscWords, setting->csc) + ", payment " +
                word_of(wire::kPaymentWords, setting->payment));
}

struct Entry {
    const char* name;
    Command command;
};
constexpr std::array kCommands{
    Entry{"suspend", suspend},
    Entry{"resume", resume},
    Entry{"stop", stop},
    Entry{"ip-change", change_address},
    Entry{"network-status", network_status},
    Entry{"tunnel", tunnel},
    Entry{"kill-response", answer_kill},
    Entry{"list", list},
    Entry{"payment", payment},
};

}  // namespace

json execute_command(Services services, const json& command) {
    const std::string name = command.at("command");
    const auto found =
        std::ranges::find_if(kCommands, [&](const Entry& entry) { return name == entry.name; });
    if (found == kCommands.end())
        throw ControlError("there is no command \"" + name + "\"");  // not reached: for the compiler
    log_command(command);
    return found->command(services, command);
}

}  // namespace quorvel::cm
