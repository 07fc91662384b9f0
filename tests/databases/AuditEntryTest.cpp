// The audit log's promises at the service: each write that succeeded is reported once with its
// values before and after, a write that failed or changed nothing is not reported, and a line
// reads back as the entry it was written from while anything else is refused.
#include "AuditEntry.h"
#include "ServiceTesting.h"

namespace kiv::db::testing
{
namespace
{

class AuditedServiceTest : public ::testing::Test
{
protected:
    ServiceEnvironment audited()
    {
        ServiceEnvironment environment = environmentIn(folder.path());
        environment.changed = [this](AuditEntry& entry) { entries.push_back(entry); };
        return environment;
    }

    std::vector<std::string> actions() const
    {
        std::vector<std::string> names;
        for (const auto& entry : entries)
            names.emplace_back(actionName(entry.action));
        return names;
    }

    DataFolder folder;
    std::vector<AuditEntry> entries;
    DatabaseService service{audited()};
};

TEST_F(AuditedServiceTest, RecordWritesReportTheirValuesBeforeAndAfter)
{
    Database& db = openSampleDatabase(service, "Shop");
    entries.clear();
    ASSERT_EQ(addRecord(db, {{"Name", "Widget"}, {"City", "Lyon"}, {"Qty", "3"}}), 0u);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].record, "1");
    EXPECT_TRUE(entries[0].before.empty());
    EXPECT_EQ(entries[0].after.size(), db.fieldCount());
    EXPECT_EQ(entries[0].after[1], (std::pair<std::string, std::string>{"Name", "Widget"}));

    // Only the fields set are written, and only they are reported.
    ASSERT_EQ(db.setValue("City", std::string_view("Nantes")), 0u);
    ASSERT_EQ(db.updateRecord(), 0u);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].before, (AuditValues{{"City", "Lyon"}}));
    EXPECT_EQ(entries[1].after, (AuditValues{{"City", "Nantes"}}));
    ASSERT_EQ(db.updateRecord(), 0u); // nothing set: nothing written, nothing reported
    EXPECT_EQ(entries.size(), 2u);

    ASSERT_EQ(db.deleteRecord(uint32_t(7)), result::kRecordNotFound); // a failure is not a change
    ASSERT_EQ(db.deleteRecord(uint32_t(1)), 0u);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[2].record, "1");
    EXPECT_EQ(entries[2].before[2], (std::pair<std::string, std::string>{"City", "Nantes"}));
    EXPECT_TRUE(entries[2].after.empty());

    ASSERT_EQ(addRecord(db, {{"Name", "A"}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "B"}}), 0u);
    ASSERT_EQ(db.deleteAllRecords(), 0u);
    EXPECT_EQ(entries.back().action, AuditAction::AllRecordsDeleted);
    EXPECT_EQ(entries.back().count, 2u);
    for (const auto& entry : entries)
        EXPECT_EQ(entry.database, "Shop");
}

TEST_F(AuditedServiceTest, DatabasesFieldsAndImportsReportOneEntryEach)
{
    ASSERT_EQ(service.createDatabase("Books"), 0u);
    {
        Database& db = open(service, "Books", OpenMode::Exclusive);
        ASSERT_EQ(db.addField("Title", 0x00060028), 0u); // Text, 40
        ASSERT_EQ(db.addField("Title", 0x00060028), kKivResult_NotUnique);
        writeFile(folder.exports() / "books.csv", "Title\nDune\nEmma\nUlysses\n");
        uint32_t count = 0;
        ASSERT_EQ(db.importRecords("books.csv", count), 0u);
        ASSERT_EQ(db.deleteField("Title"), 0u);
    }
    service.disconnect();
    ASSERT_EQ(service.deleteDatabase("Books"), 0u);
    ASSERT_NE(service.deleteDatabase("Books"), 0u);
    EXPECT_EQ(actions(), (std::vector<std::string>{"database created", "field added", "imported",
                                                   "field deleted", "database deleted"}));
    EXPECT_EQ(entries[1].field, "Title");
    EXPECT_EQ(entries[2].count, 3u);
    EXPECT_EQ(entries[2].file, "books.csv");
}

AuditEntry sampleEntry()
{
    AuditEntry entry;
    entry.time = "2026-11-25T00:14:33.120Z";
    entry.region = "www";
    entry.user = "public";
    entry.address = "::1";
    entry.page = "/people/added.html";
    entry.action = AuditAction::RecordUpdated;
    entry.database = "People";
    entry.record = "42";
    // Quotes, a backslash, a line end and a tab, Latin-1 and UTF-8 accents, a lone UTF-8 lead.
    entry.before = {{"Name", "Zed \"the\" \\ one\nsecond\tline"}, {"City", "Z\xE9rich"}};
    entry.after = {{"Name", "Jos\xC3\xA9"}, {"City", "\xC3"}};
    return entry;
}

bool sameEntry(const AuditEntry& a, const AuditEntry& b)
{
    return a.time == b.time && a.region == b.region && a.user == b.user && a.address == b.address &&
           a.page == b.page && a.action == b.action && a.database == b.database && a.record == b.record &&
           a.field == b.field && a.file == b.file && a.count == b.count && a.before == b.before &&
           a.after == b.after;
}

TEST(AuditLine, IsOneLineThatReadsBackAsTheEntry)
{
    const AuditEntry entry = sampleEntry();
    const std::string line = formatAuditEntry(entry);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_NE(line.find("Z\\u00e9rich"), std::string::npos); // Latin-1 escaped
    EXPECT_NE(line.find("Jos\xC3\xA9"), std::string::npos);  // UTF-8 kept
    const auto read = parseAuditEntry(line + "\n");
    ASSERT_TRUE(read);
    EXPECT_TRUE(sameEntry(*read, entry));

    AuditEntry import;
    import.time = entry.time;
    import.action = AuditAction::Imported;
    import.file = "people.csv";
    import.count = 100000;
    const auto readImport = parseAuditEntry(formatAuditEntry(import));
    ASSERT_TRUE(readImport);
    EXPECT_TRUE(sameEntry(*readImport, import));
}

TEST(AuditLine, SecretFieldsAreWithheld)
{
    AuditEntry entry = sampleEntry();
    entry.after = {{"Password", "hunter2"}, {"api_key", "k-1"}, {"AccessToken", "t-1"}, {"Passage", "open"}};
    const std::string line = formatAuditEntry(entry);
    for (const char* secret : {"hunter2", "k-1", "t-1"})
        EXPECT_EQ(line.find(secret), std::string::npos) << secret;
    EXPECT_NE(line.find("\"Passage\":\"open\""), std::string::npos);
}

TEST(AuditLine, AnythingButAWrittenLineIsRefused)
{
    const std::string line = formatAuditEntry(sampleEntry());
    // Every cut of a line (a write the disk took only part of) is refused, never misread.
    for (size_t length = 0; length < line.size(); ++length)
        EXPECT_FALSE(parseAuditEntry(line.substr(0, length))) << length;
    for (const std::string& bad : std::vector<std::string>{
             "", "{}", "[1]", line + "x", line + line, R"({"time":"t","action":"burned"})",
             R"({"time":"t","action":"imported","count":"x"})",
             R"({"time":"t","action":"imported","user":"\u0100"})",
             R"({"time":"t","action":"imported","user":"\q"})", R"({"action":"imported"})"})
        EXPECT_FALSE(parseAuditEntry(bad)) << bad;
    EXPECT_TRUE(parseAuditEntry(R"({"time":"t","action":"imported","later":"kept"})"));
}

} // namespace
} // namespace kiv::db::testing
