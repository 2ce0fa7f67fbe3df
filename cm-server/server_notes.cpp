// What the server tells those who watch and record it, beside the messages.
#include <unistd.h>

#include "control/arguments.h"
#include "server.h"

namespace quorvel::cm {

void Server::start_recording() {
    if (options_.record.file.empty())
        return;
    options_.record.about.update(who_am_i());
    tap_.record(options_.record);
}

// What tells this server from the one before and the next.
nlohmann::json Server::who_am_i() const {
    return {{"by", "cm-server"}, {"process", getpid()}, {"started", started_}, {"socket", options_.socket}};
}

std::vector<nlohmann::json> Server::present() const {
    nlohmann::json server = who_am_i();
    server["note"] = "server";
    std::vector<nlohmann::json> notes{server};
    for (const auto& [id, client] : clients_.all()) {
        notes.push_back(to_json(client, calls_));
        notes.back()["note"] = "client";
    }
    for (const uint32_t id : calls_.in_use()) {
        notes.push_back(to_json(id, calls_.all()[id]));
        notes.back()["note"] = "call";
    }
    return notes;
}

void Server::note_command(const nlohmann::json& command) {
    tap_.note([&]() -> nlohmann::json {
        nlohmann::json shown = command;
        // Tunnel data passes anyway.
        shown.erase("hex");
        return {{"note", "operator"}, {"command", shown}};
    });
}

void Server::note_closed(const Connection& connection, std::string_view why) {
    tap_.note([&]() -> nlohmann::json {
        nlohmann::json note{
            {"client", connection.client_id()}, {"process", connection.peer().pid}, {"why", why}};
        if (connection.role() == Connection::Role::kNone)
            note["note"] = "turned away";
        else
            note["note"] = connection.role() == Connection::Role::kSync ? "gone" : "no events";
        return note;
    });
}

// What is not sent on purpose is not missing.
void Server::note_silence(const Connection& connection, const Message& message) {
    tap_.note([&]() -> nlohmann::json {
        const wire::EventEntry* event = wire::find_event(message.record.Code);
        return {{"note", "silent"}, {"client", connection.client_id()}, {"name", event->name}};
    });
}

void Server::note_client(const Client& client) {
    tap_.note([&] {
        nlohmann::json note = to_json(client, calls_);
        note["note"] = "client";
        return note;
    });
}

}  // namespace quorvel::cm
