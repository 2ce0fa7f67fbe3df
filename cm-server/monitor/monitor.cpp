#include "monitor/monitor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <memory>

#include "control/client.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

struct Choice {
    bool as_json = false;
    bool show_secrets = false;
    std::string record;
    uint32_t client = 0;
};

std::string clock_text(int64_t milliseconds) {
    const time_t seconds = milliseconds / 1000;
    tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    std::array<char, 32> whole{};
    std::snprintf(whole.data(), whole.size(), "%s.%03d", text.data(), static_cast<int>(milliseconds % 1000));
    return whole.data();
}

const char* colour_of(const std::string& direction) {
    if (direction == "request")
        return "\x1b[36m";
    return direction == "answer" ? "\x1b[32m" : "\x1b[33m";
}

const char* arrow_of(const std::string& direction) {
    if (direction == "request")
        return "-->";
    return direction == "answer" ? "<--" : "<==";
}

std::string fields_text(const json& fields) {
    std::string text;
    for (const auto& [key, value] : fields.items())
        text += " " + key + "=" + (value.is_string() ? value.get<std::string>() : value.dump());
    return text;
}

void print(const json& passing, bool coloured) {
    const auto direction = passing.at("direction").get<std::string>();
    std::printf("%s %s%3u %s %s%s%s\n", clock_text(passing.at("time").get<int64_t>()).c_str(),
                coloured ? colour_of(direction) : "", passing.at("client").get<unsigned>(),
                arrow_of(direction), passing.at("name").get<std::string>().c_str(),
                fields_text(passing.at("fields")).c_str(), coloured ? "\x1b[0m" : "");
}

// The fields have their secrets masked; the bytes beside them hold everything.
void print_json(json passing, bool show_secrets) {
    if (!show_secrets)
        passing.erase("bytes");
    std::printf("%s\n", passing.dump().c_str());
}

// The bytes of a session hold the secrets of its profiles.
FILE* open_record(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    FILE* file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (file == nullptr)
        throw AskError(path + ": cannot be written");
    return file;
}

void monitor(const std::string& socket, const Choice& choice) {
    const std::unique_ptr<FILE, int (*)(FILE*)> record(
        choice.record.empty() ? nullptr : open_record(choice.record),
        [](FILE* file) { return std::fclose(file); });
    const bool coloured = isatty(STDOUT_FILENO) == 1;
    watch_server(socket, [&](const json& passing) {
        if (choice.client != 0 && passing.at("client") != choice.client)
            return;
        if (record) {
            std::fprintf(record.get(), "%s\n", passing.dump().c_str());
            std::fflush(record.get());
        }
        if (choice.as_json)
            print_json(passing, choice.show_secrets);
        else
            print(passing, coloured);
        std::fflush(stdout);
    });
}

}  // namespace

void add_monitor(CLI::App& app, const std::string& socket) {
    CLI::App* command =
        app.add_subcommand("monitor", "Show what passes between a running server and its clients");
    command->fallthrough();
    const auto choice = std::make_shared<Choice>();
    command->add_flag("--json", choice->as_json, "Print a line of JSON for each");
    command->add_flag("--show-secrets", choice->show_secrets,
                      "With --json: the bytes, too, passwords and keys among them");
    command->add_option("--record", choice->record, "Keep the session in this file, bytes and all")
        ->type_name("FILE");
    command->add_option("--client", choice->client, "Show only this client")->type_name("NUMBER");
    command->footer(
        "Requests are marked -->, answers <--, events <==. It may come and go while the server runs.\n"
        "Secrets of profiles are masked in the fields; the bytes, which --record keeps, hold them.");
    command->callback([choice, &socket] { monitor(socket, *choice); });
}

}  // namespace quorvel::cm
