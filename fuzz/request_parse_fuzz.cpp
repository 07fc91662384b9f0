// Fuzzes the server's own request handling on arbitrary bytes as they arrive on a socket: the
// request head, the body length, query strings, url-encoded and multipart forms, cookies,
// Basic credentials, the same-origin check and the mapping of URL and module paths to files.
// Beyond not crashing, it checks what the server relies on: a complete head is complete only
// once its empty line has arrived, a decoded path never holds a NUL byte, and a path that is
// resolved always lies inside its folder.
// fuzz-link: kivserver_core
#include "common/SafePaths.h"
#include "config/ServerConfig.h"
#include "http/Forms.h"
#include "http/RequestParser.h"
#include "site/SiteHandler.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace
{
namespace fs = std::filesystem;

struct Folders
{
    fs::path root;
    fs::path data;

    Folders()
    {
        const fs::path base = fs::temp_directory_path() / ("kiv-request-fuzz-" + std::to_string(::getpid()));
        fs::remove_all(base);
        fs::create_directories(base / "site" / "people");
        fs::create_directories(base / "data" / "exports");
        root = fs::canonical(base / "site");
        data = fs::canonical(base / "data");
    }

    ~Folders()
    {
        std::error_code error;
        fs::remove_all(root.parent_path(), error);
    }
};

kiv::ServerLimits smallLimits()
{
    kiv::ServerLimits limits;
    limits.maxRequestLine = 512;
    limits.maxHeaderBytes = 2048;
    limits.maxHeaderCount = 16;
    limits.maxBodyBytes = 4096;
    return limits;
}

void checkConfined(const fs::path& folder, const std::optional<fs::path>& resolved)
{
    if (resolved && !kiv::isInsideFolder(folder, fs::weakly_canonical(*resolved)))
        std::abort(); // a request reached a file outside its folder
}

void useRequest(const Folders& folders, kiv::HttpRequest& request, std::string_view rest,
                const kiv::ServerLimits& limits)
{
    if (request.path.find('\0') != std::string::npos)
        std::abort();
    checkConfined(folders.root, kiv::resolveUrlPath(folders.root, request.path));
    checkConfined(folders.data, kiv::resolveFileInFolder(folders.data, request.path));
    checkConfined(folders.data, kiv::resolveFileInFolder(folders.data, request.queryString));

    kiv::BodyLength body = kiv::determineBodyLength(request, limits);
    if (body.errorStatus == 0 && body.length > limits.maxBodyBytes)
        std::abort(); // an accepted body is never over the limit
    if (body.errorStatus == 0)
        request.body = std::string(rest.substr(0, body.length));

    (void)kiv::parseUrlEncoded(request.queryString);
    (void)kiv::parsePostArguments(request);
    if (const std::string* cookie = request.header("Cookie"))
        (void)kiv::parseCookies(*cookie);
    if (const std::string* authorization = request.header("Authorization"))
    {
        std::string user;
        std::string password;
        (void)kiv::decodeBasicCredentials(*authorization, user, password);
    }
    (void)kiv::isSameOrigin(request);
    (void)request.wantsKeepAlive();
    (void)request.requestLine();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Folders folders;
    static const kiv::ServerLimits limits = smallLimits();
    const std::string_view received(reinterpret_cast<const char*>(data), size);

    kiv::HttpRequest request;
    const kiv::HeadParseResult head = kiv::parseRequestHead(received, limits, request);
    if (head.status == kiv::HeadStatus::Invalid && head.errorStatus < 400)
        std::abort(); // a refusal always names the status to answer with
    if (head.status == kiv::HeadStatus::Complete)
    {
        if (head.headLength < 4 || head.headLength > size ||
            received.substr(head.headLength - 4, 4) != "\r\n\r\n")
            std::abort();
        // The same bytes without their last one were not yet a whole head.
        kiv::HttpRequest partial;
        if (kiv::parseRequestHead(received.substr(0, head.headLength - 1), limits, partial).status ==
            kiv::HeadStatus::Complete)
            std::abort();
        useRequest(folders, request, received.substr(head.headLength), limits);
    }

    // The form and cookie decoders on the raw bytes, whatever the head parser made of them.
    (void)kiv::parseUrlEncoded(received);
    (void)kiv::parseCookies(received);
    (void)kiv::multipartBoundary(received);
    (void)kiv::parseMultipart(received, "XyZ");
    const size_t newline = received.find('\n');
    if (newline != std::string_view::npos && newline > 0)
        (void)kiv::parseMultipart(received.substr(newline + 1), received.substr(0, newline));
    return 0;
}
