// What the fuzzers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A property that every input must have.
#define QV_FUZZ_EXPECT(condition)                                                              \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (false)
