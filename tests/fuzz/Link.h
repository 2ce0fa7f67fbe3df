// A process that is registered, on a link whose other end is the fuzzer's. What the library waits for comes
// in the pieces, and with the delays, that the input says.
//
// poll, ppoll, shutdown, connect and the sleeps of the library are replaced at link time (--wrap).
#pragma once

#include <vector>

#include "Input.h"
#include "quorvel/NetCM.h"

namespace quorvel::fuzz {

class Link {
  public:
    // Which socket is the link's with the library; the other one is not used.
    enum class Side { Sync, Async };
    Link(Side side, Input& input, NetCMEventCallback callback);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    int fd() const { return ends_[0]; }
    // What the server is going to send, whenever it is waited for.
    void will_send(const void* bytes, size_t size);
    // The next piece of it, now. False when there is none.
    bool send_some(size_t most);
    void hang_up();
    // Whether the library has given the link up, or the server has.
    bool is_over() const { return over_; }
    // What the server sends when the next request has come, if it does.
    void will_answer(const void* bytes, size_t size);
    void forget_answer() { answer_.clear(); }

    // What a wait gives: as poll() does.
    int wait(int fd, short& events);
    void is_shut_down();

  private:
    bool is_readable() const;
    void take_request();

    Side side_;
    Input& input_;
    int ends_[2] = {-1, -1};
    std::vector<uint8_t> answer_;
    std::vector<uint8_t> to_send_;
    size_t sent_ = 0;
    bool over_ = false;
};

}  // namespace quorvel::fuzz
