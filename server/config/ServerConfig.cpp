// Configuration parsing (toml++) and its checks.
#include "config/ServerConfig.h"

#include "common/Text.h"

#include <toml++/toml.h>

#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

fs::path resolvePath(const fs::path& base, const std::string& text)
{
    fs::path path(text);
    return (path.is_absolute() ? path : base / path).lexically_normal();
}

template <typename T>
T readNumber(const toml::table& table, std::string_view key, T fallback, T minimum, T maximum)
{
    auto node = table[key];
    if (!node)
        return fallback;
    auto value = node.value<int64_t>();
    if (!value || *value < static_cast<int64_t>(minimum) || *value > static_cast<int64_t>(maximum))
        throw ConfigError("'" + std::string(key) + "' must be a number from " + std::to_string(minimum) +
                          " to " + std::to_string(maximum));
    return static_cast<T>(*value);
}

std::string readString(const toml::table& table, std::string_view key, const std::string& fallback)
{
    auto node = table[key];
    if (!node)
        return fallback;
    auto value = node.value<std::string>();
    if (!value)
        throw ConfigError("'" + std::string(key) + "' must be a string");
    return *value;
}

bool readBool(const toml::table& table, std::string_view key, bool fallback)
{
    auto node = table[key];
    if (!node)
        return fallback;
    auto value = node.value<bool>();
    if (!value)
        throw ConfigError("'" + std::string(key) + "' must be true or false");
    return *value;
}

std::vector<std::string> readStrings(const toml::table& table, std::string_view key,
                                     const std::vector<std::string>& fallback)
{
    auto node = table[key];
    if (!node)
        return fallback;
    const toml::array* array = node.as_array();
    if (!array)
        throw ConfigError("'" + std::string(key) + "' must be a list of strings");
    std::vector<std::string> values;
    for (const auto& element : *array)
    {
        auto value = element.value<std::string>();
        if (!value)
            throw ConfigError("'" + std::string(key) + "' must be a list of strings");
        values.push_back(*value);
    }
    return values;
}

std::vector<UserAccount> readUsers(const toml::table& table)
{
    std::vector<UserAccount> users;
    for (const auto& [name, node] : table)
    {
        auto hash = node.value<std::string>();
        if (!hash)
            throw ConfigError("the password hash of user '" + std::string(name.str()) + "' must be a string");
        users.push_back({std::string(name.str()), *hash});
    }
    return users;
}

// The keys of kRegionPolicyKeys.
void readRegionPolicy(const toml::table& table, const std::string& regionName, RegionPolicy& policy)
{
    policy.encodeFields = readBool(table, "encode_fields", policy.encodeFields);
    policy.contentSecurityPolicy = readString(table, "content_security_policy", policy.contentSecurityPolicy);
    for (const char c : policy.contentSecurityPolicy)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            throw ConfigError("region '" + regionName +
                              "': 'content_security_policy' holds a control character");
    policy.writesNeedPost = readBool(table, "writes_need_post", policy.writesNeedPost);
    policy.publicWritesPerMinute =
        readNumber(table, "public_write_rate", policy.publicWritesPerMinute, 0, 1000000);
    policy.refuseMarkup = readBool(table, "refuse_markup", !policy.encodeFields);
    policy.refuseMarkupTags = readStrings(table, "refuse_markup_tags", policy.refuseMarkupTags);
    policy.directoryListing = readBool(table, "directory_listing", policy.directoryListing);
}

RegionConfig readRegion(const toml::table& table, const fs::path& base, size_t index)
{
    RegionConfig region;
    region.name = readString(table, "name", index == 0 ? "default" : "region" + std::to_string(index + 1));
    region.hostNames = readStrings(table, "hosts", {});
    for (auto& host : region.hostNames)
        host = toLower(host);
    std::string root = readString(table, "root", "");
    if (root.empty())
        throw ConfigError("region '" + region.name + "' needs a 'root' (its site folder)");
    region.siteRoot = resolvePath(base, root);
    std::string data = readString(table, "data", "");
    region.dataFolder = data.empty() ? fs::path(region.siteRoot.string() + "-data") : resolvePath(base, data);
    std::string exports = readString(table, "exports_folder", "");
    if (!exports.empty())
        region.exportsFolder = resolvePath(base, exports);
    std::string language = readString(table, "language", "en");
    region.language = languageCode(language);
    if (region.language == 0)
        throw ConfigError("region '" + region.name + "': unknown language '" + language + "' (en, fr or es)");
    region.pageExtensions = readStrings(table, "page_extensions", region.pageExtensions);
    for (auto& extension : region.pageExtensions)
        if (extension.empty() || extension[0] != '.')
            extension = "." + extension;
    region.indexFiles = readStrings(table, "index_files", region.indexFiles);
    region.pageCharset = readString(table, "charset", region.pageCharset);
    region.showErrors = readBool(table, "show_errors", region.showErrors);
    region.protectedPaths = readStrings(table, "protected", {});
    readRegionPolicy(table, region.name, region.policy);
    for (const auto& prefix : region.protectedPaths)
        if (prefix.empty() || prefix[0] != '/')
            throw ConfigError("region '" + region.name + "': protected path '" + prefix +
                              "' must start with /");
    if (auto users = table["users"].as_table())
        region.users = readUsers(*users);
    std::string usersFile = readString(table, "users_file", "");
    if (!usersFile.empty())
        region.usersFile = resolvePath(base, usersFile);
    return region;
}

