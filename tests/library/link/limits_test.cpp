// How long connecting and pausing take at most, and at least.
#include "LinkTest.h"
#include "support/Interrupts.h"

namespace quorvel::test {
namespace {

using std::chrono::milliseconds;

class LimitSlow : public LinkTest {
  protected:
    LimitSlow() { server.stop(); }

    // Runs on a thread that signals reach all the time. How long it took.
    template <class Body>
    milliseconds under_signals(Body body) {
        const auto before = std::chrono::steady_clock::now();
        thread_.start(body);
        while (!thread_.done(milliseconds(20)))
            Interrupts::send(thread_.tid());
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - before);
    }

    const Interrupts interrupts;

  private:
    AppThread thread_;
};

// A server that listens and accepts nobody, with a backlog that is full.
class BusyServer {
  public:
    BusyServer() {
        std::strcpy(address_.sun_path, wire::kServerPath);
        EXPECT_EQ(bind(listener_, address(), sizeof address_), 0);
        EXPECT_EQ(listen(listener_, 0), 0);
        do
            waiting_.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        while (connect(waiting_.back(), address(), sizeof address_) == 0);
        EXPECT_EQ(errno, EAGAIN);
    }
    ~BusyServer() {
        for (const int fd : waiting_)
            close(fd);
        close(listener_);
        unlink(wire::kServerPath);
    }
    BusyServer(const BusyServer&) = delete;
    BusyServer& operator=(const BusyServer&) = delete;

  private:
    const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&address_); }

    sockaddr_un address_{.sun_family = AF_UNIX, .sun_path = {}};
    int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::vector<int> waiting_;
};

TEST_F(LimitSlow, a_connect_to_a_server_whose_backlog_is_full_fails_after_10_seconds) {
    const BusyServer busy;
    const milliseconds took = under_signals([this] { EXPECT_EQ(init(), -1); });
    EXPECT_GE(took, milliseconds(9'900));
    EXPECT_LT(took, milliseconds(15'000));
    EXPECT_TRUE(trace::wait_for_prefix("[QUORVEL] error connecting to server socket."));
}

// Three attempts, a pause of a second after each.
TEST_F(LimitSlow, a_pause_of_a_second_lasts_a_second_whatever_signals_come) {
    calls::reset();
    const milliseconds took =
        under_signals([] { EXPECT_EQ(NetCMClientReRegister(), NETCM_ERR_REREGISTER_RETRY_EXHAUSTED); });
    EXPECT_GE(took, milliseconds(2'900));
    EXPECT_LT(took, milliseconds(6'000));
    EXPECT_GE(interrupts.caught(), 10u);
}

}  // namespace
}  // namespace quorvel::test
