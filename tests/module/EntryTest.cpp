// The module entry: request codes and their results, registration, the tag enable switch, the
// single write of the output, the abort lines for a broken record, and the two key builders.
// The host's view is checked through the built library itself, loaded as the host loads it;
// the entry's own duties around processors are checked with processors that the tests control.
#include "DatabaseModule.h"
#include "FakeHost.h"
#include "TagProcessors.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

using kivtest::FakeHost;

namespace
{

constexpr uint32_t kUnknownRequest = KIV_FOURCC('M', 'X', 'y', 'z');
constexpr uint32_t kProcessorFailure = KIV_FOURCC('M', 'E', 'r', 'r');

// The built library, loaded once like a host loads a module. It stays loaded until the process
// ends, as in a host: unloading it would orphan the foundation's never-freed empty string.
KivProcessRequestProc LoadModuleEntry()
{
    static void* ourLibrary = dlopen(KIV_DATABASE_MODULE_FILE, RTLD_NOW | RTLD_LOCAL);
    return ourLibrary ? reinterpret_cast<KivProcessRequestProc>(dlsym(ourLibrary, KIV_MODULE_ENTRY_NAME))
                      : nullptr;
}

class LoadedModule : public ::testing::Test
{
protected:
    void SetUp() override
    {
        myEntry = LoadModuleEntry();
        ASSERT_NE(myEntry, nullptr) << dlerror();
    }
    void TearDown() override
    {
        // Leave the module terminated for the next test.
        if (myEntry)
        {
            FakeHost host;
            host.Request(myEntry, kKivRequest_Terminate);
        }
    }

    uint32_t Request(uint32_t code_i) { return host.Request(myEntry, code_i); }

    KivProcessRequestProc myEntry = nullptr;
    FakeHost host;
};

const std::vector<std::string> kRegistrationSelectors = {"MRMN", "MRMV", "MRMA", "MRVt",
                                                         "MRfT", "MRfT", "MRfT"};

} // namespace

TEST_F(LoadedModule, InitializeRegistersIdentityThenTagsInOrder)
{
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);

    EXPECT_EQ(host.Selectors(), kRegistrationSelectors);
    EXPECT_EQ(host.calls[0].text, "Database Module");
    EXPECT_EQ(host.calls[1].text, "3.1.7");
    EXPECT_FALSE(host.calls[2].text.empty());
    EXPECT_FALSE(host.calls[3].text.empty());
    using Tag = std::pair<std::string, uint32_t>;
    EXPECT_EQ(host.registeredTags, (std::vector<Tag>{Tag("kivEditDatabase", 32), Tag("kivModifyDatabase", 32),
                                                     Tag("kivSearchDatabase", 18)}));
    EXPECT_EQ(host.writeCount, 0u);
}

TEST_F(LoadedModule, ARefusedRegistrationFailsInitializationButAllAreAttempted)
{
    host.FailServer(kKivServer_RegisterModuleAuthor);
    EXPECT_EQ(Request(kKivRequest_Initialize), (uint32_t)kKivResult_UnknownError);
    EXPECT_EQ(host.Selectors(), kRegistrationSelectors);
    EXPECT_EQ(host.registeredTags.size(), 3u);
}

TEST_F(LoadedModule, InitializingTwiceRegistersTwice)
{
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);
    EXPECT_EQ(host.registeredTags.size(), 6u);
}

TEST_F(LoadedModule, TerminateIsHarmlessInAnyState)
{
    EXPECT_EQ(Request(kKivRequest_Terminate), 0u);
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);
    EXPECT_EQ(Request(kKivRequest_Terminate), 0u);
    EXPECT_EQ(Request(kKivRequest_Terminate), 0u);
    EXPECT_EQ(host.Selectors(), kRegistrationSelectors);
}

