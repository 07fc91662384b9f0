// The server wrappers: each turns its arguments into one of a handful of argument shapes of
// the host's general callback (Out, In, InOut, NameOut, TwoIn, PairOut, Scalar) and back.
#include "KivGlue.h"

#include "KivAssert.h"
#include "KivGlueBuffers.h"
#include "KivStringUtility.h"

#include <cstring>

void* KivUtilCopyAndTerminateBuffer(KivBuffer& buffer_io, const void* bytes_i, unsigned int length_i)
{
    char* address = static_cast<char*>(buffer_io.SetSize(length_i + 1, 0));
    KIV_ASSERT_NOT_NULL(address);
    if (length_i > 0)
        std::memmove(address, bytes_i, length_i);
    address[length_i] = 0;
    return address;
}

KivGlueInputText::KivGlueInputText(const KivString& text_i) : myLengthWord(text_i.GetLength() + 1)
{
    KivUtilCopyAndTerminateBuffer(myBuffer, text_i.GetCStringAccess(), text_i.GetLength());
}

KivGlueOutputBuffer::KivGlueOutputBuffer(unsigned int capacity_i)
    : myBuffer(capacity_i, 0), myCapacityWord(capacity_i)
{
}

void KivGlueOutputBuffer::GrowToRequestedSize(unsigned int minimum_i)
{
    unsigned int size = myCapacityWord < minimum_i ? minimum_i : myCapacityWord;
    myBuffer.SetSize(size, 0);
    myCapacityWord = myBuffer.GetSize();
}

void KivGlueOutputBuffer::LoadInput(const KivString& text_i)
{
    unsigned int length = text_i.GetLength();
    if (myBuffer.GetSize() < length + 1)
        myBuffer.SetSize(length + 1, 0);
    char* address = static_cast<char*>(myBuffer.GetAddress());
    std::memmove(address, text_i.GetCStringAccess(), length);
    address[length] = 0;
    myCapacityWord = myBuffer.GetSize();
}

KivString KivGlueOutputBuffer::GetText() const
{
    unsigned int count = myCapacityWord < myBuffer.GetSize() ? myCapacityWord : myBuffer.GetSize();
    const char* bytes = static_cast<const char*>(myBuffer.GetAddress());
    if (count > 0 && bytes[count - 1] == 0)
        --count;
    return count == 0 ? KivString() : KivString(bytes, count);
}

namespace
{

KivUInt32 CallServer(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, void* a3_i,
                     void* a4_i, void* a5_i, void* a6_i, void* a7_i)
{
    KIV_ASSERT_NOT_NULL(processingInfo);
    KIV_ASSERT_NOT_NULL(processingInfo->KivServerSupportFunction);
    return processingInfo->KivServerSupportFunction(processingInfo->connID_i, selector_i, a3_i, a4_i, a5_i,
                                                    a6_i, a7_i);
}

// Out: a3 buffer, a4 capacity.
KivUInt32 CallOut(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, unsigned int capacity_i,
                  KivString& text_io)
{
    KivGlueOutputBuffer buffer(capacity_i);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallServer(processingInfo, selector_i, buffer.GetAddress(), buffer.GetCapacityWord(),
                              nullptr, nullptr, nullptr);
        },
        [&]() { buffer.GrowToRequestedSize(); });
    if (result == 0)
        text_io = buffer.GetText();
    return result;
}

KivString GetOutText(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                     unsigned int capacity_i)
{
    KivString text;
    CallOut(processingInfo, selector_i, capacity_i, text);
    return text;
}

// In: a3 text, a4 length + 1, a7 an optional word.
bool CallIn(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, const KivString& text_i,
            void* a7_i = nullptr)
{
    KivGlueInputText text(text_i);
    return CallServer(processingInfo, selector_i, text.GetText(), text.GetLengthWord(), nullptr, nullptr,
                      a7_i) == 0;
}

// TwoIn: a3/a4 and a5/a6 two texts with their lengths + 1.
bool CallTwoIn(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, const KivString& first_i,
               const KivString& second_i)
{
    KivGlueInputText first(first_i);
    KivGlueInputText second(second_i);
    return CallServer(processingInfo, selector_i, first.GetText(), first.GetLengthWord(), second.GetText(),
                      second.GetLengthWord(), nullptr) == 0;
}

