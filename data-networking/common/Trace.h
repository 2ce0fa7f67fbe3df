// One way to trace a decision, and the identity of the place that traces.
#pragma once

#include <cstdint>

#include "quorvel/NetDebug.h"

// Nothing is called as often as the sink: where the compiler can, it goes to the address in the table at
// once, past the stub that would look it up late.
#if __has_attribute(noplt)
#define QV_NO_STUB __attribute__((noplt))
#else
#define QV_NO_STUB
#endif

// The platform's sink of every trace line. Called as an ordinary dynamic symbol, so that a program can put
// its own in place.
extern "C" QV_NO_STUB int _debug_message(int line, const char* file, uint32_t mid, uint32_t level,
                                         const char* format, ...) __attribute__((format(printf, 5, 6)));

namespace quorvel {

inline constexpr uint32_t kModuleId = 0x5000100;

constexpr uint32_t level_mask(uint32_t level) {
    switch (level) {
        case 0:
        case 1:
        case 2:
        case 3:
            return 0x4000000;
        case 4:
            return 0x2000000;
        case 5:
            return 0x1000000;
        default:
            return 0;
    }
}

// A place in the source, as the trace names it: the unit, not the file, because a unit may be many files.
struct Here {
    const char* unit;
    int line;
};

// The value of a pointer or a thread handle as a 32-bit format takes it.
inline uint32_t narrow(const volatile void* pointer) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}
template <class Result, class... Args>
uint32_t narrow(Result (*function)(Args...)) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(function));
}

}  // namespace quorvel

#define QV_HERE (::quorvel::Here{QV_UNIT, __LINE__})

// The arguments are the level, the quoted format and its values; the compiler checks them against each other.
// Results of the sink are ignored: tracing never fails a caller.
#define QV_TRACE_AT(here, level, ...)                                                \
    static_cast<void>(_debug_message((here).line, (here).unit, ::quorvel::kModuleId, \
                                     ::quorvel::level_mask(level), __VA_ARGS__))
#define QV_TRACE(level, ...) QV_TRACE_AT(QV_HERE, level, __VA_ARGS__)
