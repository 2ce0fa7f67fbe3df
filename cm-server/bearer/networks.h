// Which interfaces carry packet data and which are Wi-Fi, and how they are.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include "bearer/interfaces.h"
#include "bearer/network_status.h"
#include "config/config.h"
#include "protocol/message.h"
#include "store/store.h"

namespace quorvel::cm {

// Counts as interfaces and profiles change, so that a question costs the same however many there are.
class Networks final : private StoreObserver {
  public:
    // How a network is whose connections somebody else brings up, and who knows.
    using StatusOf = std::function<NetworkStatus(const Network& network)>;

    // It is told of changes from here on, so it stays where it is.
    Networks(const Config& config, Store& store, Interfaces& interfaces, StatusOf status_of_managed);
    ~Networks();
    Networks(const Networks&) = delete;
    Networks& operator=(const Networks&) = delete;

    // The status of the best interface of the kind.
    NetworkStatus status(NetIface kind) const;
    // The kinds that have an interface that is up, as a mask.
    uint32_t available() const;
    // Tells a client both statuses.
    Message indication() const;
    // Counts anew: the configuration is another one.
    void count();
    // What somebody else knows is to be asked for again.
    void forget_managed() { managed_.reset(); }

  private:
    static constexpr size_t kKinds = 2;
    static constexpr size_t kStatuses = 4;
    struct Named {
        std::array<uint32_t, kKinds> uses{};
        NetworkStatus status = NetworkStatus::kAbsent;
    };

    void on_interface(NetIface kind, const std::string& name, int more) override;
    void on_restored() override { count(); }
    void look_at(const std::string& name);
    NetworkStatus managed(size_t place) const;

    const Config& config_;
    Store& store_;
    Interfaces& interfaces_;
    // The interfaces that profiles and networks lead to, whether they are there or not.
    std::unordered_map<std::string, Named> named_;
    // How many of them have a status, by kind.
    std::array<std::array<uint32_t, kStatuses>, kKinds> counts_{};
    std::array<bool, kKinds> simulated_{};
    StatusOf status_of_managed_;
    // The best of each kind, as it was when it was asked for last; nothing since something has changed.
    mutable std::optional<std::array<NetworkStatus, kKinds>> managed_;
};

}  // namespace quorvel::cm
