#include "control/ctl.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>

#include "command-line/Duration.h"
#include "control/client.h"
#include "control/scenario.h"
#include "control/tables.h"
#include "protocol/status.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

// What one command takes; the options fill it in, the callback sends it.
struct Draft {
    json command = json::object();
    bool as_json = false;
    std::string file;
};
using DraftPtr = std::shared_ptr<Draft>;

template <class T>
CLI::Option* add_argument(CLI::App& command, const DraftPtr& draft, const char* option, const char* key,
                          const char* help) {
    return command
        .add_option_function<T>(
            option, [draft, key](const T& value) { draft->command[key] = value; }, help)
        ->type_name(std::is_integral_v<T> ? "NUMBER" : "TEXT");
}

// A number, or one of the words for it.
CLI::Option* add_word(CLI::App& command, const DraftPtr& draft, const char* option, const char* key,
                      std::span<const Word> words, const std::string& help) {
    const auto convert = [words](std::string& text) {
        uint32_t number = 0;
        if (const auto meant = number_of(words, text))
            text = std::to_string(*meant);
        else if (!CLI::detail::lexical_cast(text, number))
            return "\"" + text + "\" is neither a number nor one of " + all_of(words);
        return std::string();
    };
    return add_argument<uint32_t>(command, draft, option, key, (help + ", by name or number").c_str())
        ->transform(CLI::Validator(convert, ""))
        ->type_name("NAME");
}

CLI::Option* add_status(CLI::App& command, const DraftPtr& draft, const char* of) {
    return add_word(command, draft, "--status", "status", status_names(), std::string("Status of the ") + of);
}

void add_call_choice(CLI::App& command, const DraftPtr& draft) {
    add_argument<uint32_t>(command, draft, "call", "call",
                           "Id of the call; not needed when there is only one");
    add_argument<uint32_t>(command, draft, "--profile", "profile", "Take the call of this profile");
    command.footer(
        "A call is named by its id or by a profile; when there is only one, it need not be named.");
}

std::string to_hex(const std::string& data) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4U];
        hex += kDigits[byte & 15U];
    }
    return hex;
}

json number_or_text(const std::string& text) {
    uint32_t number = 0;
    return CLI::detail::lexical_cast(text, number) ? json(number) : json(text);
}

void read_file(Draft& draft, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CLI::ValidationError(path, "cannot be read");
    draft.command["hex"] = to_hex({std::istreambuf_iterator<char>(file), {}});
}

struct Ctl {
    CLI::App& app;
    const std::string& socket;

    // A command whose answer is a sentence, unless it prints something of its own.
    CLI::App& add(const char* name, const char* help, const DraftPtr& draft,
                  void (*print)(const Draft&, const json&) = nullptr) {
        draft->command["command"] = name;
        CLI::App* command = app.add_subcommand(name, help);
        const std::string* path = &socket;
        command->callback([draft, path, print] {
            const json answer = ask_server(*path, draft->command);
            if (print != nullptr)
                print(*draft, answer);
            else
                std::printf("%s\n", answer.at("text").get<std::string>().c_str());
        });
        return *command;
    }
};

void add_call_commands(Ctl& ctl) {
    for (const auto& [name, help] : {std::pair{"suspend", "Suspend a call, as a lost carrier does"},
                                     std::pair{"resume", "Resume a suspended call"}}) {
        const auto draft = std::make_shared<Draft>();
        CLI::App& command = ctl.add(name, help, draft);
        add_call_choice(command, draft);
        add_status(command, draft, "indication");
    }
    for (const auto& [name, help] :
         {std::pair{"stop", "End a call, as the network does"},
          std::pair{"kill-response", "Answer the kill of a call to its clients"}}) {
        const auto draft = std::make_shared<Draft>();
        CLI::App& command = ctl.add(name, help, draft);
        add_call_choice(command, draft);
        add_status(command, draft, "event");
        add_word(command, draft, "--reason", "reason", reason_words(),
                 "Reason, delivered with the status transport (21)");
    }
    const auto draft = std::make_shared<Draft>();
    CLI::App& command = ctl.add("ip-change", "Give a call another address", draft);
    add_call_choice(command, draft);
    add_argument<std::string>(command, draft, "--address", "address", "The new IPv4 address")
        ->required()
        ->type_name("ADDRESS");
    add_argument<std::vector<std::string>>(command, draft, "--dns", "dns",
                                           "Its name servers, instead of the old")
        ->type_name("ADDRESS");
    add_argument<std::string>(command, draft, "--interface", "interface", "Its interface, instead of the old")
        ->type_name("INTERFACE");
}

