// The shell's database commands, over the typed database service.
#include "cli/DatabaseCommands.h"

#include "common/Text.h"
#include "config/ServerConfig.h"
#include "Backups.h"
#include "logging/AuditLog.h"
#include "DatabaseService.h"
#include "ServiceCodes.h"
#include "site/SampleData.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <pwd.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

// A refusal of the command itself: its text goes to standard error and the exit status is 1.
class CommandError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The service's own words for a failed call, with its code.
std::string describe(const db::DatabaseService& service, uint32_t code)
{
    std::string text = service.lastFailure().code == code && !service.lastFailure().line.empty()
                           ? service.lastFailure().line
                           : service.errorText(code);
    return text + " (" + db::formatResultCode(code) + ")";
}

void require(const db::DatabaseService& service, uint32_t code, const std::string& what)
{
    if (code != kKivResult_Success)
        throw CommandError(what + ": " + describe(service, code));
}

// Names a list such as "City,Name" holds, blanks trimmed.
std::vector<std::string> splitList(std::string_view list)
{
    std::vector<std::string> items;
    size_t start = 0;
    while (start <= list.size())
    {
        size_t comma = std::min(list.find(',', start), list.size());
        std::string item(trim(list.substr(start, comma - start)));
        if (!item.empty())
            items.push_back(std::move(item));
        start = comma + 1;
    }
    return items;
}

// One open database, closed when the command is done with it.
class OpenDatabase
{
public:
    OpenDatabase(db::DatabaseService& service, const std::string& name, db::OpenMode mode)
        : myService(service)
    {
        kiv::require(service, service.openDatabase(name, mode, db::OpenIntent::MustExist, "", myHandle),
                     name);
    }
    ~OpenDatabase() { myService.closeDatabase(myHandle); }
    OpenDatabase(const OpenDatabase&) = delete;
    OpenDatabase& operator=(const OpenDatabase&) = delete;

    db::Database& operator*() { return *myService.database(myHandle); }
    db::Database* operator->() { return myService.database(myHandle); }
    // A failed call of the database: its message, with the code.
    void require(uint32_t code, const std::string& what)
    {
        if (code == kKivResult_NotFound) // the message is the field's name
            throw CommandError(what + ": no field named " + (*this)->message() + " in " + (*this)->name());
        if (code != kKivResult_Success)
            throw CommandError(what + ": " + (*this)->message() + " (" + db::formatResultCode(code) + ")");
    }

private:
    db::DatabaseService& myService;
    db::DatabaseHandle myHandle = 0;
};

} // namespace

