#include "config/reader.h"

#include <arpa/inet.h>

#include <algorithm>

#include "command-line/Duration.h"
#include "command-line/Size.h"
#include "command-line/Suggestion.h"
#include "config/config.h"

namespace quorvel::cm {

void ConfigFaults::add(const toml::source_region& where, const std::string& what) {
    const std::string fault = file_ + ":" + std::to_string(where.begin.line) + ": " + what;
    // A key may be asked for twice.
    if (std::ranges::find(faults_, fault) == faults_.end())
        faults_.push_back(fault);
}

void ConfigFaults::raise() const {
    std::string text;
    for (const std::string& fault : faults_)
        text += (text.empty() ? "" : "\n") + fault;
    if (!text.empty())
        throw ConfigError(text);
}

const toml::node* ConfigTable::take(const std::string& key) {
    known_.push_back(key);
    return table_.get(key);
}

template <class T>
std::optional<T> ConfigTable::value(const std::string& key, const char* expected) {
    const toml::node* node = take(key);
    if (node == nullptr)
        return std::nullopt;
    auto result = node->value_exact<T>();
    if (!result)
        faults_.add(node->source(), key + " must be " + expected);
    return result;
}

void ConfigTable::fault_at(const std::string& key, const std::string& what) {
    faults_.add(table_.get(key)->source(), key + what);
}

std::optional<std::string> ConfigTable::text(const std::string& key, size_t longest) {
    auto result = value<std::string>(key, "text");
    if (!result || result->size() <= longest)
        return result;
    fault_at(key, " must not be longer than " + std::to_string(longest) + " bytes");
    return std::nullopt;
}

std::optional<bool> ConfigTable::flag(const std::string& key) {
    return value<bool>(key, "true or false");
}

std::optional<int64_t> ConfigTable::number(const std::string& key, int64_t lowest, int64_t highest) {
    const auto result = value<int64_t>(key, "a whole number");
    if (!result || (*result >= lowest && *result <= highest))
        return result;
    fault_at(key, " must be between " + std::to_string(lowest) + " and " + std::to_string(highest));
    return std::nullopt;
}

bool ConfigTable::is_text(const std::string& key) const {
    const toml::node* node = table_.get(key);
    return node != nullptr && node->is_string();
}

std::optional<int64_t> ConfigTable::number_or_word(const std::string& key, int64_t lowest, int64_t highest,
                                                   const std::string& words, const NumberOf& number_of) {
    if (!is_text(key))
        return number(key, lowest, highest);
    const auto meant = number_of(*text(key));
    if (!meant)
        fault_at(key, " must be a number or one of " + words);
    return meant;
}

std::optional<std::chrono::milliseconds> ConfigTable::duration(const std::string& key,
                                                               std::chrono::milliseconds lowest,
                                                               std::chrono::milliseconds highest) {
    if (!is_text(key)) {
        const auto given = number(key, lowest.count(), highest.count());
        return given ? std::optional(std::chrono::milliseconds(*given)) : std::nullopt;
    }
    const auto time = command_line::milliseconds_from(*text(key));
    if (time && *time >= lowest && *time <= highest)
        return time;
    fault_at(key, time
                      ? " must be between " + std::to_string(lowest.count()) + "ms and " +
                            std::to_string(highest.count()) + "ms"
                      : std::string(" must be a number of milliseconds, or ") + command_line::kTimesLookLike);
    return std::nullopt;
}

std::optional<uint64_t> ConfigTable::size(const std::string& key, uint64_t unit, uint64_t highest) {
    if (!is_text(key)) {
        const auto given = number(key, 1, static_cast<int64_t>(highest / unit));
        return given ? std::optional(static_cast<uint64_t>(*given) * unit) : std::nullopt;
    }
    const auto bytes = command_line::bytes_from(*text(key));
    if (bytes && *bytes > 0 && *bytes <= highest)
        return bytes;
    fault_at(key, " must be a size, such as \"500kB\" or \"16MiB\"");
    return std::nullopt;
}

std::optional<size_t> ConfigTable::choice(const std::string& key, std::initializer_list<const char*> names) {
    const auto given = text(key);
    if (!given)
        return std::nullopt;
    const auto found = std::ranges::find(names, *given);
    if (found != names.end())
        return static_cast<size_t>(found - names.begin());
    std::string all;
    for (const char* name : names)
        all += (all.empty() ? "\"" : " or \"") + std::string(name) + "\"";
    fault_at(key, " must be " + all);
    return std::nullopt;
}

std::optional<in_addr> ConfigTable::address(const std::string& key) {
    const auto given = text(key);
    in_addr result{};
    if (!given)
        return std::nullopt;
    if (inet_pton(AF_INET, given->c_str(), &result) == 1)
        return result;
    fault_at(key, " must be an IPv4 address");
    return std::nullopt;
}

std::vector<in_addr> ConfigTable::addresses(const std::string& key) {
    std::vector<in_addr> result;
    const toml::node* node = take(key);
    if (node == nullptr)
        return result;
    const toml::array* list = node->as_array();
    if (list == nullptr)
        faults_.add(node->source(), key + " must be a list of IPv4 addresses");
    else
        for (const toml::node& entry : *list) {
            in_addr address{};
            if (inet_pton(AF_INET, entry.value_or<std::string>("").c_str(), &address) == 1)
                result.push_back(address);
            else
                faults_.add(entry.source(), key + ": this is no IPv4 address");
        }
    if (constexpr size_t kMost = 2; list != nullptr && list->size() > kMost)
        faults_.add(list->get(kMost)->source(), key + ": two servers at most");
    return result;
}

void ConfigTable::table(const std::string& key, const std::function<void(ConfigTable&)>& read) {
    const toml::node* node = take(key);
    if (node == nullptr)
        return;
    if (!node->is_table()) {
        faults_.add(node->source(), key + " must be written as [" + key + "]");
        return;
    }
    ConfigTable table(*node->as_table(), faults_);
    read(table);
    table.finish();
}

void ConfigTable::tables(const std::string& key, const std::function<void(ConfigTable&)>& each) {
    const toml::node* node = take(key);
    if (node == nullptr)
        return;
    if (!node->is_array_of_tables()) {
        faults_.add(node->source(), key + " must be written as [[" + key + "]]");
        return;
    }
    for (const toml::node& entry : *node->as_array()) {
        ConfigTable table(*entry.as_table(), faults_);
        each(table);
        table.finish();
    }
}

void ConfigTable::refuse(const std::string& key, const std::string& why) {
    if (take(key) != nullptr)
        fault_at(key, why);
}

void ConfigTable::finish() {
    for (const auto& [key, node] : table_)
        if (std::ranges::find(known_, key.str()) == known_.end())
            faults_.add(key.source(), "unknown key \"" + std::string(key.str()) + "\"" +
                                          command_line::did_you_mean(std::string(key.str()), known_));
}

}  // namespace quorvel::cm
