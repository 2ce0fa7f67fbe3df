// A process that forks: the child is as never registered, and the parent notices nothing.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "Child.h"
#include "Everything.h"
#include "library/calls/CallTest.h"
#include "quorvel/NetDNS.h"
#include "support/Emulator.h"
#include "support/Proc.h"

namespace quorvel::test {
namespace {

constexpr uint32_t kStatus = wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ;
constexpr int kChildsUser = 9;

uint32_t ask() {
    uint32_t status = 0;
    return NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
}

// In the child.
void register_ask_and_leave(const InChild& child) {
    child.equal("registration", NetCMClientRegister(events::callback_of(kChildsUser)), NETCM_SUCCESS);
    child.equal("status", ask(), NETCM_SUCCESS);
    child.equal("deregistration", NetCMClientDeRegister(), NETCM_SUCCESS);
}

// What descriptors of this process refer to.
std::set<std::string> targets_of(const std::vector<int>& descriptors) {
    const Descriptors all = open_descriptors();
    std::set<std::string> targets;
    for (const int fd : descriptors)
        targets.insert(all.at(fd));
    return targets;
}

class Fork : public CallTest {
  protected:
    std::vector<int> descriptors_of_the_library() {
        return with_table([](const NetCMClientAppInfo& table) {
            return std::vector<int>{table.SyncSockFd, table.AsyncSockFd, pipe_fds[0], pipe_fds[1]};
        });
    }
    // The parent's link is as before, and its events get through.
    void expect_parent_untouched(User& who) {
        EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
        const size_t before = events::of(who.number()).size();
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        EXPECT_TRUE(events::wait_for_user(who.number(), before + 1));
        EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 1u);
    }
};

// With a registration of the child: a receiver is started there.
class ForkWithThreads : public Fork {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer ends a child of a process with threads that starts one";
#endif
    }
};

TEST_F(Fork, leaves_the_child_as_never_registered) {
    const Results unregistered = results_of_everything();
    for (const auto& [name, result] : unregistered)
        EXPECT_TRUE(result == NETCM_ERR_NOT_REGISTERED || result == 0) << name << ": " << result;
    User& who = registered(0);
    bring_up(who, 7);
    const auto look = [&](const InChild& child) {
        const Results found = results_of_everything();
        for (size_t i = 0; i < found.size(); ++i)
            child.equal(found[i].first, found[i].second, unregistered[i].second);
    };
    EXPECT_EQ(Child(look).findings(), "");
    EXPECT_EQ(who.run([&] { return Child(look).findings(); }), "") << "of the registered thread itself";
    expect_parent_untouched(who);
    EXPECT_EQ(who.close(7), NETCM_SUCCESS);
}

TEST_F(Fork, leaves_no_descriptor_of_the_library_open_in_the_child) {
    User& who = registered(0);
    const std::set<std::string> targets = targets_of(descriptors_of_the_library());
    ASSERT_EQ(targets.size(), 3u) << "both ends of the pipe are one";
    Child child([&](const InChild& in_child) {
        for (const auto& [fd, target] : open_descriptors())
            in_child.check(targets.count(target) == 0, std::to_string(fd) + " -> " + target + " closed");
        in_child.equal("pipe", pipe_fds[0], -1);
        in_child.equal("sync socket", g_NetCMClientAppInfo.SyncSockFd, -1);
        in_child.equal("async socket", g_NetCMClientAppInfo.AsyncSockFd, -1);
        in_child.check(g_NetCMClientAppInfo.RecvThreadId == kNoReceiver, "no receiver");
    });
    EXPECT_EQ(child.findings(), "");
    expect_parent_untouched(who);
}

