// Request heads, body lengths, forms, query strings and cookies as the server decodes them.
#include "http/Forms.h"
#include "http/HttpServer.h"
#include "http/RequestParser.h"

#include <gtest/gtest.h>

namespace kiv
{
namespace
{

HeadParseResult parse(std::string_view text, HttpRequest& request, ServerLimits limits = {})
{
    return parseRequestHead(text, limits, request);
}

TEST(RequestHead, ParsesMethodTargetVersionAndHeadersInOrder)
{
    HttpRequest request;
    std::string text =
        "GET /people/a%20b.html?page=2&q=x HTTP/1.1\r\nHost: example\r\nX-A: 1\r\nx-a:  2 \r\n\r\nBODY";
    HeadParseResult result = parse(text, request);
    ASSERT_EQ(result.status, HeadStatus::Complete);
    EXPECT_EQ(result.headLength, text.size() - 4);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.path, "/people/a b.html");
    EXPECT_EQ(request.queryString, "page=2&q=x");
    EXPECT_EQ(request.minorVersion, 1);
    ASSERT_EQ(request.headers.size(), 3u);
    EXPECT_EQ(request.headers[2].second, "2");
    EXPECT_EQ(*request.header("x-A"), "1");
}

TEST(RequestHead, WaitsForMoreBytesUntilTheEmptyLine)
{
    HttpRequest request;
    EXPECT_EQ(parse("GET / HTTP/1.1\r\nHost: x\r\n", request).status, HeadStatus::Incomplete);
    EXPECT_EQ(parse("GET / HTT", request).status, HeadStatus::Incomplete);
}

TEST(RequestHead, EnforcesTheSizeLimitsBeforeTheHeadIsComplete)
{
    ServerLimits limits;
    limits.maxRequestLine = 64;
    limits.maxHeaderBytes = 256;
    limits.maxHeaderCount = 3;
    HttpRequest request;
    EXPECT_EQ(parse("GET /" + std::string(100, 'a'), request, limits).errorStatus, 414);
    EXPECT_EQ(parse("GET / HTTP/1.1\r\nX: " + std::string(300, 'b'), request, limits).errorStatus, 431);
    std::string many = "GET / HTTP/1.1\r\nHost: x\r\nA: 1\r\nB: 2\r\nC: 3\r\n\r\n";
    EXPECT_EQ(parse(many, request, limits).errorStatus, 431);
}

TEST(RequestHead, RefusesMalformedRequests)
{
    HttpRequest request;
    EXPECT_EQ(parse("GET / HTTP/2.0\r\nHost: x\r\n\r\n", request).errorStatus, 505);
    EXPECT_EQ(parse("GET / FTP/1.0\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET /\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET / HTTP/1.1\r\n\r\n", request).errorStatus, 400) << "HTTP/1.1 needs Host";
    EXPECT_EQ(parse("GET /a%zz HTTP/1.1\r\nHost: x\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET /a%00b HTTP/1.1\r\nHost: x\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET / HTTP/1.1\r\nHost: x\r\n folded\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("G(T / HTTP/1.1\r\nHost: x\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET / HTTP/1.0\r\nBad Header: x\r\n\r\n", request).errorStatus, 400);
    EXPECT_EQ(parse("GET / HTTP/1.1\r\nHost: a\r\nhost: b\r\n\r\n", request).errorStatus, 400)
        << "two Host headers could pick a different region than a proxy checked";
    EXPECT_EQ(parse("GET / HTTP/1.1\r\nHost: a\r\nContent-Length : 5\r\n\r\n", request).errorStatus, 400);
}

TEST(RequestHead, AcceptsHttp10WithoutHostAndAbsoluteTargets)
{
    HttpRequest request;
    ASSERT_EQ(parse("GET http://example.org/x?y=1 HTTP/1.0\r\n\r\n", request).status, HeadStatus::Complete);
    EXPECT_EQ(request.path, "/x");
    EXPECT_EQ(request.queryString, "y=1");
    EXPECT_FALSE(request.wantsKeepAlive());
}

TEST(RequestBody, LengthComesFromContentLengthWithinTheLimit)
{
    ServerLimits limits;
    limits.maxBodyBytes = 100;
    HttpRequest request;
    request.headers = {{"Content-Length", "42"}};
    EXPECT_EQ(determineBodyLength(request, limits).length, 42u);
    request.headers = {{"Content-Length", "101"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 413);
    request.headers = {{"Content-Length", "1x"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 400);
    request.headers = {{"Content-Length", "5"}, {"content-length", "6"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 400);
    request.headers = {{"Transfer-Encoding", "chunked"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 411);
}

TEST(RequestBody, EveryTransferEncodingIsRefusedSoBodiesHaveOneFraming)
{
    // A proxy that honours the second header (or "identity") would frame the body
    // differently from this server and let a request hide inside another.
    ServerLimits limits;
    HttpRequest request;
    request.headers = {{"Transfer-Encoding", "identity"}, {"Content-Length", "5"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 411);
    request.headers = {
        {"Content-Length", "5"}, {"Transfer-Encoding", "identity"}, {"transfer-encoding", "chunked"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 411);
    request.headers = {{"Content-Length", "5"}, {"Content-Length", "5"}};
    EXPECT_EQ(determineBodyLength(request, limits).length, 5u);
    request.headers = {{"Content-Length", "+5"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 400);
    request.headers = {{"Content-Length", "5, 5"}};
    EXPECT_EQ(determineBodyLength(request, limits).errorStatus, 400);
}

TEST(RequestBody, ZeroLengthWithoutAnyFramingHeader)
{
    ServerLimits limits;
    HttpRequest request;
    request.headers = {};
    EXPECT_EQ(determineBodyLength(request, limits).length, 0u);
}

TEST(Forms, UrlEncodedKeepsRepeatedNamesInOrder)
{
    NameValueList pairs = parseUrlEncoded("a=1&b=x+y%21&a=2&empty=&flag&bad=%G1");
    ASSERT_EQ(pairs.size(), 6u);
    EXPECT_EQ(pairs[0], (std::pair<std::string, std::string>{"a", "1"}));
    EXPECT_EQ(pairs[1].second, "x y!");
    EXPECT_EQ(pairs[2], (std::pair<std::string, std::string>{"a", "2"}));
    EXPECT_EQ(pairs[3].second, "");
    EXPECT_EQ(pairs[4].first, "flag");
    EXPECT_EQ(pairs[5].second, "%G1") << "a malformed escape is kept as written";
}

TEST(Forms, UrlEncodedValuesAreBytesNotUtf8)
{
    NameValueList pairs = parseUrlEncoded("name=Fran%E7ois");
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_EQ(pairs[0].second, std::string("Fran\xE7ois"));
}

TEST(Forms, MultipartGivesFieldsAndFileContentsInOrder)
{
    std::string boundary = "----b";
    EXPECT_EQ(multipartBoundary("multipart/form-data; boundary=\"----b\""), boundary);
    const std::string content("\0\r\n\xFF", 4);
    std::string body =
        "------b\r\nContent-Disposition: form-data; name=\"x\"\r\n\r\none\r\n"
        "------b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.bin\"\r\n"
        "Content-Type: application/octet-stream\r\n\r\n" +
        content + "\r\n------b\r\nContent-Disposition: form-data; name=\"x\"\r\n\r\ntwo\r\n------b--\r\n";
    auto fields = parseMultipart(body, boundary);
    ASSERT_TRUE(fields);
    ASSERT_EQ(fields->size(), 3u);
    EXPECT_EQ((*fields)[0].second, "one");
    EXPECT_EQ((*fields)[1].first, "file");
    EXPECT_EQ((*fields)[1].second, content);
    EXPECT_EQ((*fields)[2].second, "two");
}

TEST(Forms, MalformedMultipartIsRejected)
{
    EXPECT_FALSE(parseMultipart("no delimiter here", "b"));
    EXPECT_FALSE(
        parseMultipart("--b\r\nContent-Disposition: form-data; name=\"x\"\r\n\r\nunterminated", "b"));
    EXPECT_FALSE(parseMultipart("--b\r\n", ""));
}

TEST(Forms, PostArgumentsOnlyForPosts)
{
    HttpRequest request;
    request.method = "GET";
    request.body = "a=1";
    EXPECT_TRUE(parsePostArguments(request)->empty());
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded; charset=ISO-8859-1"}};
    EXPECT_EQ(parsePostArguments(request)->size(), 1u);
    request.headers = {{"Content-Type", "application/json"}};
    EXPECT_TRUE(parsePostArguments(request)->empty());
}

TEST(Forms, FormsWithTooManyFieldsAreRefused)
{
    // A few bytes per field on the wire, two strings per field in memory.
    HttpRequest request;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
    std::string fields;
    for (size_t i = 0; i < kMaxFormFields; ++i)
        fields += "a&";
    request.body = fields;
    EXPECT_FALSE(parsePostArguments(request));
    request.body = fields.substr(0, fields.size() - 4);
    EXPECT_TRUE(parsePostArguments(request));

    std::string parts;
    for (size_t i = 0; i <= kMaxFormFields; ++i)
        parts += "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nx\r\n";
    EXPECT_FALSE(parseMultipart(parts + "--b--\r\n", "b"));
}

TEST(Responses, HeadersThatWouldSplitTheResponseAreNotSent)
{
    HttpResponse response;
    response.addHeader("X-Good", "value\twith tab");
    response.addHeader("X-Split", "a\r\nSet-Cookie: evil=1");
    response.addHeader("X-Bare", "a\nSet-Cookie: evil=2");
    response.addHeader("Bad Name", "x");
    response.addHeader("Location", std::string("/x\0y", 4));
    std::string wire = serializeResponse(response, false, false);
    EXPECT_NE(wire.find("X-Good: value\twith tab\r\n"), std::string::npos);
    EXPECT_EQ(wire.find("Set-Cookie"), std::string::npos);
    EXPECT_EQ(wire.find("Bad Name"), std::string::npos);
    EXPECT_EQ(wire.find("Location"), std::string::npos);
    EXPECT_TRUE(isSafeHeaderValue("http://example.org/a?b=c d"));
    EXPECT_FALSE(isSafeHeaderValue("a\x7F"));
    EXPECT_FALSE(isSafeHeaderName("X:Y"));
}

TEST(Forms, CookiesAreSplitAndUnquoted)
{
    NameValueList cookies = parseCookies("a=1; session=\"abc def\";broken; b = 2 ");
    ASSERT_EQ(cookies.size(), 3u);
    EXPECT_EQ(cookies[1], (std::pair<std::string, std::string>{"session", "abc def"}));
    EXPECT_EQ(cookies[2], (std::pair<std::string, std::string>{"b", "2"}));
}

} // namespace
} // namespace kiv
