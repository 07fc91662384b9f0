// Request and response helpers.
#include "http/HttpMessage.h"

// Boost 1.81's string_view uses std::ostream without including it.
#include <ostream>

#include <boost/beast/http/status.hpp>

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
    if (status < 100 || status > 999)
        return "Unknown";
    auto phrase = boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(unsigned(status)));
    return phrase == "<unknown-status>" ? std::string_view("Unknown")
                                        : std::string_view(phrase.data(), phrase.size());
}

std::string formatHttpDate(time_t when)
{
    tm utc{};
    gmtime_r(&when, &utc);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text;
}

void setRetryAfter(HttpResponse& response, int seconds)
{
    response.setHeader("Retry-After", std::to_string(seconds < 1 ? 1 : seconds));
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
