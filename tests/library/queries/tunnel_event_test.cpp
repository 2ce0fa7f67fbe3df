// Tunnel data on its way from the server.
#include "library/calls/CallTest.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kResponse = wire::NETCM_CLIENT_TUNNEL_RSP;
constexpr uint32_t kIndication = wire::NETCM_CLIENT_TUNNEL_IND;
constexpr auto kMinusOne = static_cast<uint32_t>(-1);

wire::Record event(uint32_t code, uint32_t length, uint32_t id) {
    wire::Record record{};
    record.Code = code;
    record.Word2 = length;
    record.CallId = id;
    return record;
}

class TunnelEvent : public CallTest {
  protected:
    TunnelEvent() {
        registered(0);
        registered(1);
        trace::clear();
    }
    void set_pending(int place, int32_t tid, int32_t id) {
        with_table([=](NetCMClientAppInfo& table) {
            table.TunnelReq[place] = {tid, id};
            return 0;
        });
    }
    bool is_free_place(int place) {
        return with_table([=](const NetCMClientAppInfo& table) {
            return table.TunnelReq[place].ThreadId == -1 && table.TunnelReq[place].RequestId == -1;
        });
    }
    // Record and data, as the server writes them.
    bool push_data(uint32_t code, uint32_t id, const std::string& data) {
        Bytes whole = bytes_of(event(code, static_cast<uint32_t>(data.size()), id));
        for (const char byte : data)
            whole.push_back(static_cast<std::byte>(byte));
        return server.push(whole) && settled();
    }
    void expect_tunnel_data(const Event& event, uint32_t id, const std::string& data) {
        EXPECT_TRUE(event.has_data);
        EXPECT_EQ(event.words, (std::vector<uint32_t>{kMinusOne, id, static_cast<uint32_t>(data.size())}));
        EXPECT_EQ(event.tunnel_data, data);
    }
    static std::vector<Told> both(uint32_t type) { return {{0, type, -1, 0}, {1, type, -1, 0}}; }
};

TEST_F(TunnelEvent, a_response_reaches_the_thread_that_asked) {
    set_pending(3, user(1).tid(), 77);
    const auto watching = watch_mutex();
    const std::string data("\x00\x01 answer \xff", 11);
    ASSERT_TRUE(push_data(kResponse, 77, data));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_TUNNEL_RSP, -1, 0}}));
    expect_tunnel_data(events::all().at(0), 77, data);
    EXPECT_TRUE(is_free_place(3));
    EXPECT_TRUE(traced_in_order({{0, "Received tunnel response from server \n", kInternal},
                                 {0, "Tunnel data length = 11\n", kCore},
                                 {0, "Received tunnel data. Tunnel data length = 11\n", kCore},
                                 {0, "Getting calling thread index.\n", kCore}}));
    expect_all_on_receiver();
}

TEST_F(TunnelEvent, a_request_and_its_response_belong_together) {
    server.on(wire::NETCM_CLIENT_TUNNEL_REQ, [](const Request& request) {
        wire::Record record = answer_record(request.command());
        record.CallId = 600;
        Bytes pushed = bytes_of(event(kResponse, request.header.Arg4, 600));
        pushed.insert(pushed.end(), request.payload.begin(), request.payload.end());
        return Answer().record(record).push(pushed);
    });
    std::string data = "echo";
    NetCMTunnelData record = {.Param = 0, .RequestId = 0, .DataLength = 4, .Data = data.data()};
    EXPECT_EQ(user(1).run([&] { return NetCMTunnelRequest(&record); }), NETCM_SUCCESS);
    ASSERT_TRUE(events::wait_for(1));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_TUNNEL_RSP, -1, 0}}));
    expect_tunnel_data(events::all().at(0), record.RequestId, "echo");
}

