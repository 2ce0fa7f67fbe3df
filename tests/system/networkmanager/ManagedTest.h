// What the tests with a real NetworkManager begin with.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "networkmanager/RealNetworkManager.h"
#include "protocol/status.h"
#include "server/RawClient.h"
#include "support/CmServer.h"

namespace quorvel::test {

class ManagedTest : public ::testing::Test {
  public:
    void SetUp() override {
        if (!has_network_manager())
            GTEST_SKIP() << "NetworkManager is not installed";
        manager = std::make_unique<RealNetworkManager>();
    }
    // Refused or ended by the network.
    static void expect_reason(const wire::Record& event, uint32_t code, cm::Reason reason) {
        EXPECT_EQ(event.Code, code);
        EXPECT_EQ(event.Status, cm::kStatusTransport);
        EXPECT_EQ(event.Word5, static_cast<uint32_t>(reason));
    }
    static void expect_refused(RawClient& client, cm::Reason reason) {
        EXPECT_EQ(client.start(1).Status, NETCM_SUCCESS);
        expect_reason(client.event(), wire::NETCM_CLIENT_START_RSP, reason);
    }
    // Whether NetworkManager has a connection whose name has this in it.
    static bool is_there(const std::string& connection) {
        return RealNetworkManager::nmcli("-t -f NAME connection show").find(connection) != std::string::npos;
    }

    // By a call on it that ends, and another behind whatever the first one's end has asked for.
    static void expect_left_alone() {
        RawClient client;
        for (int i = 0; i < 2; ++i)
            client.stop(client.open(1), 1);
        EXPECT_TRUE(RealNetworkManager::is_active("wired"));
    }

    // Both profiles lead to this connection.
    static std::string config_of(const std::string& connection, const std::string& more = "") {
        return "dns = [\"192.0.2.53\"]\n"
               "[[network]]\nbearer = \"networkmanager\"\nconnection = \"" +
               connection + "\"\n" + more +
               "[[profile]]\nname = \"Internet\"\napn = \"internet\"\ndefault = true\n"
               "[[profile]]\nname = \"Mail\"\napn = \"mail\"\n";
    }
    CmServer& serve(const std::string& config = config_of("wired"),
                    const std::vector<std::string>& more = {}) {
        server = std::make_unique<CmServer>(config, more);
        return *server;
    }

    std::unique_ptr<RealNetworkManager> manager;
    std::unique_ptr<CmServer> server;
};

}  // namespace quorvel::test
