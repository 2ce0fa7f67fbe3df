// Connections as objects, with a well-behaved server.
#include <csignal>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>

#include "Bound.h"
#include "support/LibraryCalls.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class CppConnection : public Bound {};

TEST_F(CppConnection, is_open_with_its_details_and_closes_at_the_end_of_its_scope) {
    {
        const Connection connection = registration.open();
        EXPECT_TRUE(connection);
        EXPECT_EQ(connection.state(), Connection::State::open);
        EXPECT_EQ(connection.profile(), 1);
        EXPECT_EQ(connection.info().interface, "lo");
        EXPECT_EQ(connection.info().address, Address::parse("127.0.0.1"));
        EXPECT_FALSE(connection.outcome());
        EXPECT_THAT(registration.active_profiles(), ElementsAre(1));
    }
    EXPECT_THAT(registration.active_profiles(), IsEmpty());
}

TEST_F(CppConnection, is_closed_once_and_says_so) {
    Connection connection = registration.open(1);
    connection.close();
    EXPECT_EQ(connection.state(), Connection::State::ended);
    ASSERT_TRUE(connection.outcome());
    EXPECT_FALSE(connection.outcome()->error);
    connection.close();
    EXPECT_TRUE(connection.wait_ended(0ms));
    // The profile is free again at once.
    EXPECT_TRUE(registration.open(1));
}

TEST_F(CppConnection, is_asked_for_without_waiting) {
    Connection connection = registration.start();
    connection.wait_open();
    EXPECT_TRUE(connection);
    const std::optional<Event> first = connection.next_event();
    ASSERT_TRUE(first && std::holds_alternative<Opened>(*first));
    EXPECT_EQ(std::get<Opened>(*first).info.interface, "lo");
}

TEST_F(CppConnection, belongs_to_one_registration_once_and_is_shared_by_two) {
    Connection mine = registration.open(1);
    EXPECT_EQ(code_of([&] { registration.open(1); }), Status::already_exists);
    EXPECT_TRUE(mine);
    Registration other;
    Connection shared = other.open(1);
    mine.close();
    EXPECT_TRUE(shared);
    EXPECT_THAT(registration.active_profiles(), ElementsAre(1));
}

TEST_F(CppConnection, is_used_moved_and_destroyed_by_any_thread) {
    Connection connection;
    std::thread([&] { connection = registration.open(1); }).join();
    EXPECT_TRUE(connection);
    std::thread([&] { EXPECT_EQ(registration.network_state(Interface::packet_data), 3u); }).join();
    std::thread([moved = std::move(connection)] { EXPECT_TRUE(moved); }).join();
    EXPECT_THAT(registration.active_profiles(), IsEmpty());
    std::thread([moved = std::move(registration)] { EXPECT_TRUE(moved); }).join();
}

