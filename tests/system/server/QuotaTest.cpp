// One user's share of the server: the others are served whatever he does.
#include <chrono>
#include <deque>
#include <thread>

#include "server/RawClient.h"
#include "server/Stranger.h"
#include "support/CmServer.h"

namespace quorvel::test {
namespace {

constexpr const char* kLimits = R"(
[limits]
connections = 8
registrations = 3
unregistered = 2
profiles = 2
unregistered-time = )";

class Quota : public ::testing::Test {
  public:
    // The time that a connection may take to say who it is, in milliseconds.
    explicit Quota(const char* unregistered_time = "600000")
        : server(kLimits + std::string(unregistered_time), {"--request-time", "600000"}) {}

    void SetUp() override {
        if (as_stranger([] { return true; }) != 0)
            GTEST_SKIP() << "only root can start a process of another user";
    }
    // The server's own user has none of these limits.
    static void expect_everything_for_us() {
        std::deque<RawClient> ours;
        for (int i = 0; i < 6; ++i)
            ours.emplace_back();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(ask_pm(ours.back(), 1, -1, slot(pdp_profile("ours", "apn"))).error, 0u);
    }

    CmServer server;
};

class QuotaOfTime : public Quota {
  public:
    QuotaOfTime() : Quota("100") {}
};

// A client whose second socket is known for one, too.
struct SettledClient : RawClient {
    SettledClient() { ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ); }
};

uint32_t registration_status(RawSocket& socket) {
    socket.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
    return socket.record().Status;
}

TEST_F(Quota, of_registrations_is_answered_with_a_status) {
    EXPECT_EQ(as_stranger([] {
                  SettledClient first;
                  SettledClient second;
                  SettledClient third;
                  RawSocket fourth;
                  return registration_status(fourth) == uint32_t{NETCM_ERR_MAX_LIMIT} && fourth.closed();
              }),
              0);
    server.program().wait_for_err("user 65534 has 3 registrations, as many as one user may have");
    expect_everything_for_us();
}

TEST_F(Quota, of_registrations_is_free_again_when_a_client_has_gone) {
    EXPECT_EQ(as_stranger([] {
                  for (int i = 0; i < 10; ++i)
                      RawClient();
                  return true;
              }),
              0);
}

// However soon the next one comes: all of them have come and gone before the server can look.
TEST_F(Quota, is_not_used_up_by_who_has_gone_unnoticed) {
    server.program().send_signal(SIGSTOP);
    const auto go_on_later = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        server.program().send_signal(SIGCONT);
    };
    EXPECT_EQ(as_stranger(
                  [] {
                      for (int i = 0; i < 10; ++i)
                          RawSocket().send({wire::NETCM_CLIENT_REGISTER_REQ, 0, 3, 0, 0, 0});
                      RawSocket stays;
                      return registration_status(stays) == uint32_t{NETCM_SUCCESS};
                  },
                  go_on_later),
              0);
}

TEST_F(Quota, of_silent_connections_closes_the_next) {
    EXPECT_EQ(as_stranger([] {
                  RawSocket first;
                  RawSocket second;
                  RawSocket third;
                  return third.closed();
              }),
              0);
    server.program().wait_for_err(
        "of user 65534 is not let in: user 65534 has 2 connections that have not said");
    expect_everything_for_us();
}

TEST_F(QuotaOfTime, ends_a_silent_connection_even_if_it_says_something_now_and_then) {
    EXPECT_EQ(as_stranger([] {
                  RawSocket silent;
                  silent.send(std::string_view("\x01", 1));
                  return silent.closed();
              }),
              0);
    server.program().wait_for_err("it has left a request unfinished after 1 bytes");
}

TEST_F(Quota, of_connections_closes_the_next) {
    EXPECT_EQ(as_stranger([] {
                  SettledClient first;
                  SettledClient second;
                  SettledClient third;
                  RawSocket seventh;
                  RawSocket eighth;
                  RawSocket ninth;
                  return ninth.closed();
              }),
              0);
    server.program().wait_for_err("is not let in: user 65534 has");
}

TEST_F(Quota, of_profiles_is_refused_by_the_profile_manager) {
    EXPECT_EQ(as_stranger([] {
                  RawClient client;
                  const std::string profile = slot(pdp_profile("his", "apn"));
                  const int32_t first = ask_pm(client, 1, -1, profile).profile;
                  const bool second = ask_pm(client, 1, -1, profile).error == 0;
                  const bool refused = ask_pm(client, 1, -1, profile).error == 118;
                  const bool deleted = ask_pm(client, 3, first).error == 0;
                  return second && refused && deleted && ask_pm(client, 1, -1, profile).error == 0;
              }),
              0);
    expect_everything_for_us();
}

}  // namespace
}  // namespace quorvel::test
