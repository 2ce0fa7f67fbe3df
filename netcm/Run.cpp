#include "Run.h"

#include "Command.h"
#include "command-line/Run.h"

namespace quorvel::netcm {

int run(int argc, char** argv) {
    CLI::App app;
    CommonOptions common;
    app.set_version_flag("--version", "netcm " NETCM_VERSION);
    describe(app, common);
    return command_line::run(app, argc, argv);
}

}  // namespace quorvel::netcm
