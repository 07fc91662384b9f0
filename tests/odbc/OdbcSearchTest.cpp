// Searches on data sources: the search language becomes SQL with bound parameters, results
// page with Jump on the scrollable cursor and on the keyed fallback alike, and hostile search
// texts never reach the server as SQL.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

struct SearchCase
{
    std::string source;
    bool scrollable;
};

class OdbcSearchTest : public ::testing::TestWithParam<SearchCase>
{
protected:
    void SetUp() override
    {
        useFixtureConfiguration();
        if (HasFatalFailure())
            return;
        table = tableFor(GetParam().source);
        client = std::make_unique<OdbcClient>(folder.path(), GetParam().source, "kivSearchDatabase",
                                              GetParam().scrollable);
        ASSERT_EQ(client->initializeCode(), 0u);
        handle = openSampleDatabase(*client, table);
        const char* cities[] = {"Berlin", "Paris", "berlin", "Rome", "Paris"};
        for (int i = 0; i < 25; ++i)
            ASSERT_EQ(client->addRecord(handle, {{"Name", "Person " + std::to_string(100 + i)},
                                                 {"City", cities[i % 5]},
                                                 {"Qty", std::to_string(i)},
                                                 {"Price", std::to_string(i) + ".50"},
                                                 {"Active", i % 2 ? "1" : "0"},
                                                 {"Notes", i == 7 ? "50% off_now" : "plain"}}),
                      0u)
                << client->errorInfo(handle).text;
    }

    std::vector<std::string> names(const std::string& search)
    {
        return client->column(handle, search, "Name");
    }

    DataFolder folder;
    std::unique_ptr<OdbcClient> client;
    std::string table;
    uint32_t handle = 0;
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

TEST_P(OdbcSearchTest, TextComparisonsFollowTheColumnsCaseSensitivity)
{
    uint32_t typeWord = 0;
    ASSERT_EQ(client->fieldInfo(handle, "City", typeWord), 0u);
    const size_t berlins = client->column(handle, "City = 'BERLIN'", "City").size();
    if (typeWord & 0x08000000)
        EXPECT_EQ(berlins, 0u) << "the driver reports the column case-sensitive";
    else
        EXPECT_EQ(berlins, 10u);
    EXPECT_EQ(client->column(handle, "City = 'Berlin'", "City").size(), (typeWord & 0x08000000) ? 5u : 10u);
}

TEST_P(OdbcSearchTest, PagingWithJumpAndTheCursorEnds)
{
    ASSERT_EQ(client->search(handle, "City = 'Paris' ORDER BY Qty"), 0u);
    EXPECT_EQ(client->resultCount(handle), 10u);
    ASSERT_EQ(client->jump(handle, 4), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Person 111") << "the fifth result";
    ASSERT_EQ(client->simple(kKivDB_MoveNextRecord, handle), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Person 114");
    ASSERT_EQ(client->jump(handle, 9), 0u);
    EXPECT_EQ(client->simple(kKivDB_MoveNextRecord, handle), result::kEndOfFile);
    EXPECT_EQ(client->getText(handle, "Qty").text, "24") << "the cursor stays where it was";
    EXPECT_EQ(client->jump(handle, 10), result::kEndOfFile);
    ASSERT_EQ(client->simple(kKivDB_MoveFirstRecord, handle), 0u);
    EXPECT_EQ(client->simple(kKivDB_MovePrevRecord, handle), result::kBeginningOfFile);
    ASSERT_EQ(client->simple(kKivDB_MoveLastRecord, handle), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Person 124");

    ASSERT_EQ(client->moveToUInt(handle, 2), 0u) << "the second record is in Paris";
    ASSERT_EQ(client->simple(kKivDB_MoveNextRecord, handle), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Person 104");
    EXPECT_EQ(client->moveToUInt(handle, 1), result::kRecordNotFound) << "not among the results";

    ASSERT_EQ(client->simple(kKivDB_ClearSearchResults, handle), 0u);
    EXPECT_EQ(client->resultCount(handle), 25u);
    ASSERT_EQ(client->jump(handle, 24), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Person 124");
}

TEST_P(OdbcSearchTest, RecordsDeletedSinceTheSearchArePassedOver)
{
    ASSERT_EQ(client->search(handle, "Qty < 3 ORDER BY Qty"), 0u);
    OdbcClient other(folder.path(), GetParam().source);
    uint32_t otherHandle = 0;
    ASSERT_EQ(other.open(table, 2, otherHandle), 0u);
    ASSERT_EQ(other.deleteRecordByUInt(otherHandle, 2), 0u);
    ASSERT_EQ(client->simple(kKivDB_MoveFirstRecord, handle), 0u);
    ASSERT_EQ(client->simple(kKivDB_MoveNextRecord, handle), 0u);
    // The scrollable cursor shows the search as it was; the keyed fallback reads each record anew.
    if (!GetParam().scrollable)
    {
        EXPECT_EQ(client->getText(handle, "Name").text, "Person 102");
    }
}

TEST_P(OdbcSearchTest, BadSearchesNameTheProblem)
{
    EXPECT_EQ(client->search(handle, "Nope = 1"), result::kFieldNotFound);
    EXPECT_EQ(client->errorInfo(handle).text, "Nope");
    EXPECT_EQ(client->search(handle, "Qty = 'many'"), result::kImproperFormat);
    EXPECT_NE(client->errorInfo(handle).text.find("Qty"), std::string::npos);
    EXPECT_EQ(client->search(handle, "Qty = "), result::kImproperFormat);
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
        const uint32_t code = client->search(handle, text);
        if (code == result::kSuccess)
        {
            // Whatever matched, it matched as a value: no quote ended a literal.
            EXPECT_LT(client->resultCount(handle), 25u) << text;
        }
        else
            EXPECT_TRUE(code == result::kImproperFormat || code == result::kFieldNotFound) << text;
    }
    EXPECT_EQ(client->recordCount(handle), 25u) << "nothing was deleted or dropped";
    EXPECT_EQ(names("Name = ''' OR ''1''=''1'").size(), 0u);
}

std::string searchCaseName(const ::testing::TestParamInfo<SearchCase>& info)
{
    return std::string(info.param.source == "KivPostgres" ? "PostgreSQL" : "SQLite") +
           (info.param.scrollable ? "Scrollable" : "Keyed");
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcSearchTest,
                         ::testing::Values(SearchCase{"KivSqlite", true}, SearchCase{"KivSqlite", false},
                                           SearchCase{"KivPostgres", true}, SearchCase{"KivPostgres", false}),
                         searchCaseName);

} // namespace
} // namespace kiv::db::testing
