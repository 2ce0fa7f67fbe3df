// The server with the n-th of its calls failing: it never ends, and never tells a client what is not so. What
// it has acknowledged is so when the failure is over, and what it has refused is not.
//
//   QUORVEL_SWEEP_FROM=N from the n-th call on
//   QUORVEL_SWEEP=long   every call, and not one in so many of those that are made hundreds of times
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <vector>

#include "Orders.h"
#include "quorvel/NetCM.h"
#include "quorvel/NetPM.h"
#include "support/CmServer.h"
#include "support/Events.h"
#include "support/Eventually.h"
#include "support/LibraryCalls.h"
#include "support/Link.h"
#include "support/ServerSocket.h"
#include "support/TraceCapture.h"

namespace quorvel::sweep {
namespace {

namespace events = test::events;

constexpr int32_t kProfile = 1;
constexpr int32_t kApp = 6;
constexpr uint32_t kKey = 1;

struct Kind {
    const char* name;
    ServerCall call;
    uint32_t times;
    int error;
    uint32_t stride;  // of the short form
};

// Twice: the server puts memory aside for the first.
constexpr Kind kKinds[] = {{"memory", ServerCall::Memory, 1, ENOMEM, 7},
                           {"memory_twice", ServerCall::Memory, 2, ENOMEM, 5},
                           {"accept", ServerCall::Accept, 1, EMFILE, 1},
                           {"accept_aborted", ServerCall::Accept, 1, ECONNABORTED, 1},
                           {"read", ServerCall::Read, 1, EIO, 1},
                           {"read_interrupted", ServerCall::Read, 1, EINTR, 1},
                           {"write", ServerCall::Write, 1, EPIPE, 1},
                           {"write_interrupted", ServerCall::Write, 1, EINTR, 1},
                           {"netlink", ServerCall::Netlink, 1, ENOBUFS, 1},
                           {"open", ServerCall::Open, 1, EMFILE, 1},
                           {"sqlite_io", ServerCall::SqliteIo, 1, EIO, 2},
                           {"sqlite_full", ServerCall::SqliteFull, 1, ENOSPC, 1},
                           {"sqlite_busy", ServerCall::SqliteBusy, 1, EBUSY, 1}};

// The file is there before the server starts.
Orders& shared_orders() {
    std::ofstream(kOrdersPath) << std::string(sizeof(Orders), '\0');
    const int fd = test::checked(open(kOrdersPath, O_RDWR | O_CLOEXEC), kOrdersPath);
    void* shared = mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (shared == MAP_FAILED)
        throw std::runtime_error("mmap");
    return *static_cast<Orders*>(shared);
}

// Loaded into the server alone.
class Preloaded {
  public:
    Preloaded() { setenv("LD_PRELOAD", SERVER_FAULTS, 1); }
    ~Preloaded() { unsetenv("LD_PRELOAD"); }
    Preloaded(const Preloaded&) = delete;
    Preloaded& operator=(const Preloaded&) = delete;
};

std::unique_ptr<test::CmServer> server_with_faults() {
    // Each kind begins with the factory's profiles.
    for (const char* file : {"/tmp/sweep.db", "/tmp/sweep.db-wal", "/tmp/sweep.db-shm", "/tmp/sweep.db.good"})
        unlink(file);
    const Preloaded preloaded;
    return std::make_unique<test::CmServer>(
        "[[network]]\ninterface = \"lo\"\n[[profile]]\nname = \"one\"\napn = \"first\"\n",
        std::vector<std::string>{"--db", "/tmp/sweep.db"});
}

// Whether a change has been made, as far as its client knows.
enum class Made { Yes, No, Perhaps };

// A status that says nothing about what the server has done.
bool is_of_the_link(uint32_t status) {
    return status == NETCM_ERR_FAILURE || status == NETCM_ERR_REREGISTER_FAILED ||
           status == NETCM_ERR_NOT_REGISTERED;
}
Made made(uint32_t status) {
    if (status == NETCM_SUCCESS)
        return Made::Yes;
    return is_of_the_link(status) ? Made::Perhaps : Made::No;
}
bool agrees(Made made, bool is_there) {
    return made == Made::Perhaps || (made == Made::Yes) == is_there;
}

// What a client did while a call failed.
struct Done {
    Made added = Made::No;
    int32_t id = -1;
    Made application = Made::No;
    Made setting = Made::No;
    uint32_t value = 0;
};

class ServerSweep : public ::testing::Test {
  protected:
    ServerSweep() : orders_(shared_orders()), server_(server_with_faults()) {
        test::trace::stop_keeping();
        test::calls::skip_sleeps();
    }
    ~ServerSweep() override { munmap(&orders_, sizeof orders_); }

