#include "bearer/link_watch.h"

#include <utility>

#include "guard.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::milliseconds kAgain{1000};

}  // namespace

LinkWatch::LinkWatch(event_base* base, Interfaces& interfaces, std::function<void()> changed)
    : interfaces_(interfaces), changed_(std::move(changed)), again_(base, [this] { read(); }) {
    const auto readable = [](evutil_socket_t, short, void* self) {
        guarded("the work on a change of the network", [self] { static_cast<LinkWatch*>(self)->read(); });
    };
    readable_.reset(event_new(base, interfaces.fd(), EV_READ | EV_PERSIST, readable, this));
    event_add(readable_.get(), nullptr);
    // Whoever else looks takes the news in, and what follows from it comes from the loop all the same.
    interfaces.wake([this] { event_active(readable_.get(), EV_READ, 0); });
}

LinkWatch::~LinkWatch() {
    interfaces_.wake({});
}

void LinkWatch::read() {
    interfaces_.catch_up();
    const bool news = interfaces_.take_news();
    // What could not be looked at is looked at again; until then everything is as it was.
    if (interfaces_.behind())
        again_.start(kAgain);
    if (news)
        changed_();
}

}  // namespace quorvel::cm
