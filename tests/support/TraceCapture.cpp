#include "support/TraceCapture.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "common/Trace.h"
#include "support/HeldOverFork.h"

namespace quorvel::test {
namespace {

struct Capture {
    std::mutex mutex;
    std::condition_variable grown;
    std::vector<TraceLine> lines;
    HookPlace<const TraceLine&> on_line;
    bool keeps = true;
};

// Never destroyed: a detached thread of the library may trace while the process ends.
Capture& capture() {
    static Capture& instance = *new Capture;
    return instance;
}

std::mutex& lock_of_capture() {
    return capture().mutex;
}

std::mutex& lock_of_hook() {
    return capture().on_line.mutex();
}

__attribute__((constructor)) void begin() {
    hold_over_fork<lock_of_capture>();
    hold_over_fork<lock_of_hook>();
}

void keep(TraceLine line) {
    static const bool echo = getenv("QUORVEL_TEST_TRACE") != nullptr;
    if (echo)
        fprintf(stderr, "[%d] %s:%d %07x %s", line.thread, line.file.c_str(), line.line, line.mask,
                line.text.c_str());
    Capture& all = capture();
    {
        const std::lock_guard lock(all.mutex);
        if (all.keeps)
            all.lines.push_back(line);
        all.grown.notify_all();
    }
    all.on_line.run(line);
}

template <class Condition>
bool wait_until(std::chrono::milliseconds patience, Condition condition) {
    Capture& all = capture();
    std::unique_lock lock(all.mutex);
    return all.grown.wait_for(lock, patience, [&] { return condition(all.lines); });
}

size_t count_in(const std::vector<TraceLine>& lines, std::string_view text) {
    return static_cast<size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const TraceLine& line) { return line.text == text; }));
}

}  // namespace

namespace trace {

std::string text(const char* format, ...) {
    char buffer[2048];
    va_list values;
    va_start(values, format);
    vsnprintf(buffer, sizeof buffer, format, values);
    va_end(values);
    return buffer;
}

std::vector<TraceLine> lines() {
    Capture& all = capture();
    const std::lock_guard lock(all.mutex);
    return all.lines;
}

std::vector<std::string> texts() {
    std::vector<std::string> result;
    for (TraceLine& line : lines())
        result.push_back(std::move(line.text));
    return result;
}

void clear() {
    Capture& all = capture();
    const std::lock_guard lock(all.mutex);
    all.lines.clear();
}

void stop_keeping() {
    Capture& all = capture();
    const std::lock_guard lock(all.mutex);
    all.keeps = false;
    all.lines.clear();
}

size_t count(std::string_view text) {
    return count_in(lines(), text);
}

bool contains(std::string_view text) {
    return count(text) != 0;
}

bool contains_in_order(std::initializer_list<std::string_view> texts) {
    const std::vector<TraceLine> all = lines();
    auto from = all.begin();
    for (const std::string_view text : texts) {
        from = std::find_if(from, all.end(), [&](const TraceLine& line) { return line.text == text; });
        if (from == all.end())
            return false;
        ++from;
    }
    return true;
}

TraceLine find(std::string_view text) {
    for (const TraceLine& line : lines())
        if (line.text == text)
            return line;
    return {};
}

::testing::AssertionResult traced(uint32_t level, std::string_view text, std::string_view unit) {
    const std::string file = "data-networking/" + std::string(unit);
    std::string others;
    for (const TraceLine& line : lines()) {
        const bool same_place =
            line.mid == kModuleId && (unit.empty() ? line.file.starts_with(file) : line.file == file);
        if (line.text == text && line.mask == level_mask(level) && same_place)
            return ::testing::AssertionSuccess();
        others += line.file + " " + std::to_string(line.mask) + " " + line.text;
        if (!others.ends_with('\n'))
            others += '\n';
    }
    return ::testing::AssertionFailure() << "not traced at level " << level << ": " << text << "\nbut:\n"
                                         << others;
}

bool wait_for(std::string_view text, size_t times, std::chrono::milliseconds patience) {
    return wait_until(patience, [&](const auto& lines) { return count_in(lines, text) >= times; });
}

bool wait_for_prefix(std::string_view prefix, std::chrono::milliseconds patience) {
    return wait_until(patience, [&](const auto& lines) {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const TraceLine& line) { return line.text.starts_with(prefix); });
    });
}

Hook<const TraceLine&> on_line(std::function<void(const TraceLine&)> body) {
    return {capture().on_line, std::move(body)};
}

}  // namespace trace
}  // namespace quorvel::test

extern "C" __attribute__((visibility("default"))) int _debug_message(int line, const char* file, uint32_t mid,
                                                                     uint32_t level, const char* format,
                                                                     ...) {
    // The text goes through a buffer, not through the heap: a failed allocation is traced as well.
    char text[2048];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    quorvel::test::keep({text, file, line, mid, level, static_cast<int32_t>(syscall(SYS_gettid))});
    return 0;
}
