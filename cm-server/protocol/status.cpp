#include "protocol/status.h"

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

}  // namespace quorvel::cm
