// Tunnel data on its way to the server.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kTunnel = wire::NETCM_CLIENT_TUNNEL_REQ;
constexpr uint32_t kUntouched = 99;

class TunnelRequest : public CallTest {
  protected:
    // Accepts every request, with ids that count from 500.
    TunnelRequest() {
        server.on(kTunnel, [this](const Request& request) {
            wire::Record record = answer_record(request.command());
            record.CallId = next_id_++;
            return Answer().record(record);
        });
    }
    uint32_t send(User& who, NetCMTunnelData& record) {
        return who.run([&] { return NetCMTunnelRequest(&record); });
    }
    uint32_t send(User& who, std::string data = "data") {
        NetCMTunnelData record = {.Param = -3,
                                  .RequestId = kUntouched,
                                  .DataLength = static_cast<uint32_t>(data.size()),
                                  .Data = data.data()};
        const uint32_t status = send(who, record);
        request_id = record.RequestId;
        return status;
    }
    NetCMTunnelReq pending(int place) {
        return with_table([=](const NetCMClientAppInfo& table) { return table.TunnelReq[place]; });
    }
    bool is_free_place(int place) {
        const NetCMTunnelReq request = pending(place);
        return request.ThreadId == -1 && request.RequestId == -1;
    }

    uint32_t request_id = 0;

  private:
    uint32_t next_id_ = 500;
};

TEST_F(TunnelRequest, header_and_data_arrive_to_the_byte) {
    User& who = registered(0);
    const std::string data("\x00\x01tunnel\xff", 9);
    EXPECT_EQ(send(who, data), NETCM_SUCCESS);
    const Request request = *server.last(kTunnel);
    const wire::RequestHeader expected = {7, 0, server.client_id(), static_cast<uint32_t>(-3), 9, 0};
    EXPECT_EQ(bytes_of(request.header), bytes_of(expected));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(request.payload.data()), request.payload.size()),
              data);
    EXPECT_FALSE(request.is_async);
}

TEST_F(TunnelRequest, header_and_data_go_out_in_one_write) {
    User& who = registered(0);
    const size_t before = calls::count(Call::Send) + calls::count(Call::Write);
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(calls::count(Call::Send) + calls::count(Call::Write), before + 1);
}

TEST_F(TunnelRequest, the_servers_id_is_handed_out_and_noted) {
    User& who = registered(0);
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(request_id, 500u);
    EXPECT_EQ(pending(0).ThreadId, who.tid());
    EXPECT_EQ(pending(0).RequestId, 500);
    EXPECT_TRUE(is_free_place(1));
    EXPECT_TRUE(traced_in_order({{0, trace::text("Mutex locked by thread [%d] \n", who.tid())},
                                 {2, "Sent Tunnel Request to the CM server \n"},
                                 {2, "Received response = 104 \n"},
                                 {0, "Inserted tunnel reference in free index :0, request id :500\n"},
                                 {0, trace::text("Mutex unlocked by thread [%d] \n", who.tid())}}));
}

TEST_F(TunnelRequest, without_data_only_the_header_is_sent) {
    User& who = registered(0);
    NetCMTunnelData record = {.Param = 5, .RequestId = kUntouched, .DataLength = 0, .Data = nullptr};
    EXPECT_EQ(send(who, record), NETCM_SUCCESS);
    EXPECT_EQ(record.RequestId, 500u);
    const Request request = *server.last(kTunnel);
    EXPECT_EQ(request.header.Arg4, 0u);
    EXPECT_TRUE(request.payload.empty());
    // Nothing but the header is on the socket: the next request is understood.
    EXPECT_EQ(send(who), NETCM_SUCCESS);
}

