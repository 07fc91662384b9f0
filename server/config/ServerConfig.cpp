// Configuration parsing (toml++) and its checks.
#include "config/ServerConfig.h"

#include "common/SafePaths.h"
#include "common/Text.h"

#include <toml++/toml.h>

#include <algorithm>
#include <arpa/inet.h>
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

// Every problem of a configuration file, each with the file and line it concerns, so that one
// run of `kiv-server check` lists them all.
class Problems
{
public:
    explicit Problems(std::string source) : mySource(std::move(source)) {}

    void add(const toml::source_region& where, const std::string& message)
    {
        myLines.push_back(mySource + ":" + std::to_string(where.begin.line) + ": " + message);
    }
    void throwIfAny() const
    {
        if (myLines.empty())
            return;
        std::string text;
        for (const auto& line : myLines)
            text += (text.empty() ? "" : "\n") + line;
        throw ConfigError(text);
    }

private:
    std::string mySource;
    std::vector<std::string> myLines;
};

// Reads the keys of one table. A key it was not asked for is an error when the table is
// finished: a misspelt key would otherwise change nothing, silently. A value of the wrong type
// or out of range is reported and leaves the default.
class TableReader
{
public:
    TableReader(const toml::table& table, std::string name, Problems& problems)
        : myTable(table), myName(std::move(name)), myProblems(problems)
    {
    }
    ~TableReader() = default;
    TableReader(const TableReader&) = delete;
    TableReader& operator=(const TableReader&) = delete;

    const toml::node* find(std::string_view key)
    {
        myKnown.emplace_back(key);
        return myTable.get(key);
    }

    template <typename T> T number(std::string_view key, T fallback, T minimum, T maximum)
    {
        const toml::node* node = find(key);
        if (!node)
            return fallback;
        const toml::value<int64_t>* value = node->as_integer();
        if (!value || value->get() < static_cast<int64_t>(minimum) ||
            static_cast<uint64_t>(value->get()) > static_cast<uint64_t>(maximum))
        {
            problem(*node, "'" + std::string(key) + "' must be a whole number from " +
                               std::to_string(minimum) + " to " + std::to_string(maximum));
            return fallback;
        }
        return static_cast<T>(value->get());
    }

    std::string string(std::string_view key, const std::string& fallback)
    {
        const toml::node* node = find(key);
        if (!node)
            return fallback;
        if (const toml::value<std::string>* value = node->as_string())
            return value->get();
        problem(*node, "'" + std::string(key) + "' must be a string");
        return fallback;
    }

    bool boolean(std::string_view key, bool fallback)
    {
        const toml::node* node = find(key);
        if (!node)
            return fallback;
        if (const toml::value<bool>* value = node->as_boolean())
            return value->get();
        problem(*node, "'" + std::string(key) + "' must be true or false");
        return fallback;
    }

    std::vector<std::string> strings(std::string_view key, const std::vector<std::string>& fallback)
    {
        const toml::node* node = find(key);
        if (!node)
            return fallback;
        const toml::array* array = node->as_array();
        std::vector<std::string> values;
        if (array)
            for (const auto& element : *array)
                if (const toml::value<std::string>* value = element.as_string())
                    values.push_back(value->get());
        if (!array || values.size() != array->size())
        {
            problem(*node, "'" + std::string(key) + "' must be a list of strings");
            return fallback;
        }
        return values;
    }

    // One of the words in choices; fallback when absent or not one of them.
    template <typename T>
    T choice(std::string_view key, T fallback, std::initializer_list<std::pair<std::string_view, T>> choices,
             bool ignoreCase = false)
    {
        const toml::node* node = find(key);
        if (!node)
            return fallback;
        std::string allowed;
        if (const toml::value<std::string>* value = node->as_string())
            for (const auto& [word, meaning] : choices)
                if (ignoreCase ? equalsIgnoringCase(value->get(), word) : value->get() == word)
                    return meaning;
        for (const auto& [word, meaning] : choices)
            allowed += (allowed.empty() ? "\"" : ", \"") + std::string(word) + "\"";
        problem(*node, "'" + std::string(key) + "' must be one of " + allowed);
        return fallback;
    }

    // A sub-table (such as [region.users]); null, with a problem, when the key is not a table.
    const toml::table* table(std::string_view key)
    {
        const toml::node* node = find(key);
        if (node && !node->is_table())
            problem(*node, "'" + std::string(key) + "' must be a table");
        return node ? node->as_table() : nullptr;
    }

    void problem(const toml::node& node, const std::string& message)
    {
        myProblems.add(node.source(), message + " (in " + myName + ")");
    }
    void problem(const std::string& message) { problem(myTable, message); }

