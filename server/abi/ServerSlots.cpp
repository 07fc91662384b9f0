// The shape of every server selector, and its slots read and written by that shape.
#include "abi/ServerSlots.h"

#include "KivModuleInterface.h"
#include "abi/Slots.h"

namespace kiv::abi
{

namespace
{
enum class Shape
{
    Unknown,
    Out,
    In,
    Write,
    InOut,
    NameOut,
    TwoIn,
    PairOut,
    Scalar
};

Shape shapeOf(uint32_t selector)
{
    switch (selector)
    {
    case kKivServer_GetModulePath:
    case kKivServer_GetModuleParentFolderPath:
    case kKivServer_GetTag:
    case kKivServer_GetTagBody:
    case kKivServer_GetActionName:
    case kKivServer_GetAdminDomainName:
    case kKivServer_GetAdminRegionPath:
    case kKivServer_GetVirtualHost:
    case kKivServer_GetVirtualRootPath:
    case kKivServer_GetURLPath:
    case kKivServer_GetURLParentFolderPath:
        return Shape::Out;
    case kKivServer_WriteToLog:
    case kKivServer_RegisterModuleName:
    case kKivServer_RegisterModuleVersion:
    case kKivServer_RegisterModuleAuthor:
    case kKivServer_RegisterModuleDeveloperID:
    case kKivServer_RegisterVersionTrackerURL:
    case kKivServer_RegisterForTag:
    case kKivServer_UnregisterForTag:
    case kKivServer_UnregisterForAction:
    case kKivServer_SetHTTPResponseURI:
    case kKivServer_RemovePreference:
        return Shape::In;
    case kKivServer_WriteToServer:
        return Shape::Write;
    case kKivServer_NormalizeString:
    case kKivServer_RegisterForAction:
    case kKivServer_GetRegionDataFolderPath:
    case kKivServer_MapURLToPhysicalPath:
    case kKivServer_VerifyRegionContainsFile:
        return Shape::InOut;
    case kKivServer_GetTagParameter:
    case kKivServer_GetPathArgument:
    case kKivServer_GetPostArgument:
    case kKivServer_GetCGIEnvironmentVariable:
    case kKivServer_GetPageVariable:
    case kKivServer_GetCookie:
    case kKivServer_GetPreference:
        return Shape::NameOut;
    case kKivServer_SetErrorInformation:
    case kKivServer_SetPageVariable:
    case kKivServer_SetHTTPResponseStatus:
    case kKivServer_SetHTTPResponseHeader:
    case kKivServer_ValidateServerLogin:
    case kKivServer_ValidateDomainLogin:
    case kKivServer_SetPreference:
        return Shape::TwoIn;
    case kKivServer_GetTagParameterByIndex:
    case kKivServer_GetPathArgumentByIndex:
    case kKivServer_GetPostArgumentByIndex:
    case kKivServer_GetPageVariableByIndex:
        return Shape::PairOut;
    case kKivServer_GetPageID:
    case kKivServer_GetTagParameterCount:
    case kKivServer_GetPathArgumentCount:
    case kKivServer_GetPostArgumentCount:
    case kKivServer_GetPageVariableCount:
    case kKivServer_GetDefaultLanguage:
        return Shape::Scalar;
    default:
        return Shape::Unknown;
    }
}

constexpr uint32_t kBadSlot = kKivResult_UnknownError;

// Runs `produce` for a text answer and writes it when it succeeded.
template <typename Produce> uint32_t answerText(void* buffer, void* capacity, Produce&& produce)
{
    std::string out;
    const uint32_t code = produce(out);
    return code == kKivResult_Success ? writeText(buffer, capacity, out, kBadSlot) : code;
}
} // namespace

uint32_t answerServerCall(ServerRequests& host, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                          void* a7)
{
    switch (shapeOf(selector))
    {
    case Shape::Out:
        return answerText(a3, a4, [&](std::string& out) { return host.text(selector, out); });
    case Shape::In:
        return host.take(selector, readText(a3, a4), readWord(a7));
    case Shape::Write:
        if (!a3 || !a4)
            return kBadSlot;
        return host.write(readBytes(a3, readWord(a4)));
    case Shape::InOut:
    {
        const std::string input(readText(a3, a4));
        return answerText(a3, a4, [&](std::string& out) { return host.transform(selector, input, out); });
    }
    case Shape::NameOut:
        return answerText(a5, a6,
                          [&](std::string& out)
                          { return host.lookup(selector, readText(a3, a4), readWord(a7), out); });
    case Shape::TwoIn:
        return host.takePair(selector, readText(a3, a4), readText(a5, a6));
    case Shape::PairOut:
    {
        if (!a7)
            return kKivResult_NotFound;
        std::string name, value;
        const uint32_t code = host.entry(selector, readWord(a7), name, value);
        return code == kKivResult_Success ? writeTextPair(a3, a4, a5, a6, name, value, kBadSlot) : code;
    }
    case Shape::Scalar:
    {
        if (!a7)
            return kBadSlot;
        uint32_t value = 0;
        const uint32_t code = host.scalar(selector, value);
        if (code == kKivResult_Success)
            writeWord(a7, value);
        return code;
    }
    case Shape::Unknown:
        break;
    }
    return kKivResult_UnknownFunction;
}

} // namespace kiv::abi
