// Sixty-four clients, each a process, for ten seconds of trouble: their own, the network's and the server's.
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "control/client.h"
#include "server/CrowdClient.h"

namespace quorvel::test {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kTime{10};
constexpr std::chrono::seconds kPatience{30};
constexpr const char* kConfigPath = "/tmp/crowd.toml";
constexpr const char* kOtherPath = "/tmp/other";

void wait_until(const char* what, const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error(std::string("waited in vain until ") + what);
        std::this_thread::sleep_for(milliseconds(2));
    }
}

void wait_until_answered() {
    wait_until("the server answers", [] {
        try {
            RawClient();
            return true;
        } catch (const NoServer&) {
            return false;
        }
    });
}

// It logs errors alone: nobody reads the log while the clients are at work.
std::unique_ptr<Program> start_server(std::vector<std::string> more) {
    more.insert(more.begin(), {CM_SERVER_PATH, "--config", kConfigPath, "--log-level", "error",
                               "--request-time", "600000"});
    return std::make_unique<Program>(more);
}

size_t sockets_of(const Program& program) {
    size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(program.pid()) + "/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone).string().starts_with("socket:");
    }
    return count;
}

class Processes {
  public:
    explicit Processes(CrowdWorld& world) : world_(world) { pids_.fill(-1); }
    ~Processes() {
        for (const pid_t pid : pids_)
            if (pid > 0) {
                ::kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
    }

    void start(size_t number) {
        const pid_t parent = getpid();
        const unsigned seed = ++seed_;
        pids_[number] = fork();
        if (pids_[number] == 0)
            live(number, seed, parent);
    }
    void replace(size_t number) {
        ::kill(pids_[number], SIGKILL);
        expect_end(number, SIGKILL);
        start(number);
    }
    void expect_ends() {
        for (size_t number = 0; number < pids_.size(); ++number)
            expect_end(number, 0);
    }

  private:
    [[noreturn]] void live(size_t number, unsigned seed, pid_t parent) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(1);
        CrowdPlace& place = world_.places[number];
        try {
            CrowdClient(world_, number, seed).live();
            _exit(0);
        } catch (const std::exception& error) {
            snprintf(place.failure, sizeof(place.failure), "%s", error.what());
        }
        _exit(1);
    }
    void expect_end(size_t number, int signal) {
        int status = 0;
        waitpid(std::exchange(pids_[number], -1), &status, 0);
        EXPECT_TRUE(signal == 0 ? WIFEXITED(status) && WEXITSTATUS(status) == 0
                                : WIFSIGNALED(status) && WTERMSIG(status) == signal)
            << "client " << number << ": status " << status << ": " << world_.places[number].failure;
    }

    CrowdWorld& world_;
    unsigned seed_ = 0;
    std::array<pid_t, kCrowd> pids_{};
};

class ClientCrowdSlow : public ::testing::Test {
  public:
    ClientCrowdSlow() {
        std::ofstream(kConfigPath) << crowd_config();
        start();
        RawClient client;
        for (size_t number = 0; number < kCrowd; ++number)
            world->places[number].profile = ask_pm(client, 1, -1, slot(crowd_profile(number))).profile;
    }
    ~ClientCrowdSlow() override { munmap(world, sizeof(CrowdWorld)); }

    void start() {
        server = start_server({"--db", "/tmp/crowd.db"});
        wait_until_answered();
    }
    void expect_clean_end(int status) {
        const Ended ended = server->wait();
        EXPECT_EQ(ended.status, status);
        EXPECT_EQ(ended.err, "");
    }

    void kill_server() {
        ++world->outages;
        server->send_signal(SIGKILL);
        expect_clean_end(128 + SIGKILL);
        start();
        ++world->outages;
    }
    void restart_server() {
        ++world->outages;
        cm::ask_server(wire::kServerPath, {{"command", "restart"}, {"away", 20}});
        wait_until_answered();
        ++world->outages;
    }
    // What the network does to a call, if it is there.
    void change_call(nlohmann::json command) {
        command["call"] = ++turn % 4;
        try {
            cm::ask_server(wire::kServerPath, command);
        } catch (const cm::AskError&) {
        }
    }
    void delay_everybody() {
        cm::ask_server(wire::kServerPath,
                       {{"command", "fault"}, {"kind", "late"}, {"value", 5}, {"times", 50}});
    }
    void make_trouble() {
        switch (++turn % 8) {
            case 0:
                return kill_server();
            case 1:
            case 2:
                return processes.replace(turn % kCrowd);
            case 3:
                return change_call({{"command", "suspend"}});
            case 4:
                return restart_server();
            case 5:
                return change_call({{"command", "resume"}});
            case 6:
                return change_call({{"command", "ip-change"}, {"address", "192.0.2.9"}});
            default:
                return delay_everybody();
        }
    }
    bool everybody_has_been_answered() const {
        return std::ranges::all_of(world->places, [](const CrowdPlace& place) { return place.answers > 0; });
    }

    void expect_nothing_left() {
        wait_until("nobody is registered", [] {
            const auto data = cm::ask_server(wire::kServerPath, {{"command", "list"}}).at("data");
            return data.at("clients").empty() && data.at("calls").empty();
        });
        const auto faults = cm::ask_server(wire::kServerPath, {{"command", "faults"}}).at("text");
        EXPECT_EQ(faults.get<std::string>().find(", client"), std::string::npos) << faults;
        const auto fresh = start_server({"--db", ":memory:", "--socket", kOtherPath});
        wait_until("a second server answers",
                   [] { return access("/tmp/quorvel-run/tmp-other.control", F_OK) == 0; });
        wait_until("it has as many sockets as a new server",
                   [&] { return sockets_of(*server) == sockets_of(*fresh); });
    }

    CrowdWorld* world =
        new (mmap(nullptr, sizeof(CrowdWorld), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            CrowdWorld;
    std::unique_ptr<Program> server;
    Processes processes{*world};
    size_t turn = 0;
};

TEST_F(ClientCrowdSlow, of_64_gets_its_own_answers_whatever_happens) {
    for (size_t number = 0; number < kCrowd; ++number)
        processes.start(number);
    const auto end = std::chrono::steady_clock::now() + kTime;
    while (std::chrono::steady_clock::now() < end || !everybody_has_been_answered()) {
        make_trouble();
        std::this_thread::sleep_for(milliseconds(100));
    }
    world->over = true;
    processes.expect_ends();
    expect_nothing_left();
    server->send_signal(SIGTERM);
    expect_clean_end(0);
    uint64_t answers = 0;
    for (const CrowdPlace& place : world->places)
        answers += place.answers;
    RecordProperty("answers", std::to_string(answers));
    std::printf("%llu answers were right\n", static_cast<unsigned long long>(answers));
}

}  // namespace
}  // namespace quorvel::test
