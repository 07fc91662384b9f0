// Explanations of the service's result codes; the table in docs/database-service.md is the
// same list, and a test checks that every code has a text.
#include "DatabaseResultCodes.h"

namespace kiv::db
{

std::string_view describeResult(uint32_t code)
{
    using namespace result;
    switch (code)
    {
    case kSuccess:
        return "The operation succeeded.";
    case kBufferTooSmall:
        return "The output buffer was too small; the needed size was written into its capacity word.";
    case kUnknownFunction:
        return "The database service does not know this selector.";
    case kUnknownError:
        return "An unexpected error occurred in the database service.";
    case kBeginningOfFile:
        return "There is no record before the first one of the results.";
    case kEndOfFile:
        return "There is no record after the last one of the results.";
    case kFieldNotFound:
        return "The database has no field by that name.";
    case kImproperFormat:
        return "The search text is not well formed.";
    case kDatabaseNotFound:
        return "No database by that name exists.";
    case kDatabaseExists:
        return "A database by that name already exists.";
    case kFieldExists:
        return "The database already has a field by that name.";
    case kInvalidName:
        return "The name is not allowed: use letters, digits, blanks and . _ - ( ) + & ' @ # $ ! ~ = only, "
               "at most 64 bytes, no path separators, no \"..\".";
    case kLocked:
        return "The database may be locked for exclusive use. Try again in a few moments.";
    case kInvalidHandle:
        return "The database handle does not name an open database.";
    case kInvalidArgument:
        return "An argument of the call is missing or malformed.";
    case kTypeMismatch:
        return "The value cannot be converted to the field's type.";
    case kValueTooLong:
        return "The text is longer than the field allows.";
    case kDuplicateValue:
        return "Another record already holds this value in a unique field.";
    case kNoCurrentRecord:
        return "There is no current record: search and move to a record, or create one, first.";
    case kRecordNotFound:
        return "No record has that unique ID.";
    case kProtectedField:
        return "The unique ID field of the database cannot be deleted.";
    case kStorageError:
        return "The database file could not be read or written.";
    case kBusy:
        return "The database stayed busy with other requests; try again in a few moments.";
    case kFileError:
        return "The export or import file could not be opened, written or renamed.";
    case kImportFailed:
        return "The import file could not be imported; nothing was imported.";
    case kODBCUnavailable:
        return "The ODBC data source could not be connected to; check its name, the user name and the "
               "password.";
    case kDataSourceError:
        return "The ODBC data source refused the operation.";
    case kConnectionLost:
        return "The connection to the ODBC data source was lost; the next request connects again.";
    default:
        return {};
    }
}

std::string formatResultCode(uint32_t code)
{
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const char c = char((code >> shift) & 0xFF);
        text += (c >= 0x20 && c < 0x7F) ? c : '?';
    }
    return text + "'";
}

} // namespace kiv::db
