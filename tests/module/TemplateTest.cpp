// The search template: placeholders filled by type class, precision, and the template errors.
// Runs KivSearchDBTemplateProcessor on a database opened in the fake host, the cursor on the
// record to show.
#include "FakeDatabase.h"
#include "KivGlueDB.h"
#include "SearchDBTemplateProcessor.h"

#include <gtest/gtest.h>

#include <string>

using namespace kivtest;

namespace
{
const uint32_t kInvalidFormat = KIV_FOURCC('M', 'I', 'F', 't');
const uint32_t kHostFailure = KIV_FOURCC('M', 'U', 'n', 'k');

typedef TKivDictionary<KivString, unsigned int> PrecisionDictionary;

class TemplateTest : public ::testing::Test
{
protected:
    FakeHost host;
    unsigned int database = 0;
    unsigned int result = 0;
    PrecisionDictionary precision;

    void SetUp() override
    {
        UseTagDatabaseBehaviour(host);
        FakeDatabase& people = host.db.AddDatabase("people", {{"Name", kTextField},
                                                              {"Notes", kLongTextField},
                                                              {"Member", kBooleanField},
                                                              {"Age", kIntegerField},
                                                              {"Visits", kUIntegerField},
                                                              {"Weight", kFloatField},
                                                              {"Price", kNumberField},
                                                              {"Seen", kTimestampField},
                                                              {"Code", 0x440000},   // SQL INTEGER
                                                              {"Ratio", 0x430000},  // SQL DECIMAL
                                                              {"Flag", 0x870000}}); // SQL BIT
        people.AddRecord({{"Name", "Ann"},
                          {"Notes", "<b>R&D</b> \"lead\""},
                          {"Member", "1"},
                          {"Age", "-41"},
                          {"Visits", "4000000000"},
                          {"Weight", "61.5"},
                          {"Price", "3.14159"},
                          {"Seen", "2020-01-01"},
                          {"Code", "7"},
                          {"Ratio", "0.25"},
                          {"Flag", "0"}});
        people.AddRecord({{"Name", "&kivDBField(Name);"}, {"Member", "0"}});
        ASSERT_EQ(KivGlueDBOpenDatabase(host.Info(), "people", 2, database), 0u);
        ASSERT_EQ(KivGlueDBMoveFirstRecord(host.Info(), database), 0u);
    }

