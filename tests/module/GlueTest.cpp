// The server wrappers: which selector each one uses, how it lays out its arguments, the
// capacity its output buffers start with, the single retry on 'MBtS', and what the caller gets
// when the host fails.
#include "FakeHost.h"
#include "KivGlue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

using kivtest::FakeCall;
using kivtest::FakeHost;

namespace
{

std::string Text(const KivString& string_i)
{
    return std::string(string_i.GetCStringAccess(), string_i.GetLength());
}

class Glue : public ::testing::Test
{
protected:
    _KIVAPI_ModuleProcessingInfo* Info() { return host.Info(); }
    const FakeCall& OnlyCall()
    {
        EXPECT_EQ(host.calls.size(), 1u);
        return host.calls.back();
    }

    FakeHost host;
};

// An Out wrapper and what it answers, as text.
struct OutCase
{
    uint32_t selector;
    uint32_t capacity;
    std::function<std::string(_KIVAPI_ModuleProcessingInfo*)> call;
};

std::vector<OutCase> OutCases()
{
    auto path = [](bool (*wrapper)(_KIVAPI_ModuleProcessingInfo*, KivString&))
    {
        return [wrapper](_KIVAPI_ModuleProcessingInfo* info)
        {
            KivString value("unchanged");
            return wrapper(info, value) ? Text(value) : std::string("failed:") + Text(value);
        };
    };
    auto text = [](KivString (*wrapper)(_KIVAPI_ModuleProcessingInfo*))
    { return [wrapper](_KIVAPI_ModuleProcessingInfo* info) { return Text(wrapper(info)); }; };
    return {
        {kKivServer_GetModulePath, 256, path(KivGlueGetModulePath)},
        {kKivServer_GetModuleParentFolderPath, 256, path(KivGlueGetModuleParentFolderPath)},
        {kKivServer_GetAdminDomainName, 32, text(KivGlueGetAdminDomainName)},
        {kKivServer_GetAdminRegionPath, 32, text(KivGlueGetAdminRegionPath)},
        {kKivServer_GetVirtualHost, 32, text(KivGlueGetVirtualHost)},
        {kKivServer_GetVirtualRootPath, 256, text(KivGlueGetVirtualRootPath)},
        {kKivServer_GetURLPath, 256, text(KivGlueGetURLPath)},
        {kKivServer_GetURLParentFolderPath, 256, text(KivGlueGetURLParentFolderPath)},
        {kKivServer_GetTagBody, 63, text(KivGlueGetTagBody)},
        {kKivServer_GetTag, 32,
         [](_KIVAPI_ModuleProcessingInfo* info) { return Text(KivGlueGetTag(info).GetName()); }},
        {kKivServer_GetActionName, 64,
         [](_KIVAPI_ModuleProcessingInfo* info) { return Text(KivGlueGetActionName(info).GetString()); }},
    };
}

void Answer(FakeHost& host_io, uint32_t selector_i, const std::string& text_i)
{
    if (selector_i == kKivServer_GetTag)
        host_io.tagName = text_i;
    else if (selector_i == kKivServer_GetTagBody)
        host_io.tagBody = text_i;
    else if (selector_i == kKivServer_GetActionName)
        host_io.actionName = text_i;
    else
        host_io.outTexts[selector_i] = text_i;
}

} // namespace

TEST_F(Glue, OutWrappersStartAtTheirCapacityAndReadWhatTheHostWrote)
{
    for (const OutCase& out : OutCases())
    {
        FakeHost host;
        Answer(host, out.selector, "/srv/region");
        EXPECT_EQ(out.call(host.Info()), "/srv/region") << kivtest::FourCC(out.selector);
        ASSERT_EQ(host.calls.size(), 1u);
        const FakeCall& call = host.calls[0];
        EXPECT_EQ(call.selector, out.selector);
        EXPECT_EQ(call.capacity, out.capacity) << call.Selector();
        EXPECT_NE(call.args[0], nullptr);
        EXPECT_EQ(call.args[2], nullptr);
        EXPECT_EQ(call.args[3], nullptr);
        EXPECT_EQ(call.args[4], nullptr);
    }
}

