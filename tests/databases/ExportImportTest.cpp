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

// A database as the editor makes it for an import: only its unique ID field, open for
// exclusive use.
class ImportNewFieldsTest : public ::testing::Test
{
protected:
    std::string path(const std::string& name) const { return (folder.path() / name).string(); }

    uint32_t openNew(const std::string& name, uint32_t mode = 3)
    {
        uint32_t opened = 0;
        EXPECT_EQ(client.createDatabase(name), 0u);
        EXPECT_EQ(client.open(name, mode, opened), 0u);
        return opened;
    }

    std::vector<std::pair<std::string, uint32_t>> fieldsOf(uint32_t handle)
    {
        std::vector<std::pair<std::string, uint32_t>> fields;
        for (uint32_t i = 0; i < client.fieldCount(handle); ++i)
        {
            std::string name;
            uint32_t type = 0;
            EXPECT_EQ(client.fieldInfoByIndex(handle, i, name, type), 0u);
            fields.emplace_back(name, type);
        }
        return fields;
    }

    DataFolder folder;
    ServiceClient client{folder.path()};
};

TEST_F(ImportNewFieldsTest, ColumnsBecomeIntegerOrLongTextFields)
{
    const uint32_t handle = openNew("Fresh");
    writeFile(path("in.csv"), "KIVIDFIELD,Name,Qty,Big,Mixed,Blank,Signed\r\n"
                              "7,Ann,3,1,4,,-2\r\n"
                              "9,Bob,,2147483648,x,, +5\r\n"
                              "\r\n"
                              ",\"Cy, Jr\",12,3,5,,0\r\n");
    uint32_t count = 0;
    ASSERT_EQ(client.importRecords(handle, path("in.csv"), count), 0u) << client.errorInfo(handle).text;
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(fieldsOf(handle), (std::vector<std::pair<std::string, uint32_t>>{{"KIVIDFIELD", 0x07030000},
                                                                               {"Name", 0x00070000},
                                                                               {"Qty", 0x00020000},
                                                                               {"Big", 0x00070000},
                                                                               {"Mixed", 0x00070000},
                                                                               {"Blank", 0x00070000},
                                                                               {"Signed", 0x00020000}}));
    EXPECT_EQ(client.column(handle, "ORDER BY KIVIDFIELD", "KIVIDFIELD"),
              (std::vector<std::string>{"7", "9", "10"})); // kept, and the missing one assigned
    EXPECT_EQ(client.column(handle, "Qty > 2 ORDER BY Qty DESC", "Name"),
              (std::vector<std::string>{"Cy, Jr", "Ann"})); // compared as numbers
    EXPECT_EQ(client.column(handle, "ORDER BY KIVIDFIELD", "Signed"),
              (std::vector<std::string>{"-2", "5", "0"}));
    EXPECT_EQ(client.column(handle, "ORDER BY KIVIDFIELD", "Big"),
              (std::vector<std::string>{"1", "2147483648", "3"}));
}

