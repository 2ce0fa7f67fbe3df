#include "networkmanager/bus.h"

#include <arpa/inet.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>

#include "guard.h"
#include "log.h"

namespace quorvel::cm {
namespace {

// What is taken in before others have their turn.
constexpr int kMostAtOnce = 64;

uint64_t microseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

using SharedTaker = std::shared_ptr<Bus::Taker>;
using KeptTaker = std::unique_ptr<SharedTaker>;

KeptTaker kept(Bus::Taker taker) {
    return std::make_unique<SharedTaker>(std::make_shared<Bus::Taker>(std::move(taker)));
}

// Who is told may end what it is told through, itself included.
int take(sd_bus_message* message, void* taker, sd_bus_error*) {
    // A bus that has gone answers every question with an error of its own making, which is nobody's answer.
    if (sd_bus_is_open(sd_bus_message_get_bus(message)) <= 0)
        return 0;
    const SharedTaker told = *static_cast<SharedTaker*>(taker);
    guarded("what the message bus has told", [&] { (*told)(message); });
    return 0;
}

// Both go with the answer, or with the bus.
void keep(sd_bus_slot* slot, KeptTaker taker) {
    sd_bus_slot_set_destroy_callback(slot, [](void* gone) { delete static_cast<SharedTaker*>(gone); });
    static_cast<void>(taker.release());
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
}

// The types that a target takes.
bool is_of(const Target& target, std::string_view type) {
    constexpr std::string_view kTypes[] = {"s o", "u", "b", "ao", "aa{sv}", "ay"};
    const std::string_view all = kTypes[target.index()];
    return type == all || (target.index() == 0 && (type == "s" || type == "o"));
}

void read_into(sd_bus_message* message, char type, std::string* text) {
    *text = read_text(message, type);
    if (type == 'o' && *text == "/")
        text->clear();
}

void read_into(sd_bus_message* message, char, uint32_t* number) {
    *number = read_number(message);
}

void read_into(sd_bus_message* message, char, bool* is_so) {
    int value = 0;
    check_bus(sd_bus_message_read_basic(message, 'b', &value), "a yes or no");
    *is_so = value != 0;
}

void read_into(sd_bus_message* message, char, std::vector<std::string>* paths) {
    *paths = read_paths(message);
}

void read_into(sd_bus_message* message, char, std::vector<in_addr>* addresses) {
    check_bus(sd_bus_message_enter_container(message, 'a', "a{sv}"), "addresses");
    while (check_bus(sd_bus_message_at_end(message, 0), "addresses") == 0) {
        std::string text;
        read_entries(message, {{"address", &text}});
        in_addr address{};
        if (inet_pton(AF_INET, text.c_str(), &address) == 1)
            addresses->push_back(address);
    }
    check_bus(sd_bus_message_exit_container(message), "addresses");
}

void read_into(sd_bus_message* message, char, const Bytes& bytes) {
    const void* data = nullptr;
    size_t size = 0;
    check_bus(sd_bus_message_read_array(message, 'y', &data, &size), "bytes");
    bytes.text.assign(static_cast<const char*>(data), size);
}

}  // namespace

int check_bus(int result, const char* what) {
    if (result < 0)
        throw BusError(std::string(what) + ": " + std::strerror(-result));
    return result;
}

Bus::Bus(event_base* base, std::function<void()> lost)
    : base_(base), lost_(std::move(lost)), due_(base, [this] { pump(); }) {}

void Bus::connect() {
    sd_bus* bus = nullptr;
    check_bus(sd_bus_open_system(&bus), "the system's message bus cannot be reached");
    bus_.reset(bus);
    waited_for_ = 0;
    arm();
}

bool Bus::usable() const {
    return connected() && sd_bus_is_open(bus_.get()) > 0;
}

void Bus::disconnect() {
    due_.stop();
    ready_.reset();
    bus_.reset();
}

BusMessage Bus::new_call(const BusObject& object, const char* method) {
    if (!connected())
        throw BusError("the system's message bus is not there");
    sd_bus_message* message = nullptr;
    check_bus(sd_bus_message_new_method_call(bus_.get(), &message, object.name, object.path.c_str(),
                                             object.interface, method),
              method);
    BusMessage result(message);
    check_bus(sd_bus_message_set_auto_start(message, 0), method);
    return result;
}

void Bus::call(const BusMessage& message, Taker answered) {
    if (!connected())
        throw BusError("the system's message bus is not there");
    auto taker = kept(std::move(answered));
    sd_bus_slot* slot = nullptr;
    check_bus(sd_bus_call_async(bus_.get(), &slot, message.get(), &take, taker.get(), 0), "a call");
    keep(slot, std::move(taker));
    arm();
}

void Bus::flush() {
    if (connected())
        check_bus(sd_bus_flush(bus_.get()), "what was asked for");
}

void Bus::watch(const std::string& rule, Taker signalled) {
    auto taker = kept(std::move(signalled));
    sd_bus_slot* slot = nullptr;
    check_bus(sd_bus_add_match_async(bus_.get(), &slot, rule.c_str(), &take, nullptr, taker.get()), "a rule");
    keep(slot, std::move(taker));
    arm();
}

void Bus::pump() {
    for (int i = 0; i < kMostAtOnce; ++i) {
        if (!connected())
            return;
        const int done = sd_bus_process(bus_.get(), nullptr);
        if (done < 0)
            return lose(done);
        if (done == 0)
            return arm();
    }
    due_.start(std::chrono::milliseconds(0));
}

void Bus::lose(int error) {
    log::warning("the system's message bus is lost: ", std::strerror(-error));
    disconnect();
    lost_();
}

void Bus::arm() {
    const int events = sd_bus_get_events(bus_.get());
    const auto wanted = static_cast<short>(EV_PERSIST | ((events & POLLIN) != 0 ? EV_READ : 0) |
                                           ((events & POLLOUT) != 0 ? EV_WRITE : 0));
    if (wanted != waited_for_) {
        ready_.reset(event_new(
            base_, sd_bus_get_fd(bus_.get()), wanted,
            [](evutil_socket_t, short, void* bus) {
                guarded("what the message bus has told", [&] { static_cast<Bus*>(bus)->pump(); });
            },
            this));
        if (ready_ == nullptr || event_add(ready_.get(), nullptr) != 0)
            throw std::bad_alloc();
        waited_for_ = wanted;
    }
    uint64_t due = UINT64_MAX;
    sd_bus_get_timeout(bus_.get(), &due);
    if (due == UINT64_MAX)
        return due_.stop();
    const uint64_t now = microseconds();
    due_.start(std::chrono::milliseconds(due <= now ? 0 : (due - now) / 1000 + 1));
}

void each_entry(sd_bus_message* message,
                const std::function<bool(std::string_view key, std::string_view type)>& each) {
    check_bus(sd_bus_message_enter_container(message, 'a', "{sv}"), "a dictionary");
    while (check_bus(sd_bus_message_enter_container(message, 'e', "sv"), "an entry") > 0) {
        const std::string key = read_text(message, 's');
        const char* type = nullptr;
        check_bus(sd_bus_message_peek_type(message, nullptr, &type), "a value");
        if (!each(key, type))
            check_bus(sd_bus_message_skip(message, "v"), "a value");
        check_bus(sd_bus_message_exit_container(message), "an entry");
    }
    check_bus(sd_bus_message_exit_container(message), "a dictionary");
}

std::string read_text(sd_bus_message* message, char type) {
    const char* text = nullptr;
    if (check_bus(sd_bus_message_read_basic(message, type, &text), "a text") == 0)
        throw BusError("a message ends too soon");
    return text;
}

uint32_t read_number(sd_bus_message* message) {
    uint32_t number = 0;
    if (check_bus(sd_bus_message_read_basic(message, 'u', &number), "a number") == 0)
        throw BusError("a message ends too soon");
    return number;
}

std::vector<std::string> read_paths(sd_bus_message* message) {
    std::vector<std::string> paths;
    check_bus(sd_bus_message_enter_container(message, 'a', "o"), "a list");
    while (check_bus(sd_bus_message_at_end(message, 0), "a list") == 0)
        paths.push_back(read_text(message, 'o'));
    check_bus(sd_bus_message_exit_container(message), "a list");
    return paths;
}

bool read_entry(sd_bus_message* message, std::string_view key, std::string_view type,
                std::initializer_list<Wanted> wanted) {
    const auto found = std::ranges::find(wanted, key, &Wanted::key);
    if (found == wanted.end() || !is_of(found->into, type))
        return false;
    const std::string contents(type);
    check_bus(sd_bus_message_enter_container(message, 'v', contents.c_str()), "a value");
    std::visit([&](const auto& into) { read_into(message, contents.front(), into); }, found->into);
    check_bus(sd_bus_message_exit_container(message), "a value");
    return true;
}

void read_entries(sd_bus_message* message, std::initializer_list<Wanted> wanted) {
    each_entry(message, [&](std::string_view key, std::string_view type) {
        return read_entry(message, key, type, wanted);
    });
}

}  // namespace quorvel::cm
