#include "monitor/decode.h"

#include "monitor/decode_blocks.h"
#include "protocol/cursor.h"
#include "protocol/pm_message.h"
#include "protocol/status.h"
#include "record/secrets.h"
#include "store/fields.h"

namespace quorvel::cm {
namespace {

using nlohmann::json;

int32_t signed_word(uint32_t word) {
    return static_cast<int32_t>(word);
}

json profile_json(const NetPMProfile& profile) {
    json result{{"id", profile.ProfileId},
                {"type", profile.ProfileType},
                {"name", field_text(profile.ProfileName)},
                {"attributes", profile.ProfileAttr}};
    for (const Field& field : profile_fields()) {
        if (!has_part(profile, field.part))
            continue;
        const FieldValue value = get_field(profile, field);
        const auto* text = std::get_if<std::string>(&value);
        if (is_secret(field.column))
            result[field.column] = text != nullptr && text->empty() ? "" : "***";
        else if (text != nullptr)
            result[field.column] = *text;
        else
            result[field.column] = std::get<int64_t>(value);
    }
    return result;
}

json profile_data(std::span<const std::byte> data) {
    wire::PmProfileSlot slot{};
    Cursor cursor(data);
    return cursor.read(slot) && cursor.remaining() == 0 ? profile_json(slot.Profile) : json(data.size());
}

// A command by its name, an answer (`above` is kPmAnswer) by that of the command which it answers; a number
// that is none of them stays a number.
json command_json(std::span<const wire::PmCommandEntry> table, uint32_t code, uint32_t above = 0) {
    const wire::PmCommandEntry* entry = wire::find_entry(table, code - above);
    return entry != nullptr ? json(entry->name) : json(code);
}

json pm_request(const Request& request) {
    wire::PmRequestHeader header{};
    Cursor cursor(request.payload);
    if (!cursor.read(header))
        return json::object();  // not reached: for the compiler
    json fields{{"pm", command_json(wire::kPmCommands, header.Command)},
                {"profile", header.ProfileId},
                {"arg", header.Arg},
                {"arg2", header.Arg2}};
    if (cursor.remaining() > 0)
        fields["data"] = profile_data(cursor.take(cursor.remaining()));
    return fields;
}

json pm_answer(const Message& message) {
    const wire::Record& record = message.record;
    json fields{{"pm", command_json(wire::kPmCommands, record.Word1, wire::kPmAnswer)},
                {"profile", signed_word(record.Word2)},
                {"error", record.CallId},
                {"length", record.Word5},
                {"value", record.Word6}};
    if (const PmErrorEntry* error = find_pm_error(record.CallId))
        fields["error-name"] = error->name;
    if (!message.block.empty())
        fields["data"] = is_list(record.Word1) ? profile_list_json(record.Word1, message.block)
                                               : profile_data(message.block);
    return fields;
}

json app_message(std::span<const std::byte> bytes, uint32_t above = 0) {
    wire::AppProfMsg message{};
    if (!Cursor(bytes).read(message))
        return json::object();  // not reached: for the compiler
    return {{"app-profile", command_json(wire::kAppProfCommands, message.Cmd, above)},
            {"result", message.Result},
            {"application", signed_word(message.AppProf.AppId)},
            {"param", message.AppProf.Param},
            {"profile", signed_word(message.AppProf.ProfileId)}};
}

json request_fields(const Request& request) {
    const wire::RequestHeader& header = request.header;
    switch (header.Command) {
        case wire::NETCM_CLIENT_REGISTER_REQ:
            return {{"application", signed_word(header.Arg5)}};
        case wire::NETCM_CLIENT_STOP_REQ:
            return {{"call", header.Arg3}, {"profile", signed_word(header.Arg4)}};
        case wire::NETCM_CLIENT_START_REQ:
        case wire::NETCM_CLIENT_KILL_REQ:
        case wire::NETCM_CLIENT_GET_PACKET_DATA_STATE_REQ:
            return {{"profile", signed_word(header.Arg4)}};
        case wire::NETCM_CLIENT_SET_PACKET_DATA_STATE_REQ:
            return {{"state", header.Arg3}, {"profile", signed_word(header.Arg4)}};
        case wire::NETCM_CLIENT_TUNNEL_REQ:
            return {{"param", signed_word(header.Arg3)}, {"length", header.Arg4}};
        case wire::NETCM_CLIENT_RESET_STAT_INFO_REQ:
            return {{"level", header.Arg4}};
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_REQ:
            return {{"interface-kind", header.Param}};
        case wire::NETCM_CLIENT_SET_SETTINGS_REQ:
            return {{"key", header.Arg3}, {"value", header.Arg4}};
        case wire::NETCM_CLIENT_GET_SETTINGS_REQ:
            return {{"key", header.Arg3}};
        case wire::NETPM_PROFILE_REQ:
            return pm_request(request);
        case wire::NETPM_APPPROF_REQ:
            return app_message(request.payload);
        default:
            return json::object();
    }
}

// "ready"; a number that nobody knows stays a number.
json state_json(uint32_t state) {
    for (const Word& word : network_status_words())
        if (word.number == state)
            return word.word;
    return state;
}

json block_fields(const Message& message) {
    json fields = block_json(message);
    fields["status"] = message.record.Status;
    return fields;
}

json call_fields(const Message& message) {
    const wire::Record& record = message.record;
    json fields{{"profile", signed_word(record.Word2)},
                {"call", signed_word(record.CallId)},
                {"status", record.Status}};
    if (record.Word5 != 0)
        fields["reason"] = record.Word5;
    if (!message.block.empty())
        fields["connection"] = block_json(message);
    return fields;
}

json answer_fields(const Message& message, bool event) {
    const wire::Record& record = message.record;
    switch (record.Code) {
        case wire::NETCM_CLIENT_REGISTER_RSP:
            return {{"client", record.Word1}, {"status", record.Status}};
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_IDS_RSP:
        case wire::NETCM_CLIENT_GET_ACTIVE_CONN_LIST_RSP:
        case wire::NETCM_CLIENT_GET_ACTIVE_PROFILE_NAME_LIST_RSP:
        case wire::NETCM_CLIENT_GET_STAT_INFO_RSP:
            return block_fields(message);
        case wire::NETCM_CLIENT_TUNNEL_RSP:
        case wire::NETCM_CLIENT_TUNNEL_IND:
            return {{"length", record.Word2}, {"id", record.CallId}, {"status", record.Status}};
        case wire::NETCM_CLIENT_GET_NETWORK_STATUS_RSP:
            return {{"packet-data", state_json(record.Word8)},
                    {"wifi", state_json(record.Word7)},
                    {"status", record.Status}};
        case wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND:
            return {{"packet-data", state_json(record.Word2)}, {"wifi", state_json(record.CallId)}};
        case wire::NETPM_PROFILE_RSP:
            return pm_answer(message);
        case wire::NETCM_CLIENT_PROPER_PROFILE_RSP:
            if (event)
                return {{"application", record.Word5}, {"profile", record.Word6}, {"status", record.Status}};
            return app_message(std::as_bytes(std::span(&record, 1)).subspan(offsetof(wire::Record, Word1)),
                               wire::kPmAnswer);
        default:
            if (is_about_call(record.Code))
                return call_fields(message);
            return {{"value", record.Word2}, {"status", record.Status}};
    }
}

template <class Entry>
std::string name_of(const Entry* entry, uint32_t code) {
    return entry != nullptr ? entry->name : "code " + std::to_string(code);
}

}  // namespace

bool is_about_call(uint32_t code) {
    switch (code) {
        case wire::NETCM_CLIENT_START_RSP:
        case wire::NETCM_CLIENT_STOP_RSP:
        case wire::NETCM_CLIENT_KILL_RSP:
        case wire::NETCM_CLIENT_STOP_IND:
        case wire::NETCM_CLIENT_SUSPEND_IND:
        case wire::NETCM_CLIENT_RESUME_IND:
        case wire::NETCM_CLIENT_IP_CHANGE_IND:
            return true;
        default:
            return false;
    }
}

json decode(const Request& request) {
    const uint32_t code = request.header.Command;
    return {{"name", name_of(wire::find_command(code), code)}, {"fields", request_fields(request)}};
}

json decode(const Message& message, bool event) {
    const uint32_t code = message.record.Code;
    json fields = answer_fields(message, event);
    if (const uint32_t status = fields.value("status", 0U); status != NETCM_SUCCESS)
        fields["why"] = status_words(status, message.record.Word5);
    return {{"name", name_of(wire::find_event(code), code)}, {"fields", fields}};
}

std::string to_line(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string to_hex(std::span<const std::byte> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const std::byte byte : bytes) {
        hex += kDigits[std::to_integer<unsigned>(byte >> 4)];
        hex += kDigits[std::to_integer<unsigned>(byte & std::byte{15})];
    }
    return hex;
}

}  // namespace quorvel::cm
