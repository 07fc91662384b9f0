// UTF-8 regions' conversion of the module's ISO 8859-1 bytes, the charset key, the names an
// upload may take and the reading of the server log's last errors for the administration page.
#include "admin/AdminFiles.h"
#include "admin/AdminOverview.h"
#include "common/Utf8.h"
#include "config/ServerConfig.h"

#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

std::string converted(std::string text)
{
    convertLatin1ToUtf8(text);
    return text;
}

TEST(Utf8, WellFormedUtf8AndAsciiStayAsTheyAre)
{
    for (const std::string text : {"", "plain ASCII <b>&amp;</b>", "Jos\xC3\xA9", "\xE2\x82\xAC 5",
                                   "\xF0\x9F\x98\x80", "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(converted(text), text);
    // Already valid: the string keeps its buffer (nothing is copied for a pure ASCII page).
    std::string page(4096, 'a');
    const char* before = page.data();
    convertLatin1ToUtf8(page);
    EXPECT_EQ(page.data(), before);
}

TEST(Utf8, Latin1BytesAreConvertedAndMixedTextKeepsItsUtf8)
{
    EXPECT_EQ(converted("Base de donn\xE9"
                        "es"),
              "Base de donn\xC3\xA9"
              "es");
    EXPECT_EQ(converted("\xA0\xFF\x80"), "\xC2\xA0\xC3\xBF\xC2\x80");
    // The module's word next to a UTF-8 value from an imported file.
    EXPECT_EQ(converted("donn\xE9"
                        "es: Jos\xC3\xA9"),
              "donn\xC3\xA9"
              "es: Jos\xC3\xA9");
    // Truncated sequences, at the end and before ASCII: each stray byte on its own.
    EXPECT_EQ(converted("x\xC3"), "x\xC3\x83");
    EXPECT_EQ(converted("\xE2\x82z"), "\xC3\xA2\xC2\x82z");
    EXPECT_EQ(converted("\xF0\x9F\x98"), "\xC3\xB0\xC2\x9F\xC2\x98");
    // Overlong forms, surrogates and code points past U+10FFFF are not UTF-8.
    EXPECT_EQ(converted("\xC0\xAF"), "\xC3\x80\xC2\xAF");
    EXPECT_EQ(converted("\xE0\x80\xAF"), "\xC3\xA0\xC2\x80\xC2\xAF");
    EXPECT_EQ(converted("\xED\xA0\x80"), "\xC3\xAD\xC2\xA0\xC2\x80");
    EXPECT_EQ(converted("\xF4\x90\x80\x80"), "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80");
    EXPECT_EQ(utf8SequenceLength("\xC3\xA9"), 2u);
    EXPECT_EQ(utf8SequenceLength("\xF0\x8F\xBF\xBF"), 0u) << "overlong four-byte form";
}

TEST(Utf8, CharsetIsOneOfTwoWordsInAnyCase)
{
    const fs::path base = "/srv";
    EXPECT_FALSE(parseConfig("[[region]]\nroot = \"s\"\n", base).regions[0].servesUtf8());
    const RegionConfig utf8 = parseConfig("[[region]]\nroot = \"s\"\ncharset = \"UTF-8\"\n", base).regions[0];
    EXPECT_TRUE(utf8.servesUtf8());
    EXPECT_EQ(utf8.pageCharset, "UTF-8");
    EXPECT_EQ(
        parseConfig("[[region]]\nroot = \"s\"\ncharset = \"Iso-8859-1\"\n", base).regions[0].pageCharset,
        "ISO-8859-1");
    try
    {
        parseConfig("[[region]]\nroot = \"s\"\n\ncharset = \"windows-1252\"\n", base, "k.toml");
        ADD_FAILURE() << "an unknown charset is accepted";
    }
    catch (const ConfigError& error)
    {
        EXPECT_NE(
            std::string(error.what()).find("k.toml:4: 'charset' must be one of \"iso-8859-1\", \"utf-8\""),
            std::string::npos)
            << error.what();
    }
    const RegionConfig folders =
        parseConfig(
            "[[region]]\nroot = \"s\"\ndata = \"d\"\nbackups_folder = \"b\"\nmax_upload_bytes = 100\n", base)
            .regions[0];
    EXPECT_EQ(folders.backupsFolder, "/srv/b");
    EXPECT_EQ(folders.maxUploadBytes, 100u);
    EXPECT_EQ(exportsFolderOf(folders), "/srv/d/exports");
    EXPECT_EQ(backupsFolderOf(parseConfig("[[region]]\nroot = \"s\"\ndata = \"d\"\n", base).regions[0]),
              "/srv/d/backups");
}

TEST(AdminFiles, UploadNamesAreSafeBasenamesOfCsvOrTextFiles)
{
    for (const char* good : {"people.csv", "People 2026 (copy).CSV", "a-b_c+d.txt"})
        EXPECT_EQ(findUploadNameProblem(good), "") << good;
    for (const char* bad :
         {"", "..", ".", ".hidden.csv", "../x.csv", "a/b.csv", "a\\b.csv", "x.csv ", "x.csv.", "people.kivdb",
          "users.toml", "x", "caf\xC3\xA9.csv", "nul\0.csv", "a\nb.csv"})
        EXPECT_NE(findUploadNameProblem(bad), "") << bad;
    EXPECT_NE(findUploadNameProblem(std::string(117, 'a') + ".csv"), "") << "longer than 120";
}

TEST(AdminOverview, TheLastErrorLinesOfTheLogOldestFirst)
{
    const fs::path log = fs::temp_directory_path() / ("kiv-admin-log-" + std::to_string(::getpid()));
    {
        std::ofstream out(log, std::ios::binary);
        out << "2026-11-25T00:00:00.000Z [error] pid 1: first\n";
        for (int i = 0; i < 3000; ++i) // spans several 64 KiB pieces
            out << "2026-11-25T00:00:01.000Z ["
                << (i % 3 == 0   ? "error"
                    : i % 3 == 1 ? "note"
                                 : "failure")
                << "] pid 1 region=main: line " << i << " " << std::string(40, 'x') << "\n";
        out << "2026-11-25T00:00:02.000Z [warning] pid 1: not an error\n";
        out << "a message that mentions [error] later on\n";
    }
    auto lines = readLastErrorLines(log, 50);
    ASSERT_EQ(lines.size(), 50u);
    EXPECT_NE(lines.back().find("line 2999 "), std::string::npos) << lines.back();
    EXPECT_NE(lines.front().find("line 2925 "), std::string::npos) << lines.front();
    lines = readLastErrorLines(log, 5000);
    EXPECT_EQ(lines.size(), 2001u) << "every error and failure, the file's first line too";
    EXPECT_NE(lines.front().find("first"), std::string::npos);
    lines = readLastErrorLines(log, 5000, 1000);
    EXPECT_TRUE(!lines.empty() && lines.size() < 10) << "only the end the limit allows: " << lines.size();
    for (const auto& line : lines)
        EXPECT_EQ(line.rfind("2026-11-25T00:00:01.000Z [", 0), 0u) << "whole lines only: " << line;
    EXPECT_TRUE(readLastErrorLines(log.string() + "-missing", 50).empty());
    fs::remove(log);
}

} // namespace
} // namespace kiv
