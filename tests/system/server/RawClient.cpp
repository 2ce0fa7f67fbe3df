#include "server/RawClient.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/PmWire.h"

namespace quorvel::test {
namespace {

constexpr int kPatience = 30'000;  // milliseconds

int connected_socket() {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, wire::kServerPath);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        return fd;
    close(fd);
    throw NoServer("cannot connect to the server");
}

void wait_until_readable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, kPatience) == 0)
        throw std::runtime_error("the server sends nothing");
}

uint32_t register_on(RawSocket& sync, uint32_t application) {
    sync.send({wire::NETCM_CLIENT_REGISTER_REQ, 0, static_cast<uint32_t>(sync.fd()), 0, 0, application});
    const wire::Record answer = sync.record();
    if (answer.Code != wire::NETCM_CLIENT_REGISTER_RSP || answer.Status != NETCM_SUCCESS)
        throw std::runtime_error("the server refuses the registration");
    return answer.Word1;
}

}  // namespace

RawSocket::RawSocket() : fd_(connected_socket()) {}

RawSocket::~RawSocket() {
    if (fd_ >= 0)
        close(fd_);
}

RawSocket::RawSocket(RawSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

void RawSocket::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0)
            throw NoServer("the server takes no more");
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

void RawSocket::send(const wire::RequestHeader& header, std::string_view payload) {
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    send(bytes.append(payload));
}

std::string RawSocket::bytes(size_t size) {
    std::string result(size, '\0');
    for (size_t done = 0; done < size;) {
        wait_until_readable(fd_);
        const ssize_t got = read(fd_, result.data() + done, size - done);
        if (got <= 0)
            throw NoServer("the server has closed the socket");
        done += static_cast<size_t>(got);
    }
    return result;
}

bool RawSocket::closed() {
    wait_until_readable(fd_);
    char byte = 0;
    return read(fd_, &byte, 1) <= 0;
}

void RawSocket::drain() {
    while (!closed()) {
    }
}

bool RawSocket::silent() {
    // The server serves its sockets in turn: when it has answered somebody else, it has served this one.
    RawSocket other;
    register_on(other, 0);
    pollfd waiting{fd_, POLLIN, 0};
    return poll(&waiting, 1, 0) == 0;
}

RawClient::RawClient(uint32_t application) : id_(register_on(sync_, application)) {
    async_.send({wire::NETCM_CLIENT_ASYNC_REGISTER_REQ, 0, id_, 0, 0, 0});
}

wire::Record RawClient::event() {
    wire::Record record = async_.record();
    while (record.Code == wire::NETCM_CLIENT_NETWORK_STATUS_CHANGE_IND)
        record = async_.record();
    return record;
}

void RawClient::tell(uint32_t command, const Arguments& arguments, std::string_view payload) {
    sync_.send({command, arguments.Param, id_, arguments.Arg3, arguments.Arg4, 0}, payload);
}

wire::Record RawClient::ask(uint32_t command, const Arguments& arguments, std::string_view payload) {
    tell(command, arguments, payload);
    return sync_.record();
}

wire::Record RawClient::start(int32_t profile) {
    return ask(wire::NETCM_CLIENT_START_REQ, {.Arg4 = static_cast<uint32_t>(profile)});
}

uint32_t RawClient::open(int32_t profile, wire::ConnectionBlock* block) {
    const wire::Record answer = start(profile);
    const wire::Record response = answer.Status == NETCM_SUCCESS ? event() : answer;
    if (response.Status != NETCM_SUCCESS)
        throw std::runtime_error("the connection does not come up");
    const auto details = async_.block<wire::ConnectionBlock>();
    if (block != nullptr)
        *block = details;
    return response.CallId;
}

wire::Record RawClient::stop(uint32_t call, int32_t profile) {
    tell(wire::NETCM_CLIENT_STOP_REQ, {.Arg3 = call, .Arg4 = static_cast<uint32_t>(profile)});
    return event();
}

PmAnswer ask_pm(RawClient& client, uint32_t command, int32_t profile, std::string_view data, uint32_t arg,
                uint32_t arg2) {
    const std::array<uint32_t, 5> words{command, static_cast<uint32_t>(profile), arg,
                                        static_cast<uint32_t>(data.size()), arg2};
    std::string payload(reinterpret_cast<const char*>(words.data()), sizeof(words));
    const wire::Record answer = client.ask(wire::NETPM_PROFILE_REQ, {}, payload.append(data));
    return {answer.Word1, static_cast<int32_t>(answer.Word2), answer.CallId, answer.Word6,
            client.sync().bytes(answer.Word5)};
}

void send_app(RawClient& client, const AppMessage& message) {
    client.tell(wire::NETPM_APPPROF_REQ, {}, {reinterpret_cast<const char*>(&message), sizeof(message)});
}

AppMessage ask_app(RawClient& client, const AppMessage& message) {
    send_app(client, message);
    const wire::Record record = client.sync().record();
    AppMessage answer;
    static_assert(sizeof(answer) == sizeof(record) - sizeof(record.Code));
    std::memcpy(static_cast<void*>(&answer), &record.Word1, sizeof(answer));
    if (record.Code != wire::NETCM_CLIENT_PROPER_PROFILE_RSP || answer.command != message.command + 100)
        throw std::runtime_error("this answers something else");
    return answer;
}

NetPMProfile profile_in(const PmAnswer& answer) {
    NetPMProfile profile{};
    if (answer.data.size() != sizeof(wire::PmProfileSlot))
        throw std::runtime_error("this answer holds no profile");
    answer.data.copy(reinterpret_cast<char*>(&profile), sizeof(profile));
    return profile;
}

std::string slot(const NetPMProfile& profile) {
    std::string bytes(reinterpret_cast<const char*>(&profile), sizeof(profile));
    return bytes.append(4, '\0');
}

NetPMProfile pdp_profile(const std::string& name, const std::string& apn) {
    NetPMProfile profile{};
    put(profile.ProfileName, name);
    put(profile.PdpProfInfo.Apn, apn);
    profile.PdpProfInfo.AppProtoType = 1;
    return profile;
}

NetPMProfile wlan_profile(const std::string& name, const std::string& essid) {
    NetPMProfile profile{};
    profile.ProfileType = NETPM_PROFILE_WLAN;
    put(profile.ProfileName, name);
    put(profile.WlanProfInfo.essid, essid);
    profile.WlanProfInfo.security.sec_mode = 1;
    return profile;
}

Ended ctl(std::vector<std::string> words) {
    words.insert(words.begin(), {CM_SERVER_PATH, "ctl"});
    return run(words);
}

std::string dotted(const NetCMAddr& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, address.Addr, text.data(), text.size());
    return text.data();
}

}  // namespace quorvel::test
