// Name rules. Database names: letters, digits, blanks and a few punctuation marks; never a
// path separator, "..", a control character or a leading dot, so the file name built from it
// always stays a plain file inside the data folder.
#include "NameRules.h"

namespace kiv::db
{

namespace
{
bool isAsciiLetterOrDigit(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isDatabaseNameByte(unsigned char c)
{
    if (isAsciiLetterOrDigit(c) || c >= 0xA0)
        return true;
    switch (c)
    {
    case ' ':
    case '.':
    case '_':
    case '-':
    case '(':
    case ')':
    case '+':
    case '&':
    case '\'':
    case '@':
    case '#':
    case '$':
    case '!':
    case '~':
    case '=':
        return true;
    default:
        return false;
    }
}
} // namespace

bool isFieldNameStart(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0xA0;
}

bool isFieldNamePart(unsigned char c)
{
    return isFieldNameStart(c) || (c >= '0' && c <= '9');
}

std::string checkDatabaseName(std::string_view name)
{
    if (name.empty())
        return "A database name cannot be empty.";
    if (name.size() > kMaximumNameLength)
        return "A database name can be at most 64 bytes long.";
    for (const char c : name)
        if (!isDatabaseNameByte(static_cast<unsigned char>(c)))
            return "A database name can hold only letters, digits, blanks and . _ - ( ) + & ' @ # $ ! ~ =.";
    if (name.front() == '.' || name.front() == ' ' || name.back() == ' ' || name.back() == '.')
        return "A database name cannot begin with a dot or a blank, or end with one.";
    if (name.find("..") != std::string_view::npos)
        return "A database name cannot contain \"..\".";
    return {};
}

std::string checkFieldName(std::string_view name)
{
    if (name.empty())
        return "A field name cannot be empty.";
    if (name.size() > kMaximumNameLength)
        return "A field name can be at most 64 bytes long.";
    if (!isFieldNameStart(static_cast<unsigned char>(name.front())))
        return "A field name must begin with a letter or an underscore.";
    for (const char c : name)
        if (!isFieldNamePart(static_cast<unsigned char>(c)))
            return "A field name can hold only letters, digits and underscores.";
    return {};
}

} // namespace kiv::db
