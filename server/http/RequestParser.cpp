// HTTP/1.x request head parsing.
#include "http/RequestParser.h"

namespace kiv
{

namespace
{

bool isTokenCharacter(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (!isTokenCharacter(c))
            return false;
    return true;
}

HeadParseResult invalid(int status)
{
    return {HeadStatus::Invalid, status, 0};
}

HeadParseResult parseRequestLine(std::string_view line, HttpRequest& request)
{
    size_t firstSpace = line.find(' ');
    size_t lastSpace = line.rfind(' ');
    if (firstSpace == std::string_view::npos || firstSpace == lastSpace)
        return invalid(400);
    std::string_view method = line.substr(0, firstSpace);
    std::string_view target = line.substr(firstSpace + 1, lastSpace - firstSpace - 1);
    std::string_view version = line.substr(lastSpace + 1);
    if (!isToken(method) || target.empty() || target.find(' ') != std::string_view::npos)
        return invalid(400);
    if (version.size() != 8 || version.substr(0, 7) != "HTTP/1.")
        return invalid(version.rfind("HTTP/", 0) == 0 ? 505 : 400);
    if (version[7] != '0' && version[7] != '1')
        return invalid(505);
    for (char c : target)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F)
            return invalid(400);

    request.method = std::string(method);
    request.minorVersion = version[7] - '0';
    request.target = std::string(target);
    std::string_view pathPart = target;
    if (target[0] != '/')
    {
        // Absolute form (a proxy-style request): keep only the path.
        size_t scheme = target.find("://");
        if (scheme == std::string_view::npos)
            return invalid(400);
        size_t slash = target.find('/', scheme + 3);
        pathPart = slash == std::string_view::npos ? std::string_view("/") : target.substr(slash);
    }
    size_t question = pathPart.find('?');
    if (question != std::string_view::npos)
    {
        request.queryString = std::string(pathPart.substr(question + 1));
        pathPart = pathPart.substr(0, question);
    }
    size_t fragment = request.queryString.find('#');
    if (fragment != std::string::npos)
        request.queryString.resize(fragment);
    if (!percentDecode(pathPart, false, request.path) || request.path.find('\0') != std::string::npos)
        return invalid(400);
    return {HeadStatus::Complete, 0, 0};
}

} // namespace

HeadParseResult parseRequestHead(std::string_view received, const ServerLimits& limits, HttpRequest& request)
{
    // Browsers may send an empty line between requests on one connection.
    size_t start = 0;
    while (start + 1 < received.size() && received[start] == '\r' && received[start + 1] == '\n')
        start += 2;
    std::string_view text = received.substr(start);

    size_t lineEnd = text.find("\r\n");
    if (lineEnd == std::string_view::npos)
    {
        if (text.size() > limits.maxRequestLine)
            return invalid(414);
        return {};
    }
    if (lineEnd > limits.maxRequestLine)
        return invalid(414);

    size_t headEnd = text.find("\r\n\r\n");
    if (headEnd == std::string_view::npos)
    {
        if (text.size() > limits.maxHeaderBytes)
            return invalid(431);
        return {};
    }
    if (headEnd + 4 > limits.maxHeaderBytes)
        return invalid(431);

    HeadParseResult result = parseRequestLine(text.substr(0, lineEnd), request);
    if (result.status != HeadStatus::Complete)
        return result;

    request.headers.clear();
    size_t position = lineEnd + 2;
    while (position < headEnd + 2)
    {
        size_t end = text.find("\r\n", position);
        std::string_view line = text.substr(position, end - position);
        position = end + 2;
        if (line.empty())
            break;
        if (line[0] == ' ' || line[0] == '\t')
            return invalid(400); // obsolete line folding is refused
        size_t colon = line.find(':');
        if (colon == std::string_view::npos || !isToken(line.substr(0, colon)))
            return invalid(400);
        if (request.headers.size() >= limits.maxHeaderCount)
            return invalid(431);
        std::string_view value = trim(line.substr(colon + 1), " \t");
        for (char c : value)
            if (c == '\0' || c == '\r' || c == '\n')
                return invalid(400);
        request.headers.emplace_back(std::string(line.substr(0, colon)), std::string(value));
    }
    // Exactly one Host header: two would let the region chosen here differ from the host a
    // proxy in front checked.
    size_t hosts = 0;
    for (const auto& header : request.headers)
        hosts += equalsIgnoringCase(header.first, "Host") ? 1 : 0;
    if (hosts > 1 || (request.minorVersion == 1 && hosts == 0))
        return invalid(400);
    return {HeadStatus::Complete, 0, start + headEnd + 4};
}

BodyLength determineBodyLength(const HttpRequest& request, const ServerLimits& limits)
{
    // Bodies are framed by Content-Length only. Every Transfer-Encoding header is refused,
    // "identity" and a second header behind a harmless first one included: a proxy in front
    // that framed the body by it would see a different request boundary (request smuggling).
    for (const auto& [name, value] : request.headers)
        if (equalsIgnoringCase(name, "Transfer-Encoding"))
            return {0, 411};
    const std::string* lengthText = request.header("Content-Length");
    if (!lengthText)
        return {0, 0};
    if (lengthText->empty() || lengthText->size() > 18)
        return {0, lengthText->empty() ? 400 : 413};
    size_t length = 0;
    for (char c : *lengthText)
    {
        if (c < '0' || c > '9')
            return {0, 400};
        length = length * 10 + static_cast<size_t>(c - '0');
    }
    // Two different Content-Length headers make the request ambiguous.
    for (const auto& [name, value] : request.headers)
        if (equalsIgnoringCase(name, "Content-Length") && value != *lengthText)
            return {0, 400};
    if (length > limits.maxBodyBytes)
        return {length, 413};
    return {length, 0};
}

} // namespace kiv
