// The embedded store's files and connections. Each database is one SQLite file
// "<name>.kivdb" in the region's data folder, in WAL mode; its open-mode lock file lives in
// ".kivlocks". Connections are pooled per worker process together with their prepared
// statements and the field list, which is reloaded when the file's schema version changes.
#pragma once

#include "embedded/DatabaseLock.h"
#include "FieldTypes.h"
#include "Store.h"
#include "embedded/SqliteHandles.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kiv::db
{

constexpr uint32_t kUniqueIDFieldType = 0x07030000; // UInteger, auto-unique, indexed, unique
// How long a connection waits for another writer before it answers busy.
constexpr int kStoreBusyTimeoutMs = 10000;

struct StoreOptions
{
    std::chrono::milliseconds lockWait{2000};
    bool durableCommits = true; // synchronous=FULL: also survive power loss, at an fsync per commit
    // Told the synchronous level ("full", "normal", ...) that each new connection reads back
    // from SQLite after it was set, so that the server can show what its commits really do.
    std::function<void(std::string_view synchronous)> connectionOpened;
    // Deleted records and databases are kept this many days in the recycle bin (EmbeddedTrash.cpp);
    // 0: deleted for good at once.
    int trashDays = 30;
    std::string actor; // who deletes, for the recycle bin's list: "admin", "public 192.0.2.7"
};

// One SQLite connection to one database file, with what it caches about that file.
class StoreConnection
{
public:
    StoreConnection(const std::filesystem::path& file, const StoreOptions& options);

    SqliteConnection& sql() { return myConnection; }
    const std::vector<FieldDefinition>& fields() const { return myFields; }
    int64_t fieldPosition(size_t index) const { return myFieldPositions[index]; }
    // The field of that name, without regard to case; a binary search over the names, so a
    // page's many value lookups neither fold nor scan.
    std::optional<size_t> fieldIndex(std::string_view name) const;

    // Reloads the field list and drops the cached statements when the schema changed since
    // they were made; one cheap pragma per call.
    void refreshSchema();

    // Statements that depend on the field list, prepared once per schema version.
    SqliteStatement& selectRecord(); // all field columns of one record, by kiv_rowid
    SqliteStatement& insertRecord(); // all field columns
    SqliteStatement& statement(const std::string& key, const std::string& sql); // cached by key
    // Statements whose text depends on a search, cached by that text. Searches are many and
    // varied, so only the most recently used are kept; a reference stays valid until the next
    // call. Dropped with the others when the schema changes.
    SqliteStatement& searchStatement(const std::string& sql);

    // Indexes this connection has made sure of since the schema was last loaded, so that a
    // search checks for its two-field index once rather than asking the file every time.
    bool knowsIndex(const std::string& name) const { return myKnownIndexes.count(name) != 0; }
    void rememberIndex(const std::string& name) { myKnownIndexes.insert(name); }

    // A search's walk forward may keep its statement stepping from one window to the next, so
    // that a sorted search is sorted once per walk rather than once per window. While open, the
    // statement holds its read snapshot: every other use of the connection by the table ends the
    // walk first, and a connection goes back to the pool without one.
    void beginWalk(SqliteStatement& statement)
    {
        endWalk();
        myWalk = &statement;
    }
    bool walking(const SqliteStatement& statement) const { return myWalk == &statement; }
    void endWalk()
    {
        if (myWalk)
            myWalk->reset();
        myWalk = nullptr;
    }

    // Rows read through this connection since it last went back to the pool: one that served a
    // very large page gives its page cache back when it is put aside.
    void countRowsRead(size_t rows) { myRowsRead += rows; }
    size_t takeRowsRead() { return std::exchange(myRowsRead, 0); }

    // Device and inode of the file when the connection was opened: a database deleted and
    // made again under the same name is a different file.
    bool isSameFile(const std::filesystem::path& file) const;
    void abandon() { myConnection.abandon(); }

private:
    void loadFields();
    SqliteConnection myConnection;
    int64_t mySchemaVersion = -1;
    std::vector<FieldDefinition> myFields;
    std::vector<int64_t> myFieldPositions;
    std::map<std::string, SqliteStatement> myStatements;
    std::vector<size_t> myFieldsByName; // indexes into myFields, in compareFolded order of names
    std::list<std::pair<std::string, SqliteStatement>> mySearchStatements; // most recent first
    std::unordered_map<std::string_view, decltype(mySearchStatements)::iterator> mySearchStatementIndex;
    std::set<std::string> myKnownIndexes;
    SqliteStatement* myWalk = nullptr; // owned by the query walking
    size_t myRowsRead = 0;
    dev_t myDevice = 0;
    ino_t myInode = 0;
};

// Idle connections of this worker process, keyed by file.
class ConnectionPool
{
public:
    static ConnectionPool& instance();
    std::unique_ptr<StoreConnection> acquire(const std::filesystem::path& file, const StoreOptions& options);
    void release(const std::filesystem::path& file, std::unique_ptr<StoreConnection> connection);
    void forget(const std::filesystem::path& file); // the file is being deleted

private:
    ConnectionPool() = default;
    struct Impl;
    Impl& impl();
};

// The databases of one data folder: names, files, creation and deletion.
class DatabaseCatalogue
{
public:
    DatabaseCatalogue(std::filesystem::path dataFolder, StoreOptions options);

    std::vector<std::string> list() const;                             // sorted without regard to case
    std::optional<std::string> resolve(const std::string& name) const; // the stored spelling
    std::filesystem::path fileOf(const std::string& storedName) const;
    std::filesystem::path lockFileOf(const std::string& name) const;
    const StoreOptions& options() const { return myOptions; }

    // Result codes; `message` says why on failure.
    uint32_t create(const std::string& name, std::string& message);
    uint32_t remove(const std::string& name, std::string& message);

    // Maintenance from the shell (EmbeddedMaintenance.cpp). check lists what SQLite's integrity
    // check and the store's own checks find. backup writes "<folder>/<name>.kivdb" in one read
    // transaction, so the copy is consistent while others write, and a backup folder is itself
    // a data folder. restore copies the database of that name in a backup folder over this
    // one's, once the copy has passed the checks, under the exclusive open-mode lock.
    uint32_t check(const std::string& name, std::vector<std::string>& problems, std::string& message);
    uint32_t backup(const std::string& name, const std::filesystem::path& folder, std::string& message);
    uint32_t restore(const std::string& name, const std::filesystem::path& folder, std::string& message);

    // The recycle bin (EmbeddedTrash.cpp).
    uint32_t listTrash(std::vector<TrashEntry>& entries, std::string& message);
    uint32_t restoreTrash(const TrashRestore& which, uint64_t& restored, std::string& message);
    uint32_t emptyTrash(std::string& message);

private:
    uint32_t restoreTrashFile(const std::string& file, std::string& message);
    // The stored spelling of an existing database in `stored`; else the code, with `message`.
    uint32_t findExisting(const std::string& name, std::string& stored, std::string& message) const;

    std::filesystem::path myDataFolder;
    StoreOptions myOptions;
};

// Maps an SQLite failure to a result code and a message for the module.
uint32_t resultOfSqliteError(const SqliteError& error, std::string& message);

// The recycle bin's side of a deletion, in the caller's transaction, before the rows go: copies
// the rows of `rowIDs` (none: every row) into the bin as one deletion, and purges deletions
// older than the options' days. Does nothing when the bin is off.
void keepDeletedRows(SqliteConnection& sql, const StoreOptions& options, const std::vector<int64_t>& rowIDs);
// The bin's side of deleting a field, in the caller's transaction, before its column goes: keeps
// the field's definition and every record's value of it as one deletion, so that a restore puts
// the field back with the values of the records that still exist (or come back later).
void keepDeletedField(SqliteConnection& sql, const StoreOptions& options, const std::string& column);
// The SQL column definition of a field: its type, default and collation.
std::string columnDefinition(const FieldDefinition& field);
// The folder deleted databases go to, inside the data folder; never listed, never served.
constexpr const char* kTrashFolder = ".trash";
// When a database goes to the bin: moves its files there (and drops old ones). Answers the
// file's new name; throws std::filesystem::filesystem_error.
std::string moveToTrash(const std::filesystem::path& dataFolder, const std::filesystem::path& file,
                        const std::string& storedName, const StoreOptions& options);

// Makes a database file through a hidden file beside `target` (`write` fills it), renamed into
// place once whole: a crash or a failure never leaves half a file, nor spoils one of that name.
// On failure the hidden file is removed and `message` says why; a file-system failure answers
// fileFailure with `what` ("The backup could not be written").
uint32_t writeFileWhole(const std::filesystem::path& target, std::string_view purpose,
                        const std::function<void(const std::filesystem::path& hidden)>& write,
                        uint32_t fileFailure, std::string_view what, std::string& message);

} // namespace kiv::db
