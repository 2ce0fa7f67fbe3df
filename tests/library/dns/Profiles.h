// Profiles that are open, as the client table shows them: what a lookup over a profile needs, without a
// server.
#pragma once

#include <gtest/gtest.h>

#include "quorvel/NetCM.h"

namespace quorvel::test::dns {

// The connection of profile 1 in the client table; a null server is none.
void open_profile(const char* ifname, const char* primary, const char* secondary = nullptr);
// Another profile, on a call of its own (1 to 3).
void open_profile(int32_t call, int32_t profile, const char* ifname, const char* primary,
                  const char* secondary = nullptr);
void set_active(int32_t call, bool active);

inline constexpr int kProfile = 1;

// A registered process with profile 1 open on the loopback device and no DNS server; none when the test ends.
class ProfileTest : public ::testing::Test {
  protected:
    ProfileTest();
    ~ProfileTest() override;
};

}  // namespace quorvel::test::dns
