// netcm tunnel send, tunnel listen
#include <quorvel/NetCM.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "../Command.h"
#include "../Hex.h"
#include "../Status.h"
#include "../TimeLimit.h"

namespace quorvel::netcm {
namespace {

using Bytes = std::vector<uint8_t>;

std::string check_hex(const std::string& text) {
    return from_hex(text) ? "" : "\"" + printable(text) + "\" is no sequence of hexadecimal bytes";
}

Bytes from_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    Bytes bytes(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || file.bad()) {
        throw Failure("cannot read " + path + ": " + std::strerror(errno));
    }
    return bytes;
}

struct SendOptions {
    std::string text;
    std::string hex;
    std::string file;
    const CLI::Option_group* given = nullptr;
    int32_t param = 0;

    void define(CLI::App& command) {
        CLI::Option_group* source = command.add_option_group("data", "One of");
        given = source;
        source->add_option("DATA", text, "The text to send")->type_name("");
        source->add_option("--hex", hex, "Bytes to send, as hexadecimal digits")
            ->type_name("DIGITS")
            ->check(check_hex);
        source->add_option("--file", file, "A file to send; /dev/stdin for standard input")
            ->type_name("FILE");
        source->require_option(0, 1);
        command.add_option("--param", param, "The parameter word (0)")->type_name("NUMBER");
    }

    // Nothing may be meant, but has to be said: netcm tunnel send "".
    void require_data() const {
        const auto options = given->get_options();
        if (std::ranges::none_of(options, [](const CLI::Option* option) { return option->count() > 0; })) {
            throw CLI::RequiredError("data to send (DATA, --hex or --file)");
        }
    }

    Bytes bytes() const {
        return !hex.empty()    ? *from_hex(hex)
               : !file.empty() ? from_file(file)
                               : Bytes(text.begin(), text.end());
    }
};

void run_send(const CommonOptions& common, const SendOptions& options) {
    options.require_data();
    Bytes bytes = options.bytes();
    Session session;
    NetCMTunnelData request{options.param, 0, static_cast<uint32_t>(bytes.size()), bytes.data()};
    require_success(NetCMTunnelRequest(&request), "cannot send the tunnel data");
    const EventTest is_answer = [&](const Event& event) {
        const auto* answer = std::get_if<TunnelBytes>(&event.data);
        return event.type == NETCM_EVENT_TUNNEL_RSP && answer != nullptr &&
               answer->request_id == request.RequestId;
    };
    common.printer().event(to_json(await(common, session, is_answer, "tunnel response")));
    session.end(forget);
}

void run_listen(const CommonOptions& common, const StayOption& stay) {
    Printer printer = common.printer();
    Session session;
    require_success(NetCMClientRegisterTunnelInd(), "cannot register for tunnel data");
    stop_time_limit();
    session.follow(stay.deadline(), [&](const Event& event) {
        if (event.type == NETCM_EVENT_TUNNEL_IND) {
            printer.event(to_json(event));
        }
    });
    require_success(NetCMClientDeRegisterTunnelInd(), "cannot deregister from tunnel data");
    session.end(forget);
}

}  // namespace

void add_tunnel_commands(CLI::App& app, const CommonOptions& common) {
    CLI::App* tunnel = app.add_subcommand("tunnel", "Exchange opaque data with the CM server");
    tunnel->require_subcommand(1);
    add_command(*tunnel, common, "send", "Send data, and print the server's answer", run_send);
    add_command(*tunnel, common, "listen", "Print the tunnel data that the server sends", run_listen);
}

}  // namespace quorvel::netcm
