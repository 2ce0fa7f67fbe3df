#include "protocol/status.h"

#include <algorithm>
#include <array>

#include "protocol/pm_errors.h"
#include "quorvel/NetCM.h"

namespace quorvel::cm {
namespace {

constexpr uint32_t number_of_reason(Reason reason) {
    return static_cast<uint32_t>(reason);
}

constexpr std::array kReasonWords{
    Word{"none", number_of_reason(Reason::kNone)},
    Word{"no-interface", number_of_reason(Reason::kNoInterface)},
    Word{"interface-down", number_of_reason(Reason::kInterfaceDown)},
    Word{"no-address", number_of_reason(Reason::kNoAddress)},
    Word{"time-limit", number_of_reason(Reason::kTimeLimit)},
    Word{"refused", number_of_reason(Reason::kRefused)},
    Word{"lost", number_of_reason(Reason::kLost)},
};

constexpr std::array kStatusNames{Word{"NETCM_SUCCESS", NETCM_SUCCESS},
                                  Word{"NETCM_ERR_FAILURE", NETCM_ERR_FAILURE},
                                  Word{"NETCM_ERR_INVALID_PROFILE", NETCM_ERR_INVALID_PROFILE},
                                  Word{"NETCM_ERR_NOT_ACTIVE", NETCM_ERR_NOT_ACTIVE},
                                  Word{"NETCM_ERR_MAX_LIMIT", NETCM_ERR_MAX_LIMIT},
                                  Word{"NETCM_ERR_INVALID_PARAM", NETCM_ERR_INVALID_PARAM},
                                  Word{"transport", kStatusTransport},
                                  Word{"killed", kStatusKilled},
#define X(name, number, text) Word{#name, number},
                                  QV_PM_ERRORS(X)
#undef X
};

constexpr std::array kNetworkStatusWords{Word{"absent", 0}, Word{"down", 1}, Word{"no-address", 2},
                                         Word{"ready", 3}};

}  // namespace

std::span<const Word> reason_words() {
    return kReasonWords;
}

std::span<const Word> status_names() {
    return kStatusNames;
}

std::span<const Word> network_status_words() {
    return kNetworkStatusWords;
}

std::optional<uint32_t> number_of(std::span<const Word> words, std::string_view word) {
    const auto found = std::ranges::find_if(words, [&](const Word& one) { return one.word == word; });
    return found == words.end() ? std::nullopt : std::optional(found->number);
}

std::string with_word(std::span<const Word> words, uint32_t number) {
    const auto found = std::ranges::find(words, number, &Word::number);
    const std::string text = std::to_string(number);
    return found == words.end() ? text : std::string(found->word) + " (" + text + ")";
}

std::string all_of(std::span<const Word> words) {
    std::string all;
    for (const Word& word : words)
        all.append(all.empty() ? "" : ", ").append(word.word);
    return all;
}

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
