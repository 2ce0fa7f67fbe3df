#include "networkmanager/StandIn.h"

#include <stdexcept>
#include <string_view>

namespace quorvel::test {

void must(int result, const char* what) {
    if (result < 0)
        throw std::runtime_error(std::string("a stand-in on the message bus: ") + what);
}

std::string read_any(sd_bus_message* message) {
    const char* type = nullptr;
    must(sd_bus_message_peek_type(message, nullptr, &type), "a value");
    const std::string contents = type;
    if (contents == "s" || contents == "u" || contents == "b" || contents == "as" || contents == "ay")
        must(sd_bus_message_enter_container(message, 'v', contents.c_str()), "a value");
    else
        must(sd_bus_message_skip(message, "v"), "a value");
    std::string result;
    if (contents == "s") {
        const char* text = "";
        must(sd_bus_message_read(message, "s", &text), "a text");
        result = text;
    } else if (contents == "u") {
        uint32_t number = 0;
        must(sd_bus_message_read(message, "u", &number), "a number");
        result = std::to_string(number);
    } else if (contents == "b") {
        int is_so = 0;
        must(sd_bus_message_read(message, "b", &is_so), "a yes or no");
        result = is_so != 0 ? "true" : "false";
    } else if (contents == "as") {
        must(sd_bus_message_enter_container(message, 'a', "s"), "a list");
        const char* text = "";
        while (sd_bus_message_read(message, "s", &text) > 0)
            result += (result.empty() ? "" : ",") + std::string(text);
        must(sd_bus_message_exit_container(message), "a list");
    } else if (contents == "ay") {
        const void* data = nullptr;
        size_t size = 0;
        must(sd_bus_message_read_array(message, 'y', &data, &size), "bytes");
        result.assign(static_cast<const char*>(data), size);
    } else {
        return contents;
    }
    must(sd_bus_message_exit_container(message), "a value");
    return result;
}

StandIn::StandIn() {
    must(sd_bus_open_system(&bus_), "no bus");
}

StandIn::~StandIn() {
    end();
    sd_bus_flush_close_unref(bus_);
}

void StandIn::add(const char* path, const char* interface, const sd_bus_vtable* table, void* self) {
    sd_bus_slot* slot = nullptr;
    must(sd_bus_add_object_vtable(bus_, &slot, path, interface, table, self), interface);
    slots_.push_back(slot);
}

void StandIn::add_manager(const char* path) {
    sd_bus_slot* slot = nullptr;
    must(sd_bus_add_object_manager(bus_, &slot, path), path);
    slots_.push_back(slot);
}

void StandIn::begin(const char* name) {
    must(sd_bus_request_name(bus_, name, 0), name);
    thread_ = std::thread([this] { serve(); });
}

void StandIn::end() {
    ends_ = true;
    if (thread_.joinable())
        thread_.join();
    remove_objects();
}

void StandIn::remove_objects() {
    for (sd_bus_slot* slot : slots_)
        sd_bus_slot_unref(slot);
    slots_.clear();
}

void StandIn::serve() {
    constexpr uint64_t kMicroseconds = 10'000;
    while (!ends_) {
        std::vector<std::function<void()>> actions;
        {
            const std::lock_guard lock(mutex_);
            actions.swap(actions_);
        }
        for (const auto& action : actions)
            action();
        while (sd_bus_process(bus_, nullptr) > 0) {
        }
        sd_bus_wait(bus_, kMicroseconds);
    }
}

void StandIn::later(std::function<void()> action) {
    const std::lock_guard lock(mutex_);
    actions_.push_back(std::move(action));
}

}  // namespace quorvel::test
