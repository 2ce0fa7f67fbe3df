#include <poll.h>

#include <array>

#include "SocketPair.h"
#include "common/Wire.h"

namespace quorvel::test {
namespace {

using Response = SocketPair;
using Words = std::array<uint32_t, 10>;

constexpr uint32_t kExpected = wire::NETCM_CLIENT_GET_NETWORK_STATUS_RSP;
constexpr Words kUntouched = {7, 7, 7, 7, 7, 7, 7, 7, 7, 7};

TEST_F(Response, the_expected_record_is_copied_word_by_word) {
    const Words sent = {kExpected, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    serve(sent);
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), 0u);
    EXPECT_EQ(words, sent);
    EXPECT_TRUE(trace::traced(0, "Received response Event = 121 \n", kUnit));
    EXPECT_TRUE(trace::traced(0, "Received Requested Response = 121 \n", kUnit));
}

TEST_F(Response, another_code_gives_1_and_leaves_the_result_alone) {
    serve(Words{wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_RSP});
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_EQ(words, kUntouched);
    EXPECT_TRUE(trace::traced(0, "Received response Event = 118 \n", kUnit));
    EXPECT_TRUE(trace::traced(3, "Unknown Event received. \n", kUnit));
}

TEST_F(Response, the_expected_record_is_not_searched_for_behind_another) {
    serve(Words{wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_RSP});
    serve(Words{kExpected});
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), 0u);
}

TEST_F(Response, a_null_result_gives_19_before_anything_is_read) {
    serve(Words{kExpected});
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, nullptr), NETCM_ERR_INVALID_PARAM);
    EXPECT_EQ(calls::count(Call::Poll), 0u);
}

TEST_F(Response, a_closed_socket_gives_1) {
    close_server();
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_EQ(words, kUntouched);
    EXPECT_TRUE(trace::traced(3, "Error reading response from CM. errno = 0 \n", kUnit));
}

TEST_F(Response, a_time_out_gives_1) {
    calls::answer_next_poll(0);
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_EQ(words, kUntouched);
}

TEST_F(Response, a_failed_poll_names_its_error_number) {
    calls::fail(Call::Poll, 1, EINVAL);
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(3, "Error reading response from CM. errno = 22 \n", kUnit));
}

// A reader that gave up early counts as one that read something: the code of the empty record does not match.
TEST_F(Response, an_odd_poll_result_ends_as_an_unknown_event) {
    calls::answer_next_poll(POLLNVAL);
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(0, "Received response Event = 0 \n", kUnit));
    EXPECT_EQ(words, kUntouched);
}

TEST_F(Response, a_record_cut_short_gives_1) {
    serve(uint32_t{kExpected});
    shutdown(servers(), SHUT_WR);
    Words words = kUntouched;
    EXPECT_EQ(NetCMReadResponse(ours(), kExpected, words.data()), NETCM_ERR_FAILURE);
    EXPECT_EQ(words, kUntouched);
}

}  // namespace
}  // namespace quorvel::test
