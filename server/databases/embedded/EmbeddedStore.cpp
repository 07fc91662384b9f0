// Files, connections and the per-worker connection pool of the embedded store.
#include "embedded/EmbeddedStore.h"

#include "ServiceCodes.h"
#include "DecimalText.h"
#include "NameRules.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>

namespace kiv::db
{

namespace
{
constexpr const char* kExtension = ".kivdb";
constexpr const char* kLockFolder = ".kivlocks";
constexpr const char* kFormatVersion = "1";
constexpr size_t kIdleConnectionsPerFile = 4;
// An open that read more rows than this gives its connection's page cache back to the heap.
constexpr size_t kRowsReadKeepingCache = 2000;
constexpr size_t kSearchStatementsPerConnection = 32;

// Number fields order and compare by value, exactly.
int collateNumber(void*, int leftLength, const void* left, int rightLength, const void* right)
{
    return compareDecimalText(std::string_view(static_cast<const char*>(left), size_t(leftLength)),
                              std::string_view(static_cast<const char*>(right), size_t(rightLength)));
}

// Text fields without the case-sensitive flag: ASCII and Latin-1 letters fold.
int collateNoCase(void*, int leftLength, const void* left, int rightLength, const void* right)
{
    return compareFolded(std::string_view(static_cast<const char*>(left), size_t(leftLength)),
                         std::string_view(static_cast<const char*>(right), size_t(rightLength)));
}

std::string_view argumentText(sqlite3_value* value)
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return text ? std::string_view(text, size_t(sqlite3_value_bytes(value))) : std::string_view();
}

bool matchesAt(std::string_view haystack, size_t offset, std::string_view needle, bool caseSensitive)
{
    if (caseSensitive)
        return haystack.compare(offset, needle.size(), needle) == 0;
    return compareFolded(haystack.substr(offset, needle.size()), needle) == 0;
}

// kiv_contains(text, part, caseSensitive) and kiv_begins(text, prefix, caseSensitive): byte
// based, because the stored text is single-byte and need not be valid UTF-8.
void containsFunction(sqlite3_context* context, int, sqlite3_value** arguments)
{
    const auto haystack = argumentText(arguments[0]);
    const auto needle = argumentText(arguments[1]);
    const bool caseSensitive = sqlite3_value_int(arguments[2]) != 0;
    bool found = false;
    for (size_t offset = 0; !found && offset + needle.size() <= haystack.size(); ++offset)
        found = matchesAt(haystack, offset, needle, caseSensitive);
    sqlite3_result_int(context, found);
}

void beginsFunction(sqlite3_context* context, int, sqlite3_value** arguments)
{
    const auto haystack = argumentText(arguments[0]);
    const auto prefix = argumentText(arguments[1]);
    const bool caseSensitive = sqlite3_value_int(arguments[2]) != 0;
    sqlite3_result_int(context,
                       prefix.size() <= haystack.size() && matchesAt(haystack, 0, prefix, caseSensitive));
}

void registerExtensions(sqlite3* connection)
{
    sqlite3_create_collation(connection, "KIVNUM", SQLITE_UTF8, nullptr, collateNumber);
    sqlite3_create_collation(connection, "KIVNOCASE", SQLITE_UTF8, nullptr, collateNoCase);
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
    sqlite3_create_function(connection, "kiv_contains", 3, flags, nullptr, containsFunction, nullptr,
                            nullptr);
    sqlite3_create_function(connection, "kiv_begins", 3, flags, nullptr, beginsFunction, nullptr, nullptr);
}

void configure(SqliteConnection& connection, const StoreOptions& options)
{
    registerExtensions(connection.get());
    sqlite3_busy_timeout(connection.get(), kStoreBusyTimeoutMs);
    connection.execute(options.durableCommits ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    connection.execute("PRAGMA foreign_keys=OFF; PRAGMA trusted_schema=OFF");
    // Pooled connections live as long as their worker: a 16 MB page cache keeps a page's rows
    // from coming in through a read() copy on every request. No memory map: mapped file pages
    // count towards the worker's resident size, which must stay small and flat.
    connection.execute("PRAGMA cache_size=-16384");
    if (options.connectionOpened)
    {
        static constexpr std::string_view kLevels[] = {"off", "normal", "full", "extra"};
        auto level = connection.prepare("PRAGMA synchronous");
        const int64_t value = level.step() ? level.columnInteger(0) : -1;
        options.connectionOpened(value >= 0 && value < 4 ? kLevels[value] : "unknown");
    }
}

void createSchema(SqliteConnection& connection)
{
    connection.execute("PRAGMA journal_mode=WAL");
    SqliteTransaction transaction(connection);
    connection.execute("CREATE TABLE kiv_meta(key TEXT PRIMARY KEY, value TEXT NOT NULL);"
                       "CREATE TABLE kiv_fields(position INTEGER PRIMARY KEY, name TEXT NOT NULL,"
                       " name_key TEXT NOT NULL UNIQUE, type_word INTEGER NOT NULL,"
                       " column_name TEXT NOT NULL, next_auto INTEGER NOT NULL DEFAULT 1);"
                       "CREATE TABLE kiv_records(kiv_rowid INTEGER PRIMARY KEY);"
                       "INSERT INTO kiv_meta VALUES('format', '1'), ('next_column', '2');"
                       "ALTER TABLE kiv_records ADD COLUMN c1 INTEGER NOT NULL DEFAULT 0;"
                       "CREATE UNIQUE INDEX i_c1 ON kiv_records(c1);");
    auto insert = connection.prepare(
        "INSERT INTO kiv_fields(name, name_key, type_word, column_name) VALUES(?, ?, ?, 'c1')");
    insert.bindText(1, KIV_DEFAULT_UNIQUE_ID_FIELD);
    insert.bindText(2, foldCase(KIV_DEFAULT_UNIQUE_ID_FIELD));
    insert.bindInteger(3, kUniqueIDFieldType);
    insert.execute();
    transaction.commit();
}

bool hasExtension(const std::filesystem::path& path)
{
    return path.extension() == kExtension;
}
} // namespace

uint32_t resultOfSqliteError(const SqliteError& error, std::string& message)
{
    switch (error.primaryCode())
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        message = "The database stayed busy with other requests.";
        return result::kBusy;
    case SQLITE_CONSTRAINT:
        message = error.what();
        return kKivResult_NotUnique;
    default:
        message = std::string("The database file could not be used: ") + error.what();
        return result::kStorageError;
    }
}

