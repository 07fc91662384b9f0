// Name rules. Database names: letters, digits, blanks and a few punctuation marks; never a
// path separator, "..", a control character or a leading dot, so the file name built from it
// always stays a plain file inside the data folder. Field names: printable characters and
// blanks without the module's separators (NameRules.h).
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

bool isFieldNameByte(unsigned char c)
{
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0))
        return false; // control characters
    switch (c)
    {
    case '.':
    case ',':
    case ';':
    case '(':
    case ')':
    case '\'':
    case '"':
        return false;
    default:
        return true;
    }
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
    std::string problem;
    if (name.empty())
        problem = "A field name cannot be empty.";
    else if (name.size() > kMaximumNameLength)
        problem = "A field name can be at most 64 bytes long.";
    else if (name.front() == ' ' || name.back() == ' ')
        problem = "A field name cannot begin or end with a blank.";
    for (size_t i = 0; problem.empty() && i < name.size(); ++i)
    {
        const auto c = static_cast<unsigned char>(name[i]);
        if (isFieldNameByte(c))
            continue;
        if (c < 0x20 || c >= 0x7F)
            problem = "A field name cannot hold control characters (byte " + std::to_string(i + 1) + ").";
        else
            problem = std::string("A field name cannot hold ") +
                      (c == '"' ? "'\"'" : "\"" + std::string(1, char(c)) + "\"") + ".";
    }
    if (problem.empty())
        return {};
    return problem + " " + std::string(kFieldNameRule);
}

} // namespace kiv::db
