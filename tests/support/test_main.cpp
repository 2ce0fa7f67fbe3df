#include <gmock/gmock.h>

#include <thread>

#include "support/LeakCheck.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new quorvel::test::LeakCheck);
    // A sanitizer starts a thread of its own with the first one of the program: now, and not within a test.
    std::thread([] {}).join();
    return RUN_ALL_TESTS();
}
