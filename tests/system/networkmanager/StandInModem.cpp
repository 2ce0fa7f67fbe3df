#include "networkmanager/StandInModem.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace quorvel::test {
namespace {

constexpr const char* kName = "org.freedesktop.ModemManager1";
constexpr const char* kRoot = "/org/freedesktop/ModemManager1";
constexpr const char* kModem = "/org/freedesktop/ModemManager1/Modem/0";
// These two are no objects of the manager, which has modems alone.
constexpr const char* kSim = "/SIM/0";
constexpr const char* kBearer = "/Bearer/0";
constexpr const char* k3gppInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";
constexpr const char* kModemInterface = "org.freedesktop.ModemManager1.Modem";

// States of the modem.
constexpr int kRegistered = 8;
constexpr int kConnected = 11;

}  // namespace

// What is called by the bus.
struct ModemObject {
    static StandInModem& of(void* modem) { return *static_cast<StandInModem*>(modem); }

    static int property(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply,
                        void* modem, sd_bus_error*) {
        const StandInModem& self = of(modem);
        const std::string_view key = name;
        if (key == "Sim")
            return sd_bus_message_append(reply, "o", kSim);
        if (key == "State")
            return sd_bus_message_append(reply, "i", self.state_);
        if (key == "Ports")
            return sd_bus_message_append(reply, "a(su)", 2, "cdc-wdm7", 6U, self.data_port_.c_str(), 2U);
        if (key == "Drivers")
            return sd_bus_message_append(reply, "as", 1, "qmi_wwan");
        if (key == "SupportedCapabilities")
            return sd_bus_message_append(reply, "au", 1, kCapabilities);
        if (key == "Bearers")
            return self.connected_ ? sd_bus_message_append(reply, "ao", 1, kBearer)
                                   : sd_bus_message_append(reply, "ao", 0);
        if (key == "SignalQuality")
            return sd_bus_message_append(reply, "(ub)", 70U, 1);
        if (key == "Interface")
            return sd_bus_message_append(reply, "s", self.data_port_.c_str());
        if (key == "Connected")
            return sd_bus_message_append(reply, "b", static_cast<int>(self.connected_));
        if (key == "Ip4Config")
            return sd_bus_message_append(reply, "a{sv}", 5, "method", "u", 2U, "address", "s",
                                         self.address_.c_str(), "prefix", "u", 24U, "gateway", "s",
                                         "10.70.0.1", "dns1", "s", "10.70.0.1");
        if (key == "RegistrationState")
            return sd_bus_message_append(reply, "u", self.registration_);
        if (key == "Ip6Config")
            return sd_bus_message_append(reply, "a{sv}", 1, "method", "u", 0U);
        return sd_bus_message_append(reply, "u", number_of(key));
    }

    static uint32_t number_of(std::string_view key) {
        if (key == "CurrentCapabilities")
            return kCapabilities;
        if (key == "PowerState")
            return 3;  // on
        // No lock, one bearer, IPv4; nothing else matters.
        constexpr std::string_view kOnes[] = {"UnlockRequired", "MaxBearers", "SupportedIpFamilies"};
        return std::ranges::find(kOnes, key) != std::end(kOnes) ? 1 : 0;
    }

    static int text(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply, void*,
                    sd_bus_error*) {
        const std::string_view key = name;
        const char* value = key == "PrimaryPort"                                   ? "cdc-wdm7"
                            : key == "Imsi"                                        ? "001010123456789"
                            : key == "OperatorIdentifier" || key == "OperatorCode" ? "00101"
                                                                                   : name;
        return sd_bus_message_append(reply, "s", value);
    }

    static int done(sd_bus_message* call, void*, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "");
    }

    static int list_bearers(sd_bus_message* call, void* modem, sd_bus_error*) {
        return of(modem).connected_ ? sd_bus_reply_method_return(call, "ao", 1, kBearer)
                                    : sd_bus_reply_method_return(call, "ao", 0);
    }

    static int connect(sd_bus_message* call, void* modem, sd_bus_error* error) {
        StandInModem& self = of(modem);
        std::map<std::string, std::string> asked;
        must(sd_bus_message_enter_container(call, 'a', "{sv}"), "a connection");
        while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
            const char* key = nullptr;
            must(sd_bus_message_read(call, "s", &key), "a key");
            asked[key] = read_any(call);
            sd_bus_message_exit_container(call);
        }
        {
            const std::lock_guard lock(self.mutex_);
            self.asked_for_ = std::move(asked);
        }
        if (!self.error_.empty())
            return sd_bus_error_set(error, (std::string(kName) + ".Error." + self.error_).c_str(),
                                    "as ordered");
        self.connected_ = true;
        set_state(self, kConnected);
        return sd_bus_reply_method_return(call, "o", kBearer);
    }

    static int disconnect(sd_bus_message* call, void* modem, sd_bus_error*) {
        StandInModem& self = of(modem);
        ++self.disconnections_;
        self.connected_ = false;
        set_state(self, kRegistered);
        return sd_bus_reply_method_return(call, "");
    }

    static void set_state(StandInModem& self, int state) {
        const int before = std::exchange(self.state_, state);
        sd_bus_emit_properties_changed(self.bus_, kModem, kModemInterface, "State", nullptr);
        sd_bus_emit_signal(self.bus_, kModem, kModemInterface, "StateChanged", "iiu", before, state, 1U);
    }

    static constexpr uint32_t kCapabilities = 4 | 8;  // GSM and LTE
};

