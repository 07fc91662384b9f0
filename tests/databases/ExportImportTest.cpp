// CSV export and import: RFC 4180 quoting of awkward values, chosen and ordered columns, the
// temporary-file rule, the one-transaction import and its row-naming errors.
#include "CsvFormat.h"
#include "ServiceClient.h"

#include <sstream>

namespace kiv::db::testing
{
namespace
{

using Rows = std::vector<std::vector<std::string>>;

Rows parseCsv(const std::string& text)
{
    std::istringstream in(text);
    CsvReader reader(in);
    Rows rows;
    std::vector<std::string> row;
    while (reader.readRow(row))
        rows.push_back(row);
    EXPECT_EQ(reader.error(), "");
    return rows;
}

TEST(CsvFormat, QuotesOnlyWhatNeedsQuoting)
{
    std::ostringstream out;
    writeCsvRow(out, {"plain", "a,b", "say \"hi\"", "two\r\nlines", "", " edge", "caf\xE9"});
    EXPECT_EQ(out.str(), "plain,\"a,b\",\"say \"\"hi\"\"\",\"two\r\nlines\",,\" edge\",caf\xE9\r\n");
    EXPECT_EQ(parseCsv(out.str()),
              (Rows{{"plain", "a,b", "say \"hi\"", "two\r\nlines", "", " edge", "caf\xE9"}}));
}

TEST(CsvFormat, ReaderAcceptsLineFeedsAndReportsMalformedInputByLine)
{
    EXPECT_EQ(parseCsv("a,b\nc,\"d\ne\"\n"), (Rows{{"a", "b"}, {"c", "d\ne"}}));
    EXPECT_EQ(parseCsv("a,b"), (Rows{{"a", "b"}})); // no final line break
    const auto errorOf = [](const std::string& text)
    {
        std::istringstream in(text);
        CsvReader reader(in);
        std::vector<std::string> row;
        while (reader.readRow(row))
        {
        }
        return reader.error();
    };
    EXPECT_EQ(errorOf("h\r\n\"open\r\n"),
              "Row 2 (line 3): a quoted value is not closed before the end of the file.");
    EXPECT_EQ(errorOf("h\r\n\"a\"b\r\n"),
              "Row 2 (line 2): a closing quote must be followed by a comma or the end of the line.");
    EXPECT_EQ(
        errorOf("h\r\nab\"c\r\n"),
        "Row 2 (line 2): a quote inside an unquoted value (quote the whole value and double the quote).");
}

class ExportImportTest : public ::testing::Test
{
protected:
    std::string path(const std::string& name) const { return (folder.path() / name).string(); }

    DataFolder folder;
    ServiceClient client{folder.path()};
    uint32_t handle = openSampleDatabase(client, "Shop");
};

TEST_F(ExportImportTest, AwkwardValuesSurviveARoundTrip)
{
    const std::string big = "-12345678901234567890123456789012345678";
    const std::vector<std::vector<std::pair<std::string, std::string>>> rows = {
        {{"Name", "O'Hare, \"the\" airport"}, {"Notes", "line one\r\nline two\nthree"}, {"Price", big}},
        {{"Name", "caf\xE9 cr\xE8me"}, {"Notes", ""}, {"Price", "0.000000000000000000000000000000000001"}},
        {{"Name", ""},
         {"Notes", " leading and trailing "},
         {"Qty", "-7"},
         {"Weight", "0.1"},
         {"Active", "1"}},
        {{"Name", ",,,"}, {"Code", "\"\""}},
    };
    for (const auto& row : rows)
        ASSERT_EQ(client.addRecord(handle, row), 0u);
    uint32_t count = 0;
    ASSERT_EQ(client.exportRecords(handle, path("shop.csv"), "", count), result::kEndOfFile);
    EXPECT_EQ(count, 4u);

    uint32_t copy = 0;
    ServiceClient editor(folder.path(), "kivEditDatabase");
    ASSERT_EQ(editor.createDatabase("Copy"), 0u);
    ASSERT_EQ(editor.open("Copy", 3, copy), 0u);
    for (const auto& [name, type] : std::vector<std::pair<std::string, uint32_t>>{{"Name", 0x02060028},
                                                                                  {"City", 0x00060000},
                                                                                  {"Price", 0x02050000},
                                                                                  {"Qty", 0x00020000},
                                                                                  {"Stock", 0x00030000},
                                                                                  {"Weight", 0x00040000},
                                                                                  {"Active", 0x00010000},
                                                                                  {"Notes", 0x00070000},
                                                                                  {"Code", 0x08060000}})
        ASSERT_EQ(editor.addField(copy, name, type), 0u);
    ASSERT_EQ(editor.importRecords(copy, path("shop.csv"), count), 0u) << editor.errorInfo(copy).text;
    EXPECT_EQ(count, 4u);
    for (const char* field : {"KIVIDFIELD", "Name", "Notes", "Price", "Qty", "Weight", "Active", "Code"})
        EXPECT_EQ(editor.column(copy, "", field), client.column(handle, "", field)) << field;
    // And the copy exports to the same bytes.
    ASSERT_EQ(editor.exportRecords(copy, path("copy.csv"), "", count), result::kEndOfFile);
    EXPECT_EQ(readFile(path("copy.csv")), readFile(path("shop.csv")));
}

TEST_F(ExportImportTest, ExportWritesTheChosenColumnsOfTheSearchResults)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "b"}, {"City", "Lyon"}, {"Price", "2.50"}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "a"}, {"City", "Paris"}, {"Price", "1"}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "c"}, {"City", "Lyon"}, {"Active", "yes"}}), 0u);
    ASSERT_EQ(client.search(handle, "City = 'lyon' ORDER BY Name DESC"), 0u);
    uint32_t count = 0;
    ASSERT_EQ(client.exportRecords(handle, path("lyon.csv"), "price, NAME,Active", count),
              result::kEndOfFile);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(readFile(path("lyon.csv")), "Price,Name,Active\r\n,c,1\r\n2.50,b,0\r\n");
    EXPECT_EQ(client.exportRecords(handle, path("bad.csv"), "Name,Colour", count), result::kFieldNotFound);
    EXPECT_EQ(client.errorInfo(handle).text, "Colour");
    EXPECT_FALSE(std::filesystem::exists(path("bad.csv")));
}

