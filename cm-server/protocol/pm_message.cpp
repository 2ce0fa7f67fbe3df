#include "protocol/pm_message.h"

#include <cstring>

namespace quorvel::cm {

namespace {

// The words behind the code of a record are the answer.
template <class Answer>
Message message_with(wire::Event code, const Answer& answer) {
    static_assert(sizeof(answer) <= sizeof(wire::Record) - offsetof(wire::Record, Word1));
    Message message = make_message(code);
    std::memcpy(&message.record.Word1, &answer, sizeof(answer));
    return message;
}

}  // namespace

Message to_message(const PmAnswer& answer, uint32_t command) {
    const wire::PmResponseBlock block{.RspCode = wire::kPmAnswer + command,
                                      .ProfileId = answer.profile,
                                      .Error = answer.error,
                                      .Reserved = 0,
                                      .ExtDataLength = static_cast<uint32_t>(answer.data.size()),
                                      .Value = answer.value};
    Message message = message_with(wire::NETPM_PROFILE_RSP, block);
    message.block = answer.data;
    return message;
}

Message to_message(const wire::AppProfMsg& answer) {
    return message_with(wire::NETCM_CLIENT_PROPER_PROFILE_RSP, answer);
}

std::string outcome(PmError error) {
    const PmErrorEntry* entry = find_pm_error(error);
    if (entry == nullptr)
        return ": done";
    return std::string(": refused, ") + entry->name + " (" + std::to_string(error) + "): " + entry->text;
}

}  // namespace quorvel::cm
