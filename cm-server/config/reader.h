// Reads the tables of a TOML file, and collects every fault with its line instead of stopping at the first.
#pragma once

#include <netinet/in.h>

#include <toml++/toml.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace quorvel::cm {

class ConfigFaults {
  public:
    explicit ConfigFaults(std::string file) : file_(std::move(file)) {}
    void add(const toml::source_region& where, const std::string& what);
    // Throws ConfigError with all faults when there are any.
    void raise() const;

  private:
    std::string file_;
    std::vector<std::string> faults_;
};

// A table whose keys are all known in the end: what has not been asked for is a fault.
class ConfigTable {
  public:
    ConfigTable(const toml::table& table, ConfigFaults& faults) : table_(table), faults_(faults) {}

    std::optional<std::string> text(const std::string& key, size_t longest = SIZE_MAX);
    std::optional<bool> flag(const std::string& key);
    std::optional<int64_t> number(const std::string& key, int64_t lowest, int64_t highest);
    // A number, or one of the words that `number_of` knows; `words` lists them for the message.
    using NumberOf = std::function<std::optional<int64_t>(const std::string& word)>;
    std::optional<int64_t> number_or_word(const std::string& key, int64_t lowest, int64_t highest,
                                          const std::string& words, const NumberOf& number_of);
    // "5s", or a number of milliseconds.
    std::optional<std::chrono::milliseconds> duration(const std::string& key,
                                                      std::chrono::milliseconds lowest,
                                                      std::chrono::milliseconds highest);
    // "16MiB", or a number of what `unit` bytes make. In bytes.
    std::optional<uint64_t> size(const std::string& key, uint64_t unit, uint64_t highest);
    std::optional<in_addr> address(const std::string& key);
    // Two at most: a connection carries no more.
    std::vector<in_addr> addresses(const std::string& key);
    // Calls `read` for the table of this name, if there is one.
    void table(const std::string& key, const std::function<void(ConfigTable&)>& read);
    // Calls `each` for every table of an array of tables.
    void tables(const std::string& key, const std::function<void(ConfigTable&)>& each);
    // One of `names`, as its index.
    std::optional<size_t> choice(const std::string& key, std::initializer_list<const char*> names);

    // A key that this table cannot have, although it exists elsewhere.
    void refuse(const std::string& key, const std::string& why);
    void fault(const std::string& what) { faults_.add(table_.source(), what); }
    void finish();

    // Of a key that is there, whose name goes before.
    void fault_at(const std::string& key, const std::string& what);

  private:
    const toml::node* take(const std::string& key);
    bool is_text(const std::string& key) const;
    template <class T>
    std::optional<T> value(const std::string& key, const char* expected);

    const toml::table& table_;
    ConfigFaults& faults_;
    std::vector<std::string> known_;
};

}  // namespace quorvel::cm