TEST_F(LoadedModule, ActionsAndUnknownRequestsAreUnknownFunctions)
{
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);
    host.ClearCalls();
    EXPECT_EQ(Request(kKivRequest_PerformAction), (uint32_t)kKivResult_UnknownFunction);
    EXPECT_EQ(Request(kUnknownRequest), (uint32_t)kKivResult_UnknownFunction);
    EXPECT_TRUE(host.calls.empty());
}

TEST_F(LoadedModule, ADisabledTagProducesNothing)
{
    host.tagName = "KIVSEARCHDATABASE";
    host.preferences["KIVSEARCHDATABASE"] = "no";
    host.AddTagParameter("databaseName", "people");

    EXPECT_EQ(Request(kKivRequest_ProcessTag), 0u);

    // The switch is looked up under the name the host reported, with "yes" for a missing one.
    EXPECT_EQ(host.Selectors(), (std::vector<std::string>{"MTag", "MGPr"}));
    EXPECT_EQ(host.calls[1].text, "KIVSEARCHDATABASE");
    EXPECT_EQ(host.writeCount, 0u);
}

TEST_F(LoadedModule, AForeignTagProducesNothing)
{
    host.tagName = "kivSomethingElse";
    EXPECT_EQ(Request(kKivRequest_ProcessTag), 0u);
    EXPECT_EQ(host.Selectors(), (std::vector<std::string>{"MTag", "MGPr"}));
    EXPECT_EQ(host.calls[1].text, "kivSomethingElse");
}

TEST_F(LoadedModule, GetPreferencesWritesThePreferenceControls)
{
    host.preferences["kivSearchDatabase"] = "no";
    FakeHost reference;
    reference.preferences = host.preferences;
    std::string expected(GetPreferencesHTML(reference.Info()).GetCStringAccess());

    EXPECT_EQ(Request(kKivRequest_GetPreferences), 0u);
    EXPECT_EQ(host.output, expected);
    EXPECT_EQ(host.writeCount, expected.empty() ? 0u : 1u);
}

TEST_F(LoadedModule, SetPreferencesWritesNothing)
{
    EXPECT_EQ(Request(kKivRequest_SetPreferences), 0u);
    EXPECT_EQ(host.writeCount, 0u);
}

using LoadedModuleDeathTest = LoadedModule;

TEST_F(LoadedModuleDeathTest, ABrokenRecordAborts)
{
    const char* prefix = "^\tFILE: \"database/DatabaseModule\"\nNULL POINTER ASSERTION: ";
    EXPECT_DEATH(myEntry(nullptr), std::string(prefix) + "processingInfo\n$");

    _KIVAPI_ModuleProcessingInfo record = *host.Info();
    record.connID_i = nullptr;
    EXPECT_DEATH(myEntry(&record), std::string(prefix) + "processingInfo->connID_i\n$");

    record = *host.Info();
    record.KivServerSupportFunction = nullptr;
    EXPECT_DEATH(myEntry(&record), std::string(prefix) + "processingInfo->KivServerSupportFunction\n$");

    // The checks run in order: with both callbacks missing the server callback is named.
    record.KivDatabaseSupportFunction = nullptr;
    EXPECT_DEATH(myEntry(&record), std::string(prefix) + "processingInfo->KivServerSupportFunction\n$");

    record = *host.Info();
    record.KivDatabaseSupportFunction = nullptr;
    EXPECT_DEATH(myEntry(&record), std::string(prefix) + "processingInfo->KivDatabaseSupportFunction\n$");
}

// --- the entry around processors that the tests control ---