TEST_F(Glue, OutWrappersRetryOnceWithTheSizeTheHostAskedFor)
{
    for (const OutCase& out : OutCases())
    {
        FakeHost host;
        std::string answer(out.capacity + 40, 'x');
        Answer(host, out.selector, answer);
        EXPECT_EQ(out.call(host.Info()), answer) << kivtest::FourCC(out.selector);
        ASSERT_EQ(host.calls.size(), 2u);
        EXPECT_EQ(host.calls[0].result, (uint32_t)kKivResult_BufferTooSmall);
        EXPECT_EQ(host.calls[1].capacity, answer.size() + 1) << host.calls[1].Selector();
    }
}

TEST_F(Glue, OutWrappersGiveUpAfterASecondBufferTooSmall)
{
    for (const OutCase& out : OutCases())
    {
        FakeHost host;
        Answer(host, out.selector, "value");
        host.BufferTooSmall(out.selector, 500, 2);
        std::string result = out.call(host.Info());
        EXPECT_TRUE(result.empty() || result == "failed:unchanged") << kivtest::FourCC(out.selector);
        EXPECT_EQ(host.calls.size(), 2u);
        EXPECT_EQ(host.calls[1].capacity, 500u);
    }
}

TEST_F(Glue, AFailedOutWrapperLeavesItsOutputOrGivesEmptyText)
{
    for (const OutCase& out : OutCases())
    {
        FakeHost host;
        host.FailServer(out.selector);
        std::string result = out.call(host.Info());
        EXPECT_TRUE(result.empty() || result == "failed:unchanged") << kivtest::FourCC(out.selector);
    }
}

TEST_F(Glue, AHostThatCountsTheTerminatorDoesNotLeaveItInTheText)
{
    host.Info()->KivServerSupportFunction = [](void*, uint32_t, void* a3, void* a4, void*, void*, void*)
    {
        std::memcpy(a3, "abc", 4);
        *static_cast<uint32_t*>(a4) = 4;
        return 0u;
    };
    EXPECT_EQ(Text(KivGlueGetURLPath(Info())), "abc");
    EXPECT_EQ(Text(KivGlueGetTagBody(Info())), "abc");
}

TEST_F(Glue, InWrappersSendAZeroTerminatedCopyWithLengthPlusOne)
{
    using InWrapper = bool (*)(_KIVAPI_ModuleProcessingInfo*, const KivString&);
    const std::vector<std::pair<InWrapper, uint32_t>> wrappers = {
        {KivGlueRegisterModuleName, kKivServer_RegisterModuleName},
        {KivGlueRegisterModuleVersion, kKivServer_RegisterModuleVersion},
        {KivGlueRegisterModuleAuthor, kKivServer_RegisterModuleAuthor},
        {KivGlueRegisterModuleDeveloperID, kKivServer_RegisterModuleDeveloperID},
        {KivGlueRegisterModuleVersionTrackerURL, kKivServer_RegisterVersionTrackerURL},
        {KivGlueUnregisterForAction, kKivServer_UnregisterForAction},
        {KivGlueSetHTTPResponseURI, kKivServer_SetHTTPResponseURI},
        {[](_KIVAPI_ModuleProcessingInfo* info, const KivString& text)
         { return KivGlueUnregisterForTag(info, KivTag(text)); },
         kKivServer_UnregisterForTag},
    };
    KivString text("Database Module");
    for (const auto& wrapper : wrappers)
    {
        FakeHost host;
        EXPECT_TRUE(wrapper.first(host.Info(), text));
        ASSERT_EQ(host.calls.size(), 1u);
        const FakeCall& call = host.calls[0];
        EXPECT_EQ(call.selector, wrapper.second);
        EXPECT_EQ(call.text, "Database Module");
        EXPECT_EQ(call.textLengthWord, 16u);
        EXPECT_TRUE(call.textTerminated);
        // A copy: the host never gets the string's shared storage.
        EXPECT_NE(call.args[0], static_cast<const void*>(text.GetCStringAccess()));
        EXPECT_EQ(call.args[2], nullptr);
        EXPECT_EQ(call.args[4], nullptr);

        host.FailServer(wrapper.second);
        EXPECT_FALSE(wrapper.first(host.Info(), text)) << call.Selector();
    }
}

