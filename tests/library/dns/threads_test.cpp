// A hundred threads' worth of everything at once; the sanitizers watch.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Callbacks.h"
#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;

constexpr int kThreads = 100;

std::string name_of(int n) {
    return "www" + std::to_string(n) + ".example";
}

// Every name has an address of its own, so that a mixed-up answer shows.
std::string address_of(const std::string& name) {
    return "10.0.0." + name.substr(3, name.find('.') - 3);
}

Responder::Script own_addresses() {
    return [](const Exchange& exchange) {
        const std::string name = asked_name(exchange.query);
        exchange.reply(Response(exchange.query).a(name, address_of(name).c_str()));
    };
}

template <class Body>
void run_on_threads(int count, Body body) {
    std::vector<std::thread> threads;
    for (int n = 0; n < count; ++n)
        threads.emplace_back([=] { body(n); });
    for (std::thread& thread : threads)
        thread.join();
}

class Threads : public ProfileTest {
  protected:
    Threads() { open_profile("lo", "127.0.0.1"); }
    Responder responder_{own_addresses()};
};

TEST_F(Threads, lookups_in_buffers_of_their_own_run_side_by_side) {
    std::atomic<int> resolved{0};
    run_on_threads(kThreads, [&resolved](int n) {
        const std::string name = name_of(n % 20);
        HostBuffer buffer(2048);
        hostent* host = nullptr;
        ASSERT_EQ(ps_gethostbyname_r(kProfile, name.c_str(), &host, buffer.data(), buffer.size()), 0);
        EXPECT_THAT(addresses_of(host), ElementsAre(address_of(name)));
        ++resolved;
    });
    EXPECT_EQ(resolved, kThreads);
}

TEST_F(Threads, two_profiles_with_different_servers_share_the_cache) {
    open_profile(1, 2, "lo", "127.0.0.2");
    Responder other(own_addresses(), "127.0.0.2");
    run_on_threads(kThreads, [](int n) {
        const std::string name = name_of(n % 5);
        HostBuffer buffer(2048);
        hostent* host = nullptr;
        if (ps_gethostbyname_r(1 + n % 2, name.c_str(), &host, buffer.data(), buffer.size()) == 0) {
            EXPECT_THAT(addresses_of(host), ElementsAre(address_of(name)));
        }
    });
}

TEST_F(Threads, the_cache_is_read_filled_and_emptied_at_once) {
    run_on_threads(kThreads, [](int n) {
        HostBuffer buffer(2048);
        hostent* host = nullptr;
        for (int turn = 0; turn < 20; ++turn) {
            const std::string name = name_of((n + turn) % 15);
            if (get_dns_result_fron_cache(name.c_str(), buffer.data(), buffer.size(), &host) == 0) {
                EXPECT_EQ(host, nullptr);
            }
            update_dns_cache(name.c_str(), nullptr, 0, 0);
            if (n == 0)
                clear_dns_cache();
        }
    });
    clear_dns_cache();
}

TEST_F(Threads, background_requests_of_many_threads_are_each_answered_once) {
    std::atomic<size_t> accepted{0};
    run_on_threads(kThreads, [&accepted](int n) {
        for (int turn = 0; turn < 10; ++turn) {
            unsigned id = 0;
            if (NetDNSGetHostByNameAsync(kProfile, name_of((n + turn) % 12).c_str(), callbacks::note, &id) ==
                1)
                ++accepted;
        }
    });
    EXPECT_GT(accepted, 0u);
    EXPECT_TRUE(callbacks::wait_for(accepted));
    EXPECT_EQ(callbacks::deliveries().size(), accepted);
    for (const Delivery& delivery : callbacks::deliveries())
        if (delivery.found) {
            EXPECT_THAT(delivery.addresses, ElementsAre(address_of(delivery.name)));
        }
}

}  // namespace
}  // namespace quorvel::test::dns
