// Every command has a man page that names all of its options, as the program itself explains them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/Program.h"

namespace quorvel::test {
namespace {

using Words = std::vector<std::string>;

struct Documented {
    const char* program;
    const char* path;
    const char* own_page;
    const char* section;

    std::filesystem::path folder() const { return std::filesystem::path(PAGES_FOLDER) / program; }
};

std::string content(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string in_roff(const std::string& option) {
    std::string text;
    for (const char c : option)
        text += c == '-' ? "\\-" : std::string(1, c);
    return text;
}

// The first words of the lines below a heading of a help text.
Words listed_below(const std::string& help, const std::string& heading) {
    std::istringstream lines(help);
    Words found;
    bool below = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with(":") && line.find(heading) != std::string::npos)
            below = true;
        else if (line.empty() || line[0] != ' ')
            below = false;
        else if (below && line.substr(0, 3) != std::string(3, ' '))
            found.push_back(line.substr(2, line.find(' ', 2) - 2));
        else if (below && line.substr(0, 5).find_first_not_of(' ') == 4)
            found.push_back(line.substr(4, line.find(' ', 4) - 4));
    }
    return found;
}

// The long options that a help text names, in its prose, too.
Words long_options(const std::string& help) {
    Words found;
    for (size_t at = help.find("--"); at != std::string::npos; at = help.find("--", at)) {
        const size_t end = help.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-", at);
        const std::string option = help.substr(at, end - at);
        if (option.size() > 2 && option.back() != '-')
            found.push_back(option);
        at += option.size();
    }
    return found;
}

bool names(const std::string& page, const std::string& word) {
    return page.find(in_roff(word)) != std::string::npos;
}

class ManPages : public ::testing::TestWithParam<Documented> {
  public:
    std::string help_of(const Words& command) {
        Words words{GetParam().path};
        words.insert(words.end(), command.begin(), command.end());
        words.emplace_back("--help");
        const Ended ended = run(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        return ended.out;
    }
    std::filesystem::path page_of(const Words& command) {
        std::string name = GetParam().program;
        for (const std::string& word : command)
            name += "-" + word;
        return command.empty() ? std::filesystem::path(GetParam().own_page)
                               : GetParam().folder() / (name + "." + GetParam().section);
    }
    // The command, and all below it. Gives how many these are.
    size_t expect_pages(const Words& command) {
        const std::string help = help_of(command);
        const std::string page = content(page_of(command));
        EXPECT_FALSE(page.empty()) << page_of(command);
        for (const std::string& option : long_options(help))
            EXPECT_TRUE(names(page, option)) << page_of(command) << " says nothing of " << option;
        size_t count = 1;
        for (const std::string& sub : listed_below(help, "Subcommands")) {
            Words below = command;
            below.push_back(sub);
            EXPECT_TRUE(names(page, sub)) << page_of(command) << " says nothing of " << sub;
            count += expect_pages(below);
        }
        return count;
    }
};
INSTANTIATE_TEST_SUITE_P(Of, ManPages,
                         ::testing::Values(Documented{"netcm", NETCM_PATH, NETCM_PAGE, "1"},
                                           Documented{"cm-server", CM_SERVER_PATH, CM_SERVER_PAGE, "8"}),
                         [](const auto& program) { return program.index == 0 ? "Netcm" : "CmServer"; });

TEST_P(ManPages, name_every_command_and_option) {
    const size_t commands = expect_pages({});
    EXPECT_GT(commands, 15u);
    // The program's own page is elsewhere, and there are no pages of commands that have gone.
    const std::filesystem::directory_iterator pages(GetParam().folder());
    EXPECT_EQ(static_cast<size_t>(std::distance(begin(pages), end(pages))), commands - 1);
}

TEST_P(ManPages, are_set_without_a_warning) {
    Words pages{GetParam().own_page};
    for (const auto& page : std::filesystem::directory_iterator(GetParam().folder()))
        pages.push_back(page.path());
    for (Words command : {Words{"groff", "-ww", "-man", "-Tutf8", "-z"}, Words{"mandoc", "-T", "lint"}}) {
        command.insert(command.end(), pages.begin(), pages.end());
        const Ended ended = run(command);
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.out + ended.err, "");
    }
}

}  // namespace
}  // namespace quorvel::test
