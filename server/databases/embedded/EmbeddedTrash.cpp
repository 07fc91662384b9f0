// The embedded store's recycle bin. Deleted records move, in the transaction that deletes them,
// into kiv_trash in the same file: one row per record with its row id and the columns it had,
// grouped by deletion (kiv_deletions: when, by whom, how many), so a Delete All is one deletion
// that comes back whole. Searches, counts and exports read kiv_records only and never see them.
// A deleted database's files move to the data folder's .trash folder, which is never listed.
// Entries older than the configured days are purged at the next deletion.
#include "AuditEntry.h"
#include "NameRules.h"
#include "ServiceCodes.h"
#include "embedded/EmbeddedStore.h"

#include <algorithm>
#include <ctime>
#include <optional>

namespace kiv::db
{

namespace
{

constexpr size_t kListedIDs = 10;
constexpr char kStampSeparator = '~';

// `days` days ago, as deletions are stamped.
std::string cutoffOf(int days)
{
    const time_t then = ::time(nullptr) - time_t(days) * 86400;
    tm utc{};
    gmtime_r(&then, &utc);
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S.000Z", &utc);
    return stamp;
}

// A time as part of a file name: no colons.
std::string fileStamp(std::string time)
{
    std::replace(time.begin(), time.end(), ':', '-');
    return time;
}

std::vector<std::string> columnsOf(SqliteConnection& sql, const std::string& table)
{
    std::vector<std::string> columns;
    auto info = sql.prepare("SELECT name FROM pragma_table_info(?) WHERE name LIKE 'c%'");
    info.bindText(1, table);
    while (info.step())
        columns.emplace_back(info.columnText(0));
    return columns;
}

bool hasTable(SqliteConnection& sql, const char* name)
{
    auto exists = sql.prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?");
    exists.bindText(1, name);
    return exists.step();
}

bool hasTrash(SqliteConnection& sql)
{
    return hasTable(sql, "kiv_deletions");
}

void ensureTrashTables(SqliteConnection& sql)
{
    sql.execute(
        "CREATE TABLE IF NOT EXISTS kiv_deletions(deletion INTEGER PRIMARY KEY, deleted_at TEXT NOT NULL,"
        " deleted_by TEXT NOT NULL, records INTEGER NOT NULL);"
        "CREATE TABLE IF NOT EXISTS kiv_trash(kiv_entry INTEGER PRIMARY KEY, kiv_deletion INTEGER NOT NULL,"
        " kiv_rowid INTEGER NOT NULL);"
        "CREATE INDEX IF NOT EXISTS kiv_trash_deletion ON kiv_trash(kiv_deletion);"
        // A deleted field: its row of kiv_fields, and each record's value by the record's unique ID
        // (row ids can be given again to new records; unique IDs never are).
        "CREATE TABLE IF NOT EXISTS kiv_deleted_fields(deletion INTEGER PRIMARY KEY, position INTEGER NOT "
        "NULL,"
        " name TEXT NOT NULL, name_key TEXT NOT NULL, type_word INTEGER NOT NULL, column_name TEXT NOT NULL,"
        " next_auto INTEGER NOT NULL);"
        "CREATE TABLE IF NOT EXISTS kiv_deleted_values(kiv_deletion INTEGER NOT NULL, record_id NOT NULL,"
        " value, PRIMARY KEY(kiv_deletion, record_id))");
}

// A new deletion by the options' actor, now; its number.
int64_t newDeletion(SqliteConnection& sql, const StoreOptions& options)
{
    auto deletion = sql.prepare("INSERT INTO kiv_deletions(deleted_at, deleted_by, records) VALUES(?, ?, 0)");
    deletion.bindText(1, auditTimeNow());
    deletion.bindText(2, options.actor.empty() ? "unknown" : options.actor);
    deletion.execute();
    return sql.lastInsertRowId();
}

std::string joined(const std::vector<std::string>& columns, const std::string& prefix = "")
{
    std::string text;
    for (const auto& column : columns)
        text += (text.empty() ? "" : ", ") + prefix + column;
    return text;
}

void purgeExpired(SqliteConnection& sql, const std::string& cutoff)
{
    for (const char* kept : {"kiv_deleted_values WHERE kiv_deletion", "kiv_deleted_fields WHERE deletion"})
    {
        auto forget = sql.prepare(std::string("DELETE FROM ") + kept +
                                  " IN (SELECT deletion FROM kiv_deletions WHERE deleted_at < ?)");
        forget.bindText(1, cutoff);
        forget.execute();
    }
    auto trash = sql.prepare("DELETE FROM kiv_trash WHERE kiv_deletion IN "
                             "(SELECT deletion FROM kiv_deletions WHERE deleted_at < ?)");
    trash.bindText(1, cutoff);
    trash.execute();
    auto deletions = sql.prepare("DELETE FROM kiv_deletions WHERE deleted_at < ?");
    deletions.bindText(1, cutoff);
    deletions.execute();
}

// The records a restore names: those of one deletion, or one record of it.
struct Selection
{
    std::string where = "t.kiv_deletion = ?1 AND (?2 IS NULL OR CAST(t.c1 AS TEXT) = ?2)";
    void bind(SqliteStatement& statement, const TrashRestore& which) const
    {
        statement.bindInteger(1, which.deletion);
        if (which.recordID.empty())
            statement.bindNull(2);
        else
            statement.bindText(2, which.recordID);
    }
};

int64_t countOf(SqliteConnection& sql, const std::string& query, const TrashRestore& which)
{
    auto count = sql.prepare(query);
    Selection().bind(count, which);
    return count.step() ? count.columnInteger(0) : 0;
}

// When the deletion `which` names is a deleted field: puts the field back in its place with the
// values it kept, in the caller's transaction, and answers the result; nullopt for any other
// deletion. A field of the same name added since, or values of a unique field that records
// added since now share, refuse the restore whole.
std::optional<uint32_t> restoreField(SqliteConnection& sql, const TrashRestore& which, uint64_t& restored,
                                     std::string& message)
{
    FieldDefinition field;
    std::string nameKey;
    int64_t position = 0, nextAuto = 1;
    {
        auto kept = sql.prepare("SELECT position, name, name_key, type_word, column_name, next_auto "
                                "FROM kiv_deleted_fields WHERE deletion = ?");
        kept.bindInteger(1, which.deletion);
        if (!kept.step())
            return std::nullopt;
        position = kept.columnInteger(0);
        field.name = std::string(kept.columnText(1));
        nameKey = std::string(kept.columnText(2));
        field.typeWord = uint32_t(kept.columnInteger(3));
        field.column = std::string(kept.columnText(4));
        nextAuto = kept.columnInteger(5);
    }
    if (!which.recordID.empty())
    {
        message = "The deleted field " + field.name + " comes back whole, not for one record.";
        return result::kInvalidArgument;
    }
    auto taken = sql.prepare("SELECT 1 FROM kiv_fields WHERE name_key = ?");
    taken.bindText(1, nameKey);
    if (taken.step())
    {
        message = "A field named \"" + field.name +
                  "\" exists again; delete or rename it before restoring the deleted one.";
        return kKivResult_NotUnique;
    }
    // The column gets its old name back: the store never gives a column name to another field.
    sql.execute("ALTER TABLE kiv_records ADD COLUMN " + field.column + " " + columnDefinition(field));
    // The values go back to the records that exist, and to those in the bin, which come back
    // with them when they are restored.
    const auto kept = columnsOf(sql, "kiv_trash");
    if (std::find(kept.begin(), kept.end(), field.column) == kept.end())
        sql.execute("ALTER TABLE kiv_trash ADD COLUMN " + field.column);
    for (const char* table : {"kiv_records", "kiv_trash"})
    {
        auto values = sql.prepare(std::string("UPDATE ") + table + " SET " + field.column +
                                  " = (SELECT v.value FROM kiv_deleted_values v WHERE v.kiv_deletion = ?1 AND"
                                  " v.record_id = " +
                                  table +
                                  ".c1) WHERE c1 IN"
                                  " (SELECT record_id FROM kiv_deleted_values WHERE kiv_deletion = ?1)");
        values.bindInteger(1, which.deletion);
        values.execute();
        if (std::string_view(table) == "kiv_records")
            restored = uint64_t(sql.changes());
    }
    if (field.unique() || field.indexed())
        try
        {
            sql.execute(std::string(field.unique() ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") + "i_" +
                        field.column + " ON kiv_records(" + field.column + ")");
        }
        catch (const SqliteError& failure)
        {
            if (failure.primaryCode() != SQLITE_CONSTRAINT)
                throw;
            message = "The field " + field.name +
                      " cannot come back unique: records added since it was deleted share a value of it.";
            return kKivResult_NotUnique;
        }
    auto insert =
        sql.prepare("INSERT INTO kiv_fields(position, name, name_key, type_word, column_name, next_auto)"
                    " VALUES((SELECT CASE WHEN EXISTS(SELECT 1 FROM kiv_fields WHERE position = ?1)"
                    " THEN NULL ELSE ?1 END), ?2, ?3, ?4, ?5, ?6)");
    insert.bindInteger(1, position);
    insert.bindText(2, field.name);
    insert.bindText(3, nameKey);
    insert.bindInteger(4, field.typeWord);
    insert.bindText(5, field.column);
    insert.bindInteger(6, nextAuto);
    insert.execute();
    for (const char* forget : {"DELETE FROM kiv_deleted_values WHERE kiv_deletion = ?",
                               "DELETE FROM kiv_deleted_fields WHERE deletion = ?",
                               "DELETE FROM kiv_deletions WHERE deletion = ?"})
    {
        auto statement = sql.prepare(forget);
        statement.bindInteger(1, which.deletion);
        statement.execute();
    }
    return kKivResult_Success;
}

} // namespace

void keepDeletedRows(SqliteConnection& sql, const StoreOptions& options, const std::vector<int64_t>& rowIDs)
{
    if (options.trashDays <= 0)
        return;
    ensureTrashTables(sql);
    // The bin's columns follow the records' (columns are never reused for another field).
    const auto columns = columnsOf(sql, "kiv_records");
    const auto kept = columnsOf(sql, "kiv_trash");
    for (const auto& column : columns)
        if (std::find(kept.begin(), kept.end(), column) == kept.end())
            sql.execute("ALTER TABLE kiv_trash ADD COLUMN " + column);
    purgeExpired(sql, cutoffOf(options.trashDays));

    const int64_t number = newDeletion(sql, options);
    const std::string copy = "INSERT INTO kiv_trash(kiv_deletion, kiv_rowid, " + joined(columns) +
                             ") SELECT ?1, kiv_rowid, " + joined(columns) + " FROM kiv_records" +
                             (rowIDs.empty() ? "" : " WHERE kiv_rowid = ?2");
    auto insert = sql.prepare(copy);
    int64_t records = 0;
    for (size_t i = 0; i < std::max<size_t>(rowIDs.size(), 1); ++i)
    {
        StatementScope scope(insert);
        insert.bindInteger(1, number);
        if (!rowIDs.empty())
            insert.bindInteger(2, rowIDs[i]);
        insert.execute();
        records += sql.changes();
    }
    auto count = sql.prepare("UPDATE kiv_deletions SET records = ? WHERE deletion = ?");
    count.bindInteger(1, records);
    count.bindInteger(2, number);
    count.execute();
}

void keepDeletedField(SqliteConnection& sql, const StoreOptions& options, const std::string& column)
{
    if (options.trashDays <= 0)
        return;
    ensureTrashTables(sql);
    purgeExpired(sql, cutoffOf(options.trashDays));
    const int64_t number = newDeletion(sql, options);
    auto field = sql.prepare("INSERT INTO kiv_deleted_fields(deletion, position, name, name_key, type_word,"
                             " column_name, next_auto) SELECT ?, position, name, name_key, type_word,"
                             " column_name, next_auto FROM kiv_fields WHERE column_name = ?");
    field.bindInteger(1, number);
    field.bindText(2, column);
    field.execute();
    // The column names are the store's own (c2, c3, ...), never a visitor's text.
    auto values =
        sql.prepare("INSERT INTO kiv_deleted_values(kiv_deletion, record_id, value) SELECT ?, c1, " + column +
                    " FROM kiv_records");
    values.bindInteger(1, number);
    values.execute();
    auto count = sql.prepare("UPDATE kiv_deletions SET records = ? WHERE deletion = ?");
    count.bindInteger(1, sql.changes());
    count.bindInteger(2, number);
    count.execute();
}

std::string moveToTrash(const std::filesystem::path& dataFolder, const std::filesystem::path& file,
                        const std::string& storedName, const StoreOptions& options)
{
    const std::string now = auditTimeNow();
    {
        // Who and when travel with the file, for the bin's list.
        StoreConnection connection(file, options);
        auto note = connection.sql().prepare(
            "INSERT OR REPLACE INTO kiv_meta VALUES('deleted_at', ?), ('deleted_by', ?)");
        note.bindText(1, now);
        note.bindText(2, options.actor.empty() ? "unknown" : options.actor);
        note.execute();
    }
    const auto folder = dataFolder / kTrashFolder;
    std::filesystem::create_directories(folder);
    const std::string cutoff = fileStamp(cutoffOf(options.trashDays));
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
    {
        const std::string name = entry->path().filename().string();
        const auto stamp = name.rfind(kStampSeparator);
        if (stamp != std::string::npos && name.compare(stamp + 1, cutoff.size(), cutoff) < 0)
            std::filesystem::remove(entry->path(), error);
    }
    const std::string trashName = storedName + kStampSeparator + fileStamp(now) + ".kivdb";
    for (const char* suffix : {"-wal", "-shm"})
        if (std::filesystem::exists(file.string() + suffix))
            std::filesystem::rename(file.string() + suffix, (folder / trashName).string() + suffix);
    std::filesystem::rename(file, folder / trashName);
    return trashName;
}

uint32_t DatabaseCatalogue::listTrash(std::vector<TrashEntry>& entries, std::string& message)
{
    try
    {
        const std::string cutoff = cutoffOf(myOptions.trashDays);
        for (const auto& name : list())
        {
            StoreConnection connection(fileOf(name), myOptions);
            SqliteConnection& sql = connection.sql();
            if (!hasTrash(sql))
                continue;
            const bool fields = hasTable(sql, "kiv_deleted_fields");
            auto deletions = sql.prepare(
                std::string("SELECT d.deletion, d.deleted_at, d.deleted_by, d.records, ") +
                (fields
                     ? "f.name FROM kiv_deletions d LEFT JOIN kiv_deleted_fields f ON f.deletion = d.deletion"
                     : "NULL FROM kiv_deletions d") +
                " WHERE d.deleted_at >= ? ORDER BY d.deletion DESC");
            deletions.bindText(1, cutoff);
            auto ids =
                sql.prepare("SELECT c1 FROM kiv_trash WHERE kiv_deletion = ? ORDER BY kiv_rowid LIMIT " +
                            std::to_string(kListedIDs));
            while (deletions.step())
            {
                TrashEntry entry;
                entry.database = name;
                entry.deletion = deletions.columnInteger(0);
                entry.deletedAt = std::string(deletions.columnText(1));
                entry.deletedBy = std::string(deletions.columnText(2));
                entry.records = uint64_t(std::max<int64_t>(deletions.columnInteger(3), 0));
                entry.field = std::string(deletions.columnText(4));
                StatementScope scope(ids);
                ids.bindInteger(1, entry.deletion);
                while (ids.step())
                    entry.recordIDs.emplace_back(ids.columnText(0));
                entries.push_back(std::move(entry));
            }
        }
        std::error_code error;
        for (std::filesystem::directory_iterator file(myDataFolder / kTrashFolder, error), end;
             !error && file != end; file.increment(error))
        {
            const std::string name = file->path().filename().string();
            const auto stamp = name.rfind(kStampSeparator);
            if (file->path().extension() != ".kivdb" || stamp == std::string::npos)
                continue;
            TrashEntry entry;
            entry.database = name.substr(0, stamp);
            entry.file = name;
            StoreConnection connection(file->path(), myOptions);
            auto meta =
                connection.sql().prepare("SELECT key, value FROM kiv_meta WHERE key LIKE 'deleted_%'");
            while (meta.step())
                (meta.columnText(0) == "deleted_at" ? entry.deletedAt : entry.deletedBy) = meta.columnText(1);
            auto records = connection.sql().prepare("SELECT COUNT(*) FROM kiv_records");
            entry.records = records.step() ? uint64_t(records.columnInteger(0)) : 0;
            entries.push_back(std::move(entry));
        }
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        return resultOfSqliteError(failure, message);
    }
}

uint32_t DatabaseCatalogue::restoreTrashFile(const std::string& file, std::string& message)
{
    const auto stamp = file.rfind(kStampSeparator);
    const auto source = myDataFolder / kTrashFolder / file;
    std::error_code error;
    if (file.find('/') != std::string::npos || stamp == std::string::npos ||
        !std::filesystem::is_regular_file(source, error))
    {
        message = "The recycle bin holds no database file named \"" + file + "\".";
        return result::kDatabaseNotFound;
    }
    const std::string name = file.substr(0, stamp);
    if (const auto existing = resolve(name))
    {
        message = "A database named \"" + *existing +
                  "\" exists again; delete or rename it before restoring the deleted one.";
        return kKivResult_NotUnique;
    }
    {
        StoreConnection connection(source, myOptions);
        connection.sql().execute("DELETE FROM kiv_meta WHERE key IN ('deleted_at', 'deleted_by')");
    }
    for (const char* suffix : {"-wal", "-shm"})
        if (std::filesystem::exists(source.string() + suffix))
            std::filesystem::rename(source.string() + suffix, fileOf(name).string() + suffix);
    std::filesystem::rename(source, fileOf(name), error);
    if (error)
    {
        message = "The database file could not be put back: " + error.message();
        return result::kStorageError;
    }
    return kKivResult_Success;
}

uint32_t DatabaseCatalogue::restoreTrash(const TrashRestore& which, uint64_t& restored, std::string& message)
{
    restored = 0;
    try
    {
        if (!which.file.empty())
            return restoreTrashFile(which.file, message);
        std::string stored;
        if (const uint32_t code = findExisting(which.database, stored, message); code != kKivResult_Success)
            return code;
        auto lock = DatabaseLock::acquire(lockFileOf(stored), DatabaseLock::Mode::Shared, myOptions.lockWait);
        if (!lock)
        {
            message = "The database \"" + stored + "\" is in use by someone who needs it for exclusive use.";
            return result::kLocked;
        }
        StoreConnection connection(fileOf(stored), myOptions);
        SqliteConnection& sql = connection.sql();
        SqliteTransaction transaction(sql);
        if (hasTrash(sql))
        {
            ensureTrashTables(sql);
            if (const auto code = restoreField(sql, which, restored, message))
            {
                if (*code == kKivResult_Success)
                    transaction.commit();
                return *code;
            }
        }
        const Selection selection;
        if (!hasTrash(sql) ||
            countOf(sql, "SELECT COUNT(*) FROM kiv_trash t WHERE " + selection.where, which) == 0)
        {
            message = "The recycle bin of \"" + stored + "\" holds no such deleted record.";
            return result::kRecordNotFound;
        }
        // Unique IDs are never handed out twice, but an import may have written one explicitly.
        if (countOf(sql,
                    "SELECT COUNT(*) FROM kiv_trash t JOIN kiv_records r ON r.c1 = t.c1 WHERE " +
                        selection.where,
                    which) > 0)
        {
            message = "A record with the same unique ID was added since; the deleted one cannot come back.";
            return kKivResult_NotUnique;
        }
        // The columns of fields deleted since stay in the bin; fields added since get their defaults.
        std::vector<std::string> columns;
        const auto kept = columnsOf(sql, "kiv_trash");
        for (const auto& column : columnsOf(sql, "kiv_records"))
            if (std::find(kept.begin(), kept.end(), column) != kept.end())
                columns.push_back(column);
        auto insert = sql.prepare("INSERT INTO kiv_records(kiv_rowid, " + joined(columns) +
                                  ") SELECT CASE WHEN EXISTS(SELECT 1 FROM kiv_records r WHERE r.kiv_rowid = "
                                  "t.kiv_rowid) THEN NULL ELSE t.kiv_rowid END, " +
                                  joined(columns, "t.") + " FROM kiv_trash t WHERE " + selection.where +
                                  " ORDER BY t.kiv_rowid");
        selection.bind(insert, which);
        insert.execute();
        restored = uint64_t(sql.changes());
        auto remove = sql.prepare("DELETE FROM kiv_trash AS t WHERE " + selection.where);
        selection.bind(remove, which);
        remove.execute();
        auto count = sql.prepare("UPDATE kiv_deletions SET records = records - ? WHERE deletion = ?");
        count.bindInteger(1, int64_t(restored));
        count.bindInteger(2, which.deletion);
        count.execute();
        sql.execute("DELETE FROM kiv_deletions WHERE records <= 0 AND deletion NOT IN "
                    "(SELECT deletion FROM kiv_deleted_fields)");
        transaction.commit();
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        if (failure.primaryCode() == SQLITE_CONSTRAINT)
        {
            message = "A deleted record holds a value that a unique field now has in another record: " +
                      std::string(failure.what());
            return kKivResult_NotUnique;
        }
        return resultOfSqliteError(failure, message);
    }
    catch (const std::filesystem::filesystem_error& failure)
    {
        message = std::string("The database file could not be put back: ") + failure.what();
        return result::kStorageError;
    }
}

uint32_t DatabaseCatalogue::emptyTrash(std::string& message)
{
    try
    {
        for (const auto& name : list())
        {
            auto lock =
                DatabaseLock::acquire(lockFileOf(name), DatabaseLock::Mode::Shared, myOptions.lockWait);
            StoreConnection connection(fileOf(name), myOptions);
            if (lock && hasTrash(connection.sql()))
            {
                ensureTrashTables(connection.sql());
                connection.sql().execute("DELETE FROM kiv_trash; DELETE FROM kiv_deleted_values;"
                                         "DELETE FROM kiv_deleted_fields; DELETE FROM kiv_deletions");
            }
        }
        std::error_code error;
        std::filesystem::remove_all(myDataFolder / kTrashFolder, error);
        if (error)
        {
            message = "The trash folder could not be emptied: " + error.message();
            return result::kStorageError;
        }
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        return resultOfSqliteError(failure, message);
    }
}

} // namespace kiv::db