// The child is none of the server's business.
TEST_F(Fork, lets_the_server_see_the_parent_leave_while_the_child_lives) {
    const size_t before = open_descriptors().size();
    User& who = registered(0);
    Child child([](const InChild& in_child) { in_child.meet(); });
    ASSERT_TRUE(child.has_come());
    EXPECT_EQ(who.deregister(), NETCM_SUCCESS);
    EXPECT_TRUE(eventually([&] { return !server.wait_for_async_socket(std::chrono::milliseconds(0)); }));
    // The server has closed its ends: those of the child's meeting are all that is left.
    EXPECT_TRUE(eventually([&] { return open_descriptors().size() == before + 2; }));
    child.let_it_go_on();
    EXPECT_EQ(child.findings(), "");
}

TEST_F(Fork, while_another_thread_is_in_a_request_leaves_nothing_locked) {
    User& who = registered(0);
    const auto gate = std::make_shared<Gate>();
    server.once(kStatus, Answer().wait_at(gate).record(answer_record(kStatus)));
    trace::clear();
    who.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(gate->is_somebody_waiting());
    ASSERT_TRUE(eventually([&] { return sleeps(who.tid()); }));
    Child child([](const InChild& in_child) {
        for (const auto& [name, result] : results_of_everything())
            in_child.check(result == NETCM_ERR_NOT_REGISTERED || result == 0, name);
    });
    EXPECT_EQ(child.findings(), "");
    EXPECT_FALSE(who.thread().done());
    gate->open();
    who.thread().wait();
    expect_parent_untouched(who);
}

TEST_F(ForkWithThreads, gives_the_child_a_registration_of_its_own) {
    User& who = registered(0);
    bring_up(who, 7);
    events::clear();
    const std::set<std::string> parents = targets_of(descriptors_of_the_library());
    Child child([&](const InChild& in_child) {
        in_child.equal("registration", NetCMClientRegister(events::callback_of(kChildsUser)), NETCM_SUCCESS);
        const std::vector<int> own = {g_NetCMClientAppInfo.SyncSockFd, g_NetCMClientAppInfo.AsyncSockFd,
                                      pipe_fds[0], pipe_fds[1]};
        for (const std::string& target : targets_of(own))
            in_child.check(parents.count(target) == 0, target + " the child's own");
        // An emulator has threads of its own.
        if (!is_emulated())
            in_child.equal("threads", threads().size(), 2u);
        const int32_t profile = 8;
        in_child.equal("open", NetCMConnectionOpen(&profile, 1), NETCM_SUCCESS);
        in_child.meet();
        in_child.check(events::wait_for_user(kChildsUser, 1), "the open response");
        in_child.equal("close", NetCMConnectionClose(8), NETCM_SUCCESS);
        in_child.check(events::wait_for_user(kChildsUser, 2), "the close response");
        in_child.equal("response", events::all().at(1).type, NETCM_EVENT_CLOSE_RSP);
        in_child.equal("deregistration", NetCMClientDeRegister(), NETCM_SUCCESS);
        in_child.equal("registration", NetCMClientRegister(events::callback_of(kChildsUser)), NETCM_SUCCESS);
        in_child.equal("deregistration", NetCMClientDeRegister(), NETCM_SUCCESS);
    });
    ASSERT_TRUE(child.has_come());
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
    ASSERT_TRUE(server.push(start_response(1, 8), connection_block()));
    child.let_it_go_on();
    EXPECT_EQ(child.findings(), "");
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
    EXPECT_EQ(events::count(), 0u) << "in the parent";
    EXPECT_EQ(server.count(wire::NETCM_CLIENT_REGISTER_REQ), 3u);
    NetCMConnInfo info{};
    EXPECT_EQ(who.run([&] { return NetCMDeviceGetInfo(7, &info); }), NETCM_SUCCESS) << "its call is up";
}

TEST_F(ForkWithThreads, while_another_thread_is_in_a_request_lets_the_child_register) {
    User& who = registered(0);
    const auto gate = std::make_shared<Gate>();
    server.once(kStatus, Answer().wait_at(gate).record(answer_record(kStatus)));
    who.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(gate->is_somebody_waiting());
    ASSERT_TRUE(eventually([&] { return sleeps(who.tid()); }));
    Child child([](const InChild& in_child) {
        in_child.equal("status", ask(), NETCM_ERR_NOT_REGISTERED);
        in_child.meet();
        register_ask_and_leave(in_child);
    });
    ASSERT_TRUE(child.has_come());
    EXPECT_FALSE(who.thread().done());
    gate->open();
    who.thread().wait();
    child.let_it_go_on();
    EXPECT_EQ(child.findings(), "");
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
}

