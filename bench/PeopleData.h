// The benchmark's people records: a deterministic CSV and its load into an embedded database
// through the service's own import, with either index setup.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace kivbench
{

// Writes `count` people records as CSV (Name, City, Age, Email, Phone, Salary): 50 cities
// drawn evenly, names from fixed lists, deterministic.
void writePeopleCsv(const std::filesystem::path& file, size_t count);

// Creates database `name` in `dataFolder` with the people fields and imports `csv` through
// the service's own import. `cityNameIndex`: one index on (City, Name) instead of one on each.
void loadPeople(const std::filesystem::path& dataFolder, const std::string& name,
                const std::filesystem::path& csv, bool cityNameIndex);

} // namespace kivbench
