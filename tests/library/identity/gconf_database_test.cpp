// Names from a real GConf database, in a session of the test's own.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "support/Program.h"

namespace quorvel::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr char kBus[] = "unix:path=/tmp/session-bus";

std::string key_of(int id) {
    return "/System/AppInfo/" + std::to_string(id) + "/AppName";
}

// A bus, and on it the configuration daemon with an empty database.
class Session {
  public:
    Session() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        fs::create_directory("/tmp/home");
        setenv("HOME", "/tmp/home", 1);
        setenv("LC_ALL", "C.UTF-8", 1);  // in which the tool reads its arguments
        setenv("DBUS_SESSION_BUS_ADDRESS", kBus, 1);
        unsetenv("XDG_CONFIG_HOME");
        bus_ = std::make_unique<Program>(std::vector<std::string>{
            "dbus-daemon", "--session", "--nofork", "--print-address=1", "--address=" + std::string(kBus)});
        bus_->wait_for_out(kBus);
    }
    // The configuration daemon is the bus's child and then an orphan, which comes to this process to be
    // waited for.
    ~Session() {
        run({"gconftool-2", "--shutdown"});
        bus_.reset();
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    static void configure(int id, const std::string& name) {
        const Ended ended = run({"gconftool-2", "--type", "string", "--set", key_of(id), name});
        ASSERT_EQ(ended.status, 0) << ended.err;
    }

  private:
    std::unique_ptr<Program> bus_;
};

struct Answer {
    std::string out;
    std::string err;
};

Answer ask(int id, const std::vector<std::string>& environment = {}, int threads = 0) {
    std::vector<std::string> command{"env", "QUORVEL_TRACE=all"};
    command.insert(command.end(), environment.begin(), environment.end());
    command.insert(command.end(), {APP_NAME_PROBE, std::to_string(id), std::to_string(threads)});
    const Ended ended = run(command);
    EXPECT_EQ(ended.status, 0) << ended.err;
    return {ended.out, ended.err};
}

// The output for one answer: result, name, its length, and the byte behind the buffer.
std::string answer(int result, const std::string& name) {
    return "loaded 0\n" + std::to_string(result) + " [" + name + "] " + std::to_string(name.size()) +
           "#\nloaded 1\n";
}

TEST(GConfDatabase, a_configured_name_is_read) {
    const Session session;
    session.configure(7, "Browser");
    const Answer asked = ask(7);
    EXPECT_EQ(asked.out, answer(0, "Browser"));
    EXPECT_THAT(asked.err, HasSubstr("App ID [7] App Name[Browser]"));
}

TEST(GConfDatabase, a_name_in_utf_8_is_read) {
    const Session session;
    session.configure(8, "웹 브라우저 é");
    EXPECT_EQ(ask(8).out, answer(0, "웹 브라우저 é"));
}

TEST(GConfDatabase, an_empty_name_leaves_the_buffer_alone) {
    const Session session;
    session.configure(9, "");
    // The empty value stays allocated on purpose, which a leak check of this one program would report.
    EXPECT_EQ(ask(9, {"ASAN_OPTIONS=detect_leaks=0"}).out, answer(0, std::string(256, '#')));
}

TEST(GConfDatabase, a_missing_key_gives_the_fallback_name) {
    const Session session;
    const Answer asked = ask(10);
    EXPECT_THAT(asked.out, HasSubstr("1 [No Name_"));
    EXPECT_THAT(asked.err, HasSubstr("Failed to read string value at [" + key_of(10) + "]"));
    EXPECT_THAT(asked.err, HasSubstr("Failed to get app name : app_id [10] app name[No Name_"));
}

TEST(GConfDatabase, a_value_that_is_no_text_gives_the_fallback_name) {
    const Session session;
    ASSERT_EQ(run({"gconftool-2", "--type", "int", "--set", key_of(11), "5"}).status, 0);
    EXPECT_THAT(ask(11).out, HasSubstr("1 [No Name_"));
}

TEST(GConfDatabase, names_of_256_bytes_fill_the_buffer_to_the_brim) {
    const Session session;
    for (const size_t length : {255u, 256u, 300u}) {
        session.configure(12, std::string(length, 'n'));
        EXPECT_EQ(ask(12).out, answer(0, std::string(std::min(length, size_t{256}), 'n')));
    }
}

TEST(GConfDatabase, without_a_session_the_fallback_name_is_given) {
    EXPECT_THAT(ask(13, {"DBUS_SESSION_BUS_ADDRESS=unix:path=/tmp/nobody", "HOME=/tmp"}).out,
                HasSubstr("1 [No Name_"));
}

TEST(GConfDatabase, threads_that_ask_together_all_get_the_name) {
    const Session session;
    session.configure(14, "Browser");
    const std::string out = ask(14, {}, 16).out;
    size_t answers = 0;
    for (size_t at = out.find("0 [Browser] 7#"); at != std::string::npos;
         at = out.find("0 [Browser] 7#", at + 1))
        ++answers;
    EXPECT_EQ(answers, 16u) << out;
}

// The library alone, as a system without GConf has it.
TEST(GConfDatabase, without_the_helper_the_fallback_name_is_given) {
    const fs::path alone = "/tmp/alone";
    fs::create_directory(alone);
    fs::copy_file(QUORVEL_LIBRARY, alone / "libquorvel.so.0");
    const fs::path platform = fs::path(QUORVEL_LIBRARY).parent_path();
    const Answer asked = ask(15, {"LD_LIBRARY_PATH=" + alone.string() + ":" + platform.string()});
    EXPECT_THAT(asked.out, HasSubstr("1 [No Name_"));
    EXPECT_THAT(asked.out, HasSubstr("#\nloaded 0\n"));
    EXPECT_THAT(asked.err, HasSubstr("Failed to read string value at [" + key_of(15) + "]"));
}

}  // namespace
}  // namespace quorvel::test