// One thread has the mutex, another stands behind it, and the receiver has a record in hand.
TEST_F(ForkWithThreads, while_threads_wait_for_the_mutex_lets_the_child_register) {
    User& holder = registered(0);
    User& waiting = registered(1);
    const int32_t receiver = receiver_tid();
    trace::clear();
    events::clear();
    holder.run([] { pthread_mutex_lock(&NetCMAppMutex); });
    waiting.thread().start([] { EXPECT_EQ(ask(), NETCM_SUCCESS); });
    ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
    for (const int32_t tid : {waiting.tid(), receiver})
        ASSERT_TRUE(trace::wait_for(trace::text("Thread [%d] trying to lock the Mutex \n", tid)) &&
                    eventually([=] { return sleeps(tid); }));
    Child child([](const InChild& in_child) {
        register_ask_and_leave(in_child);
        in_child.equal("events", events::count(), 0u);
    });
    EXPECT_EQ(child.findings(), "");
    EXPECT_EQ(events::count(), 0u);
    holder.run([] { pthread_mutex_unlock(&NetCMAppMutex); });
    waiting.thread().wait();
    EXPECT_TRUE(events::wait_for(2)) << "the record that was in hand";
    EXPECT_EQ(holder.run(ask), NETCM_SUCCESS);
}

TEST_F(ForkWithThreads, inside_a_callback_is_a_fork_like_any_other) {
    User& who = registered(0);
    std::string findings = "not asked";
    {
        const auto forking = events::during([&](const Event& event) {
            if (event.user != who.number())
                return;
            Child child([](const InChild& in_child) {
                in_child.equal("status", ask(), NETCM_ERR_NOT_REGISTERED);
                register_ask_and_leave(in_child);
            });
            findings = child.findings();
        });
        ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
        ASSERT_TRUE(events::wait_for(1));
        EXPECT_EQ(who.run(ask), NETCM_SUCCESS) << "behind the callback";
    }
    EXPECT_EQ(findings, "");
}

// Twice: what was closed and freed once is not the library's any more.
TEST_F(ForkWithThreads, of_a_child_that_has_registered_gives_a_child_like_any_other) {
    registered(0);
    Child child([](const InChild& in_child) {
        in_child.equal("registration", NetCMClientRegister(events::callback_of(kChildsUser)), NETCM_SUCCESS);
        Child grandchild([](const InChild& in_grandchild) {
            in_grandchild.equal("status", ask(), NETCM_ERR_NOT_REGISTERED);
            register_ask_and_leave(in_grandchild);
        });
        in_child.equal("findings", grandchild.findings(), std::string());
        in_child.equal("status", ask(), NETCM_SUCCESS);
        in_child.equal("deregistration", NetCMClientDeRegister(), NETCM_SUCCESS);
    });
    EXPECT_EQ(child.findings(), "");
    EXPECT_EQ(user(0).run(ask), NETCM_SUCCESS);
}

TEST_F(ForkWithThreads, inside_the_end_of_the_server_is_a_fork_like_any_other) {
    User& who = registered(0);
    bring_up(who, 7);
    events::clear();
    trace::clear();
    std::string findings = "not asked";
    {
        const auto forking = events::during([&](const Event& event) {
            if (event.user != who.number())
                return;
            Child child([](const InChild& in_child) {
                in_child.equal("status", ask(), NETCM_ERR_NOT_REGISTERED);
                in_child.equal("deregistration", NetCMClientDeRegister(), NETCM_ERR_NOT_REGISTERED);
            });
            findings = child.findings();
        });
        server.stop();
        ASSERT_TRUE(wait_until_link_is_broken());
    }
    EXPECT_EQ(findings, "");
    EXPECT_EQ(told(), (std::vector<Told>{{0, NETCM_EVENT_STOP_IND, 7, kServerGone}}));
    server.start();
    EXPECT_EQ(who.run(ask), NETCM_SUCCESS);
}

