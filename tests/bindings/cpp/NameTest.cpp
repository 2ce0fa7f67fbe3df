// Names over a connection, with a real DNS server.
#include <future>

#include "Bound.h"

namespace quorvel::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kConfig = R"(
[[network]]
kind = "pdp"
interface = "lo"

[[profile]]
name = "Internet"
kind = "pdp"
apn = "internet.example"
dns = ["127.0.0.1"]
default = true
)";

class CppName : public ::testing::Test {
  protected:
    CppName() { names.wait_for_err("started"); }

    Program names{{"/usr/sbin/dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
                   "--pid-file=", "--listen-address=127.0.0.1", "--bind-interfaces", "--local-ttl=60",
                   "--host-record=www.example,192.0.2.80", "--host-record=slow.example,192.0.2.81",
                   "--cname=alias.example,www.example"}};
    CmServer server{kConfig};
    Registration registration;
    Connection connection = registration.open();
};

TEST_F(CppName, are_resolved_with_aliases) {
    const Host host = connection.resolve("alias.example");
    EXPECT_EQ(host.name, "www.example");
    EXPECT_THAT(host.aliases, ElementsAre("alias.example"));
    EXPECT_THAT(host.addresses, ElementsAre(Address::parse("192.0.2.80").value()));
    EXPECT_EQ(connection.name_of(host.addresses[0]), "www.example");
    EXPECT_EQ(connection.resolve("localhost").addresses[0].to_string(), "127.0.0.1");
}

TEST_F(CppName, are_resolved_later) {
    std::future<Host> good = connection.resolve_later("www.example");
    EXPECT_EQ(good.get().addresses.size(), 1u);
#if !defined(__SANITIZE_THREAD__)  // which does not see how the standard library counts an exception's owners
    std::future<Host> bad = connection.resolve_later("nobody.example");
    EXPECT_EQ(code_of([&] { bad.get(); }), NameError::not_found);
#endif
    // Nobody waits for this one.
    static_cast<void>(connection.resolve_later("www.example"));
}

TEST_F(CppName, that_are_none_or_unknown_are_errors) {
    EXPECT_EQ(code_of([&] { connection.resolve("nobody.example"); }), NameError::not_found);
    EXPECT_EQ(code_of([&] { connection.resolve("not a name"); }), NameError::refused);
    EXPECT_EQ(code_of([&] { connection.resolve(std::string("www.example\0x", 13)); }), NameError::refused);
    EXPECT_EQ(code_of([&] { connection.name_of(*Address::parse("192.0.2.99")); }), NameError::not_found);
    std::error_code error;
    EXPECT_TRUE(connection.resolve("nobody.example", 20s, error).addresses.empty());
    EXPECT_EQ(error, NameError::not_found);
    connection.close();
    const std::optional<Error> closed = error_of([&] { connection.resolve("www.example"); });
    ASSERT_TRUE(closed);
    EXPECT_EQ(closed->code(), NameError::refused);
    EXPECT_THAT(closed->what(), HasSubstr("cannot resolve www.example"));
}

// The library has ten places, and a worker keeps its own a little longer than its answer takes.
TEST_F(CppName, of_many_threads_at_once_wait_for_their_turn) {
    std::vector<std::future<Host>> all;
    for (int i = 0; i < 40; ++i)
        all.push_back(std::async(std::launch::async, [&] {
            Host host;
            for (int round = 0; round < 5; ++round)
                host = connection.resolve("www.example");
            return host;
        }));
    for (std::future<Host>& one : all)
        EXPECT_EQ(one.get().name, "www.example");
}

TEST_F(CppName, that_take_too_long_are_left_to_themselves) {
    names.send_signal(SIGSTOP);
    EXPECT_EQ(code_of([&] { connection.resolve("slow.example", 20ms); }), std::errc::timed_out);
    names.send_signal(SIGCONT);
    EXPECT_EQ(connection.resolve("slow.example").name, "slow.example");
}

}  // namespace
}  // namespace quorvel::test
