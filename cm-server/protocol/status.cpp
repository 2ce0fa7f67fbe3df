#include "protocol/status.h"

#include "quorvel/NetCM.h"

namespace quorvel::cm {

bool is_known(Reason reason) {
    return reason <= Reason::kLost;
}

std::string to_text(Reason reason) {
    switch (reason) {
        case Reason::kNone:
            return "no reason given";
        case Reason::kNoInterface:
            return "there is no such network interface";
        case Reason::kInterfaceDown:
            return "the network interface is down";
        case Reason::kNoAddress:
            return "the network interface has no IPv4 address";
        case Reason::kTimeLimit:
            return "it took too long";
        case Reason::kRefused:
            return "the network has refused it";
        case Reason::kLost:
            return "the network has ended it";
    }
    return "reason " + std::to_string(static_cast<uint32_t>(reason));
}

std::string status_words(uint32_t status, uint32_t reason) {
    switch (status) {
        case NETCM_SUCCESS:
            return "done";
        case NETCM_ERR_FAILURE:
            return "it has failed";
        case NETCM_ERR_INVALID_PROFILE:
            return "there is no such profile";
        case NETCM_ERR_NOT_ACTIVE:
            return "the client does not use such a connection";
        case NETCM_ERR_MAX_LIMIT:
            return "there is no room for another one";
        case NETCM_ERR_INVALID_PARAM:
            return "an argument is out of range";
        case kStatusTransport:
            return to_text(static_cast<Reason>(reason));
        case kStatusKilled:
            return "another client has killed the connection";
        default:
            return "status " + std::to_string(status);
    }
}

}  // namespace quorvel::cm
