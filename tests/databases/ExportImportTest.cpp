// CSV export and import: RFC 4180 quoting of awkward values, chosen and ordered columns, the
// temporary-file rule, the one-transaction import and its row-naming errors.
#include "files/CsvFormat.h"
#include "ServiceTesting.h"

#include <sstream>

namespace kiv::db::testing
{
namespace
{
using namespace std::string_literals;

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
    EXPECT_EQ(errorOf("h\r\nok\r\na\0b\r\n"s),
              "Row 3 (line 3): the row holds a NUL byte; text values cannot hold one.");
    // A UTF-8 byte-order mark before the header is no part of it.
    EXPECT_EQ(parseCsv("\xEF\xBB\xBFName\r\nx\r\n"), (Rows{{"Name"}, {"x"}}));
    EXPECT_EQ(errorOf("\xEF\xBBName\r\n"), "Row 1 (line 1): the file begins with a broken byte-order mark.");
}

class ExportImportTest : public ::testing::Test
{
protected:
    // Files are named as pages name them: relative to the region's exports folder.
    std::filesystem::path path(const std::string& name) const { return folder.exports() / name; }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = openSampleDatabase(service, "Shop");
};

TEST_F(ExportImportTest, AwkwardValuesSurviveARoundTripIntoANewDatabase)
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
        ASSERT_EQ(addRecord(db, row), 0u);
    uint32_t count = 0;
    ASSERT_EQ(db.exportRecords("shop.csv", "", count), kKivResult_EndOfFile);
    EXPECT_EQ(count, 4u);

    // The editor's new database: its fields come from the file (Integer or LongText).
    Database& copy = open(service, "Copy", OpenMode::Shared, "", OpenIntent::CreateIfMissing);
    ASSERT_EQ(copy.importRecords("shop.csv", count), 0u) << copy.message();
    EXPECT_EQ(count, 4u);
    ASSERT_EQ(copy.fieldCount(), db.fieldCount());
    uint32_t type = 0;
    ASSERT_EQ(copy.fieldInfo("Qty", type), 0u);
    EXPECT_EQ(type, 0x00020000u);
    ASSERT_EQ(copy.fieldInfo("Notes", type), 0u);
    EXPECT_EQ(type, 0x00070000u);
    for (size_t i = 0; i < db.fieldCount(); ++i)
        EXPECT_EQ(column(copy, "", db.fieldAt(i)->name), column(db, "", db.fieldAt(i)->name))
            << db.fieldAt(i)->name;
    // And the copy exports to the same bytes.
    ASSERT_EQ(copy.exportRecords("copy.csv", "", count), kKivResult_EndOfFile);
    EXPECT_EQ(readFile(path("copy.csv")), readFile(path("shop.csv")));
}

TEST_F(ExportImportTest, ExportWritesTheChosenColumnsOfTheSearchResults)
{
    ASSERT_EQ(addRecord(db, {{"Name", "b"}, {"City", "Lyon"}, {"Price", "2.50"}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "a"}, {"City", "Paris"}, {"Price", "1"}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "c"}, {"City", "Lyon"}, {"Active", "yes"}}), 0u);
    ASSERT_EQ(db.executeSearch("City = 'lyon' ORDER BY Name DESC"), 0u);
    uint32_t count = 0;
    ASSERT_EQ(db.exportRecords(path("lyon.csv").string(), "price, NAME,Active", count), kKivResult_EndOfFile);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(readFile(path("lyon.csv")), "Price,Name,Active\r\n,c,1\r\n2.50,b,0\r\n");
    EXPECT_EQ(db.exportRecords("bad.csv", "Name,Colour", count), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Colour");
    EXPECT_FALSE(std::filesystem::exists(path("bad.csv")));
}

