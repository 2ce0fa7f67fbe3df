#include <gmock/gmock.h>

#include "support/LeakCheck.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new quorvel::test::LeakCheck);
    return RUN_ALL_TESTS();
}
