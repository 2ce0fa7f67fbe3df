// The client table by itself: one thread fills it in by hand and asks the table's operations.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "client/CM/src/NetCMPrivate.h"
#include "quorvel/NetCM.h"
#include "support/TraceCapture.h"

namespace quorvel::test {

inline constexpr char kUnit[] = "client/CM/src/NetCMIntf";

class TableTest : public ::testing::Test {
  protected:
    TableTest() { NetCMClientLibInit(); }
    ~TableTest() override {
        NetCMClientLibInit();
        table.IsRegistered = 0;
    }

    // A call in use.
    NetCMCallInfo& call(int index) {
        NetCMCallInfo& info = table.CallInfo[index];
        info.InUse = 1;
        info.CallId = index;
        return info;
    }
    // One use of a call: of the thread with that index, with these profiles.
    NetCMThreadProf& use(int call_index, int entry, int thread_index,
                         std::initializer_list<int32_t> profiles) {
        NetCMThreadProf& prof = call(call_index).ThreadProf[entry];
        prof.ThreadIndex = thread_index;
        int slot = 0;
        for (const int32_t profile : profiles)
            prof.ProfileId[slot++] = profile;
        return prof;
    }
    void fill(NetCMThreadProf& prof) {
        for (int32_t slot = 0; slot < NETCM_MAX_PROFILES; ++slot)
            prof.ProfileId[slot] = 100 + slot;
    }

    NetCMClientAppInfo& table = g_NetCMClientAppInfo;
};

}  // namespace quorvel::test
