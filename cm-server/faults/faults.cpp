#include "faults/faults.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace quorvel::cm {
namespace {

constexpr std::array<const char*, 7> kNames{"late", "code", "status", "half", "count", "length", "silent"};

// Every block that counts something begins with the count.
void set_count(Message& message, uint32_t count) {
    if (message.block.size() >= sizeof(count))
        std::memcpy(message.block.data(), &count, sizeof(count));
}

void set_length(wire::Record& record, uint32_t length) {
    if (record.Code == wire::NETPM_PROFILE_RSP)
        record.Word5 = length;
    else
        record.Word2 = length;
}

void set_status(wire::Record& record, uint32_t status) {
    // The profile manager's answer, and an application's, have a word of their own for it.
    if (record.Code == wire::NETPM_PROFILE_RSP || record.Code == wire::NETCM_CLIENT_PROPER_PROFILE_RSP)
        record.CallId = status;
    else
        record.Status = status;
}

bool has_own_block_length(uint32_t code) {
    return code == wire::NETPM_PROFILE_RSP || code == wire::NETCM_CLIENT_TUNNEL_RSP;
}

void make(Delivery& delivery, const Fault& fault) {
    Message& message = delivery.message;
    switch (fault.kind) {
        case Fault::Kind::kLate:
            delivery.delay += std::chrono::milliseconds(fault.value);
            return;
        case Fault::Kind::kCode:
            message.record.Code = fault.value;
            return;
        case Fault::Kind::kStatus:
            set_status(message.record, fault.value);
            // A refusal has no block behind it.
            if (fault.value != 0 && !has_own_block_length(message.record.Code))
                message.block.clear();
            return;
        case Fault::Kind::kHalf:
            delivery.half = true;
            return;
        case Fault::Kind::kCount:
            return set_count(message, fault.value);
        case Fault::Kind::kLength:
            return set_length(message.record, fault.value);
        case Fault::Kind::kSilent:
            delivery.silent = true;
            return;
    }
}

bool falls_on(const Fault& fault, uint32_t client, uint32_t code) {
    return (fault.client == 0 || fault.client == client) && (fault.code == 0 || fault.code == code);
}

}  // namespace

Fault::Kind Faults::kind_of(const std::string& name) {
    const auto found = std::ranges::find(kNames, name);
    if (found == kNames.end())
        throw std::invalid_argument("there is no fault \"" + name + "\"");
    return static_cast<Fault::Kind>(found - kNames.begin());
}

const char* Faults::name_of(Fault::Kind kind) {
    return kNames.at(static_cast<size_t>(kind));
}

size_t Faults::clear() {
    return std::exchange(faults_, {}).size();
}

void Faults::forget(uint32_t client) {
    std::erase_if(faults_, [&](const Fault& fault) { return fault.client == client; });
}

Delivery Faults::apply(uint32_t client, Message message) {
    const uint32_t code = message.record.Code;
    Delivery delivery{std::move(message)};
    for (Fault& fault : faults_) {
        if (!falls_on(fault, client, code))
            continue;
        make(delivery, fault);
        if (fault.times)
            --*fault.times;
    }
    std::erase_if(faults_, [](const Fault& fault) { return fault.times == 0U; });
    return delivery;
}

std::vector<std::byte> Delivery::bytes() const {
    std::vector<std::byte> result;
    append(result, message.record);
    if (half)
        result.resize(sizeof(wire::Record) / 2);
    else
        result.insert(result.end(), message.block.begin(), message.block.end());
    return result;
}

}  // namespace quorvel::cm
