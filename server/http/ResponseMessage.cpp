// Responses onto the wire.
#include "http/ResponseMessage.h"

#include "logging/Log.h"

#include <boost/beast/core/file.hpp>
#include <boost/beast/http/file_body.hpp>
#include <boost/beast/http/string_body.hpp>

namespace kiv
{

namespace http = boost::beast::http;

namespace
{

bool statusHasBody(int status)
{
    return status >= 200 && status != 204 && status != 304;
}

// Formatting the date for every response is waste: it changes once a second.
const std::string& currentDate()
{
    thread_local time_t second = 0;
    thread_local std::string text;
    time_t now = ::time(nullptr);
    if (now != second)
    {
        text = formatHttpDate(now);
        second = now;
    }
    return text;
}

http::response_header<> makeHead(const HttpResponse& response, const ResponseFraming& framing)
{
    http::response_header<> head;
    head.version(11);
    // A module can set any status; one that cannot go on a status line becomes a server error.
    head.result(response.status >= 100 && response.status <= 999 ? unsigned(response.status) : 500u);
    for (const auto& [name, value] : response.headers)
    {
        // The last guard against response splitting, whoever set the header.
        if (!isSafeHeaderName(name) || !isSafeHeaderValue(value))
        {
            writeServerLog(LogKind::Error, {},
                           "dropped a response header with line breaks or control characters: " + name);
            continue;
        }
        head.insert(name, value);
    }
    head.set(http::field::date, currentDate());
    if (!response.header("Server"))
        head.set(http::field::server, "kiv-server");
    // Also on the answers the connection layer makes before any site sees the request.
    if (!response.header("X-Content-Type-Options"))
        head.set("X-Content-Type-Options", "nosniff");
    head.set(http::field::connection, framing.keepAlive ? "keep-alive" : "close");
    return head;
}

} // namespace

uint64_t bodyBytesOf(const HttpResponse& response, const ResponseFraming& framing)
{
    if (framing.headRequest || !statusHasBody(response.status))
        return 0;
    return response.bodyFile.isOpen() ? response.bodyFileSize : response.body.size();
}

http::message_generator makeResponseMessage(HttpResponse&& response, const ResponseFraming& framing)
{
    http::response_header<> head = makeHead(response, framing);
    bool hasBody = statusHasBody(static_cast<int>(head.result_int()));
    if (hasBody && response.bodyFile.isOpen() && !framing.headRequest)
    {
        http::response<http::file_body> message(std::move(head));
        boost::beast::file file;
        file.native_handle(response.bodyFile.release());
        boost::beast::error_code error;
        message.body().reset(std::move(file), error);
        if (!error && message.body().size() == response.bodyFileSize)
        {
            message.content_length(response.bodyFileSize);
            return http::message_generator(std::move(message));
        }
        // The file changed between the site's look at it and now: its old length would
        // break the framing.
        writeServerLog(LogKind::Error, {}, "a static file changed while it was being sent; answered 500");
        return makeResponseMessage(makeErrorResponse(500), {framing.headRequest, false});
    }
    http::response<http::string_body> message(std::move(head));
    if (hasBody)
    {
        message.content_length(response.bodyFile.isOpen() ? response.bodyFileSize : response.body.size());
        if (!framing.headRequest)
            message.body() = std::move(response.body);
    }
    return http::message_generator(std::move(message));
}

} // namespace kiv