DatabaseCommands::DatabaseCommands(CLI::App& program)
{
    myCommand = program.add_subcommand("db", "administer the databases of a data folder or region");
    myCommand->require_subcommand(1);

    CLI::App* list = add("list", "list the databases with their fields and records");
    (void)list;
    CLI::App* create = add("create", "create a database, with fields given as NAME:TYPE:LENGTH:FLAGS");
    create->add_option("name", my.name, "database name")->required();
    create->add_option("fields", my.fields, "fields: Name, Name:Text:64, Name:Integer, City:Text:40:X ...");
    CLI::App* check = add("check", "run the integrity check (every database without names)");
    check->add_option("names", my.names, "databases to check");
    CLI::App* backup = add("backup", "copy databases while the server runs (every database without names)");
    backup->add_option("names", my.names, "databases to back up");
    backup->add_option("--to", my.folder, "backup folder: gets NAME.kivdb files, is itself a data folder")
        ->required();
    CLI::App* restore = add("restore", "put a backup in place, under the database's exclusive lock");
    restore->add_option("name", my.name, "database name")->required();
    restore->add_option("--from", my.folder, "backup folder holding NAME.kivdb")->required();
    CLI::App* import = add("import", "import a CSV file, all rows or none");
    import->add_option("name", my.name, "database name")->required();
    import->add_option("file", my.file, "CSV file with a header row naming the fields")->required();
    import->add_flag("--dry-run", my.dryRun, "check every row and list each bad line; write nothing");
    CLI::App* exportCommand = add("export", "export records to a CSV file");
    exportCommand->add_option("name", my.name, "database name")->required();
    exportCommand->add_option("file", my.file, "CSV file to write (replaced whole, or not at all)")
        ->required();
    exportCommand->add_option("--fields", my.fieldList,
                              "fields to write, in order: \"Name,City\" (default all)");
    exportCommand->add_option("--search", my.search, "only the records of this search: \"City = 'Lyon'\"");
    CLI::App* index = myCommand->add_subcommand("index", "indexes of a database");
    index->require_subcommand(1);
    mySubcommands.push_back(index);
    CLI::App* indexAdd = index->add_subcommand("add", "add an index on two fields: compared, then sorted by");
    CLI::App* indexList = index->add_subcommand("list", "list the indexes of a database");
    for (CLI::App* command : {indexAdd, indexList})
    {
        command->add_option("name", my.name, "database name")->required();
        command->add_option("--data", my.data, "data folder");
        command->add_option("--config", my.configFile, "configuration file (with --region)");
        command->add_option("--region", my.region, "region of the configuration");
        command->add_option("--source", my.source, "ODBC data source instead of the embedded store");
        command->add_option("--user", my.user, "ODBC user (password in KIV_ODBC_PASSWORD)");
    }
    indexAdd->add_option("fields", my.fieldList, "two fields: City,Name")->required();
    CLI::App* audit =
        myCommand->add_subcommand("audit", "show the changes the audit log holds, oldest first");
    audit->add_option("--data", my.data, "data folder (its audit-default.jsonl)");
    audit->add_option("--config", my.configFile, "configuration file (with --region)");
    audit->add_option("--region", my.region, "region of the configuration");
    audit->add_option("--log", my.auditLog, "the audit log file to read");
    audit->add_option("--database", my.auditDatabase, "only changes of this database");
    audit->add_option("--record", my.auditRecord, "only changes of the record with this unique ID");
    audit->add_option("--user", my.user, "only changes by this user (a login, public, shell:ACCOUNT)");
    audit->add_option("--since", my.since, "only changes at or after this UTC time: 2026-11-25T10:00");
    audit->add_option("--until", my.until, "only changes before this UTC time; a date includes its day");
    mySubcommands.push_back(audit);
    CLI::App* trash = myCommand->add_subcommand("trash", "the recycle bin: deleted records and databases");
    trash->require_subcommand(1);
    mySubcommands.push_back(trash);
    CLI::App* trashList = trash->add_subcommand("list", "what the bin holds, newest deletions first");
    CLI::App* trashRestore =
        trash->add_subcommand("restore", "put a deletion, one record of it, or a database back");
    CLI::App* trashEmpty = trash->add_subcommand("empty", "delete everything the bin holds, for good");
    for (CLI::App* command : {trashList, trashRestore, trashEmpty})
    {
        command->add_option("--data", my.data, "data folder");
        command->add_option("--config", my.configFile, "configuration file (with --region)");
        command->add_option("--region", my.region, "region of the configuration");
        mySubcommands.push_back(command);
    }
    trashRestore->add_option("--database", my.auditDatabase, "the database of the deletion");
    trashRestore->add_option("--deletion", my.deletion, "the deletion's number, as the list shows it");
    trashRestore->add_option("--record", my.auditRecord, "only the record with this unique ID");
    trashRestore->add_option("--file", my.file, "a deleted database: its file, as the list shows it");
    mySubcommands.push_back(indexAdd);
    mySubcommands.push_back(indexList);
}

CLI::App* DatabaseCommands::add(const std::string& name, const std::string& description)
{
    CLI::App* command = myCommand->add_subcommand(name, description);
    command->add_option("--data", my.data, "data folder");
    command->add_option("--config", my.configFile, "configuration file (with --region)");
    command->add_option("--region", my.region, "region of the configuration (default: its only one)");
    command->add_option("--source", my.source, "ODBC data source instead of the embedded store");
    command->add_option("--user", my.user, "ODBC user (password in KIV_ODBC_PASSWORD)");
    mySubcommands.push_back(command);
    return command;
}

