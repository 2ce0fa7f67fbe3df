#include "networkmanager/manager.h"

#include <algorithm>
#include <utility>

#include "log.h"
#include "networkmanager/settings.h"

namespace quorvel::cm {
namespace {

constexpr char kName[] = "org.freedesktop.NetworkManager";
constexpr char kManager[] = "org.freedesktop.NetworkManager";
constexpr char kSettings[] = "org.freedesktop.NetworkManager.Settings";
constexpr char kSettingsConnection[] = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr char kActive[] = "org.freedesktop.NetworkManager.Connection.Active";
constexpr char kVpn[] = "org.freedesktop.NetworkManager.VPN.Connection";
constexpr char kDevice[] = "org.freedesktop.NetworkManager.Device";
constexpr char kIp4Config[] = "org.freedesktop.NetworkManager.IP4Config";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
constexpr char kBus[] = "org.freedesktop.DBus";
constexpr char kModemManager[] = "org.freedesktop.ModemManager1";
constexpr char kModem3gpp[] = "org.freedesktop.ModemManager1.Modem.Modem3gpp";
constexpr char kManagerPath[] = "/org/freedesktop/NetworkManager";
constexpr char kSettingsPath[] = "/org/freedesktop/NetworkManager/Settings";
// Where no object is meant.
constexpr char kNothing[] = "/";
// Of AddConnection2: not on the disk, and not before it is asked for.
constexpr uint32_t kMemoryOnly = 0x2;
constexpr uint32_t kNotByItself = 0x20;

BusObject manager() {
    return {kName, kManagerPath, kManager};
}

BusObject settings() {
    return {kName, kSettingsPath, kSettings};
}

// NetworkManager's own words, and what to do where they do not say it.
std::string error_of(sd_bus_message* answer) {
    const sd_bus_error* error = sd_bus_message_get_error(answer);
    if (error == nullptr)
        return "";
    if (sd_bus_error_has_names(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_SERVICE_UNKNOWN) != 0)
        return "NetworkManager is not running";
    std::string text = error->message != nullptr ? error->message : "no answer";
    if (error->name == nullptr)
        return text;
    text += std::string(" (") + error->name + ")";
    if (std::string_view(error->name).ends_with("PermissionDenied") ||
        sd_bus_error_has_name(error, SD_BUS_ERROR_ACCESS_DENIED) != 0)
        text +=
            "; the server's user needs a polkit rule for org.freedesktop.NetworkManager.network-control and "
            "settings.modify.system, as 50-quorvel.rules has it for the user quorvel";
    return text;
}

std::string signal_rule(const char* interface, const char* member, const char* first = nullptr,
                        const char* sender = kName) {
    std::string rule = std::string("type='signal',sender='") + sender + "',interface='" + interface +
                       "',member='" + member + "'";
    if (first != nullptr)
        rule += std::string(",arg0='") + first + "'";
    return rule;
}

}  // namespace

Manager::Manager(event_base* base, ManagerEvents& events)
    : events_(events), bus_(base, [this] { events_.on_manager_gone(); }) {}

void Manager::be_connected() {
    if (bus_.connected())
        return;
    bus_.connect();
    try {
        bus_.watch(signal_rule(kBus, "NameOwnerChanged", kName, kBus),
                   [this](sd_bus_message* signal) { owner_changed(signal); });
        const auto connection_reason = [this](sd_bus_message* signal) {
            const std::string path = sd_bus_message_get_path(signal);
            const uint32_t state = read_number(signal);
            events_.on_connection_reason(path, state, read_number(signal));
        };
        bus_.watch(signal_rule(kActive, "StateChanged"), connection_reason);
        // The same reasons, and sooner.
        bus_.watch(signal_rule(kVpn, "VpnStateChanged"), connection_reason);
        bus_.watch(signal_rule(kDevice, "StateChanged"), [this](sd_bus_message* signal) {
            const std::string path = sd_bus_message_get_path(signal);
            const uint32_t state = read_number(signal);
            read_number(signal);  // the state before
            events_.on_device_reason(path, state, read_number(signal));
        });
        const auto other_objects = [this](sd_bus_message*) { events_.on_other_objects(); };
        for (const char* member : {"NewConnection", "ConnectionRemoved"})
            bus_.watch(signal_rule(kSettings, member), other_objects);
        bus_.watch(signal_rule(kSettingsConnection, "Updated"), other_objects);
        for (const char* member : {"DeviceAdded", "DeviceRemoved"})
            bus_.watch(signal_rule(kManager, member), other_objects);
        for (const char* interface : {kActive, kDevice, kIp4Config})
            bus_.watch(
                signal_rule(kProperties, "PropertiesChanged", interface),
                [this](sd_bus_message* signal) { events_.on_changed(sd_bus_message_get_path(signal)); });
        bus_.watch(signal_rule(kProperties, "PropertiesChanged", kModem3gpp, kModemManager),
                   [this](sd_bus_message* signal) { modem_changed(signal); });
        bus_id_.clear();
        owner_.clear();
        ask_bus("GetId", nullptr, bus_id_);
        ask_bus("GetNameOwner", kName, owner_);
    } catch (...) {
        bus_.disconnect();
        throw;
    }
}

void Manager::owner_changed(sd_bus_message* signal) {
    read_text(signal, 's');
    const bool was_there = !read_text(signal, 's').empty();
    owner_ = read_text(signal, 's');
    const bool is_there = !owner_.empty();
    log::info("NetworkManager ", is_there ? "is there" : "has gone");
    if (was_there)
        events_.on_manager_gone();
    if (!is_there)
        return;
    tell_name();
    events_.on_other_objects();
}

void Manager::ask_bus(const char* method, const char* argument, std::string& answer) {
    const BusMessage message = bus_.new_call({kBus, "/org/freedesktop/DBus", kBus}, method);
    if (argument != nullptr)
        check_bus(sd_bus_message_append(message.get(), "s", argument), "a question");
    send(message, [this, &answer](sd_bus_message* reply, const std::string& error) {
        // That nobody has the name is an error.
        if (error.empty())
            answer = read_text(reply, 's');
        tell_name();
    });
}

// The bus numbers who comes, and no two have the same number. Buses have numbers, too.
void Manager::tell_name() {
    if (!bus_id_.empty() && !owner_.empty())
        events_.on_manager_known(bus_id_ + " " + owner_);
}

// NetworkManager keeps a connection up while its modem searches, and does not tell of it.
void Manager::modem_changed(sd_bus_message* signal) {
    const std::string path = sd_bus_message_get_path(signal);
    read_text(signal, 's');
    enum Registration : uint32_t { kIdle = 0, kSearching = 2, kDenied = 3, kUnknown = 4, kEmergencyOnly = 8 };
    uint32_t state = kUnknown;
    read_entries(signal, {{"RegistrationState", &state}});
    if (state != kUnknown)
        events_.on_modem(
            path, state != kIdle && state != kSearching && state != kDenied && state != kEmergencyOnly);
}

void Manager::send(const BusMessage& message, const Then<sd_bus_message*>& then) {
    bus_.call(message, [then](sd_bus_message* answer) {
        std::string error = error_of(answer);
        try {
            return then(answer, error);
        } catch (const BusError& fault) {
            error = fault.what();
        }
        // Whoever waits for an answer is told also of one that cannot be read.
        then(nullptr, error);
    });
}

BusMessage Manager::question_about(const std::string& path, const char* interface) {
    BusMessage message = bus_.new_call({kName, path, kProperties}, "GetAll");
    check_bus(sd_bus_message_append(message.get(), "s", interface), "a question");
    return message;
}

void Manager::ask(const std::string& path, const char* interface, const Then<sd_bus_message*>& then) {
    send(question_about(path, interface), then);
}

template <class T>
void Manager::gather(const std::shared_ptr<Gathering<T>>& gathering) {
    if (gathering->paths.empty())
        return gathering->then(gathering->found, "");
    const std::string path = std::move(gathering->paths.back());
    gathering->paths.pop_back();
    send(gathering->question(path), [=, this](sd_bus_message* answer, const std::string& error) {
        if (error.empty()) {
            T found = gathering->read(answer);
            found.path = path;
            gathering->found.push_back(std::move(found));
        }
        gather(gathering);
    });
}

void Manager::list_connections(const Then<std::vector<StoredConnection>>& then) {
    const auto question = [this](const std::string& path) {
        return bus_.new_call({kName, path, kSettingsConnection}, "GetSettings");
    };
    send(bus_.new_call(settings(), "ListConnections"),
         [=, this](sd_bus_message* answer, const std::string& error) {
             if (!error.empty())
                 return then({}, error);
             gather(std::make_shared<Gathering<StoredConnection>>(Gathering<StoredConnection>{
                 read_paths(answer), question, read_stored_connection, then, {}}));
         });
}

void Manager::list_devices(const Then<std::vector<Device>>& then) {
    send(bus_.new_call(manager(), "GetDevices"), [=, this](sd_bus_message* answer, const std::string& error) {
        error.empty() ? list_devices(read_paths(answer), then) : then({}, error);
    });
}

void Manager::list_devices(std::vector<std::string> paths, const Then<std::vector<Device>>& then) {
    const auto question = [this](const std::string& path) { return question_about(path, kDevice); };
    gather(std::make_shared<Gathering<Device>>(
        Gathering<Device>{std::move(paths), question, read_device, then, {}}));
}

void Manager::list_active(const Then<std::vector<ActiveConnection>>& then) {
    const auto question = [this](const std::string& path) { return question_about(path, kActive); };
    ask(kManagerPath, kManager, [=, this](sd_bus_message* answer, const std::string& error) {
        if (!error.empty())
            return then({}, error);
        std::vector<std::string> paths;
        read_entries(answer, {{"ActiveConnections", &paths}});
        gather(std::make_shared<Gathering<ActiveConnection>>(
            Gathering<ActiveConnection>{std::move(paths), question, read_active_connection, then, {}}));
    });
}

void Manager::find(const std::string& name, const Then<std::string>& then) {
    list_connections([=](const std::vector<StoredConnection>& connections, const std::string& error) {
        if (!error.empty())
            return then("", error);
        const auto found = std::ranges::find_if(
            connections, [&](const StoredConnection& connection) { return connection.is_called(name); });
        found != connections.end() ? then(found->path, "")
                                   : then("", "it has no connection \"" + name + "\"");
    });
}

void Manager::find_active(const std::string& connection, const Then<std::string>& then) {
    list_active([=](const std::vector<ActiveConnection>& connections, const std::string& error) {
        const auto found = std::ranges::find_if(connections, [&](const ActiveConnection& active) {
            return active.connection == connection && active.lives();
        });
        then(found != connections.end() ? found->path : "", error);
    });
}

void Manager::find_device(const std::string& interface, const Then<std::string>& then) {
    const BusMessage message = bus_.new_call(manager(), "GetDeviceByIpIface");
    check_bus(sd_bus_message_append(message.get(), "s", interface.c_str()), "a question");
    send(message, [then](sd_bus_message* answer, const std::string& error) {
        then(error.empty() ? read_text(answer, 'o') : "", error);
    });
}

void Manager::activate(const std::string& connection, const std::string& device,
                       const Then<std::string>& then) {
    const BusMessage message = bus_.new_call(manager(), "ActivateConnection");
    check_bus(sd_bus_message_append(message.get(), "ooo", connection.c_str(),
                                    device.empty() ? kNothing : device.c_str(), kNothing),
              "an activation");
    send(message, [then](sd_bus_message* answer, const std::string& error) {
        then(error.empty() ? read_text(answer, 'o') : "", error);
    });
}

void Manager::deactivate(const std::string& active) {
    const BusMessage message = bus_.new_call(manager(), "DeactivateConnection");
    check_bus(sd_bus_message_append(message.get(), "o", active.c_str()), "a deactivation");
    tell(message, "deactivate " + active);
}

void Manager::tell(const BusMessage& message, const std::string& what) {
    send(message, [what](sd_bus_message*, const std::string& error) {
        if (!error.empty())
            log::info("NetworkManager does not ", what, ": ", error);
    });
}

void Manager::add(const NetPMProfile& profile, const Network& network, const Then<std::string>& then) {
    const BusMessage message = bus_.new_call(settings(), "AddConnection2");
    // Its memory is wiped when it has been sent: there are passwords in it.
    check_bus(sd_bus_message_sensitive(message.get()), "a connection");
    append_settings(message.get(), profile, network);
    check_bus(sd_bus_message_append(message.get(), "ua{sv}", kMemoryOnly | kNotByItself, 0), "a connection");
    send(message, [then](sd_bus_message* answer, const std::string& error) {
        then(error.empty() ? read_text(answer, 'o') : "", error);
    });
}

void Manager::remove(const std::string& connection) {
    tell(bus_.new_call({kName, connection, kSettingsConnection}, "Delete"), "delete " + connection);
}

void Manager::look(const std::string& active, const Then<ActiveState>& then) {
    ask(active, kActive, [this, then](sd_bus_message* answer, const std::string& error) {
        if (!error.empty())
            return then({}, error);
        ActiveState state;
        state.connection = read_active_connection(answer);
        look_at_device(state, then);
    });
}

void Manager::look_at_device(const ActiveState& state, const Then<ActiveState>& then) {
    if (state.connection.devices.empty())
        return then(state, "");
    const std::string& path = state.connection.devices.front();
    ask(path, kDevice, [=, this, found = state](sd_bus_message* answer, const std::string& error) mutable {
        if (!error.empty())
            return then({}, error);
        found.device = read_device(answer);
        found.device.path = found.connection.devices.front();
        look_at_addresses(found, then);
    });
}

void Manager::look_at_addresses(const ActiveState& state, const Then<ActiveState>& then) {
    if (state.connection.addressing.empty())
        return then(state, "");
    ask(state.connection.addressing, kIp4Config,
        [then, found = state](sd_bus_message* answer, const std::string& error) mutable {
            // They may have been replaced meanwhile, which is told.
            if (error.empty())
                read_entries(answer, {{"AddressData", &found.addresses}, {"NameserverData", &found.dns}});
            then(found, "");
        });
}

}  // namespace quorvel::cm