TEST_F(TunnelEvent, only_the_first_matching_request_is_answered) {
    set_pending(0, user(0).tid(), 77);
    set_pending(1, user(1).tid(), 77);
    ASSERT_TRUE(push_data(kResponse, 77, "x"));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_TUNNEL_RSP, -1, 0}}));
    EXPECT_FALSE(is_free_place(1));
}

TEST_F(TunnelEvent, a_response_that_nobody_waits_for_is_read_and_dropped) {
    set_pending(0, user(0).tid(), 77);
    ASSERT_TRUE(push_data(kResponse, 78, "nobody's"));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_FALSE(is_free_place(0));
    EXPECT_FALSE(trace::contains("Getting calling thread index.\n"));
    ASSERT_TRUE(push_data(kResponse, 77, "somebody's"));
    EXPECT_EQ(events::all().at(0).tunnel_data, "somebody's");
}

TEST_F(TunnelEvent, a_free_place_is_nobodys_even_for_the_request_minus_one) {
    ASSERT_TRUE(push_data(kResponse, kMinusOne, "x"));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_FALSE(trace::contains("Getting calling thread index.\n"));
}

TEST_F(TunnelEvent, a_requester_that_has_left_gives_its_place_free) {
    set_pending(0, 123456789, 77);
    ASSERT_TRUE(push_data(kResponse, 77, "x"));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free_place(0));
    EXPECT_TRUE(trace::contains("Getting calling thread index.\n"));
}

TEST_F(TunnelEvent, a_requester_without_a_callback_is_skipped) {
    set_pending(0, user(0).tid(), 77);
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_data(kResponse, 77, "x"));
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free_place(0));
}

TEST_F(TunnelEvent, an_indication_reaches_every_registered_thread) {
    const auto watching = watch_mutex();
    ASSERT_TRUE(push_data(kIndication, 12, "for all"));
    EXPECT_EQ(told(), both(NETCM_EVENT_TUNNEL_IND));
    for (const Event& one : events::all())
        expect_tunnel_data(one, 12, "for all");
    const auto sent = [this](int number) {
        return Traced{0, trace::text("Sent tunnel indication to thread [%d]\n", user(number).tid()), kCore};
    };
    EXPECT_TRUE(traced_in_order({{0, "Received tunnel indication from server \n", kInternal},
                                 {0, "Tunnel indication data length = 7\n", kCore},
                                 {0, "Received tunnel indication data. Data length = 7\n", kCore},
                                 sent(0),
                                 sent(1)}));
    expect_all_on_receiver();
}

TEST_F(TunnelEvent, an_indication_skips_a_thread_without_a_callback) {
    with_table([](NetCMClientAppInfo& table) { return table.ThreadInfo[0].EventCbk = nullptr; });
    ASSERT_TRUE(push_data(kIndication, 12, "x"));
    EXPECT_EQ(told(), (std::vector<Told>{{1, NETCM_EVENT_TUNNEL_IND, -1, 0}}));
    EXPECT_FALSE(trace::contains(trace::text("Sent tunnel indication to thread [%d]\n", user(0).tid())));
}

TEST_F(TunnelEvent, without_data_it_is_delivered_without_touching_the_socket) {
    set_pending(0, user(0).tid(), 77);
    const size_t polls = calls::count(Call::Poll);
    ASSERT_TRUE(push_data(kResponse, 77, ""));
    ASSERT_TRUE(push_data(kIndication, 12, ""));
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_TUNNEL_RSP, -1, 0},
                                         {0, NETCM_EVENT_TUNNEL_IND, -1, 0},
                                         {1, NETCM_EVENT_TUNNEL_IND, -1, 0}}));
    expect_tunnel_data(events::all().at(0), 77, "");
    EXPECT_EQ(calls::count(Call::Poll), polls);
}

