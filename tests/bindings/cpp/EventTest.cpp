// What happens to a connection, asked for event by event.
#include <thread>

#include "Bound.h"
#include "support/LibraryCalls.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;

class CppEvent : public Bound {
  protected:
    // The next event, which must be of this kind.
    template <class T, class From>
    T next(From& from) {
        const std::optional<Event> event = from.next_event(20s);
        EXPECT_TRUE(event);
        const T* const wanted = event ? std::get_if<T>(&*event) : nullptr;
        EXPECT_NE(wanted, nullptr) << "another event";
        return wanted != nullptr ? *wanted : T{};
    }
};

TEST_F(CppEvent, come_in_their_order_and_change_the_connection) {
    Connection connection = registration.open();
    server.ctl({"suspend"});
    EXPECT_EQ(next<Suspended>(connection).profile, 1);
    EXPECT_EQ(connection.state(), Connection::State::suspended);
    EXPECT_TRUE(connection) << "suspended is not ended";
    server.ctl({"resume"});
    EXPECT_FALSE(next<Resumed>(connection).error);
    EXPECT_EQ(connection.state(), Connection::State::open);
    server.ctl({"ip-change", "--address", "192.0.2.7"});
    EXPECT_EQ(next<AddressChanged>(connection).info.address, Address::parse("192.0.2.7"));
    EXPECT_EQ(connection.info().address.to_string(), "192.0.2.7");
    EXPECT_FALSE(connection.next_event(0ms)) << "that was all";
    server.ctl({"stop"});
    const auto stopped = next<Stopped>(connection);
    EXPECT_EQ(stopped.profile, 1);
    EXPECT_EQ(connection.state(), Connection::State::ended);
    EXPECT_EQ(connection.outcome()->error, stopped.error);
    EXPECT_FALSE(connection.next_event(forever)) << "nothing comes after the end";
}

TEST_F(CppEvent, of_no_connection_are_the_registrations) {
    registration.want_tunnel_data(true);
    server.ctl({"tunnel", "hello"});
    const auto data = next<TunnelData>(registration);
    EXPECT_EQ(data.data.size(), 5u);
    server.ctl({"network-status", "--packet-data", "1"});
    next<NetworkChanged>(registration);
    EXPECT_FALSE(registration.next_event(0ms));
}

TEST_F(CppEvent, end_a_wait_of_another_thread) {
    Connection connection = registration.open();
    std::thread waiting([&] { EXPECT_TRUE(connection.wait_ended()); });
    std::thread asking([&] {
        const std::optional<Event> event = connection.next_event();
        EXPECT_TRUE(event && std::holds_alternative<Closed>(*event));
    });
    connection.close();
    waiting.join();
    asking.join();
}

TEST(CppEventOfTheServersEnd, comes_to_every_connection_and_the_next_open_finds_the_new_server) {
    auto server = std::make_unique<CmServer>();
    Registration registration;
    Registration other;
    Connection connection = registration.open();
    Connection shared = other.open();
    server.reset();
    for (Connection* one : {&connection, &shared}) {
        ASSERT_TRUE(one->wait_ended());
        EXPECT_EQ(one->outcome()->error, Status::reregister_failed);
        one->close();
    }
    server = std::make_unique<CmServer>();
    connection = registration.open();
    EXPECT_TRUE(connection);
    shared = other.open();
    EXPECT_TRUE(shared);
}

TEST(CppEventOfTheServersEnd, is_an_error_of_who_asks_while_there_is_none) {
    auto server = std::make_unique<CmServer>();
    Registration registration;
    Connection connection = registration.open();
    server.reset();
    ASSERT_TRUE(connection.wait_ended());
    calls::skip_sleeps();
    EXPECT_EQ(code_of([&] { registration.open(); }), Status::reregister_failed);
    EXPECT_EQ(code_of([&] { registration.profiles().ids(); }), Status::reregister_failed);
}

}  // namespace
}  // namespace quorvel::test