TEST_F(ExportImportTest, FailedExportLeavesNoFileBehind)
{
    ASSERT_EQ(addRecord(db, {{"Name", "a"}}), 0u);
    writeFile(path("keep.csv"), "old content");
    std::filesystem::create_directory(path("folder.csv"));
    uint32_t count = 0;
    EXPECT_EQ(db.exportRecords("missing/dir/x.csv", "", count), result::kFileError);
    EXPECT_EQ(db.exportRecords("folder.csv", "", count), result::kFileError);
    EXPECT_EQ(db.exportRecords("keep.csv", "Nope", count), kKivResult_NotFound);
    EXPECT_EQ(readFile(path("keep.csv")), "old content");
    for (const auto& entry : std::filesystem::directory_iterator(folder.exports()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos) << entry.path();
}

TEST(ExportFiles, NoExportOrImportReachesTheServersOwnFiles)
{
    DataFolder folder;
    ServiceEnvironment environment = environmentIn(folder.path());
    const auto users = folder.path() / "users.toml";
    const auto preferences = folder.path() / "kiv-preferences.txt";
    const auto log = folder.path() / "logs" / "server.log";
    environment.protectedFiles = {users, preferences, log};
    DatabaseService service(environment);
    Database& db = openSampleDatabase(service, "People");
    ASSERT_EQ(addRecord(db, {{"Name", "Ann"}}), 0u);
    writeFile(users, "admin = \"$argon2id$hash\"\n");
    writeFile(preferences, "kiv.x = 1\n");
    writeFile(log, "a line\n");
    std::filesystem::create_directories(folder.exports());
    std::filesystem::create_symlink(folder.path() / "People.kivdb", folder.exports() / "link.csv");
    const auto own = [&]
    {
        std::vector<std::string> contents;
        for (const auto& file : {folder.path() / "People.kivdb", users, preferences, log})
            contents.push_back(readFile(file));
        return contents;
    };
    const auto before = own();
    const std::vector<std::string> names = {"../People.kivdb",
                                            "./../PEOPLE.KIVDB",
                                            (folder.path() / "People.kivdb").string(),
                                            "../People.kivdb-wal",
                                            "../.kivlocks/people.lock",
                                            "../users.toml",
                                            "../kiv-preferences.txt",
                                            "../logs/server.log",
                                            log.string(),
                                            "People.kivdb",
                                            "USERS.TOML",
                                            "link.csv",
                                            ".hidden.csv",
                                            "../../elsewhere.csv"};
    uint32_t count = 0;
    for (const auto& name : names)
    {
        EXPECT_EQ(db.exportRecords(name, "", count), kKivResult_NotAuthorized) << name;
        EXPECT_EQ(db.importRecords(name, count), kKivResult_NotAuthorized) << name;
        EXPECT_NE(service.lastFailure().line.find("import: The file"), std::string::npos);
    }
    EXPECT_EQ(db.exportRecords("", "", count), kKivResult_InvalidValue);
    EXPECT_EQ(own(), before);
    EXPECT_EQ(column(db, "", "Name"), std::vector<std::string>{"Ann"}); // the database still works
    // Inside the exports folder, made on demand, a file is fine.
    EXPECT_EQ(db.exportRecords("people.csv", "Name", count), kKivResult_EndOfFile);
    EXPECT_EQ(readFile(folder.exports() / "people.csv"), "Name\r\nAnn\r\n");
}

TEST_F(ExportImportTest, ImportIsAllOrNothingAndNamesTheBadRow)
{
    ASSERT_EQ(addRecord(db, {{"Name", "existing"}}), 0u);
    writeFile(path("bad.csv"),
              "Name,Qty,Notes\r\nfine,1,\"multi\r\nline\"\r\nalso fine,2,x\r\nbroken,two,x\r\n");
    uint32_t count = 99;
    EXPECT_EQ(db.importRecords("bad.csv", count), result::kImportFailed);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(db.message(),
              "Row 4 (line 5), field Qty: \"two\" is not a whole number from -2147483648 to 2147483647.");
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"Name,Qty\r\na,1\r\nb\r\n", "Row 3 (line 3): 1 values, but the header names 2 fields."},
        {"Name,Colour\r\na,red\r\n", "Row 1: the column \"Colour\" names no field of the database Shop."},
        {"KIVIDFIELD,Name\r\n1,clash\r\n",
         "Row 2 (line 2): Another record already holds this value in the unique field KIVIDFIELD."},
        {"Name\r\nok\r\nnul\0here\r\n"s,
         "Row 3 (line 3): the row holds a NUL byte; text values cannot hold one."},
        {"", "The import file is empty: it needs a header row naming the fields."}};
    for (const auto& [content, message] : refused)
    {
        writeFile(path("in.csv"), content);
        EXPECT_EQ(db.importRecords("in.csv", count), result::kImportFailed) << message;
        EXPECT_EQ(db.message(), message);
    }
    EXPECT_EQ(db.importRecords("none.csv", count), result::kFileError);
    EXPECT_EQ(recordCount(db), 1u);
}

TEST_F(ExportImportTest, ImportKeepsGivenIDsAssignsTheMissingOnesAndSkipsAByteOrderMark)
{
    writeFile(path("in.csv"), "\xEF\xBB\xBFname,KIVIDFIELD,price\nx,10,1.50\ny,,2\n\n");
    uint32_t count = 0;
    ASSERT_EQ(db.importRecords("in.csv", count), 0u) << db.message();
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(column(db, "ORDER BY KIVIDFIELD", "KIVIDFIELD"), (std::vector<std::string>{"10", "11"}));
    ASSERT_EQ(addRecord(db, {{"Name", "z"}}), 0u);
    EXPECT_EQ(text(db, "KIVIDFIELD"), "12"); // past every imported ID
    EXPECT_EQ(column(db, "Name = 'x'", "Price"), std::vector<std::string>{"1.50"});
}

// A database as the editor makes it for an import: only its unique ID field.
class ImportNewFieldsTest : public ::testing::Test
{
protected:
    Database& openNew(const std::string& name)
    {
        return open(service, name, OpenMode::Shared, "", OpenIntent::CreateIfMissing);
    }
    static std::vector<std::pair<std::string, uint32_t>> fieldsOf(Database& database)
    {
        std::vector<std::pair<std::string, uint32_t>> fields;
        for (size_t i = 0; i < database.fieldCount(); ++i)
            fields.emplace_back(database.fieldAt(i)->name, database.fieldAt(i)->typeWord);
        return fields;
    }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
};