    // Reports every key that no read asked for.
    void finish()
    {
        for (const auto& [key, node] : myTable)
            if (std::find(myKnown.begin(), myKnown.end(), key.str()) == myKnown.end())
                myProblems.add(key.source(), "unknown key '" + std::string(key.str()) + "' in " + myName);
    }

private:
    const toml::table& myTable;
    std::string myName;
    Problems& myProblems;
    std::vector<std::string> myKnown;
};

std::vector<UserAccount> readUsers(const toml::table& table, Problems& problems)
{
    std::vector<UserAccount> users;
    for (const auto& [name, node] : table)
    {
        if (const toml::value<std::string>* hash = node.as_string())
            users.push_back({std::string(name.str()), hash->get()});
        else
            problems.add(node.source(),
                         "the password hash of user '" + std::string(name.str()) + "' must be a string");
    }
    return users;
}

// The keys of kRegionPolicyKeys.
void readRegionPolicy(TableReader& table, RegionPolicy& policy)
{
    policy.encodeFields = table.boolean("encode_fields", policy.encodeFields);
    policy.contentSecurityPolicy = table.string("content_security_policy", policy.contentSecurityPolicy);
    for (const char c : policy.contentSecurityPolicy)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
        {
            table.problem(*table.find("content_security_policy"),
                          "'content_security_policy' holds a control character");
            break;
        }
    policy.writesNeedPost = table.boolean("writes_need_post", policy.writesNeedPost);
    policy.publicWritesPerMinute =
        table.number("public_write_rate", policy.publicWritesPerMinute, 0, 1000000);
    policy.refuseMarkup = table.boolean("refuse_markup", !policy.encodeFields);
    policy.refuseMarkupTags = table.strings("refuse_markup_tags", policy.refuseMarkupTags);
    policy.directoryListing = table.boolean("directory_listing", policy.directoryListing);
}

RegionConfig readRegion(TableReader& table, const fs::path& base, size_t index, Problems& problems)
{
    RegionConfig region;
    region.name = table.string("name", index == 0 ? "default" : "region" + std::to_string(index + 1));
    region.hostNames = table.strings("hosts", {});
    for (auto& host : region.hostNames)
        host = toLower(host);
    std::string root = table.string("root", "");
    if (root.empty())
        table.problem("region '" + region.name + "' needs a 'root' (its site folder)");
    region.siteRoot = resolvePath(base, root);
    std::string data = table.string("data", "");
    region.dataFolder = data.empty() ? fs::path(region.siteRoot.string() + "-data") : resolvePath(base, data);
    std::string exports = table.string("exports_folder", "");
    if (!exports.empty())
        region.exportsFolder = resolvePath(base, exports);
    std::string backups = table.string("backups_folder", "");
    if (!backups.empty())
        region.backupsFolder = resolvePath(base, backups);
    region.maxUploadBytes =
        table.number<size_t>("max_upload_bytes", region.maxUploadBytes, 1, size_t(1) << 34);
    region.durableCommits = table.boolean("durable_commits", region.durableCommits);
    region.trashDays = table.number("trash_days", region.trashDays, 0, 3650);
    if (std::string audit = table.string("audit_log", ""); !audit.empty())
        region.auditLog = resolvePath(base, audit);
    std::string language = table.string("language", "en");
    region.language = languageCode(language);
    if (region.language == 0)
    {
        table.problem(*table.find("language"), "unknown language '" + language + "' (en, fr or es)");
        region.language = languageCode("en");
    }
    region.pageExtensions = table.strings("page_extensions", region.pageExtensions);
    for (auto& extension : region.pageExtensions)
        if (extension.empty() || extension[0] != '.')
            extension = "." + extension;
    region.indexFiles = table.strings("index_files", region.indexFiles);
    region.pageCharset = table.choice<std::string>("charset", region.pageCharset,
                                                   {{"iso-8859-1", "ISO-8859-1"}, {"utf-8", "UTF-8"}}, true);
    region.showErrors = table.boolean("show_errors", region.showErrors);
    region.protectedPaths = table.strings("protected", {});
    readRegionPolicy(table, region.policy);
    for (const auto& prefix : region.protectedPaths)
        if (prefix.empty() || prefix[0] != '/')
            table.problem(*table.find("protected"), "protected path '" + prefix + "' must start with /");
    if (const toml::table* users = table.table("users"))
        region.users = readUsers(*users, problems);
    std::string usersFile = table.string("users_file", "");
    if (!usersFile.empty())
        region.usersFile = resolvePath(base, usersFile);
    return region;
}