TEST_F(Glue, RemovingAPreferenceIsAnInCall)
{
    host.preferences["kivSearchDatabase"] = "no";
    EXPECT_TRUE(KivGlueRemovePreference(Info(), "kivSearchDatabase"));
    EXPECT_FALSE(KivGlueRemovePreference(Info(), "kivSearchDatabase"));
    EXPECT_EQ(host.LastCall(kKivServer_RemovePreference).textLengthWord, 18u);
}

TEST_F(Glue, WriteToServerSendsTheStringsOwnBytesWithoutTheTerminator)
{
    KivString page("<p>hello</p>");
    EXPECT_TRUE(KivGlueWriteToServer(Info(), page));
    const FakeCall& call = OnlyCall();
    EXPECT_EQ(call.selector, (uint32_t)kKivServer_WriteToServer);
    EXPECT_EQ(call.textLengthWord, 12u);
    EXPECT_EQ(call.args[0], static_cast<const void*>(page.GetCStringAccess()));
    EXPECT_EQ(host.output, "<p>hello</p>");

    host.FailServer(kKivServer_WriteToServer);
    EXPECT_FALSE(KivGlueWriteToServer(Info(), page));
}

TEST_F(Glue, WriteToServerSkipsEmptyText)
{
    host.FailServer(kKivServer_WriteToServer);
    EXPECT_TRUE(KivGlueWriteToServer(Info(), KivString()));
    EXPECT_TRUE(host.calls.empty());
}

TEST_F(Glue, LogLinesCarryTheirKind)
{
    EXPECT_TRUE(KivGlueAddNoteToServerLog(Info(), "note"));
    EXPECT_TRUE(KivGlueAddWarningToServerLog(Info(), "warning"));
    EXPECT_TRUE(KivGlueAddErrorToServerLog(Info(), "error"));
    EXPECT_TRUE(KivGlueAddFailureToServerLog(Info(), "failure"));
    using Line = std::pair<uint32_t, std::string>;
    EXPECT_EQ(host.logLines,
              (std::vector<Line>{Line(kKivLog_Note, "note"), Line(kKivLog_Warning, "warning"),
                                 Line(kKivLog_Error, "error"), Line(kKivLog_Failure, "failure")}));
    for (const FakeCall& call : host.calls)
    {
        EXPECT_EQ(call.selector, (uint32_t)kKivServer_WriteToLog);
        EXPECT_EQ(call.textLengthWord, call.text.size() + 1);
    }
}

TEST_F(Glue, TwoInWrappersSendBothTexts)
{
    using TwoInWrapper = bool (*)(_KIVAPI_ModuleProcessingInfo*, const KivString&, const KivString&);
    const std::vector<std::pair<TwoInWrapper, uint32_t>> wrappers = {
        {KivGlueSetErrorInformation, kKivServer_SetErrorInformation},
        {KivGlueSetPageVariable, kKivServer_SetPageVariable},
        {KivGlueSetHTTPResponseHeader, kKivServer_SetHTTPResponseHeader},
        {KivGlueSetPreference, kKivServer_SetPreference},
    };
    for (const auto& wrapper : wrappers)
    {
        FakeHost host;
        EXPECT_TRUE(wrapper.first(host.Info(), "first", "second text"));
        const FakeCall& call = host.calls.at(0);
        EXPECT_EQ(call.selector, wrapper.second);
        EXPECT_EQ(call.text, "first");
        EXPECT_EQ(call.textLengthWord, 6u);
        EXPECT_TRUE(call.textTerminated);
        EXPECT_EQ(call.text2, "second text");
        EXPECT_EQ(call.text2LengthWord, 12u);
        EXPECT_EQ(call.args[4], nullptr);
        host.FailServer(wrapper.second);
        EXPECT_FALSE(wrapper.first(host.Info(), "first", "second")) << call.Selector();
    }
}

