// The database callback's dispatcher: decodes the raw argument slots of each selector, calls
// the backend that 'MIni' chose (the embedded store, or an ODBC data source), and encodes the
// answer with the buffer-size protocol of the interface
// (a too-small output buffer answers 'MBtS' with the needed size in its capacity word; on
// success the capacity word receives the number of bytes written).
#include "DatabaseSession.h"

#include "DatabaseResultCodes.h"
#include "EmbeddedBackend.h"
#include "FieldTypes.h"
#include "KivModuleInterface.h"
#include "odbc/OdbcBackend.h"

#include <cstring>
#include <map>
#include <new>

namespace kiv::db
{

namespace
{
constexpr uint32_t kExclusiveOpenMode = 3;
constexpr const char* kEditorTag = "kivEditDatabase";

uint32_t* word(void* slot)
{
    return static_cast<uint32_t*>(slot);
}

// A zero-terminated input text whose slot holds length + 1.
bool readText(void* text, void* lengthPlusOne, std::string_view& out)
{
    if (!text)
        return false;
    if (!lengthPlusOne)
    {
        out = std::string_view(static_cast<const char*>(text));
        return true;
    }
    const uint32_t size = *word(lengthPlusOne);
    if (size == 0)
        return false;
    out = std::string_view(static_cast<const char*>(text), size - 1);
    return true;
}

// Text output: needs length + 1 bytes (the text and its terminating zero); on success the
// capacity word receives the length.
uint32_t writeText(void* buffer, void* capacity, std::string_view text)
{
    if (!buffer || !capacity)
        return result::kInvalidArgument;
    uint32_t& room = *word(capacity);
    if (text.size() + 1 > room)
    {
        room = uint32_t(text.size() + 1);
        return result::kBufferTooSmall;
    }
    if (!text.empty())
        std::memcpy(buffer, text.data(), text.size());
    static_cast<char*>(buffer)[text.size()] = '\0';
    room = uint32_t(text.size());
    return result::kSuccess;
}

uint32_t writeBytes(void* buffer, void* capacity, const void* value, uint32_t size)
{
    if (!buffer || !capacity)
        return result::kInvalidArgument;
    uint32_t& room = *word(capacity);
    if (room < size)
    {
        room = size;
        return result::kBufferTooSmall;
    }
    std::memcpy(buffer, value, size);
    room = size;
    return result::kSuccess;
}

void writeWord(void* slot, uint32_t value)
{
    if (slot)
        *word(slot) = value;
}

// A value or key: text in `text` with its length + 1 in `size`, or 4 or 8 bytes of the kind
// given at `kindSlot` (no kind slot means text).
bool readValue(void* text, void* size, void* kindSlot, InputValue& value)
{
    const uint32_t kind =
        kindSlot ? (*word(kindSlot) & uint32_t(kKivValueKind_Mask)) : uint32_t(kKivValueKind_Text);
    if (kind == kKivValueKind_Text)
    {
        std::string_view view;
        if (!readText(text, size, view))
            return false;
        value = view;
        return true;
    }
    if (!text)
        return false;
    const uint32_t bytes = size ? *word(size) : 0;
    switch (kind)
    {
    case kKivValueKind_UInt32:
    case kKivValueKind_Int32:
    {
        if (size && bytes < 4)
            return false;
        uint32_t raw = 0;
        std::memcpy(&raw, text, 4);
        value = kind == kKivValueKind_UInt32 ? InputValue(raw) : InputValue(int32_t(raw));
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

struct DatabaseSession::Impl
{
    SessionEnvironment environment;
    std::string currentTag;
    EmbeddedBackend embedded;
    std::unique_ptr<DatabaseBackend> dataSource; // the ODBC source 'MIni' named, if any
    DatabaseBackend* backend = &embedded;
    std::map<uint32_t, std::unique_ptr<OpenDatabase>> open;
    uint32_t nextHandle = 1;
    // The last failure of a call without a handle, so that 'MDEI' for that code can say more
    // than the general explanation.
    uint32_t lastCode = 0;
    std::string lastMessage;

    explicit Impl(SessionEnvironment settings)
        : environment(std::move(settings)),
          embedded(environment.dataFolder, StoreOptions{environment.lockWait, environment.durableCommits})
    {
    }

    uint32_t failed(uint32_t code, std::string message)
    {
        lastCode = code;
        lastMessage = std::move(message);
        return code;
    }

    uint32_t invalid(const char* what) { return failed(result::kInvalidArgument, what); }

    OpenDatabase* database(void* handleSlot, uint32_t& code)
    {
        code = result::kSuccess;
        if (!handleSlot)
        {
            code = invalid("The call needs the address of a database handle.");
            return nullptr;
        }
        const auto found = open.find(*word(handleSlot));
        if (found == open.end())
        {
            code = failed(result::kInvalidHandle, "The handle " + std::to_string(*word(handleSlot)) +
                                                      " does not name an open database.");
            return nullptr;
        }
        return found->second.get();
    }

    uint32_t dispatch(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);
    uint32_t initialize(void* a4, void* a5);
    uint32_t errorInfo(void* a3, void* a4, void* a5);
    uint32_t openDatabase(void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);
    uint32_t fieldTypeInfo(uint32_t selector, void* a3, void* a4, void* a5, void* a8);
    void useEmbedded()
    {
        backend = &embedded;
        dataSource.reset(); // open handles keep their own share of the connection
    }

    uint32_t onDatabase(uint32_t selector, OpenDatabase& db, void* a3, void* a4, void* a5, void* a6, void* a7,
                        void* a8);
    uint32_t getFieldValue(OpenDatabase& db, void* a4, void* a5, void* a6, void* a7, void* a8);
};

DatabaseSession::DatabaseSession(SessionEnvironment environment)
    : myImpl(std::make_unique<Impl>(std::move(environment)))
{
}

DatabaseSession::~DatabaseSession() = default;

void DatabaseSession::setCurrentTag(std::string_view tagName)
{
    myImpl->currentTag = tagName;
}

uint32_t DatabaseSession::handle(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7,
                                 void* a8)
{
    // Nothing may escape into the module: every failure becomes a result code.
    try
    {
        return myImpl->dispatch(selector, a3, a4, a5, a6, a7, a8);
    }
    catch (const std::bad_alloc&)
    {
        return myImpl->failed(result::kUnknownError, "The database service ran out of memory.");
    }
    catch (const std::exception& error)
    {
        return myImpl->failed(result::kUnknownError, std::string("Unexpected failure: ") + error.what());
    }
}

uint32_t DatabaseSession::Impl::dispatch(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7,
                                         void* a8)
{
    std::string_view text;
    switch (selector)
    {
    case kKivDB_Initialize:
        return initialize(a4, a5);
    case kKivDB_Terminate:
        open.clear(); // whatever the request left open
        useEmbedded();
        return result::kSuccess;
    case kKivDB_GetODBCSupportFlags:
        writeWord(a8, backend->supportFlags());
        return result::kSuccess;
    case kKivDB_GetODBCCursorFlags:
        writeWord(a8, backend->cursorFlags());
        return result::kSuccess;
    case kKivDB_GetODBCFieldTypeInfo:
    case kKivDB_GetODBCFieldTypeByIndex:
    case kKivDB_GetODBCFieldTypeByName:
    case kKivDB_GetODBCFieldTypeCount:
        return fieldTypeInfo(selector, a3, a4, a5, a8);
    case kKivDB_GetErrorInfo:
        return errorInfo(a3, a4, a5);
    case kKivDB_CreateDatabase:
    case kKivDB_DeleteDatabase:
    {
        if (!readText(a4, a5, text))
            return invalid("The call needs a database name.");
        std::string message;
        const std::string name(text);
        const uint32_t code = selector == kKivDB_CreateDatabase ? backend->createDatabase(name, message)
                                                                : backend->deleteDatabase(name, message);
        return code == result::kSuccess ? code : failed(code, message);
    }
    case kKivDB_OpenDatabase:
        return openDatabase(a3, a4, a5, a6, a7, a8);
    case kKivDB_GetDatabaseCount:
    case kKivDB_GetDatabaseNameByIndex:
    {
        if (selector == kKivDB_GetDatabaseNameByIndex && !a3)
            return invalid("The call needs the address of an index.");
        std::vector<std::string> names;
        std::string message;
        if (const uint32_t code = backend->listDatabases(names, message); code != result::kSuccess)
            return failed(code, message);
        if (selector == kKivDB_GetDatabaseCount)
        {
            writeWord(a8, uint32_t(names.size()));
            return result::kSuccess;
        }
        const uint32_t index = *word(a3);
        if (index >= names.size())
            return failed(result::kDatabaseNotFound,
                          "There is no database number " + std::to_string(index) + ".");
        return writeText(a4, a5, names[index]);
    }
    default:
        break;
    }
    uint32_t code = result::kSuccess;
    OpenDatabase* db = nullptr;
    switch (selector)
    {
    case kKivDB_CloseDatabase:
        if (!(db = database(a3, code)))
            return code;
        open.erase(*word(a3));
        return result::kSuccess;
    case kKivDB_GetDatabaseName:
    case kKivDB_AddField:
    case kKivDB_DeleteField:
    case kKivDB_GetFieldInfoByName:
    case kKivDB_GetFieldInfoByIndex:
    case kKivDB_GetFieldCount:
    case kKivDB_SetLocking:
    case kKivDB_CreateRecord:
    case kKivDB_AddRecord:
    case kKivDB_UpdateRecord:
    case kKivDB_DeleteRecord:
    case kKivDB_DeleteAllRecords:
    case kKivDB_SetFieldValue:
    case kKivDB_GetFieldValue:
    case kKivDB_GetRecordCount:
    case kKivDB_ClearSearchResults:
    case kKivDB_ExecuteSearch:
    case kKivDB_GetResultCount:
    case kKivDB_MoveFirstRecord:
    case kKivDB_MoveLastRecord:
    case kKivDB_MovePrevRecord:
    case kKivDB_MoveNextRecord:
    case kKivDB_MoveToRecord:
    case kKivDB_Jump:
    case kKivDB_Export:
    case kKivDB_Import:
        if (!(db = database(a3, code)))
            return code;
        return onDatabase(selector, *db, a3, a4, a5, a6, a7, a8);
    default:
        return failed(result::kUnknownFunction,
                      "The database service does not know the selector " + formatResultCode(selector) + ".");
    }
}

uint32_t DatabaseSession::Impl::initialize(void* a4, void* a5)
{
    // "data source,user,password": an empty data source means the embedded store. The password
    // is everything after the second comma, so it may hold commas itself.
    std::string_view text;
    if (!a4 || !readText(a4, a5, text))
    {
        useEmbedded();
        return result::kSuccess;
    }
    const size_t first = text.find(',');
    const std::string_view source = trimBlanks(text.substr(0, first));
    const std::string_view rest =
        first == std::string_view::npos ? std::string_view() : text.substr(first + 1);
    const size_t second = rest.find(',');
    const std::string_view user = trimBlanks(rest.substr(0, second));
    const std::string_view password =
        second == std::string_view::npos ? std::string_view() : rest.substr(second + 1);
    if (source.empty())
    {
        useEmbedded();
        return result::kSuccess;
    }
    odbc::DataSourceSettings settings;
    settings.dataSource = std::string(source);
    settings.user = std::string(user);
    settings.password = std::string(password);
    settings.fileFolder = environment.dataFolder;
    settings.scrollableCursors = environment.odbcScrollableCursors;
    std::unique_ptr<DatabaseBackend> connected;
    std::string message;
    if (const uint32_t code = odbc::connectDataSource(settings, connected, message); code != result::kSuccess)
    {
        useEmbedded();
        return failed(code, message);
    }
    dataSource = std::move(connected);
    backend = dataSource.get();
    return result::kSuccess;
}

uint32_t DatabaseSession::Impl::errorInfo(void* a3, void* a4, void* a5)
{
    if (!a3)
        return invalid("The call needs the address of an error code or a handle.");
    const uint32_t value = *word(a3);
    // Handles are small numbers and codes are four characters, so one word can mean either.
    if (const auto found = open.find(value); found != open.end())
        return writeText(a4, a5, found->second->message());
    if (value == lastCode && !lastMessage.empty())
        return writeText(a4, a5, lastMessage);
    return writeText(a4, a5, describeResult(value));
}

uint32_t DatabaseSession::Impl::openDatabase(void* a3, void* a4, void* a5, void* a6, void* a7, void* a8)
{
    std::string_view name;
    if (!a3 || !readText(a4, a5, name))
        return invalid("Opening a database needs a handle slot and a name.");
    OpenRequest request;
    request.name = std::string(name);
    request.exclusive = a8 && *word(a8) == kExclusiveOpenMode;
    std::string_view uniqueID;
    if (a6 && readText(a6, a7, uniqueID))
        request.uniqueIDFieldName = std::string(trimBlanks(uniqueID));
    // Only the editor promises that opening a new name creates it; a visitor's URL never can.
    request.createIfMissing = compareFolded(currentTag, kEditorTag) == 0;
    std::unique_ptr<OpenDatabase> db;
    std::string message;
    if (const uint32_t code = backend->openDatabase(request, db, message); code != result::kSuccess)
        return failed(code, message);
    while (open.count(nextHandle) || nextHandle == 0)
        ++nextHandle;
    const uint32_t handle = nextHandle++;
    open.emplace(handle, std::move(db));
    *word(a3) = handle;
    return result::kSuccess;
}

uint32_t DatabaseSession::Impl::fieldTypeInfo(uint32_t selector, void* a3, void* a4, void* a5, void* a8)
{
    if (selector == kKivDB_GetODBCFieldTypeCount)
    {
        writeWord(a8, uint32_t(backend->typeCount()));
        return result::kSuccess;
    }
    TypeDescription type;
    if (selector == kKivDB_GetODBCFieldTypeByName)
    {
        std::string_view name;
        if (!readText(a4, a5, name))
            return invalid("The call needs a type name.");
        if (!backend->typeNamed(trimBlanks(name), type))
            return failed(result::kInvalidArgument,
                          "The database has no field type named " + std::string(name) + ".");
        writeWord(a8, type.typeWord);
        return result::kSuccess;
    }
    if (!a3)
        return invalid("The call needs the address of a type code or index.");
    const bool found = selector == kKivDB_GetODBCFieldTypeByIndex ? backend->typeAt(*word(a3), type)
                                                                  : backend->typeOfWord(*word(a3), type);
    if (!found)
        return failed(result::kInvalidArgument, "There is no field type " + std::to_string(*word(a3)) + ".");
    const uint32_t answer = writeText(a4, a5, type.name);
    if (answer == result::kSuccess)
        writeWord(a8, type.typeWord);
    return answer;
}

uint32_t DatabaseSession::Impl::getFieldValue(OpenDatabase& db, void* a4, void* a5, void* a6, void* a7,
                                              void* a8)
{
    std::string_view name;
    if (!readText(a4, a5, name) || !a6 || !a7)
        return invalid("Reading a value needs a field name and a value buffer.");
    const FieldDefinition* field = nullptr;
    const FieldValue* value = nullptr;
    if (const uint32_t code = db.getValue(name, field, value); code != result::kSuccess)
        return code;
    const uint32_t kind = a8 ? (*word(a8) & uint32_t(kKivValueKind_Mask)) : uint32_t(kKivValueKind_Text);
    const auto mismatch = [&]
    {
        db.setMessage("The value of the field " + field->name + " cannot be read as that kind of value.");
        return result::kTypeMismatch;
    };
    switch (kind)
    {
    case kKivValueKind_Text:
        return writeText(a6, a7, valueAsText(*field, *value));
    case kKivValueKind_UInt32:
    case kKivValueKind_Int32:
    {
        const auto number = valueAsInteger(*value);
        if (!number)
            return mismatch();
        if (kind == kKivValueKind_UInt32 ? (*number < 0 || *number > 0xFFFFFFFFLL)
                                         : (*number < INT32_MIN || *number > INT32_MAX))
            return mismatch();
        const uint32_t raw = uint32_t(*number);
        return writeBytes(a6, a7, &raw, 4);
    }
    case kKivValueKind_Double:
    {
        const auto number = valueAsDouble(*value);
        if (!number)
            return mismatch();
        return writeBytes(a6, a7, &*number, 8);
    }
    default:
        return invalid("Unknown value kind.");
    }
}

uint32_t DatabaseSession::Impl::onDatabase(uint32_t selector, OpenDatabase& db, void* a3, void* a4, void* a5,
                                           void* a6, void* a7, void* a8)
{
    std::string_view text;
    InputValue value;
    uint32_t count = 0;
    uint32_t code = result::kSuccess;
    switch (selector)
    {
    case kKivDB_GetDatabaseName:
        return writeText(a4, a5, db.name());
    case kKivDB_AddField:
        if (!readText(a4, a5, text) || !a8)
            return invalid("Adding a field needs a name and a type word.");
        return db.addField(std::string(text), *word(a8));
    case kKivDB_DeleteField:
        if (!readText(a4, a5, text))
            return invalid("Deleting a field needs its name.");
        return db.deleteField(std::string(text));
    case kKivDB_GetFieldInfoByName:
    {
        if (!readText(a4, a5, text))
            return invalid("The call needs a field name.");
        const FieldDefinition* field = db.findField(text);
        if (!field)
        {
            db.setMessage(std::string(text));
            return result::kFieldNotFound;
        }
        writeWord(a8, field->typeWord);
        return result::kSuccess;
    }
    case kKivDB_GetFieldInfoByIndex:
    {
        if (!a8)
            return invalid("The call needs the address of a field index.");
        const FieldDefinition* field = db.fieldAt(*word(a8));
        if (!field)
        {
            db.setMessage("There is no field number " + std::to_string(*word(a8)) + ".");
            return result::kFieldNotFound;
        }
        // The index word becomes the type word only on success: a retry after 'MBtS' must
        // still find the index there.
        if ((code = writeText(a4, a5, field->name)) == result::kSuccess)
            writeWord(a8, field->typeWord);
        return code;
    }
    case kKivDB_GetFieldCount:
        writeWord(a8, uint32_t(db.fieldCount()));
        return result::kSuccess;
    case kKivDB_SetLocking:
        return result::kSuccess; // records are written in single transactions; nothing to hold
    case kKivDB_CreateRecord:
        return db.createRecord();
    case kKivDB_AddRecord:
        return db.addRecord();
    case kKivDB_UpdateRecord:
        return db.updateRecord();
    case kKivDB_DeleteRecord:
    case kKivDB_MoveToRecord:
        if (!readValue(a4, a5, a8, value))
            return invalid("The call needs a unique ID value.");
        return selector == kKivDB_DeleteRecord ? db.deleteRecord(value) : db.moveTo(value);
    case kKivDB_DeleteAllRecords:
        return db.deleteAllRecords();
    case kKivDB_SetFieldValue:
        if (!readText(a4, a5, text) || !readValue(a6, a7, a8, value))
            return invalid("Setting a value needs a field name and a value.");
        return db.setValue(text, value);
    case kKivDB_GetFieldValue:
        return getFieldValue(db, a4, a5, a6, a7, a8);
    case kKivDB_GetRecordCount:
    case kKivDB_GetResultCount:
        code = selector == kKivDB_GetRecordCount ? db.recordCount(count) : db.resultCount(count);
        if (code == result::kSuccess)
            writeWord(a8, count);
        return code;
    case kKivDB_ClearSearchResults:
        db.clearSearch();
        return result::kSuccess;
    case kKivDB_ExecuteSearch:
        if (!a4)
            text = {};
        else if (!readText(a4, a5, text))
            return invalid("The call needs a search text.");
        return db.executeSearch(text);
    case kKivDB_MoveFirstRecord:
        return db.moveFirst();
    case kKivDB_MoveLastRecord:
        return db.moveLast();
    case kKivDB_MoveNextRecord:
        return db.moveNext();
    case kKivDB_MovePrevRecord:
        return db.movePrevious();
    case kKivDB_Jump:
        if (!a8)
            return invalid("The call needs the address of a record offset.");
        return db.jump(*word(a8));
    case kKivDB_Export:
    case kKivDB_Import:
    {
        if (!readText(a4, a5, text) || trimBlanks(text).empty())
            return invalid("The call needs a file path.");
        const std::filesystem::path path(std::string(trimBlanks(text)));
        if (selector == kKivDB_Import)
            code = db.importRecords(path, count);
        else
        {
            std::string_view fieldList;
            if (a6)
                readText(a6, a7, fieldList);
            code = db.exportRecords(path, fieldList, count);
        }
        if (code == result::kSuccess || code == result::kEndOfFile)
            writeWord(a8, count);
        return code;
    }
    default:
        (void)a3;
        return result::kUnknownFunction;
    }
}

} // namespace kiv::db
