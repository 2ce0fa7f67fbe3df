#include "protocol/pm_message.h"

#include <cstring>

namespace quorvel::cm {

Message to_message(const PmAnswer& answer, uint32_t command) {
    Message message = make_message(wire::NETPM_PROFILE_RSP);
    wire::Record& record = message.record;
    record.Word1 = kPmAnswer + command;
    record.Word2 = static_cast<uint32_t>(answer.profile);
    record.CallId = answer.error;
    record.Word5 = static_cast<uint32_t>(answer.data.size());
    record.Word6 = answer.value;
    message.block = answer.data;
    return message;
}

Message to_message(const AppProfMsg& answer) {
    Message message = make_message(wire::NETCM_CLIENT_PROPER_PROFILE_RSP);
    static_assert(sizeof(answer) == sizeof(message.record) - offsetof(wire::Record, Word1));
    std::memcpy(&message.record.Word1, &answer, sizeof(answer));
    return message;
}

std::string outcome(PmError error) {
    const PmErrorEntry* entry = find_pm_error(error);
    if (entry == nullptr)
        return ": done";
    return std::string(": refused, ") + entry->name + " (" + std::to_string(error) + "): " + entry->text;
}

}  // namespace quorvel::cm
