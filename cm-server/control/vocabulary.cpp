#include "control/vocabulary.h"

#include <arpa/inet.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <vector>

#include "command-line/Suggestion.h"
#include "common/Wire.h"
#include "faults/faults.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

// Each gives what a value must be, or null when it is that.
using Check = const char* (*)(const json& value);

const char* number(const json& value) {
    const bool good = value.is_number_unsigned() && value.get<uint64_t>() <= UINT32_MAX;
    return good ? nullptr : "a number from 0 to 4294967295";
}

const char* text(const json& value) {
    return value.is_string() ? nullptr : "text";
}

const char* address(const json& value) {
    in_addr ignored{};
    const bool good =
        value.is_string() && inet_pton(AF_INET, value.get<std::string>().c_str(), &ignored) == 1;
    return good ? nullptr : "an IPv4 address";
}

const char* addresses(const json& value) {
    const bool good = value.is_array() && value.size() <= 2 &&
                      std::ranges::all_of(value, [](const json& one) { return address(one) == nullptr; });
    return good ? nullptr : "a list of IPv4 addresses, two at most";
}

const char* hex(const json& value) {
    if (value.is_string()) {
        const auto digits = value.get<std::string>();
        if (digits.size() % 2 == 0 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos)
            return nullptr;
    }
    return "hexadecimal data, two digits for each byte";
}

const char* fault_kind(const json& value) {
    try {
        Faults::kind_of(value.get<std::string>());
        return nullptr;
    } catch (const std::exception&) {
        return "late, code, status, half, count, length or silent";
    }
}

const char* stream(const json& value) {
    return value == "sync" || value == "async" ? nullptr : "sync or async";
}

const char* event(const json& value) {
    const bool good =
        value.is_string() && std::ranges::any_of(wire::kEvents, [&](const wire::EventEntry& entry) {
            return value == entry.name || value == std::to_string(entry.code);
        });
    return good ? nullptr : "the name or the code of an answer or event";
}

struct Key {
    std::string_view name;
    Check check;
    bool required = false;
};
struct CommandKeys {
    std::string_view name;
    std::vector<Key> keys;
};

const std::vector<CommandKeys>& vocabulary() {
    const Key call{"call", number};
    const Key profile{"profile", number};
    const Key status{"status", number};
    const Key reason{"reason", number};
    const Key client{"client", number};
    static const std::vector<CommandKeys> kAll{
        {"suspend", {call, profile, status}},
        {"resume", {call, profile, status}},
        {"stop", {call, profile, status, reason}},
        {"kill-response", {call, profile, status, reason}},
        {"ip-change", {call, profile, {"address", address, true}, {"dns", addresses}, {"interface", text}}},
        {"network-status", {{"packet-data", number}, {"wifi", number}, client}},
        {"tunnel", {{"hex", hex, true}, {"id", number}, client}},
        {"fault",
         {{"kind", fault_kind, true}, {"value", number}, client, {"event", event}, {"times", number}}},
        {"faults", {}},
        {"clear-faults", {}},
        {"close", {{"socket", stream, true}, {"client", number, true}}},
        {"restart", {{"away", number}}},
        {"reload", {}},
        {"list", {}},
        {"payment", {}},
    };
    return kAll;
}

template <class Entries>
std::vector<std::string> names_of(const Entries& entries) {
    std::vector<std::string> names;
    for (const auto& entry : entries)
        names.emplace_back(entry.name);
    return names;
}

// A key that other commands take is a misunderstanding of another kind than one that nobody takes.
std::string unknown_key(const CommandKeys& entry, const std::string& key) {
    const bool elsewhere = std::ranges::any_of(vocabulary(), [&](const CommandKeys& other) {
        return std::ranges::find(other.keys, key, &Key::name) != other.keys.end();
    });
    const std::string command(entry.name);
    if (elsewhere)
        return command + " takes no " + key;
    return "unknown key \"" + key + "\"" + command_line::did_you_mean(key, names_of(entry.keys));
}

}  // namespace

std::optional<CommandFault> fault_in(const json& command) {
    if (!command.is_object() || !command.contains("command") || !command["command"].is_string())
        return CommandFault{"", "this names no command"};
    const auto name = command["command"].get<std::string>();
    const auto entry = std::ranges::find(vocabulary(), name, &CommandKeys::name);
    if (entry == vocabulary().end())
        return CommandFault{"command", "there is no command \"" + name + "\"" +
                                           command_line::did_you_mean(name, names_of(vocabulary()))};
    for (const auto& [key, value] : command.items()) {
        if (key == "command")
            continue;
        const auto known = std::ranges::find(entry->keys, key, &Key::name);
        if (known == entry->keys.end())
            return CommandFault{key, unknown_key(*entry, key)};
        if (const char* wanted = known->check(value))
            return CommandFault{key, key + " must be " + wanted + ", not " + value.dump()};
    }
    for (const Key& key : entry->keys)
        if (key.required && !command.contains(key.name))
            return CommandFault{"", name + " needs " + std::string(key.name)};
    return std::nullopt;
}

}  // namespace quorvel::cm
