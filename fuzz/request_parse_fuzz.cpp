// Fuzzes the server's own request handling on arbitrary bytes as they arrive on a socket: the
// request reader (the server's rules around Boost.Beast's parser: limits, blank lines, body
// framing, target decoding), query strings, url-encoded and multipart forms, cookies, Basic
// credentials, the same-origin check and the mapping of URL and module paths to files.
// Beyond not crashing, it checks what the server relies on: the bytes read in one piece and
// in small pieces give the same request (or the same refusal), a refusal names its status, an
// accepted body is within the limit, a decoded path never holds a NUL byte, and a path that is
// resolved always lies inside its folder.
// fuzz-link: kivserver_core
#include "common/SafePaths.h"
#include "config/ServerConfig.h"
#include "http/Forms.h"
#include "http/RequestReader.h"
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
    if (!resolved)
        return;
    // A name too long for the file system cannot be resolved again; it cannot be opened
    // either, so its lexical form is what is compared.
    std::error_code error;
    fs::path real = fs::weakly_canonical(*resolved, error);
    if (error)
        real = resolved->lexically_normal();
    if (!kiv::isInsideFolder(folder, real))
        std::abort(); // a request reached a file outside its folder
}

void useRequest(const Folders& folders, kiv::HttpRequest& request, const kiv::ServerLimits& limits)
{
    if (request.path.find('\0') != std::string::npos)
        std::abort();
    if (request.body.size() > limits.maxBodyBytes)
        std::abort(); // an accepted body is never over the limit
    checkConfined(folders.root, kiv::resolveUrlPath(folders.root, request.path));
    checkConfined(folders.data, kiv::resolveFileInFolder(folders.data, request.path));
    checkConfined(folders.data, kiv::resolveFileInFolder(folders.data, request.queryString));

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

struct Outcome
{
    kiv::ReadState state = kiv::ReadState::NeedMore;
    int status = 0;
    size_t used = 0;
};

// Offers the bytes in pieces of the given size, the unused ones again with the next piece, as
// the connection layer does.
Outcome readInPieces(kiv::RequestReader& reader, std::string_view received, size_t piece)
{
    Outcome outcome;
    std::string unused;
    for (size_t offset = 0; offset < received.size();)
    {
        size_t take = std::min(piece, received.size() - offset);
        unused.append(received.substr(offset, take));
        offset += take;
        do
        {
            size_t used = reader.feed(unused);
            if (used > unused.size())
                std::abort();
            unused.erase(0, used);
            outcome.used += used;
        } while (reader.state() == kiv::ReadState::HeadReady);
        if (reader.state() == kiv::ReadState::Complete || reader.state() == kiv::ReadState::Refused)
            break;
    }
    outcome.state = reader.state();
    outcome.status = reader.refusalStatus();
    return outcome;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Folders folders;
    static const kiv::ServerLimits limits = smallLimits();
    const std::string_view received(reinterpret_cast<const char*>(data), size);

    kiv::RequestReader whole(limits);
    const Outcome inOnePiece = readInPieces(whole, received, received.size() + 1);
    if (inOnePiece.state == kiv::ReadState::Refused && inOnePiece.status < 400)
        std::abort(); // a refusal always names the status to answer with
    // The first byte picks how small the pieces are: the reader must not depend on where a
    // read happens to end.
    kiv::RequestReader pieces(limits);
    const Outcome inPieces = readInPieces(pieces, received, size == 0 ? 1 : 1 + data[0] % 13);
    if (inPieces.state != inOnePiece.state || inPieces.status != inOnePiece.status)
        std::abort();
    if (inOnePiece.state == kiv::ReadState::Complete)
    {
        const kiv::HttpRequest& a = whole.request();
        const kiv::HttpRequest& b = pieces.request();
        if (inPieces.used != inOnePiece.used || a.method != b.method || a.target != b.target ||
            a.headers != b.headers || a.body != b.body)
            std::abort();
        useRequest(folders, whole.request(), limits);
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
