// A module for testing the host: its tags echo what the host hands them (parameters, body,
// arguments, variables), fail or abort on request, and drive the response and preference
// services. It talks to the host only through the interface header, like any module, and
// starts every output buffer tiny so that each read goes through the 'MBtS' retry.
#include "KivModuleInterface.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <string>
#include <vector>

namespace
{

struct Host
{
    _KIVAPI_ModuleProcessingInfo* info;

    uint32_t call(uint32_t selector, void* a3 = nullptr, void* a4 = nullptr, void* a5 = nullptr,
                  void* a6 = nullptr, void* a7 = nullptr)
    {
        return info->KivServerSupportFunction(info->connID_i, selector, a3, a4, a5, a6, a7);
    }
    bool sendIn(uint32_t selector, const std::string& text, void* a7 = nullptr)
    {
        std::string copy = text;
        uint32_t size = static_cast<uint32_t>(copy.size() + 1);
        return call(selector, copy.data(), &size, nullptr, nullptr, a7) == 0;
    }
    bool sendTwo(uint32_t selector, const std::string& first, const std::string& second)
    {
        std::string a = first, b = second;
        uint32_t aSize = static_cast<uint32_t>(a.size() + 1), bSize = static_cast<uint32_t>(b.size() + 1);
        return call(selector, a.data(), &aSize, b.data(), &bSize) == 0;
    }
    bool out(uint32_t selector, std::string& value)
    {
        std::vector<char> buffer(2);
        uint32_t capacity = 2;
        uint32_t result = call(selector, buffer.data(), &capacity);
        if (result == kKivResult_BufferTooSmall)
        {
            buffer.resize(capacity);
            result = call(selector, buffer.data(), &capacity);
        }
        if (result == 0)
            value.assign(buffer.data(), capacity);
        return result == 0;
    }
    bool inOut(uint32_t selector, std::string& value)
    {
        std::vector<char> buffer(value.begin(), value.end());
        buffer.push_back('\0');
        uint32_t capacity = static_cast<uint32_t>(buffer.size());
        uint32_t result = call(selector, buffer.data(), &capacity);
        if (result == kKivResult_BufferTooSmall)
        {
            std::vector<char> grown(capacity + 1, '\0');
            std::memcpy(grown.data(), value.c_str(),
                        value.size() + 1 <= grown.size() ? value.size() + 1 : grown.size());
            buffer.swap(grown);
            capacity = static_cast<uint32_t>(buffer.size());
            result = call(selector, buffer.data(), &capacity);
        }
        if (result == 0)
            value.assign(buffer.data(), capacity);
        return result == 0;
    }
    bool nameOut(uint32_t selector, const std::string& name, std::string& value, uint32_t* index)
    {
        std::string copy = name;
        uint32_t nameSize = static_cast<uint32_t>(copy.size() + 1);
        std::vector<char> buffer(1);
        uint32_t capacity = 1;
        uint32_t result = call(selector, copy.data(), &nameSize, buffer.data(), &capacity, index);
        if (result == kKivResult_BufferTooSmall)
        {
            buffer.resize(capacity);
            result = call(selector, copy.data(), &nameSize, buffer.data(), &capacity, index);
        }
        if (result == 0)
            value.assign(buffer.data(), capacity);
        return result == 0;
    }
    bool pairOut(uint32_t selector, uint32_t index, std::string& name, std::string& value)
    {
        std::vector<char> nameBuffer(1), valueBuffer(1);
        uint32_t nameCapacity = 1, valueCapacity = 1;
        uint32_t result =
            call(selector, nameBuffer.data(), &nameCapacity, valueBuffer.data(), &valueCapacity, &index);
        if (result == kKivResult_BufferTooSmall)
        {
            nameBuffer.resize(nameCapacity + 1);
            valueBuffer.resize(valueCapacity + 1);
            result =
                call(selector, nameBuffer.data(), &nameCapacity, valueBuffer.data(), &valueCapacity, &index);
        }
        if (result == 0)
        {
            name.assign(nameBuffer.data(), nameCapacity);
            value.assign(valueBuffer.data(), valueCapacity);
        }
        return result == 0;
    }
    uint32_t scalar(uint32_t selector)
    {
        uint32_t value = 0;
        call(selector, nullptr, nullptr, nullptr, nullptr, &value);
        return value;
    }
    std::string parameter(const std::string& name)
    {
        std::string value;
        uint32_t index = 0;
        nameOut(kKivServer_GetTagParameter, name, value, &index);
        return value;
    }
    void write(const std::string& text)
    {
        if (text.empty())
            return;
        uint32_t length = static_cast<uint32_t>(text.size());
        call(kKivServer_WriteToServer, const_cast<char*>(text.data()), &length);
    }
};

const struct
{
    const char* name;
    uint32_t flags;
} kTags[] = {{"kivEcho", 0x20},   {"kivEmit", 0x20},   {"kivBody", 0x10}, {"kivRawBody", 0x12},
             {"kivSetVar", 0x20}, {"kivGetVar", 0x20}, {"kivArgs", 0x20}, {"kivFail", 0x20},
             {"kivAbort", 0x20},  {"kivStatus", 0x20}, {"kivPref", 0x20}, {"kivFile", 0x20},
             {"kivInfo", 0x20},   {"kivSleep", 0x20}};

uint32_t processTag(Host& host)
{
    std::string tag;
    host.out(kKivServer_GetTag, tag);
    if (tag == "kivEcho")
    {
        std::string text = "ECHO(";
        uint32_t count = host.scalar(kKivServer_GetTagParameterCount);
        for (uint32_t i = 0; i < count; ++i)
        {
            std::string name, value;
            host.pairOut(kKivServer_GetTagParameterByIndex, i, name, value);
            text += name + "=" + value + ";";
        }
        std::string second;
        uint32_t index = 1;
        if (host.nameOut(kKivServer_GetTagParameter, "a", second, &index))
            text += "second-a=" + second + ";";
        host.write(text + ")");
    }
    else if (tag == "kivEmit")
        host.write(host.parameter("text"));
    else if (tag == "kivBody" || tag == "kivRawBody")
    {
        std::string body;
        host.out(kKivServer_GetTagBody, body);
        host.write((tag == "kivBody" ? "BODY[" : "RAW[") + body + "]");
    }
    else if (tag == "kivSetVar")
        host.sendTwo(kKivServer_SetPageVariable, host.parameter("name"), host.parameter("value"));
    else if (tag == "kivGetVar")
    {
        std::string value;
        host.write(host.nameOut(kKivServer_GetPageVariable, host.parameter("name"), value, nullptr)
                       ? "VAR=" + value
                       : "VAR(missing)");
    }
    else if (tag == "kivArgs")
    {
        std::string path, post, cookie, cgi, name, value;
        uint32_t index = 0;
        host.nameOut(kKivServer_GetPathArgument, host.parameter("path"), path, &index);
        host.nameOut(kKivServer_GetPostArgument, host.parameter("post"), post, &index);
        host.nameOut(kKivServer_GetCookie, host.parameter("cookie"), cookie, nullptr);
        host.nameOut(kKivServer_GetCGIEnvironmentVariable, host.parameter("cgi"), cgi, nullptr);
        std::string text = "PATH=" + path + ";POST=" + post + ";COOKIE=" + cookie + ";CGI=" + cgi + ";POSTS=";
        uint32_t count = host.scalar(kKivServer_GetPostArgumentCount);
        for (uint32_t i = 0; i < count; ++i)
            if (host.pairOut(kKivServer_GetPostArgumentByIndex, i, name, value))
                text += name + ":" + std::to_string(value.size()) + ",";
        host.write(text);
    }
    else if (tag == "kivFail")
    {
        host.sendTwo(kKivServer_SetErrorInformation, host.parameter("headline"), host.parameter("hint"));
        host.write("partial output");
        return kKivResult_UnknownError;
    }
    else if (tag == "kivAbort")
        std::abort();
    else if (tag == "kivSleep")
    {
        // Keeps a request in flight so that a test can stop the server meanwhile.
        ::usleep(static_cast<useconds_t>(std::atoi(host.parameter("ms").c_str())) * 1000);
        host.write("SLEPT");
    }
    else if (tag == "kivStatus")
    {
        std::string code = host.parameter("code");
        if (!code.empty())
        {
            char status[16] = {};
            std::snprintf(status, sizeof status, "%s", code.c_str());
            uint32_t statusSize = 16;
            std::string message = "set by module";
            uint32_t messageSize = static_cast<uint32_t>(message.size() + 1);
            host.call(kKivServer_SetHTTPResponseStatus, status, &statusSize, message.data(), &messageSize);
        }
        std::string header = host.parameter("header");
        if (!header.empty())
            host.write(host.sendTwo(kKivServer_SetHTTPResponseHeader, header, host.parameter("value"))
                           ? "HEADER-OK"
                           : "HEADER-REFUSED");
        std::string location = host.parameter("location");
        if (!location.empty())
            host.sendIn(kKivServer_SetHTTPResponseURI, location);
    }
    else if (tag == "kivPref")
    {
        std::string value;
        host.write(host.nameOut(kKivServer_GetPreference, host.parameter("key"), value, nullptr)
                       ? "PREF=" + value
                       : "PREF(none)");
    }
    else if (tag == "kivFile")
    {
        std::string path = host.parameter("path");
        host.write(host.inOut(kKivServer_VerifyRegionContainsFile, path) ? "FILE-OK:" + path
                                                                         : "FILE-REFUSED");
    }
    else if (tag == "kivInfo")
    {
        std::string urlPath, parent, region;
        host.out(kKivServer_GetURLPath, urlPath);
        host.out(kKivServer_GetURLParentFolderPath, parent);
        host.out(kKivServer_GetAdminRegionPath, region);
        host.write("URL=" + urlPath + ";PARENT=" + parent + ";REGION=" + region +
                   ";LANG=" + std::to_string(host.scalar(kKivServer_GetDefaultLanguage)) +
                   ";PAGEID=" + (host.scalar(kKivServer_GetPageID) != 0 ? "set" : "zero"));
    }
    return 0;
}

} // namespace

