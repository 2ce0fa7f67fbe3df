// Pushed records and their blocks, with every cut and delay: the input is a row of events, and how they come.
// As long as the server is sound, what is told is what was sent: data behind a record are never taken for
// records.
#include <cstring>

#include "Fuzz.h"
#include "Link.h"
#include "client/CM/src/NetCMPrivate.h"
#include "common/Wire.h"

using namespace quorvel;
using fuzz::Link;

namespace {

constexpr int32_t kProfile = 7;
constexpr size_t kMostTunnelData = 3000;
bool is_sound = true;

// A sound server's two words of a status, and its data, say of themselves that they are what they should be.
void check(NetCMEvent* event) {
    QV_FUZZ_EXPECT(event->EventType <= NETCM_EVENT_PROPER_PROFILE_RSP);
    if (!is_sound || event->Data == nullptr)
        return;
    if (event->EventType == NETCM_EVENT_NETWORK_STATUS_IND) {
        uint32_t words[2];
        memcpy(words, event->Data, sizeof words);
        QV_FUZZ_EXPECT(words[0] == ~words[1]);
    }
    if (event->EventType == NETCM_EVENT_TUNNEL_IND) {
        const auto* tunnel = static_cast<NetCMTunnelData*>(event->Data);
        const auto* bytes = static_cast<uint8_t*>(tunnel->Data);
        for (uint32_t at = 0; at < tunnel->DataLength; ++at)
            QV_FUZZ_EXPECT(bytes[at] == static_cast<uint8_t>(tunnel->RequestId + at));
    }
    if (event->EventType == NETCM_EVENT_OPEN_RSP && event->Result == 0) {
        const auto* info = static_cast<NetCMConnInfo*>(event->Data);
        QV_FUZZ_EXPECT(strcmp(info->IfaceName, "pdp0") == 0 && info->IpAddr.Addr[0] == 10);
    }
}

wire::ConnectionBlock connection() {
    wire::ConnectionBlock block{};
    block.DnsCount = 2;
    block.IpAddr.Addr[0] = 10;
    strcpy(block.IfaceName, "pdp0");
    return block;
}

void add_call() {
    NetCMCallInfo& call = g_NetCMClientAppInfo.CallInfo[0];
    call.InUse = 1;
    call.CallId = 0;
    call.ThreadProf[0].ThreadIndex = 0;
    call.ThreadProf[0].ProfileId[0] = kProfile;
}

// Records go out whole, as a server writes them; what follows them is cut.
void send_now(Link& link, const wire::Record& record) {
    link.will_send(&record, sizeof record);
    link.send_some(SIZE_MAX);
}

wire::Record about(uint32_t code, uint32_t word2, uint32_t call) {
    return {code, 0, word2, call, 0, 0, 0, 0, 0, 0};
}

void push(Link& link, Input& input) {
    const uint8_t what = input.byte() % 8;
    const uint8_t number = input.byte();
    switch (what) {
        case 0:
        case 1: {
            const uint32_t code = what == 0 ? wire::NETCM_CLIENT_START_RSP : wire::NETCM_CLIENT_IP_CHANGE_IND;
            const wire::ConnectionBlock block = connection();
            send_now(link, about(code, kProfile, 0));
            return link.will_send(&block, sizeof block);
        }
        case 2: {
            std::vector<uint8_t> bytes(std::min<size_t>(size_t{number} * number, kMostTunnelData));
            for (size_t at = 0; at < bytes.size(); ++at)
                bytes[at] = static_cast<uint8_t>(number + at);
            send_now(link, about(wire::NETCM_CLIENT_TUNNEL_IND, static_cast<uint32_t>(bytes.size()), number));
            return link.will_send(bytes.data(), bytes.size());
        }
        case 3:
            return send_now(link, about(wire::NETCM_CLIENT_SUSPEND_IND, 0, number % 5));
        case 4:
            return send_now(link, about(wire::NETCM_CLIENT_RESUME_IND, 0, number % 5));
        case 5:
            return send_now(link, about(wire::NETCM_CLIENT_KILL_RSP, kProfile, 0));
        case 6: {
            const std::vector<uint8_t> garbage = input.bytes(number);
            is_sound = false;
            return link.will_send(garbage.data(), garbage.size());
        }
        default:
            return send_now(link,
                            about(wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND, number, ~uint32_t{number}));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    is_sound = true;
    Link link(Link::Side::Async, input, check);
    add_call();
    while (!input.empty() && !link.is_over()) {
        push(link, input);
        // As the receiver does while there is something to read.
        short events = 0;
        while (!link.is_over() && link.wait(link.fd(), events) > 0)
            if (NetCMClientLibCbk(link.fd()) <= 0)
                return 0;
    }
    return 0;
}
