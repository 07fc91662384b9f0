// One change made through the database service, as the audit log keeps it: what was done, to
// which database and record, the values before and after, and (filled in by whoever serves the
// request) when, in which region, by whom and from which page. The JSON line written for it
// and the reader of such lines live here, so that the format has one home.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::db
{

// The "action" of an entry, as written.
enum class AuditAction
{
    RecordAdded,
    RecordUpdated,
    RecordDeleted,
    AllRecordsDeleted, // one entry with the number of records, however many there were
    FieldAdded,
    FieldDeleted,
    DatabaseCreated,
    DatabaseDeleted,
    Imported, // one entry with the number of rows and the file, not one per row
    Restored  // from the recycle bin: records (their number, the record ID for one) or a database
};

std::string_view actionName(AuditAction action);

using AuditValues = std::vector<std::pair<std::string, std::string>>; // field name -> value text

struct AuditEntry
{
    // Filled in by the service's caller.
    std::string time; // UTC, ISO-8601 with milliseconds: 2026-11-25T00:14:33.120Z
    std::string region;
    std::string user;    // an administrator's login name, or "public"
    std::string address; // the client's address; empty from the shell
    std::string page;    // the URL path of the page; empty from the shell
    // Filled in by the service.
    AuditAction action = AuditAction::RecordAdded;
    std::string database;
    std::string record; // the unique ID, as text; empty when the change is not one record's
    std::string field;  // the field added or deleted
    std::string file;   // the imported file
    uint64_t count = 0; // records deleted at once, rows imported
    AuditValues before;
    AuditValues after;
};

// Whether a field's values stay out of the log ("(withheld)" is written instead): fields whose
// name speaks of a password, a secret, a token or a key of an account.
bool isSecretField(std::string_view name);

// The entry as one line of JSON, without the line end. Control characters and bytes that are
// not UTF-8 are escaped (\u00XX, as Latin-1), so one entry is always one line.
std::string formatAuditEntry(const AuditEntry& entry);
// An entry from a line that formatAuditEntry wrote; nothing for any other line.
std::optional<AuditEntry> parseAuditEntry(std::string_view line);

// The current time as entries write it.
std::string auditTimeNow();

} // namespace kiv::db
