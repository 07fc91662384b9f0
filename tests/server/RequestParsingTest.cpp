// Requests as the server reads them (head, limits, body framing) and what pages get from them:
// forms, query strings and cookies.
#include "http/Forms.h"
#include "http/RequestReader.h"

#include <gtest/gtest.h>

namespace kiv
{
namespace
{

// What a reader made of some bytes, fed in pieces of the given size as a socket might
// deliver them (the unused bytes offered again with the next piece).
struct ReadResult
{
    ReadState state = ReadState::NeedMore;
    int status = 0;
    size_t used = 0;
    bool askedToContinue = false;
    HttpRequest request;
};

ReadResult read(std::string_view bytes, const ServerLimits& limits = {}, size_t piece = std::string::npos)
{
    RequestReader reader(limits);
    ReadResult result;
    std::string unused;
    for (size_t offset = 0;
         offset < bytes.size() && result.state != ReadState::Complete && result.state != ReadState::Refused;)
    {
        size_t take = std::min(piece, bytes.size() - offset);
        unused.append(bytes.substr(offset, take));
        offset += take;
        do
        {
            size_t used = reader.feed(unused);
            unused.erase(0, used);
            result.used += used;
            result.askedToContinue = result.askedToContinue || reader.expectsContinue();
        } while (reader.state() == ReadState::HeadReady);
        result.state = reader.state();
    }
    result.status = reader.refusalStatus();
    result.request = reader.request();
    return result;
}

int statusOf(std::string_view bytes, const ServerLimits& limits = {})
{
    return read(bytes, limits).status;
}

TEST(RequestReader, ParsesMethodTargetVersionAndHeadersInOrder)
{
    std::string text = "GET /people/a%20b.html?page=2&q=x#top HTTP/1.1\r\nHost: example\r\nX-A: 1\r\n"
                       "x-a:  2 \r\n\r\nGET /next HTTP/1.1\r\n";
    for (size_t piece : {std::string::npos, size_t(1), size_t(7)})
    {
        ReadResult result = read(text, {}, piece);
        ASSERT_EQ(result.state, ReadState::Complete) << piece;
        EXPECT_EQ(result.used, text.find("GET /next")) << "a pipelined request stays unused";
        const HttpRequest& request = result.request;
        EXPECT_EQ(request.method, "GET");
        EXPECT_EQ(request.target, "/people/a%20b.html?page=2&q=x#top");
        EXPECT_EQ(request.path, "/people/a b.html");
        EXPECT_EQ(request.queryString, "page=2&q=x");
        EXPECT_EQ(request.minorVersion, 1);
        ASSERT_EQ(request.headers.size(), 3u);
        EXPECT_EQ(request.headers[2], (std::pair<std::string, std::string>{"x-a", "2"}));
        EXPECT_EQ(*request.header("x-A"), "1");
    }
}

TEST(RequestReader, WaitsForMoreBytesUntilTheHeadAndBodyAreHere)
{
    EXPECT_EQ(read("GET / HTTP/1.1\r\nHost: x\r\n").state, ReadState::NeedMore);
    EXPECT_EQ(read("GET / HTT").state, ReadState::NeedMore);
    EXPECT_EQ(read("POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nabc").state, ReadState::NeedMore);
    ReadResult result = read("POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nabcdeXYZ", {}, 3);
    ASSERT_EQ(result.state, ReadState::Complete);
    EXPECT_EQ(result.request.body, "abcde");
}

TEST(RequestReader, EnforcesTheSizeLimitsBeforeTheHeadIsComplete)
{
    ServerLimits limits;
    limits.maxRequestLine = 64;
    limits.maxHeaderBytes = 256;
    limits.maxHeaderCount = 3;
    EXPECT_EQ(statusOf("GET /" + std::string(100, 'a'), limits), 414) << "no line end needed to know";
    EXPECT_EQ(statusOf("GET /" + std::string(50, 'a') + " HTTP/1.1\r\nHost: x\r\n\r\n", limits), 0)
        << "a line of exactly the limit";
    EXPECT_EQ(statusOf("GET /" + std::string(51, 'a') + " HTTP/1.1\r\n", limits), 414);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nX: " + std::string(300, 'b'), limits), 431);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: x\r\nA: 1\r\nB: 2\r\nC: 3\r\n\r\n", limits), 431);
    EXPECT_EQ(statusOf("POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 10485761\r\n\r\n"), 413)
        << "an announced body over the limit is refused before it is read";
}