TEST_F(Glue, LoginsAreValidatedByTheHost)
{
    host.logins["admin"] = "secret";
    EXPECT_TRUE(KivGlueValidateServerLogin(Info(), "admin", "secret"));
    EXPECT_FALSE(KivGlueValidateServerLogin(Info(), "admin", "guess"));
    EXPECT_TRUE(KivGlueValidateDomainLogin(Info(), "admin", "secret"));
    EXPECT_EQ(host.Selectors(), (std::vector<std::string>{"MVSL", "MVSL", "MVDL"}));
    EXPECT_EQ(host.calls[1].text2, "guess");
}

TEST_F(Glue, HTTPStatusIsSentAsTextInASixteenByteBuffer)
{
    const std::vector<std::pair<KivHTTPResponse::StatusCode, std::string>> statuses = {
        {KivHTTPResponse::kStatus_Unauthorized, "401"},
        {KivHTTPResponse::kStatus_NotFound, "404"},
        {KivHTTPResponse::kStatus_Found, "302"},
        {KivHTTPResponse::kStatus_OK, "200"},
        {KivHTTPResponse::kStatus_InternalServerError, "200"},
        {KivHTTPResponse::kStatus_Forbidden, "200"},
    };
    for (const auto& status : statuses)
    {
        FakeHost host;
        EXPECT_TRUE(KivGlueSetHTTPResponseStatus(host.Info(), status.first, "Moved"));
        const FakeCall& call = host.calls.at(0);
        EXPECT_EQ(call.selector, (uint32_t)kKivServer_SetHTTPResponseStatus);
        EXPECT_EQ(host.httpStatus, status.second);
        EXPECT_EQ(call.textLengthWord, 16u);
        EXPECT_EQ(host.httpStatusMessage, "Moved");
        EXPECT_EQ(call.text2LengthWord, 6u);
    }
}

TEST_F(Glue, TagRegistrationPassesTheFlagsByAddress)
{
    EXPECT_TRUE(KivGlueRegisterForTag(Info(), KivTag("kivSearchDatabase"), 18));
    const FakeCall& call = OnlyCall();
    EXPECT_EQ(call.selector, (uint32_t)kKivServer_RegisterForTag);
    EXPECT_EQ(call.text, "kivSearchDatabase");
    EXPECT_TRUE(call.hasWord7);
    EXPECT_EQ(call.word7, 18u);
}

TEST_F(Glue, ScalarGettersPresetTheirWordAndReadZeroWhenTheHostFails)
{
    using ScalarWrapper = unsigned int (*)(_KIVAPI_ModuleProcessingInfo*);
    host.pageID = 77;
    host.defaultLanguage = kKivHostLanguage_French;
    host.AddTagParameter("a", "1");
    host.AddTagParameter("b", "2");
    host.pathArguments.Add("p", "1");
    host.postArguments.Add("q", "1");
    host.postArguments.Add("q", "2");
    host.postArguments.Add("r", "3");
    host.pageVariables.Add("v", "1");
    const std::vector<std::tuple<ScalarWrapper, uint32_t, unsigned int>> wrappers = {
        {KivGlueGetPageID, kKivServer_GetPageID, 77},
        {KivGlueGetDefaultLanguage, kKivServer_GetDefaultLanguage, kKivHostLanguage_French},
        {KivGlueGetTagParameterCount, kKivServer_GetTagParameterCount, 2},
        {KivGlueGetPathArgumentCount, kKivServer_GetPathArgumentCount, 1},
        {KivGlueGetPostArgumentCount, kKivServer_GetPostArgumentCount, 3},
        {KivGlueGetPageVariableCount, kKivServer_GetPageVariableCount, 1},
    };
    for (const auto& wrapper : wrappers)
    {
        host.ClearCalls();
        host.ClearFailures();
        EXPECT_EQ(std::get<0>(wrapper)(Info()), std::get<2>(wrapper));
        const FakeCall& call = OnlyCall();
        EXPECT_EQ(call.selector, std::get<1>(wrapper));
        EXPECT_EQ(call.args[0], nullptr);
        EXPECT_EQ(call.args[1], nullptr);
        EXPECT_TRUE(call.hasWord7);
        EXPECT_EQ(call.word7, 0u) << call.Selector();

        host.FailServer(std::get<1>(wrapper));
        EXPECT_EQ(std::get<0>(wrapper)(Info()), 0u) << call.Selector();
    }
}