StoreConnection::StoreConnection(const std::filesystem::path& file, const StoreOptions& options)
    : myConnection(file.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) == 0)
    {
        myDevice = status.st_dev;
        myInode = status.st_ino;
    }
    configure(myConnection, options);
    auto format = myConnection.prepare("SELECT value FROM kiv_meta WHERE key = 'format'");
    if (!format.step() || format.columnText(0) != kFormatVersion)
        throw SqliteError(SQLITE_NOTADB, "the file is not a database of this server");
}

bool StoreConnection::isSameFile(const std::filesystem::path& file) const
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 && status.st_dev == myDevice && status.st_ino == myInode;
}

void StoreConnection::refreshSchema()
{
    auto version = myConnection.prepare("PRAGMA schema_version");
    version.step();
    const int64_t current = version.columnInteger(0);
    if (current == mySchemaVersion)
        return;
    myStatements.clear();
    mySearchStatementIndex.clear();
    mySearchStatements.clear();
    myKnownIndexes.clear(); // a deleted field takes its indexes with it
    loadFields();
    mySchemaVersion = current;
}

void StoreConnection::loadFields()
{
    myFields.clear();
    myFieldPositions.clear();
    auto select = myConnection.prepare(
        "SELECT position, name, type_word, column_name, next_auto FROM kiv_fields ORDER BY position");
    while (select.step())
    {
        FieldDefinition field;
        field.name = std::string(select.columnText(1));
        field.typeWord = uint32_t(select.columnInteger(2));
        field.column = std::string(select.columnText(3));
        field.nextAutoValue = select.columnInteger(4);
        myFieldPositions.push_back(select.columnInteger(0));
        myFields.push_back(std::move(field));
    }
    myFieldsByName.resize(myFields.size());
    for (size_t i = 0; i < myFields.size(); ++i)
        myFieldsByName[i] = i;
    std::stable_sort(myFieldsByName.begin(), myFieldsByName.end(),
                     [this](size_t a, size_t b)
                     { return compareFolded(myFields[a].name, myFields[b].name) < 0; });
}

std::optional<size_t> StoreConnection::fieldIndex(std::string_view name) const
{
    const auto found = std::lower_bound(myFieldsByName.begin(), myFieldsByName.end(), name,
                                        [this](size_t index, std::string_view wanted)
                                        { return compareFolded(myFields[index].name, wanted) < 0; });
    if (found != myFieldsByName.end() && compareFolded(myFields[*found].name, name) == 0)
        return *found;
    return std::nullopt;
}

