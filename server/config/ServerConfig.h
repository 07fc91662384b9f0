// The server's configuration: where it listens, which modules it loads, its limits, and the
// regions (sites) it serves. A TOML file describes real deployments; without one the server
// serves a single default region built from the command line.
#pragma once

#include "config/RegionPolicy.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kiv
{

struct UserAccount
{
    std::string name;
    std::string passwordHash; // argon2id, as made by `kiv-server passwd`
};

struct RegionConfig
{
    std::string name = "default";
    std::vector<std::string> hostNames; // empty: the region answers any host
    std::filesystem::path siteRoot;
    std::filesystem::path dataFolder;
    // Where export and import files go, made on first use; empty: "exports" in the data folder.
    std::filesystem::path exportsFolder;
    // Where the administration page's backup button writes (a folder per backup) and which
    // backups it lists; empty: "backups" in the data folder.
    std::filesystem::path backupsFolder;
    // The largest file the administration page accepts into the exports folder (413 above it).
    size_t maxUploadBytes = 8 * 1024 * 1024;
    // Embedded databases acknowledge a commit once it is on disk (synchronous=FULL), so it
    // survives a power loss; false trades that for speed (synchronous=NORMAL).
    bool durableCommits = true;
    // Days the recycle bin keeps deleted records and databases; 0: deleted for good at once.
    int trashDays = 30;
    // The region's audit log (one JSON line per change); empty: auditLogOf's default.
    std::filesystem::path auditLog;
    uint32_t language = 0x01000000; // a localization language code (English)
    std::vector<std::string> pageExtensions{".html", ".htm"};
    std::vector<std::string> indexFiles{"index.html", "index.htm"};
    // "ISO-8859-1" or "UTF-8": what pages are served as. In a UTF-8 region the module's own
    // ISO 8859-1 bytes are converted on the way out (common/Utf8.h).
    std::string pageCharset = "ISO-8859-1";
    bool servesUtf8() const { return pageCharset == "UTF-8"; }
    bool showErrors = true; // false: tag errors go to the log only
    std::vector<UserAccount> users;
    std::filesystem::path usersFile; // optional extra accounts ("name = hash" lines)
    // URL prefixes that need a login; whatever URL reaches a file below one is protected too.
    std::vector<std::string> protectedPaths;
    RegionPolicy policy;
};

// The folders of a region with their defaults applied.
std::filesystem::path exportsFolderOf(const RegionConfig& region);
std::filesystem::path backupsFolderOf(const RegionConfig& region);

// Every limit applies per worker process: each worker counts its own connections, queue and
// login failures. The administrator's guide lists them with the status each one answers.
struct ServerLimits
{
    size_t maxRequestLine = 8192;           // 414
    size_t maxHeaderBytes = 32768;          // 431; blank lines before the request line count too
    size_t maxHeaderCount = 100;            // 431
    size_t maxBodyBytes = 10 * 1024 * 1024; // 413
    int headerTimeoutSeconds = 10;          // 408: the whole head (and a TLS handshake) within this time
    int bodyTimeoutSeconds = 60;            // 408: the whole body within this time
    int keepAliveTimeoutSeconds = 5;
    int writeTimeoutSeconds = 30; // a response that makes no progress for this long is dropped
    int maxRequestsPerConnection = 100;
    int maxConnections = 1024;         // 503 once no idle connection can make room
    int maxConnectionsPerAddress = 64; // 429
    int maxQueuedRequests = 256;       // 503: complete requests waiting for a render thread
    int loginThreads = 2;              // password checks at once (each holds 64 MiB)
    int maxQueuedLogins = 32;          // 503: logins waiting for a password check
    int maxLoginFailures = 10;         // 429 after this many failures of an address or a user
    int loginBlockSeconds = 60;
};

// One address and port the server listens on. With a certificate and key it speaks HTTPS
// (TLS 1.2 and 1.3 only); a plain listener may instead send every request to HTTPS.
struct ListenerConfig
{
    std::string address = "127.0.0.1";
    int port = 8080;
    std::filesystem::path tlsCertificate; // PEM, the chain after the server's certificate
    std::filesystem::path tlsKey;         // PEM
    bool redirectToTls = false;

    bool isTls() const { return !tlsCertificate.empty(); }
};

// Who may read /kiv-status/health and /kiv-status/metrics.
enum class StatusAccess
{
    LocalOrLogin, // clients on this machine (not through a proxy), and logged-in users
    Login,        // logged-in users only
    Public        // anyone
};

struct ServerConfig
{
    // The first is [server] listen/port (and its tls_cert/tls_key); [[listen]] tables add more.
    std::vector<ListenerConfig> listeners{ListenerConfig{}};
    int workers = 0; // 0: one per processor core
    int threadsPerWorker = 8;
    std::vector<std::filesystem::path> modules;
    bool modulesConfigured = false; // false: look for the database module beside the program
    std::string adminPath = "/kiv-admin/";
    std::filesystem::path serverLog;  // empty: standard error
    std::filesystem::path accessLog;  // empty: standard error
    bool gzip = true;                 // text bodies over 1 KB, for clients that accept it
    int hstsMaxAgeSeconds = 31536000; // Strict-Transport-Security over TLS; 0: not sent
    StatusAccess statusAccess = StatusAccess::LocalOrLogin;
    ServerLimits limits;
    std::vector<RegionConfig> regions;
};

class ConfigError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Parses a configuration; relative paths are taken from baseFolder. Unknown keys, values of
// the wrong type and values out of range are errors: ConfigError lists every one, a line
// each, as "sourceName:line: what".
ServerConfig parseConfig(std::string_view tomlText, const std::filesystem::path& baseFolder,
                         const std::string& sourceName = "configuration");
ServerConfig loadConfigFile(const std::filesystem::path& file);

// The region used when there is no configuration file.
RegionConfig makeDefaultRegion(const std::filesystem::path& siteRoot,
                               const std::filesystem::path& dataFolder);

// Problems that make the configuration unusable (missing site roots, bad hashes, ...);
// empty when it is fine.
std::vector<std::string> findConfigProblems(const ServerConfig& config);

// The region for a Host header: the first whose host names include it, else the first
// region without host names, else the first region.
const RegionConfig& selectRegion(const ServerConfig& config, std::string_view hostHeader);

// Where a region's changes are logged: its audit_log, else "audit-<region>.jsonl" beside the
// server log, or in the data folder when the server logs to standard error.
std::filesystem::path auditLogOf(const ServerConfig& config, const RegionConfig& region);

// "en", "fr", "es" (or the full names) to the localization language codes; 0 if unknown.
uint32_t languageCode(std::string_view name);

// Reads "name = hash" lines (TOML key/value pairs) into accounts.
std::vector<UserAccount> readUsersFile(const std::filesystem::path& file);

} // namespace kiv
