// Answers of the profile manager, and what travels in them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/message.h"
#include "protocol/pm_errors.h"
#include "quorvel/NetPM.h"

namespace quorvel::cm {

// A profile on the wire.
struct ProfileSlot {
    NetPMProfile profile;
    uint8_t padding[4];
};
static_assert(sizeof(ProfileSlot) == 972);

struct PmAnswer {
    int32_t profile = 0;
    PmError error = PM_SUCCESS;
    uint32_t value = 0;
    std::vector<std::byte> data;

    void refuse(PmError why) {
        error = why;
        value = 0;
        data.clear();
    }
};

// Profile-manager commands are answered with their number and this.
inline constexpr uint32_t kPmAnswer = 100;

Message to_message(const PmAnswer& answer, uint32_t command);

// Of an application-profile request: the payload of its request, and words 1 to 9 of its answer.
struct AppProfMsg {
    uint32_t Opaque;
    uint32_t Cmd;
    uint32_t Result;
    NetPMAppProf Application;
    uint16_t BProfIdValid;
    uint16_t BNetIfaceListValid;
};
static_assert(sizeof(AppProfMsg) == 36);

Message to_message(const AppProfMsg& answer);

// ": done", or ": refused, PM_ERR_EMPTY_NAME (107): the profile has no name".
std::string outcome(PmError error);

}  // namespace quorvel::cm