TEST_F(ImportNewFieldsTest, UnknownColumnsAreStillRefusedElsewhere)
{
    writeFile(path("in.csv"), "Name,Qty\r\nAnn,3\r\n");
    uint32_t count = 0;
    // Shared open: others could hold the field list.
    const uint32_t shared = openNew("Shared", 2);
    EXPECT_EQ(client.importRecords(shared, path("in.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(shared).text,
              "Row 1: the column \"Name\" names no field of the database Shared.");
    EXPECT_EQ(client.fieldCount(shared), 1u);
    EXPECT_EQ(client.recordCount(shared), 0u);

    // A database with fields of its own.
    const uint32_t some = openNew("Some");
    ASSERT_EQ(client.addField(some, "Name", 0x00060000), 0u);
    EXPECT_EQ(client.importRecords(some, path("in.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(some).text, "Row 1: the column \"Qty\" names no field of the database Some.");
    EXPECT_EQ(client.fieldCount(some), 2u);
    EXPECT_EQ(client.recordCount(some), 0u);
}

TEST_F(ImportNewFieldsTest, AFailedImportLeavesNoFieldsBehind)
{
    const uint32_t handle = openNew("Fresh");
    uint32_t count = 0;
    writeFile(path("ids.csv"), "KIVIDFIELD,Name\r\n1,a\r\n1,b\r\n");
    EXPECT_EQ(client.importRecords(handle, path("ids.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text,
              "Row 3 (line 3): Another record already holds this value in the unique field KIVIDFIELD.");
    writeFile(path("short.csv"), "Name,Qty\r\na,1\r\nb\r\n");
    EXPECT_EQ(client.importRecords(handle, path("short.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text, "Row 3 (line 3): 1 values, but the header names 2 fields.");
    writeFile(path("twice.csv"), "Name,NAME\r\na,b\r\n");
    EXPECT_EQ(client.importRecords(handle, path("twice.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text, "Row 1: the field NAME is named twice.");
    writeFile(path("badname.csv"), "Name,\r\na,b\r\n");
    EXPECT_EQ(client.importRecords(handle, path("badname.csv"), count), result::kImportFailed);
    EXPECT_EQ(client.errorInfo(handle).text.rfind("Row 1: the column \"\" cannot become a field: ", 0), 0u)
        << client.errorInfo(handle).text;
    writeFile(path("quote.csv"), "Name,Qty\r\n\"open,1\r\n");
    EXPECT_EQ(client.importRecords(handle, path("quote.csv"), count), result::kImportFailed);
    EXPECT_EQ(fieldsOf(handle), (std::vector<std::pair<std::string, uint32_t>>{{"KIVIDFIELD", 0x07030000}}));
    EXPECT_EQ(client.recordCount(handle), 0u);

    // Still a database without fields of its own: a good file imports.
    writeFile(path("good.csv"), "Name\r\na\r\n");
    ASSERT_EQ(client.importRecords(handle, path("good.csv"), count), 0u) << client.errorInfo(handle).text;
    EXPECT_EQ(count, 1u);
}

TEST_F(ImportNewFieldsTest, ExportToANewDatabaseAndImportRoundTrips)
{
    const uint32_t source = openSampleDatabase(client, "Shop");
    ASSERT_EQ(client.addRecord(source, {{"Name", "O'Hare, \"the\""}, {"Qty", "-7"}, {"Notes", "a\r\nb"}}),
              0u);
    ASSERT_EQ(client.addRecord(source, {{"Name", "caf\xE9"}, {"Qty", "12"}, {"Price", "1.50"}}), 0u);
    ASSERT_EQ(client.addRecord(source, {{"Name", ""}, {"Weight", "0.25"}, {"Active", "1"}}), 0u);
    uint32_t count = 0;
    ASSERT_EQ(client.exportRecords(source, path("out.csv"), "", count), result::kEndOfFile);
    ASSERT_EQ(count, 3u);

    const uint32_t copy = openNew("Copy");
    ASSERT_EQ(client.importRecords(copy, path("out.csv"), count), 0u) << client.errorInfo(copy).text;
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(client.fieldCount(copy), client.fieldCount(source));
    uint32_t type = 0;
    ASSERT_EQ(client.fieldInfo(copy, "Qty", type), 0u);
    EXPECT_EQ(type, 0x00020000u);
    ASSERT_EQ(client.fieldInfo(copy, "Notes", type), 0u);
    EXPECT_EQ(type, 0x00070000u);
    for (const char* field :
         {"KIVIDFIELD", "Name", "City", "Price", "Qty", "Stock", "Weight", "Active", "Notes", "Code"})
        EXPECT_EQ(client.column(copy, "ORDER BY KIVIDFIELD", field),
                  client.column(source, "ORDER BY KIVIDFIELD", field))
            << field;

    // And back out: the same file.
    ASSERT_EQ(client.exportRecords(copy, path("again.csv"), "", count), result::kEndOfFile);
    EXPECT_EQ(readFile(path("again.csv")), readFile(path("out.csv")));
}

} // namespace
} // namespace kiv::db::testing