// InOut: a3 buffer holding the terminated input and receiving the answer, a4 its capacity.
KivUInt32 CallInOut(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                    const KivString& input_i, unsigned int capacity_i, KivString& answer_io)
{
    unsigned int inputSize = input_i.GetLength() + 1;
    KivGlueOutputBuffer buffer(capacity_i < inputSize ? inputSize : capacity_i);
    buffer.LoadInput(input_i);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallServer(processingInfo, selector_i, buffer.GetAddress(), buffer.GetCapacityWord(),
                              nullptr, nullptr, nullptr);
        },
        [&]()
        {
            buffer.GrowToRequestedSize(inputSize);
            buffer.LoadInput(input_i);
        });
    if (result == 0)
        answer_io = buffer.GetText();
    return result;
}

// NameOut: a3/a4 the name, a5/a6 the output buffer [32], a7 the index or null.
bool CallNameOut(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, const KivString& name_i,
                 KivUInt32* index_i, KivString& value_io)
{
    KivGlueInputText name(name_i);
    KivGlueOutputBuffer buffer(32);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallServer(processingInfo, selector_i, name.GetText(), name.GetLengthWord(),
                              buffer.GetAddress(), buffer.GetCapacityWord(), index_i);
        },
        [&]() { buffer.GrowToRequestedSize(); });
    if (result == 0)
        value_io = buffer.GetText();
    return result == 0;
}

// A NameOut lookup whose value falls back to a default.
bool GetNamedValue(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                   const KivString& name_i, KivUInt32* index_i, KivString& value_io,
                   const KivString& default_i)
{
    KivString value;
    bool found = CallNameOut(processingInfo, selector_i, name_i, index_i, value);
    value_io = found ? value : default_i;
    return found;
}

// PairOut: a3/a4 the name buffer [32], a5/a6 the value buffer [32], a7 the index.
bool CallPairOut(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                 const unsigned int& index_i, KivString& name_io, KivString& value_io)
{
    KivUInt32 index = index_i;
    KivGlueOutputBuffer name(32);
    KivGlueOutputBuffer value(32);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallServer(processingInfo, selector_i, name.GetAddress(), name.GetCapacityWord(),
                              value.GetAddress(), value.GetCapacityWord(), &index);
        },
        [&]()
        {
            name.GrowToRequestedSize();
            value.GrowToRequestedSize();
        });
    if (result == 0)
    {
        name_io = name.GetText();
        value_io = value.GetText();
    }
    return result == 0;
}

// Scalar: a7 the value word, preset to 0; the host's code does not matter.
unsigned int CallScalar(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i)
{
    KivUInt32 value = 0;
    CallServer(processingInfo, selector_i, nullptr, nullptr, nullptr, nullptr, &value);
    return value;
}

bool AddToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i, KivUInt32 kind_i)
{
    return CallIn(processingInfo, kKivServer_WriteToLog, line_i, &kind_i);
}

// The text of a tag parameter, the base of every typed variant.
bool GetTagParameterText(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                         const unsigned int& index_i, KivString& text_io)
{
    KivUInt32 index = index_i;
    return CallNameOut(processingInfo, kKivServer_GetTagParameter, name_i.GetString(), &index, text_io);
}

template <typename ValueType, typename Converter>
bool GetConvertedTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                              const unsigned int& index_i, ValueType& value_io, const ValueType& default_i,
                              Converter convert_i)
{
    KivString text;
    if (!GetTagParameterText(processingInfo, name_i, index_i, text))
    {
        value_io = default_i;
        return false;
    }
    value_io = convert_i(text);
    return true;
}

// Tells the page author which parameter the current tag lacks.
void ReportMissingTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i)
{
    KivString tagName = KivGlueGetTag(processingInfo).GetName();
    KivString parameterName = name_i.GetString();
    KivString headline("An &lt;");
    headline += tagName;
    headline += "&gt; tag was found but it is missing its &quot;";
    headline += parameterName;
    headline += "&quot; parameter.";
    KivString hint("Check the &lt;");
    hint += tagName;
    hint += "&gt; tag to see if the &quot;";
    hint += parameterName;
    hint += "&quot; parameter is missing or misspelled.";
    KivGlueSetErrorInformation(processingInfo, headline, hint);
}

template <typename ValueType>
bool GetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                             const unsigned int& index_i, ValueType& value_io, const ValueType& empty_i)
{
    bool found = KivGlueGetTagParameter(processingInfo, name_i, index_i, value_io, empty_i);
    if (!found)
        ReportMissingTagParameter(processingInfo, name_i);
    return found;
}

} // namespace

