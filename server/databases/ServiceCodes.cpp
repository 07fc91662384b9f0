// Explanations of the service's result codes; the table in docs/database-service.md is the
// same list, and a test checks that every code has a text.
#include "ServiceCodes.h"

namespace kiv::db
{

std::string_view describeResult(uint32_t code)
{
    using namespace result;
    switch (code)
    {
    case kKivResult_Success:
        return {}; // a success has nothing to explain
    case kKivResult_BufferTooSmall:
        return "The output buffer was too small; the needed size was written into its capacity word.";
    case kKivResult_UnknownFunction:
        return "The database service does not know this selector.";
    case kKivResult_UnknownError:
        return "An unexpected error occurred in the database service.";
    case kKivResult_BeginningOfFile:
        return "There is no record before the first one of the results.";
    case kKivResult_EndOfFile:
        return "There is no record after the last one of the results.";
    case kKivResult_NotFound:
        return "The database has no field by that name.";
    case kKivResult_ImproperFormat:
        return "The search text is not well formed.";
    case kKivResult_NotIndexed:
        return "The field cannot be used that way in a search: long text cannot be ordered.";
    case kKivResult_NotUnique:
        return "The field already exists, or another record already holds this value in a unique field.";
    case kKivResult_NotAuthorized:
        return "The file is outside the region's exports folder, or it is one of the server's own files.";
    case kKivResult_InvalidValue:
        return "The value is empty or malformed.";
    case kDatabaseNotFound:
        return "No database by that name exists.";
    case kDatabaseExists:
        return "A database by that name already exists.";
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
        return "The data source refused the text as longer than the field allows.";
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
    case kNoRequest:
        return "The selector needs a page request, and there is none.";
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

bool isFailure(uint32_t code)
{
    return code != kKivResult_Success && code != kKivResult_BufferTooSmall &&
           code != kKivResult_BeginningOfFile && code != kKivResult_EndOfFile;
}

} // namespace kiv::db
