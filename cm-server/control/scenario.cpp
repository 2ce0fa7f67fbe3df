#include "control/scenario.h"

#include <toml++/toml.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>
#include <vector>

#include "control/client.h"

namespace quorvel::cm {
namespace {

std::string place(const std::string& path, const toml::source_region& source) {
    return path + ":" + std::to_string(source.begin.line) + ": ";
}

Step read_step(const std::string& path, const toml::table& table) {
    std::ostringstream text;
    text << toml::json_formatter(table);
    Step step;
    step.command = nlohmann::json::parse(text.str());
    const auto at = table["at"].value<int64_t>();
    if (!at || *at < 0)
        throw AskError(place(path, table.source()) + "a step needs a time, at = MILLISECONDS");
    if (!table["command"].is_string())
        throw AskError(place(path, table.source()) + "a step needs a command");
    step.command.erase("at");
    step.at = std::chrono::milliseconds(*at);
    return step;
}

}  // namespace

std::vector<Step> read_steps(const std::string& path) {
    toml::table root;
    try {
        root = toml::parse_file(path);
    } catch (const toml::parse_error& error) {
        throw AskError(place(path, error.source()) + std::string(error.description()));
    }
    const toml::array* list = root["step"].as_array();
    if (list == nullptr || !list->is_array_of_tables())
        throw AskError(path + ": there is no [[step]]");
    std::vector<Step> steps;
    for (const toml::node& entry : *list)
        steps.push_back(read_step(path, *entry.as_table()));
    return steps;
}

void run_scenario(const std::string& socket, const std::string& path) {
    const auto steps = read_steps(path);
    const auto start = std::chrono::steady_clock::now();
    for (const Step& step : steps) {
        std::this_thread::sleep_until(start + step.at);
        const nlohmann::json answer = ask_server(socket, step.command);
        std::printf("%6lld ms  %s\n", static_cast<long long>(step.at.count()),
                    answer.value("text", std::string("done")).c_str());
        std::fflush(stdout);
    }
}

}  // namespace quorvel::cm
