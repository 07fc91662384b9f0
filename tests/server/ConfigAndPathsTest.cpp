// Configuration parsing and checks, region selection, and the path confinement that keeps
// requests inside the site root.
#include "common/SafePaths.h"
#include "config/ServerConfig.h"
#include "region/UserDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{
namespace
{

TEST(Config, ParsesServerLimitsAndRegionsWithPathsFromTheConfigFolder)
{
    ServerConfig config = parseConfig(R"(
[server]
listen = "127.0.0.1"
port = 9090
workers = 3
admin_path = "/admin"
modules = ["lib/libkivdatabase.so"]
access_log = "logs/access.log"

[limits]
max_body_bytes = 1024
header_timeout = 4

[[region]]
name = "www"
hosts = ["WWW.Example.org"]
root = "site"
language = "fr"
protected = ["/manage/"]
show_errors = false
[region.users]
admin = "$argon2id$v=19$m=65536,t=2,p=1$x$y"

[[region]]
name = "other"
root = "/srv/other"
data = "/srv/other-data"
exports_folder = "exports-of-other"
)",
                                      "/etc/kiv");
    ASSERT_EQ(config.listeners.size(), 1u);
    EXPECT_EQ(config.listeners[0].port, 9090);
    EXPECT_FALSE(config.listeners[0].isTls());
    EXPECT_EQ(config.workers, 3);
    EXPECT_EQ(config.adminPath, "/admin/");
    ASSERT_EQ(config.modules.size(), 1u);
    EXPECT_EQ(config.modules[0], fs::path("/etc/kiv/lib/libkivdatabase.so"));
    EXPECT_EQ(config.accessLog, fs::path("/etc/kiv/logs/access.log"));
    EXPECT_EQ(config.limits.maxBodyBytes, 1024u);
    EXPECT_EQ(config.limits.headerTimeoutSeconds, 4);
    EXPECT_EQ(config.limits.maxRequestLine, 8192u) << "unset limits keep their defaults";
    ASSERT_EQ(config.regions.size(), 2u);
    const RegionConfig& www = config.regions[0];
    EXPECT_EQ(www.siteRoot, fs::path("/etc/kiv/site"));
    EXPECT_EQ(www.dataFolder, fs::path("/etc/kiv/site-data"))
        << "the data folder defaults to beside the site";
    EXPECT_EQ(www.language, 0x02000000u);
    EXPECT_FALSE(www.showErrors);
    ASSERT_EQ(www.users.size(), 1u);
    EXPECT_EQ(www.users[0].name, "admin");
    EXPECT_EQ(config.regions[1].dataFolder, fs::path("/srv/other-data"));
    EXPECT_TRUE(www.exportsFolder.empty()) << "empty: exports in the data folder";
    EXPECT_EQ(config.regions[1].exportsFolder, fs::path("/etc/kiv/exports-of-other"));
}

