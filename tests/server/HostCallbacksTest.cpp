// The host side of the server selectors, called the way a module calls them: every argument
// shape, the 'MBtS' size protocol, and the services behind them.
#include "ServiceCodes.h"
#include "services/HostCallbacks.h"
#include "services/ModuleHost.h"
#include "services/RequestContext.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

class HostCallbacks : public ::testing::Test
{
protected:
    void SetUp() override
    {
        folder =
            fs::temp_directory_path() / ("kiv-callbacks-" + std::to_string(::getpid()) + "-" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder);
        fs::create_directories(folder / "site" / "people");
        fs::create_directories(folder / "data");
        fs::create_directories(folder / "outside");
        fs::create_symlink(folder / "outside", folder / "data" / "link");
        RegionConfig region;
        region.name = "main";
        region.siteRoot = folder / "site";
        region.dataFolder = folder / "data";
        region.language = 0x02000000;
        region.users = {{"ann", hashPassword("secret")}};
        config.regions.push_back(region);
        state = std::make_unique<RegionState>(config.regions.front());
        request.method = "POST";
        request.path = "/people/list.html";
        request.target = "/people/list.html?page=2&q=a&q=b";
        request.queryString = "page=2&q=a&q=b";
        request.headers = {{"Host", "example.org:8080"},
                           {"User-Agent", "tests"},
                           {"Authorization", "Basic x"},
                           {"Cookie", "session=s1"}};
        context = std::make_unique<RequestContext>(config, *state, request);
        context->postArguments = {{"name", "Ann"}, {"name", "Bob"}};
        context->currentTag = {"kivSearchDatabase",
                               {{"databaseName", "People"}, {"page", "3"}, {"Page", "4"}},
                               "<tr>&kivDBField(Name);</tr>"};
        context->inTag = true;
        module.name = "Test Module";
        module.path = "/opt/modules/libtest.so";
        call = std::make_unique<ModuleCall>(ModuleCall{module, context.get(), {}, {}});
    }
    void TearDown() override
    {
        call.reset();
        context.reset();
        state.reset();
        fs::remove_all(folder);
    }

    uint32_t callHost(uint32_t selector, void* a3 = nullptr, void* a4 = nullptr, void* a5 = nullptr,
                      void* a6 = nullptr, void* a7 = nullptr)
    {
        return serverSupportFunction(call.get(), selector, a3, a4, a5, a6, a7);
    }
    // An 'Out' call made as a module makes it: a tiny buffer, then one retry with the size asked for.
    std::string out(uint32_t selector)
    {
        std::string buffer(1, '\0');
        uint32_t capacity = 1;
        uint32_t result = callHost(selector, buffer.data(), &capacity);
        if (result == kKivResult_BufferTooSmall)
        {
            buffer.resize(capacity);
            result = callHost(selector, buffer.data(), &capacity);
        }
        EXPECT_EQ(result, 0u) << fourCharacterCode(selector);
        return buffer.substr(0, capacity);
    }
    uint32_t nameOut(uint32_t selector, std::string name, std::string& value, uint32_t* index)
    {
        uint32_t nameSize = static_cast<uint32_t>(name.size() + 1);
        std::string buffer(64, '\0');
        uint32_t capacity = 64;
        uint32_t result = callHost(selector, name.data(), &nameSize, buffer.data(), &capacity, index);
        if (result == 0)
            value = buffer.substr(0, capacity);
        return result;
    }
    uint32_t twoIn(uint32_t selector, std::string first, std::string second)
    {
        uint32_t firstSize = static_cast<uint32_t>(first.size() + 1);
        uint32_t secondSize = static_cast<uint32_t>(second.size() + 1);
        return callHost(selector, first.data(), &firstSize, second.data(), &secondSize);
    }
    uint32_t inOut(uint32_t selector, std::string& text)
    {
        std::string buffer = text;
        buffer.resize(std::max<size_t>(text.size() + 1, 512), '\0');
        uint32_t capacity = static_cast<uint32_t>(text.size() + 1);
        uint32_t result = callHost(selector, buffer.data(), &capacity);
        if (result == kKivResult_BufferTooSmall)
        {
            capacity = static_cast<uint32_t>(buffer.size());
            result = callHost(selector, buffer.data(), &capacity);
        }
        if (result == 0)
            text = buffer.substr(0, capacity);
        return result;
    }
    uint32_t scalar(uint32_t selector)
    {
        uint32_t value = 0;
        callHost(selector, nullptr, nullptr, nullptr, nullptr, &value);
        return value;
    }

