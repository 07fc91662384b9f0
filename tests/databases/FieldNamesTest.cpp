// Field names as people write them: blanks, accents and punctuation in the name rule, lookups
// that ignore case and surrounding blanks, searches that name such fields with or without
// brackets, and imports whose headers are matched or become fields.
#include "NameRules.h"
#include "ServiceTesting.h"

namespace kiv::db::testing
{
namespace
{

const std::string kPrenom = "Pr\xE9nom"; // Latin-1, as the pages write it

TEST(FieldNameRule, PrintableNamesWithInnerBlanksAreFieldNames)
{
    for (const std::string& name : std::vector<std::string>{
             "Contact Phone Number", kPrenom, std::string("\xC9l\xE8ve n\xB0 1"), "E-mail", "Q&A",
             "Size [cm]", "50% off", "#", "a=b", "2nd phone", "x_y", "Order", std::string(64, 'n')})
        EXPECT_EQ(checkFieldName(name), "") << name;
}

TEST(FieldNameRule, RefusalsSayWhatIsWrongAndGiveTheRule)
{
    const std::string rule = " " + std::string(kFieldNameRule);
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"", "A field name cannot be empty."},
        {std::string(65, 'n'), "A field name can be at most 64 bytes long."},
        {" Name", "A field name cannot begin or end with a blank."},
        {"Name ", "A field name cannot begin or end with a blank."},
        {"Unit.Price", "A field name cannot hold \".\"."},
        {"a,b", "A field name cannot hold \",\"."},
        {"a;b", "A field name cannot hold \";\"."},
        {"Size (cm)", "A field name cannot hold \"(\"."},
        {"a)", "A field name cannot hold \")\"."},
        {"O'Hare", "A field name cannot hold \"'\"."},
        {"say \"hi\"", "A field name cannot hold '\"'."},
        {"tab\there", "A field name cannot hold control characters (byte 4)."},
        {"x\x85y", "A field name cannot hold control characters (byte 2)."},
        {"del\x7F", "A field name cannot hold control characters (byte 4)."}};
    for (const auto& [name, problem] : refused)
        EXPECT_EQ(checkFieldName(name), problem + rule) << name;
    // The code's own explanation is the field-name rule too, never the database-name one.
    EXPECT_NE(describeResult(result::kInvalidFieldName).find(kFieldNameRule), std::string_view::npos);
    EXPECT_EQ(describeResult(result::kInvalidName).rfind("The database name", 0), 0u);
}

class FieldNamesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(service.createDatabase("Contacts"), 0u);
        Database& db = open(service, "Contacts");
        ASSERT_EQ(db.addField("Contact Phone Number", 0x0206001E), 0u) << db.message();
        ASSERT_EQ(db.addField(kPrenom, 0x00060028), 0u) << db.message();
        ASSERT_EQ(db.addField(" Visits ", 0x00020000), 0u) << db.message();
        EXPECT_EQ(db.message(), "Visits") << "stored without the blanks around it";
        for (const auto& [phone, name, visits] :
             {std::tuple{"555-0101", "Zo\xE9", "3"}, std::tuple{"555-0102", "\xC9mile", "1"},
              std::tuple{"555-0100", "Ana", "7"}})
            ASSERT_EQ(addRecord(db, {{"Contact Phone Number", phone}, {kPrenom, name}, {"Visits", visits}}),
                      0u);
        service.disconnect(); // every test opens it again, from the file
    }

    Database& contacts() { return open(service, "Contacts"); }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
};

TEST_F(FieldNamesTest, LookupsIgnoreCaseBlanksAroundAndAPlaceholdersParentheses)
{
    Database& db = contacts();
    EXPECT_EQ(db.fieldAt(1)->name, "Contact Phone Number");
    EXPECT_EQ(db.fieldAt(2)->name, kPrenom);
    uint32_t typeWord = 0;
    // Latin-1 capitals fold like ASCII ones, as the store folds text values: "PRÉNOM" is "prénom".
    for (const std::string& name : std::vector<std::string>{
             "contact phone number", "  CONTACT PHONE NUMBER\t", "(Contact Phone Number)",
             "( Contact Phone Number )", std::string("PR\xC9NOM"), " (pr\xE9nom) "})
        EXPECT_EQ(db.fieldInfo(name, typeWord), 0u) << name;
    for (const std::string& name :
         std::vector<std::string>{"Contact  Phone Number", "ContactPhoneNumber", "Prenom", "((Visits))"})
    {
        EXPECT_EQ(db.fieldInfo(name, typeWord), kKivResult_NotFound) << name;
        EXPECT_EQ(db.message(), name);
    }
    EXPECT_EQ(db.addField(std::string("PR\xC9NOM"), 0x00060000), kKivResult_NotUnique);
    EXPECT_EQ(db.addField("Location.Coordinates", 0x00060000), result::kInvalidFieldName);
    EXPECT_EQ(service.lastFailure().line,
              "A field name cannot hold \".\". " + std::string(kFieldNameRule)); // not the database rule
    EXPECT_EQ(service.errorText(result::kInvalidFieldName), describeResult(result::kInvalidFieldName));
    ASSERT_EQ(db.createRecord(), 0u);
    EXPECT_EQ(db.setValue("(contact phone number)", std::string_view("555-0199")), 0u);
    EXPECT_EQ(db.deleteField(" visits "), 0u);
    EXPECT_EQ(db.fieldCount(), 3u);
}