SqliteStatement& StoreConnection::searchStatement(const std::string& sql)
{
    if (auto found = mySearchStatementIndex.find(sql); found != mySearchStatementIndex.end())
    {
        mySearchStatements.splice(mySearchStatements.begin(), mySearchStatements, found->second);
        found->second->second.reset();
        return found->second->second;
    }
    SqliteStatement prepared = myConnection.prepare(sql); // may throw: nothing changed yet
    if (mySearchStatements.size() >= kSearchStatementsPerConnection)
    {
        mySearchStatementIndex.erase(mySearchStatements.back().first);
        mySearchStatements.pop_back();
    }
    mySearchStatements.emplace_front(sql, std::move(prepared));
    mySearchStatementIndex.emplace(mySearchStatements.front().first, mySearchStatements.begin());
    return mySearchStatements.front().second;
}

SqliteStatement& StoreConnection::statement(const std::string& key, const std::string& sql)
{
    // A map keeps references stable while other statements are added.
    if (auto found = myStatements.find(key); found != myStatements.end())
    {
        found->second.reset();
        return found->second;
    }
    return myStatements.emplace(key, myConnection.prepare(sql)).first->second;
}

SqliteStatement& StoreConnection::selectRecord()
{
    // Asked once per record read: find the prepared statement before building its text.
    if (auto found = myStatements.find("select-record"); found != myStatements.end())
    {
        found->second.reset();
        return found->second;
    }
    std::string sql = "SELECT kiv_rowid";
    for (const auto& field : myFields)
        sql += ", " + field.column;
    return statement("select-record", sql + " FROM kiv_records WHERE kiv_rowid = ?");
}

SqliteStatement& StoreConnection::insertRecord()
{
    std::string columns;
    std::string values;
    for (const auto& field : myFields)
    {
        columns += (columns.empty() ? "" : ", ") + field.column;
        values += values.empty() ? "?" : ", ?";
    }
    if (columns.empty())
        return statement("insert-record", "INSERT INTO kiv_records DEFAULT VALUES");
    return statement("insert-record", "INSERT INTO kiv_records(" + columns + ") VALUES(" + values + ")");
}

struct ConnectionPool::Impl
{
    std::mutex mutex;
    pid_t owner = ::getpid();
    std::map<std::string, std::vector<std::unique_ptr<StoreConnection>>> idle;

    // A child process must not use, or close, the connections its parent made before fork().
    void dropInheritedLocked()
    {
        if (owner == ::getpid())
            return;
        for (auto& [file, connections] : idle)
            for (auto& connection : connections)
                connection->abandon();
        idle.clear();
        owner = ::getpid();
    }
};

ConnectionPool& ConnectionPool::instance()
{
    static ConnectionPool pool;
    return pool;
}

ConnectionPool::Impl& ConnectionPool::impl()
{
    static Impl pool;
    return pool;
}

std::unique_ptr<StoreConnection> ConnectionPool::acquire(const std::filesystem::path& file,
                                                         const StoreOptions& options)
{
    {
        auto& pool = impl();
        std::lock_guard<std::mutex> guard(pool.mutex);
        pool.dropInheritedLocked();
        auto& connections = pool.idle[file.string()];
        while (!connections.empty())
        {
            auto connection = std::move(connections.back());
            connections.pop_back();
            if (connection->isSameFile(file))
                return connection;
        }
    }
    return std::make_unique<StoreConnection>(file, options);
}

void ConnectionPool::release(const std::filesystem::path& file, std::unique_ptr<StoreConnection> connection)
{
    auto& pool = impl();
    std::lock_guard<std::mutex> guard(pool.mutex);
    pool.dropInheritedLocked();
    auto& connections = pool.idle[file.string()];
    if (connections.size() >= kIdleConnectionsPerFile)
        return;
    // A page of thousands of rows fills the page cache with most of the file; pages of a few
    // rows keep theirs warm.
    if (connection->takeRowsRead() > kRowsReadKeepingCache)
        sqlite3_db_release_memory(connection->sql().get());
    connections.push_back(std::move(connection));
}

void ConnectionPool::forget(const std::filesystem::path& file)
{
    auto& pool = impl();
    std::lock_guard<std::mutex> guard(pool.mutex);
    pool.dropInheritedLocked();
    pool.idle.erase(file.string());
}

DatabaseCatalogue::DatabaseCatalogue(std::filesystem::path dataFolder, StoreOptions options)
    : myDataFolder(std::move(dataFolder)), myOptions(options)
{
}

