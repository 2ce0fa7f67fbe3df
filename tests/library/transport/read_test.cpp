// The two readers: of the sync socket, and of a block on the socket that the caller names.
#include <fcntl.h>
#include <poll.h>

#include <array>
#include <thread>

#include "SocketPair.h"

namespace quorvel::test {
namespace {

using Reading = SocketPair;
using ReadingSlow = SocketPair;

using TenWords = std::array<uint32_t, 10>;
constexpr TenWords kWords = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};

struct Reader {
    const char* name;
    int32_t (*read)(int fd, void* buf, uint32_t len);
    uint32_t poll_level;
    uint32_t time_out_level;
    const char* poll_error;
    std::string (*progress)(int fd, int result);
};

const Reader kSync = {
    "sync",
    [](int fd, void* buf, uint32_t len) { return NetCMReadSocket(fd, buf, len); },
    2,
    2,
    "Polling unknown error. Error = [Invalid argument] \n",
    [](int fd, int result) { return trace::text("socket FD = [%d] Retval = [%d]\n", fd, result); }};
const Reader kBlock = {
    "block",
    [](int fd, void* buf, uint32_t len) { return NetCMReadSocketEx(fd, buf, static_cast<int>(len)); },
    0,
    3,
    "Polling unknown error \n",
    [](int fd, int result) { return trace::text("sockfd %d retval %d\n", fd, result); }};

class EachReader : public SocketPair, public ::testing::WithParamInterface<const Reader*> {
  protected:
    const Reader& reader() { return *GetParam(); }
    int32_t read_words(TenWords& words) { return reader().read(ours(), words.data(), sizeof words); }
};

INSTANTIATE_TEST_SUITE_P(Of, EachReader, ::testing::Values(&kSync, &kBlock),
                         [](const auto& param) { return param.param->name; });

TEST_P(EachReader, a_record_is_read_and_its_length_returned) {
    serve(kWords);
    TenWords words{};
    EXPECT_EQ(read_words(words), 40);
    EXPECT_EQ(words, kWords);
    EXPECT_TRUE(trace::traced(reader().poll_level, "POLL ret = 1,  \n", kUnit));
    EXPECT_TRUE(trace::traced(0, "POLLIN \n", kUnit));
    EXPECT_TRUE(trace::traced(0, reader().progress(ours(), 40), kUnit));
}

TEST_P(EachReader, a_record_in_pieces_is_put_together) {
    std::thread server([this] {
        for (const uint32_t word : kWords) {
            serve(word);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    TenWords words{};
    EXPECT_EQ(read_words(words), 40);
    server.join();
    EXPECT_EQ(words, kWords);
}

TEST_P(EachReader, no_more_is_read_than_was_asked_for) {
    serve(kWords);
    serve(kWords);
    TenWords words{};
    EXPECT_EQ(read_words(words), 40);
    EXPECT_EQ(read_words(words), 40);
}

TEST_P(EachReader, an_end_in_the_middle_of_a_record_gives_0) {
    serve(uint32_t{1});
    std::thread server([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        shutdown(servers(), SHUT_WR);
    });
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
    server.join();
    EXPECT_TRUE(trace::traced(0, reader().progress(ours(), 0)));
}

TEST_P(EachReader, a_half_closed_socket_gives_0) {
    shutdown(servers(), SHUT_WR);
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
}

TEST_P(EachReader, a_closed_socket_gives_0) {
    close_server();
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
    EXPECT_TRUE(trace::traced(2, "POLLHUP\n", kUnit));
}

TEST_P(EachReader, data_ahead_of_a_hang_up_are_not_read) {
    serve(kWords);
    close_server();
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
    EXPECT_EQ(words, TenWords{});
}

TEST_P(EachReader, a_null_buffer_gives_minus_1) {
    EXPECT_EQ(reader().read(ours(), nullptr, 40), -1);
    EXPECT_TRUE(trace::traced(5, "NULL pointer variable passed\n", kUnit));
    EXPECT_EQ(calls::count(Call::Poll), 0u);
}

TEST_P(EachReader, an_invalid_descriptor_gives_minus_1) {
    TenWords words{};
    for (const int fd : {0, -1}) {
        g_NetCMClientAppInfo.SyncSockFd = fd;
        EXPECT_EQ(reader().read(fd, words.data(), sizeof words), -1);
        EXPECT_TRUE(trace::traced(5, trace::text("Invalid socket FD [%d]\n", fd), kUnit));
    }
    EXPECT_EQ(calls::count(Call::Poll), 0u);
}

TEST_P(EachReader, a_length_of_0_reads_nothing) {
    serve(kWords);
    TenWords words{};
    EXPECT_EQ(reader().read(ours(), words.data(), 0), 0);
    EXPECT_EQ(calls::count(Call::Read), 0u);
}

TEST_P(EachReader, a_time_out_gives_0) {
    calls::answer_next_poll(0);
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
    EXPECT_TRUE(trace::traced(reader().poll_level, "POLL ret = 0,  \n", kUnit));
    EXPECT_TRUE(trace::traced(reader().time_out_level, "POLLing timeout  \n", kUnit));
}

TEST_P(EachReader, a_poll_that_fails_gives_minus_1) {
    calls::fail(Call::Poll, 1, EINVAL);
    TenWords words{};
    EXPECT_EQ(read_words(words), -1);
    EXPECT_TRUE(trace::traced(reader().poll_level, "POLL ret = -1,  \n", kUnit));
    EXPECT_TRUE(trace::traced(3, reader().poll_error, kUnit));
}

TEST_P(EachReader, a_read_that_fails_gives_its_result) {
    serve(kWords);
    calls::fail(Call::Read, 1, EIO);
    TenWords words{};
    EXPECT_EQ(read_words(words), -1);
    EXPECT_TRUE(trace::traced(0, reader().progress(ours(), -1)));
}

TEST_P(EachReader, an_error_condition_gives_0) {
    for (const int events : {POLLERR, POLLERR | POLLIN, POLLERR | POLLNVAL}) {
        trace::clear();
        calls::answer_next_poll(static_cast<short>(events));
        TenWords words{};
        EXPECT_EQ(read_words(words), 0);
        EXPECT_TRUE(trace::traced(3, "POLLERR\n", kUnit));
    }
}

TEST_P(EachReader, a_hang_up_counts_before_an_error) {
    calls::answer_next_poll(POLLERR | POLLHUP);
    TenWords words{};
    EXPECT_EQ(read_words(words), 0);
    EXPECT_TRUE(trace::traced(2, "POLLHUP\n", kUnit));
    EXPECT_FALSE(trace::contains("POLLERR\n"));
}

TEST_P(EachReader, any_other_combination_gives_1_without_reading) {
    for (const int events : {POLLNVAL, POLLIN | POLLPRI, POLLPRI}) {
        serve(kWords);
        calls::answer_next_poll(static_cast<short>(events));
        TenWords words{};
        EXPECT_EQ(read_words(words), 1);
        EXPECT_EQ(calls::count(Call::Read), 0u);
    }
}

TEST_P(EachReader, a_closed_descriptor_gives_1) {
    const int closed = dup(ours());
    close(closed);
    g_NetCMClientAppInfo.SyncSockFd = closed;
    TenWords words{};
    EXPECT_EQ(reader().read(closed, words.data(), sizeof words), 1);
}

TEST_F(Reading, the_sync_reader_ignores_the_descriptor_it_is_given) {
    int other[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, other), 0);
    serve(kWords);
    TenWords words{};
    EXPECT_EQ(NetCMReadSocket(other[0], words.data(), sizeof words), 40);
    EXPECT_EQ(words, kWords);
    EXPECT_EQ(NetCMReadSocket(-1, nullptr, 0), -1);
    close(other[0]);
    close(other[1]);
}

TEST_F(Reading, the_block_reader_uses_the_descriptor_it_is_given) {
    g_NetCMClientAppInfo.SyncSockFd = -1;
    serve(kWords);
    TenWords words{};
    EXPECT_EQ(NetCMReadSocketEx(ours(), words.data(), sizeof words), 40);
}

TEST_F(ReadingSlow, a_silent_server_is_waited_for_60_seconds) {
    const auto before = std::chrono::steady_clock::now();
    TenWords words{};
    EXPECT_EQ(NetCMReadSocket(ours(), words.data(), sizeof words), 0);
    const auto waited = std::chrono::steady_clock::now() - before;
    EXPECT_GE(waited, std::chrono::milliseconds(59'900));
    EXPECT_LT(waited, std::chrono::seconds(65));
}

TEST_F(ReadingSlow, a_block_is_waited_for_10_seconds) {
    const auto before = std::chrono::steady_clock::now();
    TenWords words{};
    EXPECT_EQ(NetCMReadSocketEx(ours(), words.data(), sizeof words), 0);
    const auto waited = std::chrono::steady_clock::now() - before;
    EXPECT_GE(waited, std::chrono::milliseconds(9'900));
    EXPECT_LT(waited, std::chrono::seconds(15));
}

}  // namespace
}  // namespace quorvel::test
