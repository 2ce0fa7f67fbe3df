// The query manager by itself: ids, and who waits for which name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Callbacks.h"
#include "dns/src/NetDNSPrivate.h"
#include "support/LibraryCalls.h"
#include "support/TraceCapture.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Update {
    explicit Update(const char* hostname, DnsCallback callback = callbacks::note) {
        code = UpdateQueryList(hostname, &id, &in_progress, callback);
    }
    unsigned id = 99;
    unsigned short in_progress = 99;
    int code;
};

TEST(QueryManager, the_first_request_for_a_name_gets_id_1_and_begins_a_query) {
    const Update update("www.example");
    EXPECT_EQ(update.code, 1);
    EXPECT_EQ(update.id, 1u);
    EXPECT_EQ(update.in_progress, 0);
    EXPECT_TRUE(trace::contains_in_order(
        {"assign dnsid= 1\n", "Add to query progress list hostname[www.example], dnsid[1]\n"}));
    EXPECT_EQ(trace::find("assign dnsid= 1\n").file, "data-networking/dns/src/dns_qm");
}

TEST(QueryManager, further_requests_for_a_name_join_its_query) {
    Update("www.example");
    const Update joined("www.example");
    EXPECT_EQ(joined.id, 2u);
    EXPECT_EQ(joined.in_progress, 1);
    EXPECT_TRUE(trace::contains("Query is in progress for the host : www.example\n"));
    const Update other("WWW.example");
    EXPECT_EQ(other.id, 3u);
    EXPECT_EQ(other.in_progress, 0) << "names are compared with their case";
}

TEST(QueryManager, a_result_is_delivered_in_the_order_of_the_requests) {
    for (int n = 0; n < 3; ++n)
        Update("www.example");
    send_query_result("www.example", nullptr);
    EXPECT_THAT(callbacks::ids(), ElementsAre(1, 2, 3));
    EXPECT_TRUE(trace::contains_in_order(
        {"Delete from query progress list, hostname[www.example]\n",
         "Sending callback event Successfully for resolved host [www.example] for dns id = 1\n",
         "Sent callback event  Successfully for resolved host [www.example] for dns id = 1\n",
         "Sending callback event Successfully for resolved host [www.example] for dns id = 2\n",
         "Sent callback event  Successfully for resolved host [www.example] for dns id = 3\n"}));
}

TEST(QueryManager, a_result_is_delivered_once) {
    Update("www.example");
    send_query_result("www.example", nullptr);
    send_query_result("www.example", nullptr);
    EXPECT_THAT(callbacks::ids(), ElementsAre(1));
}

TEST(QueryManager, the_result_of_a_name_that_nobody_waits_for_goes_nowhere) {
    Update("www.example");
    send_query_result("other.example", nullptr);
    send_query_result(nullptr, nullptr);
    EXPECT_THAT(callbacks::ids(), IsEmpty());
}

TEST(QueryManager, names_in_the_middle_of_the_list_are_found_and_taken_out) {
    for (const char* name : {"a.example", "b.example", "c.example"})
        Update(name, callbacks::note);
    for (const char* name : {"b.example", "a.example", "c.example", "b.example"})
        send_query_result(name, nullptr);
    EXPECT_THAT(callbacks::ids(), ElementsAre(2, 1, 3));
}

TEST(QueryManager, the_11th_id_is_not_given) {
    for (int n = 1; n <= 10; ++n)
        EXPECT_EQ(Update(("www" + std::to_string(n)).c_str()).id, static_cast<unsigned>(n));
    const Update refused("one.more");
    EXPECT_EQ(refused.code, 0);
    EXPECT_EQ(refused.id, 99u);
    EXPECT_EQ(refused.in_progress, 99);
}