TEST(Config, RegionPolicyIsSafeByDefaultAndEachKeyOptsOut)
{
    ServerConfig config = parseConfig(R"(
[[region]]
name = "safe"
root = "site"

[[region]]
name = "raw"
root = "raw"
encode_fields = false
content_security_policy = ""
writes_need_post = false
public_write_rate = 0
refuse_markup_tags = ["kivModifyDatabase", "kivOtherWriter"]
directory_listing = true

[[region]]
name = "encoded but guarded"
root = "guarded"
refuse_markup = true
public_write_rate = 5
content_security_policy = "default-src 'none'"
)",
                                      "/etc/kiv");
    const RegionPolicy& safe = config.regions[0].policy;
    EXPECT_TRUE(safe.encodeFields);
    EXPECT_EQ(safe.contentSecurityPolicy, "default-src 'self'; script-src 'self'; object-src 'none'; "
                                          "base-uri 'self'; frame-ancestors 'self'");
    EXPECT_TRUE(safe.writesNeedPost);
    EXPECT_EQ(safe.publicWritesPerMinute, 60);
    EXPECT_FALSE(safe.refuseMarkup) << "encoded fields make the markup guard unnecessary";
    EXPECT_FALSE(safe.directoryListing);
    const RegionPolicy& raw = config.regions[1].policy;
    EXPECT_FALSE(raw.encodeFields);
    EXPECT_TRUE(raw.contentSecurityPolicy.empty());
    EXPECT_FALSE(raw.writesNeedPost);
    EXPECT_EQ(raw.publicWritesPerMinute, 0);
    EXPECT_TRUE(raw.refuseMarkup) << "without encoding, public pages refuse markup unless told otherwise";
    EXPECT_EQ(raw.refuseMarkupTags, (std::vector<std::string>{"kivModifyDatabase", "kivOtherWriter"}));
    EXPECT_TRUE(raw.directoryListing);
    const RegionPolicy& guarded = config.regions[2].policy;
    EXPECT_TRUE(guarded.encodeFields);
    EXPECT_TRUE(guarded.refuseMarkup);
    EXPECT_EQ(guarded.publicWritesPerMinute, 5);
    EXPECT_EQ(guarded.contentSecurityPolicy, "default-src 'none'");
    EXPECT_EQ(makeDefaultRegion("site", "").policy.contentSecurityPolicy, safe.contentSecurityPolicy)
        << "a server without a configuration file is as safe";

    EXPECT_THROW(parseConfig("[[region]]\nroot = \"s\"\npublic_write_rate = -1\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[[region]]\nroot = \"s\"\nencode_fields = \"no\"\n", "/"), ConfigError);
    EXPECT_THROW(
        parseConfig("[[region]]\nroot = \"s\"\ncontent_security_policy = \"a\\r\\nSet-Cookie: x\"\n", "/"),
        ConfigError)
        << "the policy goes into a header as it is written";
    // The list of policy keys (for checks of unknown keys) names exactly what is read: a value
    // of the wrong kind under each of them is refused.
    for (const std::string_view key : kRegionPolicyKeys)
        EXPECT_THROW(parseConfig("[[region]]\nroot = \"s\"\n" + std::string(key) + " = {}\n", "/"),
                     ConfigError)
            << key;
}

TEST(Config, RefusesWhatWouldBreakTheServer)
{
    EXPECT_THROW(parseConfig("[server]\nport = 70000\n[[region]]\nroot = \"s\"\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[server]\nport = \"80\"\n[[region]]\nroot = \"s\"\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[[region]]\nname = \"x\"\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[[region]]\nroot = \"s\"\nlanguage = \"de\"\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[[region]]\nroot = \"s\"\nprotected = [\"manage\"]\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[server]\n", "/"), ConfigError);
    EXPECT_THROW(parseConfig("[server\nport=1", "/"), ConfigError);
}

// The message of the ConfigError that parsing the text throws; empty when it parses.
std::string configErrorOf(const std::string& text)
{
    try
    {
        parseConfig(text, "/etc/kiv", "/etc/kiv/server.toml");
    }
    catch (const ConfigError& error)
    {
        return error.what();
    }
    return {};
}

