// The database wrappers. Each fills the fixed slots of the host's database callback: a3 the
// handle (or an index), a4/a5 a text or an output buffer with its length word, a6/a7 a value
// or a second text with its size, a8 a kind, type word, mode, index or count.
#include "KivGlueDB.h"

#include "KivAssert.h"
#include "KivGlueBuffers.h"

#include <cmath>
#include <limits>

namespace
{

KivUInt32 CallDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, void* a3_i,
                       void* a4_i, void* a5_i, void* a6_i, void* a7_i, void* a8_i)
{
    KIV_ASSERT_NOT_NULL(processingInfo);
    KIV_ASSERT_NOT_NULL(processingInfo->KivDatabaseSupportFunction);
    return processingInfo->KivDatabaseSupportFunction(processingInfo->connID_i, selector_i, a3_i, a4_i, a5_i,
                                                      a6_i, a7_i, a8_i);
}

// The a3 word: a copy of the caller's handle or index, so that the host never writes into
// the caller's variable, or no word at all.
struct DatabaseSlot
{
    KivUInt32 word;
    bool used;
    void* Get() { return used ? &word : nullptr; }
};
constexpr DatabaseSlot kNoDatabase = {0, false};

DatabaseSlot HandleSlot(const unsigned int& database_i)
{
    return DatabaseSlot{database_i, true};
}

// Only the database slot.
KivUInt32 CallOnDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                         const unsigned int& database_i)
{
    DatabaseSlot database = HandleSlot(database_i);
    return CallDatabase(processingInfo, selector_i, database.Get(), nullptr, nullptr, nullptr, nullptr,
                        nullptr);
}

// An optional database slot, a text in a4/a5 and an optional a8 word.
KivUInt32 CallWithText(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, DatabaseSlot a3_i,
                       const KivString& text_i, void* a8_i = nullptr)
{
    KivGlueInputText text(text_i);
    return CallDatabase(processingInfo, selector_i, a3_i.Get(), text.GetText(), text.GetLengthWord(), nullptr,
                        nullptr, a8_i);
}

// A count or flag word that the host writes into a8; 0 when it fails.
unsigned int GetCount(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, DatabaseSlot a3_i)
{
    KivUInt32 count = 0;
    KivUInt32 result =
        CallDatabase(processingInfo, selector_i, a3_i.Get(), nullptr, nullptr, nullptr, nullptr, &count);
    return result == 0 ? count : 0;
}

// A text answer in the a4/a5 buffer, retried once on 'MBtS'; `a8_io` is an optional word.
KivUInt32 CallForText(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i, DatabaseSlot a3_i,
                      unsigned int capacity_i, KivString& text_io, void* a8_io)
{
    KivGlueOutputBuffer buffer(capacity_i);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallDatabase(processingInfo, selector_i, a3_i.Get(), buffer.GetAddress(),
                                buffer.GetCapacityWord(), nullptr, nullptr, a8_io);
        },
        [&]() { buffer.GrowToRequestedSize(); });
    if (result == 0)
        text_io = buffer.GetText();
    return result;
}

// A name with its type word, for the ODBC type and field listings: both written on success only.
KivUInt32 GetNameAndType(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                         DatabaseSlot a3_i, KivUInt32 typeIn_i, KivString& name_io, unsigned int& type_io)
{
    KivString name;
    KivUInt32 type = typeIn_i;
    KivUInt32 result = CallForText(processingInfo, selector_i, a3_i, 32, name, &type);
    if (result == 0)
    {
        name_io = name;
        type_io = type;
    }
    return result;
}

// A record key for deletion and positioning: text, or a number by address with its size and kind.
KivUInt32 CallWithTextKey(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                          const unsigned int& database_i, const KivString& key_i)
{
    KivUInt32 kind = kKivValueKind_Text;
    return CallWithText(processingInfo, selector_i, HandleSlot(database_i), key_i, &kind);
}

template <typename ValueType>
KivUInt32 CallWithValueKey(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                           const unsigned int& database_i, ValueType key_i, KivUInt32 kind_i)
{
    KivUInt32 size = sizeof(ValueType);
    DatabaseSlot database = HandleSlot(database_i);
    return CallDatabase(processingInfo, selector_i, database.Get(), &key_i, &size, nullptr, nullptr, &kind_i);
}

