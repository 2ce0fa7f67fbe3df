#include "events.h"

#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include "guard.h"
#include "log.h"

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
    event_set_log_callback([](int severity, const char* text) {
        if (severity >= EVENT_LOG_WARN)
            log::warning("the event loop: ", text);
    });
    // Whoever has a loop writes to sockets, and the other end may have gone.
    std::signal(SIGPIPE, SIG_IGN);
    return EventBase(checked(event_base_new(), "the event loop"));
}

Listener listen_on(event_base* base, evutil_socket_t fd, evconnlistener_cb accepted, void* context) {
    constexpr unsigned kFlags = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    // A backlog of 0 says that the socket listens already.
    return Listener(checked(evconnlistener_new(base, accepted, context, kFlags, 0, fd), "a listener"));
}

BufferEvent buffered(event_base* base, AcceptedSocket socket) {
    BufferEvent result(checked(bufferevent_socket_new(base, socket.get(), BEV_OPT_CLOSE_ON_FREE),
                               "what reads and writes a socket"));
    socket.release();
    return result;
}

// The loop keeps the room that its timers have once had.
void reserve_timers(event_base* base, size_t count) {
    const timeval later = {.tv_sec = 3600, .tv_usec = 0};
    std::vector<Event> timers(count);
    for (Event& timer : timers) {
        timer.reset(checked(evtimer_new(
                                base, [](evutil_socket_t, short, void*) {}, nullptr),
                            "a timer"));
        if (evtimer_add(timer.get(), &later) != 0)
            throw std::bad_alloc();
    }
}

Timer::Timer(event_base* base, std::function<void()> action)
    : action_(std::move(action)), event_(checked(evtimer_new(base, &Timer::fired, this), "a timer")) {}

void Timer::start(std::chrono::milliseconds delay) {
    timeval time{};
    time.tv_sec = static_cast<time_t>(delay.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(delay.count() % 1000 * 1000);
    if (evtimer_add(event_.get(), &time) != 0)
        report_failure("the start of a timer", "out of memory");
}

void Timer::stop() {
    evtimer_del(event_.get());
}

bool Timer::running() const {
    return evtimer_pending(event_.get(), nullptr) != 0;
}

void Timer::fired(evutil_socket_t, short, void* timer) {
    guarded("what was due", static_cast<Timer*>(timer)->action_);
}

// Read from a descriptor, and not caught by a handler: one that comes right before the loop waits is not
// lost. The descriptor stays to the end of the process, and so does the signal's being blocked.
SignalWatch::SignalWatch(event_base* base, int signal, std::function<void()> action)
    : action_(std::move(action)) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int fd = signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    event_.reset(
        checked(fd < 0 ? nullptr : event_new(base, fd, EV_READ | EV_PERSIST, &SignalWatch::fired, this),
                "a signal watch"));
    event_add(event_.get(), nullptr);
}

void SignalWatch::fired(evutil_socket_t fd, short, void* watch) {
    signalfd_siginfo told{};
    if (read(fd, &told, sizeof(told)) == sizeof(told))
        guarded("what a signal asks for", static_cast<SignalWatch*>(watch)->action_);
}

void ignore_other_signals() {
    for (const int signal :
         {SIGUSR1, SIGUSR2, SIGALRM, SIGVTALRM, SIGPROF, SIGIO, SIGPWR, SIGSTKFLT, SIGXFSZ})
        std::signal(signal, SIG_IGN);
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal)
        std::signal(signal, SIG_IGN);
}

EndSignals::EndSignals(event_base* base, const std::function<void(const char* signal)>& action)
    : terminate_(base, SIGTERM, [action] { action("SIGTERM"); }),
      interrupt_(base, SIGINT, [action] { action("SIGINT"); }),
      quit_(base, SIGQUIT, [action] { action("SIGQUIT"); }) {}

FileWatch::FileWatch(event_base* base, std::function<void()> action)
    : action_(std::move(action)), fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0)
        return;
    event_.reset(
        checked(event_new(base, fd_, EV_READ | EV_PERSIST, &FileWatch::changed, this), "a file watch"));
    event_add(event_.get(), nullptr);
}

FileWatch::~FileWatch() {
    event_.reset();
    if (fd_ >= 0)
        close(fd_);
}

bool FileWatch::follow(const std::string& path) {
    if (watch_ >= 0)
        inotify_rm_watch(fd_, watch_);
    // A link to the file that goes changes its attributes.
    constexpr uint32_t kEvents = IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF | IN_DONT_FOLLOW;
    watch_ = fd_ < 0 ? -1 : inotify_add_watch(fd_, path.c_str(), kEvents);
    return following();
}

void FileWatch::changed(evutil_socket_t fd, short, void* watch) {
    std::array<char, 4096> told;
    while (read(fd, told.data(), told.size()) > 0) {
    }
    guarded("the look at a watched file", static_cast<FileWatch*>(watch)->action_);
}

}  // namespace quorvel::cm