// The keys a listener has, in [server] (with listen = the address) and in each [[listen]].
void readListener(const toml::table& table, std::string_view addressKey, const fs::path& base,
                  ListenerConfig& listener)
{
    listener.address = readString(table, addressKey, listener.address);
    listener.port = readNumber(table, "port", listener.port, 0, 65535);
    std::string certificate = readString(table, "tls_cert", "");
    std::string key = readString(table, "tls_key", "");
    if (certificate.empty() != key.empty())
        throw ConfigError("listener " + listener.address + ":" + std::to_string(listener.port) +
                          ": 'tls_cert' and 'tls_key' go together");
    if (!certificate.empty())
    {
        listener.tlsCertificate = resolvePath(base, certificate);
        listener.tlsKey = resolvePath(base, key);
    }
    listener.redirectToTls = readBool(table, "redirect_to_tls", listener.redirectToTls);
}

void readLimits(const toml::table& limits, ServerLimits& l)
{
    l.maxRequestLine = readNumber<size_t>(limits, "max_request_line", l.maxRequestLine, 64, 1 << 20);
    l.maxHeaderBytes = readNumber<size_t>(limits, "max_header_bytes", l.maxHeaderBytes, 256, 1 << 24);
    l.maxHeaderCount = readNumber<size_t>(limits, "max_headers", l.maxHeaderCount, 1, 10000);
    l.maxBodyBytes = readNumber<size_t>(limits, "max_body_bytes", l.maxBodyBytes, 0, size_t(1) << 34);
    l.headerTimeoutSeconds = readNumber(limits, "header_timeout", l.headerTimeoutSeconds, 1, 3600);
    l.bodyTimeoutSeconds = readNumber(limits, "body_timeout", l.bodyTimeoutSeconds, 1, 36000);
    l.keepAliveTimeoutSeconds = readNumber(limits, "keep_alive_timeout", l.keepAliveTimeoutSeconds, 0, 3600);
    l.writeTimeoutSeconds = readNumber(limits, "write_timeout", l.writeTimeoutSeconds, 1, 3600);
    l.maxRequestsPerConnection =
        readNumber(limits, "max_requests_per_connection", l.maxRequestsPerConnection, 1, 100000);
    l.maxConnections = readNumber(limits, "max_connections", l.maxConnections, 1, 1000000);
    l.maxConnectionsPerAddress =
        readNumber(limits, "max_connections_per_address", l.maxConnectionsPerAddress, 1, 1000000);
    l.maxQueuedRequests = readNumber(limits, "max_queued_requests", l.maxQueuedRequests, 1, 1000000);
    l.loginThreads = readNumber(limits, "login_threads", l.loginThreads, 1, 64);
    l.maxQueuedLogins = readNumber(limits, "max_queued_logins", l.maxQueuedLogins, 1, 100000);
    l.maxLoginFailures = readNumber(limits, "max_login_failures", l.maxLoginFailures, 1, 100000);
    l.loginBlockSeconds = readNumber(limits, "login_block", l.loginBlockSeconds, 1, 86400);
}

} // namespace

ServerConfig parseConfig(std::string_view tomlText, const fs::path& baseFolder)
{
    toml::table document;
    try
    {
        document = toml::parse(tomlText);
    }
    catch (const toml::parse_error& error)
    {
        std::ostringstream message;
        message << "line " << error.source().begin.line << ": " << error.description();
        throw ConfigError(message.str());
    }

    ServerConfig config;
    if (auto server = document["server"].as_table())
    {
        readListener(*server, "listen", baseFolder, config.listeners.front());
        config.gzip = readBool(*server, "gzip", config.gzip);
        config.hstsMaxAgeSeconds =
            readNumber(*server, "hsts_max_age", config.hstsMaxAgeSeconds, 0, 100000000);
        config.workers = readNumber(*server, "workers", config.workers, 0, 256);
        config.threadsPerWorker = readNumber(*server, "threads", config.threadsPerWorker, 1, 1024);
        config.adminPath = readString(*server, "admin_path", config.adminPath);
        if (config.adminPath.empty() || config.adminPath[0] != '/')
            throw ConfigError("'admin_path' must start with /");
        if (config.adminPath.back() != '/')
            config.adminPath += '/';
        if ((*server)["modules"])
        {
            config.modulesConfigured = true;
            for (const auto& module : readStrings(*server, "modules", {}))
                config.modules.push_back(resolvePath(baseFolder, module));
        }
        std::string serverLog = readString(*server, "server_log", "");
        if (!serverLog.empty())
            config.serverLog = resolvePath(baseFolder, serverLog);
        std::string accessLog = readString(*server, "access_log", "");
        if (!accessLog.empty())
            config.accessLog = resolvePath(baseFolder, accessLog);
    }
    if (auto listeners = document["listen"].as_array())
    {
        for (const auto& node : *listeners)
        {
            const toml::table* table = node.as_table();
            if (!table)
                throw ConfigError("every [[listen]] must be a table");
            config.listeners.emplace_back();
            readListener(*table, "address", baseFolder, config.listeners.back());
        }
    }
    if (auto limits = document["limits"].as_table())
        readLimits(*limits, config.limits);
    if (auto regions = document["region"].as_array())
    {
        for (size_t i = 0; i < regions->size(); ++i)
        {
            const toml::table* table = (*regions)[i].as_table();
            if (!table)
                throw ConfigError("every [[region]] must be a table");
            config.regions.push_back(readRegion(*table, baseFolder, i));
        }
    }
    if (config.regions.empty())
        throw ConfigError("the configuration names no [[region]]");
    return config;
}

