// Static file responses.
#include "http/StaticFiles.h"

#include <algorithm>
#include <ctime>
#include <fstream>
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

bool statFile(const fs::path& file, struct stat& info)
{
    return ::stat(file.c_str(), &info) == 0;
}

std::string formatHttpDate(time_t when)
{
    tm utc{};
    gmtime_r(&when, &utc);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text;
}

} // namespace

std::string entityTag(const fs::path& file)
{
    struct stat info
    {
    };
    if (!statFile(file, info))
        return {};
    std::ostringstream tag;
    tag << '"' << std::hex << info.st_size << '-' << info.st_mtim.tv_sec << '-' << info.st_mtim.tv_nsec
        << '"';
    return tag.str();
}

std::string lastModified(const fs::path& file)
{
    struct stat info
    {
    };
    return statFile(file, info) ? formatHttpDate(info.st_mtim.tv_sec) : std::string();
}

void serveStaticFile(const fs::path& file, const HttpRequest& request, HttpResponse& response)
{
    std::string tag = entityTag(file);
    std::string modified = lastModified(file);
    response.setHeader("ETag", tag);
    response.setHeader("Last-Modified", modified);
    response.setHeader("Cache-Control", "no-cache");
    if (const std::string* match = request.header("If-None-Match"))
    {
        if (match->find(tag) != std::string::npos || trim(*match) == "*")
        {
            response.status = 304;
            return;
        }
    }
    else if (const std::string* since = request.header("If-Modified-Since"))
    {
        if (*since == modified)
        {
            response.status = 304;
            return;
        }
    }
    std::ifstream in(file, std::ios::binary);
    if (!in)
    {
        response = makeErrorResponse(403, "The file cannot be read.");
        return;
    }
    std::ostringstream content;
    content << in.rdbuf();
    response.status = 200;
    response.body = content.str();
    response.setHeader("Content-Type", contentTypeFor(file));
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
