#include "control/vocabulary.h"

#include <arpa/inet.h>

#include <algorithm>
#include <span>
#include <string_view>
#include <vector>

#include "command-line/Duration.h"
#include "command-line/Suggestion.h"
#include "common/Wire.h"
#include "control/control.h"
#include "faults/faults.h"
#include "protocol/status.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

// Each gives what a value must be, or null when it is that.
using Check = const char* (*)(const json& value);
// The number that a value of the command stands for, by its name or with its unit.
using Read = std::optional<uint32_t> (*)(const json& value, const json& command);

std::optional<uint32_t> number_in(const json& value) {
    const bool good = value.is_number_unsigned() && value.get<uint64_t>() <= UINT32_MAX;
    return good ? std::optional(value.get<uint32_t>()) : std::nullopt;
}

std::optional<uint32_t> named(const json& value, std::span<const Word> words) {
    return value.is_string() ? number_of(words, value.get<std::string>()) : number_in(value);
}

std::optional<uint32_t> read_status(const json& value, const json&) {
    return named(value, status_names());
}

std::optional<uint32_t> read_reason(const json& value, const json&) {
    return named(value, reason_words());
}

std::optional<uint32_t> read_network_status(const json& value, const json&) {
    return named(value, network_status_words());
}

std::optional<uint32_t> read_time(const json& value, const json&) {
    if (!value.is_string())
        return number_in(value);
    const auto time = command_line::milliseconds_from(value.get<std::string>());
    return time && time->count() <= UINT32_MAX ? std::optional(static_cast<uint32_t>(time->count()))
                                               : std::nullopt;
}

std::optional<uint32_t> read_fault_value(const json& value, const json& command) {
    const json kind = command.value("kind", json());
    if (kind == "late")
        return read_time(value, command);
    return kind == "status" ? read_status(value, command) : number_in(value);
}

const char* number(const json& value) {
    return number_in(value) ? nullptr : "a number from 0 to 4294967295";
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

std::string a_number_or(std::span<const Word> words) {
    return "a number or one of " + all_of(words);
}
std::string a_status() {
    return a_number_or(status_names());
}
std::string a_reason() {
    return a_number_or(reason_words());
}
std::string a_network_status() {
    return a_number_or(network_status_words());
}
std::string a_time() {
    return std::string("a number of milliseconds, or ") + command_line::kTimesLookLike;
}
std::string a_fault_value() {
    return "a number; of late a time such as 2s, of status its name";
}

struct Key {
    std::string_view name;
    Check check;
    bool required = false;
    // What it must be is said by this, of values that have names or units.
    Read read = nullptr;
    std::string (*wanted)() = nullptr;
};
struct CommandKeys {
    std::string_view name;
    std::vector<Key> keys;
};

const std::vector<CommandKeys>& vocabulary() {
    const Key call{"call", number};
    const Key profile{"profile", number};
    const Key status{"status", nullptr, false, read_status, a_status};
    const Key reason{"reason", nullptr, false, read_reason, a_reason};
    const Key client{"client", number};
    static const std::vector<CommandKeys> kAll{
        {"suspend", {call, profile, status}},
        {"resume", {call, profile, status}},
        {"stop", {call, profile, status, reason}},
        {"kill-response", {call, profile, status, reason}},
        {"ip-change", {call, profile, {"address", address, true}, {"dns", addresses}, {"interface", text}}},
        {"network-status",
         {{"packet-data", nullptr, false, read_network_status, a_network_status},
          {"wifi", nullptr, false, read_network_status, a_network_status},
          client}},
        {"tunnel", {{"hex", hex, true}, {"id", number}, client}},
        {"fault",
         {{"kind", fault_kind, true},
          {"value", nullptr, false, read_fault_value, a_fault_value},
          client,
          {"event", event},
          {"times", number}}},
        {"faults", {}},
        {"clear-faults", {}},
        {"close", {{"socket", stream, true}, {"client", number, true}}},
        {"restart", {{"away", nullptr, false, read_time, a_time}}},
        {"reload", {}},
        {"list", {}},
        {"payment", {}},
    };
    return kAll;
}

template <class Entries>
std::vector<std::string> names_of(const Entries& entries) {
    std::vector<std::string> names;
    names.reserve(entries.size());
    for (const auto& entry : entries)
        names.emplace_back(entry.name);
    return names;
}

// What a value must be; nothing when it is that.
std::string wanted_of(const Key& key, const json& value, const json& command) {
    if (key.read != nullptr)
        return key.read(value, command) ? "" : key.wanted();
    const char* wanted = key.check(value);
    return wanted == nullptr ? "" : wanted;
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

CommandFault wrong_value(const std::string& key, const std::string& wanted, const json& value) {
    return {key, key + " must be " + wanted + ", not " + value.dump()};
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
        if (const std::string wanted = wanted_of(*known, value, command); !wanted.empty())
            return wrong_value(key, wanted, value);
    }
    for (const Key& key : entry->keys)
        if (key.required && !command.contains(key.name))
            return CommandFault{"", name + " needs " + std::string(key.name)};
    return std::nullopt;
}

json checked_command(const json& given) {
    if (const auto wrong = fault_in(given))
        throw ControlError(wrong->what);
    json command = given;
    const auto name = given.at("command").get<std::string>();
    for (const Key& key : std::ranges::find(vocabulary(), name, &CommandKeys::name)->keys)
        if (key.read != nullptr && given.contains(key.name))
            command[std::string(key.name)] = key.read(given.at(std::string(key.name)), given).value();
    return command;
}

}  // namespace quorvel::cm
