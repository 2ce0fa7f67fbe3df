#include "networkmanager/reasons.h"

#include <algorithm>
#include <span>

namespace quorvel::cm {
namespace {

struct Row {
    uint32_t number;
    EndReason means;
};

constexpr Row kDeviceReasons[] = {
    {3, {"the device is not managed any more", Reason::kNoInterface}},
    {4, {"the device could not be configured", Reason::kRefused}},
    {5, {"no address could be had", Reason::kNoAddress}},
    {6, {"the address has expired", Reason::kNoAddress}},
    {7, {"secrets are missing or wrong", Reason::kRefused}},
    {8, {"the access point has disconnected", Reason::kLost}},
    {9, {"the access point does not accept the security", Reason::kRefused}},
    {10, {"the Wi-Fi supplicant has failed", Reason::kRefused}},
    {11, {"the access point does not answer", Reason::kTimeLimit}},
    {12, {"PPP could not be started", Reason::kRefused}},
    {13, {"PPP was disconnected", Reason::kLost}},
    {14, {"PPP has failed", Reason::kRefused}},
    {15, {"DHCP could not be started", Reason::kNoAddress}},
    {16, {"DHCP met an error", Reason::kNoAddress}},
    {17, {"DHCP has failed", Reason::kNoAddress}},
    {23, {"the modem is busy", Reason::kRefused}},
    {24, {"the modem has no dial tone", Reason::kInterfaceDown}},
    {25, {"the modem has no carrier", Reason::kInterfaceDown}},
    {26, {"the modem's call is not answered", Reason::kTimeLimit}},
    {27, {"the modem could not dial", Reason::kRefused}},
    {28, {"the modem could not be made ready", Reason::kRefused}},
    {29, {"the APN was refused", Reason::kRefused}},
    {30, {"the modem does not look for networks", Reason::kInterfaceDown}},
    {31, {"the network refuses the modem", Reason::kRefused}},
    {32, {"the network does not answer the modem", Reason::kTimeLimit}},
    {33, {"the modem could not register with the network", Reason::kRefused}},
    {34, {"the PIN could not be checked", Reason::kRefused}},
    {35, {"the device's firmware is missing", Reason::kNoInterface}},
    {36, {"the device is gone", Reason::kNoInterface}},
    {37, {"the machine goes to sleep", Reason::kLost}},
    {38, {"the connection was deleted", Reason::kLost}},
    {39, {"a user has disconnected it", Reason::kLost}},
    {40, {"the carrier is gone", Reason::kInterfaceDown}},
    {43, {"there is no modem", Reason::kNoInterface}},
    {45, {"there is no SIM", Reason::kRefused}},
    {46, {"the SIM needs its PIN", Reason::kRefused}},
    {47, {"the SIM needs its PUK", Reason::kRefused}},
    {48, {"the SIM is the wrong one", Reason::kRefused}},
    {50, {"a connection that it needs has failed", Reason::kRefused}},
    {52, {"ModemManager is not there", Reason::kNoInterface}},
    {53, {"the Wi-Fi network is not found", Reason::kNoInterface}},
    {54, {"a connection that belongs to it has failed", Reason::kRefused}},
    {57, {"the modem has failed", Reason::kRefused}},
    {59, {"the SIM's PIN is wrong", Reason::kRefused}},
    {60, {"another connection has taken the device", Reason::kLost}},
    {64, {"the address is another's, too", Reason::kNoAddress}},
    {65, {"the way to an address is not supported", Reason::kNoAddress}},
};

constexpr Row kConnectionReasons[] = {
    {2, {"a user has disconnected it", Reason::kLost}},
    {3, {"the device was disconnected", Reason::kLost}},
    {4, {"the service behind it has ended", Reason::kLost}},
    {5, {"its addresses are not valid", Reason::kNoAddress}},
    {6, {"the other side does not answer", Reason::kTimeLimit}},
    {7, {"the service behind it does not start in time", Reason::kTimeLimit}},
    {8, {"the service behind it does not start", Reason::kRefused}},
    {9, {"secrets are missing or wrong", Reason::kRefused}},
    {10, {"the other side refuses the login", Reason::kRefused}},
    {11, {"the connection was deleted", Reason::kLost}},
    {12, {"a connection that it needs has failed", Reason::kRefused}},
    {13, {"its device could not be made", Reason::kNoInterface}},
    {14, {"the device is gone", Reason::kNoInterface}},
};

const Row* find(std::span<const Row> rows, uint32_t number) {
    const auto found = std::ranges::find(rows, number, &Row::number);
    return found == rows.end() ? nullptr : &*found;
}

EndReason meaning(const Row* row) {
    return row != nullptr ? row->means : EndReason{"NetworkManager gives no reason", Reason::kLost};
}

}  // namespace

EndReason device_reason(uint32_t number) {
    return meaning(find(kDeviceReasons, number));
}

EndReason connection_reason(uint32_t number) {
    return meaning(find(kConnectionReasons, number));
}

bool says_why(uint32_t device_reason) {
    return find(kDeviceReasons, device_reason) != nullptr;
}

}  // namespace quorvel::cm
