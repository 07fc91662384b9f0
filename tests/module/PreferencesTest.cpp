// The module preferences: the exact fragment of form controls and how posted forms are stored.
#include "DatabaseModule.h"
#include "FakeHost.h"
#include "SearchDBPreferences.h"
#include "TagProcessors.h"

#include <gtest/gtest.h>

#include <string>

using namespace kivtest;

namespace
{
std::string Text(const KivString& text_i)
{
    return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

// The fragment as the host's administration page receives it, with the three tags' checkboxes
// marked as given and the stored limit.
std::string ExpectedFragment(const char* editChecked_i, const char* modifyChecked_i,
                             const char* searchChecked_i, const std::string& limit_i)
{
    return std::string(
               "<table width=\"100%\" border=\"2\" cellspacing=\"1\" cellpadding=\"4\" align=\"center\">"
               "\r\n<tr>\r\n<td>"
               "\r\n<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">"
               "\r\n<tr><td colspan=\"3\">Deselect any Kiv tags that should be disabled for this "
               "region.<br><br></td></tr>"
               "\r\n<tr><td width=\"33%\">"
               "<input type=\"checkbox\" name=\"kivEditDatabase\" value=\"yes\"") +
           editChecked_i +
           ">kivEditDatabase"
           "</td><td width=\"33%\">"
           "<input type=\"checkbox\" name=\"kivModifyDatabase\" value=\"yes\"" +
           modifyChecked_i +
           ">kivModifyDatabase"
           "</td><td width=\"33%\">"
           "<input type=\"checkbox\" name=\"kivSearchDatabase\" value=\"yes\"" +
           searchChecked_i +
           ">kivSearchDatabase"
           "</td></tr>"
           "\r\n</table>"
           "\r\n</td>\r\n</tr>"
           "\r\n<tr>\r\n<td>"
           "<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">"
           "\r\n<tr>"
           "\r\n<td valign=\"top\" align=\"left\" colspan=\"2\">"
           "Limit kivSearchDatabase search results to a maximum of "
           "<input type=\"text\" name=\"maxResults\" value=\"" +
           limit_i +
           "\" size=\"5\" maxlength=\"5\"> results.</td></td>"
           "\r\n</tr>"
           "\r\n<tr>"
           "\r\n<td width=\"16\" valign=\"top\" align=\"right\"></td>"
           "\r\n<td valign=\"top\" align=\"left\">"
           "<font size=\"-1\" color=\"#333333\">This option defines the maximum search results that a single "
           "use "
           "of the kivSearchDatabase is allowed to process.  Use caution when increasing this number from "
           "the "
           "default value of 100 since the resultant HTML can grow quite large and take an extended amount "
           "of "
           "time to be rendered in the client's browser."
           "</td>"
           "\r\n</tr>"
           "\r\n</table>"
           "\r\n</td>\r\n</tr>"
           "\r\n</table>";
}

TEST(PreferencesTest, TheFragmentWithNothingStored)
{
    FakeHost host;
    EXPECT_EQ(Text(GetPreferencesHTML(host.Info())),
              ExpectedFragment(" CHECKED", " CHECKED", " CHECKED", "100"));
}

TEST(PreferencesTest, TheFragmentShowsStoredPreferences)
{
    FakeHost host;
    host.preferences["kivModifyDatabase"] = "no";
    host.preferences["kivSearchDatabase"] = "YES"; // only the exact "yes" ticks the box
    host.preferences["kivSearchDatabasePref_MaxResults"] = "250";
    EXPECT_EQ(Text(GetPreferencesHTML(host.Info())), ExpectedFragment(" CHECKED", "", "", "250"));
    for (const FakeCall* call : host.CallsTo(kKivServer_GetPreference))
        EXPECT_NE(call->text, "maxResults") << "the control's name is not the key";
}

TEST(PreferencesTest, TheEntryWritesTheFragmentForMGPr)
{
    FakeHost host;
    host.Request(&ProcessKivRequest, kKivRequest_GetPreferences);
    EXPECT_EQ(host.output, ExpectedFragment(" CHECKED", " CHECKED", " CHECKED", "100"));
}

TEST(PreferencesTest, UncheckedBoxesStoreNoAndCheckedOnesRemoveThePreference)
{
    FakeHost host;
    host.preferences["kivEditDatabase"] = "no";
    host.preferences["kivModifyDatabase"] = "no";
    host.postArguments.Add("kivEditDatabase", "yes");
    host.postArguments.Add("kivSearchDatabase", "");
    host.postArguments.Add("maxResults", "250");
    SetPreferencesFromPostArguments(host.Info());
    EXPECT_EQ(host.preferences.count("kivEditDatabase"), 0u);
    EXPECT_EQ(host.preferences["kivModifyDatabase"], "no");
    EXPECT_EQ(host.preferences["kivSearchDatabase"], "no");
    EXPECT_EQ(host.preferences["kivSearchDatabasePref_MaxResults"], "250");
    EXPECT_EQ(host.CountCalls(kKivServer_RemovePreference), 1u);
}

TEST(PreferencesTest, AFormWithoutCheckboxesDisablesEveryTag)
{
    FakeHost host;
    SetPreferencesFromPostArguments(host.Info());
    EXPECT_EQ(host.preferences["kivEditDatabase"], "no");
    EXPECT_EQ(host.preferences["kivModifyDatabase"], "no");
    EXPECT_EQ(host.preferences["kivSearchDatabase"], "no");
    EXPECT_EQ(host.preferences["kivSearchDatabasePref_MaxResults"], "100");
}

TEST(PreferencesTest, ThePostedLimitIsStoredAsPostedUnlessItIsZero)
{
    const std::pair<const char*, const char*> cases[] = {
        {"0", "100"},           {"", "100"},  {"abc", "100"},     {"250", "250"},
        {" 1,000 ", " 1,000 "}, {"-5", "-5"}, {"12abc", "12abc"},
    };
    for (const auto& testCase : cases)
    {
        FakeHost host;
        host.postArguments.Add("maxResults", testCase.first);
        SetSearchDBPreferences(host.Info());
        EXPECT_EQ(host.preferences["kivSearchDatabasePref_MaxResults"], testCase.second) << testCase.first;
    }
    FakeHost host;
    host.preferences["kivSearchDatabasePref_MaxResults"] = "250";
    SetSearchDBPreferences(host.Info());
    EXPECT_EQ(host.preferences["kivSearchDatabasePref_MaxResults"], "100") << "nothing posted";
}

} // namespace
