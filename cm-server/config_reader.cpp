#include "config_reader.h"

#include <arpa/inet.h>

#include <algorithm>

#include "config.h"

namespace quorvel::cm {

void ConfigFaults::add(const toml::source_region& where, const std::string& what) {
    if (!text_.empty())
        text_ += "\n";
    text_ += file_ + ":" + std::to_string(where.begin.line) + ": " + what;
}

void ConfigFaults::raise() const {
    if (!text_.empty())
        throw ConfigError(text_);
}

const toml::node* ConfigTable::take(const char* key) {
    known_.emplace_back(key);
    return table_.get(key);
}

template <class T>
std::optional<T> ConfigTable::value(const char* key, const char* expected) {
    const toml::node* node = take(key);
    if (node == nullptr)
        return std::nullopt;
    const auto result = node->value_exact<T>();
    if (!result)
        faults_.add(node->source(), std::string(key) + " must be " + expected);
    return result;
}

std::optional<std::string> ConfigTable::text(const char* key) {
    return value<std::string>(key, "text");
}

std::optional<bool> ConfigTable::flag(const char* key) {
    return value<bool>(key, "true or false");
}

std::optional<int64_t> ConfigTable::number(const char* key, int64_t lowest, int64_t highest) {
    const auto result = value<int64_t>(key, "a whole number");
    if (!result || (*result >= lowest && *result <= highest))
        return result;
    faults_.add(table_.get(key)->source(), std::string(key) + " must be between " + std::to_string(lowest) +
                                               " and " + std::to_string(highest));
    return std::nullopt;
}

std::optional<size_t> ConfigTable::choice(const char* key, std::initializer_list<const char*> names) {
    const auto given = text(key);
    if (!given)
        return std::nullopt;
    const auto found = std::ranges::find(names, *given);
    if (found != names.end())
        return static_cast<size_t>(found - names.begin());
    std::string all;
    for (const char* name : names)
        all += (all.empty() ? "\"" : " or \"") + std::string(name) + "\"";
    faults_.add(table_.get(key)->source(), std::string(key) + " must be " + all);
    return std::nullopt;
}

std::vector<in_addr> ConfigTable::addresses(const char* key) {
    std::vector<in_addr> result;
    const toml::node* node = take(key);
    if (node == nullptr)
        return result;
    const toml::array* list = node->as_array();
    if (list == nullptr)
        faults_.add(node->source(), std::string(key) + " must be a list of IPv4 addresses");
    else
        for (const toml::node& entry : *list) {
            in_addr address{};
            if (inet_pton(AF_INET, entry.value_or<std::string>("").c_str(), &address) == 1)
                result.push_back(address);
            else
                faults_.add(entry.source(), std::string(key) + ": this is no IPv4 address");
        }
    return result;
}

void ConfigTable::tables(const char* key, const std::function<void(ConfigTable&)>& each) {
    const toml::node* node = take(key);
    if (node == nullptr)
        return;
    if (!node->is_array_of_tables()) {
        faults_.add(node->source(), std::string(key) + " must be written as [[" + key + "]]");
        return;
    }
    for (const toml::node& entry : *node->as_array()) {
        ConfigTable table(*entry.as_table(), faults_);
        each(table);
        table.finish();
    }
}

void ConfigTable::finish() {
    for (const auto& [key, node] : table_)
        if (std::ranges::find(known_, key.str()) == known_.end())
            faults_.add(key.source(), "unknown key \"" + std::string(key.str()) + "\"");
}

}  // namespace quorvel::cm
