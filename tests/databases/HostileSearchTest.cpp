// Hostile search texts: SQL-injection payloads, unbalanced quotes, odd operators, very long
// and deeply nested input. Each must be refused with 'MIFt' or 'MNtF' or answered as a search,
// and the database must be untouched afterwards: nothing of a search ever runs as SQL.
#include "ServiceTesting.h"

#include <sqlite3.h>

#include <fstream>

namespace kiv::db::testing
{
namespace
{

std::vector<std::string> loadCorpus()
{
    std::ifstream in(std::string(KIV_TEST_DATA_DIR) + "/search_hostile.txt", std::ios::binary);
    std::vector<std::string> corpus;
    std::string line;
    while (std::getline(in, line))
    {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line.rfind("## ", 0) == 0)
            continue;
        corpus.push_back(line);
    }
    return corpus;
}

std::vector<std::string> generatedCorpus()
{
    std::vector<std::string> corpus;
    corpus.push_back(std::string(100000, '('));
    corpus.push_back(std::string(100001, 'a'));
    corpus.push_back("Name = '" + std::string(99000, '\'') + "'");
    corpus.push_back("Name = '" + std::string(50000, 'x') + "'");
    std::string nested = "Name = 'a'";
    for (int i = 0; i < 31; ++i)
        nested = "(" + nested + " OR Name = 'b')";
    corpus.push_back(nested); // 31 levels: allowed
    corpus.push_back("(" + nested + ")");
    std::string chain = "Name = 'a'";
    for (int i = 0; i < 255; ++i)
        chain += " AND NOT Name = '" + std::to_string(i) + "'";
    corpus.push_back(chain); // 256 comparisons: allowed
    corpus.push_back(chain + " OR Name = 'z'");
    std::string order = "ORDER BY Name";
    for (int i = 0; i < 20; ++i)
        order += ", Name";
    corpus.push_back(order);
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        bytes += char(c);
    corpus.push_back(bytes);
    corpus.push_back("Name = '" + bytes.substr(0, 38) + bytes.substr(39) + "'");
    return corpus;
}

// Counts the schema objects and records straight from the file, past the service.
std::pair<int, int> inspect(const std::filesystem::path& file)
{
    sqlite3* connection = nullptr;
    sqlite3_open_v2(file.c_str(), &connection, SQLITE_OPEN_READONLY, nullptr);
    auto count = [&](const char* sql)
    {
        sqlite3_stmt* statement = nullptr;
        int value = -1;
        if (sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW)
            value = sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
        return value;
    };
    const std::pair<int, int> counts{count("SELECT COUNT(*) FROM sqlite_master"),
                                     count("SELECT COUNT(*) FROM kiv_records")};
    sqlite3_close(connection);
    return counts;
}

class HostileSearchTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(addRecord(db, {{"Name", "a"}, {"Price", "1"}}), 0u);
        ASSERT_EQ(addRecord(db, {{"Name", "b"}, {"Price", "2"}}), 0u);
        ASSERT_EQ(addRecord(db, {{"Name", "x' OR '1'='1"}}), 0u);
    }

    void expectHarmless(const std::string& text)
    {
        const uint32_t code = db.executeSearch(text);
        EXPECT_TRUE(code == 0 || code == kKivResult_ImproperFormat || code == kKivResult_NotFound)
            << formatResultCode(code) << " for: " << text.substr(0, 80);
        const std::string message = db.message();
        if (code == kKivResult_ImproperFormat)
        {
            EXPECT_FALSE(message.empty());
            EXPECT_LT(message.size(), 300u); // a short description, not an echo of the input
            EXPECT_EQ(message.find('<'), std::string::npos);
        }
        if (code == 0)
        {
            EXPECT_LE(resultCount(db), 3u);
        }
    }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = openSampleDatabase(service, "Shop");
};

TEST_F(HostileSearchTest, CorpusIsRefusedOrAnsweredAndNeverExecuted)
{
    const auto before = inspect(folder.path() / "Shop.kivdb");
    const auto corpus = loadCorpus();
    ASSERT_GT(corpus.size(), 100u);
    for (const auto& text : corpus)
        expectHarmless(text);
    for (const auto& text : generatedCorpus())
        expectHarmless(text);
    EXPECT_EQ(inspect(folder.path() / "Shop.kivdb"), before);
    EXPECT_EQ(recordCount(db), 3u);
    EXPECT_FALSE(std::filesystem::exists("/tmp/evil.db"));
}

TEST_F(HostileSearchTest, InjectionPayloadsAreOrdinaryValues)
{
    using Names = std::vector<std::string>;
    EXPECT_EQ(column(db, "Name = 'x'' OR ''1''=''1'", "Name"), Names{"x' OR '1'='1"});
    EXPECT_EQ(column(db, "Name = '%'", "Name"), Names{});
    EXPECT_EQ(column(db, "Name CONTAINS '%'", "Name"), Names{});
    EXPECT_EQ(column(db, "Name CONTAINS '_'", "Name"), Names{});
    EXPECT_EQ(db.executeSearch("Name = '' OR '1'='1'"), kKivResult_ImproperFormat);
    EXPECT_EQ(db.executeSearch("kiv_rowid > 0"), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "kiv_rowid");
    EXPECT_EQ(db.executeSearch("c1 = 1"), kKivResult_NotFound);
    EXPECT_EQ(db.executeSearch("Name = 'a' ORDER BY 1"), kKivResult_ImproperFormat);
}

TEST_F(HostileSearchTest, AllowedLimitsStillAnswerCorrectly)
{
    std::string nested = "Name = 'a'";
    for (int i = 0; i < 31; ++i)
        nested = "(" + nested + " OR Name = 'b')";
    ASSERT_EQ(db.executeSearch(nested), 0u);
    EXPECT_EQ(resultCount(db), 2u);
    std::string chain = "Name <> 'zz'";
    for (int i = 0; i < 255; ++i)
        chain += " AND NOT Name = '" + std::to_string(i) + "'";
    ASSERT_EQ(db.executeSearch(chain), 0u);
    EXPECT_EQ(resultCount(db), 3u);
    // NOT and parentheses alternating up to the depth limit still reach SQLite intact.
    std::string alternating = "Name = 'a'";
    for (int i = 0; i < 15; ++i)
        alternating = "NOT (Name = 'q' " + std::string(i % 2 ? "OR " : "AND ") + alternating + ")";
    ASSERT_EQ(db.executeSearch(alternating), 0u) << db.message();
    EXPECT_EQ(resultCount(db), 3u); // the outermost NOT (q AND false) holds for every record
}

} // namespace
} // namespace kiv::db::testing
