// A real module loaded with dlopen: its registration is recorded at 'MIni', its tags are
// dispatched from a page with what it registered, and its errors are presented safely.
#include "pages/PageRenderer.h"
#include "services/ModuleHost.h"
#include "services/TagDispatcher.h"
#include "site/SampleData.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

#ifdef KIV_TEST_MODULE_PATH
TEST(ModuleHost, InitialisationRecordsWhatTheModuleRegistered)
{
    ModuleRegistry registry;
    ModuleRecord& module = registry.load(KIV_TEST_MODULE_PATH);
    ModuleHost host(registry);
    EXPECT_EQ(host.initializeAll(), 0);
    EXPECT_TRUE(module.initialized);
    EXPECT_EQ(module.name, "Test Module");
    EXPECT_EQ(module.version, "1.0");
    EXPECT_EQ(module.developerID, "TEST");
    EXPECT_EQ(module.versionTrackerURL, "http://127.0.0.1/versions");
    auto [owner, tag] = registry.findTag("KIVRAWBODY");
    ASSERT_EQ(owner, &module);
    EXPECT_EQ(tag->flags, 0x12u);
    host.terminateAll();
    EXPECT_FALSE(module.initialized);
}

TEST(ModuleHost, PageTagsReachTheModuleWithTheirRequest)
{
    fs::path folder = fs::temp_directory_path() / ("kiv-modulehost-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    ModuleRegistry registry;
    registry.load(KIV_TEST_MODULE_PATH);
    ModuleHost host(registry);
    host.initializeAll();
    ServerConfig config;
    RegionConfig region;
    region.siteRoot = folder;
    region.dataFolder = folder;
    config.regions.push_back(region);
    RegionState state(config.regions.front());
    HttpRequest request;
    request.method = "GET";
    request.path = "/page.html";
    request.queryString = "q=hello";
    RequestContext context(config, state, request);
    TagDispatcher dispatcher(host, context);

    std::string html =
        renderPage("<kivSetVar name=n value=&kivPathArgument(q);><kivGetVar name=n>"
                   "<kivFail headline=\"Failed <img src=x onerror=alert(1)>\" hint=\"Try again\">",
                   dispatcher);
    EXPECT_NE(html.find("VAR=hello"), std::string::npos);
    EXPECT_NE(html.find("class=\"kiv-error\""), std::string::npos);
    EXPECT_EQ(html.find("<img"), std::string::npos);
    EXPECT_NE(html.find("partial output"), std::string::npos);
    host.finishRequest(context);
    host.terminateAll();
    fs::remove_all(folder);
}
#endif

TEST(ModuleRegistry, TagFlagsMeanWhatTheAdministratorsGuideSays)
{
    EXPECT_TRUE(tagHasBody(0x10));
    EXPECT_FALSE(tagBodyIsRaw(0x10)) << "a container's body is rendered first";
    EXPECT_TRUE(tagHasBody(0x12));
    EXPECT_TRUE(tagBodyIsRaw(0x12));
    EXPECT_FALSE(tagHasBody(0x30)) << "0x20 wins over 0x10";
    EXPECT_FALSE(tagHasBody(0x20));
    EXPECT_FALSE(tagHasBody(0x02)) << "0x02 alone does not make a container";
    EXPECT_FALSE(tagHasBody(0x00));
}

TEST(ModuleRegistry, LoadingSomethingThatIsNotAModuleFails)
{
    ModuleRegistry registry;
    EXPECT_THROW(registry.load("/nonexistent/libnothing.so"), std::runtime_error);
    EXPECT_TRUE(registry.modules().empty());
}

TEST(ErrorBlock, KeepsReferencesAndLineBreaksOnly)
{
    EXPECT_EQ(sanitizeErrorText("Open &quot;People&quot;\r\n<p>locked & <b>busy</b>"),
              "Open &quot;People&quot;\r\n<br>locked &amp; &lt;b&gt;busy&lt;/b&gt;");
}

TEST(SampleData, CsvHandlesQuotesCommasAndLineBreaks)
{
    auto rows = parseCsv("Name,City\r\n\"Smith, Ann\",\"Paris\"\n\"Say \"\"hi\"\"\",\"two\nlines\"\nlast,\n");
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1], (std::vector<std::string>{"Smith, Ann", "Paris"}));
    EXPECT_EQ(rows[2], (std::vector<std::string>{"Say \"hi\"", "two\nlines"}));
    EXPECT_EQ(rows[3], (std::vector<std::string>{"last", ""}));
}

TEST(SampleData, HeaderCellsDeclareFieldTypes)
{
    EXPECT_EQ(parseFieldDeclaration("Name").typeWord, 0x00060040u);
    EXPECT_EQ(parseFieldDeclaration("City:Text:40:X").typeWord, 0x02060028u);
    EXPECT_EQ(parseFieldDeclaration("Age:Integer").typeWord, 0x00020000u);
    EXPECT_EQ(parseFieldDeclaration("Code:Text:8:xq").typeWord, 0x06060008u);
    EXPECT_EQ(parseFieldDeclaration(" Email : Text ").name, "Email");
}

} // namespace
} // namespace kiv