TEST_F(ExportImportTest, FailedExportLeavesNoFileBehind)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "a"}}), 0u);
    writeFile(path("keep.csv"), "old content");
    std::filesystem::create_directory(path("folder.csv"));
    uint32_t count = 0;
    EXPECT_EQ(client.exportRecords(handle, path("missing/dir/x.csv"), "", count), result::kFileError);
    EXPECT_EQ(client.exportRecords(handle, path("folder.csv"), "", count), result::kFileError);
    EXPECT_EQ(client.exportRecords(handle, path("keep.csv"), "Nope", count), result::kFieldNotFound);
    EXPECT_EQ(readFile(path("keep.csv")), "old content");
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos) << entry.path();
}

TEST_F(ExportImportTest, ImportIsAllOrNothingAndNamesTheBadRow)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "existing"}}), 0u);
    writeFile(path("bad.csv"),
              "Name,Qty,Notes\r\nfine,1,\"multi\r\nline\"\r\nalso fine,2,x\r\nbroken,two,x\r\n");
    uint32_t count = 99;
    EXPECT_EQ(client.importRecords(handle, path("bad.csv"), count), result::kImportFailed);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(client.errorInfo(handle).text,
              "Row 4 (line 5), field Qty: \"two\" is not a whole number from -2147483648 to 2147483647.");
    EXPECT_EQ(client.recordCount(handle), 1u);

    writeFile(path("short.csv"), "Name,Qty\r\na,1\r\nb\r\n");
    EXPECT_EQ(client.importRecords(handle, path("short.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text, "Row 3 (line 3): 1 values, but the header names 2 fields.");
    writeFile(path("unknown.csv"), "Name,Colour\r\na,red\r\n");
    EXPECT_EQ(client.importRecords(handle, path("unknown.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text,
              "Row 1: the column \"Colour\" names no field of the database Shop.");
    writeFile(path("ids.csv"), "KIVIDFIELD,Name\r\n1,clash\r\n");
    EXPECT_EQ(client.importRecords(handle, path("ids.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text,
              "Row 2 (line 2): Another record already holds this value in the unique field KIVIDFIELD.");
    EXPECT_EQ(client.importRecords(handle, path("none.csv"), count), result::kFileError);
    writeFile(path("empty.csv"), "");
    EXPECT_EQ(client.importRecords(handle, path("empty.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.recordCount(handle), 1u);
}

TEST_F(ExportImportTest, ImportKeepsGivenIDsAndAssignsTheMissingOnes)
{
    writeFile(path("in.csv"), "name,KIVIDFIELD,price\nx,10,1.50\ny,,2\n\n");
    uint32_t count = 0;
    ASSERT_EQ(client.importRecords(handle, path("in.csv"), count), 0u) << client.errorInfo(handle).text;
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(client.column(handle, "ORDER BY KIVIDFIELD", "KIVIDFIELD"),
              (std::vector<std::string>{"10", "11"}));
    ASSERT_EQ(client.addRecord(handle, {{"Name", "z"}}), 0u);
    EXPECT_EQ(client.getText(handle, "KIVIDFIELD").text, "12"); // past every imported ID
    EXPECT_EQ(client.column(handle, "Name = 'x'", "Price"), std::vector<std::string>{"1.50"});
}

} // namespace
} // namespace kiv::db::testing
