// NetworkManager, as the server speaks to it: what a connection is called, how it is brought up, and what has
// become of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/config.h"
#include "networkmanager/bus.h"
#include "networkmanager/objects.h"
#include "quorvel/NetPM.h"

namespace quorvel::cm {

// What has become of a connection that was activated, and of the device below it.
struct ActiveState {
    ActiveConnection connection;
    Device device;  // without a path as long as there is none
    std::vector<in_addr> addresses;
    std::vector<in_addr> dns;
};

class ManagerEvents {
  public:
    // Something about the object has changed.
    virtual void on_changed(const std::string& path) = 0;
    // Why an active connection or a device is where it is now, by NetworkManager's number.
    virtual void on_connection_reason(const std::string& path, uint32_t state, uint32_t reason) = 0;
    virtual void on_device_reason(const std::string& path, uint32_t state, uint32_t reason) = 0;
    // A modem has lost its network, or has found one again.
    virtual void on_modem(const std::string& path, bool registered) = 0;
    // NetworkManager is there, or has connections or devices that it had not, or not any more.
    virtual void on_other_objects() = 0;
    // NetworkManager is there, by a name that none had before it, and none will have.
    virtual void on_manager_known(const std::string& name) = 0;
    // NetworkManager has gone, or the bus: what it had brought up is not known any more.
    virtual void on_manager_gone() = 0;

  protected:
    ~ManagerEvents() = default;
};

class Manager {
  public:
    // What came of a question; the error is empty when it was answered.
    template <class T>
    using Then = std::function<void(const T& answer, const std::string& error)>;

    Manager(event_base* base, ManagerEvents& events);

    // Follows it from here on. Throws BusError.
    void be_connected();
    // Whether it can be told something.
    bool in_reach() const { return bus_.usable(); }
    // All that it has. What goes while it is asked for is left out.
    void list_connections(const Then<std::vector<StoredConnection>>& then);
    void list_devices(const Then<std::vector<Device>>& then);
    void list_devices(std::vector<std::string> paths, const Then<std::vector<Device>>& then);
    void list_active(const Then<std::vector<ActiveConnection>>& then);
    // The path of the connection that has this name or UUID.
    void find(const std::string& name, const Then<std::string>& then);
    // The path of what is active of the connection already; empty when nothing is.
    void find_active(const std::string& connection, const Then<std::string>& then);
    // Of an interface.
    void find_device(const std::string& interface, const Then<std::string>& then);
    // Gives the path of what is active then, while it still comes up. Without a device NetworkManager
    // chooses.
    void activate(const std::string& connection, const std::string& device, const Then<std::string>& then);
    // It is in the log when it cannot be done.
    void deactivate(const std::string& active);
    // Makes a connection of a profile, for as long as NetworkManager runs, and gives its path then. Throws
    // NotSupported.
    void add(const NetPMProfile& profile, const Network& network, const Then<std::string>& then);
    // Of those that were made. It is in the log when it cannot be done.
    void remove(const std::string& connection);
    void flush() { bus_.flush(); }
    void look(const std::string& active, const Then<ActiveState>& then);

  private:
    void owner_changed(sd_bus_message* signal);
    // What the message bus itself calls something.
    void ask_bus(const char* method, const char* argument, std::string& answer);
    void tell_name();
    void modem_changed(sd_bus_message* signal);
    // The properties of an interface of an object.
    void ask(const std::string& path, const char* interface, const Then<sd_bus_message*>& then);
    BusMessage question_about(const std::string& path, const char* interface);
    void send(const BusMessage& message, const Then<sd_bus_message*>& then);
    // Asks about one after the other: a message bus takes some hundred questions at a time, and no more.
    template <class T>
    struct Gathering {
        std::vector<std::string> paths;
        std::function<BusMessage(const std::string& path)> question;
        std::function<T(sd_bus_message* answer)> read;
        Then<std::vector<T>> then;
        std::vector<T> found;
    };
    template <class T>
    void gather(const std::shared_ptr<Gathering<T>>& gathering);
    // Where it does not matter what comes of it.
    void tell(const BusMessage& message, const std::string& what);
    void look_at_device(const ActiveState& state, const Then<ActiveState>& then);
    void look_at_addresses(const ActiveState& state, const Then<ActiveState>& then);

    ManagerEvents& events_;
    Bus bus_;
    std::string bus_id_;
    std::string owner_;  // of NetworkManager's name
};

}  // namespace quorvel::cm
