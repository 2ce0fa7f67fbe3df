// Which form of a Wi-Fi profile's security block a mode selects. The one table for library, server and netcm.
#pragma once

#include <cstdint>

namespace quorvel::wire {

enum class SecurityForm { kInvalid, kOpen, kWep, kPsk, kEap };

constexpr SecurityForm security_form(int32_t sec_mode) {
    switch (sec_mode) {
        case 1:
            return SecurityForm::kOpen;
        case 2:
        case 3:
            return SecurityForm::kWep;
        case 4:
        case 6:
        case 8:
            return SecurityForm::kPsk;
        case 5:
        case 7:
        case 9:
            return SecurityForm::kEap;
        default:
            return SecurityForm::kInvalid;
    }
}

}  // namespace quorvel::wire