extern "C" __attribute__((visibility("default"))) uint32_t
ProcessKivRequest(_KIVAPI_ModuleProcessingInfo* info)
{
    Host host{info};
    switch (info->requestCode)
    {
    case kKivRequest_Initialize:
    {
        bool ok = host.sendIn(kKivServer_RegisterModuleName, "Test Module") &&
                  host.sendIn(kKivServer_RegisterModuleVersion, "1.0") &&
                  host.sendIn(kKivServer_RegisterModuleAuthor, "The kiv-server tests") &&
                  host.sendIn(kKivServer_RegisterModuleDeveloperID, "TEST") &&
                  host.sendIn(kKivServer_RegisterVersionTrackerURL, "http://127.0.0.1/versions");
        for (const auto& tag : kTags)
        {
            uint32_t flags = tag.flags;
            ok = host.sendIn(kKivServer_RegisterForTag, tag.name, &flags) && ok;
        }
        return ok ? 0 : kKivResult_UnknownError;
    }
    case kKivRequest_ProcessTag:
        return processTag(host);
    case kKivRequest_GetPreferences:
    {
        std::string value;
        host.nameOut(kKivServer_GetPreference, "testPref", value, nullptr);
        host.write("<input type=\"text\" name=\"testPref\" value=\"" + value + "\">");
        return 0;
    }
    case kKivRequest_SetPreferences:
    {
        std::string value;
        uint32_t index = 0;
        if (host.nameOut(kKivServer_GetPostArgument, "testPref", value, &index))
            host.sendTwo(kKivServer_SetPreference, "testPref", value);
        return 0;
    }
    case kKivRequest_Terminate:
        if (const char* file = std::getenv("KIV_TEST_TERMINATE_FILE"))
            if (FILE* out = std::fopen(file, "a"))
            {
                std::fprintf(out, "terminated\n");
                std::fclose(out);
            }
        return 0;
    default:
        return kKivResult_UnknownFunction;
    }
}
