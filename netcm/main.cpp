// netcm: connections, profiles and names from the command line.
//
// Exit status: 0 done, 1 not done (standard error says why), 2 the command line is wrong.
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "Command.h"
#include "Completion.h"
#include "Status.h"

namespace quorvel::netcm {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

void print_completions(const CLI::App& app, const std::vector<std::string>& words) {
    for (const std::string& word : completions(app, words)) {
        std::printf("%s\n", word.c_str());
    }
}

int wrong_usage(const std::string& what) {
    std::fprintf(stderr, "netcm: %s\nTry --help.\n", what.c_str());
    return kWrongUsage;
}

int run(int argc, char** argv) {
    CLI::App app;
    CommonOptions common;
    app.set_version_flag("--version", "netcm " NETCM_VERSION);
    describe(app, common);
    if (argc > 1 && argv[1] == std::string_view("--complete")) {
        print_completions(app, {argv + 2, argv + argc});
        return 0;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        const std::vector<std::string> unknown = app.remaining(true);
        return unknown.empty() ? wrong_usage(error.what())
                               : wrong_usage("unknown command: " + printable(unknown[0]));
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : wrong_usage(error.what());
    }
    return 0;
}

}  // namespace
}  // namespace quorvel::netcm

int main(int argc, char** argv) {
    try {
        return quorvel::netcm::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "netcm: %s\n", error.what());
        return quorvel::netcm::kFailed;
    }
}
