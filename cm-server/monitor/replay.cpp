#include "monitor/replay.h"

#include <memory>

#include "monitor/replayer.h"

namespace quorvel::cm {

void add_replay(CLI::App& app, const std::string& socket) {
    struct Choice {
        std::string file;
        uint32_t client = 0;
    };
    CLI::App* command = app.add_subcommand("replay", "Serve a session that the monitor has recorded");
    command->fallthrough();
    const auto choice = std::make_shared<Choice>();
    command->add_option("file", choice->file, "What monitor --record has kept")
        ->required()
        ->type_name("FILE");
    command->add_option("--client", choice->client, "Take this client's part; without it, the first one's")
        ->type_name("NUMBER");
    command->footer("Every request is printed, and what was recorded where the client asks something else.");
    command->callback(
        [choice, &socket] { Replayer(socket, read_session(choice->file, choice->client)).run(); });
}

}  // namespace quorvel::cm