TEST(Config, UnknownKeysWrongTypesAndRangesAreErrorsWithTheirLines)
{
    std::string message = configErrorOf(R"([server]
workerz = 4
port = 8080
[limits]
header_timeout = 0
max_headers = 2.5
[[listen]]
address = "127.0.0.1"
tls = true
[[region]]
root = "site"
show_error = false
directory_listing = "yes"
[region.users]
ann = 5
[extra]
x = 1
)");
    EXPECT_NE(message.find("/etc/kiv/server.toml:2: unknown key 'workerz' in [server]"), std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:5: 'header_timeout' must be a whole number from 1 to 3600"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:6: 'max_headers' must be a whole number"), std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:9: unknown key 'tls' in [[listen]] 1"), std::string::npos) << message;
    EXPECT_NE(message.find("server.toml:12: unknown key 'show_error' in [[region]] 1"), std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:13: 'directory_listing' must be true or false"), std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:15: the password hash of user 'ann' must be a string"),
              std::string::npos)
        << message;
    EXPECT_NE(message.find("server.toml:16: unknown key 'extra'"), std::string::npos) << message;
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 7) << "one line per problem:\n" << message;

    EXPECT_NE(configErrorOf("[server]\nport = 1\n[[region]]\nroot = \"s\"\n[server.extra]\n").find(":5: "),
              std::string::npos)
        << "a table nested where none belongs";
    EXPECT_NE(configErrorOf("[server\nport=1").find("server.toml:1: "), std::string::npos) << "syntax";
    EXPECT_NE(configErrorOf("[server]\nstatus_access = \"everyone\"\n[[region]]\nroot = \"s\"\n")
                  .find(":2: 'status_access' must be one of \"local\", \"login\", \"public\""),
              std::string::npos);
    EXPECT_EQ(configErrorOf("[server]\nstatus_access = \"public\"\n[[region]]\nroot = \"s\"\n"), "");
}

TEST(Config, SafeDefaultsAndTheProblemsCheckReports)
{
    fs::path base = fs::temp_directory_path() / ("kiv-config-" + std::to_string(::getpid()));
    fs::create_directories(base / "site" / "data");
    ServerConfig config = parseConfig("[[region]]\nroot = \"site\"\n", base);
    EXPECT_FALSE(config.regions[0].policy.directoryListing) << "folders are not listed unless a region asks";
    EXPECT_EQ(config.statusAccess, StatusAccess::LocalOrLogin);
    EXPECT_TRUE(findConfigProblems(config).empty());

    for (const char* data : {"site/data", "site", "site/../site/db"})
    {
        ServerConfig inside =
            parseConfig(std::string("[[region]]\nroot = \"site\"\ndata = \"") + data + "\"\n", base);
        auto problems = findConfigProblems(inside);
        ASSERT_EQ(problems.size(), 1u) << data;
        EXPECT_NE(problems[0].find("lies inside the site root"), std::string::npos) << problems[0];
    }
    ServerConfig exports =
        parseConfig("[[region]]\nroot = \"site\"\nexports_folder = \"site/downloads\"\n", base);
    ASSERT_EQ(findConfigProblems(exports).size(), 1u);
    EXPECT_NE(findConfigProblems(exports)[0].find("exports folder"), std::string::npos);
    fs::create_symlink(base / "site" / "data", base / "alias");
    ServerConfig throughLink = parseConfig("[[region]]\nroot = \"site\"\ndata = \"alias\"\n", base);
    EXPECT_EQ(findConfigProblems(throughLink).size(), 1u) << "a link into the site is inside it";

    for (const char* address : {"::1", "[::1]", "localhost", "127.0.0.256"})
    {
        ServerConfig listener = parseConfig(
            std::string("[server]\nlisten = \"") + address + "\"\n[[region]]\nroot = \"site\"\n", base);
        auto problems = findConfigProblems(listener);
        ASSERT_EQ(problems.size(), 1u) << address;
        EXPECT_NE(problems[0].find("is not an IPv4 address"), std::string::npos) << problems[0];
    }
    fs::remove_all(base);
}