namespace
{

struct Place
{
    db::ServiceEnvironment environment;
    bool mustExist = true; // the data folder
    fs::path auditLog;
    std::string region = "default";
};

// Changes made from the shell are logged as the account that made them.
std::string shellUser()
{
    const passwd* account = ::getpwuid(::geteuid());
    return "shell:" + std::string(account ? account->pw_name : std::to_string(::geteuid()));
}

Place placeOf(const std::string& data, const std::string& configFile, const std::string& regionName)
{
    Place place;
    if (data.empty() == configFile.empty())
        throw CommandError("give the data folder with --data DIR, or a configuration with --config FILE "
                           "(and --region NAME when it has several regions)");
    fs::path usersFile;
    if (!data.empty())
    {
        place.environment.dataFolder = fs::absolute(data).lexically_normal();
        usersFile = place.environment.dataFolder / "users.toml";
        // As a server without a configuration logs changes of this folder.
        RegionConfig region;
        region.dataFolder = place.environment.dataFolder;
        place.auditLog = auditLogOf(ServerConfig(), region);
    }
    else
    {
        ServerConfig config = loadConfigFile(configFile);
        const RegionConfig* region = nullptr;
        std::string names;
        for (const auto& candidate : config.regions)
        {
            names += (names.empty() ? "" : ", ") + candidate.name;
            if (candidate.name == regionName || (regionName.empty() && config.regions.size() == 1))
                region = &candidate;
        }
        if (!region)
            throw CommandError(regionName.empty()
                                   ? "the configuration has several regions (" + names +
                                         "): name one with --region"
                                   : "no region is named '" + regionName + "' (" + names + ")");
        place.environment.dataFolder = region->dataFolder;
        place.environment.exportsFolder = region->exportsFolder;
        place.environment.durableCommits = region->durableCommits;
        place.environment.trashDays = region->trashDays;
        usersFile = region->usersFile;
        place.auditLog = auditLogOf(config, *region);
        place.region = region->name;
        place.environment.protectedFiles = {config.serverLog, config.accessLog, place.auditLog};
    }
    place.environment.protectedFiles.push_back(usersFile);
    place.environment.protectedFiles.push_back(place.environment.dataFolder / "kiv-preferences.txt");
    place.environment.warning = [](const std::string& line)
    { std::cerr << "kiv-server: warning: " << line << "\n"; };
    place.environment.actor = shellUser();
    place.environment.changed = [auditLog = place.auditLog, region = place.region](db::AuditEntry& entry)
    {
        std::string why;
        if (!recordChange(auditLog, {region, shellUser(), "", ""}, entry, why))
            std::cerr << "kiv-server: warning: " << why << "\n";
    };
    return place;
}

} // namespace

int DatabaseCommands::showAudit()
{
    fs::path file = my.auditLog;
    if (file.empty())
        file = placeOf(my.data, my.configFile, my.region).auditLog;
    std::ifstream log(file, std::ios::binary);
    if (!log)
        throw CommandError("the audit log " + file.string() + " cannot be read (no change was logged yet?)");
    // Times compare as text: ISO-8601 in UTC orders as it reads.
    const auto matches = [&](const db::AuditEntry& entry)
    {
        return (my.auditDatabase.empty() || db::compareFolded(entry.database, my.auditDatabase) == 0) &&
               (my.auditRecord.empty() || entry.record == my.auditRecord) &&
               (my.user.empty() || entry.user == my.user) && (my.since.empty() || entry.time >= my.since) &&
               (my.until.empty() || entry.time < my.until || entry.time.rfind(my.until, 0) == 0);
    };
    size_t unreadable = 0;
    for (std::string line; std::getline(log, line);)
    {
        const auto entry = db::parseAuditEntry(line);
        if (!entry)
            ++unreadable;
        else if (matches(*entry))
            std::cout << line << "\n";
    }
    if (unreadable > 0)
        std::cerr << "kiv-server: warning: " << unreadable << " line(s) of " << file.string()
                  << " are not audit entries\n";
    return 0;
}

