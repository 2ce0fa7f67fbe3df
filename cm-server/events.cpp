#include "events.h"

#include <stdexcept>
#include <string>

namespace quorvel::cm {
namespace {

template <class T>
T* checked(T* object, const char* what) {
    if (object == nullptr)
        throw std::runtime_error(std::string("cannot create ") + what);
    return object;
}

}  // namespace

EventBase make_event_base() {
    return EventBase(checked(event_base_new(), "the event loop"));
}

Listener listen_on(event_base* base, evutil_socket_t fd, evconnlistener_cb accepted, void* context) {
    constexpr unsigned kFlags = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    // A backlog of 0 says that the socket listens already.
    return Listener(checked(evconnlistener_new(base, accepted, context, kFlags, 0, fd), "a listener"));
}

Timer::Timer(event_base* base, std::function<void()> action)
    : action_(std::move(action)), event_(checked(evtimer_new(base, &Timer::fired, this), "a timer")) {}

void Timer::start(std::chrono::milliseconds delay) {
    timeval time{};
    time.tv_sec = static_cast<time_t>(delay.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(delay.count() % 1000 * 1000);
    evtimer_add(event_.get(), &time);
}

void Timer::stop() {
    evtimer_del(event_.get());
}

bool Timer::running() const {
    return evtimer_pending(event_.get(), nullptr) != 0;
}

void Timer::fired(evutil_socket_t, short, void* timer) {
    static_cast<Timer*>(timer)->action_();
}

SignalWatch::SignalWatch(event_base* base, int signal, std::function<void()> action)
    : action_(std::move(action)),
      event_(checked(evsignal_new(base, signal, &SignalWatch::fired, this), "a signal watch")) {
    evsignal_add(event_.get(), nullptr);
}

void SignalWatch::fired(evutil_socket_t, short, void* watch) {
    static_cast<SignalWatch*>(watch)->action_();
}

}  // namespace quorvel::cm
