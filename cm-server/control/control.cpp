#include "control/control.h"

#include <event2/buffer.h>
#include <unistd.h>

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
    Session(Control& control, evutil_socket_t fd) : control_(control), socket_(buffered(control.base_, fd)) {
        bufferevent_setcb(
            socket_.get(),
            [](bufferevent*, void* self) {
                auto& session = *static_cast<Session*>(self);
                if (!guarded("an operator's command", [&] { session.read(); }))
                    session.end();
            },
            nullptr, [](bufferevent*, short, void* self) { static_cast<Session*>(self)->end(); }, this);
        bufferevent_enable(socket_.get(), EV_READ | EV_WRITE);
    }

  private:
    void read() {
        evbuffer* input = bufferevent_get_input(socket_.get());
        size_t size = 0;
        while (char* line = evbuffer_readln(input, &size, EVBUFFER_EOL_LF)) {
            const std::unique_ptr<char, Freed<free>> owned(line);
            write(answer({line, size}));
        }
        if (evbuffer_get_length(input) > kLongestCommand)
            end();
    }

    void write(const nlohmann::json& line) {
        const std::string out = to_line(line) + "\n";
        bufferevent_write(socket_.get(), out.data(), out.size());
    }

    // A watcher that does not keep up loses what it cannot take; the server does not wait for it.
    void watch(const std::string& lines) {
        if (evbuffer_get_length(bufferevent_get_output(socket_.get())) < kLongestCommand)
            bufferevent_write(socket_.get(), lines.data(), lines.size());
    }

    nlohmann::json answer(const std::string& line) {
        try {
            const nlohmann::json command = nlohmann::json::parse(line);
            if (command.at("command") == "monitor") {
                control_.tap_.attach(this, [this](const std::string& lines) { watch(lines); });
                log::info("an operator watches");
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
};

Control::Control(event_base* base, const std::string& path, Tap& tap, Execute execute)
    : base_(base),
      tap_(tap),
      execute_(std::move(execute)),
      sessions_(base),
      socket_(base, path, kOwnerOnly, [this](evutil_socket_t fd) { accept(fd); }) {}

Control::~Control() = default;

void Control::accept(evutil_socket_t fd) {
    const Peer peer = peer_of(fd);
    if (!may_control(peer)) {
        log::warning(describe(peer), " may not control this server");
        evutil_closesocket(fd);
        return;
    }
    sessions_.add(std::make_unique<Session>(*this, fd));
}

}  // namespace quorvel::cm
