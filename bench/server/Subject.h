// A server of the real program that is measured, with as many profiles, links and clients as wanted.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/Wire.h"

namespace quorvel::bench {

// A descriptor, owned.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    int get() const { return fd_; }

  private:
    int fd_;
};

// A registered client. What does not come within a second ends the benchmark.
class Peer {
  public:
    explicit Peer(const std::string& path);

    wire::Record ask(uint32_t command, uint32_t arg3 = 0, uint32_t arg4 = 0, std::string_view payload = {},
                     uint32_t param = 0);
    // The block that follows an answer, and an event.
    void skip(size_t bytes);
    wire::Record event(size_t block = 0);
    // A request to the profile manager; gives the profile of the answer.
    int32_t ask_pm(uint32_t command, int32_t profile, std::string_view data = {}, uint32_t arg = 0,
                   uint32_t arg2 = 0);
    void ask_app(uint32_t command, uint32_t id);
    // Opens a profile, whose connection must come up, and closes it.
    uint32_t open(int32_t profile);
    void close(uint32_t call, int32_t profile);
    int async_fd() const { return async_.get(); }

  private:
    Descriptor sync_;
    Descriptor async_;
    uint32_t id_ = 0;
};

struct Size {
    size_t profiles;
    size_t links;
    size_t clients;
};

class Subject {
  public:
    // In a network of its own, which becomes this process's while it is made and when it is entered.
    Subject(const std::string& name, const Size& size, std::vector<std::string> options = {});
    ~Subject();
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    const Size& size() const { return size_; }
    pid_t pid() const { return pid_; }
    const std::string& path() const { return path_; }
    // The client that asks; the others are only there, and read what they are told now and then.
    Peer& peer() { return *peers_.front(); }
    void drain();
    // An operator's command, which must succeed.
    void ctl(const std::string& json);
    void enter() const;
    // A link that is nobody's goes up, or down.
    void set_link(bool up) const;
    // The processor time that the server has used, in nanoseconds.
    int64_t used() const;
    // And what a process that it has started has used; 0 when it has none.
    int64_t used_by_child() const;
    // Starts the monitor, and ends it.
    void watch();
    void unwatch();

  private:
    void make_links() const;
    void start();
    pid_t run(std::vector<std::string> words) const;

    std::string name_;
    Size size_;
    std::vector<std::string> options_;
    std::string path_;
    Descriptor network_;
    pid_t pid_ = -1;
    pid_t monitor_ = -1;
    std::vector<std::unique_ptr<Peer>> peers_;
    Descriptor control_;
};

// A packet-data profile, as it travels.
std::string profile_of(const std::string& access_point);

[[noreturn]] void fail(const std::string& what);

}  // namespace quorvel::bench
