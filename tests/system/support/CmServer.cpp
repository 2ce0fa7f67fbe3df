#include "support/CmServer.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <stdexcept>

namespace quorvel::test {
namespace {

constexpr const char* kConfigPath = "/tmp/cm-server.toml";

std::vector<std::string> command(const std::string& config, const std::vector<std::string>& more) {
    std::vector<std::string> words{CM_SERVER_PATH};
    if (!config.empty()) {
        std::ofstream(kConfigPath) << config;
        words.insert(words.end(), {"--config", kConfigPath});
    }
    // Never the store of whoever runs the tests.
    if (std::ranges::find(more, "--db") == more.end())
        words.insert(words.end(), {"--db", ":memory:"});
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

}  // namespace

CmServer::CmServer(const std::string& config, const std::vector<std::string>& more)
    : program_(command(config, more)) {
    program_.wait_for_err("listening on");
}

std::string CmServer::ctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {CM_SERVER_PATH, "ctl"});
    const Ended ended = run(arguments);
    if (ended.status != 0) {
        throw std::runtime_error("cm-server ctl failed: " + ended.err);
    }
    return ended.out;
}

Ended CmServer::stop() {
    program_.send_signal(SIGTERM);
    return program_.wait();
}

}  // namespace quorvel::test
