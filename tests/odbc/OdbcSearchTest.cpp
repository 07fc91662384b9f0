// Searches on data sources: the search language becomes SQL with bound parameters, text
// compares without regard to case, results page with Jump, and hostile search texts never
// reach the server as SQL.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

class OdbcSearchTest : public OdbcTest
{
protected:
    void SetUp() override
    {
        OdbcTest::SetUp();
        if (HasFatalFailure())
            return;
        db = &openSampleDatabase(*service, table);
        const char* cities[] = {"Berlin", "Paris", "berlin", "Rome", "Paris"};
        for (int i = 0; i < 25; ++i)
            ASSERT_EQ(addRecord(*db, {{"Name", "Person " + std::to_string(100 + i)},
                                      {"City", cities[i % 5]},
                                      {"Qty", std::to_string(i)},
                                      {"Price", std::to_string(i) + ".50"},
                                      {"Active", i % 2 ? "1" : "0"},
                                      {"Notes", i == 7 ? "50% off_now" : "plain"}}),
                      0u)
                << db->message();
    }

    std::vector<std::string> names(const std::string& search) { return column(*db, search, "Name"); }

    Database* db = nullptr;
};

TEST_P(OdbcSearchTest, ComparisonsAndOrder)
{
    EXPECT_EQ(names("Qty < 3 ORDER BY Qty DESC"),
              (std::vector<std::string>{"Person 102", "Person 101", "Person 100"}));
    EXPECT_EQ(names("Qty >= 10 AND Qty <= 11"), (std::vector<std::string>{"Person 110", "Person 111"}));
    EXPECT_EQ(names("Price = 3.5"), (std::vector<std::string>{"Person 103"})) << "numbers by value";
    EXPECT_EQ(names("Qty < 4 AND NOT Active = 1"), (std::vector<std::string>{"Person 100", "Person 102"}));
    EXPECT_EQ(names("Qty = 1 OR Qty = 24"), (std::vector<std::string>{"Person 101", "Person 124"}));
    EXPECT_EQ(names("Notes CONTAINS '% off_'"), (std::vector<std::string>{"Person 107"}))
        << "wildcards in the value are plain characters";
    EXPECT_EQ(names("Name BEGINSWITH 'Person 12' ORDER BY Name DESC").front(), "Person 124");
}

TEST_P(OdbcSearchTest, TextComparisonsIgnoreCaseUnlessTheDataSourceOptsOut)
{
    EXPECT_EQ(column(*db, "City = 'BERLIN'", "City").size(), 10u) << "as on the embedded store";
    EXPECT_EQ(names("City BEGINSWITH 'BER' AND Qty < 3"),
              (std::vector<std::string>{"Person 100", "Person 102"}));
    EXPECT_EQ(names("City > 'PARIS' ORDER BY Qty").front(), "Person 103") << "Rome";
    // "KivCaseSensitiveText = yes" in odbc.ini: columns the driver calls case-sensitive compare
    // as they are.
    auto exact = connectService(folder.path(), source() + "Exact");
    Database& same = open(*exact, table);
    uint32_t typeWord = 0;
    ASSERT_EQ(same.fieldInfo("City", typeWord), 0u);
    EXPECT_EQ(column(same, "City = 'BERLIN'", "City").size(),
              (typeWord & kKivFieldFlag_CaseSensitive) ? 0u : 10u);
}

TEST_P(OdbcSearchTest, PagingWithJumpAndTheCursorEnds)
{
    ASSERT_EQ(db->executeSearch("City = 'Paris' ORDER BY Qty"), 0u);
    EXPECT_EQ(resultCount(*db), 10u);
    ASSERT_EQ(db->jump(4), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 111") << "the fifth result";
    ASSERT_EQ(db->moveNext(), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 114");
    ASSERT_EQ(db->jump(9), 0u);
    EXPECT_EQ(db->moveNext(), kKivResult_EndOfFile);
    EXPECT_EQ(text(*db, "Qty"), "24") << "the cursor stays where it was";
    EXPECT_EQ(db->jump(10), kKivResult_EndOfFile);
    ASSERT_EQ(db->moveFirst(), 0u);
    EXPECT_EQ(db->movePrevious(), kKivResult_BeginningOfFile);
    ASSERT_EQ(db->moveLast(), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 124");

    ASSERT_EQ(db->moveTo(uint32_t(2)), 0u) << "the second record is in Paris";
    ASSERT_EQ(db->moveNext(), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 104");
    EXPECT_EQ(db->moveTo(uint32_t(1)), result::kRecordNotFound) << "not among the results";

    db->clearSearch();
    EXPECT_EQ(resultCount(*db), 25u);
    ASSERT_EQ(db->jump(24), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 124");
}

TEST_P(OdbcSearchTest, DeletedRecordsArePassedOverAndLongTextIsNotOrdered)
{
    ASSERT_EQ(db->executeSearch("Qty < 3 ORDER BY Qty"), 0u);
    auto otherService = connectService(folder.path(), source());
    ASSERT_EQ(open(*otherService, table).deleteRecord(uint32_t(2)), 0u);
    ASSERT_EQ(db->moveFirst(), 0u);
    ASSERT_EQ(db->moveNext(), 0u);
    EXPECT_EQ(text(*db, "Name"), "Person 102");
    EXPECT_EQ(db->executeSearch("ORDER BY Notes"), kKivResult_NotIndexed);
    EXPECT_EQ(db->message(), "Notes");
}

TEST_P(OdbcSearchTest, BadSearchesNameTheProblem)
{
    EXPECT_EQ(db->executeSearch("Nope = 1"), kKivResult_NotFound);
    EXPECT_EQ(db->message(), "Nope");
    EXPECT_EQ(db->executeSearch("Qty = 'many'"), kKivResult_ImproperFormat);
    EXPECT_NE(db->message().find("Qty"), std::string::npos);
    EXPECT_EQ(db->executeSearch("Qty = "), kKivResult_ImproperFormat);
}

TEST_P(OdbcSearchTest, HostileSearchesAreNeverSql)
{
    const std::vector<std::string> hostile = {
        "Name = 'x'; DROP TABLE \"" + table + "\"; --'",
        "Name = 'x' OR 1=1",
        "Name = ''' OR ''1''=''1'",
        "\"Name\" = 'x'",
        "Name) OR (1=1 = 'x'",
        "Qty = 1 ORDER BY (SELECT 1)",
        "City = 'a' UNION SELECT * FROM pg_user --'",
        "Name CONTAINS '%' OR Name = 'x''; DELETE FROM \"" + table + "\"; --'",
    };
    for (const auto& text : hostile)
    {
        const uint32_t code = db->executeSearch(text);
        if (code == kKivResult_Success)
        {
            // Whatever matched, it matched as a value: no quote ended a literal.
            EXPECT_LT(resultCount(*db), 25u) << text;
        }
        else
            EXPECT_TRUE(code == kKivResult_ImproperFormat || code == kKivResult_NotFound) << text;
    }
    EXPECT_EQ(recordCount(*db), 25u) << "nothing was deleted or dropped";
    EXPECT_EQ(names("Name = ''' OR ''1''=''1'").size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcSearchTest, ::testing::Values("KivSqlite", "KivPostgres"), driverName);

} // namespace
} // namespace kiv::db::testing
