// Connect and register.
#include "LinkTest.h"

namespace quorvel::test {
namespace {

using LinkSetUp = LinkTest;

TEST_F(LinkSetUp, the_handshake_leaves_a_registered_link) {
    const int fd = init();
    ASSERT_GT(fd, 0);
    EXPECT_EQ(table.SyncSockFd, fd);
    EXPECT_GT(table.AsyncSockFd, 0);
    EXPECT_NE(table.RecvThreadId, kNoReceiver);
    EXPECT_EQ(client_id, static_cast<int32_t>(server.client_id()));
    EXPECT_EQ(table.AppId, 4711);
}

TEST_F(LinkSetUp, the_requests_are_exact_to_the_byte) {
    const int fd = init();
    ASSERT_TRUE(server.wait_for(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ));
    const std::vector<Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    const wire::RequestHeader sync = {1, 0, static_cast<uint32_t>(fd), 0, 0, 4711};
    const wire::RequestHeader async = {2, 0, static_cast<uint32_t>(client_id), 0, 0, 0};
    EXPECT_EQ(bytes_of(requests[0].header), bytes_of(sync));
    EXPECT_EQ(bytes_of(requests[1].header), bytes_of(async));
    EXPECT_NE(requests[0].connection, requests[1].connection);
}

TEST_F(LinkSetUp, the_address_leaves_the_terminating_zero_out) {
    init();
    EXPECT_EQ(calls::connect_lengths(), (std::vector<unsigned>{19, 19}));
}

TEST_F(LinkSetUp, every_step_is_traced_in_order) {
    const int fd = init();
    const int async = table.AsyncSockFd;
    const auto receiver = static_cast<int>(table.RecvThreadId);
    EXPECT_TRUE(trace::contains_in_order(
        {trace::text("Created sync socket [%d]\n", fd),
         trace::text("Connecting to server socket to register sync socket [%d]\n", fd), "App ID = 4711\n",
         trace::text("Client ID received = %d \n", client_id),
         trace::text("Created async socket [%d]\n", async),
         trace::text("Connecting to server socket to register async socket [%d]\n", async),
         trace::text("Connected socket [%d] to CM server to receive async events\n", async),
         "Created internal pipe for async recv thread control\n",
         trace::text("CM lib Thread to receive async events created, ID = [%d] \n", receiver),
         trace::text("Connected sync socket %d to the CM server socket\n", fd)}));
    EXPECT_TRUE(trace::traced(2, trace::text("Created sync socket [%d]\n", fd), kUnit));
    EXPECT_TRUE(trace::traced(2, trace::text("Created async socket [%d]\n", async), kUnit));
    EXPECT_TRUE(trace::traced(2, "App ID = 4711\n", kUnit));
    EXPECT_TRUE(trace::traced(0, trace::text("Client ID received = %d \n", client_id), kUnit));
}

TEST_F(LinkSetUp, a_null_result_is_refused) {
    EXPECT_EQ(NetCMClientInit(nullptr), -1);
    EXPECT_TRUE(trace::traced(5, "NULL pointer variable passed\n", kUnit));
    EXPECT_EQ(server.accepted_connections(), 0);
}

TEST_F(LinkSetUp, an_application_whose_id_is_not_known_registers_with_0) {
    platform::fail_app_id(3);
    init();
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_REGISTER_REQ)->header.Arg5, 0u);
    EXPECT_EQ(table.AppId, 0);
    EXPECT_TRUE(trace::traced(2, "App ID = 0\n", kUnit));
}

TEST_F(LinkSetUp, a_negative_application_id_is_sent_as_it_is) {
    platform::set_app_id(-5);
    init();
    EXPECT_EQ(server.last(wire::NETCM_CLIENT_REGISTER_REQ)->header.Arg5, 0xfffffffbu);
}

TEST_F(LinkSetUp, an_async_socket_that_is_there_is_kept) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int before = ends[0];  // never readable, as long as the other end is open
    table.AsyncSockFd = before;
    ASSERT_GT(init(), 0);
    EXPECT_EQ(table.AsyncSockFd, before);
    EXPECT_TRUE(trace::traced(0, trace::text("Async socket [%d] already exist\n", before), kUnit));
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ), 0u);
    NetCMClientExit(table.SyncSockFd);
    close(ends[1]);
}

TEST_F(LinkSetUp, a_receiver_that_is_there_is_kept) {
    const pthread_t before = pthread_self();
    table.RecvThreadId = before;
    const int fd = init();
    ASSERT_GT(fd, 0);
    EXPECT_EQ(table.RecvThreadId, before);
    EXPECT_EQ(calls::count(Call::Pipe) + calls::count(Call::ThreadCreate), 0u);
    table.RecvThreadId = kNoReceiver;
    close(table.AsyncSockFd);
    close(fd);
}

TEST_F(LinkSetUp, every_descriptor_is_close_on_exec) {
    const Descriptors before = open_descriptors();
    ASSERT_GT(init(), 0);
    for (const int fd : {table.SyncSockFd, table.AsyncSockFd, pipe_fds[0], pipe_fds[1]})
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
}

// The receiver's select counts its descriptors from the pipe alone.
TEST_F(LinkSetUp, the_pipe_is_read_above_both_sockets_whatever_numbers_are_free) {
    int holes[6];
    for (int& hole : holes)
        hole = dup(0);
    // Low numbers are free for the pipe only after the sockets have been placed above them.
    table.AsyncSockFd = -1;
    calls::before(Call::Pipe, [&] {
        for (const int hole : holes)
            close(hole);
    });
    const int fd = init();
    EXPECT_GT(pipe_fds[0], fd);
    EXPECT_GT(pipe_fds[0], table.AsyncSockFd);
    EXPECT_TRUE(server.push(indication(wire::NETCM_CLIENT_SUSPEND_IND, 3)));
    EXPECT_TRUE(trace::wait_for("Callid [3] not active \n"));
}

TEST_F(LinkSetUp, the_link_keeps_off_the_standard_streams_that_the_application_has_closed) {
    int saved[3];
    for (int fd = 0; fd < 3; ++fd) {
        saved[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 100);
        close(fd);
    }
    const int fd = init();
    const int lowest = std::min({table.SyncSockFd, table.AsyncSockFd, pipe_fds[0], pipe_fds[1]});
    // The server's ends may have got the free numbers; they go before the streams come back.
    NetCMClientExit(fd);
    server.stop();
    for (int stream = 0; stream < 3; ++stream) {
        dup2(saved[stream], stream);
        close(saved[stream]);
    }
    EXPECT_GT(fd, 2);
    EXPECT_GT(lowest, 2);
}

TEST_F(LinkSetUp, a_failed_move_of_a_descriptor_is_a_failed_socket) {
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
    close(0);
    calls::fail(Call::Fcntl);
    EXPECT_EQ(init(), -1);
    EXPECT_TRUE(trace::traced(3, "Error creating sync socket. Error = [Too many open files].\n"));
    EXPECT_FALSE(is_open(0));
    dup2(saved, 0);
    close(saved);
}

}  // namespace
}  // namespace quorvel::test
