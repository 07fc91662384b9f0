// The database service: the catalogue of the current store, the open handles and the
// failures that the error box and 'MDEI' explain.
#include "DatabaseService.h"

#include "ServiceCodes.h"
#include "embedded/EmbeddedCatalogue.h"
#include "files/RecordFiles.h"
#include "odbc/OdbcCatalogue.h"

namespace kiv::db
{

namespace
{
FilePolicy filePolicyOf(const ServiceEnvironment& environment)
{
    return FilePolicy(environment.exportsFolder.empty() ? environment.dataFolder / "exports"
                                                        : environment.exportsFolder,
                      environment.protectedFiles);
}
} // namespace

DatabaseService::DatabaseService(ServiceEnvironment environment)
    : myEnvironment(std::move(environment)), myFiles(filePolicyOf(myEnvironment)),
      myEmbeddedStore(std::make_unique<EmbeddedCatalogue>(
          myEnvironment.dataFolder,
          StoreOptions{myEnvironment.lockWait, myEnvironment.durableCommits, myEnvironment.connectionOpened,
                       myEnvironment.trashDays, myEnvironment.actor})),
      myEmbedded(*myEmbeddedStore), myCatalogue(&myEmbedded)
{
}

DatabaseService::~DatabaseService()
{
    myOpen.clear(); // before the catalogues whose connections they share
}

void DatabaseService::noteFailure(uint32_t code, const std::string& line)
{
    myLastFailure = ServiceFailure{code, line};
}

uint32_t DatabaseService::fail(uint32_t code, std::string message, std::string line)
{
    myLastCode = code;
    myLastMessage = std::move(message);
    noteFailure(code, line.empty() ? myLastMessage : line);
    return code;
}

uint32_t DatabaseService::connect(std::string_view dataSource, std::string_view user,
                                  std::string_view password)
{
    disconnect();
    dataSource = trimBlanks(dataSource);
    if (dataSource.empty())
        return kKivResult_Success;
    odbc::DataSourceSettings settings{std::string(dataSource), std::string(trimBlanks(user)),
                                      std::string(password)};
    std::string message;
    if (const uint32_t code = odbc::connectDataSource(settings, myDataSource, message);
        code != kKivResult_Success)
        return fail(code, message, "data source " + quoteValue(dataSource) + ": " + message);
    myCatalogue = myDataSource.get();
    return kKivResult_Success;
}

void DatabaseService::disconnect()
{
    myOpen.clear();
    myCatalogue = &myEmbedded;
    myDataSource.reset(); // open handles kept their own share of the connection until now
}

void DatabaseService::reportChange(AuditAction action, const std::string& name)
{
    if (!myEnvironment.changed)
        return;
    AuditEntry entry;
    entry.action = action;
    entry.database = name;
    myEnvironment.changed(entry);
}

uint32_t DatabaseService::createDatabase(const std::string& name)
{
    std::string message;
    const uint32_t code = myCatalogue->createDatabase(name, message);
    if (code != kKivResult_Success)
        return fail(code, message);
    reportChange(AuditAction::DatabaseCreated, name);
    return code;
}

uint32_t DatabaseService::deleteDatabase(const std::string& name)
{
    std::string message;
    const uint32_t code = myCatalogue->deleteDatabase(name, message);
    if (code != kKivResult_Success)
        return fail(code, message);
    reportChange(AuditAction::DatabaseDeleted, name);
    return code;
}

uint32_t DatabaseService::listDatabases(std::vector<std::string>& names)
{
    std::string message;
    const uint32_t code = myCatalogue->listDatabases(names, message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::checkDatabase(const std::string& name, std::vector<std::string>& problems)
{
    std::string message;
    const uint32_t code = myCatalogue->checkDatabase(name, problems, message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::backupDatabase(const std::string& name, const std::filesystem::path& folder)
{
    std::string message;
    const uint32_t code = myCatalogue->backupDatabase(name, folder, message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::restoreDatabase(const std::string& name, const std::filesystem::path& folder)
{
    std::string message;
    const uint32_t code = myCatalogue->restoreDatabase(name, folder, message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::listTrash(std::vector<TrashEntry>& entries)
{
    std::string message;
    const uint32_t code = myCatalogue->listTrash(entries, message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::restoreTrash(const TrashRestore& which, uint64_t& restored)
{
    std::string message;
    const uint32_t code = myCatalogue->restoreTrash(which, restored, message);
    if (code != kKivResult_Success)
        return fail(code, message);
    if (myEnvironment.changed)
    {
        AuditEntry entry;
        entry.action = AuditAction::Restored;
        entry.database = which.file.empty() ? which.database : which.file.substr(0, which.file.rfind('~'));
        entry.record = which.recordID;
        entry.file = which.file;
        entry.count = restored;
        myEnvironment.changed(entry);
    }
    return code;
}

uint32_t DatabaseService::emptyTrash()
{
    std::string message;
    const uint32_t code = myCatalogue->emptyTrash(message);
    return code == kKivResult_Success ? code : fail(code, message);
}

uint32_t DatabaseService::openDatabase(const std::string& name, OpenMode mode, OpenIntent intent,
                                       const std::string& uniqueIDFieldName, DatabaseHandle& handle)
{
    OpenRequest request;
    request.name = name;
    request.exclusive = mode == OpenMode::Exclusive;
    request.createIfMissing = intent == OpenIntent::CreateIfMissing;
    request.uniqueIDFieldName = std::string(trimBlanks(uniqueIDFieldName));
    std::unique_ptr<Table> table;
    std::string message;
    const std::string_view store = usesDataSource() ? "odbc" : "embedded";
    const auto started = std::chrono::steady_clock::now();
    const uint32_t opened = myCatalogue->openDatabase(request, table, message);
    if (myEnvironment.timing)
        myEnvironment.timing(TimedStep::Open, store, std::chrono::steady_clock::now() - started);
    if (const uint32_t code = opened; code != kKivResult_Success)
    {
        std::string line;
        std::vector<std::string> names;
        if (code == result::kDatabaseNotFound &&
            myCatalogue->listDatabases(names, line) == kKivResult_Success)
        {
            std::string known;
            for (const auto& known_name : names)
                known += (known.empty() ? "" : ", ") + known_name;
            line = "no database named " + quoteValue(name) +
                   " (databases: " + (known.empty() ? "none" : known) + ")";
        }
        else
            line.clear();
        return fail(code, message, line);
    }
    while (myOpen.count(myNextHandle) || myNextHandle == 0)
        ++myNextHandle;
    handle = myNextHandle++;
    DatabaseEvents events{[this](uint32_t code, const std::string& line) { noteFailure(code, line); },
                          myEnvironment.warning, nullptr, myEnvironment.changed};
    if (myEnvironment.timing)
        events.searched = [timing = myEnvironment.timing, store](std::chrono::steady_clock::duration took)
        { timing(TimedStep::Search, store, took); };
    myOpen.emplace(handle, std::make_unique<Database>(std::move(table), myFiles, std::move(events)));
    return kKivResult_Success;
}

uint32_t DatabaseService::closeDatabase(DatabaseHandle handle)
{
    if (!database(handle))
        return result::kInvalidHandle;
    myOpen.erase(handle);
    return kKivResult_Success;
}

Database* DatabaseService::database(DatabaseHandle handle)
{
    const auto found = myOpen.find(handle);
    if (found != myOpen.end())
        return found->second.get();
    fail(result::kInvalidHandle, "The handle " + std::to_string(handle) + " does not name an open database.");
    return nullptr;
}

uint32_t DatabaseService::typeNamed(std::string_view name, TypeDescription& type)
{
    if (myCatalogue->typeNamed(trimBlanks(name), type))
        return kKivResult_Success;
    return fail(result::kInvalidArgument, "The database has no field type named " + std::string(name) + ".");
}

std::string DatabaseService::errorText(uint32_t codeOrHandle) const
{
    // Handles are small numbers and codes are four characters, so one word can mean either.
    if (const auto found = myOpen.find(codeOrHandle); found != myOpen.end())
        return found->second->message();
    if (codeOrHandle == myLastCode && codeOrHandle != kKivResult_Success && !myLastMessage.empty())
        return myLastMessage;
    return std::string(describeResult(codeOrHandle));
}

} // namespace kiv::db
