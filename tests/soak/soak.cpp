// A server with every trouble that it can make, on a random timetable, and 32 applications that use
// everything. At the end everything that was accepted has been answered, the store is what was acknowledged,
// and nothing has grown.
//
//   soak SECONDS [SEED]
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library/dns/Responder.h"
#include "lives/Random.h"
#include "support/CmServer.h"
#include "support/Eventually.h"

namespace quorvel::soak {
namespace {

using Clock = std::chrono::steady_clock;
using lives::Random;

constexpr int kApplications = 32;
constexpr int kKillResponse = 105;  // its code
constexpr char kStore[] = "/tmp/soak.db";
constexpr char kConfig[] = R"(
dns = ["127.0.0.1"]
[[network]]
apn = "far"
bearer = "simulated"
delay = 20
lost-after = 3000
address = "192.0.2.1"
[[network]]
interface = "lo"
[[profile]]
name = "one"
apn = "shared"
[[profile]]
name = "two"
apn = "shared"
[[profile]]
name = "three"
[[profile]]
name = "four"
apn = "far"
)";

// What of a process may not grow.
struct Sample {
    long kilobytes = 0;
    long threads = 0;
    long descriptors = 0;
};

Sample sample(pid_t pid) {
    Sample taken;
    const std::string process = "/proc/" + std::to_string(pid);
    std::ifstream status(process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:"))
            taken.kilobytes = std::stol(line.substr(6));
        if (line.starts_with("Threads:"))
            taken.threads = std::stol(line.substr(8));
    }
    std::error_code gone;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(process + "/fd", gone))
        ++taken.descriptors;
    return taken;
}

// The most of each, over some time.
struct Most {
    void take(const Sample& one) {
        most.kilobytes = std::max(most.kilobytes, one.kilobytes);
        most.threads = std::max(most.threads, one.threads);
        most.descriptors = std::max(most.descriptors, one.descriptors);
    }
    Sample most;
};

class Soak {
  public:
    Soak(std::chrono::seconds length, uint64_t seed)
        : length_(length),
          random_(seed),
          responder_(test::dns::answer_with("192.0.2.7")),
          server_(make_server()) {
        for (int number = 0; number < kApplications; ++number)
            applications_.push_back(std::make_unique<test::Program>(
                std::vector<std::string>{SOAK_APPLICATION, std::to_string(number), std::to_string(seed)}));
    }

    int run() {
        const auto begin = Clock::now();
        while (Clock::now() - begin < length_) {
            make_trouble();
            std::this_thread::sleep_for(std::chrono::milliseconds(random_.between(20, 400)));
            // Everybody has settled in the first third; what is reached in the second is what it takes.
            const auto passed = Clock::now() - begin;
            is_settled_ = passed > length_ / 3;
            if (passed > length_ / 2 && !std::exchange(have_forgotten_, true))
                tell_all(SIGUSR1);
            if (is_settled_)
                take_samples(passed < length_ * 2 / 3 ? early_ : late_);
        }
        let_everybody_leave();
        compare_store();
        compare_samples();
        printf("%d troubles, %d restarts, %zu applications, %zu profiles stored\n", troubles_, restarts_,
               applications_.size(), stored_);
        return broken_ ? 1 : 0;
    }

  private:
    static std::unique_ptr<test::CmServer> make_server() {
        return std::make_unique<test::CmServer>(
            kConfig, std::vector<std::string>{"--db", kStore, "--log-level", "info", "--log-format", "text"});
    }

    void object(const std::string& what) {
        broken_ = true;
        printf("broken: %s\n", what.c_str());
    }

    // ---- Trouble

    // The operator's commands may be refused: there may be no call, or the server may be away.
    static void ctl(std::vector<std::string> words) {
        words.insert(words.begin(), {CM_SERVER_PATH, "ctl"});
        test::run(words);
    }

    std::string number(int first, int last) { return std::to_string(random_.between(first, last)); }

    void make_trouble() {
        ++troubles_;
        switch (random_.below(16)) {
            case 0:
                return ctl({"fault", "late", number(1, 300), "--times", number(1, 20)});
            case 1:
                return ctl({"fault", "code", other_code(), "--times", "1"});
            case 2:
                return ctl({"fault", "status", number(1, 130), "--times", number(1, 3)});
            case 3:
                return ctl({"fault", "count", number(0, 100), "--times", "1"});
            case 4:
                return ctl({"fault", "half", "--times", "1"});
            case 5:
                return ctl({"clear-faults"});
            case 6:
                return ctl({"suspend", number(0, 3)});
            case 7:
                return ctl({"resume", number(0, 3)});
            case 8:
                return ctl({"stop", number(0, 3), "--reason", number(0, 30)});
            case 9:
                return ctl({"ip-change", number(0, 3), "--address", "127.0.0." + number(1, 200)});
            case 10:
                return ctl({"network-status", "--wifi", number(0, 4)});
            case 11:
                return ctl({"tunnel", std::string(static_cast<size_t>(random_.between(1, 500)), 'x')});
            case 12:
                return ctl({"close", random_.one_in(2) ? "sync" : "async", "--client", number(1, 200)});
            case 13:
                return random_.one_in(4) ? ctl({"restart", "--away", number(0, 300)}) : ctl({"list"});
            case 14:
                return is_settled_ ? ctl({"list"}) : end_without_a_word();
            default:
                return server_->program().send_signal(SIGHUP);
        }
    }