void add_client_commands(Ctl& ctl) {
    const auto status = std::make_shared<Draft>();
    CLI::App& network_status = ctl.add("network-status", "Tell clients a network status", status);
    add_word(network_status, status, "--packet-data", "packet-data", network_status_words(),
             "Instead of the real status");
    add_word(network_status, status, "--wifi", "wifi", network_status_words(), "Instead of the real status");
    add_argument<uint32_t>(network_status, status, "--client", "client", "Tell only this client");

    const auto data = std::make_shared<Draft>();
    CLI::App& tunnel = ctl.add("tunnel", "Send tunnel data to the clients that have registered for it", data);
    auto* group = tunnel.add_option_group("data")->require_option(1);
    group->add_option_function<std::string>(
        "text", [data](const std::string& text) { data->command["hex"] = to_hex(text); },
        "The data, as text");
    add_argument<std::string>(*group, data, "--hex", "hex", "The data, two digits for each byte");
    group
        ->add_option_function<std::string>(
            "--file", [data](const std::string& path) { read_file(*data, path); }, "A file with the data")
        ->type_name("FILE");
    add_argument<uint32_t>(tunnel, data, "--id", "id", "Id of the indication");
    add_argument<uint32_t>(tunnel, data, "--client", "client", "Send to this client, registered or not");
}

void add_trouble_commands(Ctl& ctl) {
    const auto fault = std::make_shared<Draft>();
    CLI::App& add = ctl.add("fault", "Make what is sent go wrong", fault);
    add.add_option_function<std::string>(
           "kind", [fault](const std::string& kind) { fault->command["kind"] = kind; }, "What goes wrong")
        ->required()
        ->check(CLI::IsMember({"late", "code", "status", "half", "count", "length", "silent"}));
    add.add_option_function<std::string>(
           "value", [fault](const std::string& text) { fault->command["value"] = number_or_text(text); },
           "How late, such as 2s, or the code, status, count or length that is sent instead")
        ->type_name("VALUE");
    add.footer(
        "late: it comes by VALUE later, in milliseconds without a unit. code, status: with another code or "
        "status.\n"
        "count, length: with a wrong count in the block, or a wrong length in the record.\n"
        "half: the first 20 bytes of the record, and no more. silent: not at all.\n"
        "A fault falls on every answer and event of every client until it is taken back,\n"
        "unless the options say less.");
    add_argument<uint32_t>(add, fault, "--client", "client", "Only for this client");
    add_argument<std::string>(add, fault, "--event", "event",
                              "Only for this answer or event, by name or code");
    add_argument<uint32_t>(add, fault, "--times", "times", "How often; without it, until it is taken back");
    ctl.add("faults", "List what is going wrong on purpose", std::make_shared<Draft>());
    ctl.add("clear-faults", "Take all faults back", std::make_shared<Draft>());

    const auto socket = std::make_shared<Draft>();
    CLI::App& close = ctl.add("close", "Close a client's socket", socket);
    close
        .add_option_function<std::string>(
            "socket", [socket](const std::string& which) { socket->command["socket"] = which; },
            "sync or async")
        ->required()
        ->check(CLI::IsMember({"sync", "async"}));
    add_argument<uint32_t>(close, socket, "--client", "client", "The client")->required();

    const auto away = std::make_shared<Draft>();
    CLI::App& restart = ctl.add("restart", "Go away with all connections, and come back", away);
    add_argument<uint32_t>(restart, away, "--away", "away",
                           "How long to be away, such as 2s; milliseconds without a unit")
        ->transform(command_line::duration_in_milliseconds())
        ->type_name("TIME");
}

void add_scenario(Ctl& ctl) {
    const auto draft = std::make_shared<Draft>();
    CLI::App* command = ctl.app.add_subcommand("run", "Run a scenario file");
    command
        ->add_option("file", draft->file,
                     "TOML: [[step]] with a time such as at = \"2s\", command and its arguments")
        ->required()
        ->type_name("FILE");
    command->footer(
        "Each step is a command of ctl with its arguments at its time from the start, such as\n"
        "command = \"fault\", kind = \"late\", value = \"2s\". The first that fails ends the run.");
    const std::string* path = &ctl.socket;
    command->callback([draft, path] { run_scenario(*path, draft->file); });
}

void print_list(const Draft& draft, const json& answer) {
    const json& data = answer.at("data");
    if (draft.as_json)
        std::printf("%s\n", data.dump(2).c_str());
    else
        std::fputs(clients_and_calls(data).c_str(), stdout);
}

}  // namespace

void add_ctl(CLI::App& app, const std::string& socket) {
    CLI::App* group = app.add_subcommand("ctl", "Control a running server");
    group->require_subcommand(1)->fallthrough();
    Ctl ctl{*group, socket};
    add_call_commands(ctl);
    add_client_commands(ctl);
    add_trouble_commands(ctl);
    add_scenario(ctl);
    const auto draft = std::make_shared<Draft>();
    CLI::App& list = ctl.add("list", "List clients and calls", draft, print_list);
    list.add_flag("--json", draft->as_json, "Print JSON");
    ctl.add("reload", "Read the configuration file again, as SIGHUP does", std::make_shared<Draft>());
    ctl.add("payment", "Print the payment setting that an application has made", std::make_shared<Draft>());
}

}  // namespace quorvel::cm
