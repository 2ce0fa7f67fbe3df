#include "ServerWords.h"

#include <cstddef>

namespace quorvel::netcm {
namespace {

template <size_t N>
const char* at(const std::array<const char*, N>& texts, uint32_t index) {
    return index < N ? texts[index] : nullptr;
}

}  // namespace

const char* reason_text(int32_t reason) {
    constexpr std::array<const char*, 7> kTexts{nullptr,
                                                "there is no such network interface",
                                                "the network interface is down",
                                                "the network interface has no IPv4 address",
                                                "it took too long",
                                                "the network has refused it",
                                                "the network has ended it"};
    return at(kTexts, static_cast<uint32_t>(reason));
}

const char* network_status_text(uint32_t status) {
    constexpr std::array<const char*, 4> kTexts{"absent", "down", "without an address", "ready"};
    return at(kTexts, status);
}

}  // namespace quorvel::netcm
