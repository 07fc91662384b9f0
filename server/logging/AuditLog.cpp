// Audit log files, kept open per process.
#include "logging/AuditLog.h"

#include "common/FileDescriptor.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <unistd.h>

namespace kiv
{

namespace
{

// Changes are rare next to requests: one lock around opening, writing and reopening keeps a
// reopened file from being written through a descriptor that is being replaced.
std::mutex ourMutex;
std::map<std::filesystem::path, FileDescriptor> ourFiles;

FileDescriptor openAuditFile(const std::filesystem::path& file, std::string& why)
{
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    FileDescriptor descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640));
    if (descriptor.get() < 0)
        why = "cannot open the audit log " + file.string() + ": " + std::strerror(errno);
    return descriptor;
}

} // namespace

bool appendAuditLine(const std::filesystem::path& file, std::string line, std::string& why)
{
    line += '\n';
    std::lock_guard<std::mutex> lock(ourMutex);
    auto found = ourFiles.find(file);
    if (found == ourFiles.end())
    {
        FileDescriptor opened = openAuditFile(file, why);
        if (opened.get() < 0)
            return false;
        found = ourFiles.emplace(file, std::move(opened)).first;
    }
    // One write: with O_APPEND the line lands whole at the end, whatever other processes write.
    ssize_t written;
    do
        written = ::write(found->second.get(), line.data(), line.size());
    while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(line.size()))
        return true;
    why = "cannot write the audit log " + file.string() + ": " +
          (written < 0 ? std::strerror(errno) : "the disk took part of the line");
    return false;
}

bool recordChange(const std::filesystem::path& file, const AuditSource& source, db::AuditEntry& entry,
                  std::string& why)
{
    entry.time = db::auditTimeNow();
    entry.region = source.region;
    entry.user = source.user;
    entry.address = source.address;
    entry.page = source.page;
    return appendAuditLine(file, db::formatAuditEntry(entry), why);
}

void reopenAuditLogs()
{
    std::lock_guard<std::mutex> lock(ourMutex);
    for (auto& [file, descriptor] : ourFiles)
    {
        std::string why;
        FileDescriptor fresh = openAuditFile(file, why);
        if (fresh.get() >= 0)
            descriptor = std::move(fresh); // else the old file goes on taking lines
    }
}

} // namespace kiv
