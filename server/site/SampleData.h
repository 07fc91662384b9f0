// First-run sample data: every CSV file in a region's "data" folder (people.csv) becomes a
// database of the same name (People) when no database of that name exists yet. It goes
// through the host's own database service, record by record, so it depends only on the
// service's typed interface and not on any file format of its import.
#pragma once

#include "config/ServerConfig.h"
#include "common/Text.h"

#include <string>
#include <string_view>
#include <vector>

namespace kiv
{

// Rows of comma-separated values; quoted fields may hold commas, quotes ("") and line breaks.
std::vector<std::vector<std::string>> parseCsv(std::string_view text);

// A CSV header cell "Name", "Name:Text:64" or "Name:Text:64:X" as a field name and type word.
struct FieldDeclaration
{
    std::string name;
    uint32_t typeWord = 0;
};
// What is not understood goes to problem when one is given (the first thing only); the sample
// data loader takes the rest as it can.
FieldDeclaration parseFieldDeclaration(std::string_view cell, std::string* problem = nullptr);

// Imports what is missing; logs what it did. Never throws.
void importSampleData(const RegionConfig& region);

} // namespace kiv
