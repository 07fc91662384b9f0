// The binary interface is fixed: every code must spell its four characters and the per-call
// record must keep its layout, or modules and hosts built apart stop understanding each other.
// Checked at compile time; the test cases below only make the checks visible in the test list.
#include "KivModuleInterface.h"

#include <gtest/gtest.h>

#include <cstddef>

#define KIV_CHECK_CODE(constant, characters)                                                                 \
    static_assert((constant) == KIV_FOURCC(characters[0], characters[1], characters[2], characters[3]),      \
                  characters)

KIV_CHECK_CODE(kKivServer_GetModulePath, "MMdP");
KIV_CHECK_CODE(kKivServer_GetModuleParentFolderPath, "MMPP");
KIV_CHECK_CODE(kKivServer_WriteToServer, "MWtS");
KIV_CHECK_CODE(kKivServer_WriteToLog, "MWtL");
KIV_CHECK_CODE(kKivServer_SetErrorInformation, "MSEI");
KIV_CHECK_CODE(kKivServer_NormalizeString, "MNmS");
KIV_CHECK_CODE(kKivServer_RegisterModuleName, "MRMN");
KIV_CHECK_CODE(kKivServer_RegisterModuleVersion, "MRMV");
KIV_CHECK_CODE(kKivServer_RegisterModuleAuthor, "MRMA");
KIV_CHECK_CODE(kKivServer_RegisterModuleDeveloperID, "MRMD");
KIV_CHECK_CODE(kKivServer_RegisterVersionTrackerURL, "MRVt");
KIV_CHECK_CODE(kKivServer_RegisterForTag, "MRfT");
KIV_CHECK_CODE(kKivServer_UnregisterForTag, "MUfT");
KIV_CHECK_CODE(kKivServer_RegisterForAction, "MRfA");
KIV_CHECK_CODE(kKivServer_UnregisterForAction, "MUfA");
KIV_CHECK_CODE(kKivServer_GetPageID, "KIVD");
KIV_CHECK_CODE(kKivServer_GetTag, "MTag");
KIV_CHECK_CODE(kKivServer_GetTagParameter, "MTPm");
KIV_CHECK_CODE(kKivServer_GetTagParameterByIndex, "MTPI");
KIV_CHECK_CODE(kKivServer_GetTagParameterCount, "MTPC");
KIV_CHECK_CODE(kKivServer_GetTagBody, "MTBd");
KIV_CHECK_CODE(kKivServer_GetActionName, "MAct");
KIV_CHECK_CODE(kKivServer_GetPathArgument, "MPAr");
KIV_CHECK_CODE(kKivServer_GetPathArgumentByIndex, "MPAI");
KIV_CHECK_CODE(kKivServer_GetPathArgumentCount, "MPAC");
KIV_CHECK_CODE(kKivServer_GetPostArgument, "MFAr");
KIV_CHECK_CODE(kKivServer_GetPostArgumentByIndex, "MFAI");
KIV_CHECK_CODE(kKivServer_GetPostArgumentCount, "MFAC");
KIV_CHECK_CODE(kKivServer_GetCGIEnvironmentVariable, "MCGI");
KIV_CHECK_CODE(kKivServer_SetPageVariable, "MSPV");
KIV_CHECK_CODE(kKivServer_GetPageVariable, "MGPV");
KIV_CHECK_CODE(kKivServer_GetPageVariableByIndex, "MGPI");
KIV_CHECK_CODE(kKivServer_GetPageVariableCount, "MGPC");
KIV_CHECK_CODE(kKivServer_GetCookie, "MGCk");
KIV_CHECK_CODE(kKivServer_SetHTTPResponseStatus, "MHRS");
KIV_CHECK_CODE(kKivServer_SetHTTPResponseHeader, "MSRH");
KIV_CHECK_CODE(kKivServer_SetHTTPResponseURI, "MHRU");
KIV_CHECK_CODE(kKivServer_GetAdminDomainName, "MADN");
KIV_CHECK_CODE(kKivServer_GetAdminRegionPath, "MARP");
KIV_CHECK_CODE(kKivServer_GetVirtualHost, "MVrH");
KIV_CHECK_CODE(kKivServer_GetVirtualRootPath, "MVrP");
KIV_CHECK_CODE(kKivServer_GetURLPath, "MUPa");
KIV_CHECK_CODE(kKivServer_GetURLParentFolderPath, "MUPF");
KIV_CHECK_CODE(kKivServer_GetRegionDataFolderPath, "MRDF");
KIV_CHECK_CODE(kKivServer_MapURLToPhysicalPath, "MUPh");
KIV_CHECK_CODE(kKivServer_VerifyRegionContainsFile, "MRCP");
KIV_CHECK_CODE(kKivServer_GetDefaultLanguage, "MGDL");
KIV_CHECK_CODE(kKivServer_ValidateServerLogin, "MVSL");
KIV_CHECK_CODE(kKivServer_ValidateDomainLogin, "MVDL");
KIV_CHECK_CODE(kKivServer_SetPreference, "MSPr");
KIV_CHECK_CODE(kKivServer_GetPreference, "MGPr");
KIV_CHECK_CODE(kKivServer_RemovePreference, "MRPr");
KIV_CHECK_CODE(kKivLog_Note, "MLgN");
KIV_CHECK_CODE(kKivLog_Warning, "MLgW");
KIV_CHECK_CODE(kKivLog_Error, "MLgE");
KIV_CHECK_CODE(kKivLog_Failure, "MLgF");
KIV_CHECK_CODE(kKivDB_Initialize, "MIni");
KIV_CHECK_CODE(kKivDB_Terminate, "MTrm");
KIV_CHECK_CODE(kKivDB_GetODBCSupportFlags, "MOSF");
KIV_CHECK_CODE(kKivDB_GetODBCCursorFlags, "MOCF");
KIV_CHECK_CODE(kKivDB_GetODBCFieldTypeInfo, "MOFT");
KIV_CHECK_CODE(kKivDB_GetODBCFieldTypeByIndex, "MOFI");
KIV_CHECK_CODE(kKivDB_GetODBCFieldTypeByName, "MDFN");
KIV_CHECK_CODE(kKivDB_GetODBCFieldTypeCount, "MOFC");
KIV_CHECK_CODE(kKivDB_GetErrorInfo, "MDEI");
KIV_CHECK_CODE(kKivDB_CreateDatabase, "MDCr");
KIV_CHECK_CODE(kKivDB_OpenDatabase, "MDOp");
KIV_CHECK_CODE(kKivDB_CloseDatabase, "MDCl");
KIV_CHECK_CODE(kKivDB_GetDatabaseName, "MDNm");
KIV_CHECK_CODE(kKivDB_GetDatabaseNameByIndex, "MDNI");
KIV_CHECK_CODE(kKivDB_DeleteDatabase, "MDDl");
KIV_CHECK_CODE(kKivDB_GetDatabaseCount, "MDCt");
KIV_CHECK_CODE(kKivDB_AddField, "MFAd");
KIV_CHECK_CODE(kKivDB_DeleteField, "MFDl");
KIV_CHECK_CODE(kKivDB_GetFieldInfoByName, "MFFI");
KIV_CHECK_CODE(kKivDB_GetFieldInfoByIndex, "MFII");
KIV_CHECK_CODE(kKivDB_GetFieldCount, "MFCt");
KIV_CHECK_CODE(kKivDB_SetLocking, "MLck");
KIV_CHECK_CODE(kKivDB_CreateRecord, "MRCr");
KIV_CHECK_CODE(kKivDB_AddRecord, "MRAd");
KIV_CHECK_CODE(kKivDB_UpdateRecord, "MRUp");
KIV_CHECK_CODE(kKivDB_DeleteRecord, "MRDl");
KIV_CHECK_CODE(kKivDB_DeleteAllRecords, "MRDA");
KIV_CHECK_CODE(kKivDB_SetFieldValue, "MFSV");
KIV_CHECK_CODE(kKivDB_GetFieldValue, "MFGV");
KIV_CHECK_CODE(kKivDB_GetRecordCount, "MRCt");
KIV_CHECK_CODE(kKivDB_ClearSearchResults, "MSCl");
KIV_CHECK_CODE(kKivDB_ExecuteSearch, "MSEc");
KIV_CHECK_CODE(kKivDB_GetResultCount, "MSRC");
KIV_CHECK_CODE(kKivDB_MoveFirstRecord, "MMFR");
KIV_CHECK_CODE(kKivDB_MoveLastRecord, "MMLR");
KIV_CHECK_CODE(kKivDB_MovePrevRecord, "MMPR");
KIV_CHECK_CODE(kKivDB_MoveNextRecord, "MMNR");
KIV_CHECK_CODE(kKivDB_MoveToRecord, "MMTR");
KIV_CHECK_CODE(kKivDB_Jump, "MMJp");
KIV_CHECK_CODE(kKivDB_Export, "MExp");
KIV_CHECK_CODE(kKivDB_Import, "MImp");
KIV_CHECK_CODE(kKivRequest_Initialize, "MIni");
KIV_CHECK_CODE(kKivRequest_ProcessTag, "MTag");
KIV_CHECK_CODE(kKivRequest_GetPreferences, "MGPr");
KIV_CHECK_CODE(kKivRequest_SetPreferences, "MSPr");
KIV_CHECK_CODE(kKivRequest_Terminate, "MTrm");
KIV_CHECK_CODE(kKivRequest_PerformAction, "MAct");
KIV_CHECK_CODE(kKivResult_BufferTooSmall, "MBtS");
KIV_CHECK_CODE(kKivResult_UnknownFunction, "MUnF");
KIV_CHECK_CODE(kKivResult_UnknownError, "MUnk");
KIV_CHECK_CODE(kKivResult_BeginningOfFile, "MBOF");
KIV_CHECK_CODE(kKivResult_EndOfFile, "MEOF");

