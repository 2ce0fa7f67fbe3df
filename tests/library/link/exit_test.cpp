// Taking the link down.
#include "LinkTest.h"

namespace quorvel::test {
namespace {

class LinkTakeDown : public LinkTest {
  protected:
    LinkTakeDown() : sync_fd(init()) {
        async_fd = table.AsyncSockFd;
        receiver = __atomic_load_n(&table.RecvThreadId, __ATOMIC_ACQUIRE);
        ends[0] = pipe_fds[0];
        ends[1] = pipe_fds[1];
    }
    int sync_fd;
    int async_fd = -1;
    int ends[2] = {-1, -1};
    pthread_t receiver = kNoReceiver;
};

TEST_F(LinkTakeDown, the_receiver_is_stopped_and_everything_closed) {
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_EQ(table.RecvThreadId, kNoReceiver);
    for (const int fd : {sync_fd, async_fd, ends[0], ends[1]})
        EXPECT_FALSE(is_open(fd));
    EXPECT_TRUE(trace::contains_in_order(
        {"Quorvel client deregistration is detected. Close the async recv thread \n",
         trace::text("Successful pthread_join for killed Async thread [%d] \n", static_cast<int>(receiver)),
         trace::text("Successfully closed the async socket [%d] \n", async_fd),
         trace::text("Successfully closed the sync socket [%d] \n", sync_fd)}));
    EXPECT_TRUE(
        trace::traced(2, trace::text("Successfully closed the async socket [%d] \n", async_fd), kUnit));
    EXPECT_TRUE(trace::traced(2, trace::text("Successfully closed the sync socket [%d] \n", sync_fd), kUnit));
    EXPECT_EQ(table.AsyncSockFd, async_fd) << "the caller resets it";
}

TEST_F(LinkTakeDown, a_receiver_that_has_gone_is_not_joined) {
    server.close_async();
    EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
    ASSERT_TRUE(eventually(link_is_broken));
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_EQ(calls::count(Call::ThreadJoin), 0u);
    for (const int fd : {sync_fd, async_fd, ends[0], ends[1]})
        EXPECT_FALSE(is_open(fd));
}

TEST_F(LinkTakeDown, a_failed_join_ends_it_and_names_its_error) {
    calls::fail(Call::ThreadJoin);
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_TRUE(trace::traced(
        4,
        trace::text("Error in pthread_join for killing Async thread [%d].. errno = [No such process] \n",
                    static_cast<int>(receiver)),
        kUnit));
    for (const int fd : {sync_fd, async_fd, ends[0], ends[1]})
        EXPECT_TRUE(is_open(fd));
    EXPECT_EQ(table.RecvThreadId, receiver);
}

TEST_F(LinkTakeDown, an_async_socket_that_does_not_close_ends_it) {
    calls::fail(Call::Close, 3);
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_TRUE(trace::traced(5, "Error closing Async socket. Error = [Input/output error] \n", kUnit));
    EXPECT_TRUE(is_open(sync_fd));
    close(sync_fd);
    close(async_fd);
}

TEST_F(LinkTakeDown, a_sync_socket_that_does_not_close_is_named) {
    calls::fail(Call::Close, 4);
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_TRUE(trace::traced(5, "Error closing sync socket. Error = [Input/output error] \n", kUnit));
    close(sync_fd);
}

TEST_F(LinkTakeDown, without_an_async_socket_only_the_sync_socket_is_closed) {
    table.AsyncSockFd = -1;
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_FALSE(is_open(sync_fd));
    EXPECT_TRUE(is_open(async_fd));
    close(async_fd);
}

TEST_F(LinkTakeDown, a_receiver_that_cannot_be_told_to_stop_sees_the_end_of_the_pipe) {
    calls::fail(Call::Write, 1, EIO);
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_TRUE(calls::has_failed(Call::Write));
    EXPECT_FALSE(is_open(sync_fd));
}

TEST_F(LinkTakeDown, a_server_that_has_gone_does_not_matter) {
    server.close_sync();
    EXPECT_EQ(NetCMClientExit(sync_fd), 1);
    EXPECT_FALSE(is_open(sync_fd));
}

}  // namespace
}  // namespace quorvel::test