TEST(Config, ListenersTheirTlsFilesAndTheConnectionLimits)
{
    ServerConfig config = parseConfig(R"(
[server]
listen = "0.0.0.0"
port = 80
redirect_to_tls = true
gzip = false

[[listen]]
address = "0.0.0.0"
port = 443
tls_cert = "tls/cert.pem"
tls_key = "/etc/ssl/private/key.pem"

[limits]
max_connections = 500
max_connections_per_address = 20
write_timeout = 7
max_login_failures = 3
login_block = 120

[[region]]
root = "site"
)",
                                      "/etc/kiv");
    ASSERT_EQ(config.listeners.size(), 2u);
    EXPECT_TRUE(config.listeners[0].redirectToTls);
    EXPECT_EQ(config.listeners[1].port, 443);
    EXPECT_EQ(config.listeners[1].tlsCertificate, fs::path("/etc/kiv/tls/cert.pem"));
    EXPECT_EQ(config.listeners[1].tlsKey, fs::path("/etc/ssl/private/key.pem"));
    EXPECT_FALSE(config.gzip);
    EXPECT_EQ(config.hstsMaxAgeSeconds, 31536000) << "HSTS is on by default";
    EXPECT_EQ(config.limits.maxConnections, 500);
    EXPECT_EQ(config.limits.maxConnectionsPerAddress, 20);
    EXPECT_EQ(config.limits.writeTimeoutSeconds, 7);
    EXPECT_EQ(config.limits.maxLoginFailures, 3);
    EXPECT_EQ(config.limits.loginBlockSeconds, 120);
    EXPECT_EQ(config.limits.maxQueuedRequests, 256) << "unset limits keep their defaults";
    EXPECT_TRUE(findConfigProblems(config).size() == 1) << "only the missing site folder";

    EXPECT_THROW(parseConfig("[[listen]]\ntls_cert = \"c.pem\"\n[[region]]\nroot = \"s\"\n", "/"),
                 ConfigError)
        << "a certificate without its key";
    ServerConfig redirectOnly =
        parseConfig("[server]\nredirect_to_tls = true\n[[region]]\nroot = \"/tmp\"\n", "/");
    auto problems = findConfigProblems(redirectOnly);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find("no listener has a certificate"), std::string::npos);
}

TEST(Config, ProblemsNameMissingSitesAndBadHashes)
{
    ServerConfig config =
        parseConfig("[[region]]\nroot = \"/nonexistent/site\"\n[region.users]\nann = \"plain\"\n", "/");
    auto problems = findConfigProblems(config);
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_NE(problems[0].find("/nonexistent/site"), std::string::npos);
    EXPECT_NE(problems[1].find("ann"), std::string::npos);
}

TEST(Config, RegionIsChosenByHostName)
{
    ServerConfig config = parseConfig(R"(
[[region]]
name = "a"
hosts = ["a.test"]
root = "a"
[[region]]
name = "fallback"
root = "f"
[[region]]
name = "b"
hosts = ["b.test"]
root = "b"
)",
                                      "/");
    EXPECT_EQ(selectRegion(config, "B.TEST:8080").name, "b");
    EXPECT_EQ(selectRegion(config, "a.test").name, "a");
    EXPECT_EQ(selectRegion(config, "unknown.test").name, "fallback");
    EXPECT_EQ(selectRegion(config, "").name, "fallback");
}

TEST(Config, DefaultRegionProtectsTheEditorFolder)
{
    RegionConfig region = makeDefaultRegion("/srv/site", "");
    EXPECT_EQ(region.dataFolder, fs::path("/srv/site-data"));
    EXPECT_EQ(region.protectedPaths, std::vector<std::string>{"/manage/"});
    EXPECT_EQ(region.usersFile, fs::path("/srv/site-data/users.toml"));
}

TEST(Accounts, PasswordsNeedTwelveCharactersCountedAsLettersNotBytes)
{
    EXPECT_NE(findPasswordProblem(""), "");
    EXPECT_NE(findPasswordProblem("eleven-char").find("has 11 characters; it needs at least 12"),
              std::string::npos);
    EXPECT_EQ(findPasswordProblem("twelve-chars"), "");
    std::string accented;
    for (int i = 0; i < 11; ++i)
        accented += "\xc3\xa9"; // é in UTF-8: 22 bytes, 11 characters
    EXPECT_NE(findPasswordProblem(accented), "");
    EXPECT_EQ(findPasswordProblem(accented + "\xc3\xa9"), "");
}

