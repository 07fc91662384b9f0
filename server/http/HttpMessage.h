// One HTTP request as the server read it and the response the site builds for it.
#pragma once

#include "common/FileDescriptor.h"
#include "common/Text.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace kiv
{

struct HttpRequest
{
    std::string method;
    std::string target;      // as sent: "/people/?page=2"
    std::string path;        // percent-decoded path: "/people/"
    std::string queryString; // raw text after '?', without it
    int minorVersion = 1;    // HTTP/1.<minorVersion>
    NameValueList headers;   // names as sent, in order
    std::string body;
    std::string remoteAddress;
    uint16_t remotePort = 0;
    uint16_t localPort = 0;
    bool secure = false; // arrived over TLS
    std::string user;    // set once HTTP authentication succeeded
    std::string region;  // set by the site: the region that answers (for the metrics)

    // The first header of this name (case-insensitive), or nullptr.
    const std::string* header(std::string_view name) const;
    std::string headerOr(std::string_view name, std::string_view fallback = {}) const;
    bool wantsKeepAlive() const;
    std::string requestLine() const;
};

struct HttpResponse
{
    int status = 200;
    NameValueList headers;
    std::string body;
    // A static file's content, sent from disk a piece at a time instead of body.
    FileDescriptor bodyFile;
    uint64_t bodyFileSize = 0;
    bool closeConnection = false;

    // Replaces every header of this name (case-insensitive) with one value.
    void setHeader(std::string_view name, std::string_view value);
    void addHeader(std::string_view name, std::string_view value);
    const std::string* header(std::string_view name) const;
};

std::string_view reasonPhrase(int status);

// An HTTP date: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string formatHttpDate(time_t when);

// How long a refused client should wait before it tries again, for 429 and 503 answers.
void setRetryAfter(HttpResponse& response, int seconds);

// Whether a header can go on the wire as it is: a token name and a value without control
// characters (tab aside), so that no value can end its line and start another header or
// the body.
bool isSafeHeaderName(std::string_view name);
bool isSafeHeaderValue(std::string_view value);

// A small complete HTML page for an error status ("404 Not Found" and a sentence).
HttpResponse makeErrorResponse(int status, std::string_view explanation = {});

} // namespace kiv
