#include "Callbacks.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "Host.h"

namespace quorvel::test::dns::callbacks {
namespace {

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Delivery> deliveries;
    std::function<void(hostent*, unsigned)> then;
};

// Never destroyed: workers may outlive main.
State& state() {
    static State& instance = *new State;
    return instance;
}

}  // namespace

void note(hostent* host, unsigned id) {
    Delivery delivery{id, host != nullptr, "", {}, static_cast<int32_t>(syscall(SYS_gettid))};
    if (host != nullptr) {
        delivery.name = host->h_name;
        delivery.addresses = addresses_of(host);
    }
    const std::lock_guard lock(state().mutex);
    state().deliveries.push_back(delivery);
    state().changed.notify_all();
}

void note_and_continue(hostent* host, unsigned id) {
    note(host, id);
    std::function<void(hostent*, unsigned)> then;
    {
        const std::lock_guard lock(state().mutex);
        then = state().then;
    }
    then(host, id);
}

void continue_with(std::function<void(hostent*, unsigned)> then) {
    const std::lock_guard lock(state().mutex);
    state().then = std::move(then);
}

std::vector<Delivery> deliveries() {
    const std::lock_guard lock(state().mutex);
    return state().deliveries;
}

std::vector<unsigned> ids() {
    std::vector<unsigned> ids;
    for (const Delivery& delivery : deliveries())
        ids.push_back(delivery.id);
    return ids;
}

bool wait_for(size_t count) {
    std::unique_lock lock(state().mutex);
    return state().changed.wait_for(lock, std::chrono::seconds(20),
                                    [count] { return state().deliveries.size() >= count; });
}

void clear() {
    const std::lock_guard lock(state().mutex);
    state().deliveries.clear();
}

}  // namespace quorvel::test::dns::callbacks
