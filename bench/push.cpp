#include <sys/select.h>
#include <unistd.h>

#include <thread>

#include "Benchmarks.h"
#include "Server.h"
#include "quorvel/NetCM.h"

namespace quorvel::bench {
namespace {

constexpr int kRounds = 61;
constexpr int kTimes = 1000;
constexpr char kOurs[] = "quorvel, to the callback";

// Where a callback tells that it has been called; the server waits for it.
int acknowledge_fd = -1;

void acknowledge() {
    const wire::RequestHeader nothing{};
    write_all(acknowledge_fd, &nothing, sizeof nothing);
}

// A receiver as one writes it by hand: it waits for the socket and for a pipe that tells it to stop.
class BareReceiver {
  public:
    explicit BareReceiver(void (*function)(const wire::Record&)) : function_(function) {
        wire::RequestHeader request{};
        request.Command = kBecomePushTarget;
        write_all(fd_, &request, sizeof request);
        wire::Record done;
        read_all(fd_, &done, sizeof done);
        if (pipe(stop_) != 0)
            throw std::runtime_error("no pipe");
        thread_ = std::thread([this] { loop(); });
    }
    ~BareReceiver() {
        write_all(stop_[1], "", 1);
        thread_.join();
        for (const int fd : {fd_, stop_[0], stop_[1]})
            close(fd);
    }
    BareReceiver(const BareReceiver&) = delete;
    BareReceiver& operator=(const BareReceiver&) = delete;

  private:
    void loop() {
        for (;;) {
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(fd_, &readable);
            FD_SET(stop_[0], &readable);
            if (select(std::max(fd_, stop_[0]) + 1, &readable, nullptr, nullptr, nullptr) < 0)
                continue;
            if (FD_ISSET(stop_[0], &readable))
                return;
            wire::Record record;
            read_all(fd_, &record, sizeof record);
            function_(record);
        }
    }

    void (*function_)(const wire::Record&);
    int fd_ = connect_to_server();
    int stop_[2] = {-1, -1};
    std::thread thread_;
};

int64_t push(int times, uint32_t anchor) {
    wire::RequestHeader request{};
    request.Command = kPush;
    request.Param = static_cast<uint32_t>(times);
    request.Arg3 = anchor;
    write_all(acknowledge_fd, &request, sizeof request);
    wire::Record done;
    read_all(acknowledge_fd, &done, sizeof done);
    return static_cast<int64_t>(static_cast<uint64_t>(done.Word2) << 32 | done.Word1);
}

}  // namespace

void on_event(NetCMEvent*) {
    acknowledge();
}

void measure_push(Report& report) {
    acknowledge_fd = connect_to_server();
    {
        const BareReceiver receiver([](const wire::Record&) { acknowledge(); });
        const std::vector<Contestant> contestants{
            {"bare select and read loop", [](int times) { return push(times, 1); }},
            {kOurs, [](int times) { return push(times, 0); }},
        };
        const std::vector<Rounds> rounds = interleave(contestants, kRounds, kTimes);
        report.begin("A pushed record to the callback, and the acknowledgement back");
        report.add(contestants, rounds, 0, "us", 1000);
        report.set_bar(kOurs, Bar::AtMost, 1.15);
    }
    close(acknowledge_fd);
}

}  // namespace quorvel::bench