namespace
{

// What the controlled handlers saw, in order.
struct HandlerLog
{
    std::vector<std::string> events;
    std::string output = "<p>processed</p>";
    uint32_t result = 0;
    FakeHost* host = nullptr;
    bool managerExistedAtRegistration = false;
    size_t hostCallsAtRegistration = 0;
};
HandlerLog ourLog;

unsigned int RecordProcessor(const char* name_i, KivString& output_io)
{
    ourLog.events.push_back(name_i);
    output_io += ourLog.output.c_str();
    return ourLog.result;
}

const KivDatabaseModuleHandlers kControlledHandlers = {
    [](_KIVAPI_ModuleProcessingInfo*, KivString& output_io) { return RecordProcessor("edit", output_io); },
    [](_KIVAPI_ModuleProcessingInfo*, KivString& output_io) { return RecordProcessor("modify", output_io); },
    [](_KIVAPI_ModuleProcessingInfo*, KivString& output_io) { return RecordProcessor("search", output_io); },
    [](_KIVAPI_ModuleProcessingInfo*)
    {
        ourLog.events.push_back("getPreferences");
        return KivString("<input name=\"maxResults\">");
    },
    [](_KIVAPI_ModuleProcessingInfo*) { ourLog.events.push_back("setPreferences"); },
    []() { ourLog.events.push_back("initialize"); },
    []()
    {
        ourLog.events.push_back("registerStrings");
        ourLog.managerExistedAtRegistration = databaseLocalization != nullptr;
        ourLog.hostCallsAtRegistration = ourLog.host ? ourLog.host->calls.size() : 0;
    }};

class ControlledEntry : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ourLog = HandlerLog();
        ourLog.host = &host;
    }
    void TearDown() override { Request(kKivRequest_Terminate); }

    uint32_t Request(uint32_t code_i)
    {
        host.Info()->requestCode = code_i;
        return KivDatabaseModuleProcessRequest(host.Info(), kControlledHandlers);
    }
    uint32_t ProcessTag(const std::string& tagName_i)
    {
        host.tagName = tagName_i;
        return Request(kKivRequest_ProcessTag);
    }

    FakeHost host;
};

} // namespace

TEST_F(ControlledEntry, TagsReachTheirProcessorsWhateverTheirLetterCase)
{
    ProcessTag("kivEditDatabase");
    ProcessTag("KIVMODIFYDATABASE");
    ProcessTag("KivSearchDatabase");
    EXPECT_EQ(ourLog.events, (std::vector<std::string>{"edit", "modify", "search"}));
    EXPECT_EQ(host.writeCount, 3u);
}

TEST_F(ControlledEntry, AFailingProcessorsOutputIsWrittenOnceAndItsCodeReturned)
{
    ourLog.result = kProcessorFailure;
    ourLog.output = "<p>The database could not be opened.</p>";

    EXPECT_EQ(ProcessTag("kivModifyDatabase"), kProcessorFailure);
    EXPECT_EQ(host.writeCount, 1u);
    EXPECT_EQ(host.output, ourLog.output);
    EXPECT_EQ(host.calls.back().Selector(), "MWtS");
}

TEST_F(ControlledEntry, AnEmptyOutputIsNotSent)
{
    ourLog.output.clear();
    EXPECT_EQ(ProcessTag("kivSearchDatabase"), 0u);
    EXPECT_EQ(host.CountCalls(kKivServer_WriteToServer), 0u);
}

TEST_F(ControlledEntry, OnlyTheExactTextNoDisablesATag)
{
    for (const char* value : {"No", "NO", "false", "", "0", "yes"})
    {
        host.preferences["kivEditDatabase"] = value;
        ourLog.events.clear();
        ProcessTag("kivEditDatabase");
        EXPECT_EQ(ourLog.events, std::vector<std::string>{"edit"}) << "preference \"" << value << "\"";
    }
    host.preferences["kivEditDatabase"] = "no";
    ourLog.events.clear();
    EXPECT_EQ(ProcessTag("kivEditDatabase"), 0u);
    EXPECT_TRUE(ourLog.events.empty());
}

TEST_F(ControlledEntry, AFailedPreferenceLookUpCountsAsEnabled)
{
    host.preferences["kivSearchDatabase"] = "no";
    host.FailServer(kKivServer_GetPreference);
    ProcessTag("kivSearchDatabase");
    EXPECT_EQ(ourLog.events, std::vector<std::string>{"search"});
}