TEST_F(TunnelRequest, the_twenty_first_has_no_place) {
    User& who = registered(0);
    User& other = registered(1);
    for (int i = 0; i < NETCM_MAX_TUNNELS; ++i)
        EXPECT_EQ(send(i % 2 == 0 ? who : other), NETCM_SUCCESS) << i;
    EXPECT_EQ(send(who), NETCM_ERR_NO_FREE_TUNNEL_ENTRY);
    EXPECT_EQ(request_id, kUntouched);
    EXPECT_EQ(server.count(kTunnel), 20u);
    EXPECT_TRUE(traced_in_order({{2, "No free tunnel info entries\n"}}));
    // An answer makes room again, in the place that it leaves.
    wire::Record answer{};
    answer.Code = wire::NETCM_CLIENT_TUNNEL_RSP;
    answer.CallId = 507;
    ASSERT_TRUE(push_and_settle(answer));
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(pending(7).RequestId, 520);
}

TEST_F(TunnelRequest, a_place_counts_as_free_when_both_words_are) {
    User& who = registered(0);
    with_table([](NetCMClientAppInfo& table) {
        table.TunnelReq[0] = {-1, 5};
        table.TunnelReq[1] = {5, -1};
        return 0;
    });
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(pending(2).RequestId, 500);
}

TEST_F(TunnelRequest, a_refusal_leaves_the_place_free_and_keeps_the_reason) {
    User& who = registered(0);
    registered(1);
    server.on(kTunnel, refusal(kTunnel, 33, 4711));
    EXPECT_EQ(send(user(1)), 33u);
    EXPECT_EQ(request_id, kUntouched);
    EXPECT_TRUE(is_free_place(0));
    EXPECT_EQ(user(1).transport_error(), 4711);
    EXPECT_EQ(who.transport_error(), -1);
    EXPECT_TRUE(
        traced_in_order({{3, "Error in tunnel request = 33 \n"}, {3, "Reason  = 4711, Index = 1\n"}}));
}