std::vector<std::string> DatabaseCatalogue::list() const
{
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(myDataFolder, error), end; !error && entry != end;
         entry.increment(error))
    {
        const auto& path = entry->path();
        if (!hasExtension(path) || !entry->is_regular_file(error))
            continue;
        std::string name = path.stem().string();
        if (checkDatabaseName(name).empty())
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b)
              {
                  const int order = compareFolded(a, b);
                  return order != 0 ? order < 0 : a < b;
              });
    return names;
}

std::optional<std::string> DatabaseCatalogue::resolve(const std::string& name) const
{
    std::error_code error;
    if (std::filesystem::is_regular_file(fileOf(name), error))
        return name;
    for (auto& stored : list())
        if (compareFolded(stored, name) == 0)
            return stored;
    return std::nullopt;
}

std::filesystem::path DatabaseCatalogue::fileOf(const std::string& storedName) const
{
    return myDataFolder / (storedName + kExtension);
}

std::filesystem::path DatabaseCatalogue::lockFileOf(const std::string& name) const
{
    // One lock file per name without regard to case, so "Orders" and "orders" share it.
    return myDataFolder / kLockFolder / (foldCase(name) + ".lock");
}

uint32_t DatabaseCatalogue::create(const std::string& name, std::string& message)
{
    if (message = checkDatabaseName(name); !message.empty())
        return result::kInvalidName;
    std::error_code error;
    std::filesystem::create_directories(myDataFolder / kLockFolder, error);
    auto lock = DatabaseLock::acquire(lockFileOf(name), DatabaseLock::Mode::Exclusive, myOptions.lockWait);
    if (!lock)
    {
        message = "The database \"" + name + "\" is in use.";
        return result::kLocked;
    }
    if (resolve(name))
    {
        message = "A database named \"" + name + "\" already exists.";
        return result::kDatabaseExists;
    }
    return writeFileWhole(
        fileOf(name), "creating",
        [](const std::filesystem::path& hidden)
        {
            SqliteConnection connection(hidden.string(),
                                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
            registerExtensions(connection.get());
            createSchema(connection);
        },
        result::kStorageError, "The database file could not be created", message);
}

uint32_t writeFileWhole(const std::filesystem::path& target, std::string_view purpose,
                        const std::function<void(const std::filesystem::path& hidden)>& write,
                        uint32_t fileFailure, std::string_view what, std::string& message)
{
    static std::atomic<unsigned> counter{0};
    const auto hidden =
        target.parent_path() / ("." + foldCase(target.filename().string()) + "." + std::string(purpose) +
                                "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::error_code error;
    try
    {
        write(hidden);
        std::filesystem::rename(hidden, target);
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        std::filesystem::remove(hidden, error);
        return resultOfSqliteError(failure, message);
    }
    catch (const std::filesystem::filesystem_error& failure)
    {
        std::filesystem::remove(hidden, error);
        message = std::string(what) + ": " + failure.what();
        return fileFailure;
    }
}

uint32_t DatabaseCatalogue::findExisting(const std::string& name, std::string& stored,
                                         std::string& message) const
{
    if (message = checkDatabaseName(name); !message.empty())
        return result::kInvalidName;
    const auto found = resolve(name);
    if (!found)
    {
        message = "No database named \"" + name + "\" exists.";
        return result::kDatabaseNotFound;
    }
    stored = *found;
    return kKivResult_Success;
}

uint32_t DatabaseCatalogue::remove(const std::string& name, std::string& message)
{
    std::string stored;
    if (const uint32_t code = findExisting(name, stored, message); code != kKivResult_Success)
        return code;
    std::error_code error;
    std::filesystem::create_directories(myDataFolder / kLockFolder, error);
    auto lock = DatabaseLock::acquire(lockFileOf(stored), DatabaseLock::Mode::Exclusive, myOptions.lockWait);
    if (!lock)
    {
        message = "The database \"" + stored +
                  "\" is open; it can be deleted when no one uses it. Try again in a few moments.";
        return result::kLocked;
    }
    const auto file = fileOf(stored);
    ConnectionPool::instance().forget(file);
    // The lock file stays: deleting it would let two openers lock two different files.
    if (myOptions.trashDays > 0)
    {
        try
        {
            moveToTrash(myDataFolder, file, stored, myOptions);
            return kKivResult_Success;
        }
        catch (const std::exception& failure)
        {
            message = std::string("The database could not be moved to the recycle bin: ") + failure.what();
            return result::kStorageError;
        }
    }
    if (!std::filesystem::remove(file, error) && error)
    {
        message = "The database file could not be deleted: " + error.message();
        return result::kStorageError;
    }
    std::filesystem::remove(file.string() + "-wal", error);
    std::filesystem::remove(file.string() + "-shm", error);
    return kKivResult_Success;
}

} // namespace kiv::db