    fs::path folder;
    ServerConfig config;
    std::unique_ptr<RegionState> state;
    HttpRequest request;
    std::unique_ptr<RequestContext> context;
    ModuleRecord module;
    std::unique_ptr<ModuleCall> call;
};

TEST_F(HostCallbacks, OutShapeReportsTheNeededSizeThenWritesTheBytes)
{
    char buffer[64] = {};
    uint32_t capacity = 17;
    EXPECT_EQ(callHost(kKivServer_GetTag, buffer, &capacity),
              static_cast<uint32_t>(kKivResult_BufferTooSmall));
    EXPECT_EQ(capacity, 18u) << "the text and its terminating zero";
    EXPECT_EQ(buffer[0], '\0') << "nothing is written when it does not fit";
    EXPECT_EQ(callHost(kKivServer_GetTag, buffer, &capacity), 0u);
    EXPECT_EQ(capacity, 17u) << "on success the capacity word receives the length";
    EXPECT_EQ(std::string(buffer), "kivSearchDatabase");
    capacity = 64;
    EXPECT_EQ(callHost(kKivServer_GetTag, nullptr, &capacity),
              static_cast<uint32_t>(kKivResult_BufferTooSmall))
        << "a null buffer asks for the size";
    EXPECT_EQ(capacity, 18u);
    EXPECT_EQ(callHost(kKivServer_GetTag, buffer, nullptr), static_cast<uint32_t>(kKivResult_UnknownError));
}

TEST_F(HostCallbacks, TagParametersByNameIndexAndPosition)
{
    std::string value;
    uint32_t index = 0;
    EXPECT_EQ(nameOut(kKivServer_GetTagParameter, "DATABASENAME", value, &index), 0u);
    EXPECT_EQ(value, "People") << "parameter names ignore case, like HTML attributes";
    index = 1;
    EXPECT_EQ(nameOut(kKivServer_GetTagParameter, "page", value, &index), 0u);
    EXPECT_EQ(value, "4") << "index 1 is the second occurrence";
    index = 2;
    EXPECT_EQ(nameOut(kKivServer_GetTagParameter, "page", value, &index),
              static_cast<uint32_t>(kKivResult_NotFound));
    EXPECT_EQ(nameOut(kKivServer_GetTagParameter, "missing", value, nullptr),
              static_cast<uint32_t>(kKivResult_NotFound));
    EXPECT_EQ(scalar(kKivServer_GetTagParameterCount), 3u);
    EXPECT_EQ(out(kKivServer_GetTagBody), "<tr>&kivDBField(Name);</tr>");
}

TEST_F(HostCallbacks, PairOutShapeSizesBothBuffersTogether)
{
    char name[2], value[2];
    uint32_t nameCapacity = 2, valueCapacity = 2, index = 0;
    EXPECT_EQ(callHost(kKivServer_GetTagParameterByIndex, name, &nameCapacity, value, &valueCapacity, &index),
              static_cast<uint32_t>(kKivResult_BufferTooSmall));
    EXPECT_EQ(nameCapacity, 13u);
    EXPECT_EQ(valueCapacity, 7u);
    std::string nameBuffer(nameCapacity, '\0'), valueBuffer(valueCapacity, '\0');
    EXPECT_EQ(callHost(kKivServer_GetTagParameterByIndex, nameBuffer.data(), &nameCapacity,
                       valueBuffer.data(), &valueCapacity, &index),
              0u);
    EXPECT_EQ(nameBuffer.substr(0, nameCapacity), "databaseName");
    EXPECT_EQ(valueBuffer.substr(0, valueCapacity), "People");
    index = 3;
    EXPECT_EQ(callHost(kKivServer_GetTagParameterByIndex, name, &nameCapacity, value, &valueCapacity, &index),
              static_cast<uint32_t>(kKivResult_NotFound));
}

