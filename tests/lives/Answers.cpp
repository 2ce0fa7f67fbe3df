#include "Answers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "common/PmWire.h"

namespace quorvel::lives {
namespace {

using test::Bytes;
using test::Request;

template <class T>
Bytes record_and(const wire::Record& record, const T& block) {
    Bytes bytes = test::bytes_of(record);
    const Bytes more = test::bytes_of(block);
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

template <class T>
wire::Record record_with(uint32_t code, const T& words) {
    wire::Record record{};
    record.Code = code;
    static_assert(sizeof words <= sizeof record - sizeof record.Code);
    std::memcpy(&record.Word1, &words, sizeof words);
    return record;
}

// What asks for one profile, application, list or name, as a number.
int32_t subject_of(const wire::PmRequestHeader& header, const Request& request) {
    switch (header.Command) {
        case wire::NETPM_CLIENT_ADD_PROFILE_REQ:
            return static_cast<int32_t>(request.payload_as<NetPMProfile>(sizeof header).ProfileAttr);
        case wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ:
        case wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ:
            return number_of(reinterpret_cast<const char*>(request.payload.data()) + sizeof header);
        case wire::NETPM_CLIENT_GET_POFILE_LIST_REQ:
        case wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ:
            return static_cast<int32_t>(header.Arg);
        default:
            return header.ProfileId;
    }
}

// What follows the answer.
Bytes extended_data(uint32_t command, uint32_t ticket, int count) {
    switch (command) {
        case wire::NETPM_CLIENT_GET_PROFILE_REQ:
        case wire::NETPM_CLIENT_GET_DEFAULT_PROFILE_REQ:
            return test::bytes_of(wire::PmProfileSlot{.Profile = profile_of(ticket), .Zero = {}});
        case wire::NETPM_CLIENT_GET_POFILE_LIST_REQ:
        case wire::NETPM_CLIENT_GET_PROFILE_ID_FOR_APN_REQ:
        case wire::NETPM_CLIENT_FIND_PROFILE_IDS_REQ: {
            wire::PmIdListBlock block{};
            block.Count = count;
            for (int i = 0; i < count; ++i)
                block.ProfileId[i] = static_cast<int32_t>(ticket) + i;
            return test::bytes_of(block);
        }
        case wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ: {
            wire::PmPartialListBlock block{};
            for (int i = 0; i < count; ++i)
                block.Entry[i].ProfileId = static_cast<int32_t>(ticket) + i;
            Bytes bytes = test::bytes_of(block);
            bytes.resize(static_cast<size_t>(count) * sizeof block.Entry[0]);
            return bytes;
        }
        default:
            return {};
    }
}

}  // namespace

int32_t number_of(const char* text) {
    int32_t number = 0;
    std::sscanf(text, "name%d", &number);
    return number;
}

NetPMProfile profile_of(uint32_t number) {
    NetPMProfile profile{};
    profile.ProfileId = static_cast<int32_t>(number);
    profile.ProfileAttr = number;
    std::snprintf(profile.ProfileName, sizeof profile.ProfileName, "profile %u", number);
    std::strcpy(profile.ProxyAddr, "10.1.2.3:80");
    profile.PdpProfInfo.AppProtoType = 1;
    // Whoever reads on in this takes it for pushed records.
    const std::string filling = tunnel_bytes(2);
    std::memcpy(profile.PdpProfInfo.HomeURL, filling.data(),
                std::min(filling.size(), sizeof profile.PdpProfInfo.HomeURL));
    profile.PdpProfInfo.lingerTime = static_cast<int32_t>(number * 7);
    return profile;
}

bool is_profile_of(const NetPMProfile& profile, uint32_t number) {
    const NetPMProfile meant = profile_of(number);
    return std::memcmp(&profile, &meant, sizeof profile) == 0;
}

Bytes Answers::plain(const Request& request, uint32_t detail) {
    wire::Record record = test::answer_record(request.command());
    const bool refused = refuses();
    const uint32_t ticket = model_.gives_ticket({request.command(), detail, refused});
    record.Status = refused ? ticket : 0;
    return test::bytes_of(record);
}

Bytes Answers::with_ticket(const Request& request, uint32_t detail, uint32_t wire::Record::*word) {
    wire::Record record = test::answer_record(request.command());
    const bool refused = refuses();
    (refused ? record.Status : record.*word) = model_.gives_ticket({request.command(), detail, refused});
    if (word == &wire::Record::Word8)
        record.Word7 = record.Word8;
    return test::bytes_of(record);
}

template <class Block, class Fill>
Bytes Answers::list(const Request& request, uint32_t detail, Fill fill) {
    wire::Record record = test::answer_record(request.command());
    if (refuses()) {
        record.Status = model_.gives_ticket({request.command(), detail, true});
        return test::bytes_of(record);
    }
    Block block{};
    // Empty ones are another answer to the same question.
    const uint32_t count = fill(block, 0);
    const uint32_t ticket = model_.gives_ticket({request.command(), detail + (count == 0 ? 100 : 0)});
    fill(block, ticket);
    return record_and(record, block);
}

Bytes Answers::connections(const Request& request) {
    const uint32_t iface = request.header.Param;
    std::vector<int32_t> profiles = {1, 2};
    if (iface == NETCM_IFACE_PDP) {
        profiles = calls_.active();
        model_.lists(profiles);
    }
    return list<wire::ActiveConnectionBlock>(
        request, iface, [&](wire::ActiveConnectionBlock& block, uint32_t ticket) {
            block.Count = static_cast<uint32_t>(profiles.size());
            for (size_t i = 0; i < profiles.size(); ++i) {
                block.Connection[i].ProfileId = profiles[i];
                std::snprintf(block.Connection[i].Apn, sizeof block.Connection[i].Apn, "name%u", ticket);
            }
            return block.Count;
        });
}

Bytes Answers::statistics(const Request& request) {
    wire::StatisticsBlock block{};
    wire::Record record = test::answer_record(request.command());
    const bool refused = refuses();
    const uint32_t ticket = model_.gives_ticket({request.command(), 0, refused});
    if (refused) {
        record.Status = ticket;
        return test::bytes_of(record);
    }
    for (uint32_t i = 0; i < 6; ++i)
        block.Counter[i] = ticket + i;
    return record_and(record, block);
}

Bytes Answers::default_profile(const Request& request) {
    wire::Record record = test::answer_record(request.command());
    if (refuses()) {
        record.Status = model_.gives_ticket({request.command(), 0, true});
        return test::bytes_of(record);
    }
    int32_t profile = default_profile_;
    if (model_.has(kOddIds) && random_.one_in(4))
        profile = -random_.below(2);
    model_.names_default_profile(profile);
    record.Word2 = static_cast<uint32_t>(profile);
    return test::bytes_of(record);
}

Bytes Answers::tunnel(const Request& request) {
    const uint32_t param = request.header.Arg3;
    const std::string meant = tunnel_bytes(param);
    if (request.payload.size() != meant.size() ||
        (!meant.empty() && std::memcmp(request.payload.data(), meant.data(), meant.size()) != 0))
        model_.object("a tunnel request arrives with other data than it was made with");
    wire::Record record = test::answer_record(request.command());
    const bool refused = refuses();
    const uint32_t ticket = model_.gives_ticket({request.command(), param, refused});
    if (refused) {
        record.Status = ticket;
        record.Word5 = ticket + 1;
        return test::bytes_of(record);
    }
    record.CallId = ticket;
    model_.gives_tunnel(ticket);
    const std::string data = tunnel_bytes(ticket);
    wire::Record response = test::answer_record(request.command());
    response.Word2 = static_cast<uint32_t>(data.size());
    response.CallId = ticket;
    Bytes bytes = test::bytes_of(response);
    const auto* first = reinterpret_cast<const std::byte*>(data.data());
    bytes.insert(bytes.end(), first, first + data.size());
    outbox_.put({{.what = Pushed::What::Tunnel, .number = ticket}, std::move(bytes), 0});
    return test::bytes_of(record);
}

Bytes Answers::profile_manager(const Request& request) {
    const auto header = request.payload_as<wire::PmRequestHeader>();
    if (header.Command == wire::NETPM_CLIENT_ADD_PROFILE_REQ ||
        header.Command == wire::NETPM_CLIENT_MODIFY_PROFILE_REQ) {
        const auto profile = request.payload_as<NetPMProfile>(sizeof header);
        if (!is_profile_of(profile, profile.ProfileAttr))
            model_.object("a profile arrives other than it was made");
    }
    const bool refused = refuses();
    const uint32_t ticket = model_.gives_ticket(
        {request.command(), detail_of(header.Command, subject_of(header, request)), refused});
    wire::PmResponseBlock answer{};
    answer.RspCode = header.Command + wire::kPmAnswer;
    answer.ProfileId = static_cast<int32_t>(ticket);
    answer.Value = ticket;
    if (refused) {
        answer.Error = ticket;
        return test::bytes_of(record_with(wire::NETPM_PROFILE_RSP, answer));
    }
    const int count = header.Command == wire::NETPM_CLIENT_GET_POFILE_LIST_REQ
                          ? random_.below(std::min(static_cast<int>(header.Arg2), 20) + 1)
                          : random_.between(1, 20);
    if (header.Command == wire::NETPM_CLIENT_GET_PARTIAL_PROFILE_LIST_REQ)
        answer.ProfileId = count;
    if (header.Command == wire::NETPM_CLIENT_SET_DEFAULT_PROFILE_ID_REQ)
        default_profile_ = header.ProfileId;
    const Bytes data = extended_data(header.Command, ticket, count);
    answer.ExtDataLength = static_cast<uint32_t>(data.size());
    Bytes bytes = test::bytes_of(record_with(wire::NETPM_PROFILE_RSP, answer));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

Bytes Answers::application_profile(const Request& request) {
    const auto message = request.payload_as<wire::AppProfMsg>();
    const auto application = static_cast<int32_t>(message.AppProf.AppId);
    if (message.Cmd == wire::NETPM_APPPROF_ASYNC_PROPER_PROFILE) {
        push_proper_profile(application);
        return {};
    }
    wire::AppProfMsg answer{};
    answer.Cmd = message.Cmd + wire::kPmAnswer;
    const bool refused = refuses();
    const uint32_t ticket =
        model_.gives_ticket({request.command(), detail_of(message.Cmd, application), refused});
    answer.AppProf = {message.AppProf.AppId, ticket, ticket + 1, {ticket + 2, ticket + 3}};
    if (message.Cmd == wire::NETPM_APPPROF_GET_PROPER_PROFILE)
        answer.AppProf.AppId = ticket;
    if (refused && message.Cmd == wire::NETPM_APPPROF_CHECK_APP_ID)
        answer.AppProf.AppId = 0;
    else if (refused)
        answer.Result = ticket;
    return test::bytes_of(record_with(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, answer));
}

void Answers::push_proper_profile(int32_t application) {
    const uint32_t ticket = model_.gives_ticket({wire::NETPM_APPPROF_REQ, detail_of(9, application)});
    wire::Record record{};
    record.Code = wire::NETCM_CLIENT_PROPER_PROFILE_RSP;
    record.Word5 = static_cast<uint32_t>(application);
    record.Word6 = ticket + record.Word5;
    record.Word7 = ticket;
    outbox_.put({{.what = Pushed::What::Proper, .profile = application, .number = ticket},
                 test::bytes_of(record),
                 0});
}

// The library knows of no others, and has no reason to ask for them.
void Answers::expect_known(const wire::RequestHeader& header) {
    const bool is_about_call = header.Command == wire::NETCM_CLIENT_START_REQ ||
                               header.Command == wire::NETCM_CLIENT_STOP_REQ ||
                               header.Command == wire::NETCM_CLIENT_KILL_REQ;
    const auto profile = static_cast<int32_t>(header.Arg4);
    if (is_about_call && (profile < 1 || profile > kProfiles || header.Arg3 >= kCallIds))
        model_.object("the server gets the command " + std::to_string(header.Command) + " for profile " +
                      std::to_string(profile) + " and call " + std::to_string(header.Arg3));
}

Bytes Answers::answer(const Request& request) {
    const wire::RequestHeader& header = request.header;
    expect_known(header);
    switch (header.Command) {
        case wire::NETCM_CLIENT_START_REQ:
            return test::bytes_of(calls_.start(static_cast<int32_t>(header.Arg4)));
        case wire::NETCM_CLIENT_STOP_REQ:
            calls_.stop(header.Arg3, static_cast<int32_t>(header.Arg4));
            return {};
        case wire::NETCM_CLIENT_KILL_REQ:
            calls_.kill(static_cast<int32_t>(header.Arg4));
            return {};
        case wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ:
            return default_profile(request);
        case wire::NETCM_CLIENT_TUNNEL_REQ:
            return tunnel(request);
        case wire::NETPM_PROFILE_REQ:
            return profile_manager(request);
        case wire::NETPM_APPPROF_REQ:
            return application_profile(request);
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ:
            return connections(request);
        case wire::NETCM_CLIENT_GET_STAT_INFO_REQ:
            return statistics(request);
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ: {
            const auto count = static_cast<uint32_t>(random_.below(17));
            return list<wire::ProfileIdBlock>(request, 0, [&](wire::ProfileIdBlock& block, uint32_t ticket) {
                block.Count = count;
                for (uint32_t i = 0; i < count; ++i)
                    block.ProfileId[i] = static_cast<int32_t>(ticket + i);
                return count;
            });
        }
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ: {
            const auto count = static_cast<uint32_t>(random_.below(17));
            return list<wire::ProfileNameBlock>(
                request, 0, [&](wire::ProfileNameBlock& block, uint32_t ticket) {
                    block.Count = count;
                    for (uint32_t i = 0; i < count; ++i)
                        std::snprintf(block.Name[i], sizeof block.Name[i], "name%u", ticket + i);
                    return count;
                });
        }
        case wire::NETCM_CLIENT_GET_SETTINGS_REQ:
            return with_ticket(request, header.Arg3, &wire::Record::Word2);
        case wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ:
            return with_ticket(request, 0, &wire::Record::Word2);
        case wire::NETCM_CLIENT_GET_NETWORK_STATUS_REQ:
            return with_ticket(request, 0, &wire::Record::Word8);
        case wire::NETCM_CLIENT_GET_NETIFACE_LIST_REQ: {
            wire::Record record = test::answer_record(header.Command);
            const bool refused = refuses();
            const uint32_t ticket = model_.gives_ticket({header.Command, 0, refused});
            // Both interfaces, and above them the ticket.
            (refused ? record.Status : record.Word2) = refused ? ticket : ticket << 2 | 3;
            return test::bytes_of(record);
        }
        case wire::NETCM_CLIENT_SET_SETTINGS_REQ:
        case wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ:
            return plain(request, header.Arg3);
        case wire::NETCM_CLIENT_RESET_STAT_INFO_REQ:
            return plain(request, header.Arg4);
        case wire::NETCM_CLIENT_REGISTER_TUNNEL_IND_REQ:
        case wire::NETCM_CLIENT_DEREGISTER_TUNNEL_IND_REQ:
            return plain(request, 0);
        default:
            model_.object("the server gets the command " + std::to_string(header.Command) +
                          ": the requests are out of step");
    }
}

}  // namespace quorvel::lives