class SafePaths : public ::testing::Test
{
protected:
    void SetUp() override
    {
        base = fs::temp_directory_path() / ("kiv-paths-" + std::to_string(::getpid()));
        fs::remove_all(base);
        fs::create_directories(base / "site" / "sub");
        fs::create_directories(base / "site-secrets");
        std::ofstream(base / "site" / "sub" / "page.html") << "x";
        fs::create_symlink(base / "site-secrets", base / "site" / "escape");
        fs::create_symlink(base / "site" / "sub", base / "site" / "alias");
    }
    void TearDown() override { fs::remove_all(base); }
    fs::path base;
};

TEST_F(SafePaths, UrlPathsResolveInsideTheRoot)
{
    fs::path root = fs::canonical(base / "site");
    EXPECT_EQ(resolveUrlPath(base / "site", "/sub/page.html"), root / "sub" / "page.html");
    EXPECT_EQ(resolveUrlPath(base / "site", "/"), root);
    EXPECT_EQ(resolveUrlPath(base / "site", "/alias/page.html"), root / "sub" / "page.html")
        << "links that stay inside are followed";
    EXPECT_EQ(resolveUrlPath(base / "site", "/sub/./missing.html"), root / "sub" / "missing.html");
}

TEST_F(SafePaths, UrlPathsThatLeaveTheRootAreRefused)
{
    for (std::string_view path : {"/../site-secrets/x", "/sub/../../x", "/..", "/escape/x", "/escape",
                                  "sub/page.html", "/sub\\..\\x", ""})
        EXPECT_FALSE(resolveUrlPath(base / "site", path)) << path;
    EXPECT_FALSE(resolveUrlPath(base / "site", std::string_view("/a\0b", 4)));
}

TEST_F(SafePaths, PrefixOfAnotherFolderIsNotInside)
{
    EXPECT_TRUE(isInsideFolder("/srv/site", "/srv/site/a"));
    EXPECT_TRUE(isInsideFolder("/srv/site/", "/srv/site"));
    EXPECT_FALSE(isInsideFolder("/srv/site", "/srv/site-secrets/a"));
    EXPECT_FALSE(isInsideFolder("/srv/site", "/srv"));
}

TEST_F(SafePaths, FilePathsMayNameFilesNotYetWritten)
{
    fs::path root = fs::canonical(base / "site");
    EXPECT_EQ(resolveFileInFolder(base / "site", "new/dir/export.csv"), root / "new" / "dir" / "export.csv");
    EXPECT_FALSE(resolveFileInFolder(base / "site", "escape/export.csv"));
    EXPECT_FALSE(resolveFileInFolder(base / "site", "escape"));
    EXPECT_FALSE(resolveFileInFolder(base / "site", "new/../../x.csv"));
}

TEST_F(SafePaths, FilePathsCannotReachALinkPastAMissingFolder)
{
    // Resolution stops following links at the first missing component; a ".." after it
    // must not smuggle an outbound link past the check.
    EXPECT_FALSE(resolveFileInFolder(base / "site", "missing/../escape/export.csv"));
    EXPECT_FALSE(resolveFileInFolder(base / "site", "sub/missing/../../escape/export.csv"));
    fs::create_symlink(base / "nowhere", base / "site" / "dangling");
    EXPECT_FALSE(resolveFileInFolder(base / "site", "dangling"));
    EXPECT_FALSE(resolveFileInFolder(base / "site", "dangling/export.csv"));
    fs::path root = fs::canonical(base / "site");
    EXPECT_EQ(resolveFileInFolder(base / "site", "missing/../sub/export.csv"), root / "sub" / "export.csv");
    EXPECT_EQ(resolveFileInFolder(base / "site", "alias/export.csv"), root / "sub" / "export.csv")
        << "links that stay inside are followed";
}

} // namespace
} // namespace kiv
