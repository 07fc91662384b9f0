// The files the server carries for pages (the editor's stylesheet): compiled in unchanged and
// served under /kiv-assets/ with caching validators, to GET and HEAD only.
#include "site/BuiltinAssets.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace kiv
{
namespace
{

HttpRequest requestFor(std::string method, std::string path, NameValueList headers = {})
{
    HttpRequest request;
    request.method = std::move(method);
    request.path = std::move(path);
    request.headers = std::move(headers);
    return request;
}

HttpResponse serve(const HttpRequest& request)
{
    HttpResponse response;
    EXPECT_TRUE(serveBuiltinAsset(request, response)) << request.path;
    return response;
}

std::string headerOf(const HttpResponse& response, std::string_view name)
{
    const std::string* value = response.header(name);
    return value ? *value : std::string("(none)");
}

TEST(BuiltinAssets, TheEditorStylesheetIsCompiledInByteForByte)
{
    std::ifstream source(std::string(KIV_TEST_DATA_DIR) + "/../../server/site/assets/editor.css",
                         std::ios::binary);
    ASSERT_TRUE(source);
    std::ostringstream text;
    text << source.rdbuf();

    const BuiltinAsset* asset = findBuiltinAsset("editor.css");
    ASSERT_NE(asset, nullptr);
    EXPECT_EQ(asset->content, text.str());
    EXPECT_EQ(asset->contentType, "text/css; charset=utf-8");
    ASSERT_GT(asset->entityTag.size(), 2u);
    EXPECT_EQ(asset->entityTag.front(), '"');
    EXPECT_EQ(asset->entityTag.back(), '"');
    EXPECT_EQ(findBuiltinAsset("missing.css"), nullptr);
    EXPECT_EQ(findBuiltinAsset(""), nullptr);
}

TEST(BuiltinAssets, AreServedWithTheirTypeAValidatorAndLongCaching)
{
    const BuiltinAsset& asset = *findBuiltinAsset("editor.css");
    for (const char* method : {"GET", "HEAD"})
    {
        HttpResponse response = serve(requestFor(method, "/kiv-assets/editor.css"));
        EXPECT_EQ(response.status, 200) << method;
        EXPECT_EQ(response.body, asset.content) << "HEAD bodies are dropped when the response is sent";
        EXPECT_EQ(headerOf(response, "Content-Type"), "text/css; charset=utf-8");
        EXPECT_EQ(headerOf(response, "ETag"), asset.entityTag);
        EXPECT_EQ(headerOf(response, "Cache-Control"), "public, max-age=604800");
    }
}

TEST(BuiltinAssets, AMatchingValidatorGetsNotModified)
{
    std::string tag(findBuiltinAsset("editor.css")->entityTag);
    for (const std::string& header :
         {tag, "W/" + tag, "\"old\", " + tag, "\"old\" ,W/" + tag + " ", std::string("*")})
    {
        HttpResponse response =
            serve(requestFor("GET", "/kiv-assets/editor.css", {{"If-None-Match", header}}));
        EXPECT_EQ(response.status, 304) << header;
        EXPECT_TRUE(response.body.empty()) << header;
        EXPECT_EQ(headerOf(response, "ETag"), tag) << header;
        EXPECT_EQ(headerOf(response, "Cache-Control"), "public, max-age=604800") << header;
    }
    for (const std::string& header :
         {std::string("\"old\""), tag.substr(0, tag.size() - 2) + "\"", std::string("")})
    {
        HttpResponse response =
            serve(requestFor("GET", "/kiv-assets/editor.css", {{"If-None-Match", header}}));
        EXPECT_EQ(response.status, 200) << header;
        EXPECT_FALSE(response.body.empty()) << header;
    }
}

TEST(BuiltinAssets, OtherNamesAndMethodsAreRefusedAndOtherPathsLeftToTheSite)
{
    HttpResponse posted = serve(requestFor("POST", "/kiv-assets/editor.css"));
    EXPECT_EQ(posted.status, 405);
    EXPECT_EQ(headerOf(posted, "Allow"), "GET, HEAD");
    for (const char* path : {"/kiv-assets/", "/kiv-assets/nothing.css", "/kiv-assets/editor.css/x",
                             "/kiv-assets/EDITOR.CSS", "/kiv-assets/sub/editor.css"})
        EXPECT_EQ(serve(requestFor("GET", path)).status, 404) << path;

    for (const char* path :
         {"/", "/editor.css", "/kiv-assets", "/kiv-assetsx/editor.css", "/x/kiv-assets/editor.css"})
    {
        HttpResponse untouched;
        untouched.status = 299;
        EXPECT_FALSE(serveBuiltinAsset(requestFor("GET", path), untouched)) << path;
        EXPECT_EQ(untouched.status, 299) << path;
        EXPECT_TRUE(untouched.headers.empty()) << path;
    }
}

} // namespace
} // namespace kiv
