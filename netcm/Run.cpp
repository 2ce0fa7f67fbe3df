#include "Run.h"

#include <algorithm>
#include <string_view>

#include "Command.h"
#include "command-line/Run.h"

namespace quorvel::netcm {
namespace {

// "netcm open 2 -- ping -c 3 192.0.2.1" has a command of its own behind the dashes, with words and options
// that are none of netcm's. Gives how many words are netcm's.
int take_command_behind(int argc, char** argv, CommonOptions& common) {
    char** end = argv + argc;
    const auto is = [](std::string_view word) { return [word](const char* given) { return word == given; }; };
    char** dashes = std::find_if(argv, end, is("--"));
    if (dashes == end || std::find_if(argv, dashes, is("open")) == dashes) {
        return argc;
    }
    common.behind.assign(dashes + 1, end);
    return static_cast<int>(dashes - argv);
}

}  // namespace

int run(int argc, char** argv) {
    CLI::App app;
    CommonOptions common;
    app.set_version_flag("--version", "netcm " NETCM_VERSION);
    describe(app, common);
    const int own = take_command_behind(argc, argv, common);
    return command_line::run(app, own, argv, [&common] { return common.status; });
}

}  // namespace quorvel::netcm
