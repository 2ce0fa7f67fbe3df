#include "control/scenario.h"

#include <toml++/toml.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>
#include <vector>

#include "command-line/Duration.h"
#include "control/client.h"
#include "control/vocabulary.h"

namespace quorvel::cm {
namespace {

std::string place(const std::string& path, const toml::source_region& source) {
    return path + ":" + std::to_string(source.begin.line) + ": ";
}

nlohmann::json to_json(const toml::table& table) {
    std::ostringstream text;
    text << toml::json_formatter(table);
    return nlohmann::json::parse(text.str());
}

// Where a key stands; the table, when it has none of this name.
const toml::source_region& source_of(const toml::table& table, const std::string& key) {
    for (const auto& [name, value] : table)
        if (name.str() == key)
            return name.source();
    return table.source();
}

// "2s", or a number of milliseconds.
std::optional<std::chrono::milliseconds> time_of(toml::node_view<const toml::node> at) {
    if (const auto text = at.value_exact<std::string>())
        return command_line::milliseconds_from(*text);
    const auto number = at.value_exact<int64_t>();
    return number && *number >= 0 ? std::optional(std::chrono::milliseconds(*number)) : std::nullopt;
}

class Reader {
  public:
    explicit Reader(std::string path) : path_(std::move(path)) {}

    // Throws AskError with every fault: a scenario that stops in the middle shows nothing.
    std::vector<ScenarioStep> steps() {
        const toml::table root = parse();
        const toml::array* list = root["step"].as_array();
        if (list == nullptr || !list->is_array_of_tables())
            throw AskError(path_ + ": there is no [[step]]");
        for (const auto& [key, value] : root)
            if (key.str() != "step")
                fault(key.source(),
                      "unknown key \"" + std::string(key.str()) + "\"; a step begins with [[step]]");
        std::vector<ScenarioStep> steps;
        for (const toml::node& entry : *list)
            steps.push_back(step(*entry.as_table()));
        if (!faults_.empty())
            throw AskError(faults_);
        return steps;
    }

  private:
    toml::table parse() const {
        try {
            return toml::parse_file(path_);
        } catch (const toml::parse_error& error) {
            throw AskError(place(path_, error.source()) + std::string(error.description()));
        }
    }

    void fault(const toml::source_region& where, const std::string& what) {
        faults_ += (faults_.empty() ? "" : "\n") + place(path_, where) + what;
    }

    ScenarioStep step(const toml::table& table) {
        ScenarioStep step;
        step.command = to_json(table);
        step.command.erase("at");
        const auto at = time_of(table["at"]);
        if (!at)
            fault(source_of(table, "at"), "a step needs a time, such as at = \"2s\", or at = MILLISECONDS");
        step.at = at.value_or(step.at);
        if (!table["command"].is_string())
            fault(table.source(), "a step needs a command");
        else if (const auto wrong = fault_in(step.command))
            fault(source_of(table, wrong->key), wrong->what);
        return step;
    }

    std::string path_;
    std::string faults_;
};

}  // namespace

std::vector<ScenarioStep> read_steps(const std::string& path) {
    return Reader(path).steps();
}

void run_scenario(const std::string& socket, const std::string& path) {
    const auto steps = read_steps(path);
    const auto start = std::chrono::steady_clock::now();
    for (const ScenarioStep& step : steps) {
        std::this_thread::sleep_until(start + step.at);
        const nlohmann::json answer = ask_server(socket, step.command);
        std::printf("%6lld ms  %s\n", static_cast<long long>(step.at.count()),
                    answer.value("text", std::string("done")).c_str());
        std::fflush(stdout);
    }
}

}  // namespace quorvel::cm
