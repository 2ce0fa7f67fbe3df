// What a scripted server does about a request when no test has said otherwise.
#include <cstring>

#include "common/PmWire.h"
#include "support/ScriptedServer.h"

namespace quorvel::test {
namespace {

constexpr int32_t kDefaultProfile = 1;

Answer register_client(uint32_t client_id) {
    wire::Record record = answer_record(wire::NETCM_CLIENT_REGISTER_REQ);
    record.Word1 = client_id;
    return Answer().record(record);
}

Answer default_profile() {
    wire::Record record = answer_record(wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ);
    record.Word2 = kDefaultProfile;
    return Answer().record(record);
}

template <class Block>
Answer with_empty(uint32_t command) {
    return Answer().record(answer_record(command)).block(Block{});
}

Answer profile_manager(const Request& request) {
    wire::Record record = answer_record(request.command());
    record.Word1 = request.payload_as<uint32_t>() + 100;
    return Answer().record(record);
}

}  // namespace

Answer ScriptedServer::good_answer(const Request& request) {
    const uint32_t command = request.command();
    switch (command) {
        case wire::NETCM_CLIENT_REGISTER_REQ:
            return register_client(++client_id_);
        case wire::NETCM_CLIENT_ASYNC_REGISTER_REQ:
            return silence();
        case wire::NETCM_CLIENT_GET_DEFAULT_PROFILE_ID_REQ:
            return default_profile();
        case wire::NETCM_CLIENT_START_REQ: {
            const std::optional<uint32_t> call = free_call_id();
            wire::Record record = answer_record(command, call ? 0 : NETCM_ERR_FAILURE);
            record.CallId = call.value_or(0);
            return Answer().record(record);
        }
        case wire::NETCM_CLIENT_STOP_REQ:
            if (request.header.Arg3 < std::size(calls_))
                calls_[request.header.Arg3] = false;
            return Answer().push(stop_response(static_cast<int32_t>(request.header.Arg3),
                                               static_cast<int32_t>(request.header.Arg4)));
        case wire::NETCM_CLIENT_KILL_REQ:
            return Answer().push(kill_response(static_cast<int32_t>(request.header.Arg4)));
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_REQ:
            return with_empty<wire::ProfileIdBlock>(command);
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_REQ:
            return with_empty<wire::ProfileNameBlock>(command);
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ:
            return with_empty<wire::ActiveConnectionBlock>(command);
        case wire::NETCM_CLIENT_GET_STAT_INFO_REQ:
            return with_empty<wire::StatisticsBlock>(command);
        case wire::NETPM_PROFILE_REQ:
        case wire::NETPM_APPPROF_REQ:
            return profile_manager(request);
        default:
            return Answer().record(answer_record(command));
    }
}

// The lowest one, as a server that carries four calls gives them.
std::optional<uint32_t> ScriptedServer::free_call_id() {
    for (uint32_t call = 0; call < std::size(calls_); ++call) {
        if (!calls_[call]) {
            calls_[call] = true;
            return call;
        }
    }
    return std::nullopt;
}

wire::Record indication(uint32_t code, int32_t call, int32_t profile, uint32_t status, uint32_t reason) {
    wire::Record record{};
    record.Code = code;
    record.Word2 = static_cast<uint32_t>(profile);
    record.CallId = static_cast<uint32_t>(call);
    record.Status = status;
    record.Word5 = reason;
    return record;
}

wire::Record start_response(int32_t call, int32_t profile, uint32_t status, uint32_t reason) {
    return indication(wire::NETCM_CLIENT_START_RSP, call, profile, status, reason);
}

wire::Record stop_response(int32_t call, int32_t profile, uint32_t status, uint32_t reason) {
    return indication(wire::NETCM_CLIENT_STOP_RSP, call, profile, status, reason);
}

wire::Record kill_response(int32_t profile, uint32_t status, uint32_t reason) {
    return indication(wire::NETCM_CLIENT_KILL_RSP, 0, profile, status, reason);
}

NetCMAddr ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    return {.Type = 0, .Addr = {a, b, c, d}};
}

wire::ConnectionBlock connection_block() {
    wire::ConnectionBlock block{};
    block.DnsCount = 2;
    block.DnsAddr[0] = ipv4(192, 0, 2, 53);
    block.DnsAddr[1] = ipv4(192, 0, 2, 54);
    block.IpAddr = ipv4(10, 1, 2, 3);
    block.HasOptAddr1 = 1;
    block.OptAddr1 = ipv4(10, 1, 2, 1);
    block.HasOptAddr2 = 1;
    block.OptAddr2 = ipv4(10, 1, 2, 2);
    std::strcpy(block.IfaceName, "pdp0");
    return block;
}

}  // namespace quorvel::test
