#include "Event.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <span>

#include "Hex.h"
#include "Printer.h"
#include "ServerWords.h"
#include "command-line/UtcTime.h"

namespace quorvel::netcm {
namespace {

struct EventName {
    uint32_t type;
    const char* name;
};

constexpr std::array kEventNames{
    EventName{NETCM_EVENT_OPEN_RSP, "open_response"},
    EventName{NETCM_EVENT_CLOSE_RSP, "close_response"},
    EventName{NETCM_EVENT_KILL_RSP, "kill_response"},
    EventName{NETCM_EVENT_STOP_IND, "stop"},
    EventName{NETCM_EVENT_SUSPEND_IND, "suspend"},
    EventName{NETCM_EVENT_RESUME_IND, "resume"},
    EventName{NETCM_EVENT_TUNNEL_RSP, "tunnel_response"},
    EventName{NETCM_EVENT_TUNNEL_IND, "tunnel_data"},
    EventName{NETCM_EVENT_NETWORK_STATUS_IND, "network_status"},
    EventName{NETCM_EVENT_IP_CHANGE_IND, "ip_change"},
    EventName{NETCM_EVENT_PROPER_PROFILE_RSP, "proper_profile"},
};

std::string event_name(uint32_t type) {
    const auto found = std::ranges::find(kEventNames, type, &EventName::type);
    return found == kEventNames.end() ? "event_" + std::to_string(type) : found->name;
}

EventData copy_data(const NetCMEvent& event) {
    const auto words = static_cast<const int32_t*>(event.Data);
    switch (event.EventType) {
        case NETCM_EVENT_TUNNEL_RSP:
        case NETCM_EVENT_TUNNEL_IND: {
            const auto& tunnel = *static_cast<const NetCMTunnelData*>(event.Data);
            const std::span bytes(static_cast<const uint8_t*>(tunnel.Data), tunnel.DataLength);
            return TunnelBytes{tunnel.RequestId, {bytes.begin(), bytes.end()}};
        }
        case NETCM_EVENT_NETWORK_STATUS_IND:
            return NetworkStatus{{words[0], words[1]}};
        case NETCM_EVENT_PROPER_PROFILE_RSP:
            return ProperProfile{static_cast<uint32_t>(words[0]), words[1]};
        case NETCM_EVENT_OPEN_RSP:
        case NETCM_EVENT_IP_CHANGE_IND:
            if (event.Result == NETCM_SUCCESS) {
                return *static_cast<const NetCMConnInfo*>(event.Data);
            }
            [[fallthrough]];
        default:
            return Reason{*words};
    }
}

bool ends_a_request(uint32_t type) {
    return type == NETCM_EVENT_OPEN_RSP || type == NETCM_EVENT_CLOSE_RSP || type == NETCM_EVENT_KILL_RSP ||
           type == NETCM_EVENT_STOP_IND;
}

// What the result means, or the reason behind it, where that is known.
const char* meaning_of(const Event& event) {
    constexpr int32_t kServerGone = 2;
    constexpr int32_t kKilled = 22;
    if (const Reason* reason = std::get_if<Reason>(&event.data)) {
        return ends_a_request(event.type) ? reason_text(reason->word) : nullptr;
    }
    if (event.type != NETCM_EVENT_STOP_IND) {
        return nullptr;
    }
    return event.result == kServerGone ? "the CM server has gone"
           : event.result == kKilled   ? "the connection was killed"
                                       : nullptr;
}

struct DataToJson {
    Json& out;

    void operator()(std::monostate) const {}
    void operator()(const Reason& reason) const { out["reason"] = reason.word; }
    void operator()(const NetCMConnInfo& info) const { out.update(to_json(info)); }
    void operator()(const NetworkStatus& status) const {
        out["status"] = status.words;
        const auto name = [](int32_t word) { return network_status_text(static_cast<uint32_t>(word)); };
        if (const auto [pdp, wifi] = std::pair(name(status.words[0]), name(status.words[1])); pdp && wifi) {
            out["meaning"] = std::string("packet data ") + pdp + ", Wi-Fi " + wifi;
        }
    }
    void operator()(const TunnelBytes& tunnel) const {
        out["request_id"] = tunnel.request_id;
        out["length"] = tunnel.bytes.size();
        if (tunnel.bytes.empty()) {
            return;
        }
        out["data"] = hex_text(tunnel.bytes);
        const std::string text(tunnel.bytes.begin(), tunnel.bytes.end());
        if (std::ranges::all_of(text, [](unsigned char c) { return std::isprint(c) != 0; })) {
            out["text"] = text;
        }
    }
    void operator()(const ProperProfile& proper) const {
        out["app_id"] = proper.app_id;
        out["status"] = proper.status;
    }
};

}  // namespace

Event copy_event(const NetCMEvent& event) {
    const EventData data = event.Data == nullptr ? EventData{} : copy_data(event);
    return {std::chrono::system_clock::now(), event.EventType, event.ProfileId, event.Result, data};
}

std::string address_text(const NetCMAddr& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    if (address.Type != 0 || inet_ntop(AF_INET, address.Addr, text.data(), text.size()) == nullptr) {
        return "address of type " + std::to_string(address.Type);
    }
    return text.data();
}

Json to_json(const NetCMConnInfo& info) {
    Json servers = Json::array();
    for (const NetCMAddr& server :
         std::span(info.DnsAddr)
             .first(std::min<size_t>(static_cast<size_t>(std::max(info.DnsCount, 0)),
                                     std::size(info.DnsAddr)))) {
        // An empty second place is no server: the library reports two whatever there is.
        if (const std::string text = address_text(server); text != "0.0.0.0") {
            servers.push_back(text);
        }
    }
    Json out{{"profile_id", info.ProfileId},
             {"interface", info.IfaceName},
             {"address", address_text(info.IpAddr)},
             {"dns_servers", servers}};
    if (info.HasOptAddr1 == 1) {
        out["optional_address_1"] = address_text(info.OptAddr1);
    }
    if (info.HasOptAddr2 == 1) {
        out["optional_address_2"] = address_text(info.OptAddr2);
    }
    return out;
}

Json to_json(const Event& event) {
    Json out{{"time", command_line::utc_time(event.time)}, {"event", event_name(event.type)}};
    if (event.profile > 0) {
        out["profile_id"] = event.profile;
    }
    out["result"] = event.result;
    std::visit(DataToJson{out}, event.data);
    if (const char* meaning = meaning_of(event)) {
        out["meaning"] = meaning;
    }
    return out;
}

}  // namespace quorvel::netcm