TEST_F(CppConnection, several_registrations_work_on_several_threads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] {
            Registration own;
            for (int round = 0; round < 3; ++round) {
                Connection connection;
                // Another one's close may be under way.
                while (!connection) {
                    std::error_code error;
                    connection = own.open(1, open_limit, error);
                    ASSERT_TRUE(!error || error == Status::call_closing) << error.message();
                }
                connection.close();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(registration.active_profiles(), IsEmpty());
}

TEST_F(CppConnection, outlives_its_registration_as_one_that_has_ended) {
    Connection connection = registration.open();
    registration.end();
    EXPECT_FALSE(registration);
    EXPECT_EQ(connection.state(), Connection::State::ended);
    connection.close();
    EXPECT_EQ(code_of([&] { connection.resolve("localhost"); }), NameError::refused);
    EXPECT_EQ(code_of([&] { registration.open(); }), Status::not_registered);
}

TEST_F(CppConnection, that_was_moved_from_is_empty) {
    Connection first = registration.open();
    Connection second = std::move(first);
    // NOLINTBEGIN(bugprone-use-after-move): what is promised of it
    EXPECT_FALSE(first);
    EXPECT_EQ(first.state(), Connection::State::ended);
    EXPECT_EQ(first.profile(), 0);
    EXPECT_EQ(first.info().interface, "");
    EXPECT_FALSE(first.outcome());
    EXPECT_FALSE(first.next_event(0ms));
    EXPECT_TRUE(first.wait_ended());
    first.close();
    EXPECT_EQ(code_of([&] { first.wait_open(); }), Status::not_registered);
    EXPECT_EQ(code_of([&] { first.on_event({}); }), Status::not_registered);
    EXPECT_EQ(code_of([&] { first.kill(); }), Status::not_active);
    EXPECT_EQ(code_of([&] { first.resolve("localhost"); }), NameError::refused);
    EXPECT_TRUE(second);
    first = std::move(second);
    EXPECT_TRUE(first);
    first = Connection();
    EXPECT_THAT(registration.active_profiles(), IsEmpty());
    Registration other = std::move(registration);
    EXPECT_FALSE(registration);
    EXPECT_EQ(code_of([&] { registration.open(); }), Status::not_registered);
    EXPECT_EQ(code_of([&] { registration.statistics(); }), Status::not_registered);
    EXPECT_EQ(code_of([&] { registration.profiles().ids(); }), Status::not_registered);
    EXPECT_EQ(code_of([&] { registration.tunnel("x", 1); }), Status::not_registered);
    EXPECT_FALSE(registration.next_event(0ms));
    registration.end();
    // NOLINTEND(bugprone-use-after-move)
}

TEST_F(CppConnection, kills_for_everybody) {
    Registration other;
    Connection theirs = other.open(1);
    Connection mine = registration.open(1);
    mine.kill();
    EXPECT_EQ(mine.state(), Connection::State::ended);
    const std::optional<Event> own = mine.next_event();
    ASSERT_TRUE(own && std::holds_alternative<Killed>(*own));
    ASSERT_TRUE(theirs.wait_ended());
    const std::optional<Event> event = theirs.next_event();
    ASSERT_TRUE(event && std::holds_alternative<Stopped>(*event));
    EXPECT_EQ(std::get<Stopped>(*event).error, Status::killed);
    Connection again = other.open(1);
    registration.kill(1);
    EXPECT_TRUE(again.wait_ended());
    EXPECT_EQ(code_of([&] { again.kill(); }), Status::not_active);
}

TEST_F(CppConnection, is_ended_by_a_kill_of_its_profile_in_the_same_registration) {
    Connection connection = registration.open(1);
    registration.kill(1);
    EXPECT_EQ(connection.state(), Connection::State::ended);
    connection = registration.open(1);
    registration.kill_all();
    EXPECT_TRUE(connection.wait_ended(20s));
    EXPECT_TRUE(registration.open(1));
}

TEST_F(CppConnection, tunnels_data) {
    const std::string text = "hello";
    const std::vector<std::byte> answer = registration.tunnel(text.data(), text.size());
    ASSERT_EQ(answer.size(), text.size());
    EXPECT_EQ(std::memcmp(answer.data(), text.data(), text.size()), 0);
    EXPECT_THAT(registration.tunnel(nullptr, 0), IsEmpty());
}

TEST_F(CppConnection, reads_state_settings_and_statistics) {
    EXPECT_TRUE(registration.has(Interface::packet_data));
    const std::uint32_t before = registration.setting(0);
    registration.set_setting(0, before + 1);
    EXPECT_EQ(registration.setting(0), before + 1);
    EXPECT_EQ(code_of([&] { registration.setting(5); }), Status::invalid_param);
    EXPECT_EQ(code_of([&] { registration.packet_data_state(); }), Status::not_registered);
    Connection connection = registration.open();
    const std::uint32_t state = registration.packet_data_state();
    registration.set_packet_data_state(state);
    registration.reset_statistics(0);
    registration.statistics();
    EXPECT_THAT(registration.active_profile_names(), ElementsAre(registration.profiles().get(1).name));
}

TEST_F(CppConnection, leaves_signals_to_the_threads_of_the_application) {
    Connection connection = registration.open();
    connection.on_event([](const Event&) {});
    size_t others = 0;
    for (const int32_t tid : threads()) {
        std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
        const std::string text{std::istreambuf_iterator<char>(status), {}};
        const bool blocked =
            (std::stoull(text.substr(text.find("SigBlk:") + 7), nullptr, 16) & (1ull << (SIGUSR1 - 1))) != 0;
        others += tid != getpid() && blocked;
    }
#if defined(__SANITIZE_THREAD__)
    --others;  // the sanitizer's own
#endif
    EXPECT_EQ(others, 3u) << "requests, handlers, and the library's receiver";
}

TEST(CppRegistration, tells_why_it_failed) {
    calls::skip_sleeps();
    const std::optional<Error> error = error_of([] { Registration registration; });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), Status::reregister_retry_exhausted);
    EXPECT_STREQ(error->code().category().name(), "quorvel");
    EXPECT_THAT(error->what(),
                HasSubstr("cannot register with the CM server: the CM server could not be reached"));
    EXPECT_FALSE(error->reason());
    std::error_code code;
    Registration registration(code);
    EXPECT_EQ(code, Status::reregister_retry_exhausted);
    EXPECT_FALSE(registration);
    // And again with a server, in the same places.
    CmServer server;
    registration = Registration(code);
    EXPECT_FALSE(code) << "a code is cleared by success";
    EXPECT_TRUE(registration);
}

TEST(CppRegistration, are_sixteen_at_most) {
    CmServer server;
    std::vector<Registration> all(16);
    EXPECT_EQ(code_of([] { Registration registration; }), Status::no_free_entry);
    all.pop_back();
    EXPECT_TRUE(Registration());
}

TEST(CppError, has_words_for_every_status) {
    for (const int value : {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 13, 14, 16, 17, 19, 21, 22})
        EXPECT_THAT(category().message(value), ::testing::Not(HasSubstr("status"))) << value;
    EXPECT_EQ(category().message(104), "status 104 of the CM server");
    EXPECT_EQ(std::error_code(Status::failure).value(), 1);
    EXPECT_FALSE(std::error_code(Status::success));
    EXPECT_NE(std::error_code(NameError::refused), std::error_code(Status::failure));
}

}  // namespace
}  // namespace quorvel::test