TEST_F(HostCallbacks, PathAndPostArgumentsKeepRepeatedNamesInOrder)
{
    std::string value;
    uint32_t index = 1;
    EXPECT_EQ(nameOut(kKivServer_GetPathArgument, "q", value, &index), 0u);
    EXPECT_EQ(value, "b");
    EXPECT_EQ(scalar(kKivServer_GetPathArgumentCount), 3u);
    EXPECT_EQ(nameOut(kKivServer_GetPostArgument, "name", value, &index), 0u);
    EXPECT_EQ(value, "Bob");
    EXPECT_EQ(nameOut(kKivServer_GetPostArgument, "NAME", value, nullptr),
              static_cast<uint32_t>(kKivResult_NotFound))
        << "form field names are exact";
    EXPECT_EQ(scalar(kKivServer_GetPostArgumentCount), 2u);
    EXPECT_EQ(nameOut(kKivServer_GetCookie, "session", value, nullptr), 0u);
    EXPECT_EQ(value, "s1");
}

TEST_F(HostCallbacks, CgiVariablesDescribeTheRequestButNotItsCredentials)
{
    std::string value;
    EXPECT_EQ(nameOut(kKivServer_GetCGIEnvironmentVariable, "SCRIPT_NAME", value, nullptr), 0u);
    EXPECT_EQ(value, "/people/list.html");
    EXPECT_EQ(nameOut(kKivServer_GetCGIEnvironmentVariable, "QUERY_STRING", value, nullptr), 0u);
    EXPECT_EQ(value, "page=2&q=a&q=b");
    EXPECT_EQ(nameOut(kKivServer_GetCGIEnvironmentVariable, "SERVER_NAME", value, nullptr), 0u);
    EXPECT_EQ(value, "example.org");
    EXPECT_EQ(nameOut(kKivServer_GetCGIEnvironmentVariable, "HTTP_USER_AGENT", value, nullptr), 0u);
    EXPECT_EQ(value, "tests");
    EXPECT_EQ(nameOut(kKivServer_GetCGIEnvironmentVariable, "HTTP_AUTHORIZATION", value, nullptr),
              static_cast<uint32_t>(kKivResult_NotFound));
}

TEST_F(HostCallbacks, PageVariablesAreSetReplacedAndListed)
{
    EXPECT_EQ(twoIn(kKivServer_SetPageVariable, "people_Page", "1"), 0u);
    EXPECT_EQ(twoIn(kKivServer_SetPageVariable, "people_Next", "2"), 0u);
    EXPECT_EQ(twoIn(kKivServer_SetPageVariable, "people_Page", "3"), 0u);
    EXPECT_EQ(twoIn(kKivServer_SetPageVariable, "", "x"), static_cast<uint32_t>(kKivResult_InvalidValue));
    std::string value;
    EXPECT_EQ(nameOut(kKivServer_GetPageVariable, "people_Page", value, nullptr), 0u);
    EXPECT_EQ(value, "3");
    EXPECT_EQ(scalar(kKivServer_GetPageVariableCount), 2u);
    EXPECT_EQ(*context->pageVariable("people_Next"), "2");
}

TEST_F(HostCallbacks, WriteToServerTakesTheExactLengthWithoutTerminator)
{
    const char text[] = "<p>abcdef";
    uint32_t length = 5;
    EXPECT_EQ(callHost(kKivServer_WriteToServer, const_cast<char*>(text), &length), 0u);
    EXPECT_EQ(call->output, "<p>ab");
}

