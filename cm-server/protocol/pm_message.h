// Answers of the profile manager, and what travels in them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/PmWire.h"
#include "protocol/message.h"
#include "protocol/pm_errors.h"

namespace quorvel::cm {

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

Message to_message(const PmAnswer& answer, uint32_t command);

Message to_message(const wire::AppProfMsg& answer);

// ": done", or ": refused, PM_ERR_EMPTY_NAME (107): the profile has no name".
std::string outcome(PmError error);

}  // namespace quorvel::cm
