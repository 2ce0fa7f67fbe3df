// What leaves the library, seen three ways: version script, public headers, symbol table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "HeaderNames.h"
#include "support/Program.h"

namespace quorvel::test {
namespace {

constexpr char kPublicNode[] = "QUORVEL_4.0";
constexpr char kPrivateNode[] = "QUORVEL_PRIVATE_4.0";

// The names that the version script gives each node.
std::map<std::string, Names> nodes_of_the_script() {
    std::map<std::string, Names> nodes;
    const std::string script = contents_of(VERSION_SCRIPT);
    const std::regex node(R"((\w[\w.]*)\s*\{([^}]*)\})");
    const std::regex name(R"((\w+);)");
    for (std::sregex_iterator at(script.begin(), script.end(), node), end; at != end; ++at) {
        const std::string body = (*at)[2];
        for (std::sregex_iterator entry(body.begin(), body.end(), name); entry != end; ++entry)
            nodes[(*at)[1]].insert((*entry)[1]);
    }
    return nodes;
}

// The names that the library defines for others, by node. The nodes themselves are symbols, too.
std::map<std::string, Names> nodes_of_the_library() {
    std::map<std::string, Names> nodes;
    std::istringstream lines(
        run({"nm", "-D", "--defined-only", "--with-symbol-versions", QUORVEL_LIBRARY}).out);
    const std::regex symbol(R"(\w+ ([A-Za-z]) (\w+)@@?([\w.]+))");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, symbol))
            nodes[match[3]].insert(match[2]);
        else if (line.find(" A ") == std::string::npos)
            nodes["(without a version)"].insert(line);
    }
    return nodes;
}

Names missing_from(const Names& all, const Names& some) {
    Names missing;
    std::set_difference(some.begin(), some.end(), all.begin(), all.end(),
                        std::inserter(missing, missing.end()));
    return missing;
}

TEST(Exports, are_exactly_the_names_of_the_two_nodes) {
    const auto script = nodes_of_the_script();
    const auto library = nodes_of_the_library();
    ASSERT_EQ(script.size(), 2u);
    EXPECT_FALSE(script.at(kPublicNode).empty());
    EXPECT_FALSE(script.at(kPrivateNode).empty());
    for (const auto& [node, names] : script) {
        EXPECT_EQ(missing_from(library.at(node), names), Names{})
            << "named by the script, not in the library";
        EXPECT_EQ(missing_from(names, library.at(node)), Names{})
            << "in the library, not named by the script";
    }
    EXPECT_EQ(library.size(), 2u);
}

// An application that calls gettid means the C library's, and depends on no private node for it.
TEST(Exports, of_gettid_are_no_linkers_choice) {
    const std::string symbols =
        run({"nm", "-D", "--defined-only", "--with-symbol-versions", QUORVEL_LIBRARY}).out;
    EXPECT_THAT(symbols, ::testing::HasSubstr(" gettid@QUORVEL_PRIVATE_4.0\n"));
}

// A program may have a variable of its own by the name of one of ours: no code of the library names its data
// but the pointers that are set right at its start, one for each that it uses.
TEST(Exports, of_data_are_named_by_one_pointer_each) {
    std::map<std::string, int> named;
    std::istringstream relocations(run({"readelf", "-rW", QUORVEL_LIBRARY}).out);
    const std::regex symbol(R"(.* (R_\w+) +\w+ +(\w+)@@?QUORVEL_[\w.]+.*)");
    for (std::string line; std::getline(relocations, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, symbol))
            continue;
        EXPECT_THAT(std::string(match[1]), ::testing::Not(::testing::HasSubstr("GLOB_DAT"))) << line;
        EXPECT_EQ(++named[match[2]], 1) << line;
    }
    EXPECT_EQ(named.count("pipe_fds"), 1u);
    EXPECT_EQ(named.count("NetCMAppMutex"), 1u);
}

TEST(Exports, hold_no_symbol_of_cpp) {
    for (const auto& [node, names] : nodes_of_the_library())
        for (const std::string& name : names)
            EXPECT_FALSE(name.starts_with("_Z")) << name << " in " << node;
}

TEST(Exports, hold_everything_that_the_headers_declare) {
    Names exported;
    for (const auto& [node, names] : nodes_of_the_script())
        exported.insert(names.begin(), names.end());
    const Names declared = declared_in_the_headers();
    EXPECT_GT(declared.size(), 60u);
    EXPECT_EQ(missing_from(exported, declared), Names{});
}

TEST(Exports, of_the_public_node_are_all_declared_in_the_headers) {
    EXPECT_EQ(missing_from(declared_in_the_headers(), nodes_of_the_script().at(kPublicNode)), Names{});
}

std::string dynamic_section() {
    return run({"readelf", "-dW", QUORVEL_LIBRARY}).out;
}

TEST(Dependencies, the_library_has_its_name) {
    EXPECT_THAT(dynamic_section(), ::testing::HasSubstr("Library soname: [libquorvel.so.0]"));
}

TEST(Dependencies, are_the_c_library_and_the_platform) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer brings libraries of its own";
#endif
    Names needed;
    const std::string section = dynamic_section();
    const std::regex library(R"(Shared library: \[([^\]]*)\])");
    for (std::sregex_iterator at(section.begin(), section.end(), library), end; at != end; ++at)
        needed.insert((*at)[1]);
    EXPECT_EQ(needed,
              (Names{"libappmgr-ids.so.0", "libc.so.6", "libdebug-message-setting.so.0", "libevtsys.so.0"}));
}

TEST(Dependencies, are_never_the_cpp_run_time_or_the_configuration_store) {
    for (const char* name : {"libstdc++", "libgconf", "libglib", "libgobject"})
        EXPECT_THAT(dynamic_section(), ::testing::Not(::testing::HasSubstr(name)));
}

TEST(Dependencies, on_the_configuration_store_are_weak) {
    const std::string undefined = run({"nm", "-D", "--undefined-only", QUORVEL_LIBRARY}).out;
    for (const char* name : {"g_type_init", "gconf_client_get_default", "gconf_client_get_string",
                             "g_object_unref", "g_free", "g_error_free"})
        EXPECT_THAT(undefined, ::testing::HasSubstr(std::string(" w ") + name + "\n"));
}

}  // namespace
}  // namespace quorvel::test