static_assert(KIV_FOURCC('M', 'T', 'a', 'g') == 0x4D546167u, "most significant byte first");
static_assert(kKivValueKind_Text == 0x20000000 && kKivValueKind_UInt32 == 0x30000000 &&
                  kKivValueKind_Int32 == 0x40000000 && kKivValueKind_Double == 0x50000000,
              "value kinds");
static_assert(kKivFieldFlag_AutoUnique == 1 << 24 && kKivFieldFlag_Indexed == 1 << 25 &&
                  kKivFieldFlag_Unique == 1 << 26 && kKivFieldFlag_CaseSensitive == 1 << 27,
              "field flags");
static_assert(kKivTagFlag_RawBody == 0x02 && kKivTagFlag_Container == 0x10 && kKivTagFlag_Empty == 0x20,
              "tag flags");

TEST(ModuleInterface, CodesSpellTheirCharacters)
{
    // A text field of length 50 that is indexed, as the database services see it.
    EXPECT_EQ((kKivFieldType_Text << kKivFieldTypeShift) | 50 | kKivFieldFlag_Indexed, 0x02060032);
    EXPECT_EQ(kKivRequest_ProcessTag, 0x4D546167u);
}

TEST(ModuleInterface, RecordLayoutMatchesThePlatformWidth)
{
    const size_t pointer = sizeof(void*);
    EXPECT_EQ(offsetof(_KIVAPI_ModuleProcessingInfo, hostReserved1), pointer);
    EXPECT_EQ(offsetof(_KIVAPI_ModuleProcessingInfo, connID_i), 2 * pointer);
    EXPECT_EQ(offsetof(_KIVAPI_ModuleProcessingInfo, requestCode), 3 * pointer);
    EXPECT_EQ(offsetof(_KIVAPI_ModuleProcessingInfo, KivServerSupportFunction), 4 * pointer);
    EXPECT_EQ(offsetof(_KIVAPI_ModuleProcessingInfo, KivDatabaseSupportFunction), 5 * pointer);
}
