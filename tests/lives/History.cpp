#include "History.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace quorvel::lives {
namespace {

void print_actor(char (&text)[8], int who) {
    if (who == History::kServer)
        std::snprintf(text, sizeof text, "server");
    else if (who == History::kTest)
        std::snprintf(text, sizeof text, "test");
    else
        std::snprintf(text, sizeof text, "user%d", who);
}

}  // namespace

History::History() : begin_(std::chrono::steady_clock::now()), lines_(kLines) {}

uint64_t History::note(int who, const char* format, ...) {
    Line& line = lines_[count_ % kLines];
    line.time = std::chrono::steady_clock::now();
    line.who = who;
    va_list values;
    va_start(values, format);
    std::vsnprintf(line.text.data(), line.text.size(), format, values);
    va_end(values);
    return ++count_;
}

void History::print(int fd) const {
    const uint64_t first = count_ - std::min<uint64_t>(count_, kLines);
    for (uint64_t number = first; number < count_; ++number) {
        const Line& line = lines_[number % kLines];
        const auto time = std::chrono::duration_cast<std::chrono::microseconds>(line.time - begin_);
        char who[8];
        print_actor(who, line.who);
        dprintf(fd, "%8lld us %5llu %-7s %s\n", static_cast<long long>(time.count()),
                static_cast<unsigned long long>(number + 1), who, line.text.data());
    }
}

}  // namespace quorvel::lives
