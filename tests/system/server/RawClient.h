// A client that speaks the protocol itself, byte by byte, so that it can speak it wrongly too.
#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/Wire.h"
#include "quorvel/NetPM.h"
#include "support/Program.h"

namespace quorvel::test {

// The server is not there, or has closed the socket.
class NoServer : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One connection to the server. Reading what does not come within a time that no sound run needs throws.
class RawSocket {
  public:
    RawSocket();
    ~RawSocket();
    RawSocket(RawSocket&& other) noexcept;
    RawSocket& operator=(RawSocket&&) = delete;

    void send(std::string_view bytes);
    void send(const wire::RequestHeader& header, std::string_view payload = {});
    wire::Record record() { return block<wire::Record>(); }
    std::string bytes(size_t size);
    template <class T>
    T block() {
        T result;
        const std::string read = bytes(sizeof(result));
        read.copy(reinterpret_cast<char*>(&result), sizeof(result));
        return result;
    }
    // Waits until the server has closed; false when it sends something instead.
    bool closed();
    // Reads until the server has closed.
    void drain();
    // Whether nothing has arrived, as far as the server has got by now.
    bool silent();
    int fd() const { return fd_; }

  private:
    int fd_;
};

// The words of a request that differ between commands.
struct Arguments {
    uint32_t Param = 0;
    uint32_t Arg3 = 0;
    uint32_t Arg4 = 0;
};

// A registered client with both sockets.
class RawClient {
  public:
    explicit RawClient(uint32_t application = 0);

    uint32_t id() const { return id_; }
    RawSocket& sync() { return sync_; }
    RawSocket& async() { return async_; }

    // Sends a request and gives the answer of the sync socket.
    wire::Record ask(uint32_t command, const Arguments& arguments = {}, std::string_view payload = {});
    // The next event on the async socket that is no network status.
    wire::Record event();
    void tell(uint32_t command, const Arguments& arguments = {}, std::string_view payload = {});

    // Opens a profile, and gives its call once the connection is up; throws when it does not come up.
    uint32_t open(int32_t profile, wire::ConnectionBlock* block = nullptr);
    wire::Record start(int32_t profile);
    // Sends a stop request and gives the response.
    wire::Record stop(uint32_t call, int32_t profile);

  private:
    RawSocket sync_;
    RawSocket async_;
    uint32_t id_;
};

// An answer of the profile manager, in its own words.
struct PmAnswer {
    uint32_t code;
    int32_t profile;
    uint32_t error;
    uint32_t value;
    std::string data;
};
PmAnswer ask_pm(RawClient& client, uint32_t command, int32_t profile = 0, std::string_view data = {},
                uint32_t arg = 0, uint32_t arg2 = 0);

// An App-Profile message: the payload of the request, and words 1 to 9 of the answer.
struct AppMessage {
    uint32_t opaque = 0;
    uint32_t command = 0;
    uint32_t result = 0;
    uint32_t id = 0;
    uint32_t param = 0;
    uint32_t profile = 0;
    std::array<uint32_t, 2> interfaces{};
    uint16_t with_profile = 0;
    uint16_t with_interfaces = 0;
};
void send_app(RawClient& client, const AppMessage& message);
// Throws when what comes is no answer to this.
AppMessage ask_app(RawClient& client, const AppMessage& message);

// A profile as it travels, 972 bytes; the one in an answer; and one that the server takes.
std::string slot(const NetPMProfile& profile);
NetPMProfile profile_in(const PmAnswer& answer);
NetPMProfile pdp_profile(const std::string& name, const std::string& apn);
NetPMProfile wlan_profile(const std::string& name, const std::string& essid);

// Copies text into a field.
template <size_t Size>
void put(char (&field)[Size], std::string_view text) {
    field[text.copy(field, Size - 1)] = '\0';
}

// Runs an operator's command to its end.
Ended ctl(std::vector<std::string> words);

std::string dotted(const NetCMAddr& address);

}  // namespace quorvel::test
