#include "monitor/session.h"

#include <fstream>

#include "control/arguments.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

SessionEntry::Direction direction_of(const std::string& name) {
    if (name == "request")
        return SessionEntry::Direction::kRequest;
    return name == "answer" ? SessionEntry::Direction::kAnswer : SessionEntry::Direction::kEvent;
}

SessionEntry entry_of(const json& line) {
    return {direction_of(line.at("direction")), line.at("name"), line.at("fields").dump(),
            bytes(line.at("bytes"))};
}

}  // namespace

std::vector<SessionEntry> read_session(const std::string& path, uint32_t client) {
    std::ifstream file(path);
    if (!file)
        throw SessionError(path + ": cannot be read");
    std::vector<SessionEntry> entries;
    size_t number = 0;
    for (std::string text; std::getline(file, text);) {
        ++number;
        try {
            const json line = json::parse(text);
            const uint32_t of = line.at("client");
            client = client == 0 ? of : client;
            if (of == client)
                entries.push_back(entry_of(line));
        } catch (const std::exception& error) {
            throw SessionError(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    if (entries.empty())
        throw SessionError(path + ": there is nothing of this client");
    return entries;
}

}  // namespace quorvel::cm
