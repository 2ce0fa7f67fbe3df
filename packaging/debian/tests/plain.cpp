// An application in C++ over the C headers: registers, opens the default connection, prints its interface,
// closes.
#include <quorvel/NetCM.h>

#include <future>
#include <iostream>

namespace {
struct Answer {
    int32_t result;
    NetCMConnInfo connection;
};
std::promise<Answer> opened;
std::promise<void> closed;

void on_event(NetCMEvent* event) {
    if (event->EventType == NETCM_EVENT_OPEN_RSP)
        opened.set_value({event->Result,
                          event->Result == 0 ? *static_cast<NetCMConnInfo*>(event->Data) : NetCMConnInfo{}});
    else if (event->EventType == NETCM_EVENT_CLOSE_RSP)
        closed.set_value();
}
}  // namespace

int main() {
    const int32_t default_profile = 0;
    if (NetCMClientRegister(on_event) != NETCM_SUCCESS ||
        NetCMConnectionOpen(&default_profile, 1) != NETCM_SUCCESS)
        return 1;
    const Answer answer = opened.get_future().get();
    if (answer.result != 0)
        return 1;
    std::cout << "interface   " << answer.connection.IfaceName << std::endl;
    if (NetCMConnectionClose(answer.connection.ProfileId) != NETCM_SUCCESS)
        return 1;
    closed.get_future().get();
    return NetCMClientDeRegister() == NETCM_SUCCESS ? 0 : 1;
}
