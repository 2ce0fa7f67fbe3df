#include "support/Events.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <utility>

#include "support/HeldOverFork.h"

namespace quorvel::test {
namespace {

struct Log {
    std::mutex mutex;
    std::condition_variable grown;
    std::vector<Event> events;
    HookPlace<const Event&> inside;
};

// Never destroyed: threads of the library may outlive main.
Log& log() {
    static Log& instance = *new Log;
    return instance;
}

template <class T>
T copy_of(const void* data) {
    T value{};
    std::memcpy(&value, data, sizeof value);
    return value;
}

std::vector<uint32_t> words_at(const void* data, size_t count) {
    std::vector<uint32_t> words(count);
    std::memcpy(words.data(), data, count * sizeof(uint32_t));
    return words;
}

void copy_data(const NetCMEvent& source, Event& event) {
    switch (source.EventType) {
        case NETCM_EVENT_TUNNEL_RSP:
        case NETCM_EVENT_TUNNEL_IND: {
            const auto tunnel = copy_of<NetCMTunnelData>(source.Data);
            event.words = {static_cast<uint32_t>(tunnel.Param), tunnel.RequestId, tunnel.DataLength};
            if (tunnel.Data != nullptr)
                event.tunnel_data.assign(static_cast<const char*>(tunnel.Data), tunnel.DataLength);
            break;
        }
        case NETCM_EVENT_NETWORK_STATUS_IND:
            event.words = words_at(source.Data, 2);
            break;
        case NETCM_EVENT_PROPER_PROFILE_RSP:
            event.words = words_at(source.Data, 6);
            break;
        case NETCM_EVENT_OPEN_RSP:
        case NETCM_EVENT_IP_CHANGE_IND:
            if (source.Result == 0) {
                event.details = copy_of<NetCMConnInfo>(source.Data);
                break;
            }
            [[fallthrough]];
        default:
            event.words = words_at(source.Data, 1);
    }
}

std::mutex& lock_of_log() {
    return log().mutex;
}

std::mutex& lock_of_hook() {
    return log().inside.mutex();
}

__attribute__((constructor)) void begin() {
    hold_over_fork<lock_of_log>();
    hold_over_fork<lock_of_hook>();
}

void keep(int user, const NetCMEvent* source) {
    Event event{};
    event.user = user;
    event.type = source->EventType;
    event.profile = source->ProfileId;
    event.result = source->Result;
    event.thread = static_cast<int32_t>(syscall(SYS_gettid));
    event.mutex_was_held = NetCMAppMutex.__data.__owner == event.thread;
    event.has_data = source->Data != nullptr;
    if (event.has_data)
        copy_data(*source, event);
    {
        const std::lock_guard lock(log().mutex);
        log().events.push_back(event);
        log().grown.notify_all();
    }
    log().inside.run(event);
}

template <int User>
void callback(NetCMEvent* event) {
    keep(User, event);
}

template <int... Users>
constexpr std::array<NetCMEventCallback, sizeof...(Users)> make_callbacks(
    std::integer_sequence<int, Users...>) {
    return {callback<Users>...};
}

constexpr auto callbacks = make_callbacks(std::make_integer_sequence<int, events::kUsers>());

}  // namespace

namespace events {

NetCMEventCallback callback_of(int user) {
    return callbacks.at(static_cast<size_t>(user));
}

std::vector<Event> all() {
    const std::lock_guard lock(log().mutex);
    return log().events;
}

std::vector<Event> of(int user) {
    std::vector<Event> result = all();
    std::erase_if(result, [&](const Event& event) { return event.user != user; });
    return result;
}

size_t count() {
    const std::lock_guard lock(log().mutex);
    return log().events.size();
}

void clear() {
    const std::lock_guard lock(log().mutex);
    log().events.clear();
}

bool wait_for(size_t count, std::chrono::milliseconds patience) {
    std::unique_lock lock(log().mutex);
    return log().grown.wait_for(lock, patience, [&] { return log().events.size() >= count; });
}

bool wait_for_user(int user, size_t count, std::chrono::milliseconds patience) {
    std::unique_lock lock(log().mutex);
    return log().grown.wait_for(lock, patience, [&] {
        const auto is_his = [&](const Event& event) { return event.user == user; };
        return static_cast<size_t>(std::count_if(log().events.begin(), log().events.end(), is_his)) >= count;
    });
}

Hook<const Event&> during(std::function<void(const Event&)> body) {
    return {log().inside, std::move(body)};
}

}  // namespace events
}  // namespace quorvel::test
