// The benchmark host: the server selectors of a search tag answered from a TagCall, the
// database selectors handed to a fresh database service for each tag call, both through the
// host's own slot adapters.
#include "BenchHost.h"

#include "DatabaseService.h"
#include "abi/DatabaseSlots.h"
#include "abi/ServerSlots.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string_view>
#include <strings.h>

namespace kivbench
{

namespace
{

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

uint32_t found(const std::string* value_i, std::string& out_o)
{
    if (!value_i)
        return kKivResult_NotFound;
    out_o = *value_i;
    return kKivResult_Success;
}

// The server selectors a search tag uses, answered from plain data; the slots are decoded by
// the host's own adapter.
class BenchServices : public kiv::abi::ServerRequests
{
public:
    explicit BenchServices(TagCall* call_i) : myCall(call_i) {}

    uint32_t text(uint32_t selector_i, std::string& out_o) override
    {
        if (selector_i == kKivServer_GetTag)
            out_o = myCall->tagName;
        else if (selector_i == kKivServer_GetTagBody)
            out_o = myCall->body;
        else
            return kKivResult_NotFound;
        return kKivResult_Success;
    }
    uint32_t take(uint32_t, std::string_view, uint32_t) override { return kKivResult_Success; }
    uint32_t write(std::string_view bytes_i) override
    {
        myCall->output.append(bytes_i);
        return kKivResult_Success;
    }
    uint32_t transform(uint32_t, std::string_view, std::string&) override { return kKivResult_NotFound; }
    uint32_t lookup(uint32_t selector_i, std::string_view name_i, uint32_t index_i,
                    std::string& out_o) override
    {
        switch (selector_i)
        {
        case kKivServer_GetTagParameter:
            return found(nthValue(myCall->parameters, name_i, index_i), out_o);
        case kKivServer_GetPageVariable:
            return found(nthValue(myCall->pageVariables, name_i, 0), out_o);
        case kKivServer_GetPreference:
        {
            auto value = myCall->preferences.find(std::string(name_i));
            return found(value != myCall->preferences.end() ? &value->second : nullptr, out_o);
        }
        default:
            return kKivResult_NotFound;
        }
    }
    uint32_t takePair(uint32_t selector_i, std::string_view first_i, std::string_view second_i) override
    {
        if (selector_i == kKivServer_SetErrorInformation)
            myCall->errorHeadline = first_i;
        if (selector_i != kKivServer_SetPageVariable)
            return kKivResult_Success;
        for (auto& [key, value] : myCall->pageVariables)
            if (key == first_i)
            {
                value = second_i;
                return kKivResult_Success;
            }
        myCall->pageVariables.emplace_back(first_i, second_i);
        return kKivResult_Success;
    }
    uint32_t entry(uint32_t selector_i, uint32_t index_i, std::string& name_o, std::string& value_o) override
    {
        if (selector_i != kKivServer_GetTagParameterByIndex || index_i >= myCall->parameters.size())
            return kKivResult_NotFound;
        name_o = myCall->parameters[index_i].first;
        value_o = myCall->parameters[index_i].second;
        return kKivResult_Success;
    }
    uint32_t scalar(uint32_t selector_i, uint32_t& out_o) override
    {
        if (selector_i != kKivServer_GetTagParameterCount)
            return kKivResult_NotFound;
        out_o = uint32_t(myCall->parameters.size());
        return kKivResult_Success;
    }

private:
    TagCall* myCall;
};

struct CallContext
{
    TagCall* call = nullptr;
    kiv::abi::DatabaseSlots* database = nullptr;
};

uint32_t serverCallback(void* connection_i, uint32_t selector_i, void* a3, void* a4, void* a5, void* a6,
                        void* a7)
{
    auto& context = *static_cast<CallContext*>(connection_i);
    if (context.call == nullptr) // 'MIni' and 'MTrm': registrations need no answer
        return kKivResult_Success;
    BenchServices services(context.call);
    return kiv::abi::answerServerCall(services, selector_i, a3, a4, a5, a6, a7);
}

uint32_t databaseCallback(void* connection_i, uint32_t selector_i, void* a3, void* a4, void* a5, void* a6,
                          void* a7, void* a8)
{
    auto& context = *static_cast<CallContext*>(connection_i);
    if (context.database == nullptr)
        return kKivResult_UnknownFunction;
    return context.database->call(selector_i, a3, a4, a5, a6, a7, a8);
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
    kiv::db::ServiceEnvironment environment;
    environment.dataFolder = myDataFolder;
    kiv::db::DatabaseService service(environment);
    kiv::abi::DatabaseSlots slots(service);
    CallContext context{&call, &slots};
    return request(myEntry, kKivRequest_ProcessTag, context);
}

} // namespace kivbench
