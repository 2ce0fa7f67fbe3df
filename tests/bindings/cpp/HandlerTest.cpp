// Handlers: where they run, and what they may do.
#include <pthread.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "Bound.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;

class CppHandler : public Bound {
  protected:
    void suspend_and_resume() {
        server.ctl({"suspend"});
        server.ctl({"resume"});
    }
};

TEST_F(CppHandler, gets_what_has_waited_and_then_what_comes_in_order) {
    Connection connection = registration.start();
    connection.wait_open();
    std::promise<void> done;
    std::vector<size_t> kinds;
    connection.on_event([&](const Event& event) {
        kinds.push_back(event.index());
        if (std::holds_alternative<Resumed>(event))
            done.set_value();
    });
    suspend_and_resume();
    done.get_future().wait();
    const std::vector<size_t> expected{Event(Opened{}).index(), Event(Suspended{}).index(),
                                       Event(Resumed{}).index()};
    EXPECT_EQ(kinds, expected);
    EXPECT_FALSE(connection.next_event(0ms)) << "the handler has them";
}

// Nothing of the library's is held meanwhile.
TEST_F(CppHandler, may_wait_for_a_request_of_another_thread) {
    Connection connection = registration.open();
    std::promise<std::uint32_t> answered;
    connection.on_event([&](const Event& event) {
        if (std::holds_alternative<Suspended>(event)) {
            auto other = std::async(std::launch::async, [&] {
                Registration second;
                registration.set_setting(1, 5);
                return second.setting(1);
            });
            answered.set_value(other.get());
        }
    });
    server.ctl({"suspend"});
    EXPECT_EQ(answered.get_future().get(), 5u);
}

TEST_F(CppHandler, may_ask_wait_and_open) {
    Connection connection = registration.open();
    registration.profiles().add([] {
        Profile profile;
        profile.name = "Second";
        return profile;
    }());
    std::promise<std::int32_t> opened;
    Connection second;
    connection.on_event([&](const Event& event) {
        if (std::holds_alternative<Suspended>(event)) {
            second = registration.open(2);
            opened.set_value(second.profile());
        }
    });
    server.ctl({"suspend", "--profile", "1"});
    EXPECT_EQ(opened.get_future().get(), 2);
}

TEST_F(CppHandler, may_close_its_own_connection) {
    Connection connection = registration.open();
    std::promise<std::error_code> closed;
    connection.on_event([&](const Event& event) {
        if (!std::holds_alternative<Suspended>(event))
            return;
        std::error_code error;
        connection.close(close_limit, error);
        closed.set_value(error);
    });
    server.ctl({"suspend"});
    EXPECT_EQ(closed.get_future().get(), std::error_code());
    EXPECT_EQ(connection.state(), Connection::State::ended);
}

TEST_F(CppHandler, may_destroy_its_own_connection_and_is_not_called_again) {
    auto connection = std::make_unique<Connection>(registration.open());
    std::atomic<int> calls = 0;
    std::promise<void> gone;
    connection->on_event([&](const Event&) {
        ++calls;
        connection.reset();
        gone.set_value();
    });
    server.ctl({"suspend"});
    gone.get_future().wait();
    EXPECT_TRUE(registration.active_profiles().empty());
    EXPECT_EQ(calls, 1);
}

TEST_F(CppHandler, may_destroy_its_own_registration) {
    auto own = std::make_unique<Registration>();
    Connection connection = own->open();
    std::promise<void> gone;
    connection.on_event([&](const Event&) {
        own.reset();
        gone.set_value();
    });
    server.ctl({"suspend"});
    gone.get_future().wait();
    EXPECT_EQ(connection.state(), Connection::State::ended);
}

TEST_F(CppHandler, may_replace_itself) {
    Connection connection = registration.open();
    std::promise<void> second;
    // What it has captured lives as long as it runs.
    connection.on_event([&, own = std::make_shared<int>(7)](const Event&) {
        connection.on_event([&](const Event& event) {
            EXPECT_TRUE(std::holds_alternative<Resumed>(event));
            second.set_value();
        });
        EXPECT_EQ(*own, 7);
    });
    suspend_and_resume();
    second.get_future().wait();
}

TEST_F(CppHandler, that_throws_is_told_to_who_waits_and_goes_on) {
    Connection connection = registration.open();
    std::promise<void> resumed;
    connection.on_event([&](const Event& event) {
        if (std::holds_alternative<Resumed>(event))
            resumed.set_value();
        throw std::runtime_error("of the handler");
    });
    server.ctl({"suspend"});
    // The wait ends with it, although the connection has not.
    try {
        connection.wait_ended();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "of the handler");
    }
    server.ctl({"resume"});
    resumed.get_future().wait();
    EXPECT_TRUE(eventually([&] {
        try {
            registration.rethrow();
            return false;
        } catch (const std::runtime_error&) {
            return true;
        }
    }));
    connection.close();
}

TEST_F(CppHandler, does_not_run_when_its_connection_has_gone) {
    std::atomic<bool> inside = false;
    std::atomic<bool> over = false;
    {
        Connection connection = registration.open();
        connection.on_event([&](const Event&) {
            inside = true;
            std::this_thread::sleep_for(50ms);
            over = true;
        });
        server.ctl({"suspend"});
        ASSERT_TRUE(eventually([&] { return inside.load(); }));
    }
    EXPECT_TRUE(over) << "its last run has been waited for";
    inside = false;
    Connection next = registration.open();
    server.ctl({"suspend"});
    ASSERT_TRUE(next.next_event());
    EXPECT_FALSE(inside);
}

TEST_F(CppHandler, given_back_leaves_the_next_events_to_who_asks) {
    Connection connection = registration.open();
    std::promise<void> seen;
    connection.on_event([&](const Event&) { seen.set_value(); });
    server.ctl({"suspend"});
    seen.get_future().wait();
    connection.on_event({});
    server.ctl({"resume"});
    const std::optional<Event> event = connection.next_event();
    EXPECT_TRUE(event && std::holds_alternative<Resumed>(*event));
}

TEST_F(CppHandler, that_holds_its_own_connection_lets_go_of_it_with_the_registration) {
    auto connection = std::make_shared<Connection>(registration.open());
    const std::weak_ptr<Connection> watched = connection;
    Connection& itself = *connection;
    itself.on_event([held = std::move(connection)](const Event&) {});
    EXPECT_FALSE(watched.expired());
    registration.end();
    EXPECT_TRUE(watched.expired());
}

TEST_F(CppHandler, of_the_registration_gets_what_belongs_to_no_connection) {
    std::promise<std::array<std::int32_t, 2>> changed;
    registration.on_event([&](const Event& event) {
        if (const auto* states = std::get_if<NetworkChanged>(&event))
            changed.set_value(states->states);
    });
    server.ctl({"network-status", "--packet-data", "2"});
    const auto states = changed.get_future().get();
    EXPECT_TRUE(states[0] == 2 || states[1] == 2);
}

}  // namespace
}  // namespace quorvel::test
