// What the program can be told on its command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "server.h"

namespace quorvel::cm {

struct Arguments {
    ServerOptions server;
    std::string log_level = "info";
    std::string log_format = "text";
    int64_t request_time = 5000;
    bool check_config = false;
    bool discover = false;
};

// The arguments have to live as long as the description.
void describe(CLI::App& app, Arguments& arguments);

}  // namespace quorvel::cm
