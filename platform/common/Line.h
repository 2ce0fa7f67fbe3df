// What two of the stand-ins need: a line with a time stamp, written whole and without side effects.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace quorvel::platform {

// The stand-ins run inside other people's threads: errno stays, and a cancelled thread does not end in here.
class Unnoticed {
  public:
    Unnoticed() : errno_(errno) { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_); }
    ~Unnoticed() {
        pthread_setcancelstate(cancel_, nullptr);
        errno = errno_;
    }
    Unnoticed(const Unnoticed&) = delete;
    Unnoticed& operator=(const Unnoticed&) = delete;

  private:
    int errno_;
    int cancel_ = 0;
};

// One line of text in a buffer of its own; what does not fit is cut.
class Line {
  public:
    // Coordinated time, computed here: the C library's conversions take a lock, which the child of a fork may
    // find locked for ever.
    void append_time() {
        using namespace std::chrono;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const auto since_epoch = seconds{now.tv_sec};
        const auto days_since_epoch = floor<days>(since_epoch);
        const year_month_day date{sys_days{days_since_epoch}};
        const auto second_of_day = static_cast<int>((since_epoch - days_since_epoch).count());
        append("%04d-%02u-%02uT%02d:%02d:%02d.%06ldZ", static_cast<int>(date.year()),
               static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), second_of_day / 3600,
               second_of_day / 60 % 60, second_of_day % 60, now.tv_nsec / 1000);
    }

    __attribute__((format(printf, 2, 3))) void append(const char* format, ...) {
        va_list values;
        va_start(values, format);
        append_values(format, values);
        va_end(values);
    }

    __attribute__((format(printf, 2, 0))) void append_values(const char* format, va_list values) {
        const int wanted = vsnprintf(text_ + length_, kCapacity - length_, format, values);
        if (wanted > 0)
            length_ += static_cast<unsigned>(wanted) < kCapacity - length_ ? static_cast<unsigned>(wanted)
                                                                           : kCapacity - length_ - 1;
    }

    // Ends the line: blanks at its end are dropped, and control characters cannot break it in two.
    void finish() {
        while (length_ > 0 && (text_[length_ - 1] == ' ' || text_[length_ - 1] == '\n'))
            --length_;
        for (unsigned i = 0; i < length_; ++i)
            if (static_cast<unsigned char>(text_[i]) < ' ' || text_[i] == '\x7f')
                text_[i] = ' ';
        text_[length_++] = '\n';
    }

    const char* data() const { return text_; }
    size_t size() const { return length_; }

  private:
    // Fits the small stack of an application's thread, and PIPE_BUF: a pipe keeps the line in one piece too.
    static constexpr unsigned kCapacity = 1024;
    char text_[kCapacity + 1];
    unsigned length_ = 0;
};

// Opened for each line and never held: the application's descriptors stay as they are, a log can be rotated,
// and a program that closes all its descriptors does not redirect the lines into its next file.
inline int open_for_append(const char* path) {
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
}

// One write, so that lines of several threads and processes do not mix. No SIGPIPE comes of it: the signal
// that this write has raised for the thread is taken back, one that was pending before stays.
inline bool write_line(int fd, const Line& line) {
    sigset_t pipe_signal{}, blocked_before{}, pending{};
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &blocked_before);
    sigpending(&pending);

    const bool written =
        TEMP_FAILURE_RETRY(write(fd, line.data(), line.size())) == static_cast<ssize_t>(line.size());
    if (!written && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const timespec at_once{};
        TEMP_FAILURE_RETRY(sigtimedwait(&pipe_signal, nullptr, &at_once));
    }
    pthread_sigmask(SIG_SETMASK, &blocked_before, nullptr);
    return written;
}

inline bool append_to_file(const char* path, const Line& line) {
    const int fd = open_for_append(path);
    if (fd < 0)
        return false;
    const bool written = write_line(fd, line);
    close(fd);
    return written;
}

}  // namespace quorvel::platform
