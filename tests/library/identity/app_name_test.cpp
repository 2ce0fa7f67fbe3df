#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "GConfDouble.h"
#include "quorvel/NetCM.h"
#include "support/TraceCapture.h"

namespace quorvel::test {
namespace {

using ::testing::ElementsAre;

class AppName : public ::testing::Test {
  protected:
    void SetUp() override { buffer.fill('#'); }
    void TearDown() override {
        for (const TraceLine& line : trace::lines()) {
            EXPECT_EQ(line.file, "data-networking/client/CM/src/NetCMClientAppMgrIntf");
            EXPECT_EQ(line.mask, trace::kNormal);
        }
    }

    int ask(int32_t id) { return NetCMClientGetAppName(id, buffer.data()); }

    std::string name() const { return {buffer.data(), strnlen(buffer.data(), NETCM_APP_NAME_SIZE)}; }
    // What lies behind the buffer that the library may fill.
    std::string behind() const { return {buffer.begin() + NETCM_APP_NAME_SIZE, buffer.end()}; }

    std::array<char, NETCM_APP_NAME_SIZE + 4> buffer{};

  private:
    Hook<const TraceLine&> in_between_ =
        trace::on_line([](const TraceLine& line) { gconf().calls.push_back("trace: " + line.text); });
};

TEST_F(AppName, a_configured_name_is_handed_out) {
    gconf().value = "Browser";
    EXPECT_EQ(ask(7), 0);
    EXPECT_EQ(name(), "Browser");
    EXPECT_THAT(gconf().calls,
                ElementsAre("g_type_init", "gconf_client_get_default",
                            "gconf_client_get_string /System/AppInfo/7/AppName", "g_object_unref",
                            "trace: App ID [7] App Name[Browser]\n", "g_free Browser"));
}

TEST_F(AppName, the_key_holds_any_id) {
    gconf().value = "x";
    for (const int32_t id : {INT_MIN, -1, 0, INT_MAX}) {
        gconf().calls.clear();
        EXPECT_EQ(ask(id), 0);
        EXPECT_EQ(gconf().calls.at(2),
                  "gconf_client_get_string /System/AppInfo/" + std::to_string(id) + "/AppName");
    }
}

TEST_F(AppName, an_empty_name_leaves_the_buffer_alone_and_is_not_freed) {
    gconf().value = "";
    EXPECT_EQ(ask(7), 0);
    EXPECT_EQ(name(), std::string(NETCM_APP_NAME_SIZE, '#'));
    EXPECT_THAT(gconf().calls,
                ElementsAre("g_type_init", "gconf_client_get_default",
                            "gconf_client_get_string /System/AppInfo/7/AppName", "g_object_unref"));
}

TEST_F(AppName, without_the_key_the_name_is_made_from_the_process_id) {
    const std::string fallback = "No Name_" + std::to_string(getpid());
    EXPECT_EQ(ask(7), 1);
    EXPECT_EQ(name(), fallback);
    EXPECT_THAT(
        gconf().calls,
        ElementsAre("g_type_init", "gconf_client_get_default",
                    "gconf_client_get_string /System/AppInfo/7/AppName",
                    "trace: Failed to read string value at [/System/AppInfo/7/AppName]\n", "g_object_unref",
                    "trace: Failed to get app name : app_id [7] app name[" + fallback + "]\n"));
}

TEST_F(AppName, an_error_is_freed_before_the_client) {
    gconf().gives_error = true;
    EXPECT_EQ(ask(7), 1);
    EXPECT_EQ(name(), "No Name_" + std::to_string(getpid()));
    EXPECT_EQ(gconf().calls.at(4), "g_error_free");
    EXPECT_EQ(gconf().calls.at(5), "g_object_unref");
}

TEST_F(AppName, a_name_of_255_bytes_is_terminated) {
    gconf().value = std::string(255, 'n');
    EXPECT_EQ(ask(7), 0);
    EXPECT_EQ(buffer[255], '\0');
    EXPECT_EQ(name(), *gconf().value);
    EXPECT_EQ(behind(), "####");
}

TEST_F(AppName, a_short_name_is_padded_with_zeros) {
    gconf().value = "n";
    EXPECT_EQ(ask(7), 0);
    EXPECT_EQ(std::string(buffer.data() + 1, 255), std::string(255, '\0'));
    EXPECT_EQ(behind(), "####");
}

TEST_F(AppName, longer_names_are_cut_at_256_bytes_without_a_terminator) {
    for (const size_t length : {256u, 257u, 1000u}) {
        buffer.fill('#');
        gconf().value = std::string(length, 'n');
        EXPECT_EQ(ask(7), 0);
        EXPECT_EQ(std::string(buffer.data(), 256), std::string(256, 'n'));
        EXPECT_EQ(behind(), "####");
    }
}

TEST_F(AppName, a_session_without_a_configuration_client_is_fatal) {
    gconf().has_client = false;
    EXPECT_DEATH(ask(7), R"(gconf_get_string: Assertion `p_gconf_client != \(\(void \*\)0\)' failed)");
}

}  // namespace
}  // namespace quorvel::test
