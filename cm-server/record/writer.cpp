#include "record/writer.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <optional>

namespace quorvel::cm {
namespace {

using nlohmann::json;

void tell(int socket, char what, const std::string& text) {
    const std::string news = what + text;
    // The server may have gone, or have no time: then nobody is told.
    (void)send(socket, news.data(), news.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

char mark_of(RecordFile::News news) {
    if (news == RecordFile::News::kNewPart)
        return kTellsNewPart;
    return news == RecordFile::News::kTrouble ? kTellsTrouble : kTellsGoesOn;
}

// Whoever asks the server to end asks its process group, too; the writer ends behind the server.
void outlive_the_server() {
    for (const int signal : {SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2, SIGXFSZ})
        std::signal(signal, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_NAME, "cm-recorder");
}

// Everything that belongs to the server: its sockets would stay open with it gone.
void keep_only(int socket) {
    if (socket > 3)
        close_range(3, static_cast<unsigned>(socket) - 1, 0);
    close_range(static_cast<unsigned>(socket) + 1, ~0U, 0);
}

bool is_end(const Kept& kept) {
    constexpr std::string_view kEnd = R"("note":"end")";
    const std::string_view text(reinterpret_cast<const char*>(kept.bytes.data()), kept.bytes.size());
    return kept.kind == PassingKind::kNote && text.find(kEnd) != std::string_view::npos;
}

class Writer {
  public:
    Writer(const RecordPlan& plan, Ring& ring, int socket)
        : ring_(ring), file_(plan, false, [socket](RecordFile::News news, const std::string& text) {
              tell(socket, mark_of(news), text);
          }) {}

    void drain() {
        while (ring_.take(kept_)) {
            file_.add(kept_.passing());
            ended_ = is_end(kept_);
        }
        file_.flush();
    }
    void finish() {
        drain();
        if (!ended_)
            file_.add(make_note({{"note", "end"}, {"why", "the server has died"}}).passing());
        file_.flush();
    }

  private:
    Ring& ring_;
    RecordFile file_;
    Kept kept_;
    bool ended_ = false;
};

}  // namespace

void write_record(const RecordPlan& plan, Ring& ring, int socket) {
    outlive_the_server();
    keep_only(socket);
    try {
        Writer writer(plan, ring, socket);
        tell(socket, kTellsReady, "");
        std::array<char, 64> bell;
        while (recv(socket, bell.data(), bell.size(), 0) > 0)
            writer.drain();
        writer.finish();
    } catch (const std::exception& error) {
        tell(socket, kTellsTrouble, error.what());
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

}  // namespace quorvel::cm
