// A thread that is cancelled in the resolver ends when it has left it: nothing that it held is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include "Callbacks.h"
#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"
#include "library/common/Cancellable.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

// Cancels whoever traces the line, right there.
auto cancel_at(std::string line) {
    return trace::on_line([line = std::move(line)](const TraceLine& traced) {
        if (!traced.text.starts_with(line))
            return;
        pthread_cancel(pthread_self());
        pthread_testcancel();
    });
}

// A server whose first answer waits for the test.
class Cancel : public ProfileTest {
  protected:
    Cancel() { open_profile("lo", "127.0.0.1"); }

    void cancel_while_it_waits(const std::function<void()>& body) {
        Cancellable thread(body);
        asked_.get_future().wait();
        thread.cancel();
        answer_.set_value();
        ASSERT_TRUE(thread.ended_behind_the_body());
    }

    std::promise<void> asked_;
    std::promise<void> answer_;
    std::atomic<bool> is_first_{true};
    Responder responder_{[this](const Exchange& exchange) {
        if (is_first_.exchange(false)) {
            asked_.set_value();
            answer_.get_future().wait();
        }
        exchange.reply(Response(exchange.query).a(asked_name(exchange.query), "192.0.2.1"));
    }};
};

TEST_F(Cancel, in_a_waiting_lookup_leaves_the_next_one_its_lock) {
    cancel_while_it_waits([] { EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr); });
    EXPECT_NE(NetDNSGetHostByName(kProfile, "other.example"), nullptr);
}

TEST_F(Cancel, in_a_lookup_of_its_own_closes_its_socket) {
    cancel_while_it_waits([] {
        Resolution result;
        EXPECT_NE(result.by_name("www.example").host, nullptr);
    });
}

TEST_F(Cancel, in_a_wait_for_a_socket_ends_behind_the_wait) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    std::promise<void> waiting;
    calls::before(Call::Poll, [&] { waiting.set_value(); });
    Cancellable thread([&] { EXPECT_GT(dns_poll(pair[0], -1), 0); });
    waiting.get_future().wait();
    thread.cancel();
    ASSERT_EQ(write(pair[1], "x", 1), 1);
    EXPECT_TRUE(thread.ended_behind_the_body());
    close(pair[0]);
    close(pair[1]);
}

TEST_F(Cancel, while_a_request_is_traced_leaves_it_accepted_and_others_their_lock) {
    for (const char* line : {"assign dnsid= ", "Add to query progress list", "Thread created successfully"}) {
        callbacks::clear();
        {
            const auto hook = cancel_at(line);
            Cancellable thread([] {
                unsigned id = 0;
                EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "localhost", callbacks::note, &id), 1);
            });
            ASSERT_TRUE(thread.ended_behind_the_body()) << line;
        }
        EXPECT_TRUE(callbacks::wait_for(1));
        EXPECT_TRUE(eventually([] {
            unsigned id = 0;
            return NetDNSGetHostByNameAsync(kProfile, "127.0.0.1", callbacks::note, &id) == 1;
        }));
        EXPECT_TRUE(callbacks::wait_for(2));
    }
}

TEST_F(Cancel, of_a_worker_in_its_callback_has_no_effect) {
    callbacks::continue_with([](hostent*, unsigned) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    });
    unsigned first = 0;
    ASSERT_EQ(NetDNSGetHostByNameAsync(kProfile, "localhost", callbacks::note_and_continue, &first), 1);
    EXPECT_TRUE(trace::wait_for("Going to free resolved host [localhost]\n"));
    unsigned second = 0;
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "localhost", callbacks::note, &second), 1);
    EXPECT_EQ(second, first) << "its id is free again";
    EXPECT_TRUE(callbacks::wait_for(2));
}

TEST_F(Cancel, while_the_cache_is_changed_ends_behind_the_change) {
    for (const char* line : {"Finding host[", "Number of hosts = ", "Deleting last host\n", "Host ["}) {
        clear_dns_cache();
        for (int n = 0; n < 10; ++n)
            update_dns_cache(("www" + std::to_string(n)).c_str(), nullptr, 0, 0);
        const auto hook = cancel_at(line);
        Cancellable thread([] { update_dns_cache("one.more", nullptr, 0, 0); });
        EXPECT_TRUE(thread.ended_behind_the_body()) << line;
    }
}

}  // namespace
}  // namespace quorvel::test::dns