// The keys a listener has, in [server] (with listen = the address) and in each [[listen]].
void readListener(TableReader& table, std::string_view addressKey, const fs::path& base,
                  ListenerConfig& listener)
{
    listener.address = table.string(addressKey, listener.address);
    listener.port = table.number("port", listener.port, 0, 65535);
    std::string certificate = table.string("tls_cert", "");
    std::string key = table.string("tls_key", "");
    if (certificate.empty() != key.empty())
        table.problem("listener " + listener.address + ":" + std::to_string(listener.port) +
                      ": 'tls_cert' and 'tls_key' go together");
    if (!certificate.empty())
    {
        listener.tlsCertificate = resolvePath(base, certificate);
        listener.tlsKey = resolvePath(base, key);
    }
    listener.redirectToTls = table.boolean("redirect_to_tls", listener.redirectToTls);
}

void readServer(TableReader& server, const fs::path& base, ServerConfig& config)
{
    readListener(server, "listen", base, config.listeners.front());
    config.gzip = server.boolean("gzip", config.gzip);
    config.hstsMaxAgeSeconds = server.number("hsts_max_age", config.hstsMaxAgeSeconds, 0, 100000000);
    config.workers = server.number("workers", config.workers, 0, 256);
    config.threadsPerWorker = server.number("threads", config.threadsPerWorker, 1, 1024);
    config.adminPath = server.string("admin_path", config.adminPath);
    if (config.adminPath.empty() || config.adminPath[0] != '/')
    {
        server.problem(*server.find("admin_path"), "'admin_path' must start with /");
        config.adminPath = "/kiv-admin/";
    }
    if (config.adminPath.back() != '/')
        config.adminPath += '/';
    if (server.find("modules"))
    {
        config.modulesConfigured = true;
        for (const auto& module : server.strings("modules", {}))
            config.modules.push_back(resolvePath(base, module));
    }
    std::string serverLog = server.string("server_log", "");
    if (!serverLog.empty())
        config.serverLog = resolvePath(base, serverLog);
    std::string accessLog = server.string("access_log", "");
    if (!accessLog.empty())
        config.accessLog = resolvePath(base, accessLog);
    config.statusAccess = server.choice("status_access", config.statusAccess,
                                        {{"local", StatusAccess::LocalOrLogin},
                                         {"login", StatusAccess::Login},
                                         {"public", StatusAccess::Public}});
}

void readLimits(TableReader& limits, ServerLimits& l)
{
    l.maxRequestLine = limits.number<size_t>("max_request_line", l.maxRequestLine, 64, 1 << 20);
    l.maxHeaderBytes = limits.number<size_t>("max_header_bytes", l.maxHeaderBytes, 256, 1 << 24);
    l.maxHeaderCount = limits.number<size_t>("max_headers", l.maxHeaderCount, 1, 10000);
    l.maxBodyBytes = limits.number<size_t>("max_body_bytes", l.maxBodyBytes, 0, size_t(1) << 34);
    l.headerTimeoutSeconds = limits.number("header_timeout", l.headerTimeoutSeconds, 1, 3600);
    l.bodyTimeoutSeconds = limits.number("body_timeout", l.bodyTimeoutSeconds, 1, 36000);
    l.keepAliveTimeoutSeconds = limits.number("keep_alive_timeout", l.keepAliveTimeoutSeconds, 0, 3600);
    l.writeTimeoutSeconds = limits.number("write_timeout", l.writeTimeoutSeconds, 1, 3600);
    l.maxRequestsPerConnection =
        limits.number("max_requests_per_connection", l.maxRequestsPerConnection, 1, 100000);
    l.maxConnections = limits.number("max_connections", l.maxConnections, 1, 1000000);
    l.maxConnectionsPerAddress =
        limits.number("max_connections_per_address", l.maxConnectionsPerAddress, 1, 1000000);
    l.maxQueuedRequests = limits.number("max_queued_requests", l.maxQueuedRequests, 1, 1000000);
    l.loginThreads = limits.number("login_threads", l.loginThreads, 1, 64);
    l.maxQueuedLogins = limits.number("max_queued_logins", l.maxQueuedLogins, 1, 100000);
    l.maxLoginFailures = limits.number("max_login_failures", l.maxLoginFailures, 1, 100000);
    l.loginBlockSeconds = limits.number("login_block", l.loginBlockSeconds, 1, 86400);
}

