// Form, query and cookie decoding.
#include "http/Forms.h"

#include <algorithm>

namespace kiv
{

NameValueList parseUrlEncoded(std::string_view text)
{
    NameValueList pairs;
    size_t start = 0;
    while (start <= text.size())
    {
        size_t end = text.find('&', start);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view piece = text.substr(start, end - start);
        if (!piece.empty())
        {
            size_t equals = piece.find('=');
            std::string_view rawName = piece.substr(0, equals);
            std::string_view rawValue = equals == std::string_view::npos ? "" : piece.substr(equals + 1);
            std::string name, value;
            if (!percentDecode(rawName, true, name))
                name = std::string(rawName);
            if (!percentDecode(rawValue, true, value))
                value = std::string(rawValue);
            pairs.emplace_back(std::move(name), std::move(value));
        }
        start = end + 1;
    }
    return pairs;
}

namespace
{

// The value of a parameter such as boundary="x" or name=x inside a header value.
std::string headerParameter(std::string_view headerValue, std::string_view parameter)
{
    size_t position = 0;
    while ((position = findIgnoringCase(headerValue, parameter, position)) != std::string_view::npos)
    {
        bool atStart = position == 0 || headerValue[position - 1] == ';' ||
                       headerValue[position - 1] == ' ' || headerValue[position - 1] == '\t';
        size_t after = position + parameter.size();
        if (!atStart || after >= headerValue.size() || headerValue[after] != '=')
        {
            position = after;
            continue;
        }
        std::string_view rest = headerValue.substr(after + 1);
        if (!rest.empty() && rest[0] == '"')
        {
            std::string value;
            for (size_t i = 1; i < rest.size() && rest[i] != '"'; ++i)
            {
                if (rest[i] == '\\' && i + 1 < rest.size())
                    ++i;
                value += rest[i];
            }
            return value;
        }
        return std::string(trim(rest.substr(0, rest.find(';')), " \t"));
    }
    return {};
}

} // namespace

std::string multipartBoundary(std::string_view contentType)
{
    if (!startsWithIgnoringCase(trim(contentType), "multipart/form-data"))
        return {};
    return headerParameter(contentType, "boundary");
}

std::optional<NameValueList> parseMultipart(std::string_view body, std::string_view boundary,
                                            NameValueList* fileNames)
{
    if (boundary.empty() || boundary.size() > 200)
        return std::nullopt;
    const std::string delimiter = "--" + std::string(boundary);
    const std::string separator = "\r\n" + delimiter;
    size_t position = body.find(delimiter);
    if (position == std::string_view::npos)
        return std::nullopt;
    NameValueList fields;
    while (true)
    {
        position += delimiter.size();
        if (body.substr(position, 2) == "--")
            return fields; // closing delimiter
        if (body.substr(position, 2) != "\r\n")
            return std::nullopt;
        position += 2;
        size_t headEnd = body.find("\r\n\r\n", position);
        if (headEnd == std::string_view::npos)
            return std::nullopt;
        std::string_view head = body.substr(position, headEnd - position);
        size_t contentStart = headEnd + 4;
        size_t next = body.find(separator, contentStart);
        if (next == std::string_view::npos)
            return std::nullopt;
        std::string name;
        std::string fileName;
        size_t lineStart = 0;
        while (lineStart <= head.size())
        {
            size_t lineEnd = head.find("\r\n", lineStart);
            if (lineEnd == std::string_view::npos)
                lineEnd = head.size();
            std::string_view line = head.substr(lineStart, lineEnd - lineStart);
            if (startsWithIgnoringCase(line, "Content-Disposition:"))
            {
                name = headerParameter(line, "name");
                fileName = headerParameter(line, "filename");
            }
            lineStart = lineEnd + 2;
        }
        if (fields.size() >= kMaxFormFields)
            return std::nullopt;
        if (fileNames && !name.empty() && !fileName.empty())
            fileNames->emplace_back(name, fileName);
        if (!name.empty())
            fields.emplace_back(std::move(name), std::string(body.substr(contentStart, next - contentStart)));
        position = next + 2;
    }
}

NameValueList parseCookies(std::string_view cookieHeader)
{
    NameValueList cookies;
    size_t start = 0;
    while (start < cookieHeader.size())
    {
        size_t end = cookieHeader.find(';', start);
        if (end == std::string_view::npos)
            end = cookieHeader.size();
        std::string_view piece = trim(cookieHeader.substr(start, end - start), " \t");
        size_t equals = piece.find('=');
        if (equals != std::string_view::npos && equals > 0)
        {
            std::string_view value = trim(piece.substr(equals + 1), " \t");
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
                value = value.substr(1, value.size() - 2);
            cookies.emplace_back(std::string(trim(piece.substr(0, equals), " \t")), std::string(value));
        }
        start = end + 1;
    }
    return cookies;
}

std::optional<NameValueList> parsePostArguments(const HttpRequest& request)
{
    if (request.method != "POST")
        return NameValueList{};
    std::string contentType = request.headerOr("Content-Type");
    std::string boundary = multipartBoundary(contentType);
    if (!boundary.empty())
        return parseMultipart(request.body, boundary);
    if (startsWithIgnoringCase(trim(contentType), "application/x-www-form-urlencoded") || contentType.empty())
    {
        if (static_cast<size_t>(std::count(request.body.begin(), request.body.end(), '&')) >= kMaxFormFields)
            return std::nullopt;
        return parseUrlEncoded(request.body);
    }
    return NameValueList{};
}

} // namespace kiv