TEST_F(HostCallbacks, ErrorInformationAndLogLinesAreAccepted)
{
    EXPECT_EQ(twoIn(kKivServer_SetErrorInformation, "Headline &quot;x&quot;", "Hint"), 0u);
    EXPECT_TRUE(call->error.isSet);
    EXPECT_EQ(call->error.headline, "Headline &quot;x&quot;");
    EXPECT_EQ(call->error.hint, "Hint");
    std::string line = "a log line";
    uint32_t size = static_cast<uint32_t>(line.size() + 1), kind = kKivLog_Warning;
    EXPECT_EQ(callHost(kKivServer_WriteToLog, line.data(), &size, nullptr, nullptr, &kind), 0u);
}

TEST_F(HostCallbacks, ResponseStatusHeadersAndRedirection)
{
    char status[16] = "404";
    uint32_t statusSize = 16;
    std::string message = "Not here";
    uint32_t messageSize = static_cast<uint32_t>(message.size() + 1);
    EXPECT_EQ(callHost(kKivServer_SetHTTPResponseStatus, status, &statusSize, message.data(), &messageSize),
              0u);
    EXPECT_EQ(context->response.status, 404);
    char bad[16] = "abc";
    EXPECT_EQ(callHost(kKivServer_SetHTTPResponseStatus, bad, &statusSize, message.data(), &messageSize),
              static_cast<uint32_t>(kKivResult_InvalidValue));
    EXPECT_EQ(twoIn(kKivServer_SetHTTPResponseHeader, "X-Count", "3"), 0u);
    EXPECT_EQ(twoIn(kKivServer_SetHTTPResponseHeader, "X-Evil", "a\r\nSet-Cookie: x=1"),
              static_cast<uint32_t>(kKivResult_InvalidValue));
    EXPECT_EQ(twoIn(kKivServer_SetHTTPResponseHeader, "Content-Length", "0"),
              static_cast<uint32_t>(kKivResult_NotAuthorized));
    EXPECT_EQ(context->response.headers.size(), 1u);
    std::string location = "/done.html";
    uint32_t locationSize = static_cast<uint32_t>(location.size() + 1);
    EXPECT_EQ(callHost(kKivServer_SetHTTPResponseURI, location.data(), &locationSize), 0u);
    EXPECT_EQ(context->response.location, "/done.html");
}

TEST_F(HostCallbacks, ResponseHeadersAndRedirectionsCannotCarryControlCharacters)
{
    for (std::string value : {"a\nSet-Cookie: x=1", "a\rb",
                              "a\x0b"
                              "b",
                              "a\x7F"})
        EXPECT_EQ(twoIn(kKivServer_SetHTTPResponseHeader, "X-Evil", value),
                  static_cast<uint32_t>(kKivResult_InvalidValue));
    EXPECT_EQ(twoIn(kKivServer_SetHTTPResponseHeader, "X-Tab", "a\tb"), 0u);
    std::string location = "/done.html\r\nSet-Cookie: x=1";
    uint32_t locationSize = static_cast<uint32_t>(location.size() + 1);
    EXPECT_EQ(callHost(kKivServer_SetHTTPResponseURI, location.data(), &locationSize),
              static_cast<uint32_t>(kKivResult_InvalidValue));
    EXPECT_TRUE(context->response.location.empty());
    char status[16] = "200";
    uint32_t statusSize = 16;
    std::string message = "OK\r\nSet-Cookie: x=1";
    uint32_t messageSize = static_cast<uint32_t>(message.size() + 1);
    EXPECT_EQ(callHost(kKivServer_SetHTTPResponseStatus, status, &statusSize, message.data(), &messageSize),
              static_cast<uint32_t>(kKivResult_InvalidValue));
}