// The tables of an array of tables ([[listen]], [[region]]), each read by readOne.
template <typename ReadOne>
void readTables(TableReader& document, std::string_view key, Problems& problems, ReadOne readOne)
{
    const toml::node* node = document.find(key);
    if (!node)
        return;
    const toml::array* array = node->as_array();
    if (!array || !array->is_array_of_tables())
    {
        document.problem(*node, "'" + std::string(key) + "' must be written [[" + std::string(key) + "]]");
        return;
    }
    for (size_t i = 0; i < array->size(); ++i)
    {
        TableReader table(*(*array)[i].as_table(), "[[" + std::string(key) + "]] " + std::to_string(i + 1),
                          problems);
        readOne(table, i);
        table.finish();
    }
}

// Whether folder is the site root or lies below it, after following symbolic links.
bool isInsideSite(const RegionConfig& region, const fs::path& folder)
{
    std::error_code rootError, folderError;
    fs::path root = fs::weakly_canonical(region.siteRoot, rootError);
    fs::path real = fs::weakly_canonical(folder, folderError);
    return !rootError && !folderError && isInsideFolder(root, real);
}

} // namespace

ServerConfig parseConfig(std::string_view tomlText, const fs::path& baseFolder, const std::string& sourceName)
{
    toml::table document;
    try
    {
        document = toml::parse(tomlText, sourceName);
    }
    catch (const toml::parse_error& error)
    {
        std::ostringstream message;
        message << sourceName << ":" << error.source().begin.line << ": " << error.description();
        throw ConfigError(message.str());
    }

    ServerConfig config;
    Problems problems(sourceName);
    TableReader top(document, "the file", problems);
    auto section = [&](std::string_view key, auto readOne)
    {
        if (const toml::table* table = top.table(key))
        {
            TableReader reader(*table, "[" + std::string(key) + "]", problems);
            readOne(reader);
            reader.finish();
        }
    };
    section("server", [&](TableReader& server) { readServer(server, baseFolder, config); });
    readTables(top, "listen", problems,
               [&](TableReader& table, size_t)
               {
                   config.listeners.emplace_back();
                   readListener(table, "address", baseFolder, config.listeners.back());
               });
    section("limits", [&](TableReader& limits) { readLimits(limits, config.limits); });
    readTables(top, "region", problems,
               [&](TableReader& table, size_t index)
               { config.regions.push_back(readRegion(table, baseFolder, index, problems)); });
    top.finish();
    if (config.regions.empty() && !top.find("region"))
        problems.add(document.source(), "the configuration names no [[region]]");
    problems.throwIfAny();
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
    return parseConfig(text.str(), base, file.string());
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
        else
        {
            // Everything in the site root can be downloaded: databases, preferences, accounts
            // and exported files would be too.
            // By default the audit log may lie in the data folder, which is checked already.
            fs::path auditLog = auditLogOf(config, region);
            if (auditLog.parent_path() == region.dataFolder)
                auditLog.clear();
            const std::pair<const char*, const fs::path*> folders[] = {
                {"data folder", &region.dataFolder},
                {"exports folder", &region.exportsFolder},
                {"backups folder", &region.backupsFolder},
                {"audit log", &auditLog}};
            for (const auto& [what, folder] : folders)
                if (!folder->empty() && isInsideSite(region, *folder))
                    problems.push_back("region '" + region.name + "': " + what + " " + folder->string() +
                                       " lies inside the site root " + region.siteRoot.string() +
                                       ", where visitors could download it; move it beside the site");
        }
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
        in_addr address{};
        if (inet_pton(AF_INET, listener.address.c_str(), &address) != 1)
            problems.push_back(where + ": '" + listener.address +
                               "' is not an IPv4 address (IPv6 addresses and host names are not supported; "
                               "0.0.0.0 listens on every IPv4 address)");
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

fs::path exportsFolderOf(const RegionConfig& region)
{
    return region.exportsFolder.empty() ? region.dataFolder / "exports" : region.exportsFolder;
}

fs::path backupsFolderOf(const RegionConfig& region)
{
    return region.backupsFolder.empty() ? region.dataFolder / "backups" : region.backupsFolder;
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

fs::path auditLogOf(const ServerConfig& config, const RegionConfig& region)
{
    if (!region.auditLog.empty())
        return region.auditLog;
    std::string name = "audit-" + region.name + ".jsonl";
    for (char& c : name)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20)
            c = '_';
    return (config.serverLog.empty() ? region.dataFolder : config.serverLog.parent_path()) / name;
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
        Problems problems(file.string());
        std::vector<UserAccount> users = readUsers(table, problems);
        problems.throwIfAny();
        return users;
    }
    catch (const toml::parse_error& error)
    {
        throw ConfigError(file.string() + ":" + std::to_string(error.source().begin.line) + ": " +
                          std::string(error.description()));
    }
}

} // namespace kiv