int DatabaseCommands::runTrash(const std::string& command, db::DatabaseService& service)
{
    if (command == "trash list")
    {
        std::vector<db::TrashEntry> entries;
        require(service, service.listTrash(entries), "trash");
        for (const auto& entry : entries)
        {
            std::string ids;
            for (const auto& id : entry.recordIDs)
                ids += (ids.empty() ? "" : ",") + id;
            std::cout << entry.database << "\t"
                      << (entry.file.empty() ? "deletion " + std::to_string(entry.deletion)
                                             : "database " + entry.file)
                      << "\t" << entry.deletedAt << "\t" << entry.deletedBy << "\t" << entry.records
                      << (entry.field.empty() ? " records" : " values of the field " + entry.field)
                      << (ids.empty()
                              ? ""
                              : "\tIDs " + ids + (entry.recordIDs.size() < entry.records ? ",..." : ""))
                      << "\n";
        }
        return 0;
    }
    if (command == "trash empty")
    {
        require(service, service.emptyTrash(), "trash empty");
        std::cout << "the recycle bin is empty\n";
        return 0;
    }
    db::TrashRestore which{my.auditDatabase, my.deletion, my.auditRecord, my.file};
    if (which.file.empty() && (which.database.empty() || which.deletion <= 0))
        throw CommandError(
            "name what to restore: --database NAME --deletion N [--record ID], or --file FILE");
    uint64_t restored = 0;
    require(service, service.restoreTrash(which, restored), "trash restore");
    if (!which.file.empty())
        std::cout << "restored the database of " << which.file << "\n";
    else
        std::cout << "restored " << restored << " records into " << which.database << "\n";
    return 0;
}

