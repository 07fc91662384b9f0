// Two-field indexes: a search that filters one indexed field with = and orders by another gets
// an index on the pair, made once; its results do not change, and deleting either field drops it.
#include "DecimalText.h"
#include "FieldTypes.h"
#include "ServiceClient.h"

#include <sqlite3.h>

namespace kiv::db::testing
{
namespace
{

int collateNoCase(void*, int leftLength, const void* left, int rightLength, const void* right)
{
    return compareFolded(std::string_view(static_cast<const char*>(left), size_t(leftLength)),
                         std::string_view(static_cast<const char*>(right), size_t(rightLength)));
}

int collateNumber(void*, int leftLength, const void* left, int rightLength, const void* right)
{
    return compareDecimalText(std::string_view(static_cast<const char*>(left), size_t(leftLength)),
                              std::string_view(static_cast<const char*>(right), size_t(rightLength)));
}

// Reads the file past the service, with the collations its columns name.
class RawFile
{
public:
    explicit RawFile(const std::filesystem::path& file)
    {
        sqlite3_open_v2(file.c_str(), &myConnection, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_create_collation(myConnection, "KIVNOCASE", SQLITE_UTF8, nullptr, collateNoCase);
        sqlite3_create_collation(myConnection, "KIVNUM", SQLITE_UTF8, nullptr, collateNumber);
    }
    ~RawFile() { sqlite3_close(myConnection); }
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;

    // The first column of every row, as text; one empty row on a failure to prepare.
    std::vector<std::string> rows(const std::string& sql, int column = 0)
    {
        sqlite3_stmt* statement = nullptr;
        std::vector<std::string> result;
        if (sqlite3_prepare_v2(myConnection, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
        {
            ADD_FAILURE() << sql << ": " << sqlite3_errmsg(myConnection);
            return {""};
        }
        while (sqlite3_step(statement) == SQLITE_ROW)
        {
            const auto* text = sqlite3_column_text(statement, column);
            result.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        sqlite3_finalize(statement);
        return result;
    }

    std::string columnOf(const std::string& field)
    {
        const auto found = rows("SELECT column_name FROM kiv_fields WHERE name = '" + field + "'");
        return found.empty() ? std::string() : found.front();
    }

    std::vector<std::string> pairIndexes()
    {
        return rows("SELECT name FROM sqlite_master WHERE type = 'index' AND name GLOB 'i2_*' ORDER BY name");
    }

    // The plan of the row-id query the service runs for "<filter> = ? ORDER BY <order>", one
    // line per step.
    std::string planOf(const std::string& filterColumn, const std::string& orderColumn)
    {
        std::string plan;
        for (const auto& line :
             rows("EXPLAIN QUERY PLAN SELECT kiv_rowid FROM kiv_records WHERE (" + filterColumn +
                      " = ?) ORDER BY " + orderColumn + " ASC, kiv_rowid LIMIT ? OFFSET ?",
                  3))
            plan += line + "\n";
        return plan;
    }

private:
    sqlite3* myConnection = nullptr;
};

class SearchIndexTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(client.createDatabase("People"), 0u);
        ASSERT_EQ(client.open("People", 3, handle), 0u);
        ASSERT_EQ(client.addField(handle, "Name", 0x02060000), 0u); // Text, indexed
        ASSERT_EQ(client.addField(handle, "City", 0x02060000), 0u); // Text, indexed
        ASSERT_EQ(client.addField(handle, "Age", 0x02020000), 0u);  // Integer, indexed
        ASSERT_EQ(client.addField(handle, "Note", 0x00060000), 0u); // Text, not indexed
        const std::vector<std::vector<std::string>> people = {
            {"martin", "Lyon", "40"}, {"Claire", "Paris", "31"}, {"bernard", "lyon", "25"},
            {"Zoe", "Lyon", "19"},    {"Alice", "Nice", "52"},   {"Denis", "LYON", "33"}};
        for (const auto& person : people)
            ASSERT_EQ(
                client.addRecord(handle, {{"Name", person[0]}, {"City", person[1]}, {"Age", person[2]}}), 0u);
    }

    std::filesystem::path file() const { return folder.path() / "People.kivdb"; }

    DataFolder folder;
    ServiceClient client{folder.path()};
    uint32_t handle = 0;
};

TEST_F(SearchIndexTest, EqualityAndOrderByTwoIndexedFieldsMakesAndUsesAPairIndex)
{
    RawFile before(file());
    EXPECT_TRUE(before.pairIndexes().empty());
    const std::string city = before.columnOf("City");
    const std::string name = before.columnOf("Name");
    EXPECT_NE(before.planOf(city, name).find("TEMP B-TREE"), std::string::npos); // sorts without it

    EXPECT_EQ(client.column(handle, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    RawFile after(file());
    EXPECT_EQ(after.pairIndexes(), std::vector<std::string>{"i2_" + city + "_" + name});
    const std::string plan = after.planOf(city, name);
    EXPECT_NE(plan.find("INDEX i2_" + city + "_" + name), std::string::npos) << plan;
    EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;

    // Same answers with the index, also among other conditions, descending and paged.
    EXPECT_EQ(client.column(handle, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    EXPECT_EQ(client.column(handle, "Age > 20 AND City = 'lyon' ORDER BY Name DESC", "Name"),
              (std::vector<std::string>{"martin", "Denis", "bernard"}));
    ASSERT_EQ(client.search(handle, "City = 'Lyon' ORDER BY Name"), 0u);
    EXPECT_EQ(client.resultCount(handle), 4u);
    ASSERT_EQ(client.jump(handle, 2), 0u);
    EXPECT_EQ(client.getText(handle, "Name").text, "martin");
    EXPECT_EQ(after.pairIndexes().size(), 1u); // made once
}

TEST_F(SearchIndexTest, OtherSearchesMakeNoPairIndex)
{
    for (const char* search :
         {"City = 'Lyon' ORDER BY Note", "Note = 'x' ORDER BY Name", "City <> 'Lyon' ORDER BY Name",
          "City = 'Lyon' OR Age = 3 ORDER BY Name", "NOT City = 'Lyon' ORDER BY Name", "City = 'Lyon'",
          "ORDER BY Name, City", "City = 'Lyon' ORDER BY City", "Name CONTAINS 'a' ORDER BY City"})
        EXPECT_EQ(client.search(handle, search), 0u) << search;
    EXPECT_TRUE(RawFile(file()).pairIndexes().empty());
}

TEST_F(SearchIndexTest, DeletingEitherFieldDropsItsPairIndexes)
{
    RawFile raw(file());
    const std::string name = raw.columnOf("Name");
    const std::string city = raw.columnOf("City");
    const std::string age = raw.columnOf("Age");
    ASSERT_EQ(client.search(handle, "City = 'Lyon' ORDER BY Name"), 0u);
    ASSERT_EQ(client.search(handle, "Age = 40 ORDER BY City"), 0u);
    ASSERT_EQ(client.search(handle, "Name = 'Zoe' ORDER BY Age DESC"), 0u);
    EXPECT_EQ(raw.pairIndexes(),
              (std::vector<std::string>{"i2_" + name + "_" + age, "i2_" + city + "_" + name,
                                        "i2_" + age + "_" + city}));

    ASSERT_EQ(client.deleteField(handle, "City"), 0u) << client.errorInfo(handle).text;
    EXPECT_EQ(raw.pairIndexes(), std::vector<std::string>{"i2_" + name + "_" + age});
    ASSERT_EQ(client.deleteField(handle, "Age"), 0u) << client.errorInfo(handle).text;
    EXPECT_TRUE(raw.pairIndexes().empty());
    EXPECT_EQ(client.column(handle, "ORDER BY Name", "Name"),
              (std::vector<std::string>{"Alice", "bernard", "Claire", "Denis", "martin", "Zoe"}));

    // A field added again in the same session gets its index again.
    ASSERT_EQ(client.addField(handle, "Town", 0x02060000), 0u);
    ASSERT_EQ(client.search(handle, "Town = '' ORDER BY Name"), 0u);
    EXPECT_EQ(raw.pairIndexes().size(), 1u);
}

TEST_F(SearchIndexTest, APairIndexMadeWhileOthersHaveTheDatabaseOpenLeavesThemWorking)
{
    ASSERT_EQ(client.close(handle), 0u);
    ServiceClient other(folder.path());
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(client.open("People", 2, first), 0u);
    ASSERT_EQ(other.open("People", 2, second), 0u);
    // The other open has its statements and field list cached before the schema changes.
    EXPECT_EQ(other.column(second, "Age > 30 ORDER BY Age", "Name"),
              (std::vector<std::string>{"Claire", "Denis", "martin", "Alice"}));
    ASSERT_EQ(other.search(second, "City = 'Paris' ORDER BY Name"), 0u);

    EXPECT_EQ(client.column(first, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    EXPECT_EQ(RawFile(file()).pairIndexes().size(), 1u);

    ASSERT_EQ(other.simple(kKivDB_MoveFirstRecord, second), 0u);
    EXPECT_EQ(other.getText(second, "Name").text, "Claire");
    EXPECT_EQ(other.column(second, "City = 'Lyon' ORDER BY Name", "Age"),
              (std::vector<std::string>{"25", "33", "40", "19"}));
    ASSERT_EQ(other.addRecord(second, {{"Name", "Aaron"}, {"City", "Lyon"}}), 0u);
    EXPECT_EQ(client.column(first, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"Aaron", "bernard", "Denis", "martin", "Zoe"}));
}

} // namespace
} // namespace kiv::db::testing
