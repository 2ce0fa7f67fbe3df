// One of the applications of a soak: four threads that use everything, at random, until SIGTERM. It says
// "quiet" when none of them does anything any more, and waits for another SIGTERM, which tells that the
// server has been started anew: everything that was accepted has to be answered then. What has been
// acknowledged is printed, for the store to be compared with.
//
// SIGUSR1 tells that some connections have ended without a word, and that no more will: what has been opened
// so far may remain without an answer.
//
//   soak-application NUMBER SEED
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lives/Random.h"
#include "quorvel/NetCM.h"
#include "quorvel/NetDNS.h"
#include "quorvel/NetPM.h"
#include "support/Eventually.h"

namespace {

using quorvel::lives::Random;
using quorvel::test::eventually;

constexpr int kThreads = 4;
constexpr int kProfiles = 4;  // of the factory
// Shorter than the soak's own, so that it is told what has not been answered.
constexpr std::chrono::seconds kPatience{20};

std::atomic<int> told_to_end{0};  // at first to be quiet, then to leave
std::atomic<bool> told_to_forget{false};
std::atomic<int> lookups_accepted{0};
std::atomic<int> lookups_answered{0};

// What has happened to a profile lately, with the time of day in UTC, as the server's monitor has it.
class Story {
  public:
    void tell(const std::string& what) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        char time[32];
        snprintf(time, sizeof(time), "%02ld:%02ld.%03ld ", now.tv_sec / 60 % 60, now.tv_sec % 60,
                 now.tv_nsec / 1000000);
        text_ += time + what + "; ";
        if (text_.size() > kLongest)
            text_.erase(0, kLongest / 2);
    }
    const std::string& text() const { return text_; }

  private:
    static constexpr size_t kLongest = 2000;
    std::string text_;
};

// Which opens wait for their outcome, by thread. One that is closed or killed before has that outcome.
struct Opens {
    std::mutex mutex;
    std::array<bool, kProfiles + 1> waits{};
    std::array<Story, kProfiles + 1> stories;
};
std::array<Opens, kThreads> opens;

template <int kThread>
void on_event(NetCMEvent* event) {
    if (event->EventType > NETCM_EVENT_STOP_IND)
        return;
    if (event->ProfileId < 1 || event->ProfileId > kProfiles)
        return;
    const auto place = static_cast<size_t>(event->ProfileId);
    const std::lock_guard lock(opens[kThread].mutex);
    opens[kThread].waits[place] = false;
    opens[kThread].stories[place].tell("event " + std::to_string(event->EventType) + " with " +
                                       std::to_string(event->Result));
}
constexpr std::array<NetCMEventCallback, kThreads> kCallbacks = {on_event<0>, on_event<1>, on_event<2>,
                                                                 on_event<3>};

void on_host(hostent*, unsigned) {
    ++lookups_answered;
}

class User {
  public:
    User(int application, int thread, uint64_t seed)
        : name_("a" + std::to_string(application) + "t" + std::to_string(thread)),
          app_id_(1 + application * kThreads + thread),
          thread_(static_cast<size_t>(thread)),
          random_(seed, static_cast<uint64_t>(app_id_)) {}

    void live() {
        while (told_to_end == 0) {
            NetCMClientRegister(kCallbacks[thread_]);
            for (int things = random_.between(5, 60); things > 0 && told_to_end == 0; --things) {
                if (told_to_forget && !std::exchange(has_forgotten_, true))
                    forget();
                do_something();
                std::this_thread::sleep_for(std::chrono::microseconds(random_.between(0, 20000)));
            }
            tell_all("DeRegister: " + std::to_string(NetCMClientDeRegister()));
        }
    }

