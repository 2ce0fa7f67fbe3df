#include "control/tables.h"

#include <algorithm>

namespace quorvel::cm {
namespace {

using nlohmann::json;

std::string cell(const json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

// The values of one key of all elements, separated by commas; "-" for none.
std::string all(const json& list, const char* key) {
    std::string result;
    for (const json& element : list)
        result += (result.empty() ? "" : ",") + cell(element.at(key));
    return result.empty() ? "-" : result;
}

}  // namespace

std::string table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths(rows.front().size());
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    std::string result;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        result += line + "\n";
    }
    return result;
}

std::string clients_and_calls(const json& data) {
    std::vector<std::vector<std::string>> clients{
        {"CLIENT", "PROCESS", "USER", "APPLICATION", "EVENTS", "TUNNEL", "CALLS"}};
    for (const json& client : data.at("clients"))
        clients.push_back({cell(client.at("client")), cell(client.at("process")), cell(client.at("user")),
                           cell(client.at("application")), client.at("events").get<bool>() ? "yes" : "no",
                           client.at("tunnel-indications").get<bool>() ? "yes" : "no",
                           all(client.at("calls"), "call")});
    std::vector<std::vector<std::string>> calls{
        {"CALL", "STATE", "PROFILES", "NAMES", "INTERFACE", "ADDRESS", "CLIENTS"}};
    for (const json& call : data.at("calls"))
        calls.push_back({cell(call.at("call")), cell(call.at("state")), all(call.at("profiles"), "profile"),
                         all(call.at("profiles"), "name"), call.value("interface", "-"),
                         call.value("address", "-"), all(call.at("users"), "client")});
    return table(clients) + "\n" + table(calls);
}

}  // namespace quorvel::cm