    void arm(const Kind& kind, uint32_t nth) {
        orders_.made = orders_.failures = 0;
        orders_.call = static_cast<uint32_t>(kind.call);
        orders_.times = kind.times;
        orders_.error = kind.error;
        orders_.from = nth;
    }
    uint32_t disarm() {
        orders_.from = 0;
        return orders_.failures;
    }

    // ---- What is done while something fails: what succeeds must be true.

    void objects_unless(bool holds, const std::string& what) { EXPECT_TRUE(holds) << what << now_; }

    void open_and_close() {
        events::clear();
        const uint32_t opened = NetCMConnectionOpen(&kProfile, 1);
        objects_unless(orders_.from != 0 || opened == NETCM_SUCCESS,
                       "an open gives " + std::to_string(opened));
        if (opened != NETCM_SUCCESS || !is_told(NETCM_EVENT_OPEN_RSP))
            return;
        for (const test::Event& event : events::of(0))
            if (event.type == NETCM_EVENT_OPEN_RSP && event.result == 0)
                objects_unless(event.details && strcmp(event.details->IfaceName, "lo") == 0 &&
                                   event.details->IpAddr.Addr[0] == 127,
                               "a connection is up with other details");
        if (NetCMConnectionClose(kProfile) == NETCM_SUCCESS)
            is_told(NETCM_EVENT_CLOSE_RSP);
    }

    bool is_told(uint32_t type) {
        const auto has_come = [=] {
            return std::ranges::any_of(events::of(0), [=](const test::Event& event) {
                return event.type == type || event.type == NETCM_EVENT_STOP_IND;
            });
        };
        objects_unless(test::eventually([&] { return has_come() || test::link_is_broken(); }),
                       "a client is never told " + std::to_string(type));
        return has_come() && !test::link_is_broken();
    }

    void ask() {
        uint32_t status = 0;
        if (NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status) == NETCM_SUCCESS)
            objects_unless(status == status_, "the network status is " + std::to_string(status));
        int32_t list = 0;
        if (NetCMGetNetIfaceList(&list) == NETCM_SUCCESS)
            objects_unless(list == interfaces_, "the interfaces are " + std::to_string(list));
        NetPMProfile profile{};
        if (NetPMGetProfileInfo(kProfile, &profile) == NETCM_SUCCESS)
            objects_unless(strcmp(profile.ProfileName, "one") == 0, "the profile has another name");
    }

    Done change() {
        Done done;
        NetPMProfile profile{};
        profile.PdpProfInfo.AppProtoType = 1;
        strcpy(profile.ProfileName, "swept");
        strcpy(profile.PdpProfInfo.Apn, "apn");
        done.added = made(NetPMAddProfileInfo(&profile, &done.id));
        // The answer to this is a truth value: 0 says nothing about why.
        done.application = NetPMAppProfAddAppId(kApp) == 1 ? Made::Yes : Made::Perhaps;
        uint32_t result = 99;
        done.value = ++value_;
        const uint32_t went = NetCMSettingsSet(kKey, &done.value, &result);
        done.setting = went == 1 ? Made::Yes : went == 0 ? made(result) : Made::Perhaps;
        return done;
    }

    // ---- Behind the failure.

    static bool enter() {
        const uint32_t status = NetCMClientRegister(events::callback_of(0));
        return status == NETCM_SUCCESS || status == NETCM_ERR_ALREADY_REGISTERED;
    }
    static void leave() {
        test::eventually([] { return NetCMClientDeRegister() != NETCM_ERR_ALREADY_EXISTS; });
    }

    static std::optional<std::vector<int32_t>> profiles() {
        int32_t ids[NETPM_MAX_PROFILE_IDS];
        int32_t count = 0;
        if (NetPMGetProfileIdList(2, NETPM_MAX_PROFILE_IDS, ids, &count) != NETCM_SUCCESS)
            return std::nullopt;
        return std::vector<int32_t>(ids, ids + count);
    }

