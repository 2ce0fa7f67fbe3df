// Man pages of a program's commands, made from its own description of them, so that they cannot say anything
// else.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <vector>

namespace quorvel::man {

struct Manual {
    int section = 1;
    std::string title;    // of the section
    std::string release;  // "Quorvel 4.0"
    std::string date;     // of the release
    // Options of the program itself that may stand behind every command.
    std::vector<std::string> common_options;
};

// A page "program-command.1" for every command, and for every command of a command. The program's own page is
// written by hand. Throws std::runtime_error when one cannot be written.
void write_pages(const CLI::App& program, const Manual& manual, const std::filesystem::path& folder);

// The same for the one command line argument, a folder, of a program that does nothing else.
template <class Arguments>
int write_pages(void (*describe)(CLI::App&, Arguments&), const Manual& manual, int argc, char** argv) {
    if (argc != 2)
        return 1;
    CLI::App program;
    Arguments arguments;
    describe(program, arguments);
    write_pages(program, manual, argv[1]);
    return 0;
}

}  // namespace quorvel::man
