#include <fcntl.h>

#include <csignal>
#include <thread>

#include "SocketPair.h"

namespace quorvel::test {
namespace {

using Sending = SocketPair;

TEST_F(Sending, the_bytes_arrive_as_they_are) {
    EXPECT_EQ(NetCMSendRequest(ours(), "six by four bytes to send", 24), 0u);
    EXPECT_EQ(received(), std::string("six by four bytes to send", 24));
    EXPECT_TRUE(trace::traced(2, trace::text("Successfully written %d byte on socket FD = %d \n", 24, ours()),
                              kUnit));
}

TEST_F(Sending, a_null_buffer_gives_19_and_touches_no_socket) {
    EXPECT_EQ(NetCMSendRequest(ours(), nullptr, 24), NETCM_ERR_INVALID_PARAM);
    EXPECT_TRUE(trace::traced(5, "NULL pointer variable passed\n", kUnit));
    EXPECT_EQ(calls::count(Call::Send) + calls::count(Call::Write), 0u);
}

TEST_F(Sending, a_null_buffer_is_found_before_a_bad_descriptor) {
    EXPECT_EQ(NetCMSendRequest(0, nullptr, 24), NETCM_ERR_INVALID_PARAM);
}

TEST_F(Sending, a_descriptor_below_1_gives_1) {
    for (const int fd : {0, -1, -100}) {
        EXPECT_EQ(NetCMSendRequest(fd, "x", 1), NETCM_ERR_FAILURE);
        EXPECT_TRUE(trace::traced(4, trace::text("Socket FD = %d is invalid \n", fd), kUnit));
    }
    EXPECT_EQ(calls::count(Call::Send) + calls::count(Call::Write), 0u);
}

TEST_F(Sending, a_write_that_fails_gives_1_and_names_the_error) {
    calls::fail(Call::Send, 1, ECONNRESET);
    EXPECT_EQ(NetCMSendRequest(ours(), "x", 1), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(5, "Error writing to the socket. Error = [Connection reset by peer]\n", kUnit));
}

TEST_F(Sending, a_server_that_has_gone_raises_no_signal) {
    // With the default action, SIGPIPE would end this process.
    signal(SIGPIPE, SIG_DFL);
    close_server();
    EXPECT_EQ(NetCMSendRequest(ours(), "x", 1), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(5, "Error writing to the socket. Error = [Broken pipe]\n"));
}

TEST_F(Sending, nothing_written_is_a_failure_without_an_error_number) {
    errno = EINVAL;
    EXPECT_EQ(NetCMSendRequest(ours(), "x", 0), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(5, "Error writing to the socket. Error = [Success]\n"));
}

TEST_F(Sending, a_short_write_counts_as_sent) {
    const std::string much(4 << 20, 'm');
    ASSERT_EQ(fcntl(ours(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(NetCMSendRequest(ours(), much.data(), static_cast<uint32_t>(much.size())), 0u);
    EXPECT_EQ(calls::count(Call::Send), 1u);
}

TEST_F(Sending, a_descriptor_that_is_no_socket_is_written_as_well) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    EXPECT_EQ(NetCMSendRequest(ends[1], "word", 4), 0u);
    char bytes[4];
    EXPECT_EQ(read(ends[0], bytes, 4), 4);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Sending, the_query_modules_writer_sends_in_one_write) {
    EXPECT_EQ(NetCMWriteSocket(ours(), "header and data", 15), 0u);
    EXPECT_EQ(received(), "header and data");
    EXPECT_EQ(calls::count(Call::Send) + calls::count(Call::Write), 1u);
}

TEST_F(Sending, the_query_modules_writer_refuses_a_descriptor_below_1) {
    for (const int fd : {0, -1})
        EXPECT_EQ(NetCMWriteSocket(fd, "x", 1), NETCM_ERR_FAILURE);
    EXPECT_EQ(calls::count(Call::Send) + calls::count(Call::Write), 0u);
}

TEST_F(Sending, the_query_modules_writer_names_its_error) {
    close_server();
    EXPECT_EQ(NetCMWriteSocket(ours(), "x", 1), NETCM_ERR_FAILURE);
    EXPECT_TRUE(trace::traced(3, "Error writing to the socket. Error = Broken pipe \n"));
}

}  // namespace
}  // namespace quorvel::test