    std::string Fill(const std::string& template_i)
    {
        KivSearchDBTemplateProcessor processor(KivString(template_i.c_str()));
        KivString output;
        result = processor.RunTemplate(host.Info(), database, output, precision);
        return std::string(output.GetCStringAccess(), output.GetLength());
    }
};

TEST_F(TemplateTest, EachTypeClassHasItsTextForm)
{
    EXPECT_EQ(Fill("&kivDBField(Name);|&kivDBField(Member);|&kivDBField(Age);|&kivDBField(Visits);"),
              "Ann|True|-41|4000000000");
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(Fill("&kivDBField(Weight);|&kivDBField(Price);"), "61.5|3.14159");
    EXPECT_EQ(Fill("&kivDBField(Code);|&kivDBField(Ratio);|&kivDBField(Flag);"), "7|0.25|False");
    EXPECT_EQ(Fill("[&kivDBField(Seen);]"), "[(Unsupported field type)]");
}

TEST_F(TemplateTest, TextIsInsertedAsStoredWithoutEncoding)
{
    EXPECT_EQ(Fill("<td>&kivDBField(Notes);</td>"), "<td><b>R&D</b> \"lead\"</td>");
}

TEST_F(TemplateTest, TextAroundPlaceholdersIsKeptByteForByte)
{
    const std::string page = "<tr class=\"a>b\">\r\n\t<td>&kivDBField(Name);</td><kivOther x=1></tr> < b";
    EXPECT_EQ(Fill(page), "<tr class=\"a>b\">\r\n\t<td>Ann</td><kivOther x=1></tr> < b");
    EXPECT_EQ(Fill(""), "");
}

TEST_F(TemplateTest, PrecisionAppliesByLowerCasedNameIncludingTheParenthesisedForm)
{
    precision.Add("price", 2);
    precision.Add("weight", 3);
    EXPECT_EQ(Fill("&kivDBField(Price);/&kivDBField(PRICE);/&kivDBField(Weight);/&kivDBFieldPrice;"),
              "3.14/3.14/61.500/3.14");
}

TEST_F(TemplateTest, TheMarkerIsMatchedWithoutRegardToCaseAndTheNameTakenAsWritten)
{
    EXPECT_EQ(Fill("&KIVDBFIELD(Name);,&kivdbfield(Name);"), "Ann,Ann");
    EXPECT_EQ(host.LastCall(kKivDB_GetFieldInfoByName, kDatabase).text, "(Name)");
    Fill("&kivDBField( Name );");
    EXPECT_EQ(host.LastCall(kKivDB_GetFieldInfoByName, kDatabase).text, "( Name )");
}

TEST_F(TemplateTest, AMissingFieldStaysLiteralAndLaterPlaceholdersAreFilled)
{
    EXPECT_EQ(Fill("&kivDBField(Nope); and &kivDBField(Name);"), "&kivDBField(Nope); and Ann");
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(host.errorCount, 0u);
}

TEST_F(TemplateTest, ValuesFromTheDatabaseAreNeverTakenForPlaceholders)
{
    ASSERT_EQ(KivGlueDBMoveNextRecord(host.Info(), database), 0u);
    EXPECT_EQ(Fill("<i>&kivDBField(Name);</i>"), "<i>&kivDBField(Name);</i>");
    EXPECT_EQ(host.CountCalls(kKivDB_GetFieldInfoByName, kDatabase), 1u);
}

TEST_F(TemplateTest, OneProcessorServesEveryRecord)
{
    KivSearchDBTemplateProcessor processor(KivString("<b>&kivDBField(Member);</b>"));
    KivString output;
    EXPECT_EQ(processor.RunTemplate(host.Info(), database, output, precision), 0u);
    ASSERT_EQ(KivGlueDBMoveNextRecord(host.Info(), database), 0u);
    EXPECT_EQ(processor.RunTemplate(host.Info(), database, output, precision), 0u);
    EXPECT_STREQ(output.GetCStringAccess(), "<b>True</b><b>False</b>");
}

TEST_F(TemplateTest, AMissingSemicolonLeavesTheRestOfTheTokenAsWritten)
{
    EXPECT_EQ(Fill("&kivDBField(Name); &kivDBField(Name) end"), "Ann &kivDBField(Name) end");
    EXPECT_EQ(result, kInvalidFormat);
    EXPECT_EQ(host.errorHeadline,
              "An Kiv database field placeholder was found but was missing its closing semicolon.");
    EXPECT_EQ(host.errorHint, "Make sure that all database field placeholders are formatted using the "
                              "&kivDBField(FieldName); syntax.");
}

TEST_F(TemplateTest, ASemicolonInALaterTokenDoesNotCloseAPlaceholder)
{
    // The "<" starts a new token, so the first placeholder has no semicolon in its own token;
    // the error does not stop the later token, whose successful look-up gives the result.
    EXPECT_EQ(Fill("&kivDBField(X) <b>&kivDBField(Name);</b>"), "&kivDBField(X) <b>Ann</b>");
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(host.errorCount, 1u);
}

TEST_F(TemplateTest, AnEmptyFieldNameIsAnErrorWithTheTextEncoded)
{
    EXPECT_EQ(Fill("a \"&\" &kivDBField;"), "a \"&\" &kivDBField;");
    EXPECT_EQ(result, kFieldNotFound);
    EXPECT_EQ(host.errorHeadline, "An empty fieldname was found in the following text: \r\n<p>\r\na "
                                  "&quot;&amp;&quot; &amp;kivDBField;");
    EXPECT_EQ(host.errorHint, "Check your code for improper field placeholders.");
}

TEST_F(TemplateTest, AnEmptyNameIsOnlyAnErrorWhenTheDatabaseReportsItMissing)
{
    host.db.Find("people")->AddField("", kTextField);
    host.db.Find("people")->records[0][""] = "blank";
    EXPECT_EQ(Fill("&kivDBField;"), "blank");
    EXPECT_EQ(result, 0u);
}

TEST_F(TemplateTest, AFailedLookUpIsReportedAndStopsTheToken)
{
    host.FailDatabase(kKivDB_GetFieldInfoByName, kHostFailure);
    EXPECT_EQ(Fill("&kivDBField(Name); &kivDBField(Age);"), "&kivDBField(Name); &kivDBField(Age);");
    EXPECT_EQ(result, kHostFailure);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to retrieve information about the &quot;(Name)&quot; field.");
    EXPECT_EQ(host.errorHint, "Check the database for improper field structure.");
    EXPECT_EQ(host.CountCalls(kKivDB_GetFieldInfoByName, kDatabase), 1u);
}

} // namespace
