// Lookups in the background, whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "Callbacks.h"
#include "Host.h"
#include "Profiles.h"
#include "Responder.h"
#include "dns/src/NetDNSPrivate.h"
#include "support/LibraryCalls.h"
#include "support/Proc.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// Holds whoever passes until it is opened.
class Barrier {
  public:
    void pass() {
        std::unique_lock lock(mutex_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    bool wait_for_waiting(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return waiting_ >= count; });
    }
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int waiting_ = 0;
    bool open_ = false;
};

// A responder that answers nothing until it is opened; what has arrived by then is answered afterwards.
class HeldResponder {
  public:
    void open() { barrier_.open(); }

  private:
    Barrier barrier_;
    Responder responder_{[this](const Exchange& exchange) {
        barrier_.pass();
        exchange.reply(Response(exchange.query).a(asked_name(exchange.query), "192.0.2.1"));
    }};
};

struct Request {
    explicit Request(const std::string& name, DnsCallback callback = callbacks::note,
                     int profile = kProfile) {
        code = NetDNSGetHostByNameAsync(profile, name.c_str(), callback, &id);
    }
    unsigned id = 99;
    int code;
};

class Background : public ProfileTest {
  protected:
    Background() { open_profile("lo", "127.0.0.1"); }
};

std::string nth_name(int n) {
    return "www" + std::to_string(n) + ".example";
}

TEST_F(Background, the_callback_gets_host_and_id_on_a_thread_of_the_librarys) {
    Responder responder(answer_with("192.0.2.1"));
    const std::set<int32_t> before = threads();
    const Request request("www.example");
    EXPECT_EQ(request.code, 1);
    EXPECT_EQ(request.id, 1u);
    ASSERT_TRUE(callbacks::wait_for(1));
    const Delivery delivery = callbacks::deliveries()[0];
    EXPECT_EQ(delivery.id, 1u);
    EXPECT_EQ(delivery.name, "www.example");
    EXPECT_THAT(delivery.addresses, ElementsAre("192.0.2.1"));
    EXPECT_EQ(before.count(delivery.thread), 0u);
    EXPECT_TRUE(trace::wait_for("Going to free resolved host [www.example]\n"));
    EXPECT_TRUE(trace::contains_in_order(
        {"Add to query progress list hostname[www.example], dnsid[1]\n",
         "doing ps_gethostbyname_r query for hostname www.example \n", "Request to get hostname \n",
         "Successfully resolved host [www.example]\n",
         "Sending callback event Successfully for resolved host [www.example] for dns id = 1\n",
         "Sent callback event  Successfully for resolved host [www.example] for dns id = 1\n"}));
    EXPECT_TRUE(trace::wait_for_prefix("Thread created successfully, threadid ["));
}

TEST_F(Background, invalid_arguments_are_refused) {
    unsigned id = 99;
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, nullptr, callbacks::note, &id), 0);
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "www.example", nullptr, &id), 0);
    EXPECT_EQ(NetDNSGetHostByNameAsync(kProfile, "www.example", callbacks::note, nullptr), 0);
    EXPECT_EQ(NetDNSGetHostByNameAsync(0, "localhost", callbacks::note, &id), 0);
    EXPECT_EQ(NetDNSGetHostByNameAsync(-3, "www.example", callbacks::note, &id), 0);
    EXPECT_EQ(trace::count("Invalid argument passed\n"), 5u);
    EXPECT_EQ(trace::find("Invalid argument passed\n").mask, trace::kCaller);
    EXPECT_EQ(id, 99u);
}

TEST_F(Background, an_invalid_profile_is_refused) {
    EXPECT_EQ(Request("www.example", callbacks::note, 2).code, 0);
    EXPECT_EQ(trace::find("Invalid profile ID\n").mask, trace::kCaller);
}

TEST_F(Background, an_invalid_name_is_refused_and_uses_no_id) {
    for (const char* name : {"a", "-abc", "abc-", "a_b", ""}) {
        const Request request(name);
        EXPECT_EQ(request.code, 0) << name;
        EXPECT_EQ(request.id, 99u) << name;
    }
    EXPECT_EQ(trace::count("Invalid HostName\n"), 5u);
    EXPECT_EQ(trace::find("Invalid HostName\n").mask, trace::kCaller);
    EXPECT_EQ(Request("localhost").id, 1u);
    EXPECT_TRUE(callbacks::wait_for(1));
}

TEST_F(Background, a_local_name_needs_no_profile) {
    EXPECT_EQ(Request("localhost", callbacks::note, 77).code, 1);
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_THAT(callbacks::deliveries()[0].addresses, ElementsAre("127.0.0.1"));
}

TEST_F(Background, a_failed_lookup_calls_back_without_a_host) {
    Responder responder([](const Exchange& e) { e.reply(Response(e.query).flags(0x8183)); });
    EXPECT_EQ(Request("www.example").code, 1);
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_FALSE(callbacks::deliveries()[0].found);
    EXPECT_EQ(trace::find("Failed to resolve host [www.example]\n").mask, trace::kInternal);
}

