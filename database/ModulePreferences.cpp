// The module's per-region preferences: an enable switch for each of its tags and the maximum
// number of results one kivSearchDatabase tag may show. The host stores them; this file builds
// the form controls for the host's administration page and stores what that form posts back.
#include "TagProcessors.h"

#include "KivGlue.h"
#include "KivStringUtility.h"
#include "SearchDBPreferences.h"
#include "SearchModifyConstants.h"

namespace
{
// The tags that get an enable checkbox, as their preference keys; ends with a null.
const char* const kDatabaseTagList[] = {"kivEditDatabase", "kivModifyDatabase", "kivSearchDatabase", nullptr};

const char* const kSearchDBTagName = "kivSearchDatabase";
const unsigned int kPreferenceColumns = 3;

// One checkbox cell; the box is ticked unless the tag's preference says otherwise.
void AppendTagCell(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* tagName_i, KivString& html_io)
{
    KivString enabled;
    KivGlueGetPreference(processingInfo_i, tagName_i, enabled, "yes");
    html_io += "<input type=\"checkbox\" name=\"";
    html_io += tagName_i;
    html_io += "\" value=\"yes\"";
    if (enabled == "yes")
        html_io += " CHECKED";
    html_io += ">";
    html_io += tagName_i;
}
} // namespace

KivString GetPreferencesHTML(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    KivString html;
    html += "<table width=\"100%\" border=\"2\" cellspacing=\"1\" cellpadding=\"4\" align=\"center\">";
    html += "\r\n<tr>\r\n<td>";
    html += "\r\n<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">";
    html += "\r\n<tr><td colspan=\"3\">Deselect any Kiv tags that should be disabled for this "
            "region.<br><br></td></tr>";

    for (const char* const* tag = kDatabaseTagList; *tag != nullptr;)
    {
        html += "\r\n<tr><td width=\"33%\">";
        for (unsigned int column = 0; column < kPreferenceColumns; ++column)
        {
            if (column > 0)
                html += "</td><td width=\"33%\">";
            if (*tag != nullptr)
                AppendTagCell(processingInfo_i, *tag++, html);
            else
                html += "&nbsp;";
        }
        html += "</td></tr>";
    }

    html += "\r\n</table>";
    html += "\r\n</td>\r\n</tr>";
    html += "\r\n<tr>\r\n<td>";
    html += GetSearchDBPreferencesHTMLStream(processingInfo_i);
    html += "\r\n</td>\r\n</tr>";
    html += "\r\n</table>";
    return html;
}

KivString GetSearchDBPreferencesHTMLStream(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    KivString limit;
    KivGlueGetPreference(processingInfo_i, kSearchDBPreference_MaxResults, limit,
                         kSearchDBPreference_MaxResultsDefault);

    KivString html;
    html += "<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">";
    html += "\r\n<tr>";
    html += "\r\n<td valign=\"top\" align=\"left\" colspan=\"2\">";
    html += "Limit ";
    html += kSearchDBTagName;
    html += " search results to a maximum of ";
    html += "<input type=\"text\" name=\"";
    html += kSearchDBPreferenceControl_MaxResults;
    html += "\" value=\"";
    html += limit;
    // The cell is closed twice; hosts have always received it this way.
    html += "\" size=\"5\" maxlength=\"5\"> results.</td>";
    html += "</td>";
    html += "\r\n</tr>";

    html += "\r\n<tr>";
    html += "\r\n<td width=\"16\" valign=\"top\" align=\"right\"></td>";
    html += "\r\n<td valign=\"top\" align=\"left\">";
    html += "<font size=\"-1\" color=\"#333333\">This option defines the maximum search results that a "
            "single use "
            "of the ";
    html += kSearchDBTagName;
    html += " is allowed to process.  Use caution when increasing this number from the default value of ";
    html += kSearchDBPreference_MaxResultsDefault;
    html += " since the resultant HTML can grow quite large and take an extended amount of time to be "
            "rendered in "
            "the client's browser.";
    html += "</td>";
    html += "\r\n</tr>";
    html += "\r\n</table>";
    return html;
}

void SetPreferencesFromPostArguments(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    for (const char* const* tag = kDatabaseTagList; *tag != nullptr; ++tag)
    {
        // An unticked checkbox is not posted at all, so a missing argument means "disabled".
        KivString value;
        KivGlueGetPostArgument(processingInfo_i, *tag, 0, value, KivString());
        if (value.IsEmpty())
            value = "no";
        // An enabled tag has no preference, so that the default "yes" applies.
        if (value == "no")
            KivGlueSetPreference(processingInfo_i, *tag, value);
        else
            KivGlueRemovePreference(processingInfo_i, *tag);
    }
    SetSearchDBPreferences(processingInfo_i);
}

void SetSearchDBPreferences(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    KivString limit;
    KivGlueGetPostArgument(processingInfo_i, kSearchDBPreferenceControl_MaxResults, 0, limit,
                           kSearchDBPreference_MaxResultsDefault);
    // A limit that is no number, or 0, falls back to the default; any other text is stored as
    // it was posted.
    if (KivStringUtility::GetNumericalRepresentation(limit, 10) == 0)
        limit = kSearchDBPreference_MaxResultsDefault;
    KivGlueSetPreference(processingInfo_i, kSearchDBPreference_MaxResults, limit);
}
