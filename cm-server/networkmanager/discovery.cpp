#include "networkmanager/discovery.h"

#include <algorithm>

#include "events.h"
#include "networkmanager/manager.h"

namespace quorvel::cm {
namespace {

constexpr std::chrono::seconds kLongest{5};

// Asks for connections, then for devices, and is not interested in what changes meanwhile.
class Asking : private ManagerEvents {
  public:
    Asking()
        : base_(make_event_base()),
          manager_(base_.get(), *this),
          limit_(base_.get(), [this] { give_up("NetworkManager does not answer"); }) {}

    Discovery ask() {
        manager_.be_connected();
        limit_.start(kLongest);
        manager_.list_connections([this](const auto& connections, const std::string& error) {
            if (!error.empty())
                return give_up(error);
            found_.connections = connections;
            ask_for_devices();
        });
        event_base_dispatch(base_.get());
        std::ranges::sort(found_.connections, {}, &StoredConnection::id);
        std::ranges::sort(found_.devices, {}, &Device::interface);
        return found_;
    }

  private:
    void ask_for_devices() {
        manager_.list_devices([this](const auto& devices, const std::string& error) {
            found_.devices = devices;
            give_up(error);
        });
    }
    void give_up(const std::string& why) {
        found_.why_not = why;
        event_base_loopbreak(base_.get());
    }
    void on_changed(const std::string&) override {}
    void on_connection_reason(const std::string&, uint32_t, uint32_t) override {}
    void on_device_reason(const std::string&, uint32_t, uint32_t) override {}
    void on_modem(const std::string&, bool) override {}
    void on_other_objects() override {}
    void on_manager_known(const std::string&) override {}
    void on_manager_gone() override { give_up("NetworkManager has gone"); }

    EventBase base_;
    Discovery found_;
    Manager manager_;
    Timer limit_;
};

}  // namespace

Discovery ask_networkmanager() {
    try {
        return Asking().ask();
    } catch (const BusError& error) {
        return {error.what(), {}, {}};
    }
}

}  // namespace quorvel::cm
