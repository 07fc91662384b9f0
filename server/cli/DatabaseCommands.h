// kiv-server db ...: database administration from the shell. Every command goes through the
// host's typed database service (the code that serves pages), never through the module's slot
// format; the databases are those of a data folder (--data DIR) or of a configured region
// (--config FILE --region NAME), or of an ODBC data source (--source) where that applies.
//
//   db list                              names, fields and records
//   db create NAME [FIELD:TYPE:LENGTH:FLAGS ...]
//   db check [NAME ...]                  SQLite's integrity check; all databases without names
//   db backup [NAME ...] --to FOLDER     online backup: consistent while the server writes
//   db restore NAME --from FOLDER        under the database's exclusive lock
//   db import NAME FILE [--dry-run]      all or nothing; --dry-run lists every bad line
//   db export NAME FILE [--fields A,B] [--search TEXT]
//   db index add NAME FIELD,FIELD        a two-field index (compare the first, sort by the second)
//   db index list NAME
//   db audit [--database D] [--record N] [--user U] [--since T] [--until T]
//                                        the region's changes, as the audit log's JSON lines
//   db trash list                        deleted records (by deletion) and databases
//   db trash restore --database D --deletion N [--record ID] | --file TRASHFILE
//   db trash empty
#pragma once

#include "DatabaseService.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv
{

class DatabaseCommands
{
public:
    // Adds `db` and its commands to the program's command line.
    explicit DatabaseCommands(CLI::App& program);

    bool parsed() const { return myCommand->parsed(); }
    // Runs the command given; the exit status (0, or 1 with the reason on standard error).
    int run();

private:
    struct Options
    {
        std::string data;
        std::string configFile;
        std::string region;
        std::string source;
        std::string user;
        std::string name;
        std::vector<std::string> names;
        std::vector<std::string> fields;
        std::string folder;
        std::string file;
        std::string fieldList;
        std::string search;
        bool dryRun = false;
        // db audit: the filters, and the log to read instead of the region's.
        std::string auditDatabase;
        std::string auditRecord;
        std::string since;
        std::string until;
        std::string auditLog;
        int64_t deletion = 0;
    };

    int showAudit();
    int runTrash(const std::string& command, db::DatabaseService& service);

    CLI::App* add(const std::string& name, const std::string& description);

    CLI::App* myCommand;
    Options my;
    std::vector<CLI::App*> mySubcommands;
};

} // namespace kiv
