// The assertion line form that every abort path of the project relies on.
#include "KivAssert.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
void failState(int offset_i)
{
    KIV_ASSERT_STATE(offset_i < 3);
}
void failPointer(const char* buffer)
{
    KIV_ASSERT_NOT_NULL(buffer);
}
} // namespace

TEST(KivAssertDeathTest, WritesFileAndConditionThenAborts)
{
    EXPECT_DEATH(failState(5),
                 "^\tFILE: \"tests/foundation/KivAssertTest\"\nSTATE ASSERTION FAILURE: offset_i < 3\n$");
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

TEST(KivAssert, NamesTheFileByItsPlaceInTheProjectHoweverTheCompilerSpelledIt)
{
    struct Case
    {
        const char* file;
        const char* header; // KivAssert.h as the same compiler spelled it
        const char* expected;
    };
    const Case cases[] = {
        // The project's own build: absolute paths.
        {"/w/kiv/src/KivString.cpp", "/w/kiv/kiv-foundation/include/KivAssert.h", "src/KivString"},
        {"/w/kiv/kiv-foundation/include/TKivArray.h", "/w/kiv/kiv-foundation/include/KivAssert.h",
         "kiv-foundation/include/TKivArray"},
        {"/w/kiv/tests/server/RenderTest.cpp", "/w/kiv/kiv-foundation/include/KivAssert.h",
         "tests/server/RenderTest"},
        // Relative to the project root, to a build folder, or through a folder named "src".
        {"database/KivGlue.cpp", "kiv-foundation/include/KivAssert.h", "database/KivGlue"},
        {"../src/KivObject.cpp", "../kiv-foundation/include/KivAssert.h", "src/KivObject"},
        {"/home/me/src/kiv/src/KivBuffer.cpp", "/home/me/src/kiv/kiv-foundation/include/KivAssert.h",
         "src/KivBuffer"},
        // Headers reached through a folder of the program's own, or with -I.
        {"/usr/include/kiv/TKivDictionary.h", "/usr/include/kiv/KivAssert.h",
         "kiv-foundation/include/TKivDictionary"},
        {"./TKivNameValuePairList.h", "./KivAssert.h", "kiv-foundation/include/TKivNameValuePairList"},
        {"TKivArray.h", "KivAssert.h", "kiv-foundation/include/TKivArray"},
        // Sources found apart from the headers: their last top-level folder names them.
        {"/home/me/src/kiv/src/KivBuffer.cpp", "/opt/kiv-include/KivAssert.h", "src/KivBuffer"},
        {"/home/src/kiv/tests/foundation/KivAssertTest.cpp", "/opt/kiv-include/KivAssert.h",
         "tests/foundation/KivAssertTest"},
        {"/elsewhere/src/KivNumber.cpp", "kiv-foundation/include/KivAssert.h", "src/KivNumber"},
        {"/w/my-kiv-foundation/include/TKivArray.cpp", "/w/my-kiv-foundation/include/KivAssert.h",
         "kiv-foundation/include/TKivArray"},
        {"/w/my-kiv-foundation/src/KivString.cpp", "/w/my-kiv-foundation/include/KivAssert.h",
         "src/KivString"},
        // Nothing known: as given, without the extension of its name only.
        {"/tmp/v1.2/program", "/opt/kiv-include/KivAssert.h", "/tmp/v1.2/program"},
        {"/tmp/v1.2/program.cc", "/opt/kiv-include/KivAssert.h", "/tmp/v1.2/program"},
    };
    for (const Case& c : cases)
    {
        const KivAssertLocation location = KivAssertLocate(c.file, c.header);
        EXPECT_EQ(std::string(location.folder) + std::string(location.path, location.pathLength), c.expected)
            << c.file << " with " << c.header;
    }
}
