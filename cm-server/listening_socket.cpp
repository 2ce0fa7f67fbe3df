#include "listening_socket.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "guard.h"
#include "log.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kAgain{1000};
constexpr std::chrono::milliseconds kRest{200};

std::string describe_loss(const std::string& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0)
        return "somebody has removed this server's socket";
    return std::string("somebody has replaced this server's socket by ") +
           (S_ISSOCK(found.st_mode) ? "a socket" : "something else") + " of user " +
           std::to_string(found.st_uid);
}

}  // namespace

ListeningSocket::ListeningSocket(event_base* base, const std::string& path, mode_t mode,
                                 std::function<void(AcceptedSocket)> accept)
    : base_(base),
      path_(path),
      mode_(mode),
      accept_(std::move(accept)),
      rested_(base, [this] { evconnlistener_enable(listener_.get()); }),
      again_(base, [this] { look(); }),
      watch_(base, [this] { look(); }) {
    listen();
}

void ListeningSocket::listen() {
    auto place = std::make_unique<SocketPath>(path_, mode_);
    const auto accepted = [](evconnlistener*, evutil_socket_t fd, sockaddr*, int, void* self) {
        guarded("the acceptance of a connection",
                [&] { static_cast<ListeningSocket*>(self)->accept_(AcceptedSocket(fd)); });
    };
    const auto failed = [](evconnlistener*, void* self) { static_cast<ListeningSocket*>(self)->rest(); };
    auto listener = listen_on(base_, place->release(), accepted, this);
    evconnlistener_set_error_cb(listener.get(), failed);
    place_ = std::move(place);
    listener_ = std::move(listener);
    watch();
}

void ListeningSocket::rest() {
    trouble_.warning(path_, ": nobody can be let in: ", std::strerror(errno));
    evconnlistener_disable(listener_.get());
    rested_.start(kRest);
}

void ListeningSocket::watch() {
    if (!watch_.follow(path_)) {
        log::warning(path_, ": cannot be watched, it is looked at every second instead");
        again_.start(kAgain);
    }
    // Before the watch was there nobody has looked.
    if (!place_->ours())
        again_.start(std::chrono::milliseconds(0));
}

void ListeningSocket::look() {
    if (!place_->ours())
        return take_back();
    if (!watch_.following())
        again_.start(kAgain);
}

void ListeningSocket::take_back() {
    if (obstacle_.empty())
        log::error(path_, ": ", describe_loss(path_));
    try {
        listen();
        obstacle_.clear();
        log::info("listening on ", path_, " again");
    } catch (const SocketPathError& error) {
        if (std::exchange(obstacle_, error.what()) != error.what())
            log::error("new clients are not served: ", error.what());
        again_.start(kAgain);
    }
}

}  // namespace quorvel::cm
