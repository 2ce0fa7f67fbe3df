// What netcm makes of its command line: usage errors, help, completion. No server is needed for any of it.
#include <gmock/gmock.h>

#include <sstream>

#include "Netcm.h"

namespace quorvel::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

TEST(NetcmCommandLine, a_wrong_command_line_ends_with_status_2) {
    const std::vector<Words> wrong{{},
                                   {"opn"},
                                   {"open", "-1"},
                                   {"open", "one"},
                                   {"open", "1", "2"},
                                   {"open", "--for"},
                                   {"open", "--for", "-1"},
                                   {"open", "--nonsense"},
                                   {"close"},
                                   {"close", "0"},
                                   {"kill"}};
    for (const Words& words : wrong) {
        const Ended ended = netcm(words);
        EXPECT_EQ(ended.status, 2) << ::testing::PrintToString(words);
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, AllOf(HasSubstr("netcm: "), HasSubstr("--help")));
    }
}

TEST(NetcmCommandLine, an_unknown_command_is_named) {
    EXPECT_EQ(netcm({"nonsense"}).err, "netcm: unknown command: nonsense\nTry 'netcm --help'.\n");
}

TEST(NetcmCommandLine, what_was_meant_is_told) {
    EXPECT_EQ(netcm({"opne"}).err, "netcm: unknown command: opne; did you mean open?\nTry 'netcm --help'.\n");
    EXPECT_EQ(netcm({"profile", "lst"}).err,
              "netcm: unknown command: lst; did you mean list?\nTry 'netcm profile --help'.\n");
    EXPECT_EQ(netcm({"open", "--jsn"}).err,
              "netcm: unknown option: --jsn; did you mean --json?\nTry 'netcm open --help'.\n");
    EXPECT_EQ(netcm({"open", "--for", "5x"}).err,
              "netcm: --for: \"5x\" is no time; it is a number with ms, s, m, h or d: 90s, 1.5h\n"
              "Try 'netcm open --help'.\n");
}

TEST(NetcmCommandLine, shows_its_version) {
    const Ended ended = netcm({"--version"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, HasSubstr("netcm 4.0"));
}

// What completion offers after the words.
Words offered(const Words& words) {
    std::istringstream lines(netcm(Words{"--complete"} + words).out);
    Words found;
    for (std::string line; std::getline(lines, line);) {
        found.push_back(line);
    }
    return found;
}

// The commands that a help text explains, each with its explanation behind it.
Words explained_in(const std::string& help) {
    std::istringstream lines(help.substr(std::min(help.find("Subcommands:"), help.size())));
    std::string line;
    std::getline(lines, line);
    Words commands;
    while (std::getline(lines, line) && line.starts_with("  ")) {
        std::istringstream words(line);
        std::string explanation;
        if (words >> commands.emplace_back()) {
            EXPECT_TRUE(words >> explanation) << line;
        }
    }
    return commands;
}

void expect_help(const Words& command) {
    Words words = command;
    words.push_back("--help");
    const Ended ended = netcm(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out, HasSubstr("Usage: ")) << ::testing::PrintToString(command);
    for (const std::string& sub : explained_in(ended.out)) {
        words.back() = sub;
        expect_help(words);
    }
}

TEST(NetcmCommandLine, every_command_explains_itself) {
    EXPECT_THAT(explained_in(netcm({"--help"}).out), IsSupersetOf({"open", "watch", "close", "kill"}));
    expect_help({});
}

TEST(NetcmCompletion, offers_commands_and_options_that_fit) {
    EXPECT_THAT(offered({"op"}), ElementsAre("open"));
    EXPECT_THAT(offered({""}), AllOf(Contains("open"), Contains("watch"), Not(Contains("--json"))));
    EXPECT_THAT(offered({"open", "--f"}), ElementsAre("--for"));
    EXPECT_THAT(offered({"open", "--j"}), ElementsAre("--json"));
    EXPECT_THAT(offered({"open", "--for", ""}), IsEmpty());
}

TEST(NetcmCompletion, works_in_a_shell) {
    const std::string script = "source '" NETCM_COMPLETION "'; COMP_WORDS=('" NETCM_PATH
                               "' op); COMP_CWORD=1; _netcm '" NETCM_PATH "'; echo \"${COMPREPLY[@]}\"";
    EXPECT_EQ(run({"bash", "-c", script}).out, "open\n");
}

TEST(NetcmCompletion, works_in_zsh) {
    // What the shell itself would show is handed over by this function.
    const std::string script = "compadd() { shift; print -l -- \"$@\" }; words=('" NETCM_PATH
                               "' profile de); CURRENT=3; source '" NETCM_ZSH_COMPLETION "'";
    EXPECT_EQ(run({"zsh", "-f", "-c", script}).out, "delete\ndefault\n");
}

TEST(NetcmCompletion, works_in_fish) {
    const std::string script =
        "set -x HOME /tmp; function netcm; '" NETCM_PATH "' $argv; end; source '" NETCM_FISH_COMPLETION
        "'; complete -C 'netcm profile de'";
    EXPECT_EQ(run({"fish", "--no-config", "-c", script}).out, "default\ndelete\n");
}

}  // namespace
}  // namespace quorvel::test
