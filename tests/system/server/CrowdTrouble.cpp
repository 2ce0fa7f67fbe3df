// The trouble that a client of the crowd makes for itself, through the operator's socket.
#include "control/client.h"
#include "server/CrowdClient.h"

namespace quorvel::test {
namespace {

constexpr const char* kDefaultAnswer = "NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP";

}  // namespace

void CrowdClient::control(const nlohmann::json& command) {
    try {
        cm::ask_server(wire::kServerPath, command);
    } catch (const cm::AskError& error) {
        // Refused, too, when the server has been away: it does not know this client any more.
        throw NoServer(error.what());
    }
}

void CrowdClient::fault(const char* kind, uint32_t value, const char* event) {
    control({{"command", "fault"},
             {"kind", kind},
             {"value", value},
             {"client", client_->id()},
             {"event", event},
             {"times", 1}});
}

void CrowdClient::make_trouble() {
    switch (pick(8)) {
        case 0:
            return be_answered_late();
        case 1:
            return be_answered_wrongly();
        case 2:
            return be_answered_by_half();
        case 3:
            return be_answered_with_a_wrong_count();
        case 4:
            return not_be_answered();
        case 5:
            return lose_a_socket();
        case 6:
            return talk_nonsense();
        default:
            return die_in_mid_sentence();
    }
}

void CrowdClient::be_answered_late() {
    fault("late", 1 + pick(20), kDefaultAnswer);
    ask_default();
}

void CrowdClient::be_answered_wrongly() {
    fault("code", 118, kDefaultAnswer);
    expect(client_->ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Code == 118, "no wrong code");
    fault("status", 5, kDefaultAnswer);
    expect(ask(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ).Status == 5, "no chosen status");
    ask_default();
}

void CrowdClient::be_answered_by_half() {
    fault("half", 0, kDefaultAnswer);
    client_->tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    const std::string half = client_->sync().bytes(sizeof(wire::Record) / 2);
    expect(static_cast<uint8_t>(half[0]) == wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_RSP,
           "half of something else");
    ask_default();
}

void CrowdClient::be_answered_with_a_wrong_count() {
    const uint32_t count = 17 + pick(1000);
    fault("count", count, "NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP");
    ask(wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ);
    expect(client_->sync().block<wire::ProfileIdBlock>().Count == count, "no wrong count");
}

void CrowdClient::not_be_answered() {
    fault("silent", 0, kDefaultAnswer);
    client_->tell(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    ask(wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ);
}

void CrowdClient::lose_a_socket() {
    const bool sync = pick(2) == 0;
    control({{"command", "close"}, {"client", client_->id()}, {"socket", sync ? "sync" : "async"}});
    client_->async().drain();
    if (sync)
        client_->sync().drain();
    else
        ask_default();
    client_.reset();
}

void CrowdClient::talk_nonsense() {
    client_->tell(3);
    client_->sync().drain();
    client_->async().drain();
    client_.reset();
}

void CrowdClient::die_in_mid_sentence() {
    client_->sync().send(std::string(pick(24), '\x07'));
    client_.reset();
}

}  // namespace quorvel::test
