#include "server/CrowdClient.h"

#include <cstring>
#include <thread>

#include "control/client.h"

namespace quorvel::test {
namespace {

using nlohmann::json;

constexpr uint32_t kNetworkEndedIt = 21;
constexpr uint32_t kAnotherKilledIt = 22;
constexpr int32_t kFactoryProfile = 1;

template <size_t Size>
std::string text(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

}  // namespace

const char* crowd_config() {
    return R"(
[[network]]
apn = "link"
interface = "lo"
[[network]]
apn = "slow"
bearer = "simulated"
interface = "slow0"
delay = 3
[[network]]
apn = "refusing"
bearer = "simulated"
refusal = 5
[[network]]
apn = "unsteady"
bearer = "simulated"
interface = "unsteady0"
lost-after = 20
[[profile]]
name = "factory"
apn = "link"
)";
}

NetPMProfile crowd_profile(size_t number) {
    return pdp_profile("client " + std::to_string(number),
                       kCrowdNetworks[number % kCrowdNetworks.size()].access_point);
}

CrowdClient::CrowdClient(CrowdWorld& world, size_t number, unsigned seed)
    : world_(world),
      place_(world.places.at(number)),
      number_(number),
      network_(kCrowdNetworks[number % kCrowdNetworks.size()]),
      random_(seed) {}

void CrowdClient::expect(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
    ++place_.answers;
}

void CrowdClient::live() {
    while (!world_.over) {
        const uint32_t outages = world_.outages;
        try {
            live_once();
        } catch (const NoServer& error) {
            const bool server_was_away = outages % 2 == 1 || outages != world_.outages;
            if (!server_was_away)
                throw std::runtime_error(std::string("without a reason: ") + error.what());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
}

void CrowdClient::live_once() {
    client_.reset();
    call_.reset();
    client_.emplace(static_cast<uint32_t>(number_));
    while (client_ && !world_.over) {
        act();
        std::this_thread::sleep_for(std::chrono::milliseconds(pick(4)));
    }
}

void CrowdClient::act() {
    switch (pick(8)) {
        case 0:
            return ask_around();
        case 1:
            return tunnel();
        case 2:
            return change_profile();
        case 3:
            return read_profile();
        case 4:
            return bind();
        case 5:
            return call_ ? close() : open();
        case 6:
            return pick(8) == 0 ? kill() : tunnel();
        default:
            return make_trouble();
    }
}

wire::Record CrowdClient::ask(uint32_t command, const Arguments& arguments) {
    const wire::Record answer = client_->ask(command, arguments);
    expect(answer.Code == wire::find_command(command)->answer, "the answer belongs to another request");
    return answer;
}

void CrowdClient::ask_default() {
    expect(ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Word2 == kFactoryProfile,
           "another default profile");
}

void CrowdClient::ask_around() {
    ask_default();
    expect(ask(wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ).Word8 == 3, "another network status");
    expect(ask(wire::NETCM_CLIENT_SET_SETTINGS_REQ, {.Arg3 = 1, .Arg4 = pick(100)}).Status == 0,
           "a setting is refused");
    expect(ask(wire::NETCM_CLIENT_GET_SETTINGS_REQ, {.Arg3 = 1}).Word2 < 100, "a setting that nobody made");
    ask(wire::NETCM_CLIENT_GET_STAT_INFO_REQ);
    client_->sync().block<wire::StatisticsBlock>();
    ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ);
    const auto ids = client_->sync().block<wire::ProfileIdBlock>();
    expect(ids.Count <= std::size(ids.ProfileId), "more ids than there is room for");
    for (uint32_t i = 0; i < ids.Count; ++i)
        expect(ids.ProfileId[i] > 0 && ids.ProfileId[i] <= static_cast<int32_t>(kCrowd) + kFactoryProfile,
               "a profile that there is not");
    ask(wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ, {.Param = NETCM_IFACE_PDP});
    expect(client_->sync().block<wire::ActiveConnectionBlock>().Count <= kCrowdNetworks.size(),
           "more connections than there are networks");
}

void CrowdClient::tunnel() {
    std::string data = "client " + std::to_string(number_) + ": " + std::to_string(random_());
    data.resize(data.size() + pick(3000), 'x');
    const auto length = static_cast<uint32_t>(data.size());
    client_->tell(wire::NETCM_CLIENT_TUNNEL_REQ, {.Arg4 = length}, data);
    const wire::Record answer = client_->sync().record();
    expect(answer.Code == wire::NETCM_CLIENT_TUNNEL_RSP && answer.Status == 0, "no answer to tunnel data");
    const wire::Record response = event();
    expect(response.Code == wire::NETCM_CLIENT_TUNNEL_RSP && response.CallId == answer.CallId &&
               response.Word2 == length,
           "the response to another client's tunnel data");
    expect(client_->async().bytes(length) == data, "another client's tunnel data");
}

void CrowdClient::change_profile() {
    NetPMProfile changed = crowd_profile(number_);
    changed.PdpProfInfo.lingerTime = static_cast<int32_t>(++place_.asked);
    const PmAnswer answer = ask_pm(*client_, 2, place_.profile, slot(changed));
    expect(answer.code == 102 && answer.error == 0 && answer.profile == place_.profile,
           "its profile cannot be changed");
    place_.kept = place_.asked;
}

// What the server has said it has taken is there, whatever has happened to the server since.
void CrowdClient::read_profile() {
    const PmAnswer answer = ask_pm(*client_, 4, place_.profile);
    expect(answer.code == 104 && answer.error == 0 && answer.data.size() == sizeof(NetPMProfile) + 4,
           "its profile cannot be read");
    NetPMProfile read{};
    answer.data.copy(reinterpret_cast<char*>(&read), sizeof(read));
    expect(text(read.ProfileName) == text(crowd_profile(number_).ProfileName), "another client's profile");
    const auto linger = static_cast<uint32_t>(read.PdpProfInfo.lingerTime);
    expect(linger == place_.kept || linger == place_.asked, "its profile is not as it was kept");
    place_.kept = place_.asked = linger;
}

void CrowdClient::bind() {
    constexpr uint32_t kKnownAlready = 114;
    const auto application = static_cast<uint32_t>(1000 + number_);
    const AppMessage added = ask_app(*client_, {.command = 1, .id = application});
    expect(added.result == 0 || added.result == kKnownAlready, "its application is refused");
    const AppMessage bound =
        ask_app(*client_, {.command = 5, .id = application, .profile = profile(), .with_profile = 1});
    expect(bound.result == 0, "its application cannot be bound");
    expect(ask_app(*client_, {.command = 4, .id = application}).profile == profile(),
           "its application has another binding");
}

// An event about its connection that it has not asked for.
void CrowdClient::note(const wire::Record& event) {
    expect(call_ == event.CallId && event.Word2 == profile(), "an event about another client's connection");
    if (event.Code == wire::NETCM_CLIENT_IP_CHANGE_IND)
        client_->async().block<wire::ConnectionBlock>();
    if (event.Code != wire::NETCM_CLIENT_STOP_IND)
        return;
    const bool ended_by_itself =
        event.Status == kNetworkEndedIt && event.Word5 == network_.end && network_.end != 0;
    expect(ended_by_itself || event.Status == kAnotherKilledIt, "its connection has ended without a reason");
    call_.reset();
}

std::optional<wire::Record> CrowdClient::event_until_end() {
    while (true) {
        const wire::Record event = client_->event();
        switch (event.Code) {
            case wire::NETCM_CLIENT_STOP_IND:
            case wire::NETCM_CLIENT_SUSPEND_IND:
            case wire::NETCM_CLIENT_RESUME_IND:
            case wire::NETCM_CLIENT_IP_CHANGE_IND:
                note(event);
                if (!call_)
                    return std::nullopt;
                break;
            default:
                return event;
        }
    }
}

wire::Record CrowdClient::event() {
    while (true)
        if (const auto event = event_until_end())
            return *event;
}

void CrowdClient::open() {
    const wire::Record answer = ask(wire::NETCM_CLIENT_START_REQ, {.Arg4 = profile()});
    expect(answer.Status == 0 && answer.Word2 == profile() && answer.CallId < 4, "no call");
    call_ = answer.CallId;
    const auto response = event_until_end();
    if (!response)
        return;  // somebody was quicker to kill it
    expect(response->Code == wire::NETCM_CLIENT_START_RSP && response->CallId == *call_ &&
               response->Word2 == profile(),
           "no response to an open");
    if (network_.refusal != 0) {
        expect(response->Status == kNetworkEndedIt && response->Word5 == network_.refusal, "no refusal");
        call_.reset();
        return;
    }
    expect(response->Status == 0, "refused");
    const auto block = client_->async().block<wire::ConnectionBlock>();
    expect(text(block.IfaceName) == network_.interface, "another network's connection");
}

void CrowdClient::close() {
    const uint32_t call = *call_;
    client_->tell(wire::NETCM_CLIENT_STOP_REQ, {.Arg3 = call, .Arg4 = profile()});
    const wire::Record response = event();
    expect(response.Code == wire::NETCM_CLIENT_STOP_RSP && response.CallId == call &&
               response.Word2 == profile(),
           "no response to a close");
    expect(response.Status == status_of_an_end(), "a close of something else");
    call_.reset();
}

void CrowdClient::kill() {
    client_->tell(wire::NETCM_CLIENT_KILL_REQ, {.Arg4 = profile()});
    const wire::Record response = event();
    expect(response.Code == wire::NETCM_CLIENT_KILL_RSP && response.Word2 == profile(),
           "no response to a kill");
    expect(response.Status == status_of_an_end(), "a kill of something else");
    call_.reset();
}

// The network, or somebody else, may have ended the connection first.
uint32_t CrowdClient::status_of_an_end() const {
    return call_ ? uint32_t{NETCM_SUCCESS} : uint32_t{NETCM_ERR_NOT_ACTIVE};
}

}  // namespace quorvel::test
