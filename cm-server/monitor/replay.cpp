#include "monitor/replay.h"

#include <memory>

#include "monitor/replayer.h"
#include "record/reader.h"

namespace quorvel::cm {

void add_replay(CLI::App& app, const std::string& socket) {
    struct Choice {
        std::string file;
        uint32_t client = 0;
        ReplayOptions options;
    };
    CLI::App* command = app.add_subcommand("replay", "Serve a recorded session again");
    command->fallthrough();
    const auto choice = std::make_shared<Choice>();
    command->add_option("file", choice->file, "The record; files that it had before are beside it")
        ->required()
        ->type_name("FILE");
    command->add_option("--client", choice->client, "Every client takes this client's part")
        ->type_name("NUMBER");
    command
        ->add_option("--speed", choice->options.speed,
                     "How many times as fast as recorded; 0: without waiting")
        ->check(CLI::NonNegativeNumber)
        ->type_name("NUMBER")
        ->capture_default_str();
    command->add_flag("--once", choice->options.once, "End when every recorded client has come and gone");
    command->footer(
        "Who registers takes the part of a recorded client: of the same application, if there is one, and of "
        "one recorded process for each process.\n"
        "Every request is printed, and what was recorded where a client asks something else. At the end it "
        "says "
        "what the clients did otherwise, with status 1 if they did.");
    command->callback([choice, &socket] {
        Lives lives = lives_of(read_record(choice->file), choice->client);
        if (!Replayer(socket, std::move(lives), choice->options).run())
            throw CLI::RuntimeError(1);
    });
}

}  // namespace quorvel::cm
