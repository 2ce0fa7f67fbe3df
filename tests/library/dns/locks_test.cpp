// The resolver's small locks are never held while a line is traced: the sink may take its time, may ask the
// resolver itself, and may be where a thread is cancelled.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

#include "Callbacks.h"
#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"
#include "support/AppThread.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

void take_cache_lock() {
    hostent* host = nullptr;
    get_dns_result_fron_cache("nobody.example", nullptr, 0, &host);
}

void take_query_lock() {
    AbortDnsQuery("nobody.example");
}

// Takes the lock of the worker count, and the two others.
void take_worker_lock() {
    unsigned id = 0;
    NetDNSGetHostByNameAsync(
        kProfile, "localhost", [](hostent*, unsigned) {}, &id);
}

// A second thread takes each lock while the first one is in the sink, at every line that it traces.
class Locks : public ProfileTest {
  protected:
    Locks() {
        open_profile("lo", "127.0.0.1");
        for (const char* name : {"a.example", "b.example"})
            add(name, 60);
    }

    void add(const char* name, unsigned ttl) {
        HostBuffer buffer(1024);
        hostent* host = nullptr;
        ASSERT_EQ(generate_localhost_hostent_info(name, buffer.data(), buffer.size(), &host), 0);
        update_dns_cache(name, host, needed_for({name}, 1), ttl);
    }

    // Runs the body here, and what takes a lock on the other thread at each of its lines. Gives the number of
    // lines.
    int watch(const std::function<void()>& body) {
        const auto thread = static_cast<int32_t>(gettid());
        int lines = 0;
        const auto hook = trace::on_line([&](const TraceLine& line) {
            if (line.thread != thread || stuck_ || !line.file.starts_with("data-networking/dns/"))
                return;
            ++lines;
            expect_free(line.text);
        });
        body();
        return lines;
    }

  private:
    void expect_free(const std::string& line) {
        other_.start([] {
            take_cache_lock();
            take_query_lock();
            take_worker_lock();
        });
        if (!other_.done(std::chrono::seconds(3))) {
            ADD_FAILURE() << "a lock is held while this is traced: " << line;
            stuck_ = true;
        }
    }

    bool stuck_ = false;
    AppThread other_;
};

TEST_F(Locks, are_free_while_the_cache_traces_what_it_finds) {
    const int lines = watch([this] {
        HostBuffer buffer(1024);
        hostent* host = nullptr;
        EXPECT_EQ(get_dns_result_fron_cache("b.example", buffer.data(), buffer.size(), &host), 0);
        EXPECT_EQ(get_dns_result_fron_cache("a.example", buffer.data(), buffer.size(), &host), 0) << "moved";
        EXPECT_EQ(get_dns_result_fron_cache("c.example", buffer.data(), buffer.size(), &host), 3);
        EXPECT_EQ(get_dns_result_fron_cache("a.example", buffer.data(), 20, &host), 3) << "no room";
        update_dns_cache("d.example", nullptr, 0, 0);
        EXPECT_EQ(get_dns_result_fron_cache("d.example", buffer.data(), buffer.size(), &host), 0);
        add("e.example", 0);
        EXPECT_EQ(get_dns_result_fron_cache("e.example", buffer.data(), buffer.size(), &host), 3)
            << "expired";
        EXPECT_EQ(get_dns_result_fron_cache(nullptr, buffer.data(), buffer.size(), &host), 3);
    });
    EXPECT_GE(lines, 25);
    clear_dns_cache();
}

TEST_F(Locks, are_free_while_the_cache_traces_what_it_takes) {
    const int lines = watch([this] {
        add("a.example", 60);
        for (int n = 0; n < 9; ++n)
            add(("www" + std::to_string(n)).c_str(), 60);
        update_dns_cache("negative.example", nullptr, 0, 0);
        HostBuffer buffer(1024);
        hostent* host = nullptr;
        generate_localhost_hostent_info("long.example", buffer.data(), buffer.size(), &host);
        update_dns_cache("long.example", host, kHostData, 60);
        clear_dns_cache();
    });
    EXPECT_TRUE(trace::contains("Deleting last host\n"));
    EXPECT_GE(lines, 60);
}

TEST_F(Locks, are_free_while_the_query_manager_traces) {
    const int lines = watch([] {
        unsigned id = 0;
        unsigned short joined = 0;
        UpdateQueryList("a.example", &id, &joined, callbacks::note);
        UpdateQueryList("a.example", &id, &joined, callbacks::note);
        send_query_result("a.example", nullptr);
        UpdateQueryList("b.example", &id, &joined, callbacks::note);
        AbortDnsQuery("b.example");
    });
    EXPECT_GE(lines, 12);
}

TEST_F(Locks, are_free_while_a_background_request_traces) {
    std::vector<std::function<void()>> requests = {
        [] { calls::fail(Call::ThreadCreate, 1, EAGAIN); },
        [] { calls::fail(Call::Malloc, 3); },
        [] { calls::reset(); },
    };
    const int lines = watch([&] {
        for (size_t n = 0; n < requests.size(); ++n) {
            requests[n]();
            unsigned id = 0;
            NetDNSGetHostByNameAsync(kProfile, ("127.0.0." + std::to_string(n)).c_str(), callbacks::note,
                                     &id);
        }
    });
    EXPECT_GE(lines, 8);
    EXPECT_TRUE(callbacks::wait_for(1));
}

TEST_F(Locks, are_free_while_a_lookup_traces) {
    Responder responder(answer_with("192.0.2.1"));
    const int lines = watch([] {
        HostBuffer buffer(1024);
        hostent* host = nullptr;
        EXPECT_EQ(ps_gethostbyname_r(kProfile, "www.example", &host, buffer.data(), buffer.size()), 0);
        EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
    });
    EXPECT_GE(lines, 30);
}

// A sink that resolves names at every line, on the very thread that traces it.
TEST_F(Locks, a_sink_may_ask_the_resolver_itself) {
    static thread_local bool asking;
    Responder responder(answer_with("192.0.2.1"));
    const auto hook = trace::on_line([](const TraceLine&) {
        if (asking)
            return;
        asking = true;
        clear_dns_cache();
        update_dns_cache("nobody.example", nullptr, 0, 0);
        take_cache_lock();
        take_query_lock();
        take_worker_lock();
        asking = false;
    });
    asking = false;
    unsigned id = 0;
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "127.0.0.9", callbacks::note, &id), 1);
    EXPECT_TRUE(callbacks::wait_for(1));
    EXPECT_NE(NetDNSGetHostByName(kProfile, "www.example"), nullptr);
}

// The lines of a request come before those of its worker, however long the sink takes for them.
TEST_F(Locks, a_worker_begins_behind_the_lines_of_its_request) {
    AppThread other;
    std::atomic<bool> has_begun{false};
    const auto hook = trace::on_line([&](const TraceLine& line) {
        if (line.text.starts_with("doing ps_gethostbyname_r query"))
            has_begun = true;
        if (line.text.starts_with("Add to query progress list")) {
            EXPECT_EQ(calls::count(Call::ThreadCreate), 1u) << "the worker is there";
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            EXPECT_FALSE(has_begun);
        }
    });
    unsigned id = 0;
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "localhost", callbacks::note, &id), 1);
    EXPECT_TRUE(callbacks::wait_for(1));
    EXPECT_TRUE(has_begun);
}

}  // namespace
}  // namespace quorvel::test::dns
