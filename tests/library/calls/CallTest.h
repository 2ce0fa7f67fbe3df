// An application in the middle of its calls, and what it must see of them.
#pragma once

#include <vector>

#include "common/Trace.h"
#include "support/ClientTest.h"

namespace quorvel::test {

// The units whose traces these tests look at.
inline constexpr char kIntf[] = "data-networking/client/CM/src/NetCMIntf";
inline constexpr char kCore[] = "data-networking/client/CM/src/NetCMClientCore";
inline constexpr char kInternal[] = "data-networking/client/CM/src/NetCMClientInternal";

struct Traced {
    uint32_t level;
    std::string text;
    const char* unit = kIntf;
};

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

    // The kernel thread id of the receiver, which must be running.
    int32_t receiver_tid() {
        EXPECT_TRUE(settled());
        return trace::find(trace::text("Unknown command %d \n", static_cast<int>(last_marker_))).thread;
    }

    // A joins a call that is up and has got its answer.
    void join(User& who, int32_t profile) {
        const size_t before = events::of(who.number()).size();
        EXPECT_EQ(who.open(profile), NETCM_SUCCESS);
        EXPECT_TRUE(events::wait_for_user(who.number(), before + 1));
    }

    void break_link() {
        server.close_async();
        EXPECT_TRUE(wait_until_link_is_broken());
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
