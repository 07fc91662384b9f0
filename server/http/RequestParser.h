// Parses the head of an HTTP/1.x request (request line and header fields) from the bytes
// received so far, enforcing the size limits before anything is stored.
#pragma once

#include "config/ServerConfig.h"
#include "http/HttpMessage.h"

#include <string_view>

namespace kiv
{

enum class HeadStatus
{
    Incomplete, // more bytes needed
    Complete,
    Invalid // errorStatus says which response to send before closing
};

struct HeadParseResult
{
    HeadStatus status = HeadStatus::Incomplete;
    int errorStatus = 0;   // 400, 414, 431, 501, 505 when Invalid
    size_t headLength = 0; // bytes up to and including the empty line, when Complete
};

HeadParseResult parseRequestHead(std::string_view received, const ServerLimits& limits, HttpRequest& request);

// How many body bytes follow the head: the Content-Length, or an error status (400 for a
// malformed or ambiguous length, 411 for any Transfer-Encoding, which the server does not
// accept, 413 when the body exceeds the limit).
struct BodyLength
{
    size_t length = 0;
    int errorStatus = 0;
};
BodyLength determineBodyLength(const HttpRequest& request, const ServerLimits& limits);

} // namespace kiv