namespace {

constexpr uint64_t kChanges = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
constexpr uint64_t kOpen = SD_BUS_VTABLE_UNPRIVILEGED;

#define NUMBER(name) SD_BUS_PROPERTY(name, "u", ModemObject::property, 0, kChanges)
#define TEXT(name) SD_BUS_PROPERTY(name, "s", ModemObject::text, 0, kChanges)
#define OTHER(name, type) SD_BUS_PROPERTY(name, type, ModemObject::property, 0, kChanges)

const sd_bus_vtable kModemTable[] = {SD_BUS_VTABLE_START(0),
                                     OTHER("Sim", "o"),
                                     OTHER("State", "i"),
                                     OTHER("Ports", "a(su)"),
                                     OTHER("Drivers", "as"),
                                     OTHER("SupportedCapabilities", "au"),
                                     OTHER("Bearers", "ao"),
                                     OTHER("SignalQuality", "(ub)"),
                                     NUMBER("CurrentCapabilities"),
                                     NUMBER("PowerState"),
                                     NUMBER("UnlockRequired"),
                                     NUMBER("MaxBearers"),
                                     NUMBER("SupportedIpFamilies"),
                                     NUMBER("StateFailedReason"),
                                     NUMBER("AccessTechnologies"),
                                     TEXT("PrimaryPort"),
                                     TEXT("Device"),
                                     TEXT("DeviceIdentifier"),
                                     TEXT("EquipmentIdentifier"),
                                     TEXT("Manufacturer"),
                                     TEXT("Model"),
                                     TEXT("Plugin"),
                                     SD_BUS_METHOD("Enable", "b", "", ModemObject::done, kOpen),
                                     SD_BUS_METHOD("SetPowerState", "u", "", ModemObject::done, kOpen),
                                     SD_BUS_METHOD("ListBearers", "", "ao", ModemObject::list_bearers, kOpen),
                                     SD_BUS_METHOD("DeleteBearer", "o", "", ModemObject::done, kOpen),
                                     SD_BUS_SIGNAL("StateChanged", "iiu", 0),
                                     SD_BUS_VTABLE_END};

const sd_bus_vtable kSimpleTable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Connect", "a{sv}", "o", ModemObject::connect, kOpen),
    SD_BUS_METHOD("Disconnect", "o", "", ModemObject::disconnect, kOpen), SD_BUS_VTABLE_END};

const sd_bus_vtable k3gppTable[] = {SD_BUS_VTABLE_START(0),      TEXT("Imei"),
                                    TEXT("OperatorCode"),        TEXT("OperatorName"),
                                    NUMBER("RegistrationState"), SD_BUS_VTABLE_END};

const sd_bus_vtable kSimTable[] = {SD_BUS_VTABLE_START(0),     TEXT("SimIdentifier"), TEXT("Imsi"),
                                   TEXT("OperatorIdentifier"), TEXT("OperatorName"),  SD_BUS_VTABLE_END};

const sd_bus_vtable kBearerTable[] = {SD_BUS_VTABLE_START(0),      OTHER("Interface", "s"),
                                      OTHER("Connected", "b"),     OTHER("Ip4Config", "a{sv}"),
                                      OTHER("Ip6Config", "a{sv}"), NUMBER("IpTimeout"),
                                      NUMBER("BearerType"),        SD_BUS_VTABLE_END};

}  // namespace

StandInModem::StandInModem(std::string data_port, std::string address)
    : data_port_(std::move(data_port)), address_(std::move(address)), state_(kRegistered) {
    add_manager(kRoot);
    add(kModem, kModemInterface, kModemTable, this);
    add(kModem, "org.freedesktop.ModemManager1.Modem.Simple", kSimpleTable, this);
    add(kModem, k3gppInterface, k3gppTable, this);
    add(kSim, "org.freedesktop.ModemManager1.Sim", kSimTable, this);
    add(kBearer, "org.freedesktop.ModemManager1.Bearer", kBearerTable, this);
    begin(kName);
}

StandInModem::~StandInModem() {
    end();
}

void StandInModem::refuse(const std::string& error) {
    later([this, error] { error_ = error; });
}

void StandInModem::register_as(Registration registration) {
    later([this, registration] {
        registration_ = registration;
        sd_bus_emit_properties_changed(bus_, kModem, k3gppInterface, "RegistrationState", nullptr);
    });
}

void StandInModem::remove() {
    later([this] {
        sd_bus_emit_object_removed(bus_, kModem);
        remove_objects();
    });
}

std::map<std::string, std::string> StandInModem::asked_for() {
    const std::lock_guard lock(mutex_);
    return asked_for_;
}

}  // namespace quorvel::test