// A field value: the field name in a4/a5, the value in a6 with its size in a7, its kind in a8.
KivUInt32 TransferValue(_KIVAPI_ModuleProcessingInfo* processingInfo, KivUInt32 selector_i,
                        const unsigned int& database_i, const KivString& fieldName_i, void* value_io,
                        KivUInt32 size_i, KivUInt32 kind_i)
{
    KivGlueInputText fieldName(fieldName_i);
    DatabaseSlot database = HandleSlot(database_i);
    return CallDatabase(processingInfo, selector_i, database.Get(), fieldName.GetText(),
                        fieldName.GetLengthWord(), value_io, &size_i, &kind_i);
}

template <typename ValueType>
KivUInt32 SetValue(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                   const KivString& fieldName_i, ValueType value_i, KivUInt32 kind_i)
{
    return TransferValue(processingInfo, kKivDB_SetFieldValue, database_i, fieldName_i, &value_i,
                         sizeof(ValueType), kind_i);
}

KivUInt32 SetTextValue(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                       const KivString& fieldName_i, const KivString& value_i)
{
    KivGlueInputText value(value_i);
    return TransferValue(processingInfo, kKivDB_SetFieldValue, database_i, fieldName_i, value.GetText(),
                         value_i.GetLength() + 1, kKivValueKind_Text);
}

// The value of a field of the current record, or `neutral_i` when the host fails.
template <typename ValueType>
ValueType GetValue(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                   const KivString& fieldName_i, KivUInt32 kind_i, ValueType neutral_i)
{
    ValueType value = neutral_i;
    KivUInt32 result = TransferValue(processingInfo, kKivDB_GetFieldValue, database_i, fieldName_i, &value,
                                     sizeof(ValueType), kind_i);
    return result == 0 ? value : neutral_i;
}

KivString GetTextValue(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                       const KivString& fieldName_i)
{
    KivGlueInputText fieldName(fieldName_i);
    KivGlueOutputBuffer value(64);
    KivUInt32 kind = kKivValueKind_Text;
    DatabaseSlot database = HandleSlot(database_i);
    KivUInt32 result = KivGlueCallWithRetry(
        [&]()
        {
            return CallDatabase(processingInfo, kKivDB_GetFieldValue, database.Get(), fieldName.GetText(),
                                fieldName.GetLengthWord(), value.GetAddress(), value.GetCapacityWord(),
                                &kind);
        },
        [&]() { value.GrowToRequestedSize(); });
    return result == 0 ? value.GetText() : KivString();
}

// Saturating conversion: a double outside the 32-bit range must not become undefined behaviour.
int DoubleToInteger(double value_i)
{
    if (std::isnan(value_i))
        return 0;
    if (value_i >= (double)std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value_i <= (double)std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return (int)value_i;
}

} // namespace

KivUInt32 KivGlueDBInitialize(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& dataSource_i,
                              const KivString& userName_i, const KivString& password_i)
{
    KivString session(dataSource_i);
    session += ",";
    session += userName_i;
    session += ",";
    session += password_i;
    return CallWithText(processingInfo, kKivDB_Initialize, kNoDatabase, session);
}

KivUInt32 KivGlueDBTerminate(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return CallDatabase(processingInfo, kKivDB_Terminate, nullptr, nullptr, nullptr, nullptr, nullptr,
                        nullptr);
}

unsigned int KivGlueDBGetODBCSupportFlags(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetCount(processingInfo, kKivDB_GetODBCSupportFlags, kNoDatabase);
}

unsigned int KivGlueDBGetODBCCursorFlags(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetCount(processingInfo, kKivDB_GetODBCCursorFlags, kNoDatabase);
}

KivUInt32 KivGlueDBGetODBCFieldTypeInfo(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& index_i, KivString& typeName_io,
                                        unsigned int& type_io)
{
    return GetNameAndType(processingInfo, kKivDB_GetODBCFieldTypeInfo, HandleSlot(index_i), 0, typeName_io,
                          type_io);
}

KivUInt32 KivGlueDBGetODBCFieldTypeInfoByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                               const unsigned int& index_i, KivString& typeName_io,
                                               unsigned int& type_io)
{
    return GetNameAndType(processingInfo, kKivDB_GetODBCFieldTypeByIndex, HandleSlot(index_i), 0, typeName_io,
                          type_io);
}

