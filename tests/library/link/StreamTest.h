// Exchanges that do not end as they should, and what comes behind them.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <vector>

#include "library/calls/CallTest.h"
#include "support/Interrupts.h"
#include "support/Proc.h"

namespace quorvel::test {

inline constexpr char kTimedOut[] = "POLLing timeout  \n";

// An operation of which each answer says what was asked.
struct Operation {
    const char* name;
    uint32_t command;
    Bytes (*answer)(int32_t what);
    int32_t (*ask)(int32_t what);  // what was answered; -1 when the operation failed

    friend std::ostream& operator<<(std::ostream& out, const Operation& one) { return out << one.name; }
};
extern const Operation kSettings, kAttributes, kProfile, kList, kOpen;

inline Bytes first_bytes(const Bytes& bytes, size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}
inline Bytes bytes_behind(const Bytes& bytes, size_t count) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(count), bytes.end()};
}

// Keeps a server from doing anything, as long as it lives.
class Held {
  public:
    explicit Held(ScriptedServer& server) {
        constexpr uint32_t kCommand = 4000;
        server.once(kCommand, Answer().wait_at(gate_));
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        std::strcpy(address.sun_path, wire::kServerPath);
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        wire::RequestHeader header{};
        header.Command = kCommand;
        EXPECT_EQ(::send(fd_, &header, sizeof header, MSG_NOSIGNAL), static_cast<ssize_t>(sizeof header));
        EXPECT_TRUE(gate_->is_somebody_waiting());
    }
    ~Held() {
        gate_->open();
        close(fd_);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

  private:
    std::shared_ptr<Gate> gate_ = std::make_shared<Gate>();
    int fd_ = -1;
};

class StreamTest : public CallTest {
  protected:
    // Asks as the user; the server answers with the bytes.
    int32_t ask(User& who, const Operation& operation, int32_t what, const Bytes& answer) {
        server.once(operation.command, Answer().bytes(answer));
        return who.run([&] { return operation.ask(what); });
    }
    int32_t ask(User& who, const Operation& operation, int32_t what) {
        return ask(who, operation, what, operation.answer(what));
    }

    // Asks, and interrupts the request when the first bytes of its answer have come. What it has given. The
    // rest comes in pieces of a size when it is let come.
    int32_t ask_and_interrupt(User& who, const Operation& operation, int32_t what, size_t came,
                              size_t piece) {
        const Bytes answer = operation.answer(what);
        server.once(operation.command, Answer()
                                           .bytes(first_bytes(answer, came))
                                           .wait_at(begun_)
                                           .in_pieces(bytes_behind(answer, came), piece));
        int32_t got = 0;
        who.thread().start([&] { got = operation.ask(what); });
        EXPECT_TRUE(begun_->is_somebody_waiting());
        EXPECT_TRUE(interrupts_.end(who.thread()));
        return got;
    }
    // The server goes on with the answer.
    void let_the_rest_come() {
        begun_->open();
        begun_ = std::make_shared<Gate>();
    }

    // Waits until the thread sleeps in the library: what it was started with began behind trace::clear().
    static bool waits(User& who) {
        return trace::wait_for(trace::text("Thread [%d] trying to lock the Mutex \n", who.tid())) &&
               eventually([&] { return sleeps(who.tid()); });
    }

    size_t registrations() const { return server.count(wire::NETCM_CLIENT_REGISTER_REQ); }

    Interrupts interrupts_;

  private:
    std::shared_ptr<Gate> begun_ = std::make_shared<Gate>();
};

}  // namespace quorvel::test
