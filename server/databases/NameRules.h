// Which database and field names the service accepts. A database name becomes a file name in
// the data folder, so its rules make sure no name can reach outside that folder. A field name
// is only metadata (the embedded store's columns have names of their own, a data source's are
// quoted), so it may be written as people name columns, with blanks and accents; it only
// leaves out the characters that the module's own texts use to separate names: the field
// list's "." and ",", the placeholder's ";" and parentheses, and quotes.
#pragma once

#include <string>
#include <string_view>

namespace kiv::db
{

constexpr size_t kMaximumNameLength = 64;

// The field-name rule in the words every refusal uses.
constexpr std::string_view kFieldNameRule =
    "Field names are 1 to 64 bytes of letters (Latin-1 letters too), digits, blanks and punctuation "
    "other than . , ; ( ) and quotes, with no blank at either end.";

// Empty when the name is acceptable, otherwise a sentence saying why not.
std::string checkDatabaseName(std::string_view name);
// Empty, or what is wrong followed by kFieldNameRule.
std::string checkFieldName(std::string_view name);

// A byte a field name may hold: a printable character (ASCII, or Latin-1 from 0xA0) or the
// blank, other than . , ; ( ) ' and ".
bool isFieldNameByte(unsigned char c);

} // namespace kiv::db