unsigned int KivGlueGetServerInformation(_KIVAPI_ModuleProcessingInfo* /*processingInfo*/)
{
    return 0;
}

bool KivGlueGetModulePath(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io)
{
    return CallOut(processingInfo, kKivServer_GetModulePath, 256, path_io) == 0;
}

bool KivGlueGetModuleParentFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io)
{
    return CallOut(processingInfo, kKivServer_GetModuleParentFolderPath, 256, path_io) == 0;
}

bool KivGlueWriteToServer(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& text_i)
{
    if (text_i.IsEmpty())
        return true;
    // The page text can be long: the host reads the string's own bytes, counted, unterminated.
    KivUInt32 length = text_i.GetLength();
    return CallServer(processingInfo, kKivServer_WriteToServer, const_cast<char*>(text_i.GetCStringAccess()),
                      &length, nullptr, nullptr, nullptr) == 0;
}

bool KivGlueAddNoteToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i)
{
    return AddToServerLog(processingInfo, line_i, kKivLog_Note);
}

bool KivGlueAddWarningToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i)
{
    return AddToServerLog(processingInfo, line_i, kKivLog_Warning);
}

bool KivGlueAddErrorToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i)
{
    return AddToServerLog(processingInfo, line_i, kKivLog_Error);
}

bool KivGlueAddFailureToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i)
{
    return AddToServerLog(processingInfo, line_i, kKivLog_Failure);
}

bool KivGlueSetErrorInformation(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& headline_i,
                                const KivString& hint_i)
{
    return CallTwoIn(processingInfo, kKivServer_SetErrorInformation, headline_i, hint_i);
}

bool KivGlueNormalizeString(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& text_io)
{
    return CallInOut(processingInfo, kKivServer_NormalizeString, text_io, text_io.GetLength() + 1, text_io) ==
           0;
}

bool KivGlueRegisterModuleName(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i)
{
    return CallIn(processingInfo, kKivServer_RegisterModuleName, name_i);
}

bool KivGlueRegisterModuleVersion(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& version_i)
{
    return CallIn(processingInfo, kKivServer_RegisterModuleVersion, version_i);
}

bool KivGlueRegisterModuleAuthor(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& author_i)
{
    return CallIn(processingInfo, kKivServer_RegisterModuleAuthor, author_i);
}

bool KivGlueRegisterModuleDeveloperID(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const KivString& developerID_i)
{
    return CallIn(processingInfo, kKivServer_RegisterModuleDeveloperID, developerID_i);
}

bool KivGlueRegisterModuleVersionTrackerURL(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                            const KivString& address_i)
{
    return CallIn(processingInfo, kKivServer_RegisterVersionTrackerURL, address_i);
}

bool KivGlueRegisterForTag(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivTag& tag_i,
                           const unsigned int& flags_i)
{
    KivUInt32 flags = flags_i;
    return CallIn(processingInfo, kKivServer_RegisterForTag, tag_i.GetName(), &flags);
}

bool KivGlueUnregisterForTag(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivTag& tag_i)
{
    return CallIn(processingInfo, kKivServer_UnregisterForTag, tag_i.GetName());
}

bool KivGlueRegisterForAction(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& actionName_i,
                              KivStringID& identifier_io)
{
    KivString identifier;
    unsigned int capacity = actionName_i.GetLength() + 1;
    if (CallInOut(processingInfo, kKivServer_RegisterForAction, actionName_i, capacity < 32 ? 32 : capacity,
                  identifier) != 0)
        return false;
    identifier_io = KivStringID(identifier);
    return true;
}

bool KivGlueUnregisterForAction(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& actionName_i)
{
    return CallIn(processingInfo, kKivServer_UnregisterForAction, actionName_i);
}

unsigned int KivGlueGetPageID(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetPageID);
}

