// An application in the middle of its calls, and what it must see of them.
#pragma once

#include <cerrno>
#include <ostream>
#include <utility>
#include <vector>

#include "common/Trace.h"
#include "support/ClientTest.h"

namespace quorvel::test {

inline constexpr uint32_t kKill = wire::NETCM_CLIENT_KILL_REQ;
inline constexpr int32_t kServerGone = 2;

// The units whose traces these tests look at.
inline constexpr char kIntf[] = "data-networking/client/CM/src/NetCMIntf";
inline constexpr char kCore[] = "data-networking/client/CM/src/NetCMClientCore";
inline constexpr char kInternal[] = "data-networking/client/CM/src/NetCMClientInternal";

struct Traced {
    uint32_t level;
    std::string text;
    const char* unit = kIntf;
};

// An event, as far as every event has it.
struct Told {
    int user;
    uint32_t type;
    int32_t profile;
    int32_t result;
    bool operator==(const Told&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Told& told) {
        return out << "user " << told.user << ": type " << told.type << ", profile " << told.profile
                   << ", result " << told.result;
    }
};

inline std::vector<Told> told() {
    std::vector<Told> result;
    for (const Event& event : events::all())
        result.push_back({event.user, event.type, event.profile, event.result});
    return result;
}

// Whether these lines were traced in this order, with anything between them, each at its level and under its
// unit.
inline ::testing::AssertionResult traced_in_order(const std::vector<Traced>& expected) {
    const std::vector<TraceLine> lines = trace::lines();
    auto from = lines.begin();
    for (const Traced& wanted : expected) {
        const auto is_it = [&](const TraceLine& line) { return line.text == wanted.text; };
        const auto found = std::find_if(from, lines.end(), is_it);
        if (found == lines.end()) {
            std::string all;
            for (const TraceLine& line : lines)
                all += line.text;
            return ::testing::AssertionFailure()
                   << "not traced, or not in this order: " << wanted.text << all;
        }
        if (found->mask != level_mask(wanted.level) || found->file != wanted.unit || found->mid != kModuleId)
            return ::testing::AssertionFailure()
                   << "traced in " << found->file << " with mask " << std::hex << found->mask
                   << " and module " << found->mid << ": " << wanted.text;
        from = found + 1;
    }
    return ::testing::AssertionSuccess();
}

class CallTest : public ClientTest {
  protected:
    CallTest() {
        events::clear();
        trace::clear();
        calls::reset();
        calls::skip_sleeps();
    }

    // The server takes notice of an async socket some time after the client has gone on.
    bool async_socket_is_known() {
        return server.wait_for(wire::NETCM_CLIENT_ASYNC_REGISTER_REQ,
                               server.count(wire::NETCM_CLIENT_REGISTER_REQ));
    }

    User& registered(int number) {
        User& who = ClientTest::registered(number);
        EXPECT_TRUE(async_socket_is_known());
        return who;
    }

    // Waits until the receiver has handled everything that was pushed: it drops unknown records with a trace.
    bool settled() {
        const uint32_t code = ++last_marker_;
        wire::Record marker{};
        marker.Code = code;
        return server.push(marker) &&
               trace::wait_for(trace::text("Unknown command %d \n", static_cast<int>(code)));
    }
    template <class... Block>
    bool push_and_settle(const wire::Record& record, const Block&... block) {
        return server.push(record, block...) && settled();
    }

    // How often the server has got a command that it does not answer on the sync socket: an exchange behind
    // it shows that everything before has been read.
    size_t count_unanswered(uint32_t command) {
        uint32_t status = 0;
        EXPECT_EQ(NetCMGetNetworkStatus(NETCM_IFACE_PDP, &status), NETCM_SUCCESS);
        return server.count(command);
    }

    // The kernel thread id of the receiver, which must be running.
    int32_t receiver_tid() {
        EXPECT_TRUE(settled());
        return trace::find(trace::text("Unknown command %d \n", static_cast<int>(last_marker_))).thread;
    }

    // Whether every event so far came on the receiver, with the mutex held.
    void expect_all_on_receiver() {
        const int32_t receiver = receiver_tid();
        for (const Event& event : events::all()) {
            EXPECT_EQ(event.thread, receiver);
            EXPECT_TRUE(event.mutex_was_held);
        }
    }

    // From now on every callback asks from another thread whether the mutex is held.
    static Hook<const Event&> watch_mutex() {
        return events::during([](const Event&) {
            std::thread([] { EXPECT_EQ(pthread_mutex_trylock(&NetCMAppMutex), EBUSY); }).join();
        });
    }

    // Joins a call that is up, and waits for the answer.
    void join(User& who, int32_t profile) {
        const size_t before = events::of(who.number()).size();
        EXPECT_EQ(who.open(profile), NETCM_SUCCESS);
        EXPECT_TRUE(events::wait_for_user(who.number(), before + 1));
    }

    // Nobody uses any call any more, without any server or callback hearing of it.
    void forget_calls() {
        with_table([](NetCMClientAppInfo&) {
            for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
                NetCMClientCleanCallInfo(index);
            return 0;
        });
    }

    void break_link() {
        EXPECT_TRUE(async_socket_is_known());
        server.close_async();
        EXPECT_TRUE(wait_until_link_is_broken());
    }

    // Puts a thread index and its profiles into an entry of a call, as if they had been opened.
    void set_entry(int32_t call_index, int entry, int32_t thread_index,
                   const std::vector<int32_t>& profiles) {
        with_table([&](NetCMClientAppInfo& table) {
            NetCMThreadProf& place = table.CallInfo[call_index].ThreadProf[entry];
            place.ThreadIndex = thread_index;
            std::fill(std::begin(place.ProfileId), std::end(place.ProfileId), -1);
            std::copy(profiles.begin(), profiles.end(), place.ProfileId);
            return 0;
        });
    }
    void set_call_state(int32_t call_index, uint32_t state) {
        with_table([=](NetCMClientAppInfo& table) { return table.CallInfo[call_index].CallState = state; });
    }

    void set_last_error(int32_t value) {
        with_table([=](NetCMClientAppInfo& table) {
            for (NetCMThreadInfo& thread : table.ThreadInfo)
                thread.LastSyncError = value;
            return 0;
        });
    }

    bool is_free(int32_t index) {
        return with_table([=](const NetCMClientAppInfo& table) {
            const NetCMCallInfo& call = table.CallInfo[index];
            if (call.InUse != 0 || call.CallId != -1 || call.IsActive != 0 || call.CallState != 0)
                return false;
            for (const NetCMThreadProf& entry : call.ThreadProf)
                if (entry.ThreadIndex != -1)
                    return false;
            return true;
        });
    }

  private:
    uint32_t last_marker_ = 1000;
};

}  // namespace quorvel::test