int DatabaseCommands::run()
{
    CLI::App* command = nullptr;
    for (CLI::App* candidate : mySubcommands)
        if (candidate->parsed() && candidate->get_subcommands().empty())
            command = candidate;
    // "index add" and "index list" are told apart from "list" by their parent.
    const std::string name =
        (command->get_parent() != myCommand ? command->get_parent()->get_name() + " " : "") +
        command->get_name();
    const std::string& database = my.name;
    try
    {
        if (name == "audit")
            return showAudit();
        Place place = placeOf(my.data, my.configFile, my.region);
        std::error_code error;
        bool makesFolder = name == "create" || name == "restore";
        if (!makesFolder && !fs::is_directory(place.environment.dataFolder, error))
            throw CommandError("the data folder " + place.environment.dataFolder.string() +
                               " does not exist");
        // Import and export name files anywhere the administrator can reach: the service takes
        // the file's folder as its exports folder, still refusing the server's own files.
        if (name.rfind("trash ", 0) == 0)
        {
            db::DatabaseService service(std::move(place.environment));
            return runTrash(name, service);
        }
        fs::path file = my.file.empty() ? fs::path() : fs::absolute(my.file).lexically_normal();
        if (!file.empty())
            place.environment.exportsFolder = file.parent_path();
        db::DatabaseService service(std::move(place.environment));
        if (!my.source.empty())
        {
            const char* password = std::getenv("KIV_ODBC_PASSWORD");
            require(service, service.connect(my.source, my.user, password ? password : ""),
                    "data source " + my.source);
        }

        if (name == "list")
        {
            std::vector<std::string> names;
            require(service, service.listDatabases(names), "list");
            for (const auto& each : names)
            {
                OpenDatabase open(service, each, db::OpenMode::Shared);
                uint32_t records = 0;
                open.require(open->recordCount(records), each);
                std::cout << each << "\t" << open->fieldCount() << " fields\t" << records << " records\n";
            }
            return 0;
        }
        if (name == "create")
        {
            std::vector<FieldDeclaration> fields;
            for (const auto& text : my.fields)
            {
                std::string problem;
                fields.push_back(parseFieldDeclaration(text, &problem));
                if (!problem.empty())
                    throw CommandError("field " + problem);
            }
            require(service, service.createDatabase(database), "create " + database);
            try
            {
                OpenDatabase open(service, database, db::OpenMode::Exclusive);
                for (const auto& field : fields)
                    open.require(open->addField(field.name, field.typeWord), "field " + field.name);
            }
            catch (const CommandError&)
            {
                service.deleteDatabase(database); // all or nothing
                throw;
            }
            std::cout << "created " << database << " with " << fields.size() << " fields\n";
            return 0;
        }
        if (name == "backup")
        {
            const fs::path folder = fs::absolute(my.folder).lexically_normal();
            std::string failed;
            const uint32_t code = db::backupDatabases(
                service, my.names, folder,
                [&](const std::string& each)
                { std::cout << each << ": backed up to " << folder.string() << "\n"; },
                failed);
            require(service, code, failed.empty() ? "list" : "backup " + failed);
            return 0;
        }
        if (name == "check")
        {
            std::vector<std::string> names = my.names;
            if (names.empty())
                require(service, service.listDatabases(names), "list");
            int status = 0;
            for (const auto& each : names)
            {
                std::vector<std::string> problems;
                require(service, service.checkDatabase(each, problems), "check " + each);
                std::cout << each << ": "
                          << (problems.empty() ? "ok" : std::to_string(problems.size()) + " problem(s)")
                          << "\n";
                for (const auto& problem : problems)
                    std::cout << "  " << problem << "\n";
                status = problems.empty() ? status : 1;
            }
            return status;
        }
        if (name == "restore")
        {
            require(service, service.restoreDatabase(database, fs::absolute(my.folder)),
                    "restore " + database);
            std::cout << database << ": restored from " << fs::absolute(my.folder).lexically_normal().string()
                      << "\n";
            return 0;
        }
        OpenDatabase open(service, database, db::OpenMode::Shared);
        if (name == "import" && my.dryRun)
        {
            std::vector<std::string> problems;
            uint32_t rows = 0;
            open.require(open->checkImport(file.filename().string(), problems, rows),
                         "import " + file.string());
            for (const auto& problem : problems)
                std::cout << file.string() << ": " << problem << "\n";
            std::cout << rows << " rows checked, " << problems.size()
                      << " problem(s); nothing was written (--dry-run)\n";
            return problems.empty() ? 0 : 1;
        }
        if (name == "import")
        {
            uint32_t count = 0;
            open.require(open->importRecords(file.filename().string(), count), "import " + file.string());
            std::cout << "imported " << count << " records into " << open->name() << "\n";
            return 0;
        }
        if (name == "export")
        {
            if (!my.search.empty())
                open.require(open->executeSearch(my.search), "search");
            uint32_t count = 0;
            uint32_t code = open->exportRecords(file.filename().string(), my.fieldList, count);
            open.require(code == kKivResult_EndOfFile ? uint32_t(kKivResult_Success) : code,
                         "export " + file.string());
            std::cout << "exported " << count << " records to " << file.string() << "\n";
            return 0;
        }
        if (name == "index add")
        {
            std::vector<std::string> fields = splitList(my.fieldList);
            if (fields.size() != 2)
                throw CommandError("an index names two fields: the one compared, then the one sorted by "
                                   "(City,Name)");
            open.require(open->addIndex(fields[0], fields[1]), "index " + my.fieldList);
            std::cout << open->name() << ": index on " << fields[0] << ", " << fields[1] << "\n";
            return 0;
        }
        std::vector<std::vector<std::string>> indexes;
        open.require(open->listIndexes(indexes), "indexes");
        for (const auto& index : indexes)
        {
            std::string line;
            for (const auto& field : index)
                line += (line.empty() ? "" : ", ") + field;
            std::cout << line << "\n";
        }
        return 0;
    }
    catch (const CommandError& error)
    {
        std::cerr << "kiv-server: " << error.what() << "\n";
        return 1;
    }
}

} // namespace kiv
