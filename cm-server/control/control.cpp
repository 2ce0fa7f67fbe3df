#include "control/control.h"

#include <event2/buffer.h>
#include <unistd.h>

#include <utility>

#include "guard.h"
#include "log.h"
#include "monitor/decode.h"

namespace quorvel::cm {
namespace {

constexpr size_t kLongestCommand = size_t{4} * 1024 * 1024;

nlohmann::json failure(const std::string& why) {
    return {{"ok", false}, {"error", why}};
}

}  // namespace

bool may_control(const Peer& peer) {
    return peer.uid == 0 || peer.uid == geteuid();
}

class Control::Session {
  public:
    Session(Control& control, AcceptedSocket socket)
        : control_(control), socket_(buffered(control.base_, std::move(socket))) {
        bufferevent_setcb(
            socket_.get(),
            [](bufferevent*, void* self) {
                auto& session = *static_cast<Session*>(self);
                if (!guarded("an operator's command", [&] { session.read(); }))
                    session.end();
            },
            [](bufferevent*, void* self) {
                auto& session = *static_cast<Session*>(self);
                guarded("what a monitor has lost", [&] { session.tell_loss(); });
            },
            [](bufferevent*, short, void* self) { static_cast<Session*>(self)->end(); }, this);
        bufferevent_enable(socket_.get(), EV_READ | EV_WRITE);
    }

  private:
    void read() {
        evbuffer* input = bufferevent_get_input(socket_.get());
        size_t size = 0;
        while (char* line = evbuffer_readln(input, &size, EVBUFFER_EOL_LF)) {
            const std::unique_ptr<char, Freed<free>> owned(line);
            write(answer({line, size}));
            if (std::exchange(begins_to_watch_, false)) {
                control_.tap_.attach(this, [this](const Lines& lines) { watch(lines); });
                log::info("an operator watches");
            }
        }
        if (evbuffer_get_length(input) > kLongestCommand)
            end();
    }

    void write(const nlohmann::json& line) {
        const std::string out = to_line(line) + "\n";
        bufferevent_write(socket_.get(), out.data(), out.size());
    }

    // A watcher that does not keep up loses what it cannot take, which it is told where it is missing; the
    // server does not wait for it.
    void watch(const Lines& lines) {
        const size_t unread = evbuffer_get_length(bufferevent_get_output(socket_.get()));
        if (unread < (lost_.count > 0 ? kLongestCommand / 2 : kLongestCommand)) {
            tell_loss();
            bufferevent_write(socket_.get(), lines.text.data(), lines.text.size());
            put_out();
            return;
        }
        if (lost_.count == 0)
            log::warning("a monitor does not keep up; it loses what passes from number ", lines.first, " on");
        lost_.first = lost_.count == 0 ? lines.first : lost_.first;
        lost_.count += lines.count;
        lost_.last = lines.last;
    }

    // As much as the socket takes: the loop may not come round any more.
    void put_out() {
        evbuffer* output = bufferevent_get_output(socket_.get());
        evbuffer_unfreeze(output, 1);
        evbuffer_write(output, bufferevent_getfd(socket_.get()));
        evbuffer_freeze(output, 1);
    }

    void tell_loss() {
        if (lost_.count == 0)
            return;
        std::string line;
        append_line(line, make_note({{"note", "lost"},
                                     {"count", lost_.count},
                                     {"from", lost_.first},
                                     {"to", lost_.last},
                                     {"why", "the monitor has not kept up"}})
                              .passing());
        lost_ = {};
        bufferevent_write(socket_.get(), line.data(), line.size());
    }

    nlohmann::json answer(const std::string& line) {
        try {
            const nlohmann::json command = nlohmann::json::parse(line);
            if (command.at("command") == "monitor") {
                // Behind the answer.
                begins_to_watch_ = true;
                return {{"ok", true}};
            }
            nlohmann::json result = control_.execute_(command);
            result["ok"] = true;
            return result;
        } catch (const nlohmann::json::exception& error) {
            return failure(std::string("this is no command: ") + error.what());
        } catch (const std::exception& error) {
            return failure(error.what());
        }
    }

    void end() {
        control_.tap_.detach(this);
        bufferevent_disable(socket_.get(), EV_READ | EV_WRITE);
        control_.sessions_.remove(*this);
    }

    Control& control_;
    BufferEvent socket_;
    bool begins_to_watch_ = false;
    Lines lost_;  // without their text
};

Control::Control(event_base* base, const std::string& path, Tap& tap, Execute execute)
    : base_(base),
      tap_(tap),
      execute_(std::move(execute)),
      sessions_(base),
      socket_(base, path, kOwnerOnly, [this](AcceptedSocket accepted) { accept(std::move(accepted)); }) {}

Control::~Control() = default;

void Control::accept(AcceptedSocket socket) {
    const Peer peer = peer_of(socket.get());
    if (!may_control(peer))
        return log::warning(describe(peer), " may not control this server");
    sessions_.add(std::make_unique<Session>(*this, std::move(socket)));
}

}  // namespace quorvel::cm