TEST(RequestReader, BlankLinesBeforeTheRequestLineCountTowardsTheHeadLimit)
{
    ReadResult polite = read("\r\n\r\n\nGET / HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(polite.state, ReadState::Complete);
    // Ten megabytes of empty lines, as a socket delivers them: refused once the head limit
    // is passed, with every byte used as it came (nothing piles up).
    ServerLimits limits;
    std::string flood;
    for (int i = 0; i < 5 * 1024 * 1024; ++i)
        flood += "\r\n";
    ReadResult result = read(flood, limits, 16384);
    EXPECT_EQ(result.state, ReadState::Refused);
    EXPECT_EQ(result.status, 431);
    EXPECT_LE(result.used, limits.maxHeaderBytes + 16384);
}

TEST(RequestReader, RefusesMalformedAndAmbiguousHeads)
{
    EXPECT_EQ(statusOf("GET / HTTP/2.0\r\nHost: x\r\n\r\n"), 505);
    EXPECT_EQ(statusOf("GET / FTP/1.0\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET /\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\n\r\n"), 400) << "HTTP/1.1 needs Host";
    EXPECT_EQ(statusOf("GET /a%zz HTTP/1.1\r\nHost: x\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET /a%00b HTTP/1.1\r\nHost: x\r\n\r\n"), 400);
    EXPECT_EQ(statusOf(std::string("GET / HTTP/1.1\r\nHost: x\0y\r\n\r\n", 29)), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: x\r\n folded\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: x\r\nX-A: 1\r\n\tfolded\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("G(T / HTTP/1.1\r\nHost: x\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.0\r\nBad Header: x\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET x HTTP/1.1\r\nHost: x\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\nHost: x\n\n"), 400) << "lines end with CRLF";
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: a\r\nhost: b\r\n\r\n"), 400)
        << "two Host headers could pick a different region than a proxy checked";
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: a\r\nContent-Length : 5\r\n\r\n"), 400);
}

TEST(RequestReader, AcceptsHttp10WithoutHostAndAbsoluteTargets)
{
    ReadResult result = read("GET http://example.org/x?y=1 HTTP/1.0\r\n\r\n");
    ASSERT_EQ(result.state, ReadState::Complete);
    EXPECT_EQ(result.request.path, "/x");
    EXPECT_EQ(result.request.queryString, "y=1");
    EXPECT_FALSE(result.request.wantsKeepAlive());
}

TEST(RequestReader, ContentLengthIsAPlainNumberWithinTheLimit)
{
    ServerLimits limits;
    limits.maxBodyBytes = 100;
    std::string head = "POST / HTTP/1.1\r\nHost: x\r\n";
    EXPECT_EQ(read(head + "Content-Length: 4\r\n\r\nabcd", limits).request.body, "abcd");
    EXPECT_EQ(read(head + "Content-Length: 4\r\nContent-Length: 4\r\n\r\nabcd", limits).state,
              ReadState::Complete);
    EXPECT_EQ(statusOf(head + "Content-Length: 101\r\n\r\n", limits), 413);
    for (const char* bad : {"1x", "+5", "5, 5", "", "99999999999999999999999"})
        EXPECT_EQ(statusOf(head + "Content-Length: " + bad + "\r\n\r\n", limits), 400) << bad;
    EXPECT_EQ(statusOf(head + "Content-Length: 5\r\ncontent-length: 6\r\n\r\n", limits), 400);
}

TEST(RequestReader, ChunkedBodiesAreDecodedAndEveryOtherFramingIsRefused)
{
    ServerLimits limits;
    limits.maxBodyBytes = 10;
    std::string head = "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n";
    ReadResult chunked = read(head + "3\r\nabc\r\n4;ext=1\r\ndefg\r\n0\r\nHost: evil\r\n\r\n", limits, 5);
    ASSERT_EQ(chunked.state, ReadState::Complete) << chunked.status;
    EXPECT_EQ(chunked.request.body, "abcdefg");
    EXPECT_EQ(chunked.request.headerOr("Host"), "x") << "trailer fields are not headers";
    EXPECT_EQ(statusOf(head + "6\r\nabcdef\r\n6\r\nghijkl\r\n0\r\n\r\n", limits), 413);
    EXPECT_EQ(statusOf(head + "zz\r\n"), 400);
    // A proxy that framed the body differently from this server would see another request
    // boundary: a request could hide inside another.
    std::string start = "POST / HTTP/1.1\r\nHost: x\r\n";
    EXPECT_EQ(statusOf(start + "Transfer-Encoding: identity\r\nContent-Length: 5\r\n\r\n"), 400);
    EXPECT_EQ(statusOf(start + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"), 400);
    EXPECT_EQ(statusOf(start + "Transfer-Encoding: identity\r\nTransfer-Encoding: chunked\r\n"
                               "Content-Length: 5\r\n\r\n"),
              400);
    EXPECT_EQ(statusOf(start + "Transfer-Encoding: gzip, chunked\r\n\r\n"), 501);
    EXPECT_EQ(statusOf(start + "Transfer-Encoding: identity\r\n\r\n"), 501);
    EXPECT_EQ(statusOf("POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n"), 400);
}

TEST(RequestReader, AsksForTheBodyOnlyWhenTheClientWaitsForIt)
{
    std::string head = "POST / HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n";
    ReadResult waiting = read(head);
    EXPECT_EQ(waiting.state, ReadState::NeedMore);
    EXPECT_TRUE(waiting.askedToContinue);
    EXPECT_FALSE(read("GET / HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\n\r\n").askedToContinue)
        << "no body, nothing to wait for";
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
    NameValueList fileNames;
    auto fields = parseMultipart(body, boundary, &fileNames);
    ASSERT_TRUE(fields);
    ASSERT_EQ(fields->size(), 3u);
    EXPECT_EQ((*fields)[0].second, "one");
    EXPECT_EQ((*fields)[1].first, "file");
    EXPECT_EQ((*fields)[1].second, content);
    EXPECT_EQ((*fields)[2].second, "two");
    EXPECT_EQ(fileNames, (NameValueList{{"file", "a.bin"}})) << "only file fields have a file name";
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

TEST(Forms, CookiesAreSplitAndUnquoted)
{
    NameValueList cookies = parseCookies("a=1; session=\"abc def\";broken; b = 2 ");
    ASSERT_EQ(cookies.size(), 3u);
    EXPECT_EQ(cookies[1], (std::pair<std::string, std::string>{"session", "abc def"}));
    EXPECT_EQ(cookies[2], (std::pair<std::string, std::string>{"b", "2"}));
}

} // namespace
} // namespace kiv
