// Which database and field names the embedded store accepts. A database name becomes a file
// name in the data folder, so the rules make sure no name can reach outside that folder; a
// field name appears in search texts, so it must read as one word there.
#pragma once

#include <string>
#include <string_view>

namespace kiv::db
{

constexpr size_t kMaximumNameLength = 64;

// Empty when the name is acceptable, otherwise a sentence saying why not.
std::string checkDatabaseName(std::string_view name);
std::string checkFieldName(std::string_view name);

// The byte rules of a field name, shared with the search language's lexer.
bool isFieldNameStart(unsigned char c);
bool isFieldNamePart(unsigned char c);

} // namespace kiv::db