TEST_F(ImportNewFieldsTest, ColumnsBecomeIntegerOrLongTextFields)
{
    Database& db = openNew("Fresh");
    writeFile(folder.exports() / "in.csv", "KIVIDFIELD,Name,Qty,Big,Mixed,Blank,Signed\r\n"
                                           "7,Ann,3,1,4,,-2\r\n"
                                           "9,Bob,,2147483648,x,, +5\r\n"
                                           "\r\n"
                                           ",\"Cy, Jr\",12,3,5,,0\r\n");
    uint32_t count = 0;
    ASSERT_EQ(db.importRecords("in.csv", count), 0u) << db.message();
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(fieldsOf(db), (std::vector<std::pair<std::string, uint32_t>>{{"KIVIDFIELD", 0x07030000},
                                                                           {"Name", 0x00070000},
                                                                           {"Qty", 0x00020000},
                                                                           {"Big", 0x00070000},
                                                                           {"Mixed", 0x00070000},
                                                                           {"Blank", 0x00070000},
                                                                           {"Signed", 0x00020000}}));
    EXPECT_EQ(column(db, "ORDER BY KIVIDFIELD", "KIVIDFIELD"),
              (std::vector<std::string>{"7", "9", "10"})); // kept, and the missing one assigned
    EXPECT_EQ(column(db, "Qty > 2 ORDER BY Qty DESC", "Name"),
              (std::vector<std::string>{"Cy, Jr", "Ann"})); // compared as numbers
    EXPECT_EQ(column(db, "ORDER BY KIVIDFIELD", "Signed"), (std::vector<std::string>{"-2", "5", "0"}));
    EXPECT_EQ(column(db, "ORDER BY KIVIDFIELD", "Big"), (std::vector<std::string>{"1", "2147483648", "3"}));
}

TEST_F(ImportNewFieldsTest, UnknownColumnsAreRefusedWhileOthersUseItOrItHasFieldsOfItsOwn)
{
    writeFile(folder.exports() / "in.csv", "Name,Qty\r\nAnn,3\r\n");
    uint32_t count = 0;
    Database& shared = openNew("Shared");
    DatabaseService other(environmentIn(folder.path()));
    open(other, "Shared"); // another request holds the field list
    EXPECT_EQ(shared.importRecords("in.csv", count), result::kImportFailed);
    EXPECT_NE(shared.message().find("Row 1: the field Name cannot be created"), std::string::npos)
        << shared.message();
    EXPECT_EQ(shared.fieldCount(), 1u);
    EXPECT_EQ(recordCount(shared), 0u);

    Database& some = openNew("Some");
    ASSERT_EQ(some.addField("Name", 0x00060000), 0u);
    EXPECT_EQ(some.importRecords("in.csv", count), result::kImportFailed);
    EXPECT_EQ(some.message(), "Row 1: the column \"Qty\" names no field of the database Some.");
    EXPECT_EQ(some.fieldCount(), 2u);
    EXPECT_EQ(recordCount(some), 0u);
}

TEST_F(ImportNewFieldsTest, AFailedImportLeavesNoFieldsBehind)
{
    Database& db = openNew("Fresh");
    uint32_t count = 0;
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"KIVIDFIELD,Name\r\n1,a\r\n1,b\r\n",
         "Row 3 (line 3): Another record already holds this value in the unique field KIVIDFIELD."},
        {"Name,Qty\r\na,1\r\nb\r\n", "Row 3 (line 3): 1 values, but the header names 2 fields."},
        {"Name,NAME\r\na,b\r\n", "Row 1: the field NAME is named twice."},
        {"Name,Qty\r\n\"open,1\r\n",
         "Row 2 (line 3): a quoted value is not closed before the end of the file."}};
    for (const auto& [content, message] : refused)
    {
        writeFile(folder.exports() / "in.csv", content);
        EXPECT_EQ(db.importRecords("in.csv", count), result::kImportFailed) << message;
        EXPECT_EQ(db.message(), message);
        EXPECT_EQ(fieldsOf(db), (std::vector<std::pair<std::string, uint32_t>>{{"KIVIDFIELD", 0x07030000}}));
    }
    writeFile(folder.exports() / "in.csv", "Name,\r\na,b\r\n");
    EXPECT_EQ(db.importRecords("in.csv", count), result::kImportFailed);
    EXPECT_EQ(db.message().rfind("Row 1: the column \"\" cannot become a field: ", 0), 0u) << db.message();
    EXPECT_EQ(recordCount(db), 0u);

    // Still a database without fields of its own: a good file imports.
    writeFile(folder.exports() / "in.csv", "Name\r\na\r\n");
    ASSERT_EQ(db.importRecords("in.csv", count), 0u) << db.message();
    EXPECT_EQ(count, 1u);
}

} // namespace
} // namespace kiv::db::testing
