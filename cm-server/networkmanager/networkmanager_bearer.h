// Connections that NetworkManager brings up.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "bearer/bearer.h"
#include "bearer/interfaces.h"
#include "calls.h"
#include "events.h"
#include "networkmanager/activations.h"
#include "networkmanager/device_watch.h"
#include "networkmanager/manager.h"

namespace quorvel::cm {

// Activates the connection that a network names, unless it is active already, or one that it makes of the
// profile, and follows it: what it has activated itself it deactivates with the last call on it, what it has
// made it deletes, and nothing else. A call is suspended while its
// interface has no carrier or its device is not through with coming up again.
class NetworkManagerBearer : public Bearer, private ManagerEvents {
  public:
    // Reads a stored profile, to make a connection of.
    using RecordOf = std::function<NetPMProfile(int32_t profile)>;

    // What is activated is noted in this file. `network_changed` is told that the status of a network may be
    // another one.
    NetworkManagerBearer(event_base* base, Interfaces& interfaces, RecordOf record_of, std::string notes,
                         std::function<void()> network_changed, BearerEvents& events);

    // Connections will come: what a server that was killed has left behind goes. A message bus that is not
    // there, or is lost, is tried again.
    void be_ready();
    void connect(uint32_t call, const Network& network) override;
    void disconnect(uint32_t call) override;
    // Interfaces may have changed.
    void look_again();
    NetworkStatus status(const Network& network) const;
    // The server ends in order, and so does what it has brought up.
    void finish();

  private:
    enum class State { kFree, kWaiting, kUp, kSuspended };
    struct Use {
        State state = State::kFree;
        uint64_t life = 0;  // another one for each connection, so that a late answer finds its own
        Network network;
        std::string connection;  // these three are NetworkManager's paths
        std::string active;
        std::string device;
        bool ours = false;  // activated by us
        bool made = false;  // by us, with the connection
        std::string addressing;
        uint32_t device_reason = 0;
        uint32_t connection_reason = 0;
        Addresses addresses;
        std::string modem;
        bool device_up = false;
        bool registered = true;  // the modem, where there is one
        bool looking = false;
        bool look_again = false;
    };

    // One comes up at a time until it is known what is active for it: two that want the same connection would
    // take it from each other.
    void start_next();
    void find(uint32_t call);
    void make(uint32_t call);
    void bring_up(uint32_t call, const std::string& device);
    // Asks what connections and devices there are.
    void take_stock();
    bool rejoin();
    void rejoin_later();
    // Deletes what a server has made and no use of ours is behind.
    void sweep(const std::vector<StoredConnection>& connections);
    void activate(uint32_t call);
    // Lets the next one start.
    void started(uint32_t call);
    void activated(uint32_t call, const std::string& active, bool ours);
    void look(uint32_t call);
    void take_in(uint32_t call, const ActiveState& state);
    std::string interface_of(const ActiveState& state) const;
    void follow_link(uint32_t call);
    void refuse(uint32_t call, Reason reason, const std::string& why);
    // Ended, or never come up.
    void end(uint32_t call, Reason reason, const std::string& why);
    void end_with_reason(uint32_t call, const std::string& otherwise);
    // Does a step of the call's life; the call fails with it.
    template <class Step>
    void step(uint32_t call, Step&& step);
    bool lives(uint32_t call, uint64_t life) const { return uses_[call].life == life; }
    // Whether another call is on the same activation.
    bool shared(uint32_t call) const;
    void forget(uint32_t call);

    void on_changed(const std::string& path) override;
    void on_connection_reason(const std::string& path, uint32_t state, uint32_t reason) override;
    void on_device_reason(const std::string& path, uint32_t state, uint32_t reason) override;
    void on_modem(const std::string& path, bool registered) override;
    void on_other_objects() override;
    void on_manager_known(const std::string& name) override;
    void on_manager_gone() override;

    Interfaces& interfaces_;
    RecordOf record_of_;
    BearerEvents& events_;
    Manager manager_;
    std::function<void()> network_changed_;
    DeviceWatch devices_;
    Activations activations_;
    uint64_t last_life_ = 0;
    std::array<Use, kCallCount> uses_;
    std::array<std::unique_ptr<Timer>, kCallCount> limits_;
    std::deque<uint32_t> waiting_;
    uint64_t starting_ = 0;  // the life of the first one, as soon as it is being started
    Timer start_;
    Timer stock_;
    std::chrono::seconds patience_;
    Timer rejoin_;
};

}  // namespace quorvel::cm
