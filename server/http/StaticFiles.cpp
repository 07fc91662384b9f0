// Static file responses.
#include "http/StaticFiles.h"

#include "http/Compression.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace kiv
{

std::string contentTypeFor(const fs::path& file)
{
    static const std::pair<std::string_view, std::string_view> types[] = {
        {".html", "text/html; charset=ISO-8859-1"},
        {".htm", "text/html; charset=ISO-8859-1"},
        {".css", "text/css"},
        {".js", "text/javascript"},
        {".json", "application/json"},
        {".txt", "text/plain; charset=ISO-8859-1"},
        {".csv", "text/csv; charset=ISO-8859-1"},
        {".xml", "application/xml"},
        {".png", "image/png"},
        {".jpg", "image/jpeg"},
        {".jpeg", "image/jpeg"},
        {".gif", "image/gif"},
        {".svg", "image/svg+xml"},
        {".ico", "image/x-icon"},
        {".webp", "image/webp"},
        {".pdf", "application/pdf"},
        {".zip", "application/zip"},
        {".woff", "font/woff"},
        {".woff2", "font/woff2"},
        {".wasm", "application/wasm"},
    };
    std::string extension = toLower(file.extension().string());
    for (const auto& [suffix, type] : types)
        if (extension == suffix)
            return std::string(type);
    return "application/octet-stream";
}

namespace
{

// An IMF-fixdate ("Sun, 06 Nov 1994 08:49:37 GMT"), the only form this server sends; -1 for
// anything else, which then never matches.
time_t parseHttpDate(const std::string& text)
{
    tm utc{};
    const char* end = ::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return end && *end == '\0' ? ::timegm(&utc) : time_t(-1);
}

std::string entityTagOf(const struct stat& info)
{
    std::ostringstream tag;
    tag << '"' << std::hex << info.st_size << '-' << info.st_mtim.tv_sec << '-' << info.st_mtim.tv_nsec
        << '"';
    return tag.str();
}

// If-None-Match lists tags; the gzip form of the file has its own tag, and both mean this
// version of the file.
bool matchesTag(const std::string& header, const std::string& tag)
{
    if (trim(header) == "*")
        return true;
    std::string gzipTag = tag.substr(0, tag.size() - 1) + std::string(kGzipTagSuffix) + "\"";
    return header.find(tag) != std::string::npos || header.find(gzipTag) != std::string::npos;
}

} // namespace

void serveStaticFile(const fs::path& file, const HttpRequest& request, HttpResponse& response)
{
    FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info
    {
    };
    if (!descriptor.isOpen() || ::fstat(descriptor.get(), &info) != 0 || !S_ISREG(info.st_mode))
    {
        response = makeErrorResponse(403, "The file cannot be read.");
        return;
    }
    // The validators describe the file that was opened, whatever happens to the path meanwhile.
    std::string tag = entityTagOf(info);
    response.setHeader("ETag", tag);
    response.setHeader("Last-Modified", formatHttpDate(info.st_mtim.tv_sec));
    response.setHeader("Cache-Control", "no-cache");
    bool notModified = false;
    if (const std::string* match = request.header("If-None-Match"))
        notModified = matchesTag(*match, tag);
    else if (const std::string* since = request.header("If-Modified-Since"))
        notModified = info.st_mtim.tv_sec <= parseHttpDate(*since);
    if (notModified)
    {
        response.status = 304;
        return;
    }
    response.status = 200;
    response.setHeader("Content-Type", contentTypeFor(file));
    response.bodyFileSize = static_cast<uint64_t>(info.st_size);
    response.bodyFile = std::move(descriptor);
}

std::string renderDirectoryListing(const fs::path& folder, std::string_view urlPath)
{
    std::vector<std::pair<std::string, bool>> entries;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
    {
        std::string name = entry.path().filename().string();
        if (name.empty() || name[0] == '.')
            continue;
        entries.emplace_back(name, entry.is_directory(error));
    }
    std::sort(entries.begin(), entries.end());
    std::string title = "Index of " + htmlEncode(urlPath);
    std::string html = "<!DOCTYPE html>\n<html><head><title>" + title + "</title></head><body><h1>" + title +
                       "</h1>\n<ul>\n";
    if (urlPath != "/")
        html += "<li><a href=\"../\">../</a></li>\n";
    for (const auto& [name, isFolder] : entries)
    {
        std::string shown = name + (isFolder ? "/" : "");
        html += "<li><a href=\"" + htmlEncode(percentEncode(name)) + (isFolder ? "/" : "") + "\">" +
                htmlEncode(shown) + "</a></li>\n";
    }
    html += "</ul>\n</body></html>\n";
    return html;
}

} // namespace kiv