TEST_F(Glue, ServerInformationNeedsNoHost)
{
    EXPECT_EQ(KivGlueGetServerInformation(Info()), 0u);
    EXPECT_TRUE(host.calls.empty());
}

TEST_F(Glue, NamedArgumentsPickAmongRepeatedNamesByIndex)
{
    host.postArguments.Add("field", "Name");
    host.postArguments.Add("field", "Age");
    host.pathArguments.Add("id", "7");
    KivString value;
    EXPECT_TRUE(KivGlueGetPostArgument(Info(), "field", 1, value, "none"));
    EXPECT_EQ(Text(value), "Age");
    const FakeCall& call = host.LastCall(kKivServer_GetPostArgument);
    EXPECT_EQ(call.text, "field");
    EXPECT_EQ(call.textLengthWord, 6u);
    EXPECT_EQ(call.capacity, 32u);
    EXPECT_TRUE(call.hasIndex);
    EXPECT_EQ(call.index, 1u);

    EXPECT_FALSE(KivGlueGetPostArgument(Info(), "field", 2, value, "none"));
    EXPECT_EQ(Text(value), "none");
    EXPECT_TRUE(KivGlueGetPathArgument(Info(), "id", 0, value, "none"));
    EXPECT_EQ(Text(value), "7");
    EXPECT_FALSE(KivGlueGetPathArgument(Info(), "ID", 0, value, "none"));
    EXPECT_EQ(Text(value), "none");
}

TEST_F(Glue, NamedValuesWithoutIndexPassANullIndex)
{
    host.pageVariables.Add("count", "12");
    host.preferences["kivSearchDatabasePref_MaxResults"] = "50";
    host.cgiVariables["REMOTE_ADDR"] = "10.0.0.1";
    host.cookies["session"] = "abc";
    KivString value;
    EXPECT_TRUE(KivGlueGetPageVariable(Info(), "count", value, "0"));
    EXPECT_EQ(Text(value), "12");
    EXPECT_TRUE(KivGlueGetPreference(Info(), "kivSearchDatabasePref_MaxResults", value, "100"));
    EXPECT_EQ(Text(value), "50");
    EXPECT_EQ(Text(KivGlueGetCGIEnvironmentVariable(Info(), "REMOTE_ADDR")), "10.0.0.1");
    EXPECT_EQ(Text(KivGlueGetCookie(Info(), "session")), "abc");
    EXPECT_EQ(host.Selectors(), (std::vector<std::string>{"MGPV", "MGPr", "MCGI", "MGCk"}));
    for (const FakeCall& call : host.calls)
    {
        EXPECT_FALSE(call.hasIndex) << call.Selector();
        EXPECT_EQ(call.capacity, 32u);
    }

    EXPECT_FALSE(KivGlueGetPageVariable(Info(), "missing", value, "0"));
    EXPECT_EQ(Text(value), "0");
    EXPECT_FALSE(KivGlueGetPreference(Info(), "missing", value, "100"));
    EXPECT_EQ(Text(value), "100");
    EXPECT_EQ(Text(KivGlueGetCGIEnvironmentVariable(Info(), "missing")), "");
    EXPECT_EQ(Text(KivGlueGetCookie(Info(), "missing")), "");
}

TEST_F(Glue, ALongParameterValueTakesExactlyOneRetryWithTheRequestedSize)
{
    std::string longValue(100, 'v');
    host.AddTagParameter("searchString", longValue);
    KivString value;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("searchString"), 0, value, KivString()));
    EXPECT_EQ(Text(value), longValue);
    auto calls = host.CallsTo(kKivServer_GetTagParameter);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0]->capacity, 32u);
    EXPECT_EQ(calls[1]->capacity, 101u);
    EXPECT_EQ(calls[1]->text, "searchString");
    EXPECT_EQ(calls[1]->index, 0u);
}