TEST_F(FieldNamesTest, SearchesNameTheFieldsAsTheModuleAndPeopleWriteThem)
{
    Database& db = contacts();
    using Names = std::vector<std::string>;
    // The module's key-pair form, the name written bare.
    EXPECT_EQ(column(db, "Contact Phone Number = '555-0102'", kPrenom), Names{"\xC9mile"});
    EXPECT_EQ(column(db, "Pr\xE9nom = 'ZO\xC9' AND Contact Phone Number = '555-0101' ORDER BY Pr\xE9nom DESC",
                     "Visits"),
              Names{"3"});
    EXPECT_EQ(column(db, "ORDER BY Contact Phone Number DESC", kPrenom),
              (Names{"\xC9mile", "Zo\xE9", "Ana"}));
    EXPECT_EQ(column(db, "ORDER BY Contact Phone Number", kPrenom), (Names{"Ana", "Zo\xE9", "\xC9mile"}));
    // Brackets, any case, and the keywords around them.
    EXPECT_EQ(column(db,
                     "[pr\xC9nom] BEGINSWITH '\xE9' OR NOT [Contact Phone Number] < '555-0101' "
                     "ORDER BY [Visits] DESC",
                     kPrenom),
              (Names{"Zo\xE9", "\xC9mile"}));
    EXPECT_EQ(column(db, "Visits > 2 AND Contact Phone Number CONTAINS '-01'", kPrenom),
              (Names{"Zo\xE9", "Ana"}));
    // The database's own names decide where a keyword could begin a name.
    ASSERT_EQ(db.addField("Not before", 0x00060000), 0u);
    EXPECT_EQ(column(db, "Not before = '' AND NOT Visits = 1", kPrenom), (Names{"Zo\xE9", "Ana"}));
    // An unknown name is reported as written, without the blanks around it.
    EXPECT_EQ(db.executeSearch("Contact Phone = '555-0101'"), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Contact Phone");
    EXPECT_EQ(db.executeSearch("ORDER BY [Contact  Phone Number]"), kKivResult_NotFound);
    EXPECT_EQ(service.lastFailure().line, "no field \"Contact  Phone Number\" in \"Contacts\"");
}

TEST_F(FieldNamesTest, ExportWritesTheNamesAndImportMatchesHeadersAsPeopleWriteThem)
{
    Database& db = contacts();
    uint32_t count = 0;
    ASSERT_EQ(db.executeSearch("ORDER BY Contact Phone Number"), 0u);
    ASSERT_EQ(db.exportRecords("contacts.csv", " Pr\xE9nom , contact phone number", count),
              kKivResult_EndOfFile)
        << db.message();
    EXPECT_EQ(readFile(folder.exports() / "contacts.csv"),
              "Pr\xE9nom,Contact Phone Number\r\nAna,555-0100\r\nZo\xE9,555-0101\r\n\xC9mile,555-0102\r\n");
    writeFile(folder.exports() / "more.csv",
              " CONTACT PHONE NUMBER ,\"pr\xC9nom \",visits\r\n555-0103,Ida,2\r\n");
    ASSERT_EQ(db.importRecords("more.csv", count), 0u) << db.message();
    EXPECT_EQ(column(db, "[Contact Phone Number] = '555-0103'", kPrenom), std::vector<std::string>{"Ida"});

    writeFile(folder.exports() / "bad.csv", "Contact Phone Number,Phone Number\r\n1,2\r\n");
    EXPECT_EQ(db.importRecords("bad.csv", count), result::kImportFailed);
    EXPECT_EQ(db.message(),
              "Row 1, column 2: the header \"Phone Number\" names no field of the database Contacts.");
    writeFile(folder.exports() / "twice.csv", "Pr\xE9nom,Visits, PR\xC9NOM\r\na,1,b\r\n");
    EXPECT_EQ(db.importRecords("twice.csv", count), result::kImportFailed);
    EXPECT_EQ(db.message(), "Row 1, column 3: the field Pr\xE9nom is named twice (also in column 1).");
    EXPECT_EQ(recordCount(db), 4u);
}

TEST_F(FieldNamesTest, ANewDatabaseTakesItsFieldsFromSpreadsheetHeaders)
{
    Database& fresh = open(service, "Sheet", OpenMode::Shared, "", OpenIntent::CreateIfMissing);
    // As a spreadsheet writes it: blanks around a header, a value with a comma, a Latin-1 name.
    writeFile(folder.exports() / "sheet.csv",
              "Pr\xE9nom, Contact Phone Number ,Location Coordinates,Zip Code\r\n"
              "Zo\xE9,555-0101,\"48.8566, 2.3522\",75001\r\n"
              "\xC9mile,555-0102,\"45.7640, 4.8357\",69001\r\n");
    uint32_t count = 0;
    ASSERT_EQ(fresh.importRecords("sheet.csv", count), 0u) << fresh.message();
    EXPECT_EQ(count, 2u);
    std::vector<std::string> names;
    for (size_t i = 0; i < fresh.fieldCount(); ++i)
        names.push_back(fresh.fieldAt(i)->name);
    EXPECT_EQ(names, (std::vector<std::string>{"KIVIDFIELD", kPrenom, "Contact Phone Number",
                                               "Location Coordinates", "Zip Code"}));
    EXPECT_EQ(column(fresh, "Location Coordinates CONTAINS ', 4.8' ", "Zip Code"),
              std::vector<std::string>{"69001"});

    // A header that cannot be a field name is named by its column, with the rule; nothing is made.
    Database& other = open(service, "Other", OpenMode::Shared, "", OpenIntent::CreateIfMissing);
    writeFile(folder.exports() / "units.csv", "Name,Height (cm)\r\nAnn,170\r\n");
    EXPECT_EQ(other.importRecords("units.csv", count), result::kImportFailed);
    EXPECT_EQ(other.message(),
              "Row 1, column 2: the header \"Height (cm)\" cannot become a field. A field name "
              "cannot hold \"(\". " +
                  std::string(kFieldNameRule));
    EXPECT_EQ(other.fieldCount(), 1u);
}

} // namespace
} // namespace kiv::db::testing
