// Serving the compiled-in assets. Their content only changes with the server, so browsers may
// keep them for a week and then revalidate with the entity tag, which follows the content.
#include "site/BuiltinAssets.h"

#include "site/BuiltinAssetTable.h"

namespace kiv
{

namespace
{

constexpr std::string_view kCacheControl = "public, max-age=604800";

// If-None-Match holds "*" or a comma-separated list of tags, each perhaps marked weak ("W/").
bool matchesEntityTag(std::string_view header, std::string_view tag)
{
    size_t start = 0;
    while (start <= header.size())
    {
        size_t end = std::min(header.find(',', start), header.size());
        std::string_view candidate = trim(header.substr(start, end - start));
        if (candidate.substr(0, 2) == "W/")
            candidate.remove_prefix(2);
        if (candidate == "*" || candidate == tag)
            return true;
        start = end + 1;
    }
    return false;
}

} // namespace

const BuiltinAsset* findBuiltinAsset(std::string_view name)
{
    for (const BuiltinAsset& asset : builtinAssetTable())
        if (asset.name == name)
            return &asset;
    return nullptr;
}

bool serveBuiltinAsset(const HttpRequest& request, HttpResponse& response)
{
    std::string_view path = request.path;
    if (path.substr(0, kBuiltinAssetPrefix.size()) != kBuiltinAssetPrefix)
        return false;
    if (request.method != "GET" && request.method != "HEAD")
    {
        response = makeErrorResponse(405);
        response.setHeader("Allow", "GET, HEAD");
        return true;
    }
    const BuiltinAsset* asset = findBuiltinAsset(path.substr(kBuiltinAssetPrefix.size()));
    if (!asset)
    {
        response = makeErrorResponse(404);
        return true;
    }
    response.setHeader("ETag", asset->entityTag);
    response.setHeader("Cache-Control", kCacheControl);
    const std::string* match = request.header("If-None-Match");
    if (match && matchesEntityTag(*match, asset->entityTag))
    {
        response.status = 304;
        return true;
    }
    response.status = 200;
    response.setHeader("Content-Type", asset->contentType);
    response.body.assign(asset->content);
    return true;
}

} // namespace kiv
