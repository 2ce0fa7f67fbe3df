// Somebody on the message bus who is played by the test: objects that a thread of its own serves.
#pragma once

#include <systemd/sd-bus.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quorvel::test {

// Throws when `result` is the negative number of an error.
void must(int result, const char* what);

// One text for the value of the next entry of a dictionary of variants; numbers in digits, bytes as they are,
// the first of a list.
std::string read_any(sd_bus_message* message);

class StandIn {
  public:
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

  protected:
    StandIn();
    ~StandIn();

    // What the tables' functions are given is `self`.
    void add(const char* path, const char* interface, const sd_bus_vtable* table, void* self);
    // An object manager, whose objects are below the path.
    void add_manager(const char* path);
    // Is known by this name from here on, and served.
    void begin(const char* name);
    // Nothing is served any more; whoever derives from this ends with it.
    void end();
    // Done by the thread that speaks to the bus.
    void later(std::function<void()> action);
    void remove_objects();

    sd_bus* bus_ = nullptr;
    std::mutex mutex_;

  private:
    void serve();

    std::vector<sd_bus_slot*> slots_;
    std::vector<std::function<void()>> actions_;
    std::atomic<bool> ends_ = false;
    std::thread thread_;
};

}  // namespace quorvel::test