KivUInt32 KivGlueDBGetODBCFieldTypeInfoByName(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                              const KivString& typeName_i, unsigned int& type_io)
{
    KivUInt32 type = 0;
    KivUInt32 result =
        CallWithText(processingInfo, kKivDB_GetODBCFieldTypeByName, kNoDatabase, typeName_i, &type);
    if (result == 0)
        type_io = type;
    return result;
}

unsigned int KivGlueDBGetODBCFieldTypeCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetCount(processingInfo, kKivDB_GetODBCFieldTypeCount, kNoDatabase);
}

KivString KivGlueDBGetErrorInfo(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& errorCode_i)
{
    KivString message;
    CallForText(processingInfo, kKivDB_GetErrorInfo, HandleSlot(errorCode_i), 128, message, nullptr);
    return message;
}

KivUInt32 KivGlueDBCreateDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i)
{
    return CallWithText(processingInfo, kKivDB_CreateDatabase, kNoDatabase, name_i);
}

KivUInt32 KivGlueDBOpenDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                                const unsigned int& mode_i, unsigned int& database_io,
                                const KivString& uniqueIDFieldName_i)
{
    KivUInt32 database = 0;
    KivUInt32 mode = mode_i;
    KivGlueInputText name(name_i);
    KivGlueInputText uniqueIDFieldName(uniqueIDFieldName_i);
    KivUInt32 result =
        CallDatabase(processingInfo, kKivDB_OpenDatabase, &database, name.GetText(), name.GetLengthWord(),
                     uniqueIDFieldName.GetText(), uniqueIDFieldName.GetLengthWord(), &mode);
    if (result == 0)
        database_io = database;
    return result;
}

KivUInt32 KivGlueDBCloseDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_CloseDatabase, database_i);
}

KivString KivGlueDBGetDatabaseName(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i)
{
    KivString name;
    CallForText(processingInfo, kKivDB_GetDatabaseName, HandleSlot(database_i), 32, name, nullptr);
    return name;
}

KivUInt32 KivGlueDBGetDatabaseNameByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                          const unsigned int& index_i, KivString& name_io)
{
    return CallForText(processingInfo, kKivDB_GetDatabaseNameByIndex, HandleSlot(index_i), 32, name_io,
                       nullptr);
}

KivUInt32 KivGlueDBDeleteDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i)
{
    return CallWithText(processingInfo, kKivDB_DeleteDatabase, kNoDatabase, name_i);
}

unsigned int KivGlueDBGetDatabaseCount(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return GetCount(processingInfo, kKivDB_GetDatabaseCount, kNoDatabase);
}

KivUInt32 KivGlueDBAddField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                            const KivString& name_i, const unsigned int& typeWord_i)
{
    KivUInt32 typeWord = typeWord_i;
    return CallWithText(processingInfo, kKivDB_AddField, HandleSlot(database_i), name_i, &typeWord);
}

KivUInt32 KivGlueDBAddBooleanField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& name_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i, kKivGlueDBFieldType_Boolean);
}

KivUInt32 KivGlueDBAddIntegerField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& name_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i, kKivGlueDBFieldType_Integer);
}

KivUInt32 KivGlueDBAddUIntegerField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i, const KivString& name_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i, kKivGlueDBFieldType_UInteger);
}

KivUInt32 KivGlueDBAddFloatField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                 const KivString& name_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i, kKivGlueDBFieldType_Float);
}

KivUInt32 KivGlueDBAddTextField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& name_i, const unsigned int& length_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i,
                             (length_i & kKivFieldLengthMask) | kKivGlueDBFieldType_Text);
}

KivUInt32 KivGlueDBAddLongTextField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i, const KivString& name_i)
{
    return KivGlueDBAddField(processingInfo, database_i, name_i, kKivGlueDBFieldType_LongText);
}

KivUInt32 KivGlueDBDeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                               const KivString& name_i)
{
    return CallWithText(processingInfo, kKivDB_DeleteField, HandleSlot(database_i), name_i);
}

KivUInt32 KivGlueDBGetFieldInfo(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& name_i, unsigned int& typeWord_io)
{
    KivUInt32 typeWord = 0;
    KivUInt32 result =
        CallWithText(processingInfo, kKivDB_GetFieldInfoByName, HandleSlot(database_i), name_i, &typeWord);
    typeWord_io = result == 0 ? typeWord : 0;
    return result;
}