KivTag KivGlueGetTag(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return KivTag(GetOutText(processingInfo, kKivServer_GetTag, 32));
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivStringID& value_io, const KivStringID& default_i)
{
    return GetConvertedTagParameter(processingInfo, name_i, index_i, value_io, default_i,
                                    [](const KivString& text_i) { return KivStringID(text_i); });
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i)
{
    return GetConvertedTagParameter(processingInfo, name_i, index_i, value_io, default_i,
                                    [](const KivString& text_i) { return text_i; });
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, unsigned int& value_io,
                            const unsigned int& default_i)
{
    return GetConvertedTagParameter(
        processingInfo, name_i, index_i, value_io, default_i,
        [](const KivString& text_i)
        { return (unsigned int)KivStringUtility::GetNumericalRepresentation(text_i, 10); });
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, int& value_io, const int& default_i)
{
    return GetConvertedTagParameter(processingInfo, name_i, index_i, value_io, default_i,
                                    [](const KivString& text_i)
                                    { return KivStringUtility::GetNumericalRepresentation(text_i, 10); });
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, double& value_io, const double& default_i)
{
    return GetConvertedTagParameter(processingInfo, name_i, index_i, value_io, default_i,
                                    [](const KivString& text_i)
                                    { return KivStringUtility::GetNumericalRepresentation(text_i); });
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivNumber& value_io, const KivNumber& default_i)
{
    KivString text;
    if (!GetTagParameterText(processingInfo, name_i, index_i, text))
    {
        value_io = default_i;
        return false;
    }
    // Assigned, not constructed: the caller's precision and scale apply to the parsed text.
    value_io = text;
    return true;
}

bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, bool& value_io, const bool& default_i)
{
    return GetConvertedTagParameter(processingInfo, name_i, index_i, value_io, default_i,
                                    [](const KivString& text_i) { return static_cast<bool>(text_i); });
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivStringID& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, KivStringID());
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivString& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, KivString());
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, unsigned int& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, 0u);
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, int& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, 0);
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, double& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, 0.0);
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivNumber& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, KivNumber(""));
}

bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, bool& value_io)
{
    return GetRequiredTagParameter(processingInfo, name_i, index_i, value_io, false);
}

bool KivGlueGetTagParameterByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivStringID& name_io, KivStringID& value_io)
{
    KivString name;
    KivString value;
    if (!CallPairOut(processingInfo, kKivServer_GetTagParameterByIndex, index_i, name, value))
        return false;
    name_io = KivStringID(name);
    value_io = KivStringID(value);
    return true;
}

bool KivGlueGetTagParameterByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivStringID& name_io, KivString& value_io)
{
    KivString name;
    if (!CallPairOut(processingInfo, kKivServer_GetTagParameterByIndex, index_i, name, value_io))
        return false;
    name_io = KivStringID(name);
    return true;
}

unsigned int KivGlueGetTagParameterCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetTagParameterCount);
}

KivString KivGlueGetTagBody(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    // Bodies are the search template and can be long: the host writes straight into the
    // string's own storage instead of a scratch buffer that would be copied afterwards.
    KivString body;
    unsigned int size = 63;
    KivUInt32 capacity = size;
    char* buffer = body.GetBuffer(size);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]() {
            return CallServer(processingInfo, kKivServer_GetTagBody, buffer, &capacity, nullptr, nullptr,
                              nullptr);
        },
        [&]()
        {
            body.ReleaseBuffer(0);
            size = capacity;
            buffer = body.GetBuffer(size);
            capacity = size;
        });
    unsigned int length = 0;
    if (result == 0)
    {
        length = capacity < size ? capacity : size;
        if (length > 0 && buffer[length - 1] == 0)
            --length;
    }
    body.ReleaseBuffer((int)length);
    return body;
}

KivStringID KivGlueGetActionName(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return KivStringID(GetOutText(processingInfo, kKivServer_GetActionName, 64));
}

bool KivGlueGetPathArgument(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i)
{
    KivUInt32 index = index_i;
    return GetNamedValue(processingInfo, kKivServer_GetPathArgument, name_i, &index, value_io, default_i);
}

bool KivGlueGetPathArgumentByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io)
{
    return CallPairOut(processingInfo, kKivServer_GetPathArgumentByIndex, index_i, name_io, value_io);
}

unsigned int KivGlueGetPathArgumentCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetPathArgumentCount);
}

bool KivGlueGetPostArgument(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i)
{
    KivUInt32 index = index_i;
    return GetNamedValue(processingInfo, kKivServer_GetPostArgument, name_i, &index, value_io, default_i);
}

bool KivGlueGetPostArgumentByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io)
{
    return CallPairOut(processingInfo, kKivServer_GetPostArgumentByIndex, index_i, name_io, value_io);
}

unsigned int KivGlueGetPostArgumentCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetPostArgumentCount);
}

KivString KivGlueGetCGIEnvironmentVariable(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                           const KivString& variableName_i)
{
    KivString value;
    GetNamedValue(processingInfo, kKivServer_GetCGIEnvironmentVariable, variableName_i, nullptr, value,
                  KivString());
    return value;
}