TEST_F(HostCallbacks, RegionAndUrlPaths)
{
    EXPECT_EQ(out(kKivServer_GetURLPath), "/people/list.html");
    EXPECT_EQ(out(kKivServer_GetURLParentFolderPath), "/people/");
    EXPECT_EQ(out(kKivServer_GetAdminRegionPath), "main");
    EXPECT_EQ(out(kKivServer_GetVirtualHost), "example.org");
    EXPECT_EQ(out(kKivServer_GetVirtualRootPath), (folder / "site").string());
    EXPECT_EQ(out(kKivServer_GetModulePath), "/opt/modules/libtest.so");
    EXPECT_EQ(out(kKivServer_GetModuleParentFolderPath), "/opt/modules");
    EXPECT_EQ(scalar(kKivServer_GetDefaultLanguage), 0x02000000u);
    EXPECT_NE(scalar(kKivServer_GetPageID), 0u);
    std::string url = "other.html";
    EXPECT_EQ(inOut(kKivServer_MapURLToPhysicalPath, url), 0u);
    EXPECT_EQ(url, fs::weakly_canonical(folder / "site" / "people" / "other.html").string());
    url = "/../../etc/passwd";
    EXPECT_EQ(inOut(kKivServer_MapURLToPhysicalPath, url), static_cast<uint32_t>(kKivResult_NotAuthorized));
}

TEST_F(HostCallbacks, ExportFilesAreConfinedToTheExportsFolderAndDataPathsToTheDataFolder)
{
    fs::path data = fs::canonical(folder / "data");
    std::string path = "people.csv";
    EXPECT_EQ(inOut(kKivServer_VerifyRegionContainsFile, path), 0u);
    EXPECT_EQ(path, (data / "exports" / "people.csv").string()) << "rewritten to the physical path";
    path = "a/../b.csv";
    EXPECT_EQ(inOut(kKivServer_VerifyRegionContainsFile, path), 0u);
    EXPECT_EQ(path, (data / "exports" / "b.csv").string());
    for (std::string refused :
         {"../outside.csv", "/etc/passwd", "../link/escaped.csv", "a/../../x.csv", "", "../People.kivdb",
          "../kiv-preferences.txt", "../.kivlocks/people.lock", "Names.KIVDB"})
    {
        std::string attempt = refused;
        EXPECT_NE(inOut(kKivServer_VerifyRegionContainsFile, attempt), 0u) << refused;
    }
    std::string sub = "imports";
    EXPECT_EQ(inOut(kKivServer_GetRegionDataFolderPath, sub), 0u);
    EXPECT_EQ(sub, (data / "imports").string());
    sub = "";
    EXPECT_EQ(inOut(kKivServer_GetRegionDataFolderPath, sub), 0u);
    EXPECT_EQ(sub, data.string()) << "an empty sub-path names the data folder itself";
    sub = "missing/../link";
    EXPECT_EQ(inOut(kKivServer_GetRegionDataFolderPath, sub),
              static_cast<uint32_t>(kKivResult_NotAuthorized));
}

TEST_F(HostCallbacks, PreferencesPersistPerModule)
{
    EXPECT_EQ(twoIn(kKivServer_SetPreference, "kivSearchDatabase", "no"), 0u);
    std::string value;
    EXPECT_EQ(nameOut(kKivServer_GetPreference, "kivSearchDatabase", value, nullptr), 0u);
    EXPECT_EQ(value, "no");
    PreferenceStore reopened(folder / "data" / "kiv-preferences.txt");
    EXPECT_EQ(reopened.get("Test Module", "kivSearchDatabase"), std::optional<std::string>("no"));
    EXPECT_EQ(reopened.get("Other Module", "kivSearchDatabase"), std::nullopt);
    std::string key = "kivSearchDatabase";
    uint32_t keySize = static_cast<uint32_t>(key.size() + 1);
    EXPECT_EQ(callHost(kKivServer_RemovePreference, key.data(), &keySize), 0u);
    EXPECT_EQ(nameOut(kKivServer_GetPreference, "kivSearchDatabase", value, nullptr),
              static_cast<uint32_t>(kKivResult_NotFound));
}

