// Server and access logs.
#include "logging/Log.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <sys/time.h>
#include <unistd.h>

namespace kiv
{

namespace
{

int ourServerLogDescriptor = STDERR_FILENO;
int ourAccessLogDescriptor = STDERR_FILENO;

int openLogFile(const std::filesystem::path& file)
{
    if (file.empty())
        return STDERR_FILENO;
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    if (descriptor < 0)
        throw std::runtime_error("cannot open log " + file.string() + ": " + std::strerror(errno));
    return descriptor;
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

// Logs are opened at start-up, before any thread writes; a log opened again closes the old file.
void replaceLog(int& descriptor, const std::filesystem::path& file)
{
    int fresh = openLogFile(file);
    if (descriptor != STDERR_FILENO)
        ::close(descriptor);
    descriptor = fresh;
}

} // namespace

void openServerLog(const std::filesystem::path& file)
{
    replaceLog(ourServerLogDescriptor, file);
}

void openAccessLog(const std::filesystem::path& file)
{
    replaceLog(ourAccessLogDescriptor, file);
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
    timeval now{};
    gettimeofday(&now, nullptr);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
    char millis[8];
    std::snprintf(millis, sizeof millis, ".%03dZ", static_cast<int>(now.tv_usec / 1000));

    std::string line = std::string(stamp) + millis + " [" + std::string(logKindName(kind)) + "] pid " +
                       std::to_string(::getpid());
    if (!context.region.empty())
        line += " region=" + sanitized(context.region);
    if (!context.page.empty())
        line += " page=" + sanitized(context.page);
    if (!context.tag.empty())
        line += " tag=" + sanitized(context.tag);
    line += ": " + sanitized(message);
    writeLine(ourServerLogDescriptor, std::move(line));
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
    writeLine(ourAccessLogDescriptor, std::move(line));
}

} // namespace kiv