TEST_F(ControlledEntry, InitializeSetsUpTheEditorAroundTheRegistrations)
{
    ASSERT_EQ(databaseLocalization, nullptr);
    EXPECT_EQ(Request(kKivRequest_Initialize), 0u);

    EXPECT_EQ(ourLog.events, (std::vector<std::string>{"initialize", "registerStrings"}));
    EXPECT_TRUE(ourLog.managerExistedAtRegistration);
    EXPECT_EQ(ourLog.hostCallsAtRegistration, kRegistrationSelectors.size());
    EXPECT_NE(databaseLocalization, nullptr);
}

TEST_F(ControlledEntry, TheEditorTextsAreRegisteredEvenWhenTheHostRefusesTheModule)
{
    host.FailServer(kKivServer_RegisterForTag);
    EXPECT_EQ(Request(kKivRequest_Initialize), (uint32_t)kKivResult_UnknownError);
    EXPECT_EQ(ourLog.events, (std::vector<std::string>{"initialize", "registerStrings"}));
    EXPECT_NE(databaseLocalization, nullptr);
}

TEST_F(ControlledEntry, TheLocalizationManagerLivesFromInitializeToTerminate)
{
    Request(kKivRequest_Initialize);
    KivLocalizationManager* manager = databaseLocalization;
    Request(kKivRequest_Initialize);
    EXPECT_EQ(databaseLocalization, manager);
    EXPECT_EQ(Request(kKivRequest_Terminate), 0u);
    EXPECT_EQ(databaseLocalization, nullptr);
}

TEST_F(ControlledEntry, PreferencesAreFetchedAndWrittenOrStoredSilently)
{
    EXPECT_EQ(Request(kKivRequest_GetPreferences), 0u);
    EXPECT_EQ(host.output, "<input name=\"maxResults\">");
    EXPECT_EQ(host.writeCount, 1u);

    EXPECT_EQ(Request(kKivRequest_SetPreferences), 0u);
    EXPECT_EQ(ourLog.events, (std::vector<std::string>{"getPreferences", "setPreferences"}));
    EXPECT_EQ(host.writeCount, 1u);
}

// --- key builders ---

TEST(NormalizedString, DropsBlanksJoinsWithUnderscoresAndUpperCases)
{
    EXPECT_STREQ(KivUtilGetNormalizedString(" my.db, old").GetCStringAccess(), "MY_DB_OLD");
    EXPECT_STREQ(KivUtilGetNormalizedString("a.b,c d\t").GetCStringAccess(), "A_B_CD");
    EXPECT_STREQ(KivUtilGetNormalizedString("\r\nx\ty \n").GetCStringAccess(), "XY");
    EXPECT_STREQ(KivUtilGetNormalizedString("").GetCStringAccess(), "");
}

TEST(NormalizedString, IsURLEncodedButKeepsPathCharacters)
{
    EXPECT_STREQ(KivUtilGetNormalizedString("50% a&b").GetCStringAccess(), "50%25A%26B");
    EXPECT_STREQ(KivUtilGetNormalizedString("dir/file:1").GetCStringAccess(), "DIR/FILE:1");
}

TEST(ModuleActionResponseString, KeepsTheNamesFirstWordOnly)
{
    EXPECT_STREQ(KivUtilGetModuleActionResponseString("Edit_", "add field now", "_Done").GetCStringAccess(),
                 "EDIT_ADD_DONE");
    EXPECT_STREQ(KivUtilGetModuleActionResponseString("a b ", "c", " d").GetCStringAccess(), "ABCD");
    EXPECT_STREQ(KivUtilGetModuleActionResponseString("x", " leading", "y").GetCStringAccess(), "XY");
    EXPECT_STREQ(KivUtilGetModuleActionResponseString("q&", "a", "=b").GetCStringAccess(), "Q%26A%3DB");
}
