#include "debug_message.h"

#include <sys/syscall.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "common/Line.h"

using namespace quorvel::platform;

namespace {

constexpr uint32_t kError = 0x1000000;
constexpr uint32_t kResource = 0x2000000;
constexpr uint32_t kTrace = 0x4000000;

struct Setting {
    const char* name;
    uint32_t mask;
};
constexpr Setting kSettings[] = {
    {"", 0},
    {"off", 0},
    {"error", kError},
    {"resource", kError | kResource},
    {"all", kError | kResource | kTrace},
};

constinit std::atomic<uint32_t> wanted{0};
// The program's environment may change under way: this is a copy, made when there is something to trace.
constinit const char* file_path = nullptr;

const char* name_of(uint32_t level) {
    if ((level & kError) != 0)
        return "error";
    return (level & kResource) != 0 ? "resource" : "trace";
}

uint32_t mask_of(const char* setting) {
    for (const Setting& known : kSettings)
        if (strcmp(setting, known.name) == 0)
            return known.mask;
    Line complaint;
    complaint.append("QUORVEL_TRACE=%s: not one of off, error, resource, all; nothing is traced", setting);
    complaint.finish();
    write_line(STDERR_FILENO, complaint);
    return 0;
}

__attribute__((constructor)) void read_environment() {
    const char* setting = secure_getenv("QUORVEL_TRACE");
    if (setting == nullptr)
        return;
    const char* path = secure_getenv("QUORVEL_TRACE_FILE");
    if (path != nullptr)
        file_path = strdup(path);
    wanted.store(mask_of(setting), std::memory_order_relaxed);
}

// Apart from the entry point, whose way out when nothing is wanted stays short.
__attribute__((noinline, cold, format(printf, 4, 0))) int write_message(int line_number, const char* file,
                                                                        uint32_t level, const char* format,
                                                                        va_list values) {
    const Unnoticed unnoticed;
    Line line;
    line.append_time();
    line.append(" %d/%ld %s %s:%d ", getpid(), syscall(SYS_gettid), name_of(level), file, line_number);
    line.append_values(format, values);
    line.finish();
    if (file_path != nullptr && append_to_file(file_path, line))
        return 1;
    return write_line(STDERR_FILENO, line) ? 1 : -1;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int _debug_message(int line, const char* file, uint32_t,
                                                                     uint32_t level, const char* format,
                                                                     ...) {
    if ((wanted.load(std::memory_order_relaxed) & level) == 0) [[likely]]
        return 0;
    va_list values;
    va_start(values, format);
    const int result = write_message(line, file, level, format, values);
    va_end(values);
    return result;
}