TEST_F(Glue, ARepeatedBufferTooSmallGivesTheDefault)
{
    host.AddTagParameter("page", "3");
    host.BufferTooSmall(kKivServer_GetTagParameter, 64, 2);
    int page = 0;
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), KivStringID("page"), 0, page, 1));
    EXPECT_EQ(page, 1);
    EXPECT_EQ(host.CountCalls(kKivServer_GetTagParameter), 2u);
}

TEST_F(Glue, TypedTagParametersConvertTheirText)
{
    host.AddTagParameter("text", "Hello World");
    host.AddTagParameter("unsigned", " 1,250 ");
    host.AddTagParameter("int", "-17abc");
    host.AddTagParameter("double", "2.5e1x");
    host.AddTagParameter("number", "123.45");
    host.AddTagParameter("flag", "ON");
    host.AddTagParameter("flag", "2");

    KivString text;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("TEXT"), 0, text, KivString("d")));
    EXPECT_EQ(Text(text), "Hello World");
    KivStringID identifier;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("text"), 0, identifier, KivStringID()));
    EXPECT_EQ(identifier.GetID(), KivStringID("Hello World").GetID());
    EXPECT_EQ(Text(identifier.GetString()), "Hello World");
    unsigned int unsignedValue = 0;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("unsigned"), 0, unsignedValue, 9u));
    EXPECT_EQ(unsignedValue, 1250u);
    int intValue = 0;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("int"), 0, intValue, 9));
    EXPECT_EQ(intValue, -17);
    double doubleValue = 0;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("double"), 0, doubleValue, 9.0));
    EXPECT_DOUBLE_EQ(doubleValue, 25.0);
    KivNumber number;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("number"), 0, number, KivNumber()));
    EXPECT_EQ(Text(number.GetStringRepresentation()), "123.45");
    bool flag = false;
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("flag"), 0, flag, false));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(KivGlueGetTagParameter(Info(), KivStringID("flag"), 1, flag, true));
    EXPECT_FALSE(flag);
}

TEST_F(Glue, AMissingTagParameterGivesTheDefaultInEveryVariant)
{
    KivStringID missing("missing");
    KivString text("x");
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, text, KivString("default")));
    EXPECT_EQ(Text(text), "default");
    KivStringID identifier("x");
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, identifier, KivStringID("fallback")));
    EXPECT_EQ(identifier.GetID(), KivStringID("fallback").GetID());
    unsigned int unsignedValue = 1;
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, unsignedValue, 20u));
    EXPECT_EQ(unsignedValue, 20u);
    int intValue = 1;
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, intValue, -3));
    EXPECT_EQ(intValue, -3);
    double doubleValue = 1;
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, doubleValue, 0.5));
    EXPECT_EQ(doubleValue, 0.5);
    KivNumber number("7");
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, number, KivNumber("2.5")));
    EXPECT_EQ(Text(number.GetStringRepresentation()), "2.5");
    bool flag = false;
    EXPECT_FALSE(KivGlueGetTagParameter(Info(), missing, 0, flag, true));
    EXPECT_TRUE(flag);
    EXPECT_EQ(host.CountCalls(kKivServer_SetErrorInformation), 0u);
}

TEST_F(Glue, AMissingRequiredParameterTellsThePageAuthorWhichOne)
{
    host.tagName = "kivSearchDatabase";
    KivString name("previous");
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), KivStringID("databaseName"), 0, name));
    EXPECT_EQ(Text(name), "");
    EXPECT_EQ(host.errorHeadline, "An &lt;kivSearchDatabase&gt; tag was found but it is missing its "
                                  "&quot;databaseName&quot; parameter.");
    EXPECT_EQ(host.errorHint,
              "Check the &lt;kivSearchDatabase&gt; tag to see if the &quot;databaseName&quot; "
              "parameter is missing or misspelled.");
    EXPECT_EQ(host.Selectors(), (std::vector<std::string>{"MTPm", "MTag", "MSEI"}));
}

