// What export and import share between the embedded store and ODBC data sources: the field
// list of an export, writing a file so that a failure never leaves half of it, the columns
// an import's header names, and values quoted safely in messages that reach pages.
#pragma once

#include "FieldTypes.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

// "Name, City": the positions of the named fields in that order; every field when the list is
// empty. Returns the first name that is no field, nullopt when all are.
std::optional<std::string> resolveFieldList(std::string_view list, size_t fieldCount,
                                            const FieldIndexLookup& lookup, std::vector<size_t>& columns);

// Writes `target` through a temporary file next to it, renamed over it only when complete, so
// a failed export never leaves half a file and never destroys an earlier one. `write` answers
// 0 or a result code of its own, which is handed back unchanged; a file that cannot be
// written answers 'MFil' with `fileError` saying why (naming the file as `shownName`).
uint32_t writeFileInPlace(const std::filesystem::path& target, const std::string& shownName,
                          const std::function<uint32_t(std::ostream&)>& write, std::string& fileError);

// The fields an import file's header row names, in column order: 0, or 'MImF' with a message
// naming the unknown or repeated column.
uint32_t resolveImportHeader(const std::vector<std::string>& header, const FieldIndexLookup& lookup,
                             const std::function<std::string(size_t)>& fieldName,
                             const std::string& databaseName, std::vector<size_t>& columns,
                             std::string& message);

// A value quoted for a message: at most 40 bytes, control characters and markup replaced.
std::string quoteValue(std::string_view value);

} // namespace kiv::db
