// Server and access logs.
#include "logging/Log.h"

#include "common/FileDescriptor.h"
#include "common/Text.h"
#include "logging/AuditLog.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <stdexcept>
#include <unistd.h>

namespace kiv
{

namespace
{

// A log's descriptor number never changes once it names a file: reopening puts the new file
// behind the same number (dup3), so a thread writing meanwhile writes whole lines to the old
// file or the new one, never to a closed or reused descriptor.
struct LogTarget
{
    std::atomic<int> descriptor{STDERR_FILENO};
    std::filesystem::path file; // empty: standard error
};

LogTarget ourServerLog;
LogTarget ourAccessLog;
std::mutex ourReopenMutex;

int openLogFile(const std::filesystem::path& file)
{
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    if (descriptor < 0)
        throw std::runtime_error("cannot open log " + file.string() + ": " + std::strerror(errno));
    return descriptor;
}

void openLog(LogTarget& log, const std::filesystem::path& file)
{
    std::lock_guard<std::mutex> lock(ourReopenMutex);
    int current = log.descriptor.load();
    if (file.empty())
    {
        if (current != STDERR_FILENO)
            ::dup3(STDERR_FILENO, current, O_CLOEXEC);
    }
    else
    {
        FileDescriptor fresh(openLogFile(file));
        if (current == STDERR_FILENO)
            log.descriptor.store(fresh.release());
        else if (::dup3(fresh.get(), current, O_CLOEXEC) < 0)
            throw std::runtime_error("cannot reopen log " + file.string() + ": " + std::strerror(errno));
    }
    log.file = file;
}

void writeLine(int descriptor, std::string line)
{
    line += '\n';
    const char* data = line.data();
    size_t left = line.size();
    while (left > 0)
    {
        ssize_t written = ::write(descriptor, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // a log that cannot be written must not take the server down
        data += written;
        left -= static_cast<size_t>(written);
    }
}

// Control characters in logged texts come from visitors; they must not forge log lines.
std::string sanitized(std::string_view text)
{
    std::string clean;
    clean.reserve(text.size());
    for (char c : text)
        clean += (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) ? ' ' : c;
    return clean;
}

} // namespace

void openServerLog(const std::filesystem::path& file)
{
    openLog(ourServerLog, file);
}

void openAccessLog(const std::filesystem::path& file)
{
    openLog(ourAccessLog, file);
}

void reopenLogs()
{
    std::filesystem::path serverLog, accessLog;
    {
        std::lock_guard<std::mutex> lock(ourReopenMutex);
        serverLog = ourServerLog.file;
        accessLog = ourAccessLog.file;
    }
    openServerLog(serverLog);
    openAccessLog(accessLog);
    reopenAuditLogs();
}

std::string_view logKindName(LogKind kind)
{
    switch (kind)
    {
    case LogKind::Note:
        return "note";
    case LogKind::Warning:
        return "warning";
    case LogKind::Error:
        return "error";
    case LogKind::Failure:
        return "failure";
    }
    return "note";
}

void writeServerLog(LogKind kind, const LogContext& context, std::string_view message)
{
    std::string line =
        utcTimeNow() + " [" + std::string(logKindName(kind)) + "] pid " + std::to_string(::getpid());
    if (!context.region.empty())
        line += " region=" + sanitized(context.region);
    if (!context.page.empty())
        line += " page=" + sanitized(context.page);
    if (!context.tag.empty())
        line += " tag=" + sanitized(context.tag);
    line += ": " + sanitized(message);
    writeLine(ourServerLog.descriptor.load(), std::move(line));
}

void writeAccessLog(const AccessRecord& record)
{
    time_t now = ::time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "[%d/%b/%Y:%H:%M:%S +0000]", &utc);
    auto quoted = [](std::string_view text)
    {
        std::string out = "\"";
        // Backslashes are escaped too, or a value ending in one would swallow the closing quote.
        for (char c : sanitized(text))
        {
            if (c == '"' || c == '\\')
                out += '\\';
            out += c;
        }
        return out + "\"";
    };
    std::string line = sanitized(record.remoteAddress) + " - " +
                       (record.user.empty() ? std::string("-") : sanitized(record.user)) + " " + stamp + " " +
                       quoted(record.requestLine) + " " + std::to_string(record.status) + " " +
                       std::to_string(record.bytesSent) + " " +
                       quoted(record.referer.empty() ? "-" : record.referer) + " " +
                       quoted(record.userAgent.empty() ? "-" : record.userAgent);
    writeLine(ourAccessLog.descriptor.load(), std::move(line));
}

} // namespace kiv
