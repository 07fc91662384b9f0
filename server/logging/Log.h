// The server log (what happened, with the region, page and tag it concerns) and the access
// log (one line per request in the combined format). Each line goes out in a single write
// to a file opened for appending, so lines from several worker processes never interleave.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace kiv
{

enum class LogKind
{
    Note,
    Warning,
    Error,
    Failure
};

struct LogContext
{
    std::string_view region;
    std::string_view page;
    std::string_view tag;
};

// Owns its texts: the connection layer keeps one from the moment a response is ready until
// it has been sent.
struct AccessRecord
{
    std::string remoteAddress;
    std::string user;
    std::string requestLine;
    int status = 0;
    uint64_t bytesSent = 0;
    std::string referer;
    std::string userAgent;
};

// Sends the server log to file (empty: standard error). Throws std::runtime_error when
// the file cannot be opened; the log then stays where it was. Safe while other threads write.
void openServerLog(const std::filesystem::path& file);
void openAccessLog(const std::filesystem::path& file);
// Opens both logs, and the audit logs (AuditLog.h), again by their names, after logrotate
// renamed them (SIGUSR1, SIGHUP).
void reopenLogs();

void writeServerLog(LogKind kind, const LogContext& context, std::string_view message);
void writeAccessLog(const AccessRecord& record);

std::string_view logKindName(LogKind kind);

} // namespace kiv
