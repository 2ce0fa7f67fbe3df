// A server that answers late, never, or wrongly.
#include <thread>

#include "Bound.h"
#include "support/Eventually.h"
#include "support/ScriptedServer.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kStart = wire::NETCM_CLIENT_START_REQ;
constexpr uint32_t kStop = wire::NETCM_CLIENT_STOP_REQ;
constexpr uint32_t kKill = wire::NETCM_CLIENT_KILL_REQ;

class CppTrouble : public ::testing::Test {
  protected:
    ~CppTrouble() override {
        // What is still open ends with the server.
        server.stop();
    }
    void answer_open(int32_t profile, int32_t call = 0) {
        ASSERT_TRUE(server.wait_for(kStart, ++starts_));
        ASSERT_TRUE(server.push(start_response(call, profile), connection_block()));
    }
    Connection opened(int32_t profile) {
        Connection connection = registration.start(profile);
        answer_open(profile);
        connection.wait_open();
        return connection;
    }

    ScriptedServer server;
    Registration registration;

  private:
    size_t starts_ = 0;
};

TEST_F(CppTrouble, a_refusal_has_the_servers_words) {
    server.once(kStart, refusal(kStart, 21, 4242));
    const std::optional<Error> error = error_of([&] { registration.open(7); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), Status::refused_with_reason);
    EXPECT_EQ(error->reason(), 4242);
    EXPECT_STREQ(error->what(), "cannot open profile 7: the CM server has refused or ended it with a reason");
    server.once(kStart, refusal(kStart, 77));
    EXPECT_EQ(code_of([&] { registration.open(7); }).message(), "status 77 of the CM server");
}

TEST_F(CppTrouble, details_are_the_servers) {
    const Connection connection = opened(7);
    const ConnectionInfo info = connection.info();
    EXPECT_EQ(info.profile, 7);
    EXPECT_EQ(info.interface, "pdp0");
    EXPECT_EQ(info.dns.size(), 2u);
    EXPECT_TRUE(info.extra1 && info.extra2);
}

TEST_F(CppTrouble, an_open_that_takes_too_long_is_closed_by_itself) {
    EXPECT_EQ(code_of([&] { registration.open(7, 20ms); }), std::errc::timed_out);
    EXPECT_TRUE(server.wait_for(kStop));
    EXPECT_EQ(server.last(kStop)->header.Arg4, 7u);
}

// Which profile it is nobody knows before the response.
TEST_F(CppTrouble, an_open_of_the_default_profile_that_takes_too_long_is_closed_when_it_comes) {
    EXPECT_EQ(code_of([&] { registration.open(default_profile, 20ms); }), std::errc::timed_out);
    answer_open(1);
    EXPECT_TRUE(server.wait_for(kStop));
    EXPECT_EQ(server.last(kStop)->header.Arg4, 1u);
}

TEST_F(CppTrouble, an_open_that_waits_for_the_servers_word_keeps_its_limit) {
    const auto gate = std::make_shared<Gate>();
    wire::Record late = answer_record(kStart);
    server.once(kStart, Answer().wait_at(gate).record(late));
    EXPECT_EQ(code_of([&] { registration.open(7, 20ms); }), std::errc::timed_out);
    EXPECT_EQ(server.count(kStop), 0u);
    gate->open();
    EXPECT_TRUE(server.wait_for(kStop));
}

TEST_F(CppTrouble, a_close_that_is_not_answered_keeps_its_limit_and_ends_when_it_is) {
    Connection connection = opened(7);
    server.once(kStop, silence());
    EXPECT_EQ(code_of([&] { connection.close(20ms); }), std::errc::timed_out);
    EXPECT_EQ(connection.state(), Connection::State::closing);
    server.push(stop_response(0, 7));
    EXPECT_TRUE(connection.wait_ended());
    EXPECT_EQ(server.count(kStop), 1u);
}

TEST_F(CppTrouble, a_registration_that_cannot_leave_goes_on_leaving_by_itself) {
    Connection connection = opened(7);
    server.once(kStop, silence());
    EXPECT_EQ(code_of([&] { registration.end(20ms); }), std::errc::timed_out);
    EXPECT_FALSE(registration);
    EXPECT_EQ(connection.state(), Connection::State::closing);
    ASSERT_TRUE(server.push(stop_response(0, 7)));
    EXPECT_TRUE(connection.wait_ended());
    // The last one has taken the link down.
    EXPECT_TRUE(eventually([&] { return !server.wait_for_async_socket(0ms); }));
}