    // Any but the kill response's.
    std::string other_code() {
        const int code = random_.between(1, 129);
        return std::to_string(code < kKillResponse ? code : code + 1);
    }

    // A kill response that nobody has asked for ends a connection, and none of its users is told. A while
    // after the last they are told so.
    void end_without_a_word() { random_.one_in(2) ? kill_server() : ctl({"kill-response", number(0, 3)}); }

    // Without a warning, as a crash would.
    void kill_server() {
        ++restarts_;
        server_->program().send_signal(SIGKILL);
        server_->program().wait();
        server_ = make_server();
    }

    // ---- Growth

    struct Samples {
        Most applications;
        Most server;
    };

    void take_samples(Samples& samples) {
        for (const auto& application : applications_)
            samples.applications.take(sample(application->pid()));
        samples.server.take(sample(server_->program().pid()));
    }

    void compare(const char* who, const Sample& early, const Sample& late, long most_threads) {
        printf("%s: memory %ld kB, then %ld kB; threads %ld, then %ld; descriptors %ld, then %ld\n", who,
               early.kilobytes, late.kilobytes, early.threads, late.threads, early.descriptors,
               late.descriptors);
        // The heap of a process settles; a leak of a block for each of the thousands of requests would not.
        constexpr long kSettling = 2048;
        if (late.kilobytes > early.kilobytes + kSettling)
            object(std::string(who) + ": the memory grows");
        if (late.threads > most_threads)
            object(std::string(who) + ": the threads grow");
    }

    void compare_samples() {
        // Four of the application, the receiver, ten that look up, and answers of the library's own.
        compare("applications", early_.applications.most, late_.applications.most, 40);
        compare("server", early_.server.most, late_.server.most, 2);
    }

    // ---- The end

    void let_everybody_leave() {
        ctl({"clear-faults"});
        tell_all(SIGTERM);
        // Ends every wait for the rest of an answer, a minute of it otherwise. What waited behind it may
        // still be opened, at the new server.
        start_server_anew();
        for (const auto& application : applications_)
            application->wait_for_out("quiet\n");
        // Ends every connection: whoever was never told because of a fault is told that.
        start_server_anew();
        tell_all(SIGTERM);
        for (const auto& application : applications_) {
            const test::Ended ended = application->wait();
            if (ended.status != 0)
                object("an application has ended with " + std::to_string(ended.status) + ": " + ended.err);
            std::istringstream lines(ended.out);
            for (std::string line; std::getline(lines, line);) {
                const size_t space = line.find(' ');
                if (line.starts_with("broken"))
                    object(line);
                else if (line != "quiet")
                    fates_[line.substr(space + 1)] = line.substr(0, space);
            }
        }
        if (!test::eventually(
                [&] { return sample(server_->program().pid()).descriptors <= kIdleDescriptors; }))
            object("the server keeps descriptors: " +
                   std::to_string(sample(server_->program().pid()).descriptors));
        const test::Ended ended = server_->stop();
        if (ended.status != 0)
            object("the server ends with " + std::to_string(ended.status));
    }

    void tell_all(int signal) {
        for (const auto& application : applications_)
            application->send_signal(signal);
    }

    void start_server_anew() {
        server_->stop();
        server_ = make_server();
    }

    static int note_name(void* names, int, char** columns, char**) {
        static_cast<std::set<std::string>*>(names)->insert(columns[0]);
        return 0;
    }

    void compare_store() {
        std::set<std::string> names;
        sqlite3* database = nullptr;
        if (sqlite3_open(kStore, &database) != SQLITE_OK ||
            sqlite3_exec(database, "SELECT name FROM profile", note_name, &names, nullptr) != SQLITE_OK)
            object("the store cannot be read");
        sqlite3_close(database);
        stored_ = names.size();
        for (const char* factory : {"one", "two", "three", "four"})
            if (names.erase(factory) == 0)
                object(std::string("the factory's profile is not there: ") + factory);
        for (const auto& [name, fate] : fates_) {
            if (fate == "present" && !names.contains(name))
                object(name + " was acknowledged, and is not there");
            if (fate == "absent" && names.contains(name))
                object(name + " was deleted, and is there");
        }
        for (const std::string& name : names)
            if (!fates_.contains(name))
                object(name + " is there, and nobody has added it");
    }

    // Of a server whom nobody uses: standard streams, its sockets, its store, its loop.
    static constexpr long kIdleDescriptors = 30;

    std::chrono::seconds length_;
    Random random_;
    test::dns::Responder responder_;
    std::unique_ptr<test::CmServer> server_;
    std::vector<std::unique_ptr<test::Program>> applications_;
    std::map<std::string, std::string> fates_;
    Samples early_;
    Samples late_;
    size_t stored_ = 0;
    int troubles_ = 0;
    int restarts_ = 0;
    bool is_settled_ = false;
    bool have_forgotten_ = false;
    bool broken_ = false;
};

}  // namespace
}  // namespace quorvel::soak

int main(int argc, char** argv) {
    if (argc < 2)
        return 2;
    const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : std::random_device{}();
    printf("seed %llu\n", static_cast<unsigned long long>(seed));
    fflush(stdout);
    // One that is not caught would leave the server and the applications behind.
    try {
        return quorvel::soak::Soak(std::chrono::seconds(std::atoi(argv[1])), seed).run();
    } catch (const std::exception& error) {
        printf("broken: %s\n", error.what());
        return 1;
    }
}
