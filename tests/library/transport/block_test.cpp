// Blocks that follow a record.
#include <array>

#include "SocketPair.h"

namespace quorvel::test {
namespace {

using Block = SocketPair;
using BlockSlow = SocketPair;
using Bytes144 = std::array<char, 144>;

Bytes144 filled(char with) {
    Bytes144 block;
    block.fill(with);
    return block;
}

TEST_F(Block, a_block_is_read_whole) {
    serve(filled('b'));
    Bytes144 block{};
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), sizeof block), 0u);
    EXPECT_EQ(block, filled('b'));
}

TEST_F(Block, a_block_is_read_from_the_socket_that_is_named) {
    g_NetCMClientAppInfo.SyncSockFd = -1;
    serve(filled('b'));
    Bytes144 block{};
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), sizeof block), 0u);
}

TEST_F(Block, what_did_not_arrive_leaves_the_destination_alone) {
    serve(std::array<char, 100>{});
    shutdown(servers(), SHUT_WR);
    Bytes144 block = filled('u');
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), sizeof block), NETCM_ERR_FAILURE);
    EXPECT_EQ(block, filled('u'));
    EXPECT_TRUE(trace::traced(3, "Error reading response from CM. errno = 0 \n", kUnit));
}

TEST_F(Block, a_closed_socket_gives_1) {
    close_server();
    Bytes144 block{};
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), sizeof block), NETCM_ERR_FAILURE);
}

TEST_F(Block, an_invalid_descriptor_gives_1) {
    Bytes144 block{};
    EXPECT_EQ(NetCMClientReadMoreData(0, block.data(), sizeof block), NETCM_ERR_FAILURE);
}

TEST_F(Block, a_large_block_is_read_as_well) {
    const std::string sent(100'000, 'L');
    ASSERT_EQ(::send(servers(), sent.data(), sent.size(), MSG_NOSIGNAL), 100'000);
    std::string block(sent.size(), ' ');
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), static_cast<uint32_t>(block.size())), 0u);
    EXPECT_EQ(block, sent);
}

TEST_F(Block, a_length_that_cannot_be_had_fails_and_does_not_crash) {
    char byte = 'u';
    for (const uint32_t length : {0xffffffffu, 0x80000000u, 0x7fffffffu}) {
        calls::fail(Call::Malloc);
        close_server();
        EXPECT_EQ(NetCMClientReadMoreData(ours(), &byte, length), NETCM_ERR_FAILURE);
    }
    EXPECT_EQ(byte, 'u');
}

TEST_F(Block, no_memory_for_a_large_block_gives_1) {
    calls::fail(Call::Malloc, 1, 0, calls::kForEver);
    std::string block(100'000, ' ');
    EXPECT_EQ(NetCMClientReadMoreData(ours(), block.data(), static_cast<uint32_t>(block.size())),
              NETCM_ERR_FAILURE);
}

TEST_F(BlockSlow, a_block_that_is_not_there_whole_in_10_seconds_gives_1) {
    int quiet[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, quiet), 0);
    // The limit is the same when it has begun to come.
    for (const bool begun : {true, false}) {
        if (begun)
            serve(filled('b')[0]);
        trace::clear();
        Bytes144 block{};
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(NetCMClientReadMoreData(begun ? ours() : quiet[0], block.data(), sizeof block),
                  NETCM_ERR_FAILURE);
        const auto waited = std::chrono::steady_clock::now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(9'900));
        EXPECT_LT(waited, std::chrono::seconds(15));
        EXPECT_TRUE(trace::traced(3, "POLLing timeout  \n", kUnit));
    }
    close(quiet[0]);
    close(quiet[1]);
}

}  // namespace
}  // namespace quorvel::test
