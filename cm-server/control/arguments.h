// Arguments of the operator's commands, and the words and JSON of what they are about.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "calls.h"
#include "clients.h"

namespace quorvel::cm {

// Of a checked command.
uint32_t number(const nlohmann::json& arguments, const char* key, uint32_t otherwise);
in_addr address(const nlohmann::json& text);
// Throws ControlError when this is no hexadecimal data: records hold some, too.
std::vector<std::byte> bytes(const nlohmann::json& hex);

// Of a command that is about to be carried out: data are cut, since a log is no place for a file.
void log_command(const nlohmann::json& command);

// The call that "call" or "profile" names; with neither, the only one there is.
uint32_t chosen_call(const Calls& calls, const nlohmann::json& arguments);
// The same, and it must be up or suspended.
uint32_t connected_call(const Calls& calls, const nlohmann::json& arguments);

// The client that "client" names, or all that are `concerned`.
std::vector<uint32_t> clients_to_tell(Clients& clients, const nlohmann::json& arguments,
                                      bool (*concerned)(const Client&));

// "call 0 (profile 1 "local")", "clients 1, 3".
std::string describe_call(const Calls& calls, uint32_t call);
std::string describe_clients(const std::vector<uint32_t>& clients);

nlohmann::json to_json(const Client& client, const Calls& calls);
nlohmann::json to_json(uint32_t id, const Call& call);

}  // namespace quorvel::cm
