// Where the lines of the log go: standard error, which nobody needs to read. Writing never waits; what cannot
// be written is counted, and said as soon as something can be.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace quorvel::cm::log {

class Sink {
  public:
    Sink();

    void write(const std::string& line);
    // Whether lines wait to be written, or to be said to be lost.
    bool waiting() const { return !rest_.empty() || lost_ > 0; }
    void try_again();
    // Before the end: gives a reader who is there a little time.
    void finish();

  private:
    // How many of the bytes have been written.
    size_t put(const char* bytes, size_t size) const;
    void put_rest();

    mode_t kind_;
    int own_ = -1;
    std::string rest_;  // whole lines, the first of them perhaps in part
    uint64_t lost_ = 0;
};

}  // namespace quorvel::cm::log
