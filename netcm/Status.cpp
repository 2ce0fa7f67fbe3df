#include "Status.h"

#include <quorvel/NetCM.h>

#include <algorithm>
#include <array>

#include "ServerWords.h"

namespace quorvel::netcm {
namespace {

#define NETCM_STATUS(code, meaning) \
    StatusText {                    \
        code, #code, meaning        \
    }

constexpr std::array kStatusTexts{
    NETCM_STATUS(NETCM_SUCCESS, "success"),
    NETCM_STATUS(NETCM_ERR_FAILURE, "the exchange with the CM server failed, or memory ran out"),
    NETCM_STATUS(NETCM_ERR_REREGISTER_FAILED,
                 "the link to the CM server is broken and could not be repaired"),
    NETCM_STATUS(NETCM_ERR_ALREADY_REGISTERED, "the calling thread is already registered"),
    NETCM_STATUS(NETCM_ERR_REREGISTER_RETRY_EXHAUSTED,
                 "the CM server could not be reached in three attempts; is it running?"),
    NETCM_STATUS(NETCM_ERR_NO_FREE_ENTRY, "16 threads are registered already"),
    NETCM_STATUS(NETCM_ERR_NOT_REGISTERED,
                 "the process or the calling thread is not registered, or has no connection"),
    NETCM_STATUS(NETCM_ERR_INVALID_PROFILE, "invalid profile id"),
    NETCM_STATUS(NETCM_ERR_NOT_ACTIVE, "no such connection, or this process does not use it"),
    NETCM_STATUS(NETCM_ERR_ALREADY_EXISTS,
                 "the calling thread already has this connection, or still has one"),
    NETCM_STATUS(NETCM_ERR_CLOSING, "the calling thread has already asked to kill this connection"),
    NETCM_STATUS(NETCM_ERR_CALL_CLOSING, "the connection is being closed"),
    NETCM_STATUS(NETCM_ERR_MAX_LIMIT, "no room for another thread or profile on this connection"),
    NETCM_STATUS(NETCM_ERR_NO_FREE_KILL_ENTRY, "four kills are pending already"),
    NETCM_STATUS(NETCM_ERR_NO_FREE_TUNNEL_ENTRY, "twenty tunnel requests are pending already"),
    NETCM_STATUS(NETCM_ERR_INVALID_PARAM, "an argument is out of range"),
};

#undef NETCM_STATUS

}  // namespace

const StatusText* find_status(uint32_t status) {
    const auto found = std::ranges::find(kStatusTexts, status, &StatusText::code);
    return found == kStatusTexts.end() ? nullptr : &*found;
}

std::string describe_status(uint32_t status) {
    const auto words = [status](std::string_view name, std::string_view meaning) {
        return std::string(name) + " (" + std::to_string(status) + "): " + std::string(meaning);
    };
    if (const StatusText* text = find_status(status)) {
        return words(text->name, text->meaning);
    }
    if (const ServerError* error = find_server_error(status)) {
        return words(error->name, error->text);
    }
    return "status " + std::to_string(status) + " of the CM server";
}

std::string describe_open_failure(uint32_t status, int32_t transport_error) {
    if (status != kTransportFailure) {
        return describe_status(status);
    }
    const char* text = reason_text(transport_error);
    return describe_status(status) + ", transport error " + std::to_string(transport_error) +
           (text == nullptr ? "" : std::string(": ") + text);
}

void require_success(uint32_t status, const std::string& what, const std::string& hint) {
    if (status == NETCM_SUCCESS) {
        return;
    }
    constexpr uint32_t kNoDefault = 104;
    if (status == kNoDefault) {
        throw Failure(what + ": " + kNoDefaultProfile);
    }
    throw Failure(what + ": " + describe_status(status) + (hint.empty() ? "" : "\n" + hint));
}

}  // namespace quorvel::netcm
