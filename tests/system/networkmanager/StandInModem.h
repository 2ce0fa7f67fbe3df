// What NetworkManager sees of a modem: a small stand-in for ModemManager on the bus, with one modem, its SIM,
// and a data port that is an interface of the test.
#pragma once

#include <atomic>
#include <map>
#include <string>

#include "networkmanager/StandIn.h"

namespace quorvel::test {

class StandInModem : private StandIn {
  public:
    // How it is registered with a network, by ModemManager's numbers.
    enum Registration { kHome = 1, kSearching = 2, kRoaming = 5 };

    // The connection has this address, with the data port's other end for a gateway and a name server.
    explicit StandInModem(std::string data_port, std::string address = "10.70.0.42");
    ~StandInModem();

    // Each connection is refused with this error of ModemManager's from now on, such as
    // "MobileEquipment.SimNotInserted".
    void refuse(const std::string& error);
    void register_as(Registration registration);
    // The modem is pulled out.
    void remove();
    // What the last connection was asked for with, one text for each key.
    std::map<std::string, std::string> asked_for();
    int disconnections() const { return disconnections_; }

  private:
    friend struct ModemObject;

    std::string data_port_;
    std::string address_;
    std::string error_;
    std::map<std::string, std::string> asked_for_;
    int state_;
    uint32_t registration_ = kHome;
    bool connected_ = false;
    std::atomic<int> disconnections_ = 0;
};

}  // namespace quorvel::test
