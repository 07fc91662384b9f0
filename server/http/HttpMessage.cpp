// Request and response helpers.
#include "http/HttpMessage.h"

namespace kiv
{

const std::string* HttpRequest::header(std::string_view name) const
{
    for (const auto& [key, value] : headers)
        if (equalsIgnoringCase(key, name))
            return &value;
    return nullptr;
}

std::string HttpRequest::headerOr(std::string_view name, std::string_view fallback) const
{
    const std::string* value = header(name);
    return value ? *value : std::string(fallback);
}

bool HttpRequest::wantsKeepAlive() const
{
    std::string connection = toLower(headerOr("Connection"));
    if (connection.find("close") != std::string::npos)
        return false;
    if (minorVersion == 0)
        return connection.find("keep-alive") != std::string::npos;
    return true;
}

std::string HttpRequest::requestLine() const
{
    return method + " " + target + " HTTP/1." + std::to_string(minorVersion);
}

void HttpResponse::setHeader(std::string_view name, std::string_view value)
{
    for (size_t i = 0; i < headers.size();)
    {
        if (equalsIgnoringCase(headers[i].first, name))
            headers.erase(headers.begin() + static_cast<long>(i));
        else
            ++i;
    }
    addHeader(name, value);
}

void HttpResponse::addHeader(std::string_view name, std::string_view value)
{
    headers.emplace_back(std::string(name), std::string(value));
}

const std::string* HttpResponse::header(std::string_view name) const
{
    for (const auto& [key, value] : headers)
        if (equalsIgnoringCase(key, name))
            return &value;
    return nullptr;
}

bool isSafeHeaderName(std::string_view name)
{
    if (name.empty())
        return false;
    for (char c : name)
    {
        bool letterOrDigit = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letterOrDigit && std::string_view("!#$%&'*+-.^_`|~").find(c) == std::string_view::npos)
            return false;
    }
    return true;
}

bool isSafeHeaderValue(std::string_view value)
{
    for (char c : value)
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F)
            return false;
    return true;
}

std::string_view reasonPhrase(int status)
{
    switch (status)
    {
    case 100:
        return "Continue";
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 303:
        return "See Other";
    case 304:
        return "Not Modified";
    case 307:
        return "Temporary Redirect";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 411:
        return "Length Required";
    case 413:
        return "Payload Too Large";
    case 414:
        return "URI Too Long";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 501:
        return "Not Implemented";
    case 503:
        return "Service Unavailable";
    case 505:
        return "HTTP Version Not Supported";
    default:
        return "Unknown";
    }
}

HttpResponse makeErrorResponse(int status, std::string_view explanation)
{
    HttpResponse response;
    response.status = status;
    std::string title = std::to_string(status) + " " + std::string(reasonPhrase(status));
    response.body = "<!DOCTYPE html>\n<html><head><title>" + title + "</title></head><body><h1>" + title +
                    "</h1>" + (explanation.empty() ? "" : "<p>" + htmlEncode(explanation) + "</p>") +
                    "</body></html>\n";
    response.setHeader("Content-Type", "text/html; charset=ISO-8859-1");
    return response;
}

} // namespace kiv
