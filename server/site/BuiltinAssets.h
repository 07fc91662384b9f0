// The server's own files for pages to use (the editor's stylesheet), compiled into kiv-server
// and served under one fixed URL prefix in every region, without a login: they hold no site
// data, and a login page styled by them must be able to load them.
#pragma once

#include "http/HttpMessage.h"

#include <cstddef>
#include <string_view>

namespace kiv
{

constexpr std::string_view kBuiltinAssetPrefix = "/kiv-assets/";

struct BuiltinAsset
{
    std::string_view name;        // below the prefix: "editor.css"
    std::string_view contentType; // "text/css; charset=utf-8"
    std::string_view entityTag;   // quoted, from a digest of the content taken at build time
    std::string_view content;
};

// The asset with this name, or nullptr.
const BuiltinAsset* findBuiltinAsset(std::string_view name);

// Answers a request whose path starts with the prefix (the asset, 304 Not Modified, 404 or
// 405) and returns true; returns false, leaving the response alone, for every other path.
bool serveBuiltinAsset(const HttpRequest& request, HttpResponse& response);

} // namespace kiv
