// Slot decoding of every database selector.
#include "abi/DatabaseSlots.h"

#include "KivModuleInterface.h"
#include "ServiceCodes.h"
#include "abi/Slots.h"
#include "common/Text.h"

#include <cstring>
#include <new>

namespace kiv::abi
{

namespace
{
constexpr uint32_t kBadSlot = db::result::kInvalidArgument;

bool concernsOneDatabase(uint32_t selector)
{
    static constexpr uint32_t kSelectors[] = {kKivDB_GetDatabaseName,
                                              kKivDB_AddField,
                                              kKivDB_DeleteField,
                                              kKivDB_GetFieldInfoByName,
                                              kKivDB_GetFieldInfoByIndex,
                                              kKivDB_GetFieldCount,
                                              kKivDB_SetLocking,
                                              kKivDB_CreateRecord,
                                              kKivDB_AddRecord,
                                              kKivDB_UpdateRecord,
                                              kKivDB_DeleteRecord,
                                              kKivDB_DeleteAllRecords,
                                              kKivDB_SetFieldValue,
                                              kKivDB_GetFieldValue,
                                              kKivDB_GetRecordCount,
                                              kKivDB_ClearSearchResults,
                                              kKivDB_ExecuteSearch,
                                              kKivDB_GetResultCount,
                                              kKivDB_MoveFirstRecord,
                                              kKivDB_MoveLastRecord,
                                              kKivDB_MovePrevRecord,
                                              kKivDB_MoveNextRecord,
                                              kKivDB_MoveToRecord,
                                              kKivDB_Jump,
                                              kKivDB_Export,
                                              kKivDB_Import};
    for (const uint32_t known : kSelectors)
        if (known == selector)
            return true;
    return false;
}

bool hasText(const void* text, const void* lengthPlusOne)
{
    return text && (!lengthPlusOne || readWord(lengthPlusOne) > 0);
}

// A value or key: text in `text` with its length + 1 in `size`, or 4 or 8 bytes of the kind
// given at `kindSlot` (no kind slot means text).
bool readValue(const void* text, const void* size, const void* kindSlot, db::InputValue& value)
{
    const uint32_t kind =
        kindSlot ? (readWord(kindSlot) & uint32_t(kKivValueKind_Mask)) : uint32_t(kKivValueKind_Text);
    if (kind == kKivValueKind_Text)
    {
        if (!text)
            return false;
        value = readText(text, size);
        return true;
    }
    if (!text)
        return false;
    const uint32_t bytes = size ? readWord(size) : 0;
    switch (kind)
    {
    case kKivValueKind_UInt32:
    case kKivValueKind_Int32:
    {
        if (size && bytes < 4)
            return false;
        uint32_t raw = 0;
        std::memcpy(&raw, text, 4);
        value = kind == kKivValueKind_UInt32 ? db::InputValue(raw) : db::InputValue(int32_t(raw));
        return true;
    }
    case kKivValueKind_Double:
    {
        if (size && bytes < 8)
            return false;
        double raw = 0;
        std::memcpy(&raw, text, 8);
        value = raw;
        return true;
    }
    default:
        return false;
    }
}
} // namespace

uint32_t DatabaseSlots::invalid(const char* what)
{
    return myService.fail(kBadSlot, what);
}

uint32_t DatabaseSlots::call(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8)
{
    try
    {
        return dispatch(selector, a3, a4, a5, a6, a7, a8);
    }
    catch (const std::bad_alloc&)
    {
        return myService.fail(kKivResult_UnknownError, "The database service ran out of memory.");
    }
    catch (const std::exception& error)
    {
        return myService.fail(kKivResult_UnknownError, std::string("Unexpected failure: ") + error.what());
    }
}

uint32_t DatabaseSlots::dispatch(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7,
                                 void* a8)
{
    switch (selector)
    {
    case kKivDB_Initialize:
        return initialize(a4, a5);
    case kKivDB_Terminate:
        myService.disconnect();
        return kKivResult_Success;
    case kKivDB_GetODBCSupportFlags:
        writeWord(a8, myService.supportFlags());
        return kKivResult_Success;
    case kKivDB_GetODBCCursorFlags:
        writeWord(a8, myService.cursorFlags());
        return kKivResult_Success;
    case kKivDB_GetODBCFieldTypeInfo:
    case kKivDB_GetODBCFieldTypeByIndex:
    case kKivDB_GetODBCFieldTypeByName:
    case kKivDB_GetODBCFieldTypeCount:
        return fieldType(selector, a3, a4, a5, a8);
    case kKivDB_GetErrorInfo:
        if (!a3)
            return invalid("The call needs the address of an error code or a handle.");
        return writeText(a4, a5, myService.errorText(readWord(a3)), kBadSlot);
    case kKivDB_CreateDatabase:
    case kKivDB_DeleteDatabase:
    {
        if (!hasText(a4, a5))
            return invalid("The call needs a database name.");
        const std::string name(readText(a4, a5));
        return selector == kKivDB_CreateDatabase ? myService.createDatabase(name)
                                                 : myService.deleteDatabase(name);
    }
    case kKivDB_OpenDatabase:
        return open(a3, a4, a5, a6, a7, a8);
    case kKivDB_GetDatabaseCount:
    case kKivDB_GetDatabaseNameByIndex:
    {
        if (selector == kKivDB_GetDatabaseNameByIndex && !a3)
            return invalid("The call needs the address of an index.");
        std::vector<std::string> names;
        if (const uint32_t code = myService.listDatabases(names); code != kKivResult_Success)
            return code;
        if (selector == kKivDB_GetDatabaseCount)
        {
            writeWord(a8, uint32_t(names.size()));
            return kKivResult_Success;
        }
        const uint32_t index = readWord(a3);
        if (index >= names.size())
            return myService.fail(db::result::kDatabaseNotFound,
                                  "There is no database number " + std::to_string(index) + ".");
        return writeText(a4, a5, names[index], kBadSlot);
    }
    case kKivDB_CloseDatabase:
        if (!a3)
            return invalid("The call needs the address of a database handle.");
        return myService.closeDatabase(readWord(a3));
    default:
        break;
    }
    if (!concernsOneDatabase(selector))
        return myService.fail(kKivResult_UnknownFunction, "The database service does not know the selector " +
                                                              db::formatResultCode(selector) + ".");
    if (!a3)
        return invalid("The call needs the address of a database handle.");
    db::Database* database = myService.database(readWord(a3));
    if (!database)
        return db::result::kInvalidHandle;
    return onDatabase(selector, *database, a4, a5, a6, a7, a8);
}

uint32_t DatabaseSlots::initialize(void* a4, void* a5)
{
    // "data source,user,password": an empty data source means the embedded store. The password
    // is everything after the second comma, so it may hold commas itself.
    const std::string_view text = readText(a4, a5);
    const size_t first = text.find(',');
    const std::string_view source = text.substr(0, first);
    const std::string_view rest =
        first == std::string_view::npos ? std::string_view() : text.substr(first + 1);
    const size_t second = rest.find(',');
    const std::string_view user = rest.substr(0, second);
    const std::string_view password =
        second == std::string_view::npos ? std::string_view() : rest.substr(second + 1);
    return myService.connect(source, user, password);
}

uint32_t DatabaseSlots::open(void* a3, void* a4, void* a5, void* a6, void* a7, void* a8)
{
    if (!a3 || !hasText(a4, a5))
        return invalid("Opening a database needs a handle slot and a name.");
    const db::OpenMode mode =
        a8 && readWord(a8) == kKivOpenMode_Exclusive ? db::OpenMode::Exclusive : db::OpenMode::Shared;
    db::DatabaseHandle handle = 0;
    const uint32_t code = myService.openDatabase(std::string(readText(a4, a5)), mode, myIntent,
                                                 std::string(readText(a6, a7)), handle);
    if (code == kKivResult_Success)
        writeWord(a3, handle);
    return code;
}

uint32_t DatabaseSlots::fieldType(uint32_t selector, void* a3, void* a4, void* a5, void* a8)
{
    if (selector == kKivDB_GetODBCFieldTypeCount)
    {
        writeWord(a8, uint32_t(myService.typeCount()));
        return kKivResult_Success;
    }
    db::TypeDescription type;
    if (selector == kKivDB_GetODBCFieldTypeByName)
    {
        if (!hasText(a4, a5))
            return invalid("The call needs a type name.");
        const uint32_t code = myService.typeNamed(readText(a4, a5), type);
        if (code == kKivResult_Success)
            writeWord(a8, type.typeWord);
        return code;
    }
    if (!a3)
        return invalid("The call needs the address of a type code or index.");
    const uint32_t which = readWord(a3);
    const bool found = selector == kKivDB_GetODBCFieldTypeByIndex ? myService.typeAt(which, type)
                                                                  : myService.typeOfWord(which, type);
    if (!found)
        return myService.fail(kBadSlot, "There is no field type " + std::to_string(which) + ".");
    const uint32_t answer = writeText(a4, a5, type.name, kBadSlot);
    if (answer == kKivResult_Success)
        writeWord(a8, type.typeWord);
    return answer;
}

uint32_t DatabaseSlots::getValue(db::Database& database, void* a4, void* a5, void* a6, void* a7, void* a8)
{
    if (!hasText(a4, a5) || !a6 || !a7)
        return invalid("Reading a value needs a field name and a value buffer.");
    const db::FieldDefinition* field = nullptr;
    const db::FieldValue* value = nullptr;
    if (const uint32_t code = database.getValue(readText(a4, a5), field, value); code != kKivResult_Success)
        return code;
    const uint32_t kind = a8 ? (readWord(a8) & uint32_t(kKivValueKind_Mask)) : uint32_t(kKivValueKind_Text);
    const auto mismatch = [&]
    {
        return myService.fail(db::result::kTypeMismatch, "The value of the field " + field->name +
                                                             " cannot be read as that kind of value.");
    };
    switch (kind)
    {
    case kKivValueKind_Text:
    {
        // Every placeholder of every record comes here: a stored text goes straight from the
        // record buffer into the module's buffer, and only a value that encoding changes is
        // copied into an encoded form.
        std::string formatted;
        std::string_view text;
        if (const auto* stored = std::get_if<std::string>(value))
            text = *stored;
        else
            text = formatted = db::valueAsText(*field, *value);
        if (myValueText == ValueText::HtmlEncoded && htmlEncodingChanges(text))
            text = formatted = htmlEncode(text);
        return writeText(a6, a7, text, kBadSlot);
    }
    case kKivValueKind_UInt32:
    case kKivValueKind_Int32:
    {
        const auto number = db::valueAsInteger(*value);
        if (!number || (kind == kKivValueKind_UInt32 ? (*number < 0 || *number > 0xFFFFFFFFLL)
                                                     : (*number < INT32_MIN || *number > INT32_MAX)))
            return mismatch();
        const uint32_t raw = uint32_t(*number);
        return writeBytes(a6, a7, &raw, 4, kBadSlot);
    }
    case kKivValueKind_Double:
    {
        const auto number = db::valueAsDouble(*value);
        if (!number)
            return mismatch();
        return writeBytes(a6, a7, &*number, 8, kBadSlot);
    }
    default:
        return invalid("Unknown value kind.");
    }
}

uint32_t DatabaseSlots::onDatabase(uint32_t selector, db::Database& database, void* a4, void* a5, void* a6,
                                   void* a7, void* a8)
{
    db::InputValue value;
    uint32_t count = 0;
    uint32_t code = kKivResult_Success;
    switch (selector)
    {
    case kKivDB_GetDatabaseName:
        return writeText(a4, a5, database.name(), kBadSlot);
    case kKivDB_AddField:
        if (!hasText(a4, a5) || !a8)
            return invalid("Adding a field needs a name and a type word.");
        return database.addField(std::string(readText(a4, a5)), readWord(a8));
    case kKivDB_DeleteField:
        if (!hasText(a4, a5))
            return invalid("Deleting a field needs its name.");
        return database.deleteField(std::string(readText(a4, a5)));
    case kKivDB_GetFieldInfoByName:
    {
        if (!hasText(a4, a5))
            return invalid("The call needs a field name.");
        uint32_t typeWord = 0;
        code = database.fieldInfo(readText(a4, a5), typeWord);
        if (code == kKivResult_Success)
            writeWord(a8, typeWord);
        return code;
    }
    case kKivDB_GetFieldInfoByIndex:
    {
        if (!a8)
            return invalid("The call needs the address of a field index.");
        const db::FieldDefinition* field = database.fieldAt(readWord(a8));
        if (!field)
            return myService.fail(kKivResult_NotFound,
                                  "There is no field number " + std::to_string(readWord(a8)) + ".");
        // The index word becomes the type word only on success: a retry after 'MBtS' must
        // still find the index there.
        if ((code = writeText(a4, a5, field->name, kBadSlot)) == kKivResult_Success)
            writeWord(a8, field->typeWord);
        return code;
    }
    case kKivDB_GetFieldCount:
        writeWord(a8, uint32_t(database.fieldCount()));
        return kKivResult_Success;
    case kKivDB_SetLocking:
        return kKivResult_Success; // records are written in single transactions; nothing to hold
    case kKivDB_CreateRecord:
        return database.createRecord();
    case kKivDB_AddRecord:
        return database.addRecord();
    case kKivDB_UpdateRecord:
        return database.updateRecord();
    case kKivDB_DeleteRecord:
    case kKivDB_MoveToRecord:
        if (!readValue(a4, a5, a8, value))
            return invalid("The call needs a unique ID value.");
        return selector == kKivDB_DeleteRecord ? database.deleteRecord(value) : database.moveTo(value);
    case kKivDB_DeleteAllRecords:
        return database.deleteAllRecords();
    case kKivDB_SetFieldValue:
        if (!hasText(a4, a5) || !readValue(a6, a7, a8, value))
            return invalid("Setting a value needs a field name and a value.");
        return database.setValue(readText(a4, a5), value);
    case kKivDB_GetFieldValue:
        return getValue(database, a4, a5, a6, a7, a8);
    case kKivDB_GetRecordCount:
    case kKivDB_GetResultCount:
        code = selector == kKivDB_GetRecordCount ? database.recordCount(count) : database.resultCount(count);
        if (code == kKivResult_Success)
            writeWord(a8, count);
        return code;
    case kKivDB_ClearSearchResults:
        database.clearSearch();
        return kKivResult_Success;
    case kKivDB_ExecuteSearch:
        return database.executeSearch(readText(a4, a5));
    case kKivDB_MoveFirstRecord:
        return database.moveFirst();
    case kKivDB_MoveLastRecord:
        return database.moveLast();
    case kKivDB_MoveNextRecord:
        return database.moveNext();
    case kKivDB_MovePrevRecord:
        return database.movePrevious();
    case kKivDB_Jump:
        if (!a8)
            return invalid("The call needs the address of a record offset.");
        return database.jump(readWord(a8));
    case kKivDB_Export:
    case kKivDB_Import:
        if (!hasText(a4, a5))
            return invalid("The call needs a file path.");
        code = selector == kKivDB_Import ? database.importRecords(readText(a4, a5), count)
                                         : database.exportRecords(readText(a4, a5), readText(a6, a7), count);
        if (code == kKivResult_Success || code == kKivResult_EndOfFile)
            writeWord(a8, count);
        return code;
    default:
        return kKivResult_UnknownFunction;
    }
}

} // namespace kiv::abi