ServerConfig loadConfigFile(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ConfigError("cannot read " + file.string());
    std::ostringstream text;
    text << in.rdbuf();
    fs::path base = fs::absolute(file).parent_path();
    return parseConfig(text.str(), base);
}

RegionConfig makeDefaultRegion(const fs::path& siteRoot, const fs::path& dataFolder)
{
    RegionConfig region;
    region.siteRoot = fs::absolute(siteRoot).lexically_normal();
    fs::path data = dataFolder.empty() ? fs::path(region.siteRoot.string() + "-data") : dataFolder;
    region.dataFolder = fs::absolute(data).lexically_normal();
    // The example site keeps its editor under /manage/; without a configuration that
    // folder is protected like the administration page, with the accounts of users.toml.
    region.protectedPaths = {"/manage/"};
    region.usersFile = region.dataFolder / "users.toml";
    return region;
}

std::vector<std::string> findConfigProblems(const ServerConfig& config)
{
    std::vector<std::string> problems;
    for (const auto& region : config.regions)
    {
        std::error_code error;
        if (!fs::is_directory(region.siteRoot, error))
            problems.push_back("region '" + region.name + "': site root " + region.siteRoot.string() +
                               " is not a folder");
        for (const auto& user : region.users)
            if (user.passwordHash.rfind("$argon2id$", 0) != 0)
                problems.push_back("region '" + region.name + "': user '" + user.name +
                                   "' has no argon2id hash (make one with `kiv-server passwd`)");
        if (!region.usersFile.empty() && fs::exists(region.usersFile, error))
        {
            try
            {
                readUsersFile(region.usersFile);
            }
            catch (const ConfigError& problem)
            {
                problems.push_back("region '" + region.name + "': " + problem.what());
            }
        }
    }
    bool anyTls = false;
    for (const auto& listener : config.listeners)
        anyTls = anyTls || listener.isTls();
    for (const auto& listener : config.listeners)
    {
        std::string where = "listener " + listener.address + ":" + std::to_string(listener.port);
        if (listener.redirectToTls && listener.isTls())
            problems.push_back(where + " speaks HTTPS itself; 'redirect_to_tls' is for a plain listener");
        else if (listener.redirectToTls && !anyTls)
            problems.push_back(where + " redirects to HTTPS, but no listener has a certificate");
    }
    for (const auto& module : config.modules)
    {
        std::error_code error;
        if (!fs::is_regular_file(module, error))
            problems.push_back("module " + module.string() + " does not exist");
    }
    return problems;
}

const RegionConfig& selectRegion(const ServerConfig& config, std::string_view hostHeader)
{
    std::string host = toLower(hostHeader);
    if (!host.empty() && host[0] == '[')
        host = host.substr(0, host.find(']') + 1);
    else if (auto colon = host.find(':'); colon != std::string::npos)
        host.resize(colon);
    const RegionConfig* fallback = nullptr;
    for (const auto& region : config.regions)
    {
        for (const auto& name : region.hostNames)
            if (name == host)
                return region;
        if (region.hostNames.empty() && !fallback)
            fallback = &region;
    }
    return fallback ? *fallback : config.regions.front();
}

uint32_t languageCode(std::string_view name)
{
    std::string lowered = toLower(name);
    if (lowered == "en" || lowered == "english")
        return 0x01000000;
    if (lowered == "fr" || lowered == "french")
        return 0x02000000;
    if (lowered == "es" || lowered == "spanish")
        return 0x03000000;
    return 0;
}

std::vector<UserAccount> readUsersFile(const fs::path& file)
{
    try
    {
        toml::table table = toml::parse_file(file.string());
        return readUsers(table);
    }
    catch (const toml::parse_error& error)
    {
        throw ConfigError(file.string() + " line " + std::to_string(error.source().begin.line) + ": " +
                          std::string(error.description()));
    }
}

} // namespace kiv