KivUInt32 KivGlueDBGetFieldInfo(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& index_i, KivString& name_io, unsigned int& typeWord_io)
{
    return GetNameAndType(processingInfo, kKivDB_GetFieldInfoByIndex, HandleSlot(database_i), index_i,
                          name_io, typeWord_io);
}

unsigned int KivGlueDBGetFieldCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i)
{
    return GetCount(processingInfo, kKivDB_GetFieldCount, HandleSlot(database_i));
}

KivUInt32 KivGlueDBSetLocking(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                              const unsigned int& lockMode_i)
{
    KivUInt32 lockMode = lockMode_i;
    DatabaseSlot database = HandleSlot(database_i);
    return CallDatabase(processingInfo, kKivDB_SetLocking, database.Get(), nullptr, nullptr, nullptr, nullptr,
                        &lockMode);
}

KivUInt32 KivGlueDBCreateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_CreateRecord, database_i);
}

KivUInt32 KivGlueDBAddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_AddRecord, database_i);
}

KivUInt32 KivGlueDBUpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_UpdateRecord, database_i);
}

KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& key_i)
{
    return CallWithTextKey(processingInfo, kKivDB_DeleteRecord, database_i, key_i);
}

KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& key_i)
{
    return CallWithValueKey<KivUInt32>(processingInfo, kKivDB_DeleteRecord, database_i, key_i,
                                       kKivValueKind_UInt32);
}

KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const int& key_i)
{
    return CallWithValueKey<KivSInt32>(processingInfo, kKivDB_DeleteRecord, database_i, key_i,
                                       kKivValueKind_Int32);
}

KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const double& key_i)
{
    return CallWithValueKey<double>(processingInfo, kKivDB_DeleteRecord, database_i, key_i,
                                    kKivValueKind_Double);
}

KivUInt32 KivGlueDBDeleteAllRecords(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_DeleteAllRecords, database_i);
}

unsigned int KivGlueDBGetRecordCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i)
{
    return GetCount(processingInfo, kKivDB_GetRecordCount, HandleSlot(database_i));
}

KivUInt32 KivGlueDBSetBooleanFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const bool& value_i)
{
    return SetValue<KivUInt32>(processingInfo, database_i, fieldName_i, value_i ? 1 : 0,
                               kKivValueKind_UInt32);
}

KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const int& value_i)
{
    return SetValue<KivSInt32>(processingInfo, database_i, fieldName_i, value_i, kKivValueKind_Int32);
}

KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const double& value_i)
{
    return KivGlueDBSetIntegerFieldValue(processingInfo, database_i, fieldName_i, DoubleToInteger(value_i));
}

KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const unsigned int& value_i)
{
    return KivGlueDBSetIntegerFieldValue(processingInfo, database_i, fieldName_i, (int)value_i);
}

KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const KivNumber& value_i)
{
    return KivGlueDBSetIntegerFieldValue(processingInfo, database_i, fieldName_i, (int)value_i);
}

KivUInt32 KivGlueDBSetUIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i,
                                         const unsigned int& value_i)
{
    return SetValue<KivUInt32>(processingInfo, database_i, fieldName_i, value_i, kKivValueKind_UInt32);
}

KivUInt32 KivGlueDBSetFloatFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const unsigned int& database_i, const KivString& fieldName_i,
                                      const double& value_i)
{
    return SetValue<double>(processingInfo, database_i, fieldName_i, value_i, kKivValueKind_Double);
}

KivUInt32 KivGlueDBSetNumberFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                       const unsigned int& database_i, const KivString& fieldName_i,
                                       const KivNumber& value_i)
{
    return SetTextValue(processingInfo, database_i, fieldName_i, value_i.GetStringRepresentation());
}

KivUInt32 KivGlueDBSetTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i, const KivString& fieldName_i,
                                     const KivString& value_i)
{
    return SetTextValue(processingInfo, database_i, fieldName_i, value_i);
}

KivUInt32 KivGlueDBSetLongTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i,
                                         const KivString& value_i)
{
    return SetTextValue(processingInfo, database_i, fieldName_i, value_i);
}

bool KivGlueDBGetBooleanFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetValue<KivUInt32>(processingInfo, database_i, fieldName_i, kKivValueKind_UInt32, 0) != 0;
}

int KivGlueDBGetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetValue<KivSInt32>(processingInfo, database_i, fieldName_i, kKivValueKind_Int32, 0);
}

unsigned int KivGlueDBGetUIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                            const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetValue<KivUInt32>(processingInfo, database_i, fieldName_i, kKivValueKind_UInt32, 0);
}

double KivGlueDBGetFloatFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetValue<double>(processingInfo, database_i, fieldName_i, kKivValueKind_Double, 0.0);
}

KivNumber KivGlueDBGetNumberFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                       const unsigned int& database_i, const KivString& fieldName_i)
{
    double value = 0.0;
    KivUInt32 result = TransferValue(processingInfo, kKivDB_GetFieldValue, database_i, fieldName_i, &value,
                                     sizeof value, kKivValueKind_Double);
    return result == 0 ? KivNumber(value) : KivNumber("");
}

KivString KivGlueDBGetTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetTextValue(processingInfo, database_i, fieldName_i);
}

KivString KivGlueDBGetLongTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i)
{
    return GetTextValue(processingInfo, database_i, fieldName_i);
}

KivUInt32 KivGlueDBClearSearchResults(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_ClearSearchResults, database_i);
}

KivUInt32 KivGlueDBExecuteSearch(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                 const KivString& search_i)
{
    return CallWithText(processingInfo, kKivDB_ExecuteSearch, HandleSlot(database_i), search_i);
}

unsigned int KivGlueDBGetResultCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i)
{
    return GetCount(processingInfo, kKivDB_GetResultCount, HandleSlot(database_i));
}

KivUInt32 KivGlueDBMoveFirstRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_MoveFirstRecord, database_i);
}

KivUInt32 KivGlueDBMoveLastRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_MoveLastRecord, database_i);
}

KivUInt32 KivGlueDBMovePrevRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_MovePrevRecord, database_i);
}

KivUInt32 KivGlueDBMoveNextRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i)
{
    return CallOnDatabase(processingInfo, kKivDB_MoveNextRecord, database_i);
}

KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& key_i)
{
    return CallWithTextKey(processingInfo, kKivDB_MoveToRecord, database_i, key_i);
}

KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& key_i)
{
    return CallWithValueKey<KivUInt32>(processingInfo, kKivDB_MoveToRecord, database_i, key_i,
                                       kKivValueKind_UInt32);
}

KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const int& key_i)
{
    return CallWithValueKey<KivSInt32>(processingInfo, kKivDB_MoveToRecord, database_i, key_i,
                                       kKivValueKind_Int32);
}

KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const double& key_i)
{
    return CallWithValueKey<double>(processingInfo, kKivDB_MoveToRecord, database_i, key_i,
                                    kKivValueKind_Double);
}

KivUInt32 KivGlueDBJump(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                        const unsigned int& position_i)
{
    KivUInt32 position = position_i;
    DatabaseSlot database = HandleSlot(database_i);
    return CallDatabase(processingInfo, kKivDB_Jump, database.Get(), nullptr, nullptr, nullptr, nullptr,
                        &position);
}

KivUInt32 KivGlueDBExport(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                          const KivString& path_i, unsigned int& count_io, const KivString& secondText_i)
{
    KivUInt32 count = 0;
    KivGlueInputText path(path_i);
    KivGlueInputText secondText(secondText_i);
    DatabaseSlot database = HandleSlot(database_i);
    KivUInt32 result =
        CallDatabase(processingInfo, kKivDB_Export, database.Get(), path.GetText(), path.GetLengthWord(),
                     secondText.GetText(), secondText.GetLengthWord(), &count);
    count_io = count;
    return result;
}

KivUInt32 KivGlueDBImport(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                          const KivString& path_i, unsigned int& count_io)
{
    KivUInt32 count = 0;
    KivGlueInputText path(path_i);
    DatabaseSlot database = HandleSlot(database_i);
    KivUInt32 result = CallDatabase(processingInfo, kKivDB_Import, database.Get(), path.GetText(),
                                    path.GetLengthWord(), nullptr, nullptr, &count);
    count_io = count;
    return result;
}
