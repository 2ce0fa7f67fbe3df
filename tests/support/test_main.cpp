#include <gmock/gmock.h>

#include <thread>

#include "support/LeakCheck.h"

// The C library loads its unwinder with a process's first cancellation, and the loader keeps what that needs
// where the leak check does not look.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
    return "leak:_dl_map_object_deps\n";
}

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new quorvel::test::LeakCheck);
    // A sanitizer starts a thread of its own with the first one of the program: now, and not within a test.
    std::thread([] {}).join();
    return RUN_ALL_TESTS();
}