// Of the library's own thread nothing goes on there but the way back.
TEST_F(ForkWithThreads, inside_a_callback_may_return_from_it_in_the_child) {
    User& who = registered(0);
    bring_up(who, 7);
    User& other = registered(1);
    const auto returns_in_child = [&](const std::function<void()>& callback_comes) {
        int status = -1;
        const auto forking = events::during([&](const Event& event) {
            if (event.type == NETCM_EVENT_NETWORK_STATUS_IND && event.user != other.number())
                return;
            const ReturningChild child;
            if (!child.is_here())
                status = child.status();
        });
        callback_comes();
        return status;
    };
    const auto expect_sound = [&](const char* where, int status) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << where << ": " << status;
        EXPECT_EQ(who.run(ask), NETCM_SUCCESS) << where;
    };
    events::clear();
    expect_sound("on the receiver", returns_in_child([&] {
                     ASSERT_TRUE(server.push(indication(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, 0)));
                     ASSERT_TRUE(events::wait_for(2));
                     ASSERT_TRUE(settled());
                 }));
    trace::clear();
    expect_sound("on a thread that answers", returns_in_child([&] {
                     EXPECT_EQ(other.open(7), NETCM_SUCCESS);
                     ASSERT_TRUE(trace::wait_for("ThreadPostStartEvent.. Close the thread \n"));
                 }));
    trace::clear();
    expect_sound("at the end of the server", returns_in_child([&] {
                     server.stop();
                     ASSERT_TRUE(wait_until_link_is_broken());
                     server.start();
                 }));
}

// Nobody waits for the name there.
TEST_F(Fork, inside_the_callback_of_a_name_may_return_from_it_in_the_child) {
    static std::atomic<int> status;
    status = -1;
    const auto fork_and_return = [](hostent*, unsigned) {
        const ReturningChild child;
        if (!child.is_here())
            status = child.status();
    };
    unsigned id = 0;
    EXPECT_EQ(NetDNSGetHostByNameAsync(7, "localhost", fork_and_return, &id), 1);
    EXPECT_TRUE(eventually([] { return status != -1; }));
    EXPECT_EQ(status, 0);
}

// Descriptors are copied before memory is: by then a number that was the library's may be somebody else's.
TEST_F(Fork, leaves_open_what_has_taken_the_place_of_a_descriptor_of_the_library) {
    User& who = registered(0);
    // Whoever already waits at a descriptor does not notice what takes its place for a while.
    ASSERT_TRUE(trace::wait_for_prefix("clientsocket = "));
    ASSERT_TRUE(eventually([receiver = receiver_tid()] { return sleeps(receiver); }));
    const std::vector<int> ours = descriptors_of_the_library();
    const int others[] = {socket(AF_UNIX, SOCK_DGRAM, 0), socket(AF_INET, SOCK_STREAM, 0),
                          open("/dev/null", O_RDONLY), open("/dev/null", O_WRONLY)};
    std::vector<int> kept;
    for (size_t i = 0; i < ours.size(); ++i) {
        kept.push_back(dup(ours[i]));
        ASSERT_EQ(dup2(others[i], ours[i]), ours[i]);
    }
    Child child([&](const InChild& in_child) {
        for (const int fd : ours)
            in_child.check(fcntl(fd, F_GETFD) >= 0, std::to_string(fd) + " open");
    });
    EXPECT_EQ(child.findings(), "");
    for (size_t i = 0; i < ours.size(); ++i) {
        EXPECT_EQ(dup3(kept[i], ours[i], O_CLOEXEC), ours[i]);
        close(kept[i]);
        close(others[i]);
    }
    expect_parent_untouched(who);
}

}  // namespace
}  // namespace quorvel::test
