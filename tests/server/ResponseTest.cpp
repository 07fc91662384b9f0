// Responses as they go on the wire: framing, the guard against response splitting, gzip for
// the clients that accept it, and static files sent from disk with their validators.
#include "http/Compression.h"
#include "http/ResponseMessage.h"
#include "http/StaticFiles.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

std::string wireOf(HttpResponse response, ResponseFraming framing = {})
{
    auto generator = makeResponseMessage(std::move(response), framing);
    std::string wire;
    boost::beast::error_code error;
    while (!generator.is_done())
    {
        auto buffers = generator.prepare(error);
        EXPECT_FALSE(error) << error.message();
        if (error)
            break;
        size_t size = 0;
        for (const auto& buffer : buffers)
        {
            wire.append(static_cast<const char*>(buffer.data()), buffer.size());
            size += buffer.size();
        }
        generator.consume(size);
    }
    return wire;
}

std::string gunzip(const std::string& data)
{
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
    std::string out(1 << 20, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return out;
}

std::string headerOf(const HttpResponse& response, std::string_view name)
{
    const std::string* value = response.header(name);
    return value ? *value : std::string();
}

HttpRequest requestFor(std::string method, NameValueList headers)
{
    HttpRequest request;
    request.method = std::move(method);
    request.headers = std::move(headers);
    return request;
}

class TemporaryFile
{
public:
    TemporaryFile(const std::string& name, const std::string& content)
        : myPath(fs::temp_directory_path() / ("kiv-response-test-" + std::to_string(::getpid()) + "-" + name))
    {
        std::ofstream(myPath, std::ios::binary) << content;
    }
    ~TemporaryFile() { fs::remove(myPath); }
    const fs::path& path() const { return myPath; }

private:
    fs::path myPath;
};

TEST(ResponseWire, FramingFollowsTheMethodAndTheStatus)
{
    HttpResponse page;
    page.body = "hello";
    std::string wire = wireOf(std::move(page), {false, true});
    EXPECT_EQ(wire.rfind("HTTP/1.1 200 OK\r\n", 0), 0u);
    EXPECT_NE(wire.find("Content-Length: 5\r\n"), std::string::npos);
    EXPECT_NE(wire.find("Connection: keep-alive\r\n"), std::string::npos);
    EXPECT_NE(wire.find("X-Content-Type-Options: nosniff\r\n"), std::string::npos);
    EXPECT_EQ(wire.substr(wire.size() - 9), "\r\n\r\nhello");

    HttpResponse head;
    head.body = "hello";
    wire = wireOf(std::move(head), {true, false});
    EXPECT_NE(wire.find("Content-Length: 5\r\n"), std::string::npos) << "HEAD tells the length";
    EXPECT_EQ(wire.substr(wire.size() - 4), "\r\n\r\n") << "but sends no body";
    EXPECT_NE(wire.find("Connection: close\r\n"), std::string::npos);

    HttpResponse notModified;
    notModified.status = 304;
    wire = wireOf(std::move(notModified));
    EXPECT_EQ(wire.find("Content-Length"), std::string::npos);

    HttpResponse strange;
    strange.status = 1234;
    EXPECT_EQ(wireOf(std::move(strange)).rfind("HTTP/1.1 500 ", 0), 0u);
}

TEST(ResponseWire, HeadersThatWouldSplitTheResponseAreNotSent)
{
    HttpResponse response;
    response.addHeader("X-Good", "value\twith tab");
    response.addHeader("X-Split", "a\r\nSet-Cookie: evil=1");
    response.addHeader("X-Bare", "a\nSet-Cookie: evil=2");
    response.addHeader("Bad Name", "x");
    response.addHeader("Location", std::string("/x\0y", 4));
    std::string wire = wireOf(std::move(response));
    EXPECT_NE(wire.find("X-Good: value\twith tab\r\n"), std::string::npos);
    EXPECT_EQ(wire.find("Set-Cookie"), std::string::npos);
    EXPECT_EQ(wire.find("Bad Name"), std::string::npos);
    EXPECT_EQ(wire.find("Location"), std::string::npos);
    EXPECT_TRUE(isSafeHeaderValue("http://example.org/a?b=c d"));
    EXPECT_FALSE(isSafeHeaderValue("a\x7F"));
    EXPECT_FALSE(isSafeHeaderName("X:Y"));
}

TEST(Compression, AcceptEncodingIsReadWithItsQualities)
{
    EXPECT_TRUE(acceptsGzip("gzip, deflate, br"));
    EXPECT_TRUE(acceptsGzip("deflate;q=1.0, GZIP;q=0.5"));
    EXPECT_TRUE(acceptsGzip("*"));
    EXPECT_FALSE(acceptsGzip("gzip;q=0"));
    EXPECT_FALSE(acceptsGzip("gzip; q=0.000, *"));
    EXPECT_FALSE(acceptsGzip("*;q=0"));
    EXPECT_FALSE(acceptsGzip("identity"));
    EXPECT_FALSE(acceptsGzip(""));
    EXPECT_TRUE(isCompressibleType("text/html; charset=ISO-8859-1"));
    EXPECT_TRUE(isCompressibleType("application/json"));
    EXPECT_FALSE(isCompressibleType("image/png"));
}

TEST(Compression, TextBodiesOverAKilobyteAreCompressedForClientsThatAcceptIt)
{
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += "<tr><td>row " + std::to_string(i) + "</td></tr>\n";
    auto page = [&]
    {
        HttpResponse response;
        response.body = text;
        response.setHeader("Content-Type", "text/html; charset=ISO-8859-1");
        return response;
    };
    HttpResponse compressed = page();
    compressForClient(requestFor("GET", {{"Accept-Encoding", "gzip"}}), compressed);
    EXPECT_EQ(compressed.headers.size(), 3u);
    EXPECT_EQ(headerOf(compressed, "Content-Encoding"), "gzip");
    EXPECT_EQ(headerOf(compressed, "Vary"), "Accept-Encoding");
    EXPECT_LT(compressed.body.size(), text.size());
    EXPECT_EQ(gunzip(compressed.body), text);

    HttpResponse plain = page();
    compressForClient(requestFor("GET", {{"Accept-Encoding", "identity"}}), plain);
    EXPECT_EQ(plain.body, text);
    EXPECT_EQ(headerOf(plain, "Vary"), "Accept-Encoding") << "caches must know the form depends on it";
    HttpResponse head = page();
    compressForClient(requestFor("HEAD", {{"Accept-Encoding", "gzip"}}), head);
    EXPECT_FALSE(head.header("Content-Encoding"));
    HttpResponse small;
    small.body = "short";
    small.setHeader("Content-Type", "text/plain");
    compressForClient(requestFor("GET", {{"Accept-Encoding", "gzip"}}), small);
    EXPECT_FALSE(small.header("Content-Encoding"));
    EXPECT_FALSE(small.header("Vary"));
}

TEST(StaticFiles, FilesAreSentFromDiskWithValidatorsThatAnswer304)
{
    TemporaryFile file("style.css", std::string(3000, 'a'));
    HttpResponse response;
    serveStaticFile(file.path(), requestFor("GET", {}), response);
    ASSERT_EQ(response.status, 200);
    EXPECT_TRUE(response.body.empty()) << "not read into memory";
    ASSERT_TRUE(response.bodyFile.isOpen());
    EXPECT_EQ(response.bodyFileSize, 3000u);
    EXPECT_EQ(headerOf(response, "Content-Type"), "text/css");
    std::string tag = headerOf(response, "ETag");
    std::string modified = headerOf(response, "Last-Modified");
    std::string wire = wireOf(std::move(response));
    EXPECT_NE(wire.find("Content-Length: 3000\r\n"), std::string::npos);
    EXPECT_EQ(wire.substr(wire.size() - 3000), std::string(3000, 'a'));

    for (NameValueList validators : std::vector<NameValueList>{{{"If-None-Match", "\"other\", " + tag}},
                                                               {{"If-None-Match", "*"}},
                                                               {{"If-Modified-Since", modified}}})
    {
        HttpResponse conditional;
        serveStaticFile(file.path(), requestFor("GET", validators), conditional);
        EXPECT_EQ(conditional.status, 304) << validators[0].second;
        EXPECT_FALSE(conditional.bodyFile.isOpen());
    }
    HttpResponse stale;
    serveStaticFile(file.path(), requestFor("GET", {{"If-Modified-Since", "Thu, 01 Jan 1970 00:00:00 GMT"}}),
                    stale);
    EXPECT_EQ(stale.status, 200);

    // The gzip form has its own tag, and that tag also means "not modified".
    HttpResponse compressed;
    HttpRequest request = requestFor("GET", {{"Accept-Encoding", "gzip"}});
    serveStaticFile(file.path(), request, compressed);
    compressForClient(request, compressed);
    EXPECT_EQ(headerOf(compressed, "Content-Encoding"), "gzip");
    EXPECT_FALSE(compressed.bodyFile.isOpen());
    std::string gzipTag = headerOf(compressed, "ETag");
    EXPECT_NE(gzipTag, tag);
    HttpResponse again;
    serveStaticFile(file.path(), requestFor("GET", {{"If-None-Match", gzipTag}}), again);
    EXPECT_EQ(again.status, 304);
}

} // namespace
} // namespace kiv
