#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

#include "support/Program.h"

namespace quorvel::test {
namespace {

using ::testing::ElementsAre;

struct Library {
    std::string file;
    std::string soname;
    std::vector<std::string> functions;
};

void PrintTo(const Library& library, std::ostream* stream) {
    *stream << library.soname;
}

class PlatformLibrary : public ::testing::TestWithParam<Library> {};

// What stands between two texts, wherever they occur in one line.
std::vector<std::string> all_between(const std::string& text, const std::string& left,
                                     const std::string& right) {
    std::vector<std::string> found;
    for (size_t at = text.find(left); at != std::string::npos; at = text.find(left, at)) {
        at += left.size();
        found.push_back(text.substr(at, text.find(right, at) - at));
    }
    return found;
}

TEST_P(PlatformLibrary, has_the_name_of_the_handsets_own) {
    const std::string dynamic = run({"readelf", "-dW", GetParam().file}).out;
    EXPECT_THAT(all_between(dynamic, "soname: [", "]"), ElementsAre(GetParam().soname));
}

TEST_P(PlatformLibrary, needs_the_c_library_alone) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer brings libraries of its own";
#endif
    const std::string dynamic = run({"readelf", "-dW", GetParam().file}).out;
    EXPECT_THAT(all_between(dynamic, "Shared library: [", "]"), ElementsAre("libc.so.6"));
}

TEST_P(PlatformLibrary, exports_its_functions_and_nothing_else) {
    const std::string symbols = run({"nm", "-D", "--defined-only", GetParam().file}).out;
    EXPECT_EQ(all_between(symbols, " T ", "\n"), GetParam().functions);
    EXPECT_EQ(std::count(symbols.begin(), symbols.end(), '\n'), std::ssize(GetParam().functions)) << symbols;
}

INSTANTIATE_TEST_SUITE_P(
    , PlatformLibrary,
    ::testing::Values(Library{DEBUG_MESSAGE_LIBRARY, "libdebug-message-setting.so.0", {"_debug_message"}},
                      Library{APPMGR_LIBRARY, "libappmgr-ids.so.0", {"app_get_current_id"}},
                      Library{EVTSYS_LIBRARY,
                              "libevtsys.so.0",
                              {"EvtSysEventHandleExist", "EvtSysEventPublish", "EvtSysLibraryOpen"}}),
    [](const auto& library) {
        std::string name = library.param.soname;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return ispunct(c) != 0; }, '_');
        return name;
    });

}  // namespace
}  // namespace quorvel::test
