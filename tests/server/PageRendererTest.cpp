// Page rendering: which tags reach a module, what they receive, how placeholders are
// substituted, and that module output and unprocessed sections are never rendered again.
#include "pages/PageRenderer.h"

#include <gtest/gtest.h>

#include <map>

namespace kiv
{
namespace
{

class RecordingEnvironment : public PageEnvironment
{
public:
    std::map<std::string, TagShape> tags = {
        {"kivEmpty", {false, false}}, {"kivBox", {true, false}}, {"kivRaw", {true, true}}};
    std::vector<TagInvocation> calls;
    std::vector<std::string> problems;
    std::map<std::string, std::string> variables = {{"v", "<b>&"}};
    std::map<std::string, std::string> pathArguments = {{"page", "2"}, {"q", "a\"b"}};
    std::string output = "OUT";

    std::optional<TagShape> tagShape(std::string_view name) override
    {
        for (const auto& [tag, shape] : tags)
            if (equalsIgnoringCase(tag, name))
                return shape;
        return std::nullopt;
    }
    std::string runTag(const TagInvocation& tag) override
    {
        calls.push_back(tag);
        return output;
    }
    std::string placeholderValue(PlaceholderKind kind, std::string_view name) override
    {
        auto& source = kind == PlaceholderKind::PageVariable ? variables : pathArguments;
        auto found = source.find(std::string(name));
        return found == source.end() ? "" : found->second;
    }
    void reportPageProblem(std::string_view, std::string_view message) override
    {
        problems.emplace_back(message);
    }
};

TEST(PageRenderer, ReplacesRegisteredTagsAndLeavesOthers)
{
    RecordingEnvironment environment;
    std::string page = "<p>a</p><KIVEMPTY x=1><unknownTag y=2><kivEmpty/>";
    EXPECT_EQ(renderPage(page, environment), "<p>a</p>OUT<unknownTag y=2>OUT");
    ASSERT_EQ(environment.calls.size(), 2u);
    EXPECT_EQ(environment.calls[0].name, "KIVEMPTY") << "the name goes to the module as written";
}

TEST(PageRenderer, ParametersKeepWrittenOrderRepeatsAndPlainPlaceholderValues)
{
    RecordingEnvironment environment;
    renderPage("<kivEmpty b=\"1\" a='&kivPathArgument(q);' b=x page=\"&kivPathArgument(page);\" "
               "flag text=\"O&apos;Hare &amp; &kivPageVariable(v);\">",
               environment);
    ASSERT_EQ(environment.calls.size(), 1u);
    NameValueList expected = {{"b", "1"},    {"a", "a\"b"}, {"b", "x"},
                              {"page", "2"}, {"flag", ""},  {"text", "O'Hare & <b>&"}};
    EXPECT_EQ(environment.calls[0].parameters, expected);
}

TEST(PageRenderer, PlaceholdersInPageTextAreHtmlEncoded)
{
    RecordingEnvironment environment;
    EXPECT_EQ(
        renderPage("v=&kivPageVariable(v); q=&KIVPATHARGUMENT(q); none=&kivPostArgument(x);!", environment),
        "v=&lt;b&gt;&amp; q=a&quot;b none=!");
    EXPECT_EQ(renderPage("&kivPageVariable(v) &amp; &kivUnknown(v);", environment),
              "&kivPageVariable(v) &amp; &kivUnknown(v);")
        << "text that is not a complete placeholder stays as written";
}

TEST(PageRenderer, ControlBytesAreDroppedFromEncodedPlaceholderValues)
{
    RecordingEnvironment environment;
    environment.pathArguments["n"] = std::string("a\0b\x01\x1f\x7f\tc\r\nd\xE9", 12);
    EXPECT_EQ(renderPage("[&kivPathArgument(n);]", environment), "[ab\tc\r\nd\xE9]")
        << "a %00 in the query must not reach the page as a NUL byte";
    environment.variables["v"] = std::string("x\0y", 3);
    EXPECT_EQ(substitutePlaceholders("&kivPageVariable(v);", environment, true), "xy");
}

TEST(PageRenderer, ShowIfRendersItsBodyOnlyForAValueOtherThanEmptyOrZero)
{
    RecordingEnvironment environment;
    environment.variables["next"] = "3";
    environment.variables["prev"] = "0";
    EXPECT_EQ(
        renderPage("[<kivShowIf pageVariable=\"prev\"><a>&kivPageVariable(prev);</a></kivShowIf>|"
                   "<KIVSHOWIF pageVariable='next'><a>&kivPageVariable(next);</a><kivEmpty></kivShowIf>|"
                   "<kivShowIf pageVariable=\"missing\">x</kivShowIf>|"
                   "<kivShowIf pathArgument=\"page\">p&kivPathArgument(page);</kivShowIf>]",
                   environment),
        "[|<a>3</a>OUT||p2]");
    EXPECT_EQ(environment.calls.size(), 1u) << "tags in a hidden body do not run";
    EXPECT_EQ(
        renderPage("<kivShowIf pageVariable=next>a<kivShowIf pageVariable=prev>b</kivShowIf>c</kivShowIf>"
                   "</kivShowIf>",
                   environment),
        "ac")
        << "nested ones pair by name; a stray end tag is removed";
    EXPECT_EQ(renderPage("<kivShowIf pageVariable=next>a", environment), "a");
    EXPECT_EQ(environment.problems.size(), 1u);
}

TEST(PageRenderer, ContainerBodiesAreRenderedOrPassedRawByTheirFlags)
{
    RecordingEnvironment environment;
    std::string page = "<kivBox>in &kivPathArgument(page); <kivEmpty></kivBox>"
                       "<kivRaw>&kivDBField(Name); &kivPathArgument(page); <kivEmpty></kivRaw>";
    EXPECT_EQ(renderPage(page, environment), "OUTOUT");
    ASSERT_EQ(environment.calls.size(), 3u);
    EXPECT_EQ(environment.calls[0].name, "kivEmpty") << "tags inside a rendered body run first";
    EXPECT_EQ(environment.calls[1].body, "in 2 OUT");
    EXPECT_EQ(environment.calls[2].body, "&kivDBField(Name); &kivPathArgument(page); <kivEmpty>");
}

TEST(PageRenderer, NestedContainersOfTheSameNamePairCorrectly)
{
    RecordingEnvironment environment;
    environment.tags = {{"kivRaw", {true, true}}};
    renderPage("<kivRaw>a<kivRaw>b</kivRaw>c</kivRaw>tail", environment);
    ASSERT_EQ(environment.calls.size(), 1u);
    EXPECT_EQ(environment.calls[0].body, "a<kivRaw>b</kivRaw>c");
}

TEST(PageRenderer, ContainerWithoutEndTagRunsWithoutBodyAndIsReported)
{
    RecordingEnvironment environment;
    EXPECT_EQ(renderPage("<kivBox a=1>rest", environment), "OUTrest");
    EXPECT_EQ(environment.problems.size(), 1u);
}

TEST(PageRenderer, ModuleOutputIsNeverRenderedAgain)
{
    RecordingEnvironment environment;
    environment.output = "<kivEmpty> &kivPageVariable(v); <kivDoNotProcess>x</kivDoNotProcess>";
    EXPECT_EQ(renderPage("<kivEmpty>", environment), "<kivEmpty> &kivPageVariable(v); x");
    EXPECT_EQ(environment.calls.size(), 1u);
}

TEST(PageRenderer, DoNotProcessSectionsPassThroughWithoutMarkers)
{
    RecordingEnvironment environment;
    std::string page =
        "a<kivDoNotProcess><kivEmpty> &kivPageVariable(v);</KIVDONOTPROCESS>b</kivDoNotProcess>c";
    EXPECT_EQ(renderPage(page, environment), "a<kivEmpty> &kivPageVariable(v);bc");
    EXPECT_TRUE(environment.calls.empty());
}

TEST(PageRenderer, QuotedGreaterThanDoesNotEndATag)
{
    RecordingEnvironment environment;
    renderPage("<kivEmpty text=\"a > b\" other='<x>'>after", environment);
    ASSERT_EQ(environment.calls.size(), 1u);
    EXPECT_EQ(environment.calls[0].parameters[0].second, "a > b");
    EXPECT_EQ(environment.calls[0].parameters[1].second, "<x>");
}

TEST(PageRenderer, UnterminatedTagsAndStrayEndTagsAreHarmless)
{
    RecordingEnvironment environment;
    EXPECT_EQ(renderPage("x</kivEmpty>y<kivEmpty a=\"unterminated", environment),
              "xy<kivEmpty a=\"unterminated");
    EXPECT_TRUE(environment.calls.empty());
}

TEST(PageRenderer, MarkerRemovalKeepsLookalikeText)
{
    EXPECT_EQ(removeDoNotProcessMarkers("<kivDoNotProcess>a</kivDoNotProcess >kivDoNotProcess<b"),
              "akivDoNotProcess<b");
}

} // namespace
} // namespace kiv
