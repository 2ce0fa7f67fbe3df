// What a scripted server does about one request: steps, taken in order.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <type_traits>
#include <variant>
#include <vector>

#include "common/Wire.h"

namespace quorvel::test {

using Bytes = std::vector<std::byte>;

template <class T>
Bytes bytes_of(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

struct Request {
    wire::RequestHeader header;
    Bytes payload;   // what follows the header, for the commands that carry something
    int connection;  // numbered from 1 in the order in which they were accepted
    bool is_async;   // arrived on an async socket (the registration of that socket is the only one that does)

    uint32_t command() const { return header.Command; }
    template <class T>
    T payload_as(size_t offset = 0) const {
        T value{};
        if (offset + sizeof value <= payload.size())
            std::memcpy(&value, payload.data() + offset, sizeof value);
        return value;
    }
};

// A place where the server waits until the test lets it go on.
class Gate {
  public:
    // The server's side. Also returns when the server is stopped.
    void pass();
    bool is_somebody_waiting(std::chrono::milliseconds patience = std::chrono::seconds(20));
    void open();

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    bool waiting_ = false;
};

struct Send {
    Bytes bytes;
};
struct Push {
    Bytes bytes;
};
struct Delay {
    std::chrono::milliseconds time;
};
struct WaitAt {
    std::shared_ptr<Gate> gate;
};
struct CloseConnection {};
struct CloseAsync {};
using Step = std::variant<Send, Push, Delay, WaitAt, CloseConnection, CloseAsync>;

// Built by chaining: Answer().record(...).block(...).close(). An empty one is silence.
class Answer {
  public:
    Answer& bytes(Bytes some);
    Answer& record(const wire::Record& record) { return bytes(bytes_of(record)); }
    template <class T>
    Answer& block(const T& value) {
        return bytes(bytes_of(value));
    }
    // In pieces of this size, each its own write, so that a reader gets it bit by bit.
    Answer& in_pieces(Bytes some, size_t size);
    // On the async socket.
    Answer& push(Bytes some);
    Answer& push(const wire::Record& record) { return push(bytes_of(record)); }
    Answer& after(std::chrono::milliseconds time);
    Answer& wait_at(std::shared_ptr<Gate> gate);
    // Closes the connection that the request came from.
    Answer& close();
    Answer& close_async();

    const std::vector<Step>& steps() const { return steps_; }

  private:
    std::vector<Step> steps_;
};

// The record that answers a command with a status, its other words 0.
wire::Record answer_record(uint32_t command, uint32_t status = 0);

// Answers, as they are often wanted.
Answer silence();
Answer refusal(uint32_t command, uint32_t status, uint32_t reason = 0);
Answer hang_up();
// The first bytes of the command's good answer, and then the end of the connection.
Answer cut_short(uint32_t command, size_t bytes);
// A record with another code than the one that is waited for.
Answer wrong_code(uint32_t code);
Answer garbage(size_t bytes = sizeof(wire::Record));

}  // namespace quorvel::test
