// The access rules of a site as a browser meets them: the same-origin rule for form posts to
// protected areas and the Basic credentials.
#include "site/SiteHandler.h"

#include <gtest/gtest.h>

namespace kiv
{
namespace
{

HttpRequest postFrom(NameValueList headers)
{
    HttpRequest request;
    request.method = "POST";
    request.headers = std::move(headers);
    return request;
}

TEST(SameOrigin, PostsFromThisHostAndPortAreAccepted)
{
    EXPECT_TRUE(
        isSameOrigin(postFrom({{"Host", "example.org:8080"}, {"Origin", "http://example.org:8080"}})));
    EXPECT_TRUE(
        isSameOrigin(postFrom({{"Host", "Example.org:8080"}, {"Origin", "HTTP://example.ORG:8080"}})));
    EXPECT_TRUE(
        isSameOrigin(postFrom({{"Host", "example.org"}, {"Referer", "http://example.org/manage/x"}})));
    EXPECT_TRUE(isSameOrigin(postFrom({{"Host", "example.org"}, {"Origin", "https://example.org"}})))
        << "behind a proxy that ends TLS";
}

TEST(SameOrigin, PostsFromAnywhereElseAreRefused)
{
    for (NameValueList headers : std::vector<NameValueList>{
             {{"Host", "example.org"}},
             {{"Host", "example.org"}, {"Origin", "null"}},
             {{"Host", "example.org"}, {"Origin", "http://example.org.evil.test"}},
             {{"Host", "example.org"}, {"Origin", "http://example.org:8080"}},
             {{"Host", "example.org"}, {"Origin", "http://evil.test"}, {"Referer", "http://example.org/"}},
             {{"Host", "example.org"}, {"Referer", "http://example.org.evil.test/x"}},
             {{"Host", "example.org"}, {"Referer", "http://evil.test/?http://example.org/"}},
             {{"Origin", "http://example.org"}}})
        EXPECT_FALSE(isSameOrigin(postFrom(headers))) << headers.back().second;
}

TEST(BasicCredentials, UserAndPasswordAreSplitAtTheFirstColon)
{
    std::string user, password;
    ASSERT_TRUE(decodeBasicCredentials("Basic YWRtaW46YTpi", user, password)); // admin:a:b
    EXPECT_EQ(user, "admin");
    EXPECT_EQ(password, "a:b");
    EXPECT_FALSE(decodeBasicCredentials("Bearer YWRtaW46YTpi", user, password));
    EXPECT_FALSE(decodeBasicCredentials("Basic !!!", user, password));
    EXPECT_FALSE(decodeBasicCredentials("Basic YWRtaW4=", user, password)) << "no colon";
    EXPECT_FALSE(decodeBasicCredentials("Basic " + std::string(5000, 'A'), user, password));
}

} // namespace
} // namespace kiv
