#include "monitor/monitor.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <utility>

#include "control/client.h"
#include "monitor/decode.h"
#include "monitor/printer.h"
#include "monitor/stage.h"
#include "record/file.h"
#include "record/options.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

constexpr int kServerGone = 3;
constexpr int kBetweenAttemptsMs = 200;
constexpr std::chrono::milliseconds kPatience{2000};

struct Choice {
    Show show;
    RecordPlan record;
    bool reconnect = false;
};

void say(const std::string& text) {
    std::fprintf(stderr, "cm-server: %s\n", text.c_str());
}

// SIGINT and SIGTERM, as a descriptor: a record has an end.
int end_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

RecordPlan complete(RecordPlan plan, uint32_t client) {
    plan.about["by"] = "monitor";
    if (client != 0)
        plan.about["client"] = client;
    return plan;
}

// Records on one thread and prints on another: who does not read what is printed holds up no record.
class Session {
  public:
    Session(const std::string& server, const Choice& choice)
        : choice_(choice),
          server_(server),
          stop_(end_signals()),
          printer_(choice.show),
          file_(choice.record.file.empty()
                    ? nullptr
                    : std::make_unique<RecordFile>(complete(choice.record, choice.show.client), true,
                                                   [](RecordFile::News news, const std::string& text) {
                                                       if (news != RecordFile::News::kNewPart)
                                                           say("the record: " + text);
                                                   })),
          recording_([this](const std::string& lines) { record(lines); }),
          printing_([this](const std::string& lines) { printer_.print(lines); }) {}
    ~Session() { close(stop_); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The exit status.
    int run() {
        auto watch = std::make_unique<ServerWatch>(server_);
        for (;;) {
            if (watch->run(stop_, [this](const std::string& lines) { take(lines); }) ==
                ServerWatch::End::kStopped)
                return finish("the monitor was asked to end", 0);
            watch.reset();
            if (!choice_.reconnect) {
                say("the server has gone");
                return finish("the server has gone", kServerGone);
            }
            tell({{"note", "server gone"}});
            say("the server has gone; waiting for it");
            if (!(watch = wait_for_server()))
                return finish("the monitor was asked to end", 0);
            say("the server is back");
        }
    }

  private:
    std::unique_ptr<ServerWatch> wait_for_server() const {
        for (;;) {
            pollfd asked{stop_, POLLIN, 0};
            if (poll(&asked, 1, kBetweenAttemptsMs) == 1)
                return nullptr;
            try {
                return std::make_unique<ServerWatch>(server_);
            } catch (const AskError&) {
                // Not yet.
            }
        }
    }

    void take(const std::string& text) {
        const auto lines = std::make_shared<const std::string>(text);
        if (file_)
            recording_.put_or_wait(lines);
        if (!file_)
            return printing_.put_or_wait(lines);
        // What cannot be shown is in the record.
        if (printing_.put(lines))
            return;
        if (!std::exchange(said_, true))
            say("nobody reads what is printed as fast as it comes; not everything is shown, all is recorded");
    }

    void tell(const json& note) {
        std::string line;
        append_line(line, make_note(note).passing());
        take(line);
    }

    void record(const std::string& lines) {
        std::istringstream text(lines);
        for (std::string line; std::getline(text, line);) {
            const json passing = json::parse(line);
            if (concerns(passing, choice_.show.client))
                file_->add(kept_of(passing).passing());
        }
        file_->flush();
    }

    int finish(const char* why, int status) {
        tell({{"note", "end"}, {"why", why}});
        recording_.finish(kPatience * 10);
        const bool printed = printing_.finish(kPatience);
        const bool lost = file_ && file_->lost_in_all() > 0;
        if (lost)
            say("the record: " + std::to_string(file_->lost_in_all()) + " entries are lost");
        file_.reset();
        status = lost && status == 0 ? 1 : status;
        // Whoever does not read what is printed is not waited for. Nor does the end flush what is printed,
        // which the other thread is at: TSan's _exit would.
        if (!printed)
            std::quick_exit(status);
        return status;
    }

    const Choice& choice_;
    const std::string& server_;
    int stop_;
    Printer printer_;
    std::unique_ptr<RecordFile> file_;
    bool said_ = false;
    Stage recording_;
    Stage printing_;
};

}  // namespace

void add_monitor(CLI::App& app, const std::string& socket) {
    CLI::App* command =
        app.add_subcommand("monitor", "Show what passes between a running server and its clients");
    command->fallthrough();
    const auto choice = std::make_shared<Choice>();
    command->add_flag("--json", choice->show.as_json, "Print a line of JSON for each");
    command->add_flag("--show-secrets", choice->show.secrets,
                      "With --json: the bytes, too, passwords and keys among them");
    add_record_options(*command, choice->record, "Keep the session in this file; *.pcapng for Wireshark");
    command->add_option("--client", choice->show.client, "Show only this client")->type_name("NUMBER");
    command->add_flag("--reconnect", choice->reconnect,
                      "Wait for the server to come back when it goes, instead of ending with status 3");
    command->footer(
        "Requests are marked -->, answers <--, events <==, and *** what is told beside them. It may come and "
        "go while the server runs.\n"
        "Secrets of profiles are masked, in the record, too, unless --record-secrets asks for them.\n"
        "It ends with status 3 when the server goes.");
    command->callback([choice, &socket] {
        if (const int status = Session(socket, *choice).run(); status != 0)
            throw CLI::RuntimeError(status);
    });
}

}  // namespace quorvel::cm