TEST_F(Background, requests_for_one_name_share_its_query) {
    HeldResponder responder;
    for (unsigned n = 1; n <= 3; ++n) {
        const Request request("www.example");
        EXPECT_EQ(request.code, 1);
        EXPECT_EQ(request.id, n);
    }
    responder.open();
    ASSERT_TRUE(callbacks::wait_for(3));
    std::set<int32_t> workers;
    for (const Delivery& delivery : callbacks::deliveries()) {
        EXPECT_THAT(delivery.addresses, ElementsAre("192.0.2.1"));
        workers.insert(delivery.thread);
    }
    EXPECT_THAT(callbacks::ids(), ElementsAre(1, 2, 3));
    EXPECT_EQ(workers.size(), 1u);
    EXPECT_EQ(trace::count("doing ps_gethostbyname_r query for hostname www.example \n"), 1u);
}

TEST_F(Background, a_failed_lookup_calls_everybody_who_waits) {
    Barrier barrier;
    Responder responder([&](const Exchange& exchange) {
        barrier.pass();
        exchange.reply(Response(exchange.query).flags(0x8183));
    });
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(Request("www.example").code, 1);
    barrier.open();
    ASSERT_TRUE(callbacks::wait_for(3));
    for (const Delivery& delivery : callbacks::deliveries())
        EXPECT_FALSE(delivery.found);
}

