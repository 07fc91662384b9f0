// KivFileSpecification, KivFileSystemItem and KivFolderSpecification: paths as the operating system takes
// them, what exists where, and the exceptions for an item of the wrong kind.
#include "KivFileSpecification.h"
#include "KivFileSystemItem.h"
#include "KivFolderSpecification.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// A fresh folder holding one file "data.txt" and one folder "sub", removed afterwards.
class KivFileSystemFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char folder[] = "/tmp/kiv-files-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        myFolder = folder;
        FILE* file = std::fopen((myFolder + "/data.txt").c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fputs("x", file);
        std::fclose(file);
        ASSERT_EQ(mkdir((myFolder + "/sub").c_str(), 0700), 0);
    }
    void TearDown() override
    {
        std::remove((myFolder + "/data.txt").c_str());
        rmdir((myFolder + "/sub").c_str());
        rmdir(myFolder.c_str());
    }
    KivString Path(const std::string& name_i) const { return KivString((myFolder + "/" + name_i).c_str()); }

    std::string myFolder;
};

TEST(KivFileSpecification, GivesThePathWithoutTrailingSeparatorsAndItsName)
{
    EXPECT_EQ(KivFileSpecification("out/people.txt").GetOperatingSystemPathname(), "out/people.txt");
    EXPECT_EQ(KivFileSpecification("out/exports//").GetOperatingSystemPathname(), "out/exports");
    EXPECT_EQ(KivFileSpecification("/").GetOperatingSystemPathname(), "/");
    EXPECT_EQ(KivFileSpecification("out/people.txt").GetName(), "people.txt");
    EXPECT_EQ(KivFileSpecification("people.txt").GetName(), "people.txt");
    EXPECT_EQ(KivFileSpecification("out/exports/").GetName(), "exports");
    EXPECT_EQ(KivFileSpecification().GetName(), "");
    KivFileSpecification copy(KivFileSpecification("a/b"));
    copy.SetPathname("c/d/");
    EXPECT_EQ(copy.GetOperatingSystemPathname(), "c/d");
}

TEST_F(KivFileSystemFixture, ItemsTellWhatIsThere)
{
    KivFileSystemItem item{KivFileSpecification(Path("data.txt"))};
    EXPECT_TRUE(item.Exists());
    EXPECT_TRUE(item.IsAFile());
    EXPECT_FALSE(item.IsAFolder());

    item.Redefine(Path("sub/"));
    EXPECT_TRUE(item.Exists());
    EXPECT_TRUE(item.IsAFolder());
    EXPECT_FALSE(item.IsAFile());
    EXPECT_EQ(item.GetOperatingSystemPathname(), Path("sub"));

    item.Redefine(KivFileSpecification(Path("missing")));
    EXPECT_FALSE(item.Exists());
    EXPECT_FALSE(item.IsAFolder());
    EXPECT_FALSE(item.IsAFile());
    EXPECT_FALSE(KivFileSystemItem(KivString()).Exists());
}

TEST_F(KivFileSystemFixture, WrongKindsThrowAndMissingItemsPass)
{
    EXPECT_THROW(KivFileSystemItem(Path("sub")).RequireFileOrNothing(), KivFileSystemItem::IsNotAFile);
    EXPECT_THROW(KivFileSystemItem(Path("data.txt")).RequireFolderOrNothing(),
                 KivFileSystemItem::IsNotAFolder);
    EXPECT_NO_THROW(KivFileSystemItem(Path("data.txt")).RequireFileOrNothing());
    EXPECT_NO_THROW(KivFileSystemItem(Path("missing")).RequireFileOrNothing());
    EXPECT_NO_THROW(KivFileSystemItem(Path("missing")).RequireFolderOrNothing());

    try
    {
        KivFileSystemItem(Path("sub")).RequireFileOrNothing();
        FAIL() << "no exception";
    }
    catch (const KivException& exception)
    {
        // Caught as the root class, it still describes itself and copies as its own kind.
        EXPECT_EQ(exception.GetStringRepresentation(), KivString("Not a file: ") + Path("sub"));
        KivException* copy = exception.Clone();
        EXPECT_NE(dynamic_cast<KivFileSystemItem::IsNotAFile*>(copy), nullptr);
        delete copy;
    }
}

TEST_F(KivFileSystemFixture, FoldersFindTheirItemsByName)
{
    KivFolderSpecification folder(KivString(myFolder.c_str()));
    EXPECT_TRUE(folder.Contains("data.txt"));
    EXPECT_TRUE(folder.Contains("sub"));
    EXPECT_FALSE(folder.Contains("missing"));
    EXPECT_FALSE(folder.Contains(".."));
    EXPECT_FALSE(folder.Contains("sub/../data.txt"));
    EXPECT_EQ(folder.GetItemSpecification("data.txt").GetOperatingSystemPathname(), Path("data.txt"));
    EXPECT_THROW(folder.GetItemSpecification("missing"), KivFolderSpecification::ItemNotFound);
    EXPECT_THROW(KivFolderSpecification{Path("data.txt")}, KivFileSystemItem::IsNotAFolder);
    EXPECT_NO_THROW(KivFolderSpecification{Path("not-yet")});
}

} // namespace