bool KivGlueSetPageVariable(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const KivString& value_i)
{
    return CallTwoIn(processingInfo, kKivServer_SetPageVariable, name_i, value_i);
}

bool KivGlueGetPageVariable(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            KivString& value_io, const KivString& default_i)
{
    return GetNamedValue(processingInfo, kKivServer_GetPageVariable, name_i, nullptr, value_io, default_i);
}

bool KivGlueGetPageVariableByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io)
{
    return CallPairOut(processingInfo, kKivServer_GetPageVariableByIndex, index_i, name_io, value_io);
}

unsigned int KivGlueGetPageVariableCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetPageVariableCount);
}

KivString KivGlueGetCookie(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& cookieName_i)
{
    KivString value;
    GetNamedValue(processingInfo, kKivServer_GetCookie, cookieName_i, nullptr, value, KivString());
    return value;
}

bool KivGlueSetHTTPResponseStatus(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  KivHTTPResponse::StatusCode status_i, const KivString& message_i)
{
    // The host understands only these statuses; anything else is answered as a plain page.
    const char* statusText = "200";
    switch (status_i)
    {
    case KivHTTPResponse::kStatus_Unauthorized:
        statusText = "401";
        break;
    case KivHTTPResponse::kStatus_NotFound:
        statusText = "404";
        break;
    case KivHTTPResponse::kStatus_Found:
        statusText = "302";
        break;
    default:
        break;
    }
    char status[16] = {};
    std::strcpy(status, statusText);
    KivUInt32 statusSize = sizeof status;
    KivGlueInputText message(message_i);
    return CallServer(processingInfo, kKivServer_SetHTTPResponseStatus, status, &statusSize,
                      message.GetText(), message.GetLengthWord(), nullptr) == 0;
}

bool KivGlueSetHTTPResponseHeader(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                                  const KivString& value_i)
{
    return CallTwoIn(processingInfo, kKivServer_SetHTTPResponseHeader, name_i, value_i);
}

bool KivGlueSetHTTPResponseURI(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& uri_i)
{
    return CallIn(processingInfo, kKivServer_SetHTTPResponseURI, uri_i);
}

KivString KivGlueGetAdminDomainName(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetAdminDomainName, 32);
}

KivString KivGlueGetAdminRegionPath(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetAdminRegionPath, 32);
}

KivString KivGlueGetVirtualHost(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetVirtualHost, 32);
}

KivString KivGlueGetVirtualRootPath(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetVirtualRootPath, 256);
}

KivString KivGlueGetURLPath(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetURLPath, 256);
}

KivString KivGlueGetURLParentFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetOutText(processingInfo, kKivServer_GetURLParentFolderPath, 256);
}

KivString KivGlueGetRegionDataFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const KivString& subPath_i)
{
    KivString path;
    CallInOut(processingInfo, kKivServer_GetRegionDataFolderPath, subPath_i, 256, path);
    return path;
}

KivString KivGlueMapURLToPhysicalPath(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const KivString& urlPath_i)
{
    KivString path;
    CallInOut(processingInfo, kKivServer_MapURLToPhysicalPath, urlPath_i, urlPath_i.GetLength() + 1, path);
    return path;
}

bool KivGlueVerifyRegionContainsFile(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io)
{
    return CallInOut(processingInfo, kKivServer_VerifyRegionContainsFile, path_io, path_io.GetLength() + 1,
                     path_io) == 0;
}

unsigned int KivGlueGetDefaultLanguage(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallScalar(processingInfo, kKivServer_GetDefaultLanguage);
}

bool KivGlueValidateServerLogin(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& userName_i,
                                const KivString& password_i)
{
    return CallTwoIn(processingInfo, kKivServer_ValidateServerLogin, userName_i, password_i);
}

bool KivGlueValidateDomainLogin(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& userName_i,
                                const KivString& password_i)
{
    return CallTwoIn(processingInfo, kKivServer_ValidateDomainLogin, userName_i, password_i);
}

bool KivGlueSetPreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i,
                          const KivString& value_i)
{
    return CallTwoIn(processingInfo, kKivServer_SetPreference, key_i, value_i);
}

bool KivGlueGetPreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i,
                          KivString& value_io, const KivString& default_i)
{
    return GetNamedValue(processingInfo, kKivServer_GetPreference, key_i, nullptr, value_io, default_i);
}

bool KivGlueRemovePreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i)
{
    return CallIn(processingInfo, kKivServer_RemovePreference, key_i);
}
