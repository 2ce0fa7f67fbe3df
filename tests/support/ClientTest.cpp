#include "support/ClientTest.h"

namespace quorvel::test {

int32_t User::transport_error() {
    int32_t error = 0;
    EXPECT_EQ(run([&] { return NetCMGetTransportError(&error); }), 0u);
    return error;
}

ClientTest::ClientTest() : users_(events::kUsers) {}

ClientTest::~ClientTest() {
    calls::reset();
    // What the test has left open is of no more interest. A receiver that ends on a reset looks at it without
    // the mutex: the library's own operation keeps out of its way.
    with_table([](NetCMClientAppInfo&) {
        for (int32_t index = 0; index < NETCM_MAX_CALLS; ++index)
            NetCMClientCleanCallInfo(index);
        return 0;
    });
    for (const std::unique_ptr<User>& user : users_)
        if (user != nullptr)
            user->deregister();
    server.stop();
}

User& ClientTest::user(int number) {
    std::unique_ptr<User>& place = users_.at(static_cast<size_t>(number));
    if (place == nullptr)
        place = std::make_unique<User>(number);
    return *place;
}

User& ClientTest::registered(int number) {
    User& who = user(number);
    EXPECT_EQ(who.register_client(), 0u);
    return who;
}

int32_t ClientTest::bring_up(User& who, int32_t profile) {
    EXPECT_EQ(who.open(profile), 0u);
    int32_t call_id = -1;
    int32_t index = -1;
    with_table([&](NetCMClientAppInfo&) { return NetCMGetCallIdFromProfileId(profile, &call_id, &index); });
    const size_t events_before = events::count();
    EXPECT_TRUE(server.push(start_response(call_id, profile), connection_block()));
    EXPECT_TRUE(events::wait_for(events_before + 1));
    return call_id;
}

bool ClientTest::wait_until_link_is_broken() {
    return trace::wait_for("Quorvel connection got reset, close the thread \n") && eventually(link_is_broken);
}

}  // namespace quorvel::test
