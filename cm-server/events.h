// libevent's objects, owned.
#pragma once

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#include <event2/util.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace quorvel::cm {

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

using EventBase = std::unique_ptr<event_base, Freed<event_base_free>>;
using Event = std::unique_ptr<::event, Freed<event_free>>;
using BufferEvent = std::unique_ptr<bufferevent, Freed<bufferevent_free>>;
using Listener = std::unique_ptr<evconnlistener, Freed<evconnlistener_free>>;

EventBase make_event_base();

// Takes the descriptor over, and calls `accepted` for each connection. Connections are close-on-exec.
Listener listen_on(event_base* base, evutil_socket_t fd, evconnlistener_cb accepted, void* context);

// A socket that is closed unless somebody takes it over.
class AcceptedSocket {
  public:
    explicit AcceptedSocket(evutil_socket_t fd) noexcept : fd_(fd) {}
    AcceptedSocket(AcceptedSocket&& other) noexcept : fd_(other.release()) {}
    AcceptedSocket& operator=(AcceptedSocket&&) = delete;
    ~AcceptedSocket() {
        if (fd_ >= 0)
            evutil_closesocket(fd_);
    }

    evutil_socket_t get() const { return fd_; }
    evutil_socket_t release() noexcept { return std::exchange(fd_, -1); }

  private:
    evutil_socket_t fd_;
};

// Reads and writes a socket, which belongs to it.
BufferEvent buffered(event_base* base, AcceptedSocket socket);

// Makes room for so many timers that run at a time: to start one takes no memory then, and does not fail.
void reserve_timers(event_base* base, size_t count);

// Runs an action once, a while after it was started. Never runs it from within start().
class Timer {
  public:
    Timer(event_base* base, std::function<void()> action);
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    // Starts, or starts over.
    void start(std::chrono::milliseconds delay);
    void stop();
    bool running() const;

  private:
    static void fired(evutil_socket_t, short, void* timer);
    std::function<void()> action_;
    Event event_;
};

// Runs an action whenever a signal arrives.
class SignalWatch {
  public:
    SignalWatch(event_base* base, int signal, std::function<void()> action);
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

  private:
    static void fired(evutil_socket_t, short, void* watch);
    std::function<void()> action_;
    Event event_;
};

// What would end the process unasked, and is none of its business: SIGUSR1 and the like.
void ignore_other_signals();

// Runs an action, which is told the signal's name, when the process is asked to end.
class EndSignals {
  public:
    EndSignals(event_base* base, const std::function<void(const char* signal)>& action);

  private:
    SignalWatch terminate_;
    SignalWatch interrupt_;
    SignalWatch quit_;
};

// Runs an action whenever the file behind a path may not be that file any more.
class FileWatch {
  public:
    FileWatch(event_base* base, std::function<void()> action);
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    // Follows the file that is there now instead of the one before. False when the kernel does not let us.
    bool follow(const std::string& path);
    bool following() const { return watch_ >= 0; }

  private:
    static void changed(evutil_socket_t, short, void* watch);
    std::function<void()> action_;
    int fd_;
    int watch_ = -1;
    Event event_;
};

}  // namespace quorvel::cm
