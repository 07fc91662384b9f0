// Two-field indexes: a search that filters one indexed field with = and orders by another gets
// an index on the pair, made once; its results do not change, and deleting either field drops it.
#include "DecimalText.h"
#include "FieldTypes.h"
#include "ServiceTesting.h"

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
    Database& makePeople()
    {
        EXPECT_EQ(service.createDatabase("People"), 0u);
        Database& people = open(service, "People", OpenMode::Exclusive);
        EXPECT_EQ(people.addField("Name", 0x02060000), 0u); // Text, indexed
        EXPECT_EQ(people.addField("City", 0x02060000), 0u); // Text, indexed
        EXPECT_EQ(people.addField("Age", 0x02020000), 0u);  // Integer, indexed
        EXPECT_EQ(people.addField("Note", 0x00060000), 0u); // Text, not indexed
        const std::vector<std::vector<std::string>> rows = {
            {"martin", "Lyon", "40"}, {"Claire", "Paris", "31"}, {"bernard", "lyon", "25"},
            {"Zoe", "Lyon", "19"},    {"Alice", "Nice", "52"},   {"Denis", "LYON", "33"}};
        for (const auto& person : rows)
            EXPECT_EQ(addRecord(people, {{"Name", person[0]}, {"City", person[1]}, {"Age", person[2]}}), 0u);
        return people;
    }

    std::filesystem::path file() const { return folder.path() / "People.kivdb"; }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = makePeople();
};

TEST_F(SearchIndexTest, EqualityAndOrderByTwoIndexedFieldsMakesAndUsesAPairIndex)
{
    RawFile before(file());
    EXPECT_TRUE(before.pairIndexes().empty());
    const std::string city = before.columnOf("City");
    const std::string name = before.columnOf("Name");
    EXPECT_NE(before.planOf(city, name).find("TEMP B-TREE"), std::string::npos); // sorts without it

    EXPECT_EQ(column(db, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    RawFile after(file());
    EXPECT_EQ(after.pairIndexes(), std::vector<std::string>{"i2_" + city + "_" + name});
    const std::string plan = after.planOf(city, name);
    EXPECT_NE(plan.find("INDEX i2_" + city + "_" + name), std::string::npos) << plan;
    EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;

    // Same answers with the index, also among other conditions, descending and paged.
    EXPECT_EQ(column(db, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    EXPECT_EQ(column(db, "Age > 20 AND City = 'lyon' ORDER BY Name DESC", "Name"),
              (std::vector<std::string>{"martin", "Denis", "bernard"}));
    ASSERT_EQ(db.executeSearch("City = 'Lyon' ORDER BY Name"), 0u);
    EXPECT_EQ(resultCount(db), 4u);
    ASSERT_EQ(db.jump(2), 0u);
    EXPECT_EQ(text(db, "Name"), "martin");
    EXPECT_EQ(after.pairIndexes().size(), 1u); // made once
}

TEST_F(SearchIndexTest, OtherSearchesMakeNoPairIndex)
{
    for (const char* search :
         {"City = 'Lyon' ORDER BY Note", "Note = 'x' ORDER BY Name", "City <> 'Lyon' ORDER BY Name",
          "City = 'Lyon' OR Age = 3 ORDER BY Name", "NOT City = 'Lyon' ORDER BY Name", "City = 'Lyon'",
          "ORDER BY Name, City", "City = 'Lyon' ORDER BY City", "Name CONTAINS 'a' ORDER BY City"})
        EXPECT_EQ(db.executeSearch(search), 0u) << search;
    EXPECT_TRUE(RawFile(file()).pairIndexes().empty());
}

TEST_F(SearchIndexTest, DeletingEitherFieldDropsItsPairIndexes)
{
    RawFile raw(file());
    const std::string name = raw.columnOf("Name");
    const std::string city = raw.columnOf("City");
    const std::string age = raw.columnOf("Age");
    ASSERT_EQ(db.executeSearch("City = 'Lyon' ORDER BY Name"), 0u);
    ASSERT_EQ(db.executeSearch("Age = 40 ORDER BY City"), 0u);
    ASSERT_EQ(db.executeSearch("Name = 'Zoe' ORDER BY Age DESC"), 0u);
    EXPECT_EQ(raw.pairIndexes(),
              (std::vector<std::string>{"i2_" + name + "_" + age, "i2_" + city + "_" + name,
                                        "i2_" + age + "_" + city}));

    ASSERT_EQ(db.deleteField("City"), 0u) << db.message();
    EXPECT_EQ(raw.pairIndexes(), std::vector<std::string>{"i2_" + name + "_" + age});
    ASSERT_EQ(db.deleteField("Age"), 0u) << db.message();
    EXPECT_TRUE(raw.pairIndexes().empty());
    EXPECT_EQ(column(db, "ORDER BY Name", "Name"),
              (std::vector<std::string>{"Alice", "bernard", "Claire", "Denis", "martin", "Zoe"}));

    // A field added again in the same session gets its index again.
    ASSERT_EQ(db.addField("Town", 0x02060000), 0u);
    ASSERT_EQ(db.executeSearch("Town = '' ORDER BY Name"), 0u);
    EXPECT_EQ(raw.pairIndexes().size(), 1u);
}

TEST_F(SearchIndexTest, APairIndexMadeWhileOthersHaveTheDatabaseOpenLeavesThemWorking)
{
    service.disconnect();
    Database& first = open(service, "People");
    DatabaseService otherService(environmentIn(folder.path()));
    Database& second = open(otherService, "People");
    // The other open has its statements and field list cached before the schema changes.
    EXPECT_EQ(column(second, "Age > 30 ORDER BY Age", "Name"),
              (std::vector<std::string>{"Claire", "Denis", "martin", "Alice"}));
    ASSERT_EQ(second.executeSearch("City = 'Paris' ORDER BY Name"), 0u);

    EXPECT_EQ(column(first, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"bernard", "Denis", "martin", "Zoe"}));
    EXPECT_EQ(RawFile(file()).pairIndexes().size(), 1u);

    ASSERT_EQ(second.moveFirst(), 0u);
    EXPECT_EQ(text(second, "Name"), "Claire");
    EXPECT_EQ(column(second, "City = 'Lyon' ORDER BY Name", "Age"),
              (std::vector<std::string>{"25", "33", "40", "19"}));
    ASSERT_EQ(addRecord(second, {{"Name", "Aaron"}, {"City", "Lyon"}}), 0u);
    EXPECT_EQ(column(first, "City = 'Lyon' ORDER BY Name", "Name"),
              (std::vector<std::string>{"Aaron", "bernard", "Denis", "martin", "Zoe"}));
}

} // namespace
} // namespace kiv::db::testing
