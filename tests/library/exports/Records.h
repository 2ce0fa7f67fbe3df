// What the tests of the records' layout share.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <utility>

namespace quorvel::test {

// A value of the 32-bit model, and of the 64-bit model where a pointer or a thread's handle changes it.
constexpr size_t in_32_or_64(size_t ilp32, size_t lp64) {
    return sizeof(void*) == 4 ? ilp32 : lp64;
}

// A member's place and its declared type, which is what comes last.
#define EXPECT_FIELD(type, field, offset, ...)                                         \
    EXPECT_EQ(offsetof(type, field), static_cast<size_t>(offset)) << #type "." #field; \
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<type&>().field), __VA_ARGS__>))  \
        << #type "." #field << " has another type"
// A member whose type has no name.
#define EXPECT_PART(type, field, offset, size)                                         \
    EXPECT_EQ(offsetof(type, field), static_cast<size_t>(offset)) << #type "." #field; \
    EXPECT_EQ(sizeof(std::declval<type&>().field), static_cast<size_t>(size)) << #type "." #field
#define EXPECT_SIZE(type, size) EXPECT_EQ(sizeof(type), static_cast<size_t>(size)) << #type

}  // namespace quorvel::test
