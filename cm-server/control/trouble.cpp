#include "control/trouble.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "control/arguments.h"
#include "control/control.h"
#include "protocol/status.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

uint32_t event_code(const json& arguments) {
    if (!arguments.contains("event"))
        return 0;
    const std::string name = arguments["event"];
    for (const wire::EventEntry& entry : wire::kEvents)
        if (name == entry.name || name == std::to_string(entry.code))
            return entry.code;
    throw ControlError("there is no answer or event \"" + name + "\"");  // not reached: for the compiler
}

std::string value_text(const Fault& fault) {
    switch (fault.kind) {
        case Fault::Kind::kLate:
            return " by " + std::to_string(fault.value) + " ms";
        case Fault::Kind::kStatus:
            return " " + with_word(status_names(), fault.value);
        case Fault::Kind::kHalf:
        case Fault::Kind::kSilent:
            return "";
        case Fault::Kind::kCode:
        case Fault::Kind::kCount:
        case Fault::Kind::kLength:
            break;
    }
    return " " + std::to_string(fault.value);
}

std::string describe(const Fault& fault) {
    std::string text = std::string(Faults::name_of(fault.kind)) + value_text(fault);
    text += fault.client == 0 ? ", every client" : ", client " + std::to_string(fault.client);
    if (const wire::EventEntry* entry = wire::find_event(fault.code))
        text += std::string(", ") + entry->name;
    return text + (fault.times ? ", " + std::to_string(*fault.times) + " times" : ", until it is cleared");
}

json add_fault(const Trouble& trouble, const json& arguments) {
    Fault fault;
    fault.kind = Faults::kind_of(arguments.at("kind"));
    fault.value = number(arguments, "value", 0);
    fault.client = number(arguments, "client", 0);
    if (trouble.clients.has_gone(fault.client))
        throw ControlError("client " + std::to_string(fault.client) + " has gone");
    fault.code = event_code(arguments);
    if (arguments.contains("times"))
        fault.times = number(arguments, "times", 1);
    trouble.faults.add(fault);
    return {{"text", describe(fault)}};
}

json list_faults(const Trouble& trouble, const json&) {
    std::string text = std::to_string(trouble.faults.all().size()) + " faults";
    for (const Fault& fault : trouble.faults.all())
        text += "\n" + describe(fault);
    return {{"text", text}};
}

json clear_faults(const Trouble& trouble, const json&) {
    return {{"text", std::to_string(trouble.faults.clear()) + " faults taken back"}};
}

json close_socket(const Trouble& trouble, const json& arguments) {
    const uint32_t id = number(arguments, "client", 0);
    Client* client = trouble.clients.find(id);
    if (client == nullptr)
        throw ControlError("there is no client " + std::to_string(id));
    const std::string which = arguments.at("socket");
    Connection* connection = which == "sync" ? client->sync : client->async;
    if (connection == nullptr)
        throw ControlError("client " + std::to_string(id) + " has no " + which + " socket");
    connection->close("the operator has closed it");
    return {{"text", "the " + which + " socket of client " + std::to_string(id) + " is closed"}};
}

json restart(const Trouble& trouble, const json& arguments) {
    const uint32_t away = number(arguments, "away", 0);
    trouble.restart(std::chrono::milliseconds(away));
    return {{"text", "every client is disconnected; back in " + std::to_string(away) + " ms"}};
}

struct TroubleCommand {
    std::string_view name;
    json (*command)(const Trouble&, const json&);
};
constexpr std::array kTroubleCommands{
    TroubleCommand{"fault", add_fault},           TroubleCommand{"faults", list_faults},
    TroubleCommand{"clear-faults", clear_faults}, TroubleCommand{"close", close_socket},
    TroubleCommand{"restart", restart},
};

}  // namespace

std::optional<json> execute_trouble(const Trouble& trouble, const json& command) {
    const auto found =
        std::ranges::find(kTroubleCommands, command.at("command").get<std::string>(), &TroubleCommand::name);
    if (found == kTroubleCommands.end())
        return std::nullopt;
    log_command(command);
    return found->command(trouble, command);
}

}  // namespace quorvel::cm
