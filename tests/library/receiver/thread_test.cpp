// The receiver thread: how it waits, and what ends it.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/ClientTest.h"
#include "support/Emulator.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr char kUnit[] = "client/CM/src/NetCMClientInternal";

class ReceiverThread : public ClientTest {
  protected:
    void expect_alive() {
        const size_t before = events::count();
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        EXPECT_TRUE(events::wait_for(before + 1));
    }
    int write_word(uint32_t word) {
        const int fd = with_table([](const auto&) { return pipe_fds[1]; });
        return static_cast<int>(write(fd, &word, sizeof word));
    }
};

TEST_F(ReceiverThread, says_who_it_is) {
    registered(0);
    expect_alive();
    const int32_t tid = events::all().front().thread;
    const std::string text =
        trace::text("In Quorvel Thread, pid = %d, ppid = %d, tid = %d\n", getpid(), getppid(), tid);
    EXPECT_TRUE(trace::traced(2, text, kUnit));
    const int async = with_table([](const auto& t) { return t.AsyncSockFd; });
    EXPECT_TRUE(trace::traced(0, trace::text("Client socket received = %d \n", async), kUnit));
}

TEST_F(ReceiverThread, traces_each_pass) {
    registered(0);
    expect_alive();
    const int async = with_table([](const auto& t) { return t.AsyncSockFd; });
    EXPECT_TRUE(trace::traced(0, "In quorvel Thread loop \n", kUnit));
    EXPECT_TRUE(
        trace::traced(0, trace::text("clientsocket = %d, pipe_fds[0] = %d\n", async, pipe_fds[0]), kUnit));
    EXPECT_TRUE(trace::wait_for_prefix("Pointers rfds = "));
    EXPECT_TRUE(trace::traced(0, "In Thread, read  data \n", kUnit));
}

TEST_F(ReceiverThread, is_one_for_all_users) {
    registered(0);
    const size_t with_one = threads().size();
    registered(1);
    EXPECT_EQ(threads().size(), with_one + 1) << "another user, and no other receiver";
}

TEST_F(ReceiverThread, tries_again_when_the_wait_fails) {
    registered(0);
    ASSERT_TRUE(trace::wait_for("In quorvel Thread loop \n"));
    // The pass that is under way waits already; the next ones fail.
    calls::fail(Call::Select, 1, EINTR, 3);
    expect_alive();
    expect_alive();
    EXPECT_TRUE(trace::wait_for("Error in select. Error = [Interrupted system call] \n", 3));
    EXPECT_TRUE(trace::traced(2, "Error in select. Error = [Interrupted system call] \n", kUnit));
}

TEST_F(ReceiverThread, is_not_stopped_by_the_word_2) {
    registered(0);
    ASSERT_EQ(write_word(2), 4);
    expect_alive();
    ASSERT_EQ(write_word(0), 4);
    expect_alive();
    EXPECT_FALSE(
        trace::contains("Quorvel client deregistration is detected. Close the async recv thread \n"));
}

TEST_F(ReceiverThread, is_stopped_by_the_word_1) {
    User& who = registered(0);
    ASSERT_EQ(write_word(1), 4);
    EXPECT_TRUE(trace::wait_for("Quorvel client deregistration is detected. Close the async recv thread \n"));
    EXPECT_TRUE(
        trace::traced(2, "Quorvel client deregistration is detected. Close the async recv thread \n", kUnit));
    EXPECT_EQ(who.deregister(), 0u);
}

TEST_F(ReceiverThread, ends_at_once_without_a_socket) {
    for (const intptr_t fd : {0, -1}) {
        AppThread thread;
        g_NetCMClientAppInfo.RecvThreadId = pthread_self();
        EXPECT_EQ(thread.run([=] { return NetCMClientThread(reinterpret_cast<void*>(fd)); }), nullptr);
        EXPECT_EQ(g_NetCMClientAppInfo.RecvThreadId, static_cast<pthread_t>(-1));
        EXPECT_TRUE(trace::traced(2, "No Active sockets.. Close the thread.. \n", kUnit));
        EXPECT_TRUE(
            trace::traced(0, trace::text("Client socket received = %d \n", static_cast<int>(fd)), kUnit));
    }
}

// In a process with more descriptors than a select set has by itself.
class AmongManyDescriptors : public ReceiverThread {
  protected:
    void SetUp() override {
        ReceiverThread::SetUp();
        if (is_emulated())
            GTEST_SKIP() << "the emulator's select knows 1,024 descriptors";
        rlimit limit{};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        if (limit.rlim_max < 1400)
            GTEST_SKIP() << "the hard limit of open files is " << limit.rlim_max;
        limit.rlim_cur = 1400;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        while (many_.empty() || many_.back() < 1200)
            many_.push_back(fcntl(0, F_DUPFD_CLOEXEC, 3));
    }
    void TearDown() override {
        for (const int fd : many_)
            close(fd);
        ReceiverThread::TearDown();
    }

  private:
    std::vector<int> many_;
};

TEST_F(AmongManyDescriptors, the_receiver_works) {
    registered(0);
    EXPECT_GT(with_table([](const auto& t) { return t.AsyncSockFd; }), 1024);
    expect_alive();
    EXPECT_EQ(user(0).deregister(), 0u);
}

TEST_F(AmongManyDescriptors, a_receiver_without_memory_for_its_set_breaks_the_link) {
    const intptr_t fd = 1300;
    ASSERT_EQ(dup2(0, static_cast<int>(fd)), fd);
    calls::fail(Call::Malloc);
    pthread_t thread{};  // which detaches itself
    ASSERT_EQ(pthread_create(&thread, nullptr, NetCMClientThread, reinterpret_cast<void*>(fd)), 0);
    EXPECT_TRUE(trace::wait_for("Quorvel connection got reset, close the thread \n"));
    EXPECT_TRUE(calls::has_failed(Call::Malloc));
    EXPECT_TRUE(trace::traced(4, "PANIC!!! Memory not allocated\n", kUnit));
    close(static_cast<int>(fd));
}

}  // namespace
}  // namespace quorvel::test