TEST_F(TunnelEvent, data_in_pieces_is_put_together) {
    ASSERT_TRUE(server.push(event(kIndication, 5, 1)));
    for (const char byte : std::string("piece"))
        ASSERT_TRUE(server.push(Bytes{static_cast<std::byte>(byte)}));
    ASSERT_TRUE(settled());
    EXPECT_EQ(events::of(1).at(0).tunnel_data, "piece");
}

TEST_F(TunnelEvent, much_data_arrives_whole) {
    std::string data(1000000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 31);
    ASSERT_TRUE(push_data(kIndication, 1, data));
    EXPECT_TRUE(events::of(0).at(0).tunnel_data == data);
}

// Failures. Each processor is called by its own name, to see its result.

class TunnelFailure : public TunnelEvent, public ::testing::WithParamInterface<uint32_t> {
  protected:
    bool is_response() { return GetParam() == kResponse; }
    uint32_t process(const wire::Record* record) {
        return with_table([&](auto&) {
            const uint32_t* words = record != nullptr ? &record->Code : nullptr;
            return is_response() ? NetCMClientProcesTunnelRsp(words) : NetCMClientProcesTunnelInd(words);
        });
    }
    void expect_failure(uint32_t length) {
        set_pending(0, user(0).tid(), 77);
        const wire::Record record = event(GetParam(), length, 77);
        EXPECT_EQ(process(&record), NETCM_ERR_FAILURE);
        EXPECT_EQ(events::count(), 0u);
        EXPECT_FALSE(is_free_place(0)) << "the request still waits";
    }
};

TEST_P(TunnelFailure, a_null_event_is_refused) {
    EXPECT_EQ(process(nullptr), NETCM_ERR_INVALID_PARAM);
    if (is_response()) {
        EXPECT_TRUE(traced_in_order({{5, "NULL pointer variable passed\n", kCore}}));
    }
}

TEST_P(TunnelFailure, an_event_without_data_succeeds_with_0) {
    const wire::Record record = event(GetParam(), 0, 77);
    EXPECT_EQ(process(&record), NETCM_SUCCESS);
}

TEST_P(TunnelFailure, without_memory_for_the_data) {
    calls::fail(Call::Malloc);
    expect_failure(10);
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    if (is_response()) {
        EXPECT_TRUE(traced_in_order({{4, "Memory can't be allocated for data.Data\n", kCore}}));
    }
}

TEST_P(TunnelFailure, a_length_that_cannot_be_had) {
    expect_failure(0xffffffff);
    expect_failure(0x80000000);
}

TEST_P(TunnelFailure, a_socket_that_cannot_be_polled) {
    calls::fail(Call::Poll, 1, EINVAL);
    expect_failure(10);
    EXPECT_TRUE(traced_in_order(
        {{3,
          is_response() ? trace::text("Error reading response from CM. Error = [%s] \n", strerror(EINVAL))
                        : trace::text("Error reading response from CM errno = %d \n", EINVAL),
          kCore}}));
}

TEST_P(TunnelFailure, data_that_does_not_come_in_time) {
    calls::answer_next_poll(0);
    expect_failure(10);
    if (is_response()) {
        EXPECT_TRUE(traced_in_order({{3, "PANIC!!!  CM connection closed\n", kCore}}));
    }
}

TEST_P(TunnelFailure, a_server_that_closes_in_the_middle) {
    set_pending(0, user(0).tid(), 77);
    Bytes half = bytes_of(event(GetParam(), 10, 77));
    half.resize(half.size() + 5);
    ASSERT_TRUE(server.push(half));
    server.close_async();
    ASSERT_TRUE(wait_until_link_is_broken());
    EXPECT_EQ(events::count(), 0u);
    EXPECT_TRUE(is_free_place(0)) << "the lost server takes its requests along";
}

INSTANTIATE_TEST_SUITE_P(Tunnel, TunnelFailure, ::testing::Values(kResponse, kIndication),
                         [](const auto& one) { return one.param == kResponse ? "response" : "indication"; });

}  // namespace
}  // namespace quorvel::test
