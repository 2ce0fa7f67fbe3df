#include "record/recorder.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <utility>

#include "guard.h"
#include "record/writer.h"

namespace quorvel::cm {
namespace {

constexpr size_t kRingSize = size_t{8} * 1024 * 1024;
// Whoever is served does not wait for the writer to be woken each time.
constexpr std::chrono::milliseconds kTogether{10};
constexpr std::chrono::milliseconds kTryAgain{100};
constexpr int kPatienceMs = 2000;

// What the writer says next; empty when it says nothing for so long, or has gone.
std::string next_news(int socket, int patience) {
    std::array<char, 1024> text;
    pollfd waiting{socket, POLLIN, 0};
    if (poll(&waiting, 1, patience) != 1)
        return {};
    const ssize_t got = recv(socket, text.data(), text.size(), MSG_DONTWAIT);
    return got <= 0 ? std::string() : std::string(text.data(), static_cast<size_t>(got));
}

}  // namespace

Recorder::Recorder(event_base* base, const RecordPlan& plan, std::function<void()> on_new_part)
    : on_new_part_(std::move(on_new_part)), ring_(kRingSize), due_(base, [this] { wake(); }) {
    start_writer(plan);
    heard_.reset(event_new(base, socket_, EV_READ | EV_PERSIST, &Recorder::told, this));
    if (!heard_ || event_add(heard_.get(), nullptr) != 0)
        throw RecordError("cannot listen to the recorder");
    log::info("records to ", plan.file, plan.secrets ? ", secrets among it" : "");
}

void Recorder::start_writer(const RecordPlan& plan) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw RecordError("cannot make a socket for the recorder");
    socket_ = ends[0];
    writer_ = fork();
    if (writer_ == 0)
        write_record(plan, ring_, ends[1]);
    close(ends[1]);
    if (writer_ < 0) {
        close(socket_);
        throw RecordError("cannot start the recorder");
    }
    constexpr int kWithoutEnd = -1;
    std::string news;
    while ((news = next_news(socket_, kWithoutEnd)) != std::string(1, kTellsReady)) {
        if (news.empty() || news[0] != kTellsTrouble) {
            close(socket_);
            throw RecordError("the recorder does not start");
        }
        // The last trouble is why it has ended, if it has.
        pollfd gone{socket_, POLLIN, 0};
        poll(&gone, 1, kWithoutEnd);
        std::array<char, 1> more;
        if (recv(socket_, more.data(), more.size(), MSG_PEEK) <= 0) {
            close(socket_);
            waitpid(writer_, nullptr, 0);
            throw RecordError(news.substr(1));
        }
        hear(news);
    }
}

Recorder::~Recorder() {
    if (socket_ < 0)
        return;
    // Those who are there have gone before.
    on_new_part_ = [] {};
    if (lost_ > 0)
        put_loss();
    heard_.reset();
    shutdown(socket_, SHUT_WR);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    for (std::string news; !(news = next_news(socket_, kPatienceMs)).empty();) {
        guarded("what the recorder tells", [&] { hear(news); });
        if (std::chrono::steady_clock::now() > end)
            break;
    }
    close(socket_);
    if (std::chrono::steady_clock::now() < end)
        waitpid(writer_, nullptr, 0);
    else
        log::warning("the record is not written to its end yet; its writer goes on with it");
}

void Recorder::take(const Passing& passing) noexcept {
    if (socket_ < 0)
        return;
    if ((lost_ == 0 || put_loss()) && ring_.put(passing)) {
        if (!due_.running())
            due_.start(kTogether);
        return;
    }
    ++lost_;
    ++lost_in_all_;
    first_lost_ = first_lost_ == 0 ? passing.number : first_lost_;
    last_lost_ = passing.number;
    if (!due_.running())
        due_.start(kTryAgain);
    falls_behind_.warning("the record cannot be written as fast as it grows; ", lost_in_all_,
                          " entries are lost so far");
}

bool Recorder::put_loss() {
    try {
        const Kept note = make_note({{"note", "lost"},
                                     {"count", lost_},
                                     {"from", first_lost_},
                                     {"to", last_lost_},
                                     {"why", "it could not be written as fast as it grew"}});
        if (!ring_.put(note.passing()))
            return false;
    } catch (const std::exception&) {
        return false;
    }
    lost_ = first_lost_ = last_lost_ = 0;
    return true;
}

void Recorder::wake() {
    if (lost_ > 0 && !put_loss())
        due_.start(kTryAgain);
    // A bell that is full rings already.
    if (socket_ >= 0)
        (void)send(socket_, "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
}

void Recorder::told(evutil_socket_t, short, void* recorder) {
    guarded("what the recorder tells", [&] { static_cast<Recorder*>(recorder)->hear(); });
}

void Recorder::hear() {
    const std::string news = next_news(socket_, 0);
    if (!news.empty())
        return hear(news);
    heard_.reset();
    close(std::exchange(socket_, -1));
    waitpid(writer_, nullptr, 0);
    log::error("the recorder has ended; nothing is recorded any more");
}

void Recorder::hear(const std::string& news) {
    if (news[0] == kTellsTrouble)
        log::error("the record: ", news.substr(1));
    else if (news[0] == kTellsGoesOn)
        log::warning("the record: ", news.substr(1));
    else if (news[0] == kTellsNewPart)
        on_new_part_();
}

}  // namespace quorvel::cm