TEST(QueryManager, ids_are_given_again_lowest_first) {
    for (const char* name : {"a.example", "b.example", "c.example"})
        Update(name, callbacks::note);
    send_query_result("c.example", nullptr);
    send_query_result("a.example", nullptr);
    EXPECT_EQ(Update("d.example").id, 1u);
    EXPECT_EQ(Update("e.example").id, 3u);
    EXPECT_EQ(Update("f.example").id, 4u);
}

TEST(QueryManager, an_id_is_in_use_until_its_callback_has_returned) {
    Update("a.example", callbacks::note_and_continue);
    unsigned during = 0;
    callbacks::continue_with([&](hostent*, unsigned) { during = Update("b.example").id; });
    send_query_result("a.example", nullptr);
    EXPECT_EQ(during, 2u);
    EXPECT_EQ(Update("c.example").id, 1u);
}

TEST(QueryManager, aborting_frees_the_ids_and_calls_nobody) {
    Update("a.example");
    Update("b.example");
    Update("a.example");
    AbortDnsQuery("a.example");
    EXPECT_EQ(trace::find("Failed to resolve host [a.example]  because thread creation failed\n").mask,
              trace::kInternal);
    EXPECT_THAT(callbacks::ids(), IsEmpty());
    EXPECT_EQ(Update("c.example").id, 1u);
    EXPECT_EQ(Update("d.example").id, 3u);
    send_query_result("a.example", nullptr);
    EXPECT_THAT(callbacks::ids(), IsEmpty());
    AbortDnsQuery("nobody.example");
    AbortDnsQuery(nullptr);
}

TEST(QueryManager, aborting_traces_its_reason_and_nothing_else) {
    Update("a.example");
    trace::clear();
    AbortDnsQuery("a.example");
    AbortDnsQuery("nobody.example");
    EXPECT_THAT(trace::texts(),
                ElementsAre("Failed to resolve host [a.example]  because thread creation failed\n",
                            "Failed to resolve host [nobody.example]  because thread creation failed\n"));
}

TEST(QueryManager, a_result_traces_that_the_name_is_deleted_only_when_it_was_there) {
    UpdateQueryList("a.example", nullptr, nullptr, nullptr);
    trace::clear();
    send_query_result("a.example", nullptr);
    EXPECT_THAT(
        trace::texts(),
        ElementsAre("Delete from query progress list, hostname[a.example]\n",
                    "Sending callback event Successfully for resolved host [a.example] for dns id = 1\n",
                    "Sent callback event  Successfully for resolved host [a.example] for dns id = 1\n"));
    trace::clear();
    send_query_result("a.example", nullptr);
    EXPECT_THAT(trace::texts(), IsEmpty());
}

TEST(QueryManager, a_request_without_a_name_only_takes_an_id) {
    const Update update(nullptr);
    EXPECT_EQ(update.code, 1);
    EXPECT_EQ(update.id, 1u);
    EXPECT_EQ(update.in_progress, 0);
    EXPECT_EQ(Update("a.example").id, 2u);
}

TEST(QueryManager, missing_results_and_callbacks_are_skipped) {
    EXPECT_EQ(UpdateQueryList("a.example", nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(UpdateQueryList("a.example", nullptr, nullptr, nullptr), 1);
    send_query_result("a.example", nullptr);
    EXPECT_EQ(Update("b.example").id, 1u);
}

TEST(QueryManager, a_name_that_cannot_be_entered_keeps_its_id_and_is_never_called_back) {
    for (const size_t nth : {size_t{1}, size_t{2}}) {
        trace::clear();
        calls::fail(Call::Malloc, nth);
        const Update update("a.example");
        EXPECT_TRUE(calls::has_failed(Call::Malloc));
        EXPECT_EQ(update.code, 1);
        EXPECT_EQ(update.id, nth);
        EXPECT_EQ(update.in_progress, 0);
        EXPECT_EQ(trace::find("Failed to allocate memory for ptr\n").mask, trace::kInternal);
        send_query_result("a.example", nullptr);
        EXPECT_THAT(callbacks::ids(), IsEmpty());
    }
}

}  // namespace
}  // namespace quorvel::test::dns
