// The server's rules around Beast's request parser. The head is checked as its bytes arrive
// (request line, head size, folded lines, NUL bytes) and handed to the parser only once its
// empty line is here, so a client that never finishes its head costs at most the head limit
// and never a parser call per byte. The body is parsed as it arrives, chunked or not.
#include "http/RequestReader.h"

#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>

#include <algorithm>
#include <limits>

namespace kiv
{

namespace http = boost::beast::http;
using boost::beast::error_code;

namespace
{

// Bodies are appended as they arrive; reserving what a client merely announces would let
// a few connections that declare large bodies and send nothing hold that memory.
constexpr size_t kMaxBodyReservation = 64 * 1024;

std::string_view view(boost::beast::string_view text)
{
    return {text.data(), text.size()};
}

bool isDigits(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Origin form ("/a?b") or absolute form ("http://host/a?b", from clients that talk to a proxy):
// the percent-decoded path and the raw query, without a fragment.
bool decodeTarget(std::string_view target, HttpRequest& request)
{
    std::string_view pathPart = target;
    if (target.front() != '/')
    {
        size_t scheme = target.find("://");
        if (scheme == std::string_view::npos)
            return false;
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
    return percentDecode(pathPart, false, request.path) && request.path.find('\0') == std::string::npos;
}

} // namespace

// Beast calls these as it parses; they build the HttpRequest directly (no second copy of the
// fields) and refuse what the server does not accept by setting the reader's refusal.
class RequestReader::Parser : public http::basic_parser<true>
{
public:
    explicit Parser(RequestReader& reader) : myReader(reader)
    {
        const ServerLimits& limits = reader.myLimits;
        // The reader enforces the head limit itself, counting blank lines; Beast's own check
        // only has to stay out of its way.
        header_limit(static_cast<std::uint32_t>(
            std::min<size_t>(limits.maxHeaderBytes + 4, std::numeric_limits<std::uint32_t>::max())));
        body_limit(static_cast<std::uint64_t>(limits.maxBodyBytes));
    }

private:
    void refuse(int status, std::string reason, error_code& ec)
    {
        myReader.myRefusalStatus = status;
        myReader.myRefusalReason = std::move(reason);
        ec = http::error::bad_value;
    }

    void on_request_impl(http::verb, boost::beast::string_view method, boost::beast::string_view target,
                         int version, error_code& ec) override
    {
        HttpRequest& request = myReader.myRequest;
        request.method = std::string(view(method));
        request.target = std::string(view(target));
        request.minorVersion = version % 10;
        if (!decodeTarget(request.target, request))
            refuse(400, "a malformed request target", ec);
    }

    void on_response_impl(int, boost::beast::string_view, int, error_code&) override {}

    void on_field_impl(http::field field, boost::beast::string_view name, boost::beast::string_view value,
                       error_code& ec) override
    {
        // Trailer fields after a chunked body are not headers: a Host or Content-Length there
        // must not change what was already decided.
        if (is_header_done())
            return;
        HttpRequest& request = myReader.myRequest;
        if (request.headers.size() >= myReader.myLimits.maxHeaderCount)
            return refuse(
                431, "more than " + std::to_string(myReader.myLimits.maxHeaderCount) + " header fields", ec);
        if (field == http::field::host)
            ++myHosts;
        else if (field == http::field::transfer_encoding)
            ++myTransferEncodings;
        else if (field == http::field::content_length)
        {
            // Beast accepts "5, 5"; a proxy in front might not read it the same way.
            if (!isDigits(view(value)))
                return refuse(400, "a Content-Length that is not a plain number", ec);
            myHasContentLength = true;
        }
        request.headers.emplace_back(std::string(view(name)), std::string(view(value)));
    }

    void on_header_impl(error_code& ec) override
    {
        HttpRequest& request = myReader.myRequest;
        // Exactly one Host: two would let the region chosen here differ from the host a proxy
        // in front checked.
        if (myHosts > 1 || (request.minorVersion == 1 && myHosts == 0))
            return refuse(400, myHosts > 1 ? "two Host headers" : "an HTTP/1.1 request without Host", ec);
        if (myTransferEncodings == 0)
            return;
        // One framing for every body: "chunked" alone, never beside a Content-Length, so that
        // no proxy in front can see a request boundary this server does not (smuggling).
        if (request.minorVersion == 0)
            return refuse(400, "Transfer-Encoding in an HTTP/1.0 request", ec);
        if (myHasContentLength)
            return refuse(400, "both Transfer-Encoding and Content-Length", ec);
        if (myTransferEncodings > 1 ||
            !equalsIgnoringCase(trim(request.headerOr("Transfer-Encoding")), "chunked"))
            return refuse(501, "a transfer coding other than chunked", ec);
    }

    void on_body_init_impl(const boost::optional<std::uint64_t>& length, error_code&) override
    {
        if (length)
            myReader.myRequest.body.reserve(
                static_cast<size_t>(std::min<std::uint64_t>(*length, kMaxBodyReservation)));
    }

    size_t on_body_impl(boost::beast::string_view body, error_code&) override
    {
        myReader.myRequest.body.append(body.data(), body.size());
        return body.size();
    }

    void on_chunk_header_impl(std::uint64_t, boost::beast::string_view, error_code&) override {}

    size_t on_chunk_body_impl(std::uint64_t, boost::beast::string_view body, error_code&) override
    {
        myReader.myRequest.body.append(body.data(), body.size());
        return body.size();
    }

    void on_finish_impl(error_code&) override {}

    RequestReader& myReader;
    int myHosts = 0;
    int myTransferEncodings = 0;
    bool myHasContentLength = false;
};

RequestReader::RequestReader(const ServerLimits& limits) : myLimits(limits)
{
    reset();
}

RequestReader::~RequestReader() = default;

void RequestReader::reset()
{
    myRequest = HttpRequest();
    myParser = std::make_unique<Parser>(*this);
    myState = ReadState::NeedMore;
    myRefusalStatus = 0;
    myRefusalReason.clear();
    myHeadConsumed = myScanned = myLineStart = myHeadEnd = 0;
    myLineBegun = myLineEnded = myAtLineStart = myPendingReturn = false;
}

bool RequestReader::expectsContinue() const
{
    return myState == ReadState::HeadReady && myRequest.minorVersion == 1 &&
           equalsIgnoringCase(trim(myRequest.headerOr("Expect")), "100-continue");
}

size_t RequestReader::refuse(int status, std::string reason, size_t used)
{
    myState = ReadState::Refused;
    myRefusalStatus = status;
    myRefusalReason = std::move(reason);
    return used;
}

// Empty lines before a request line are allowed (some clients send one after a body), but
// they are head bytes like any other: an endless stream of them meets the head limit.
size_t RequestReader::skipBlankLines(std::string_view bytes)
{
    size_t at = 0;
    while (at < bytes.size())
    {
        if (bytes[at] == '\n')
            ++at;
        else if (bytes[at] == '\r' && at + 1 < bytes.size() && bytes[at + 1] == '\n')
            at += 2;
        else
            break;
    }
    return at;
}

// Checks the head bytes not seen before: the request line's length, NUL bytes, folded lines
// (a proxy that does not unfold them would read other headers), and the head's size; notes
// where the head ends. False when the request is refused.
bool RequestReader::scanHead(std::string_view unused)
{
    const size_t maxLine = myLimits.maxRequestLine;
    const size_t end = myHeadConsumed + unused.size();
    size_t at = myScanned;
    for (; at < end && myHeadEnd == 0; ++at)
    {
        char c = unused[at - myHeadConsumed];
        if (at + 1 > myLimits.maxHeaderBytes)
        {
            refuse(431, "a request head over " + std::to_string(myLimits.maxHeaderBytes) + " bytes", 0);
            return false;
        }
        if (c == '\0')
        {
            refuse(400, "a NUL byte in the request head", 0);
            return false;
        }
        if (!myLineEnded)
        {
            size_t length = at - myLineStart;
            if (c == '\n')
            {
                myLineEnded = myAtLineStart = true;
                length -= (length > 0 && unused[at - myHeadConsumed - 1] == '\r') ? 1 : 0;
            }
            if (length > maxLine || (length == maxLine && c != '\r' && c != '\n'))
            {
                refuse(414, "a request line over " + std::to_string(maxLine) + " bytes", 0);
                return false;
            }
            continue;
        }
        bool lineStart = myAtLineStart;
        myAtLineStart = c == '\n';
        if (myPendingReturn)
        {
            myPendingReturn = false;
            if (c == '\n')
                myHeadEnd = at + 1;
            continue;
        }
        if (!lineStart)
            continue;
        if (c == ' ' || c == '\t')
        {
            refuse(400, "a folded header line", 0);
            return false;
        }
        if (c == '\r')
            myPendingReturn = true;
        else if (c == '\n')
            myHeadEnd = at + 1;
    }
    myScanned = at;
    return true;
}

int RequestReader::statusForParserError(int code, std::string_view unused) const
{
    switch (static_cast<http::error>(code))
    {
    case http::error::header_limit:
        return 431;
    case http::error::body_limit:
        return 413;
    case http::error::bad_version:
    {
        // "HTTP/2.0" is a version this server does not speak; "FTP/1.0" is not HTTP at all.
        std::string_view line = unused.substr(0, unused.find_first_of("\r\n"));
        std::string_view version = line.substr(line.rfind(' ') + 1);
        bool wellFormed = version.size() == 8 && version.substr(0, 5) == "HTTP/" &&
                          isDigits(version.substr(5, 1)) && version[6] == '.' &&
                          isDigits(version.substr(7, 1));
        return wellFormed && version != "HTTP/1.0" && version != "HTTP/1.1" ? 505 : 400;
    }
    default:
        return 400;
    }
}

size_t RequestReader::feed(std::string_view bytes)
{
    if (myState == ReadState::Complete || myState == ReadState::Refused)
        return 0;
    size_t used = 0;
    const bool readingHead = !myParser->is_header_done();
    if (readingHead)
    {
        if (!myLineBegun)
        {
            used = skipBlankLines(bytes);
            myHeadConsumed += used;
            bytes.remove_prefix(used);
            if (myHeadConsumed > myLimits.maxHeaderBytes)
                return refuse(431,
                              "more than " + std::to_string(myLimits.maxHeaderBytes) +
                                  " bytes of blank lines before the request line",
                              used);
            if (bytes.empty() || bytes == "\r")
                return used;
            myLineBegun = true;
            myLineStart = myScanned = myHeadConsumed;
        }
        if (!scanHead(bytes))
            return used;
        if (myHeadEnd == 0)
            return used;
    }
    error_code ec;
    while (!bytes.empty())
    {
        size_t parsed = myParser->put(boost::asio::const_buffer(bytes.data(), bytes.size()), ec);
        if (ec && ec != http::error::need_more)
        {
            if (myRefusalStatus == 0)
                refuse(statusForParserError(ec.value(), bytes), "a malformed request (" + ec.message() + ")",
                       0);
            return refuse(myRefusalStatus, myRefusalReason, used + parsed);
        }
        used += parsed;
        bytes.remove_prefix(parsed);
        if (ec && readingHead)
            return refuse(400, "a malformed request head", used); // its empty line was here
        if (ec)
            break;
        if (myParser->is_done())
        {
            myState = ReadState::Complete;
            return used;
        }
        if (readingHead)
        {
            myState = ReadState::HeadReady;
            myParser->eager(true);
            return used;
        }
        if (parsed == 0)
            break;
    }
    myState = ReadState::NeedMore;
    return used;
}

} // namespace kiv
