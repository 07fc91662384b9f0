// Static files: content types, caching validators (ETag, Last-Modified) with their
// conditional requests, bodies sent from disk, and a generated listing for folders without
// an index page.
#pragma once

#include "http/HttpMessage.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace kiv
{

std::string contentTypeFor(const std::filesystem::path& file);

// Fills response with the open file, which the connection layer then sends from disk (or
// with 304 Not Modified when the request's validators match).
void serveStaticFile(const std::filesystem::path& file, const HttpRequest& request, HttpResponse& response);

// An HTML list of the folder's entries; hidden files (".name") are left out.
std::string renderDirectoryListing(const std::filesystem::path& folder, std::string_view urlPath);

} // namespace kiv
