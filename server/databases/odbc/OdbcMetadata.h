// What a data source's tables look like, read once per worker and data source and kept with
// its connection pool: the table list and, per table, its columns as fields with the flags its
// indexes give them. Requests open tables from these descriptions without asking the server.
// A schema change made through any worker of this server (add or delete a field or database)
// is counted in a generation shared by all the server's worker processes, so each drops what
// it kept; a change made elsewhere shows when a statement finds the table different.
#pragma once

#include "odbc/OdbcColumn.h"
#include "odbc/OdbcHandles.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::db::odbc
{

struct SourceTraits;

struct TableDescription
{
    std::string name; // as the data source spells it
    std::vector<Column> columns;
    std::vector<FieldDefinition> fields; // the columns' fields, as the service hands them out
};

// Reads the table's columns (one SELECT that returns no row) and indexes (SQLStatistics).
// Throws OdbcError.
TableDescription describeTable(const Connection& connection, const SourceTraits& traits,
                               const std::string& table);

// The data source's tables, sorted without regard to case (SQLTables). Throws OdbcError.
std::vector<std::string> listTables(const Connection& connection);

// The schema generation shared by this server's worker processes (memory mapped before they
// are forked); counted up whenever a worker changes or finds changed a data source's schema.
uint64_t schemaGeneration();
uint64_t advanceSchemaGeneration();

} // namespace kiv::db::odbc
