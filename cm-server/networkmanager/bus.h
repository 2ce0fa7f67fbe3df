// The system's message bus, on the server's own event loop.
#pragma once

#include <netinet/in.h>
#include <systemd/sd-bus.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "events.h"

namespace quorvel::cm {

// The bus has gone, or says something else than what was asked for.
class BusError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
// Throws BusError when `result` is the negative number of an error.
int check_bus(int result, const char* what);

using BusMessage = std::unique_ptr<sd_bus_message, Freed<sd_bus_message_unref>>;

// Where an object is, and by which interface it is spoken to.
struct BusObject {
    const char* name;  // of whom it belongs to
    std::string path;
    const char* interface;
};

class Bus {
  public:
    // Of an answer or a signal. An answer may be an error: sd_bus_message_get_error() knows.
    using Taker = std::function<void(sd_bus_message* message)>;

    // `lost` is told, from the loop, that the bus has gone: nothing is answered and no signal comes any more.
    Bus(event_base* base, std::function<void()> lost);
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    bool connected() const { return bus_ != nullptr; }
    // Not any more from when it is lost on, which `lost` is told a moment later.
    bool usable() const;
    // Throws BusError.
    void connect();
    void disconnect();

    // Throws BusError. Whoever is called is not started for it.
    BusMessage new_call(const BusObject& object, const char* method);
    // `answered` is told once, from the loop; never when the bus is lost first. It is kept until then.
    void call(const BusMessage& message, Taker answered);
    // Everything that was asked for is on its way when this returns. What is left is waited for.
    void flush();
    // Every signal that fits the rule, as long as the bus is there.
    void watch(const std::string& rule, Taker signalled);

  private:
    using Connection = std::unique_ptr<sd_bus, Freed<sd_bus_close_unref>>;

    // Takes in what has come.
    void pump();
    void lose(int error);
    // Waits for what the bus waits for.
    void arm();

    event_base* base_;
    std::function<void()> lost_;
    Connection bus_;
    Event ready_;
    short waited_for_ = 0;
    Timer due_;
};

// Calls `each(key, type)` for every entry of the dictionary of variants that comes next in the message; what
// it does not read, and gives false for, is skipped. Throws BusError.
void each_entry(sd_bus_message* message,
                const std::function<bool(std::string_view key, std::string_view type)>& each);

// Where an entry goes: a string or an object path, whose "/" for none is an empty text; a number; yes or no;
// object paths; the "address" of each dictionary of a list; the bytes of an array.
struct Bytes {
    std::string& text;
};
using Target =
    std::variant<std::string*, uint32_t*, bool*, std::vector<std::string>*, std::vector<in_addr>*, Bytes>;
struct Wanted {
    std::string_view key;
    Target into;
};
// Reads the entry of a dictionary that is at hand. False when nobody wants it, or it is of another type.
bool read_entry(sd_bus_message* message, std::string_view key, std::string_view type,
                std::initializer_list<Wanted> wanted);
// Reads the dictionary of variants that comes next.
void read_entries(sd_bus_message* message, std::initializer_list<Wanted> wanted);

// The next string, object path or number of a message, or list of object paths. Throws BusError.
std::string read_text(sd_bus_message* message, char type);
uint32_t read_number(sd_bus_message* message);
std::vector<std::string> read_paths(sd_bus_message* message);

}  // namespace quorvel::cm
