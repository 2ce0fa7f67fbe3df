// The checks of host names, and the names of this machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Host.h"
#include "Message.h"
#include "dns/src/NetDNSPrivate.h"

namespace quorvel::test::dns {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(HostNameCheck, letters_digits_dashes_and_dots_are_valid) {
    for (const char* name : {"ab", "9.9", "a-b.example", "EXAMPLE.org", "a.", "a..b", "0x", "a--b", "1-.x"})
        EXPECT_EQ(ps_check_valid_hostname(name), 0) << name;
    EXPECT_EQ(ps_check_valid_hostname(long_label(1000).c_str()), 0) << "the length is checked elsewhere";
}

TEST(HostNameCheck, other_names_are_not) {
    for (const char* name :
         {"", "a", "9", "-abc", ".abc", "abc-", "a_b", "a b", "ab ", "a/b", "\xe4\xf6", "_x"})
        EXPECT_EQ(ps_check_valid_hostname(name), 2) << name;
    EXPECT_EQ(ps_check_valid_hostname(nullptr), 2);
}

TEST(LocalName, is_localhost_in_any_case_or_an_address_that_begins_with_127) {
    for (const char* name :
         {"localhost", "LocalHost", "LOCALHOST", "127.0.0.1", "127.0.0.5", "127.255.1.2", "127.1"})
        EXPECT_EQ(ps_check_for_localhost(name), 1) << name;
}

TEST(LocalName, nothing_else_is_local) {
    for (const char* name : {"localhos", "localhost.", "localhost1", "xlocalhost", "127.example", "127.",
                             "127", "128.0.0.1", "12.7.0.1", "127.0.0.256", "255.255.255.255", ""})
        EXPECT_EQ(ps_check_for_localhost(name), 0) << name;
    EXPECT_EQ(ps_check_for_localhost(nullptr), 0);
}

class LocalHost : public ::testing::Test {
  protected:
    int generate(const char* name) {
        return generate_localhost_hostent_info(name, buffer_.data(), buffer_.size(), &host_);
    }
    HostBuffer buffer_{2048};
    hostent* host_ = nullptr;
};

TEST_F(LocalHost, has_the_loopback_address) {
    EXPECT_EQ(generate("LocalHost"), 0);
    expect_layout(host_, buffer_);
    EXPECT_STREQ(host_->h_name, "LocalHost");
    EXPECT_EQ(host_->h_name, buffer_.data() + kHostData);
    EXPECT_THAT(addresses_of(host_), ElementsAre("127.0.0.1"));
    EXPECT_THAT(aliases_of(host_), IsEmpty());
}

TEST_F(LocalHost, an_address_keeps_itself) {
    EXPECT_EQ(generate("127.0.0.5"), 0);
    EXPECT_STREQ(host_->h_name, "127.0.0.5");
    EXPECT_THAT(addresses_of(host_), ElementsAre("127.0.0.5"));
}

TEST_F(LocalHost, needs_the_stated_number_of_bytes) {
    const int needed = needed_for({"localhost"}, 1);
    for (const int length : {-1, 0, 1, kHostData, needed - 1}) {
        EXPECT_EQ(generate_localhost_hostent_info("localhost", buffer_.data(), length, &host_), 1) << length;
        EXPECT_EQ(host_, nullptr);
    }
    EXPECT_EQ(generate_localhost_hostent_info("localhost", buffer_.data(), needed, &host_), 0);
}

TEST_F(LocalHost, an_address_can_be_looked_up_by_who_does_not_ask_for_sizes_and_times) {
    int code = 99;
    host_ = dnet_gethostbyname_r("192.0.2.53", nullptr, "192.0.2.7", buffer_.data(), 2048, &code, nullptr,
                                 nullptr);
    ASSERT_NE(host_, nullptr);
    EXPECT_EQ(code, 0);
    EXPECT_THAT(addresses_of(host_), ElementsAre("192.0.2.7"));
}

TEST_F(LocalHost, a_missing_pointer_is_refused) {
    EXPECT_EQ(generate_localhost_hostent_info("localhost", nullptr, 2048, &host_), 2);
    EXPECT_EQ(generate_localhost_hostent_info("localhost", buffer_.data(), 2048, nullptr), 2);
    EXPECT_EQ(generate_localhost_hostent_info(nullptr, buffer_.data(), 2048, &host_), 2);
}

}  // namespace
}  // namespace quorvel::test::dns
