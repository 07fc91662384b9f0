// The host's database service, as typed C++: what one page request (or the administration
// page, the sample data loader, a shell command, a test) uses to reach databases. It starts on
// the region's embedded store and may be pointed at an ODBC data source; it owns the databases
// it opened and closes whatever is still open when it ends. The module's database callback
// reaches it through the slot adapter (abi/DatabaseSlots.h), which is the only code that
// decodes the callback's argument slots.
#pragma once

#include "Database.h"
#include "Store.h"
#include "files/FilePolicy.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

enum class TimedStep
{
    Open,
    Search
};

struct ServiceEnvironment
{
    std::filesystem::path dataFolder; // the region's data folder: every embedded database lives here
    // Where export and import files go; empty: "exports" in the data folder.
    std::filesystem::path exportsFolder;
    // Files no export or import may touch besides the store's own: accounts, preferences, logs.
    std::vector<std::filesystem::path> protectedFiles;
    // How long an open waits for a conflicting open (exclusive against shared) to end before
    // it is refused with 'MLkd'.
    std::chrono::milliseconds lockWait{2000};
    // synchronous=FULL: commits also survive a power loss, at the price of an fsync each.
    // Without it a committed record still survives a crash or kill of the server.
    bool durableCommits = true;
    // Each new embedded connection's synchronous level as SQLite reports it ("full", "normal").
    std::function<void(std::string_view synchronous)> connectionOpened;
    // Each write that succeeded (records, fields, databases, imports), for the audit log: the
    // caller adds when, where and by whom, and keeps it. None: writes read nothing extra.
    std::function<void(AuditEntry& entry)> changed;
    // The embedded store's recycle bin: days deleted records and databases are kept (0: none),
    // and who deletes, as its list shows them.
    int trashDays = 30;
    std::string actor;
    // Where warnings go (a text stored longer than its field's length); none: dropped.
    std::function<void(const std::string& line)> warning;
    // How long each open and each search took, and in which store ("embedded", "odbc"), for
    // the server's metrics; none: not reported.
    std::function<void(TimedStep step, std::string_view store, std::chrono::steady_clock::duration took)>
        timing;
};

enum class OpenMode
{
    Shared,
    Exclusive // no other open at the same time; fields can be added and deleted
};

// Whether opening a name that does not exist creates the database. Only the editor's tag
// promises that; the dispatcher says so, so that a visitor's URL never creates a database.
enum class OpenIntent
{
    MustExist,
    CreateIfMissing
};

using DatabaseHandle = uint32_t;

// The last failure, as the error box shows it under the module's headline and hint.
struct ServiceFailure
{
    uint32_t code = 0;
    std::string line; // one line saying what went wrong: `no field "Nmae" in "Books"`
};

class DatabaseService
{
public:
    explicit DatabaseService(ServiceEnvironment environment);
    ~DatabaseService();
    DatabaseService(const DatabaseService&) = delete;
    DatabaseService& operator=(const DatabaseService&) = delete;

    // The store: an empty data source selects the region's embedded store ('MIni').
    uint32_t connect(std::string_view dataSource, std::string_view user, std::string_view password);
    // Closes every open database and returns to the embedded store ('MTrm').
    void disconnect();
    bool usesDataSource() const { return myCatalogue != &myEmbedded; }

    uint32_t createDatabase(const std::string& name);
    uint32_t deleteDatabase(const std::string& name);
    uint32_t listDatabases(std::vector<std::string>& names);
    uint32_t openDatabase(const std::string& name, OpenMode mode, OpenIntent intent,
                          const std::string& uniqueIDFieldName, DatabaseHandle& handle);
    uint32_t closeDatabase(DatabaseHandle handle);
    // The open database of a handle; null, with 'MBdH' as the last failure, when there is none.
    Database* database(DatabaseHandle handle);

    // The store's field types and, for a data source, its driver's capabilities.
    uint32_t supportFlags() { return myCatalogue->supportFlags(); }
    uint32_t cursorFlags() { return myCatalogue->cursorFlags(); }
    size_t typeCount() { return myCatalogue->typeCount(); }
    bool typeAt(size_t index, TypeDescription& type) { return myCatalogue->typeAt(index, type); }
    bool typeOfWord(uint32_t typeBits, TypeDescription& type)
    {
        return myCatalogue->typeOfWord(typeBits, type);
    }
    uint32_t typeNamed(std::string_view name, TypeDescription& type);

    // Maintenance from the shell (kiv-server db check, backup, restore): see Catalogue in
    // Store.h. A backup folder holds "<name>.kivdb" files and is itself a data folder.
    uint32_t checkDatabase(const std::string& name, std::vector<std::string>& problems);
    uint32_t backupDatabase(const std::string& name, const std::filesystem::path& folder);
    uint32_t restoreDatabase(const std::string& name, const std::filesystem::path& folder);

    // The recycle bin (Catalogue in Store.h); a data source answers 'MUnF'.
    uint32_t listTrash(std::vector<TrashEntry>& entries);
    uint32_t restoreTrash(const TrashRestore& which, uint64_t& restored);
    uint32_t emptyTrash();

    // 'MDEI': for an open handle its last message; for a code, the service's own text for its
    // last failure with that code, else the code's explanation (empty for a success).
    std::string errorText(uint32_t codeOrHandle) const;
    // Records a failure the caller found (a malformed call) and answers its code.
    uint32_t fail(uint32_t code, std::string message, std::string line = {});
    const ServiceFailure& lastFailure() const { return myLastFailure; }
    void clearLastFailure() { myLastFailure = ServiceFailure(); }
    const FilePolicy& files() const { return myFiles; }

private:
    void noteFailure(uint32_t code, const std::string& line);
    void reportChange(AuditAction action, const std::string& name);

    ServiceEnvironment myEnvironment;
    FilePolicy myFiles;
    std::unique_ptr<Catalogue> myEmbeddedStore;
    Catalogue& myEmbedded;
    std::unique_ptr<Catalogue> myDataSource; // the ODBC source 'MIni' named, if any
    Catalogue* myCatalogue;
    std::map<DatabaseHandle, std::unique_ptr<Database>> myOpen;
    DatabaseHandle myNextHandle = 1;
    // The last failure of a call without a handle, so that 'MDEI' for that code can say more
    // than the general explanation.
    uint32_t myLastCode = 0;
    std::string myLastMessage;
    ServiceFailure myLastFailure;
};

} // namespace kiv::db
