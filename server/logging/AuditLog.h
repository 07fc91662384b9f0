// The audit logs: one file per region, one JSON line per change (databases/AuditEntry.h has
// the format). Each process opens a file on its first change, for appending, and writes each
// line in a single write, so the worker processes of a region share one file without mixing
// their lines; the files are opened again with the other logs (SIGUSR1, SIGHUP).
#pragma once

#include "AuditEntry.h"

#include <filesystem>
#include <string>

namespace kiv
{

// Who made the changes of one request or command.
struct AuditSource
{
    std::string region;
    std::string user;    // login name, "public", or "shell:<account>" from kiv-server db
    std::string address; // the client's; empty from the shell
    std::string page;    // the URL path; empty from the shell
};

// Stamps `entry` with the time and its source and appends it to `file`; false, with `why`,
// when the line could not be written whole.
bool recordChange(const std::filesystem::path& file, const AuditSource& source, db::AuditEntry& entry,
                  std::string& why);

// Appends `line` and a line end; false, with `why`, when the file cannot be opened or written.
bool appendAuditLine(const std::filesystem::path& file, std::string line, std::string& why);
// Opens every audit log this process writes again by its name, after logrotate renamed it.
void reopenAuditLogs();

} // namespace kiv