TEST_F(CppTrouble, a_kill_that_is_not_answered_has_ended_the_connection_all_the_same) {
    Connection connection = opened(7);
    server.once(kKill, silence());
    EXPECT_EQ(code_of([&] { connection.kill(20ms); }), std::errc::timed_out);
    EXPECT_TRUE(connection.wait_ended(0ms));
    server.push(kill_response(7));
}

TEST_F(CppTrouble, a_refused_open_is_an_event_and_an_error_of_who_waits) {
    Connection connection = registration.start(7);
    ASSERT_TRUE(server.push(start_response(0, 7, 21, 4242)));
    EXPECT_EQ(code_of([&] { connection.wait_open(); }), Status::refused_with_reason);
    const std::optional<Event> event = connection.next_event();
    ASSERT_TRUE(event && std::holds_alternative<Refused>(*event));
    EXPECT_EQ(std::get<Refused>(*event).reason, 4242);
    EXPECT_EQ(connection.outcome()->reason, 4242);
}

// The server is going: the socket of the requests is the first to say so.
TEST_F(CppTrouble, a_close_that_cannot_be_sent_says_so_and_the_servers_end_ends_the_connection) {
    Connection connection = opened(7);
    server.close_sync();
    EXPECT_EQ(code_of([&] { connection.close(20ms); }), Status::failure);
    EXPECT_EQ(connection.state(), Connection::State::open);
    std::thread closing([&] { connection.close(); });
    server.stop();
    closing.join();
    EXPECT_EQ(connection.outcome()->error, Status::reregister_failed);
}

TEST_F(CppTrouble, a_request_that_comes_to_nothing_fails_and_the_next_does_not) {
    server.once(kStart, wrong_code(kStop));
    EXPECT_EQ(code_of([&] { registration.open(9); }), Status::failure);
    const Connection connection = registration.start(9);
    EXPECT_EQ(connection.state(), Connection::State::opening);
}

TEST_F(CppTrouble, the_servers_end_ends_an_open_that_waits) {
    Connection connection = registration.start(default_profile);
    std::thread waiting(
        [&] { EXPECT_EQ(code_of([&] { connection.wait_open(); }), Status::reregister_failed); });
    server.close_async();
    waiting.join();
    EXPECT_EQ(connection.profile(), 1);
}

TEST_F(CppTrouble, events_that_nobody_reads_cost_a_bounded_room) {
    constexpr size_t kMore = 10;
    Bytes many;
    const Bytes one = bytes_of(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0));
    for (size_t i = 0; i < 1024 + kMore; ++i)
        many.insert(many.end(), one.begin(), one.end());
    ASSERT_TRUE(server.wait_for_async_socket());
    ASSERT_TRUE(server.push(many));
    EXPECT_TRUE(eventually([&] { return registration.lost() == kMore; }));
    size_t kept = 0;
    while (registration.next_event(0ms))
        ++kept;
    EXPECT_EQ(kept, 1024u);
}

// The answer may be there before the request's id is known.
TEST_F(CppTrouble, tunnel_answers_find_their_requests) {
    const auto answer_of = [](uint32_t id, char text) {
        wire::Record record{};
        record.Code = wire::NETCM_CLIENT_TUNNEL_RSP;
        record.Word2 = 1;
        record.CallId = id;
        Bytes whole = bytes_of(record);
        whole.push_back(static_cast<std::byte>(text));
        return whole;
    };
    const auto accepted = [](uint32_t id) {
        wire::Record record = answer_record(wire::NETCM_CLIENT_TUNNEL_REQ);
        record.CallId = id;
        return record;
    };
    constexpr uint32_t kTunnel = wire::NETCM_CLIENT_TUNNEL_REQ;
    server.once(kTunnel, Answer().record(accepted(5)).push(answer_of(5, 'a')));
    EXPECT_EQ(registration.tunnel("x", 1), Bytes{static_cast<std::byte>('a')});
    server.once(kTunnel, Answer().record(accepted(6)));
    server.once(kTunnel, Answer().record(accepted(7)).push(answer_of(7, 'c')).push(answer_of(6, 'b')));
    std::thread first([&] { EXPECT_EQ(registration.tunnel("x", 1), Bytes{static_cast<std::byte>('b')}); });
    ASSERT_TRUE(server.wait_for(kTunnel, 2));
    EXPECT_EQ(registration.tunnel("y", 1), Bytes{static_cast<std::byte>('c')});
    first.join();
    server.once(kTunnel, Answer().record(accepted(8)));
    EXPECT_EQ(code_of([&] { registration.tunnel("x", 1, 20ms); }), std::errc::timed_out);
    server.once(kTunnel, refusal(kTunnel, 31));
    EXPECT_EQ(code_of([&] { registration.tunnel("x", 1); }).value(), 31);
}

}  // namespace
}  // namespace quorvel::test