    // Whether everything has been answered. The server has been started anew, which ends what was open.
    bool leave() {
        const bool out = eventually(
            [] {
                uint32_t status = 0;
                NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status);
                return NetCMClientDeRegister() != NETCM_ERR_ALREADY_EXISTS;
            },
            kPatience);
        if (!out)
            printf("broken %s: it cannot deregister\n", name_.c_str());
        const std::lock_guard lock(opens[thread_].mutex);
        bool answered = true;
        for (int profile = 1; profile <= kProfiles; ++profile) {
            if (!opens[thread_].waits[static_cast<size_t>(profile)])
                continue;
            answered = false;
            printf("broken %s: an open of profile %d was never answered: %s\n", name_.c_str(), profile,
                   opens[thread_].stories[static_cast<size_t>(profile)].text().c_str());
        }
        return out && answered;
    }

    void say_what_is_stored() const {
        for (const auto& [name, fate] : profiles_)
            printf("%s %s\n", fate, name.c_str());
    }

  private:
    void do_something() {
        const int32_t profile = random_.between(1, kProfiles);
        switch (random_.below(14)) {
            case 0:
            case 1:
                return open(profile);
            case 2:
            case 3:
                tell(profile, "Close: " + std::to_string(NetCMConnectionClose(profile)));
                return;
            case 4:
                if (random_.one_in(4) && NetCMConnectionKill(profile) == NETCM_SUCCESS)
                    no_longer_waits(profile);
                return;
            case 5:
            case 6:
                return ask();
            case 7:
                return look_up(profile);
            case 8:
                return tunnel();
            case 9:
                return add();
            case 10:
                return remove();
            case 11:
                return bind(profile);
            default:
                return read(profile);
        }
    }

    void no_longer_waits(int32_t profile) {
        tell(profile, "killed");
        const std::lock_guard lock(opens[thread_].mutex);
        opens[thread_].waits[static_cast<size_t>(profile)] = false;
    }

    void forget() {
        tell_all("forgotten");
        const std::lock_guard lock(opens[thread_].mutex);
        opens[thread_].waits = {};
    }

    void tell(int32_t profile, const std::string& what) {
        const std::lock_guard lock(opens[thread_].mutex);
        opens[thread_].stories[static_cast<size_t>(profile)].tell(what);
    }

    void tell_all(const std::string& what) {
        for (int32_t profile = 1; profile <= kProfiles; ++profile)
            tell(profile, what);
    }

    // A join that is answered before this returns has its answer ahead of it.
    void open(int32_t profile) {
        const auto place = static_cast<size_t>(profile);
        bool waited = false;
        {
            const std::lock_guard lock(opens[thread_].mutex);
            waited = std::exchange(opens[thread_].waits[place], true);
        }
        const uint32_t result = NetCMConnectionOpen(&profile, 1);
        tell(profile, "Open: " + std::to_string(result));
        if (result == NETCM_SUCCESS)
            return;
        const std::lock_guard lock(opens[thread_].mutex);
        opens[thread_].waits[place] = opens[thread_].waits[place] && waited;
    }

    void ask() {
        uint32_t word = 0;
        uint32_t result = 0;
        int32_t list = 0;
        uint32_t counters[6];
        uint8_t room[1600];
        NetCMGetNetworkStatus(NETCM_IFACE_PDP, &word);
        NetCMSettingsSet(2, &word, &result);
        NetCMSettingsGet(2, &word, &result);
        NetCMGetNetIfaceList(&list);
        NetCMGetPacketDataState(&word);
        NetCMGetStatInfo(counters);
        NetCMGetActiveProfileIDs(room, &word);
        NetCMGetActiveProfileNameList(room, &word);
        NetCMGetActiveConnectionList(NETCM_IFACE_PDP, room, &word);
        NetCMConnInfo info{};
        NetCMDeviceGetInfo(1, &info);
    }

    void look_up(int32_t profile) {
        unsigned id = 0;
        const std::string host = "host" + std::to_string(random_.below(20)) + ".example";
        if (random_.one_in(3))
            NetDNSGetHostByName(profile, host.c_str());
        else if (NetDNSGetHostByNameAsync(profile, host.c_str(), on_host, &id) == 1)
            ++lookups_accepted;
    }

    void tunnel() {
        std::vector<char> data(static_cast<size_t>(random_.below(3000)));
        NetCMTunnelData request{1, 0, static_cast<uint32_t>(data.size()), data.data()};
        NetCMTunnelRequest(&request);
        random_.one_in(2) ? NetCMClientRegisterTunnelInd() : NetCMClientDeRegisterTunnelInd();
    }

    // 0 is an acknowledgement; any other number leaves open what the server has done: it is made to say such
    // things.
    void add() {
        if (profiles_.size() >= 200)
            return;
        NetPMProfile profile{};
        const std::string name = name_ + "n" + std::to_string(profiles_.size());
        strcpy(profile.ProfileName, name.c_str());
        strcpy(profile.PdpProfInfo.Apn, "soak");
        profile.PdpProfInfo.AppProtoType = 1;
        int32_t id = -1;
        const bool added = NetPMAddProfileInfo(&profile, &id) == NETCM_SUCCESS && id > 0;
        profiles_[name] = added ? "present" : "perhaps";
        if (added)
            ids_[name] = id;
    }

    void remove() {
        if (ids_.empty())
            return;
        const auto any = std::next(ids_.begin(), random_.below(static_cast<int>(ids_.size())));
        profiles_[any->first] = NetPMDeleteProfileInfo(any->second) == NETCM_SUCCESS ? "absent" : "perhaps";
        ids_.erase(any);
    }

    void bind(int32_t profile) {
        NetPMAppProfAddAppId(app_id_);
        NetPMAppProfSetProfId(app_id_, profile);
        uint32_t bound = 0;
        NetPMAppProfGetAppProfId(app_id_, &bound);
        NetPMAppProfGetProperProfile(app_id_, &bound);
        NetPMAppProfGetProperProfileAsync(app_id_);
        NetPMAppProfDeleteAppId(app_id_);
    }

    void read(int32_t profile) {
        NetPMProfile stored{};
        NetPMGetProfileInfo(profile, &stored);
        int32_t ids[NETPM_MAX_PROFILE_IDS];
        int32_t count = 0;
        NetPMGetProfileIdList(2, NETPM_MAX_PROFILE_IDS, ids, &count);
        std::vector<char> room(NETPM_LIST_ROOM);
        NetPMReadPartialProfileInfo(2, room.data(), &count);
        NetPMGetProfileIdForAPN("soak", room.data());
    }

    std::string name_;
    int32_t app_id_;
    size_t thread_;
    Random random_;
    bool has_forgotten_ = false;
    std::map<std::string, const char*> profiles_;
    std::map<std::string, int32_t> ids_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    signal(SIGTERM, [](int) { ++told_to_end; });
    signal(SIGUSR1, [](int) { told_to_forget = true; });
    bool is_well = true;
    std::mutex printing;
    std::atomic<int> living{kThreads};
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([&, number] {
            User user(atoi(argv[1]), number, strtoull(argv[2], nullptr, 0));
            user.live();
            if (--living == 0) {
                puts("quiet");
                fflush(stdout);
            }
            while (told_to_end < 2)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            const bool left = user.leave();
            const std::lock_guard lock(printing);
            is_well = is_well && left;
            user.say_what_is_stored();
        });
    for (std::thread& thread : threads)
        thread.join();
    if (!eventually([] { return lookups_answered >= lookups_accepted; }, kPatience)) {
        printf("broken a%s: %d lookups were accepted and %d answered\n", argv[1], lookups_accepted.load(),
               lookups_answered.load());
        is_well = false;
    }
    return is_well ? 0 : 1;
}