TEST_F(Glue, RequiredParametersOfEveryTypeUseEmptyDefaults)
{
    host.tagName = "kivModifyDatabase";
    KivStringID id("x");
    unsigned int unsignedValue = 5;
    int intValue = 5;
    double doubleValue = 5;
    KivNumber number("5");
    bool flag = true;
    KivStringID name("fieldLength");
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, id));
    EXPECT_EQ(id.GetStringLength(), 0u);
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, unsignedValue));
    EXPECT_EQ(unsignedValue, 0u);
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, intValue));
    EXPECT_EQ(intValue, 0);
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, doubleValue));
    EXPECT_EQ(doubleValue, 0.0);
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, number));
    EXPECT_TRUE(number.IsNull());
    EXPECT_FALSE(KivGlueGetRequiredTagParameter(Info(), name, 0, flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(host.errorCount, 6u);

    host.AddTagParameter("fieldLength", "40");
    EXPECT_TRUE(KivGlueGetRequiredTagParameter(Info(), name, 0, intValue));
    EXPECT_EQ(intValue, 40);
    EXPECT_EQ(host.errorCount, 6u);
}

TEST_F(Glue, ParametersByIndexReadNameAndValueTogether)
{
    host.AddTagParameter("databaseName", "people");
    host.AddTagParameter(std::string(40, 'n'), std::string(50, 'v'));
    KivStringID name;
    KivString value;
    EXPECT_TRUE(KivGlueGetTagParameterByIndex(Info(), 0, name, value));
    EXPECT_EQ(Text(name.GetString()), "databaseName");
    EXPECT_EQ(Text(value), "people");
    const FakeCall& first = OnlyCall();
    EXPECT_EQ(first.selector, (uint32_t)kKivServer_GetTagParameterByIndex);
    EXPECT_EQ(first.capacity, 32u);
    EXPECT_EQ(first.capacity2, 32u);
    EXPECT_EQ(first.index, 0u);

    // Both buffers grow for the retry.
    KivStringID valueID;
    EXPECT_TRUE(KivGlueGetTagParameterByIndex(Info(), 1, name, valueID));
    EXPECT_EQ(Text(name.GetString()), std::string(40, 'n'));
    EXPECT_EQ(valueID.GetID(), KivStringID(std::string(50, 'v').c_str()).GetID());
    ASSERT_EQ(host.calls.size(), 3u);
    EXPECT_EQ(host.calls[2].capacity, 41u);
    EXPECT_EQ(host.calls[2].capacity2, 51u);

    EXPECT_FALSE(KivGlueGetTagParameterByIndex(Info(), 2, name, value));
}

TEST_F(Glue, ArgumentsAndVariablesByIndex)
{
    host.pathArguments.Add("id", "7");
    host.postArguments.Add("action", "Save");
    host.pageVariables.Add("total", "3");
    using PairWrapper = bool (*)(_KIVAPI_ModuleProcessingInfo*, const unsigned int&, KivString&, KivString&);
    const std::vector<std::tuple<PairWrapper, uint32_t, std::string, std::string>> wrappers = {
        {KivGlueGetPathArgumentByIndex, kKivServer_GetPathArgumentByIndex, "id", "7"},
        {KivGlueGetPostArgumentByIndex, kKivServer_GetPostArgumentByIndex, "action", "Save"},
        {KivGlueGetPageVariableByIndex, kKivServer_GetPageVariableByIndex, "total", "3"},
    };
    for (const auto& wrapper : wrappers)
    {
        KivString name("n");
        KivString value("v");
        EXPECT_TRUE(std::get<0>(wrapper)(Info(), 0, name, value));
        EXPECT_EQ(Text(name), std::get<2>(wrapper));
        EXPECT_EQ(Text(value), std::get<3>(wrapper));
        EXPECT_EQ(host.calls.back().selector, std::get<1>(wrapper));
        EXPECT_FALSE(std::get<0>(wrapper)(Info(), 1, name, value));
        EXPECT_EQ(Text(name), std::get<2>(wrapper)) << "left alone on failure";
    }
}

TEST_F(Glue, InOutWrappersSendTheirInputInTheAnswerBuffer)
{
    host.inOutAnswers[kKivServer_NormalizeString] = [](const std::string& text) { return text + "/normal"; };
    KivString text("Some Text");
    EXPECT_TRUE(KivGlueNormalizeString(Info(), text));
    EXPECT_EQ(Text(text), "Some Text/normal");
    ASSERT_EQ(host.calls.size(), 2u) << "the longer answer needs the retry";
    EXPECT_EQ(host.calls[0].text, "Some Text");
    EXPECT_EQ(host.calls[0].capacity, 10u);
    EXPECT_EQ(host.calls[1].text, "Some Text");
    EXPECT_EQ(host.calls[1].capacity, 17u);

    host.FailServer(kKivServer_NormalizeString);
    EXPECT_FALSE(KivGlueNormalizeString(Info(), text));
    EXPECT_EQ(Text(text), "Some Text/normal");
}

TEST_F(Glue, InOutWrapperCapacities)
{
    host.inOutAnswers[kKivServer_RegisterForAction] = [](const std::string&) { return "ACTION_7"; };
    KivStringID identifier;
    EXPECT_TRUE(KivGlueRegisterForAction(Info(), "Export", identifier));
    EXPECT_EQ(Text(identifier.GetString()), "ACTION_7");
    EXPECT_EQ(host.LastCall(kKivServer_RegisterForAction).capacity, 32u);
    std::string longAction(40, 'a');
    EXPECT_TRUE(KivGlueRegisterForAction(Info(), longAction.c_str(), identifier));
    EXPECT_EQ(host.LastCall(kKivServer_RegisterForAction).capacity, 41u);

    host.inOutAnswers[kKivServer_GetRegionDataFolderPath] = [](const std::string& sub)
    { return "/data/" + sub; };
    EXPECT_EQ(Text(KivGlueGetRegionDataFolderPath(Info(), "exports")), "/data/exports");
    EXPECT_EQ(host.LastCall(kKivServer_GetRegionDataFolderPath).capacity, 256u);
    EXPECT_EQ(host.LastCall(kKivServer_GetRegionDataFolderPath).text, "exports");

    host.inOutAnswers[kKivServer_MapURLToPhysicalPath] = [](const std::string& url)
    { return "/srv/www" + url; };
    EXPECT_EQ(Text(KivGlueMapURLToPhysicalPath(Info(), "/a.html")), "/srv/www/a.html");
    auto calls = host.CallsTo(kKivServer_MapURLToPhysicalPath);
    ASSERT_EQ(calls.size(), 2u) << "the longer answer needs the retry";
    EXPECT_EQ(calls[0]->capacity, 8u);
    EXPECT_EQ(calls[1]->capacity, 16u);
    EXPECT_EQ(calls[1]->text, "/a.html") << "the input is loaded again for the retry";
}

TEST_F(Glue, VerifyingAFileMayRewriteItsPath)
{
    host.inOutAnswers[kKivServer_VerifyRegionContainsFile] = [](const std::string& path)
    { return "/region" + path; };
    KivString path("/exports/people.txt");
    EXPECT_TRUE(KivGlueVerifyRegionContainsFile(Info(), path));
    EXPECT_EQ(Text(path), "/region/exports/people.txt");

    host.FailServer(kKivServer_VerifyRegionContainsFile, KIV_FOURCC('M', 'N', 'A', 'u'));
    KivString outside("/etc/passwd");
    EXPECT_FALSE(KivGlueVerifyRegionContainsFile(Info(), outside));
    EXPECT_EQ(Text(outside), "/etc/passwd");
}

TEST_F(Glue, TheTagBodyIsWrittenIntoTheStringWithOneRetry)
{
    host.tagBody = std::string(200, 'b');
    KivString body = KivGlueGetTagBody(Info());
    EXPECT_EQ(Text(body), host.tagBody);
    auto calls = host.CallsTo(kKivServer_GetTagBody);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0]->capacity, 63u);
    EXPECT_EQ(calls[1]->capacity, 201u);
}
