// What cm-server makes of its command line: usage errors, suggestions, completion. No server runs for any of
// it.
#include <gmock/gmock.h>

#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

using ::testing::HasSubstr;

Ended cm_server(std::vector<std::string> words) {
    words.insert(words.begin(), CM_SERVER_PATH);
    return run(words);
}

TEST(ServerCommandLine, that_is_wrong_ends_with_status_2_and_says_where_help_is) {
    const std::vector<std::vector<std::string>> wrong{{"--nonsense"},
                                                      {"nonsense"},
                                                      {"--max-clients", "none"},
                                                      {"ctl"},
                                                      {"ctl", "nonsense"},
                                                      {"ctl", "stop", "one"},
                                                      {"ctl", "fault", "loud"},
                                                      {"replay"},
                                                      {"--request-time", "soon"},
                                                      {"--request-time", "1ms"},
                                                      {"--record-size", "much"}};
    for (const auto& words : wrong) {
        const Ended ended = cm_server(words);
        EXPECT_EQ(ended.status, 2) << ::testing::PrintToString(words) << ended.err;
        EXPECT_EQ(ended.out, "");
        EXPECT_THAT(ended.err, ::testing::StartsWith("cm-server: "));
        EXPECT_THAT(ended.err, HasSubstr("\nTry 'cm-server"));
    }
}

TEST(ServerCommandLine, that_is_nearly_right_is_told_what_was_meant) {
    EXPECT_EQ(cm_server({"ctl", "susspend"}).err,
              "cm-server: unknown command: susspend; did you mean suspend?\nTry 'cm-server ctl --help'.\n");
    EXPECT_EQ(cm_server({"--confg", "x"}).err,
              "cm-server: unknown option: --confg; did you mean --config?\nTry 'cm-server --help'.\n");
    EXPECT_EQ(
        cm_server({"ctl", "stop", "--raeson", "5"}).err,
        "cm-server: unknown option: --raeson; did you mean --reason?\nTry 'cm-server ctl stop --help'.\n");
}

TEST(ServerCommandLine, is_completed) {
    EXPECT_EQ(cm_server({"--complete", "ct"}).out, "ctl\n");
    EXPECT_EQ(cm_server({"--complete", "ctl", "sus"}).out, "suspend\n");
    EXPECT_EQ(cm_server({"--complete", "ctl", "stop", "--rea"}).out, "--reason\n");
    EXPECT_EQ(cm_server({"--complete", "ctl", "stop", "--so"}).out, "--socket\n");
}

TEST(ServerCommandLine, is_completed_in_a_shell) {
    const std::string script =
        "source '" CM_SERVER_COMPLETION "'; COMP_WORDS=('" CM_SERVER_PATH
        "' mon); COMP_CWORD=1; _cm_server '" CM_SERVER_PATH "'; echo \"${COMPREPLY[@]}\"";
    EXPECT_EQ(run({"bash", "-c", script}).out, "monitor\n");
}

}  // namespace
}  // namespace quorvel::test
