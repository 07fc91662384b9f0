// The benchmark host: the server selectors of a search tag answered from a TagCall, the
// database selectors handed to a fresh DatabaseSession for each tag call.
#include "BenchHost.h"

#include "DatabaseSession.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string_view>
#include <strings.h>

namespace kivbench
{

namespace
{

constexpr uint32_t kNotFound = KIV_FOURCC('M', 'N', 't', 'F');

struct CallContext
{
    TagCall* call = nullptr;
    kiv::db::DatabaseSession* database = nullptr;
};

uint32_t word(void* address_i)
{
    return address_i ? *static_cast<uint32_t*>(address_i) : 0;
}

std::string_view input(void* text_i, void* lengthPlusOne_i)
{
    if (!text_i)
        return {};
    const char* characters = static_cast<const char*>(text_i);
    if (!lengthPlusOne_i)
        return std::string_view(characters);
    return std::string_view(characters, ::strnlen(characters, word(lengthPlusOne_i)));
}

// The size protocol of the real host: on success the capacity word receives the length.
uint32_t output(void* buffer_i, void* capacity_i, std::string_view value_i)
{
    if (!capacity_i || (!buffer_i && !value_i.empty()))
        return kKivResult_UnknownError;
    uint32_t& room = *static_cast<uint32_t*>(capacity_i);
    if (value_i.size() > room)
    {
        room = uint32_t(value_i.size());
        return kKivResult_BufferTooSmall;
    }
    std::memcpy(buffer_i, value_i.data(), value_i.size());
    if (value_i.size() < room)
        static_cast<char*>(buffer_i)[value_i.size()] = '\0';
    room = uint32_t(value_i.size());
    return kKivResult_Success;
}

const std::string* nthValue(const NameValues& list_i, std::string_view name_i, uint32_t index_i)
{
    for (const auto& [key, value] : list_i)
        if (key.size() == name_i.size() && ::strncasecmp(key.data(), name_i.data(), key.size()) == 0)
        {
            if (index_i == 0)
                return &value;
            --index_i;
        }
    return nullptr;
}

uint32_t serverCallback(void* connection_i, uint32_t selector_i, void* a3, void* a4, void* a5, void* a6,
                        void* a7)
{
    auto& context = *static_cast<CallContext*>(connection_i);
    TagCall* call = context.call;
    if (call == nullptr) // 'MIni' and 'MTrm': registrations need no answer
        return kKivResult_Success;
    switch (selector_i)
    {
    case kKivServer_GetTag:
        return output(a3, a4, call->tagName);
    case kKivServer_GetTagBody:
        return output(a3, a4, call->body);
    case kKivServer_GetTagParameter:
    {
        const std::string* value = nthValue(call->parameters, input(a3, a4), word(a7));
        return value ? output(a5, a6, *value) : kNotFound;
    }
    case kKivServer_GetTagParameterCount:
        *static_cast<uint32_t*>(a7) = uint32_t(call->parameters.size());
        return kKivResult_Success;
    case kKivServer_GetTagParameterByIndex:
    {
        const uint32_t index = word(a7);
        if (index >= call->parameters.size())
            return kNotFound;
        const auto& [name, value] = call->parameters[index];
        uint32_t& nameRoom = *static_cast<uint32_t*>(a4);
        uint32_t& valueRoom = *static_cast<uint32_t*>(a6);
        if (name.size() > nameRoom || value.size() > valueRoom)
        {
            nameRoom = uint32_t(name.size());
            valueRoom = uint32_t(value.size());
            return kKivResult_BufferTooSmall;
        }
        output(a3, a4, name);
        return output(a5, a6, value);
    }
    case kKivServer_GetPreference:
    {
        auto value = call->preferences.find(std::string(input(a3, a4)));
        return value != call->preferences.end() ? output(a5, a6, value->second) : kNotFound;
    }
    case kKivServer_GetPageVariable:
    {
        const std::string* value = nthValue(call->pageVariables, input(a3, a4), 0);
        return value ? output(a5, a6, *value) : kNotFound;
    }
    case kKivServer_SetPageVariable:
    {
        const std::string name(input(a3, a4));
        for (auto& [key, value] : call->pageVariables)
            if (key == name)
            {
                value = input(a5, a6);
                return kKivResult_Success;
            }
        call->pageVariables.emplace_back(name, input(a5, a6));
        return kKivResult_Success;
    }
    case kKivServer_WriteToServer:
        call->output.append(static_cast<const char*>(a3), word(a4));
        return kKivResult_Success;
    case kKivServer_SetErrorInformation:
        call->errorHeadline = input(a3, a4);
        return kKivResult_Success;
    case kKivServer_WriteToLog:
        return kKivResult_Success;
    default:
        return kNotFound;
    }
}

uint32_t databaseCallback(void* connection_i, uint32_t selector_i, void* a3, void* a4, void* a5, void* a6,
                          void* a7, void* a8)
{
    auto& context = *static_cast<CallContext*>(connection_i);
    if (context.database == nullptr)
        return kKivResult_UnknownFunction;
    return context.database->handle(selector_i, a3, a4, a5, a6, a7, a8);
}

uint32_t request(KivProcessRequestProc entry_i, uint32_t code_i, CallContext& context_i)
{
    _KIVAPI_ModuleProcessingInfo info{};
    info.connID_i = &context_i;
    info.requestCode = code_i;
    info.KivServerSupportFunction = serverCallback;
    info.KivDatabaseSupportFunction = databaseCallback;
    return entry_i(&info);
}

} // namespace

BenchHost::BenchHost(const std::filesystem::path& moduleFile, const std::filesystem::path& dataFolder)
    : myDataFolder(dataFolder)
{
    myLibrary = ::dlopen(moduleFile.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!myLibrary)
        throw std::runtime_error(std::string("cannot load the module: ") + ::dlerror());
    myEntry = reinterpret_cast<KivProcessRequestProc>(::dlsym(myLibrary, KIV_MODULE_ENTRY_NAME));
    if (!myEntry)
        throw std::runtime_error("the module has no " KIV_MODULE_ENTRY_NAME);
    CallContext context;
    request(myEntry, kKivRequest_Initialize, context);
}

BenchHost::~BenchHost()
{
    CallContext context;
    request(myEntry, kKivRequest_Terminate, context);
    ::dlclose(myLibrary);
}

uint32_t BenchHost::runTag(TagCall& call)
{
    kiv::db::DatabaseSession session(kiv::db::SessionEnvironment{myDataFolder});
    session.setCurrentTag(call.tagName);
    CallContext context{&call, &session};
    return request(myEntry, kKivRequest_ProcessTag, context);
}

} // namespace kivbench
