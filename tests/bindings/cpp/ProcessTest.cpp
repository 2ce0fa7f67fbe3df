// The process: forks, its end, and a thread that is cancelled.
#include <pthread.h>

#include <future>
#include <thread>

#include "Bound.h"
#include "library/process/Child.h"
#include "support/Program.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;

class CppProcess : public Bound {};

TEST_F(CppProcess, that_forks_has_empty_objects_in_its_child_and_whole_ones_in_the_parent) {
    auto connection = std::make_unique<Connection>(registration.open());
    connection->on_event([](const Event&) {});
    auto another = std::make_unique<Registration>();
    Child child([&](const InChild& in_child) {
        in_child.check(!registration, "an empty registration");
        in_child.check(!*connection, "an empty connection");
        in_child.check(connection->state() == Connection::State::ended, "an ended connection");
        std::error_code error;
        registration.open(1, 20s, error);
        in_child.equal("open", error.value(), 6);
        registration.profiles().ids(Profiles::Kind::every, error);
        in_child.equal("profiles", error.value(), 6);
        connection->close(20s, error);
        in_child.equal("close", error.value(), 6);
        connection->resolve("localhost", 20s, error);
        in_child.check(error == NameError::refused, "no names");
        in_child.check(!connection->next_event(), "no events");
        in_child.check(connection->wait_ended(), "no waiting");
        connection->on_event([](const Event&) {});
        connection.reset();
        another.reset();
        Registration moved = std::move(registration);
        moved.end(20s, error);
        in_child.check(!error, "nothing to end");
    });
    EXPECT_EQ(child.findings(), "");
    EXPECT_TRUE(*connection);
    EXPECT_EQ(registration.active_profiles().size(), 1u);
}

TEST_F(CppProcess, that_forks_may_register_in_the_child) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends a child of a process with threads that starts one";
#endif
    std::vector<Registration> fourteen(14);
    Connection connection = registration.open();
    Child child([&](const InChild& in_child) {
        std::error_code error;
        // The parent's places are no longer taken.
        std::vector<Registration> own;
        for (int i = 0; i < 3; ++i) {
            own.emplace_back(error);
            in_child.equal("registration", error.value(), 0);
        }
        Connection opened = own[0].open(1, 20s, error);
        in_child.equal("open", error.value(), 0);
        in_child.check(static_cast<bool>(opened), "open");
        in_child.check(opened.resolve("localhost", 20s, error).addresses.size() == 1, "names");
        opened.close(20s, error);
        in_child.equal("close", error.value(), 0);
    });
    EXPECT_EQ(child.findings(), "");
    EXPECT_TRUE(connection);
}

TEST_F(CppProcess, forks_beside_busy_threads) {
    std::atomic<bool> over = false;
    std::thread busy([&] {
        while (!over) {
            Connection connection = registration.open();
            connection.on_event([](const Event&) {});
            connection.resolve("localhost");
        }
    });
    for (int i = 0; i < 10; ++i) {
        Child child([&](const InChild& in_child) {
            in_child.check(!registration, "an empty registration");
            registration = Registration(std::move(registration));
        });
        EXPECT_EQ(child.findings(), "");
    }
    over = true;
    busy.join();
}

// As in the library itself: the thread that works for it uses its stack.
TEST_F(CppProcess, cancels_a_thread_behind_what_it_asks_for) {
    Connection connection = registration.open();
    std::promise<void> waiting;
    std::atomic<bool> came_back = false;
    std::thread thread([&] {
        waiting.set_value();
        EXPECT_TRUE(connection.wait_ended());
        came_back = true;
        pthread_testcancel();
        ADD_FAILURE() << "it has not been cancelled";
    });
    waiting.get_future().wait();
    pthread_cancel(thread.native_handle());
    server.ctl({"stop"});
    thread.join();
    EXPECT_TRUE(came_back);
}

class CppProcessEnd : public ::testing::TestWithParam<const char*> {};

TEST_P(CppProcessEnd, hurts_nobody) {
    CmServer server;
    Program probe({CPP_BINDING_PROBE, GetParam()});
    if (std::string(GetParam()) == "exit-in-handler") {
        probe.wait_for_out("ready");
        server.ctl({"suspend"});
    }
    const Ended ended = probe.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_NE(ended.out.find("opened"), std::string::npos);
    EXPECT_EQ(server.ctl({"list"}).find("pdp"), std::string::npos) << "the connection is closed";
}

INSTANTIATE_TEST_SUITE_P(Each, CppProcessEnd,
                         ::testing::Values("static", "static-reversed", "leaked", "exit-in-handler",
                                           "errors-after"),
                         [](const auto& test) {
                             std::string name = test.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

}  // namespace
}  // namespace quorvel::test
