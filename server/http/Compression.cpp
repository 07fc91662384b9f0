// Response compression with zlib's gzip format.
#include "http/Compression.h"

#include <zlib.h>

#include <unistd.h>

namespace kiv
{

namespace
{

// The text before the first separator (all of it without one); list keeps what follows.
std::string_view takeElement(std::string_view& list, char separator)
{
    size_t at = list.find(separator);
    std::string_view element = list.substr(0, at);
    list = at == std::string_view::npos ? std::string_view() : list.substr(at + 1);
    return element;
}

// Whether the parameters of one Accept-Encoding element ("gzip;q=0") refuse it: a quality of
// zero, however it is written. Only zero and non-zero matter here.
bool qualityIsZero(std::string_view parameters)
{
    while (!parameters.empty())
    {
        std::string_view parameter = takeElement(parameters, ';');
        size_t equals = parameter.find('=');
        if (equals != std::string_view::npos && equalsIgnoringCase(trim(parameter.substr(0, equals)), "q"))
            return trim(parameter.substr(equals + 1)).find_first_of("123456789") == std::string_view::npos;
    }
    return false;
}

bool readWholeFile(int descriptor, size_t size, std::string& content)
{
    content.resize(size);
    size_t done = 0;
    while (done < size)
    {
        ssize_t got = ::pread(descriptor, content.data() + done, size - done, static_cast<off_t>(done));
        if (got <= 0)
            return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

} // namespace

bool acceptsGzip(std::string_view acceptEncoding)
{
    std::optional<bool> gzip;
    std::optional<bool> any;
    while (!acceptEncoding.empty())
    {
        std::string_view parameters = takeElement(acceptEncoding, ',');
        std::string_view coding = trim(takeElement(parameters, ';'));
        bool accepted = !qualityIsZero(parameters);
        if (equalsIgnoringCase(coding, "gzip") || equalsIgnoringCase(coding, "x-gzip"))
            gzip = accepted;
        else if (coding == "*")
            any = accepted;
    }
    return gzip ? *gzip : any.value_or(false);
}

bool isCompressibleType(std::string_view contentType)
{
    std::string type = toLower(trim(contentType.substr(0, contentType.find(';'))));
    return type.rfind("text/", 0) == 0 || type == "application/json" || type == "application/javascript" ||
           type == "application/xml" || type == "image/svg+xml" || type == "application/wasm";
}

std::optional<std::string> gzipCompress(std::string_view data)
{
    z_stream stream{};
    // 15 window bits plus 16: a gzip header and trailer rather than zlib's.
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return std::nullopt;
    std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    int result = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END)
        return std::nullopt;
    return out;
}

void compressForClient(const HttpRequest& request, HttpResponse& response)
{
    bool hasBody = response.status >= 200 && response.status != 204 && response.status != 304;
    const std::string* type = response.header("Content-Type");
    if (!hasBody || !type || !isCompressibleType(*type) || response.header("Content-Encoding"))
        return;
    bool fromFile = response.bodyFile.isOpen();
    size_t size = fromFile ? response.bodyFileSize : response.body.size();
    if (size < kCompressMinBytes || (fromFile && size > kCompressMaxFileBytes))
        return;
    response.addHeader("Vary", "Accept-Encoding");
    // A HEAD answer describes the uncompressed form; compressing only to count bytes is waste.
    if (request.method == "HEAD" || !acceptsGzip(request.headerOr("Accept-Encoding")))
        return;
    std::string content;
    if (fromFile && !readWholeFile(response.bodyFile.get(), size, content))
        return;
    std::optional<std::string> compressed = gzipCompress(fromFile ? content : response.body);
    if (!compressed || compressed->size() >= size)
        return;
    response.body = std::move(*compressed);
    response.bodyFile.reset();
    response.bodyFileSize = 0;
    response.setHeader("Content-Encoding", "gzip");
    if (const std::string* tag = response.header("ETag"); tag && tag->size() >= 2 && tag->back() == '"')
        response.setHeader("ETag", tag->substr(0, tag->size() - 1) + std::string(kGzipTagSuffix) + "\"");
}

} // namespace kiv
