// One of the applications of a soak: four threads that use everything, at random, until SIGTERM. Then
// everything that was accepted has to have been answered; and what has been acknowledged is printed, for the
// store to be compared with.
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
constexpr std::chrono::seconds kPatience{60};

volatile sig_atomic_t ends = 0;
std::atomic<int> lookups_accepted{0};
std::atomic<int> lookups_answered{0};

// Which opens wait for their outcome, by thread. One that is closed or killed before has that outcome.
struct Opens {
    std::mutex mutex;
    std::array<bool, kProfiles + 1> waits{};
};
std::array<Opens, kThreads> opens;

template <int kThread>
void on_event(NetCMEvent* event) {
    if (event->EventType > NETCM_EVENT_STOP_IND)
        return;
    const std::lock_guard lock(opens[kThread].mutex);
    if (event->ProfileId >= 1 && event->ProfileId <= kProfiles)
        opens[kThread].waits[static_cast<size_t>(event->ProfileId)] = false;
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
        while (ends == 0) {
            NetCMClientRegister(kCallbacks[thread_]);
            for (int things = random_.between(5, 60); things > 0 && ends == 0; --things) {
                do_something();
                std::this_thread::sleep_for(std::chrono::microseconds(random_.between(0, 20000)));
            }
            NetCMClientDeRegister();
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
        const std::lock_guard lock(opens[thread_].mutex);
        bool answered = true;
        for (const bool waits : opens[thread_].waits)
            answered = answered && !waits;
        if (!out || !answered)
            printf("broken %s: %s\n", name_.c_str(),
                   out ? "an open was never answered" : "it cannot deregister");
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
                NetCMConnectionClose(profile);
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
        const std::lock_guard lock(opens[thread_].mutex);
        opens[thread_].waits[static_cast<size_t>(profile)] = false;
    }

    // A join that is answered before this returns has its answer ahead of it.
    void open(int32_t profile) {
        const auto place = static_cast<size_t>(profile);
        bool waited = false;
        {
            const std::lock_guard lock(opens[thread_].mutex);
            waited = std::exchange(opens[thread_].waits[place], true);
        }
        if (NetCMConnectionOpen(&profile, 1) == NETCM_SUCCESS)
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
    std::map<std::string, const char*> profiles_;
    std::map<std::string, int32_t> ids_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    signal(SIGTERM, [](int) { ends = 1; });
    bool is_well = true;
    std::mutex printing;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([&, number] {
            User user(atoi(argv[1]), number, strtoull(argv[2], nullptr, 0));
            user.live();
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