TEST_F(TunnelRequest, a_null_record_is_refused_before_any_lock) {
    EXPECT_EQ(NetCMTunnelRequest(nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(calls::count(Call::MutexLock), 0u);
}

TEST_F(TunnelRequest, an_unregistered_process_is_refused) {
    EXPECT_EQ(send(user(0)), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(request_id, kUntouched);
}

TEST_F(TunnelRequest, an_unregistered_thread_is_refused) {
    registered(0);
    EXPECT_EQ(send(user(1)), NETCM_ERR_NOT_REGISTERED);
    EXPECT_EQ(server.count(kTunnel), 0u);
}

TEST_F(TunnelRequest, without_memory_nothing_is_sent) {
    User& who = registered(0);
    calls::fail(Call::Malloc);
    EXPECT_EQ(send(who), NETCM_ERR_FAILURE);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    EXPECT_EQ(server.count(kTunnel), 0u);
    EXPECT_TRUE(is_free_place(0));
}

// The lengths from which the sum with the header no longer fits 32 bits, and one that no memory is large
// enough for. The data is never looked at.
TEST_F(TunnelRequest, a_length_that_cannot_be_had_fails_like_memory) {
    User& who = registered(0);
    char byte = 0;
    for (const uint32_t length : {0xffffffffu, 0xffffffe8u, 0xffffffe7u + 1}) {
        NetCMTunnelData record = {.Param = 0, .RequestId = kUntouched, .DataLength = length, .Data = &byte};
        EXPECT_EQ(send(who, record), NETCM_ERR_FAILURE) << length;
    }
    EXPECT_EQ(server.count(kTunnel), 0u);
    EXPECT_EQ(send(who), NETCM_SUCCESS);
}

TEST_F(TunnelRequest, a_request_that_cannot_be_sent) {
    User& who = registered(0);
    calls::fail(Call::Send);
    EXPECT_EQ(send(who), NETCM_ERR_FAILURE);
    EXPECT_TRUE(
        traced_in_order({{3, trace::text("Error writing to the socket. Error = %s \n", strerror(EPIPE))}}));
    EXPECT_FALSE(trace::contains("Sent Tunnel Request to the CM server \n"));
    EXPECT_TRUE(is_free_place(0));
}

TEST_F(TunnelRequest, an_answer_that_does_not_come_leaves_the_place_free) {
    User& who = registered(0);
    for (const Answer& answer : {wrong_code(119), hang_up()}) {
        server.on(kTunnel, answer);
        trace::clear();
        EXPECT_EQ(send(who), NETCM_ERR_FAILURE);
        EXPECT_TRUE(traced_in_order({{2, "Sent Tunnel Request to the CM server \n"}}));
        EXPECT_FALSE(trace::contains("Received response = 119 \n"));
        EXPECT_EQ(request_id, kUntouched);
        EXPECT_TRUE(is_free_place(0));
    }
}

TEST_F(TunnelRequest, a_broken_link_is_repaired_first) {
    User& who = registered(0);
    break_link();
    trace::clear();
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(server.last(kTunnel)->header.ClientId, server.client_id());
    EXPECT_TRUE(traced_in_order(
        {{2, "CM server connection is re-established\n"}, {2, "Sent Tunnel Request to the CM server \n"}}));
}

TEST_F(TunnelRequest, a_link_that_cannot_be_repaired) {
    User& who = registered(0);
    server.stop();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(send(who), NETCM_ERR_REREGISTER_FAILED);
}

TEST_F(TunnelRequest, the_data_is_the_callers_and_is_not_changed) {
    User& who = registered(0);
    std::string data(100000, 'd');
    EXPECT_EQ(send(who, data), NETCM_SUCCESS);
    EXPECT_EQ(server.last(kTunnel)->payload.size(), data.size());
    EXPECT_EQ(data, std::string(100000, 'd'));
}

// More than a socket takes at once.
TEST_F(TunnelRequest, a_megabyte_arrives_whole) {
    User& who = registered(0);
    std::string data(size_t{1} << 20, 'x');
    for (size_t i = 0; i < data.size(); i += 1000)
        data[i] = static_cast<char>('a' + i / 1000 % 26);
    for (const int refusals : {0, 3}) {
        calls::reset();
        if (refusals != 0)
            calls::fail(Call::Send, 2, EAGAIN, static_cast<size_t>(refusals));
        EXPECT_EQ(send(who, data), NETCM_SUCCESS);
        const Request request = *server.last(kTunnel);
        ASSERT_EQ(request.payload.size(), data.size());
        EXPECT_EQ(memcmp(request.payload.data(), data.data(), data.size()), 0);
    }
}

TEST_F(TunnelRequest, one_of_which_nothing_goes_out_is_not_sent) {
    User& who = registered(0);
    calls::fail(Call::Send, 1, EAGAIN);
    calls::fail(Call::Poll, 1, ENOMEM);
    EXPECT_EQ(send(who), NETCM_ERR_FAILURE);
    calls::reset();
    EXPECT_EQ(send(who), NETCM_SUCCESS);
    EXPECT_EQ(server.count(kTunnel), 1u);
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u) << "on the same link";
}

TEST_F(TunnelRequest, data_of_no_address_have_no_length) {
    registered(0);
    NetCMTunnelData record = {.Param = 1, .RequestId = kUntouched, .DataLength = 5, .Data = nullptr};
    EXPECT_EQ(send(user(0), record), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(trace::traced(5, "NULL pointer variable passed\n"));
    record.DataLength = 0;
    EXPECT_EQ(send(user(0), record), NETCM_SUCCESS);
    EXPECT_EQ(server.count(kTunnel), 1u);
}

// The server would take what is sent next for the rest of it.
TEST_F(TunnelRequest, one_that_is_cut_takes_the_link_with_it) {
    User& who = registered(0);
    calls::fail(Call::Send, 2, EPIPE);
    EXPECT_EQ(send(who, std::string(size_t{1} << 20, 'x')), NETCM_ERR_FAILURE);
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_TRUE(is_free_place(0));
    calls::reset();
    EXPECT_EQ(send(who), NETCM_SUCCESS) << "on a new one";
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 2u);
}

}  // namespace
}  // namespace quorvel::test
