// What a server that was killed has left active, and who takes it down.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "networkmanager/ManagedTest.h"
#include "support/Eventually.h"

namespace quorvel::test {
namespace {

class Successor : public ManagedTest {
  public:
    static constexpr const char* kNotes = "/tmp/kept.db.activated";

    void serve_from_file() { serve(config_of("wired"), {"--db", "/tmp/kept.db"}); }
    // Of a server that has had NetworkManager activate "wired".
    void leave_active() {
        serve_from_file();
        const RawClient client = opened();
        EXPECT_TRUE(std::filesystem::exists(kNotes));
        server->program().send_signal(SIGKILL);
        server->program().wait();
        EXPECT_TRUE(RealNetworkManager::is_active("wired"));
    }
    static RawClient opened() {
        RawClient client;
        client.open(1);
        return client;
    }
    void expect_left_alone_by_the_next() {
        serve_from_file();
        expect_left_alone();
    }
};

TEST_F(Successor, takes_down_what_a_killed_server_has_activated) {
    leave_active();
    serve_from_file();
    server->program().wait_for_err("was activated by a server before, and is taken down");
    EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
    EXPECT_FALSE(std::filesystem::exists(kNotes));
    opened();
}

TEST_F(Successor, leaves_what_a_user_has_activated_since) {
    leave_active();
    RealNetworkManager::nmcli("connection up wired");
    expect_left_alone_by_the_next();
}

TEST_F(Successor, leaves_what_network_manager_has_taken_up_again_itself) {
    leave_active();
    manager->kill();
    manager->start();
    EXPECT_TRUE(eventually([] { return RealNetworkManager::is_active("wired"); }));
    expect_left_alone_by_the_next();
}

TEST_F(Successor, finds_nothing_after_a_server_that_has_ended_in_order) {
    serve_from_file();
    opened();
    EXPECT_EQ(server->stop().status, 0);
    EXPECT_FALSE(std::filesystem::exists(kNotes));
    RealNetworkManager::nmcli("connection up wired");
    expect_left_alone_by_the_next();
}

TEST_F(Successor, reads_no_nonsense) {
    for (const char* nonsense : {"", "{", "[1]", R"({"manager": 1})", R"({"manager": "a", "active": 7})"}) {
        server.reset();
        std::ofstream(kNotes) << nonsense;
        serve_from_file();
    }
    opened();
}

TEST_F(Successor, that_dies_with_network_manager_leaves_a_connection_that_is_nobody_s) {
    serve_from_file();
    RawClient client;
    client.open(1);
    manager->kill();
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_STOP_IND);
    manager->start();
    // NetworkManager finds the device with its addresses, and takes it for active.
    EXPECT_TRUE(eventually([] { return RealNetworkManager::is_active("wired"); }));
    EXPECT_TRUE(eventually([] { return !std::filesystem::exists(kNotes); }));
    const uint32_t call = client.open(1);
    client.stop(call, 1);
    const uint32_t again = client.open(1);
    client.stop(again, 1);
    EXPECT_TRUE(RealNetworkManager::is_active("wired"));
}

// The server's own way to the message bus, which can be cut while everybody else's is there.
class MessageBus : public Successor {
  public:
    static constexpr const char* kRelay = "/tmp/relay";

    void join(const char* options = "", const char* behind = "UNIX-CONNECT:/run/dbus/system_bus_socket") {
        relay = std::make_unique<Program>(std::vector<std::string>{
            "socat", std::string("UNIX-LISTEN:") + kRelay + ",unlink-early" + options, behind});
        ASSERT_TRUE(eventually([] { return std::filesystem::exists(kRelay); }));
    }
    void part() {
        relay->send_signal(SIGKILL);
        relay->wait();
        std::filesystem::remove(kRelay);
    }
    void serve_by_relay(const std::string& store) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", (std::string("unix:path=") + kRelay).c_str(), 1);
        serve(config_of("wired"), {"--db", store});
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }
    void expect_taken_down_and_of_use() {
        server->program().wait_for_err("was activated by a server before, and is taken down");
        EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
        RawClient client;
        const uint32_t call = client.open(1);
        client.stop(call, 1);
        EXPECT_TRUE(eventually([] { return !RealNetworkManager::is_active("wired"); }));
        EXPECT_FALSE(std::filesystem::exists(kNotes));
    }

    std::unique_ptr<Program> relay;
};

TEST_F(MessageBus, that_is_lost_ends_the_calls_and_is_joined_again_for_what_is_active_still) {
    for (const char* store : {":memory:", "/tmp/kept.db"}) {
        SCOPED_TRACE(store);
        join();
        serve_by_relay(store);
        RawClient client;
        client.open(1);
        part();
        expect_reason(client.event(), wire::NETCM_CLIENT_STOP_IND, cm::Reason::kLost);
        server->program().wait_for_err("is tried again in 1 s");
        EXPECT_TRUE(RealNetworkManager::is_active("wired"));
        join();
        expect_taken_down_and_of_use();
        server.reset();
        part();
    }
}

TEST_F(MessageBus, that_lets_nobody_in_is_tried_ever_more_seldom) {
    join(",fork", "SYSTEM:true");
    serve_by_relay(":memory:");
    for (const char* seconds : {"1", "2", "4"})
        server->program().wait_for_err(std::string("is tried again in ") + seconds + " s");
    part();
    join();
    RawClient client;
    client.open(1);
    part();
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_STOP_IND);
    // One that was of use is waited for anew.
    const std::string log = server->stop().err;
    EXPECT_TRUE(log.substr(log.rfind("is tried again")).starts_with("is tried again in 1 s")) << log;
}

TEST_F(MessageBus, that_comes_after_the_server_is_joined_without_being_asked_for) {
    leave_active();
    serve_by_relay("/tmp/kept.db");
    server->program().wait_for_err("is tried again in 1 s");
    RawClient client;
    expect_refused(client, cm::Reason::kNoInterface);
    join();
    expect_taken_down_and_of_use();
}

TEST_F(MessageBus, that_is_lost_with_network_manager_leaves_what_that_takes_up_again) {
    join();
    serve_by_relay("/tmp/kept.db");
    RawClient client;
    client.open(1);
    part();
    EXPECT_EQ(client.event().Code, wire::NETCM_CLIENT_STOP_IND);
    manager->kill();
    manager->start();
    EXPECT_TRUE(eventually([] { return RealNetworkManager::is_active("wired"); }));
    join();
    EXPECT_TRUE(eventually([] { return !std::filesystem::exists(kNotes); }));
    expect_left_alone();
}

}  // namespace
}  // namespace quorvel::test
