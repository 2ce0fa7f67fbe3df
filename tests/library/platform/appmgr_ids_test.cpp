#include "appmgr_ids.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace quorvel::test {
namespace {

constexpr int kUntouched = 4242;

class AppManager : public ::testing::Test {
  protected:
    void SetUp() override { unsetenv("QUORVEL_APP_ID"); }

    // The error number, or 0 with the id in `id`.
    int ask(const char* setting) {
        if (setting != nullptr)
            setenv("QUORVEL_APP_ID", setting, 1);
        id = kUntouched;
        int error = 0;
        const int result = app_get_current_id(&id, &error);
        EXPECT_EQ(result, error == 0 ? 1 : 0);
        return error;
    }

    int id = kUntouched;
};

TEST_F(AppManager, there_is_no_id_without_the_variable) {
    EXPECT_EQ(ask(nullptr), ENOENT);
    EXPECT_EQ(id, kUntouched);
}

TEST_F(AppManager, the_id_is_any_number_of_32_bits) {
    for (const int wanted : {0, 1, 4711, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ask(std::to_string(wanted).c_str()), 0) << wanted;
        EXPECT_EQ(id, wanted);
    }
}

TEST_F(AppManager, what_is_no_number_is_refused_and_leaves_the_id_alone) {
    for (const char* garbage : {"", " ", "seven", "7x", " 7", "7 ", "0x7", "+7", "-", "--7", "7.0", "7\n"}) {
        EXPECT_EQ(ask(garbage), EINVAL) << '"' << garbage << '"';
        EXPECT_EQ(id, kUntouched);
    }
}

TEST_F(AppManager, what_does_not_fit_is_refused) {
    for (const char* large : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        EXPECT_EQ(ask(large), ERANGE) << large;
        EXPECT_EQ(id, kUntouched);
    }
}

TEST_F(AppManager, the_variable_is_read_at_every_request) {
    EXPECT_EQ(ask("1"), 0);
    EXPECT_EQ(ask("2"), 0);
    EXPECT_EQ(id, 2);
}

TEST_F(AppManager, null_arguments_do_no_harm) {
    EXPECT_EQ(app_get_current_id(nullptr, nullptr), 0);
    setenv("QUORVEL_APP_ID", "7", 1);
    int error = 0;
    EXPECT_EQ(app_get_current_id(nullptr, &error), 0);
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(app_get_current_id(&id, nullptr), 1);
    EXPECT_EQ(id, 7);
}

}  // namespace
}  // namespace quorvel::test
