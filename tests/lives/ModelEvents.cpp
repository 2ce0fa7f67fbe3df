// What callbacks may hear.
#include <algorithm>
#include <cstring>

#include "Model.h"

namespace quorvel::lives {
namespace {

int32_t word_at(const void* data, size_t index = 0) {
    int32_t word = 0;
    std::memcpy(&word, static_cast<const char*>(data) + index * sizeof word, sizeof word);
    return word;
}

bool carries_details(const NetCMEvent& event) {
    return event.EventType == NETCM_EVENT_IP_CHANGE_IND ||
           (event.EventType == NETCM_EVENT_OPEN_RSP && event.Result == 0);
}

const char* name_of(uint32_t type) {
    constexpr const char* kNames[] = {"open response",  "close response", "kill response", "stop",
                                      "suspend",        "resume",         "tunnel answer", "tunnel data",
                                      "network status", "IP change",      "proper profile"};
    return type < std::size(kNames) ? kNames[type] : "unknown event";
}

}  // namespace

void Model::hear(int user, const NetCMEvent& event) {
    const Lock lock(mutex_);
    history_.note(user, "  hears: %s, profile %d, result %d", name_of(event.EventType), event.ProfileId,
                  event.Result);
    std::string wrong;
    if (!registrations_.may_be_in(user)) {
        wrong = "the thread is not registered";
    } else {
        switch (event.EventType) {
            case NETCM_EVENT_KILL_RSP:
                wrong = hear_kill(user, event);
                break;
            case NETCM_EVENT_TUNNEL_RSP:
            case NETCM_EVENT_TUNNEL_IND:
                wrong = hear_tunnel(user, event);
                break;
            case NETCM_EVENT_NETWORK_STATUS_IND:
                wrong = event.ProfileId == -1 && event.Result == 0 && event.Data != nullptr &&
                                word_at(event.Data, 1) == ~word_at(event.Data)
                            ? hear_broadcast(user, static_cast<uint32_t>(word_at(event.Data)), false)
                            : "the event does not fit together";
                break;
            case NETCM_EVENT_PROPER_PROFILE_RSP:
                wrong = hear_proper_profile(user, event);
                break;
            default:
                wrong = hear_open_etc(user, event);
        }
    }
    if (!wrong.empty())
        object("user" + std::to_string(user) + " hears: " + name_of(event.EventType) + ", profile " +
               std::to_string(event.ProfileId) + ", result " + std::to_string(event.Result) + ": " + wrong);
    hearing_.push_back({user, event.EventType, event.ProfileId});
    changed_.notify_all();
}

void Model::has_heard(int user, const NetCMEvent& event) {
    const Lock lock(mutex_);
    const auto found = std::find_if(hearing_.begin(), hearing_.end(), [&](const Hearing& one) {
        return one.user == user && one.type == event.EventType && one.profile == event.ProfileId;
    });
    hearing_.erase(found);
}

size_t Model::count_hearing(const std::function<bool(const Hearing&)>& which) const {
    return static_cast<size_t>(std::count_if(hearing_.begin(), hearing_.end(), which));
}

// Of everybody's use of these profiles, or of one user's.
bool Model::hears_end(int user, int32_t first_profile, int32_t last_profile) const {
    return 0 != count_hearing([&](const Hearing& one) {
               const bool is_end = one.type != NETCM_EVENT_KILL_RSP || user == kNobody;
               return is_end && one.type <= NETCM_EVENT_STOP_IND && (one.user == user || user == kNobody) &&
                      one.profile >= first_profile && one.profile <= last_profile;
           });
}

// Whatever is about a connection.
std::string Model::hear_open_etc(int user, const NetCMEvent& event) {
    Heard heard{event.EventType, event.ProfileId, static_cast<uint32_t>(event.Result)};
    if (carries_details(event)) {
        if (event.Data == nullptr)
            return "there are no details";
        NetCMConnInfo info{};
        std::memcpy(&info, event.Data, sizeof info);
        heard.address = address_of(info);
        if (!heard.address || info.ProfileId != event.ProfileId)
            return "the details do not fit together: those of profile " + std::to_string(info.ProfileId) +
                   (heard.address ? " on connection " + std::to_string(heard.address->serial)
                                  : ", with an address of no connection");
        history_.note(user, "  of connection %d, address %d", heard.address->serial, heard.address->change);
    } else if (heard.result == kStatusWithReason) {
        if (event.Data == nullptr)
            return "there is no reason";
        const int32_t reason = word_at(event.Data);
        // Of suspensions the library itself makes the word.
        if (event.EventType == NETCM_EVENT_SUSPEND_IND || event.EventType == NETCM_EVENT_RESUME_IND) {
            if (reason != (event.EventType == NETCM_EVENT_SUSPEND_IND ? 1 : 0))
                return "the word is " + std::to_string(reason);
        } else {
            heard.reason = reason;
        }
    } else if (event.Data != nullptr) {
        return "there is data";
    }
    return uses_.hear(user, heard);
}

std::string Model::hear_kill(int user, const NetCMEvent& event) {
    const auto status = static_cast<uint32_t>(event.Result);
    std::optional<int32_t> reason;
    if ((status == kStatusWithReason) != (event.Data != nullptr))
        return "the data do not fit";
    if (event.Data != nullptr)
        reason = word_at(event.Data);
    if (!truth_.has_pushed(Pushed::What::Kill, event.ProfileId, status, reason))
        return "the server has not said so";
    return kills_.tell(user, event.ProfileId, registrations_.instance(user)) ? ""
                                                                             : "the thread has not killed it";
}

std::string Model::hear_tunnel(int user, const NetCMEvent& event) {
    if (event.ProfileId != -1 || event.Result != 0 || event.Data == nullptr)
        return "the event does not fit together";
    NetCMTunnelData data{};
    std::memcpy(&data, event.Data, sizeof data);
    const std::string meant = tunnel_bytes(data.RequestId);
    const bool fits = data.Param == -1 && data.DataLength == meant.size() &&
                      (meant.empty() || std::memcmp(data.Data, meant.data(), meant.size()) == 0);
    history_.note(user, "  with %u bytes of %u", data.DataLength, data.RequestId);
    if (!fits)
        return "the data are not those of " + std::to_string(data.RequestId);
    if (event.EventType == NETCM_EVENT_TUNNEL_IND)
        return hear_broadcast(user, data.RequestId, true);
    const bool is_asking = std::any_of(
        ops_.begin(), ops_.end(), [&](const Op* op) { return op->user == user && op->kind == Kind::Tunnel; });
    return tunnels_.hear(data.RequestId, user, is_asking);
}

// Whoever hears this shows that everything pushed before it has been handled.
std::string Model::hear_broadcast(int user, uint32_t number, bool tunnel) {
    const std::string wrong = broadcasts_.hear(number, tunnel, user);
    if (wrong.empty())
        truth_.handled(broadcasts_.position(number));
    return wrong;
}

std::string Model::hear_proper_profile(int user, const NetCMEvent& event) {
    if (event.Data == nullptr)
        return "there is no data";
    const int32_t application = word_at(event.Data, 1);
    const int32_t profile = word_at(event.Data, 2);
    const auto ticket = static_cast<uint32_t>(word_at(event.Data, 3));
    const bool fits = event.Result == 0 && event.ProfileId == profile &&
                      profile == static_cast<int32_t>(ticket) + application;
    const bool pushed = std::any_of(truth_.pushed().begin(), truth_.pushed().end(), [&](const Pushed& one) {
        return one.what == Pushed::What::Proper && one.profile == application && one.number == ticket;
    });
    if (!fits || !pushed)
        return "the server has not said so";
    return proper_.tell(user, application, registrations_.instance(user)) ? "" : "the thread has not asked";
}

}  // namespace quorvel::lives