TEST_F(HostCallbacks, LoginValidationUsesTheRegionAccounts)
{
    EXPECT_EQ(twoIn(kKivServer_ValidateServerLogin, "ann", "secret"), 0u);
    EXPECT_EQ(twoIn(kKivServer_ValidateDomainLogin, "ann", "secret"), 0u);
    EXPECT_NE(twoIn(kKivServer_ValidateServerLogin, "ann", "wrong"), 0u);
    EXPECT_NE(twoIn(kKivServer_ValidateServerLogin, "bob", "secret"), 0u);
}

TEST_F(HostCallbacks, RegistrationRecordsTheModuleAndItsTags)
{
    ModuleCall registration{module, nullptr, {}, {}};
    auto send = [&](uint32_t selector, std::string text, uint32_t* a7 = nullptr)
    {
        uint32_t size = static_cast<uint32_t>(text.size() + 1);
        return serverSupportFunction(&registration, selector, text.data(), &size, nullptr, nullptr, a7);
    };
    uint32_t flags = 18;
    EXPECT_EQ(send(kKivServer_RegisterModuleName, "Database Module"), 0u);
    EXPECT_EQ(send(kKivServer_RegisterModuleVersion, "3.1.7"), 0u);
    EXPECT_EQ(send(kKivServer_RegisterForTag, "kivSearchDatabase", &flags), 0u);
    EXPECT_EQ(module.name, "Database Module");
    EXPECT_EQ(module.version, "3.1.7");
    ASSERT_NE(module.findTag("KIVSEARCHDATABASE"), nullptr);
    EXPECT_EQ(module.findTag("kivSearchDatabase")->flags, 18u);
    EXPECT_EQ(send(kKivServer_UnregisterForTag, "kivSearchDatabase"), 0u);
    EXPECT_EQ(module.findTag("kivSearchDatabase"), nullptr);
    uint32_t value = 0;
    EXPECT_EQ(serverSupportFunction(&registration, kKivServer_GetPageID, nullptr, nullptr, nullptr, nullptr,
                                    &value),
              static_cast<uint32_t>(kiv::db::result::kNoRequest))
        << "request services need a request";
    EXPECT_EQ(callHost(KIV_FOURCC('M', 'X', 'y', 'z')), static_cast<uint32_t>(kKivResult_UnknownFunction));
}

TEST_F(HostCallbacks, DatabaseCallsReachTheRequestsServiceWhichKeepsItsReason)
{
    std::ofstream(folder / "data" / "People.kivdb", std::ios::binary)
        << std::string(8192, 'x') << "\nthis is text, not a database\n";
    uint32_t handle = 0;
    char name[] = "People";
    uint32_t nameSize = sizeof name;
    uint32_t mode = 0;
    EXPECT_NE(databaseSupportFunction(call.get(), kKivDB_OpenDatabase, &handle, name, &nameSize, nullptr,
                                      nullptr, &mode),
              uint32_t(kKivResult_Success));
    ASSERT_NE(context->databaseFailure(), nullptr);
    EXPECT_NE(context->databaseFailure()->line.find("not a database"), std::string::npos);
    context->clearDatabaseFailure();
    uint32_t count = 0;
    EXPECT_EQ(databaseSupportFunction(call.get(), kKivDB_GetDatabaseCount, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, &count),
              uint32_t(kKivResult_Success));
    EXPECT_EQ(context->databaseFailure(), nullptr) << "a call that succeeds leaves nothing to report";
    ModuleCall outside{module, nullptr, {}, {}};
    EXPECT_EQ(databaseSupportFunction(&outside, kKivDB_GetDatabaseCount, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, &count),
              kiv::db::result::kNoRequest);
}

TEST_F(HostCallbacks, NormalizeStringRewritesTheBufferInPlace)
{
    std::string text = "  several   words\there ";
    EXPECT_EQ(inOut(kKivServer_NormalizeString, text), 0u);
    EXPECT_EQ(text, "several words here");
}

} // namespace
} // namespace kiv
