// What the library traces: the test program is its sink, and keeps every line.
//
// `_debug_message` is defined here and exported from the test program, so that the library calls it in place
// of the platform's.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/Hook.h"

namespace quorvel::test {

struct TraceLine {
    std::string text;
    std::string file;
    int line;
    uint32_t mid;
    uint32_t mask;  // the level's mask, as it is handed to the platform
    int32_t thread;
};

namespace trace {

inline constexpr std::chrono::seconds kPatience{20};

// Masks, for comparisons: of the levels 0 to 3, of level 4, of level 5.
inline constexpr uint32_t kNormal = 0x4000000;
inline constexpr uint32_t kInternal = 0x2000000;
inline constexpr uint32_t kCaller = 0x1000000;

// A text with values in it, as a trace has it.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::vector<TraceLine> lines();
std::vector<std::string> texts();

// Forgets everything that was traced so far.
void clear();

// Keeps no lines from now on. For tests that run long.
void stop_keeping();

// How many lines have exactly this text.
size_t count(std::string_view text);
bool contains(std::string_view text);
// All of them, in this order, with anything between them.
bool contains_in_order(std::initializer_list<std::string_view> texts);
// The first line with exactly this text; one with an empty file name when there is none.
TraceLine find(std::string_view text);

// Whether a line with exactly this text was traced at this level, with the library's module; where the unit
// is given, under its name ("client/CM/src/NetCMIntf"). Says what was traced instead when it was not.
::testing::AssertionResult traced(uint32_t level, std::string_view text, std::string_view unit = {});

// Waits until the line has been traced `times` times since the last clear(); false after `patience`.
bool wait_for(std::string_view text, size_t times = 1, std::chrono::milliseconds patience = kPatience);
// The same for a line that begins with the text.
bool wait_for_prefix(std::string_view prefix, std::chrono::milliseconds patience = kPatience);

// Called for each line on the thread that traces it, outside every lock of the capture. For tests that need
// something to happen at one place inside the library.
Hook<const TraceLine&> on_line(std::function<void(const TraceLine&)> body);

}  // namespace trace
}  // namespace quorvel::test
