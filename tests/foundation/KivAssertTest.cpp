// The assertion line form that every abort path of the project relies on.
#include "KivAssert.h"

#include <gtest/gtest.h>

namespace
{
void failState(int offset_i) { KIV_ASSERT_STATE(offset_i < 3); }
void failPointer(const char* buffer) { KIV_ASSERT_NOT_NULL(buffer); }
} // namespace

TEST(KivAssertDeathTest, WritesFileAndConditionThenAborts)
{
    EXPECT_DEATH(failState(5), "^\tFILE: \"tests/foundation/KivAssertTest\"\nSTATE ASSERTION FAILURE: offset_i < 3\n$");
    EXPECT_DEATH(failPointer(nullptr), "\nNULL POINTER ASSERTION: buffer\n$");
    EXPECT_DEATH(KIV_UNEXPECTED_STATE("BAD POINTER?"), "\nUNEXPECTED STATE: \"BAD POINTER\\?\"\n$");
    EXPECT_DEATH(KIV_UNEXPECTED_STATE(), "\nUNEXPECTED STATE: \n$");
}

TEST(KivAssert, WarningWritesAndCarriesOn)
{
    testing::internal::CaptureStderr();
    int reached = 0;
    KIV_WARN_STATE(reached == 1);
    reached = 2;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\tFILE: \"tests/foundation/KivAssertTest\"\nSTATE WARNING: reached == 1\n");
    EXPECT_EQ(reached, 2);
    failState(1); // a condition that holds does nothing
}
