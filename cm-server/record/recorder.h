// The server's flight recorder: hands what passes to a process of its own, which writes it. That process
// outlives a server that is killed, and writes what there was up to the end; a disk that is slow or full is
// its trouble alone.
#pragma once

#include <sys/types.h>

#include <functional>

#include "events.h"
#include "log.h"
#include "record/plan.h"
#include "record/ring.h"

namespace quorvel::cm {

class Recorder {
  public:
    // `on_new_part`: another file has been begun, which shall say who is there. Throws RecordError.
    Recorder(event_base* base, const RecordPlan& plan, std::function<void()> on_new_part);
    // Waits a little for the rest to be written.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void take(const Passing& passing) noexcept;

  private:
    static void told(evutil_socket_t, short, void* recorder);
    void start_writer(const RecordPlan& plan);
    void hear();
    void hear(const std::string& news);
    void wake();
    bool put_loss();

    std::function<void()> on_new_part_;
    Ring ring_;
    int socket_ = -1;
    pid_t writer_ = -1;
    Event heard_;
    Timer due_;
    log::Sparing falls_behind_;
    uint64_t lost_ = 0;
    uint64_t first_lost_ = 0;
    uint64_t last_lost_ = 0;
    uint64_t lost_in_all_ = 0;
};

}  // namespace quorvel::cm
