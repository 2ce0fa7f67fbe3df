#include "command-line/Run.h"

#include <fcntl.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "command-line/Completion.h"
#include "command-line/Suggestion.h"

namespace quorvel::command_line {
namespace {

// Who starts a program without one of its streams gets nothing there. Otherwise the first socket or file that
// is opened would take its place, and be written what is meant for somebody who reads.
void open_missing_streams() {
    for (const int stream : {0, 1, 2}) {
        if (fcntl(stream, F_GETFD) < 0) {
            (void)open("/dev/null", O_RDWR);
        }
    }
}

// What somebody has typed steers no terminal.
std::string printable(std::string text) {
    for (char& c : text) {
        c = static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
    }
    return text;
}

// The command that the words have led to.
const CLI::App& deepest(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : deepest(*chosen.back());
}

std::string whole_name(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name()
                                       : whole_name(*app.get_parent()) + " " + app.get_name();
}

// The first word that nobody takes, in words; nothing when every word has been taken.
std::string not_taken(const CLI::App& app, const CLI::App& at) {
    const std::vector<std::string> words = app.remaining(true);
    if (words.empty()) {
        return "";
    }
    const std::string word = words[0].substr(0, words[0].find('='));
    if (word.starts_with("-")) {
        return "unknown option: " + printable(word) + did_you_mean(word, options_of(at));
    }
    const auto commands = commands_of(at);
    return (commands.empty() ? "unexpected word: " : "unknown command: ") + printable(word) +
           did_you_mean(word, commands);
}

std::string command_missing(const CLI::App& at) {
    std::string text = "a command is missing:";
    for (const std::string& name : commands_of(at)) {
        text += " " + name;
    }
    return text;
}

std::string explain(const CLI::App& app, const CLI::App& at, const CLI::ParseError& error) {
    if (const auto* required = dynamic_cast<const CLI::RequiredError*>(&error);
        required != nullptr || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        if (const std::string text = not_taken(app, at); !text.empty()) {
            return text;
        }
        if (required != nullptr && at.get_require_subcommand_min() > 0) {
            return command_missing(at);
        }
    }
    return printable(error.what());
}

int read_and_do(CLI::App& app, int argc, char** argv, const std::function<int()>& rest) {
    if (argc > 1 && argv[1] == std::string_view("--complete")) {
        for (const std::string& word : completions(app, {argv + 2, argv + argc})) {
            std::printf("%s\n", word.c_str());
        }
        return kDone;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& status) {
        // A command that has said what it has to say.
        return status.get_exit_code();
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        const CLI::App& at = deepest(app);
        std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", app.get_name().c_str(),
                     explain(app, at, error).c_str(), whole_name(at).c_str());
        return kWrongUsage;
    }
    return rest ? rest() : kDone;
}

}  // namespace

int run(CLI::App& app, int argc, char** argv, const std::function<int()>& rest) {
    open_missing_streams();
    try {
        return read_and_do(app, argc, argv, rest);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), error.what());
        return kNotDone;
    }
}

}  // namespace quorvel::command_line
