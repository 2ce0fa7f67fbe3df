// netcm and the server mean the same by the words that the library only carries.
#include "ServerWords.h"

#include <gtest/gtest.h>

#include "protocol/pm_errors.h"
#include "protocol/status.h"

namespace quorvel::netcm {
namespace {

TEST(NetcmServerWords, name_every_error_of_the_profile_manager) {
    for (const cm::PmErrorEntry& error : cm::kPmErrors) {
        const ServerError* known = find_server_error(error.number);
        ASSERT_NE(known, nullptr) << error.name;
        EXPECT_STREQ(known->name, error.name);
        EXPECT_STREQ(known->text, error.text);
    }
    EXPECT_EQ(find_server_error(100), nullptr);
    EXPECT_EQ(find_server_error(119), nullptr);
}

TEST(NetcmServerWords, explain_every_reason) {
    for (int32_t reason = 1; reason_text(reason) != nullptr; ++reason) {
        EXPECT_EQ(reason_text(reason), cm::to_text(static_cast<cm::Reason>(reason)));
    }
    EXPECT_EQ(cm::to_text(static_cast<cm::Reason>(7)), "reason 7");
    EXPECT_EQ(reason_text(7), nullptr);
    EXPECT_EQ(reason_text(-1), nullptr);
}

}  // namespace
}  // namespace quorvel::netcm