    void expect_truth(const Done& done) {
        ASSERT_TRUE(enter()) << now_;
        const auto ids = profiles();
        ASSERT_TRUE(ids) << now_;
        if (done.added == Made::Yes)
            objects_unless(std::ranges::find(*ids, done.id) != ids->end(),
                           "an acknowledged profile is not there");
        objects_unless(agrees(done.added, ids->size() == 2),
                       std::to_string(ids->size()) + " profiles are there");
        objects_unless(agrees(done.application, NetPMAppProfCheckAppId(kApp) == 1),
                       "an application is not known");
        uint32_t value = 0;
        uint32_t result = 99;
        objects_unless(NetCMSettingsGet(kKey, &value, &result) == 1, "a setting cannot be read");
        objects_unless(agrees(done.setting, value == done.value), "a setting is " + std::to_string(value));
        uint32_t active[16];
        uint32_t count = 0;
        objects_unless(test::eventually([&] {
                           return NetCMGetActiveProfileIDs(reinterpret_cast<uint8_t*>(active), &count) ==
                                  NETCM_ERR_NOT_ACTIVE;
                       }),
                       "a connection is left");
        open_and_close();
        ask();
    }

    // Back to the factory's profiles; behind the healthy run the answers are known that the others must give.
    void restore() {
        uint32_t status = NETCM_SUCCESS;
        ASSERT_TRUE(test::eventually([&] { return (status = NetPMRestoreProfileInfo()) == NETCM_SUCCESS; }))
            << status << now_ << "\n"
            << server_->ctl({"list"}) << server_->stop().err;
        NetPMAppProfDeleteAppId(kApp);
        leave();
    }

    uint32_t run(const Kind& kind, uint32_t nth) {
        now_ = std::string(" (") + kind.name + " " + std::to_string(nth) + ")";
        arm(kind, nth);
        Done done;
        if (enter()) {
            ask();
            done = change();
            open_and_close();
            leave();
        }
        const uint32_t failures = disarm();
        expect_truth(done);
        restore();
        return failures;
    }

    void learn() {
        ASSERT_TRUE(enter());
        ASSERT_EQ(NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status_), NETCM_SUCCESS);
        ASSERT_EQ(NetCMGetNetIfaceList(&interfaces_), NETCM_SUCCESS);
        leave();
    }

    size_t descriptors() const {
        const std::string path = "/proc/" + std::to_string(server_->program().pid()) + "/fd";
        size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path))
            ++count;
        return count;
    }

    void sweep(const Kind& kind) {
        const char* form = std::getenv("QUORVEL_SWEEP");
        const uint32_t stride = form != nullptr && strcmp(form, "long") == 0 ? 1 : kind.stride;
        learn();
        run(kind, 0);
        const size_t before = descriptors();
        uint32_t runs = 1;
        const char* from = std::getenv("QUORVEL_SWEEP_FROM");
        for (uint32_t nth = from != nullptr ? static_cast<uint32_t>(atoi(from)) : 1; run(kind, nth) != 0;
             nth += stride) {
            ++runs;
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_TRUE(test::eventually([&] { return descriptors() <= before; })) << "descriptors are left";
        server_->ctl({"list"});
        const test::Ended ended = server_->stop();
        EXPECT_EQ(ended.status, 0) << ended.err;
        std::cout << runs << " runs\n";
    }

    Orders& orders_;
    std::unique_ptr<test::CmServer> server_;
    std::string now_;
    uint32_t status_ = 0;
    int32_t interfaces_ = 0;
    uint32_t value_ = 0;
};

class ServerSweepOf : public ServerSweep, public ::testing::WithParamInterface<Kind> {};

TEST_P(ServerSweepOf, failing_calls_ends_nothing_and_makes_nothing_untrue) {
    const char* form = std::getenv("QUORVEL_SWEEP");
    if (GetParam().name == std::string_view("memory_twice") &&
        (form == nullptr || form != std::string_view("long")))
        GTEST_SKIP() << "two failures in a row: with QUORVEL_SWEEP=long";
    sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Kinds, ServerSweepOf, ::testing::ValuesIn(kKinds),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace quorvel::sweep