TEST_F(Background, ten_names_are_resolved_at_a_time_and_the_11th_request_is_refused) {
    HeldResponder responder;
    for (int n = 1; n <= 10; ++n) {
        const Request request(nth_name(n));
        EXPECT_EQ(request.code, 1);
        EXPECT_EQ(request.id, static_cast<unsigned>(n));
    }
    const Request refused(nth_name(11));
    EXPECT_EQ(refused.code, 0);
    EXPECT_EQ(refused.id, 99u);
    EXPECT_TRUE(trace::traced(4, "Failed to update query list\n", "dns/src/dns"));
    EXPECT_EQ(Request(nth_name(1)).code, 0) << "neither can it join a query";
    responder.open();
    ASSERT_TRUE(callbacks::wait_for(10));
    EXPECT_THAT(callbacks::ids(), UnorderedElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    std::set<int32_t> workers;
    for (const Delivery& delivery : callbacks::deliveries())
        workers.insert(delivery.thread);
    EXPECT_EQ(workers.size(), 10u);
}

TEST_F(Background, ten_requests_for_one_name_fit_one_query) {
    HeldResponder responder;
    for (int n = 0; n < 10; ++n)
        EXPECT_EQ(Request("www.example").code, 1);
    EXPECT_EQ(Request("www.example").code, 0);
    responder.open();
    ASSERT_TRUE(callbacks::wait_for(10));
    EXPECT_THAT(callbacks::ids(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST_F(Background, a_callback_may_start_the_next_lookup) {
    Responder responder(answer_with("192.0.2.1"));
    std::promise<unsigned> next_id;
    callbacks::continue_with([&](hostent*, unsigned) {
        const Request next("www.example");
        EXPECT_EQ(next.code, 1);
        next_id.set_value(next.id);
    });
    EXPECT_EQ(Request("www.example", callbacks::note_and_continue).code, 1);
    ASSERT_TRUE(callbacks::wait_for(2));
    EXPECT_EQ(next_id.get_future().get(), 2u) << "the first id is in use until its callback has returned";
    EXPECT_EQ(responder.query_count(), 1u) << "the second lookup is answered from the cache";
}

TEST_F(Background, a_callback_may_look_up_and_wait) {
    Responder responder(answer_with("192.0.2.1"));
    std::promise<bool> found;
    callbacks::continue_with([&](hostent*, unsigned) {
        found.set_value(NetDNSGetHostByName(kProfile, "other.example") != nullptr);
    });
    Request("www.example", callbacks::note_and_continue);
    EXPECT_TRUE(found.get_future().get());
}

TEST_F(Background, a_callback_has_the_stack_of_any_thread) {
    std::promise<size_t> stack;
    callbacks::continue_with([&](hostent*, unsigned) {
        pthread_attr_t attributes;
        size_t size = 0;
        int state = -1;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_destroy(&attributes);
        EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
        stack.set_value(size);
    });
    Request("localhost", callbacks::note_and_continue);
    pthread_attr_t defaults;
    size_t size = 0;
    pthread_getattr_default_np(&defaults);
    pthread_attr_getstacksize(&defaults, &size);
    pthread_attr_destroy(&defaults);
    // The C library takes a few pages off for itself.
    EXPECT_NEAR(static_cast<double>(stack.get_future().get()), static_cast<double>(size), 65536.0);
}

TEST_F(Background, a_result_of_any_length_is_delivered) {
    Responder responder([](const Exchange& exchange) {
        Response response(exchange.query);
        for (int n = 0; n < 13; ++n)
            response.record(pointer_to(kQuestionAt), kCname, kIn, 60, {0});
        response.record(pointer_to(kQuestionAt), kA, kIn, 60, address_bytes("192.0.2.1"));
        exchange.reply(response);
    });
    std::string name(87, 'n');
    name[50] = '.';
    EXPECT_EQ(Request(name).code, 1);
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_EQ(callbacks::deliveries()[0].name, name);
    EXPECT_EQ(trace::count("reallocated buffer for hostname " + name + "\n"), 2u);
    EXPECT_EQ(responder.query_count(), 3u);
}

TEST_F(Background, while_ten_workers_have_not_ended_another_name_is_refused) {
    Responder responder(answer_with("192.0.2.1"));
    Barrier barrier;
    const auto freeing = trace::on_line([&](const TraceLine& line) {
        if (line.text.starts_with("Going to free resolved host ["))
            barrier.pass();
    });
    for (int n = 1; n <= 10; ++n)
        EXPECT_EQ(Request(nth_name(n)).code, 1);
    ASSERT_TRUE(barrier.wait_for_waiting(10));
    const Request refused("one.more");
    EXPECT_EQ(refused.code, 0);
    EXPECT_TRUE(
        trace::contains_in_order({"Failed to resolve host [one.more]  because thread creation failed\n",
                                  "Failed to create thread, reached max threads count [10]\n"}));
    EXPECT_EQ(trace::find("Failed to create thread, reached max threads count [10]\n").mask,
              trace::kInternal);
    barrier.open();
    ASSERT_TRUE(callbacks::wait_for(10));
}

TEST_F(Background, without_a_thread_the_request_is_refused_and_its_id_is_free) {
    calls::fail(Call::ThreadCreate, 1, EAGAIN);
    EXPECT_EQ(Request("www.example").code, 0);
    EXPECT_TRUE(
        trace::contains_in_order({"Failed to create thread, errno [11] \n",
                                  "Failed to resolve host [www.example]  because thread creation failed\n"}));
    EXPECT_EQ(trace::find("Failed to create thread, errno [11] \n").mask, trace::kInternal);
    EXPECT_THAT(callbacks::ids(), IsEmpty());
    EXPECT_EQ(Request("localhost").id, 1u);
    EXPECT_TRUE(callbacks::wait_for(1));
}

// The allocations of a request: the node and its name, the record and its name; then the worker's buffer.
class BackgroundMemory : public Background {
  protected:
    Request request_failing(size_t nth) {
        calls::fail(Call::Malloc, nth);
        const Request request("localhost");
        EXPECT_TRUE(nth > 4 || calls::has_failed(Call::Malloc));
        return request;
    }
};

TEST_F(BackgroundMemory, a_name_that_cannot_be_entered_is_resolved_for_nobody) {
    for (const size_t nth : {size_t{1}, size_t{2}}) {
        trace::clear();
        EXPECT_EQ(request_failing(nth).code, 1);
        EXPECT_TRUE(trace::wait_for("Going to free resolved host [localhost]\n"));
    }
    EXPECT_THAT(callbacks::ids(), IsEmpty());
    EXPECT_EQ(Request("localhost").id, 3u) << "both ids stay in use";
    EXPECT_TRUE(callbacks::wait_for(1));
}

TEST_F(BackgroundMemory, a_request_without_its_record_is_refused_and_stays_entered) {
    EXPECT_EQ(request_failing(3).code, 0);
    EXPECT_EQ(trace::find("Failed to allocate memory for query_host\n").mask, trace::kInternal);
    // Later requests for the name join a query that nobody makes.
    const Request joined("localhost");
    EXPECT_EQ(joined.code, 1);
    EXPECT_EQ(joined.id, 2u);
    EXPECT_EQ(trace::count("doing ps_gethostbyname_r query for hostname localhost \n"), 0u);
}

TEST_F(BackgroundMemory, a_request_without_its_copy_of_the_name_is_refused_and_stays_entered) {
    EXPECT_EQ(request_failing(4).code, 0);
    EXPECT_EQ(trace::find("Failed to allocate memory for query_host->hostname\n").mask, trace::kInternal);
    EXPECT_EQ(Request("localhost").id, 2u);
}

TEST_F(BackgroundMemory, a_worker_without_a_buffer_delivers_null) {
    EXPECT_EQ(request_failing(5).code, 1);
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_FALSE(callbacks::deliveries()[0].found);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
}

TEST_F(BackgroundMemory, a_buffer_that_cannot_grow_delivers_null) {
    Responder responder([](const Exchange& exchange) {
        Response response(exchange.query);
        for (int n = 0; n < 8; ++n)
            response.record(pointer_to(kQuestionAt), kCname, kIn, 60, {0});
        response.record(pointer_to(kQuestionAt), kA, kIn, 60, address_bytes("192.0.2.1"));
        exchange.reply(response);
    });
    calls::fail(Call::Malloc, 6);
    const Request request(long_label(60));
    ASSERT_TRUE(callbacks::wait_for(1));
    EXPECT_FALSE(callbacks::deliveries()[0].found);
    EXPECT_EQ(trace::count("reallocated buffer for hostname " + long_label(60) + "\n"), 1u);
}

}  // namespace
}  // namespace quorvel::test::dns
