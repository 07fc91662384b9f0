/* The binary interface between a tag module and its host server: the per-call record,
 * the callback signatures, the four-character request, result and selector codes, the
 * value kinds and the field type word. Hosts and module authors include only this file.
 * Plain C so that modules in either language can use it. */
#ifndef KIV_MODULE_INTERFACE_H
#define KIV_MODULE_INTERFACE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A four-character code: the four ASCII bytes, most significant first ('MTag' = 0x4D546167). */
#define KIV_FOURCC(a, b, c, d)                                                                             \
    ((uint32_t)(((uint32_t)(uint8_t)(a) << 24) | ((uint32_t)(uint8_t)(b) << 16) |                          \
                ((uint32_t)(uint8_t)(c) << 8) | (uint32_t)(uint8_t)(d)))

/* result = callback(connID, selector, a3, a4, a5, a6, a7); 0 is success. */
typedef uint32_t (*KivServerSupportProc)(void* connID, uint32_t selector, void* a3, void* a4, void* a5,
                                         void* a6, void* a7);
/* The database callback takes one argument more than the server callback. */
typedef uint32_t (*KivDatabaseSupportProc)(void* connID, uint32_t selector, void* a3, void* a4, void* a5,
                                           void* a6, void* a7, void* a8);

/* The per-call record. The host owns it; a module reads it during one call only. */
typedef struct _KIVAPI_ModuleProcessingInfo
{
    void* hostReserved0;   /* not read by modules */
    int32_t hostReserved1; /* not read by modules */
    void* connID_i;        /* passed unchanged as the first argument of every callback */
    uint32_t requestCode;  /* what the host asks for: kKivRequest_... */
    KivServerSupportProc KivServerSupportFunction;
    KivDatabaseSupportProc KivDatabaseSupportFunction;
} _KIVAPI_ModuleProcessingInfo;

#if defined(__cplusplus) && UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, hostReserved0) == 0, "record layout");
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, hostReserved1) == 8, "record layout");
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, connID_i) == 16, "record layout");
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, requestCode) == 24, "record layout");
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, KivServerSupportFunction) == 32, "record layout");
static_assert(offsetof(_KIVAPI_ModuleProcessingInfo, KivDatabaseSupportFunction) == 40, "record layout");
static_assert(sizeof(_KIVAPI_ModuleProcessingInfo) == 48, "record layout");
#endif

/* The module's one exported entry. */
typedef uint32_t (*KivProcessRequestProc)(_KIVAPI_ModuleProcessingInfo* processingInfo);
#define KIV_MODULE_ENTRY_NAME "ProcessKivRequest"

/* Request codes (host to module, in requestCode). */
enum
{
    kKivRequest_Initialize = 0x4D496E69,     /* 'MIni' */
    kKivRequest_ProcessTag = 0x4D546167,     /* 'MTag' */
    kKivRequest_GetPreferences = 0x4D475072, /* 'MGPr' */
    kKivRequest_SetPreferences = 0x4D535072, /* 'MSPr' */
    kKivRequest_Terminate = 0x4D54726D,      /* 'MTrm' */
    kKivRequest_PerformAction = 0x4D416374   /* 'MAct' */
};

/* Result codes shared by hosts and modules: the one place they are declared. A code a host
 * answers and a code a module tests for are the same symbol. docs/database-service.md gives
 * the situations in which the host's database service answers each one. */
enum
{
    kKivResult_Success = 0,
    /* An output buffer was too small; its capacity word now holds the size needed. */
    kKivResult_BufferTooSmall = 0x4D427453, /* 'MBtS' */
    kKivResult_UnknownFunction = 0x4D556E46, /* 'MUnF' the selector or request is unknown */
    kKivResult_UnknownError = 0x4D556E6B,    /* 'MUnk' */
    /* Cursor moves: no record before the first or after the last result ("no record", not a
     * failure). 'MEOF' from an export: every result was written. */
    kKivResult_BeginningOfFile = 0x4D424F46, /* 'MBOF' */
    kKivResult_EndOfFile = 0x4D454F46,       /* 'MEOF' */
    /* Not found: a field (the database's error text is its name), a parameter, an argument,
     * a page variable, a preference, a post argument a form should have sent. */
    kKivResult_NotFound = 0x4D4E7446, /* 'MNtF' */
    /* A search text that is not well formed; the error text says what and where. */
    kKivResult_ImproperFormat = 0x4D494674, /* 'MIFt' */
    /* A search needs an index the field lacks; the error text is the field's name. */
    kKivResult_NotIndexed = 0x4D496478, /* 'MIdx' */
    /* Not unique: the field already exists, or another record holds the value of a unique
     * field. */
    kKivResult_NotUnique = 0x4D556E71, /* 'MUnq' */
    /* Refused: a path outside what the page may reach, a header the server keeps. */
    kKivResult_NotAuthorized = 0x4D4E4175, /* 'MNAu' */
    /* A malformed or empty value (a file location, a status text). */
    kKivResult_InvalidValue = 0x4D496E76, /* 'MInv' */
    /* The database tags' own results. */
    kKivResult_MissingParameter = 0x4D4D5250,      /* 'MMRP' a required tag parameter is missing */
    kKivResult_OpenFailed = 0x4D4F7046,            /* 'MOpF' create/delete/export target refused */
    kKivResult_InvalidRequest = 0x4D495271,        /* 'MIRq' the named database does not exist */
    kKivResult_InvalidParameterValue = 0x4D495056  /* 'MIPV' a tag parameter's value is unusable */
};

/* Open modes of the database service's 'MDOp' (a8). Exclusive keeps every other open out;
 * fields can be added or deleted only then. */
enum
{
    kKivOpenMode_Shared = 2,
    kKivOpenMode_Exclusive = 3
};

/* The field that identifies a record when a tag names none: the unique ID every database of
 * the host's own store has, and the name hosts look for first in an ODBC table. */
#define KIV_DEFAULT_UNIQUE_ID_FIELD "KIVIDFIELD"

/* Server callback selectors (module to host). Some share their characters with request
 * codes; they are a separate name space. */
enum
{
    kKivServer_GetModulePath = 0x4D4D6450,             /* 'MMdP' Out */
    kKivServer_GetModuleParentFolderPath = 0x4D4D5050, /* 'MMPP' Out */
    kKivServer_WriteToServer = 0x4D577453,             /* 'MWtS' In, length without the zero */
    kKivServer_WriteToLog = 0x4D57744C,                /* 'MWtL' In, a7 = address of log kind */
    kKivServer_SetErrorInformation = 0x4D534549,       /* 'MSEI' TwoIn */
    kKivServer_NormalizeString = 0x4D4E6D53,           /* 'MNmS' InOut */
    kKivServer_RegisterModuleName = 0x4D524D4E,        /* 'MRMN' In */
    kKivServer_RegisterModuleVersion = 0x4D524D56,     /* 'MRMV' In */
    kKivServer_RegisterModuleAuthor = 0x4D524D41,      /* 'MRMA' In */
    kKivServer_RegisterModuleDeveloperID = 0x4D524D44, /* 'MRMD' In */
    kKivServer_RegisterVersionTrackerURL = 0x4D525674, /* 'MRVt' In */
    kKivServer_RegisterForTag = 0x4D526654,            /* 'MRfT' In, a7 = address of flags */
    kKivServer_UnregisterForTag = 0x4D556654,          /* 'MUfT' In */
    kKivServer_RegisterForAction = 0x4D526641,         /* 'MRfA' InOut */
    kKivServer_UnregisterForAction = 0x4D556641,       /* 'MUfA' In */
    kKivServer_GetPageID = 0x4B495644,                 /* 'KIVD' Scalar */
    kKivServer_GetTag = 0x4D546167,                    /* 'MTag' Out */
    kKivServer_GetTagParameter = 0x4D54506D,           /* 'MTPm' NameOut, a7 = address of index */
    kKivServer_GetTagParameterByIndex = 0x4D545049,    /* 'MTPI' PairOut */
    kKivServer_GetTagParameterCount = 0x4D545043,      /* 'MTPC' Scalar */
    kKivServer_GetTagBody = 0x4D544264,                /* 'MTBd' Out */
    kKivServer_GetActionName = 0x4D416374,             /* 'MAct' Out */
    kKivServer_GetPathArgument = 0x4D504172,           /* 'MPAr' NameOut */
    kKivServer_GetPathArgumentByIndex = 0x4D504149,    /* 'MPAI' PairOut */
    kKivServer_GetPathArgumentCount = 0x4D504143,      /* 'MPAC' Scalar */
    kKivServer_GetPostArgument = 0x4D464172,           /* 'MFAr' NameOut */
    kKivServer_GetPostArgumentByIndex = 0x4D464149,    /* 'MFAI' PairOut */
    kKivServer_GetPostArgumentCount = 0x4D464143,      /* 'MFAC' Scalar */
    kKivServer_GetCGIEnvironmentVariable = 0x4D434749, /* 'MCGI' NameOut, a7 null */
    kKivServer_SetPageVariable = 0x4D535056,           /* 'MSPV' TwoIn */
    kKivServer_GetPageVariable = 0x4D475056,           /* 'MGPV' NameOut, a7 null */
    kKivServer_GetPageVariableByIndex = 0x4D475049,    /* 'MGPI' PairOut */
    kKivServer_GetPageVariableCount = 0x4D475043,      /* 'MGPC' Scalar */
    kKivServer_GetCookie = 0x4D47436B,                 /* 'MGCk' NameOut, a7 null */
    kKivServer_SetHTTPResponseStatus = 0x4D485253,     /* 'MHRS' TwoIn (a4 points to 16) */
    kKivServer_SetHTTPResponseHeader = 0x4D535248,     /* 'MSRH' TwoIn */
    kKivServer_SetHTTPResponseURI = 0x4D485255,        /* 'MHRU' In */
    kKivServer_GetAdminDomainName = 0x4D41444E,        /* 'MADN' Out */
    kKivServer_GetAdminRegionPath = 0x4D415250,        /* 'MARP' Out */
    kKivServer_GetVirtualHost = 0x4D567248,            /* 'MVrH' Out */
    kKivServer_GetVirtualRootPath = 0x4D567250,        /* 'MVrP' Out */
    kKivServer_GetURLPath = 0x4D555061,                /* 'MUPa' Out */
    kKivServer_GetURLParentFolderPath = 0x4D555046,    /* 'MUPF' Out */
    kKivServer_GetRegionDataFolderPath = 0x4D524446,   /* 'MRDF' InOut */
    kKivServer_MapURLToPhysicalPath = 0x4D555068,      /* 'MUPh' InOut */
    kKivServer_VerifyRegionContainsFile = 0x4D524350,  /* 'MRCP' InOut */
    kKivServer_GetDefaultLanguage = 0x4D47444C,        /* 'MGDL' Scalar */
    kKivServer_ValidateServerLogin = 0x4D56534C,       /* 'MVSL' TwoIn */
    kKivServer_ValidateDomainLogin = 0x4D56444C,       /* 'MVDL' TwoIn */
    kKivServer_SetPreference = 0x4D535072,             /* 'MSPr' TwoIn */
    kKivServer_GetPreference = 0x4D475072,             /* 'MGPr' NameOut, a7 null */
    kKivServer_RemovePreference = 0x4D525072           /* 'MRPr' In */
};

/* Log kinds, passed by address in a7 of 'MWtL'. */
enum
{
    kKivLog_Note = 0x4D4C674E,    /* 'MLgN' */
    kKivLog_Warning = 0x4D4C6757, /* 'MLgW' */
    kKivLog_Error = 0x4D4C6745,   /* 'MLgE' */
    kKivLog_Failure = 0x4D4C6746  /* 'MLgF' */
};

/* Tag registration flags. The module passes them through; the host gives them meaning:
 *   0x02  the tag's body goes to the module unprocessed (the module reads it with 'MTBd');
 *   0x10  the tag is a container: everything up to its end tag belongs to it;
 *   0x20  the tag has no body and no end tag. */
enum
{
    kKivTagFlag_RawBody = 0x02,
    kKivTagFlag_Container = 0x10,
    kKivTagFlag_Empty = 0x20
};

/* Database callback selectors. Slots: a3 handle (or index) address, a4 text or output
 * buffer, a5 its length + 1 or capacity address, a6 value buffer or second text, a7 its
 * size or length + 1 address, a8 address of a kind, type word, mode, index or count. */
enum
{
    kKivDB_Initialize = 0x4D496E69,             /* 'MIni' */
    kKivDB_Terminate = 0x4D54726D,              /* 'MTrm' */
    kKivDB_GetODBCSupportFlags = 0x4D4F5346,    /* 'MOSF' */
    kKivDB_GetODBCCursorFlags = 0x4D4F4346,     /* 'MOCF' */
    kKivDB_GetODBCFieldTypeInfo = 0x4D4F4654,   /* 'MOFT' */
    kKivDB_GetODBCFieldTypeByIndex = 0x4D4F4649, /* 'MOFI' */
    kKivDB_GetODBCFieldTypeByName = 0x4D44464E, /* 'MDFN' */
    kKivDB_GetODBCFieldTypeCount = 0x4D4F4643,  /* 'MOFC' */
    kKivDB_GetErrorInfo = 0x4D444549,           /* 'MDEI' */
    kKivDB_CreateDatabase = 0x4D444372,         /* 'MDCr' */
    kKivDB_OpenDatabase = 0x4D444F70,           /* 'MDOp' */
    kKivDB_CloseDatabase = 0x4D44436C,          /* 'MDCl' */
    kKivDB_GetDatabaseName = 0x4D444E6D,        /* 'MDNm' */
    kKivDB_GetDatabaseNameByIndex = 0x4D444E49, /* 'MDNI' */
    kKivDB_DeleteDatabase = 0x4D44446C,         /* 'MDDl' */
    kKivDB_GetDatabaseCount = 0x4D444374,       /* 'MDCt' */
    kKivDB_AddField = 0x4D464164,               /* 'MFAd' */
    kKivDB_DeleteField = 0x4D46446C,            /* 'MFDl' */
    kKivDB_GetFieldInfoByName = 0x4D464649,     /* 'MFFI' */
    kKivDB_GetFieldInfoByIndex = 0x4D464949,    /* 'MFII' */
    kKivDB_GetFieldCount = 0x4D464374,          /* 'MFCt' */
    kKivDB_SetLocking = 0x4D4C636B,             /* 'MLck' */
    kKivDB_CreateRecord = 0x4D524372,           /* 'MRCr' */
    kKivDB_AddRecord = 0x4D524164,              /* 'MRAd' */
    kKivDB_UpdateRecord = 0x4D525570,           /* 'MRUp' */
    kKivDB_DeleteRecord = 0x4D52446C,           /* 'MRDl' */
    kKivDB_DeleteAllRecords = 0x4D524441,       /* 'MRDA' */
    kKivDB_SetFieldValue = 0x4D465356,          /* 'MFSV' */
    kKivDB_GetFieldValue = 0x4D464756,          /* 'MFGV' */
    kKivDB_GetRecordCount = 0x4D524374,         /* 'MRCt' */
    kKivDB_ClearSearchResults = 0x4D53436C,     /* 'MSCl' */
    kKivDB_ExecuteSearch = 0x4D534563,          /* 'MSEc' */
    kKivDB_GetResultCount = 0x4D535243,         /* 'MSRC' */
    kKivDB_MoveFirstRecord = 0x4D4D4652,        /* 'MMFR' */
    kKivDB_MoveLastRecord = 0x4D4D4C52,         /* 'MMLR' */
    kKivDB_MovePrevRecord = 0x4D4D5052,         /* 'MMPR' */
    kKivDB_MoveNextRecord = 0x4D4D4E52,         /* 'MMNR' */
    kKivDB_MoveToRecord = 0x4D4D5452,           /* 'MMTR' */
    kKivDB_Jump = 0x4D4D4A70,                   /* 'MMJp' */
    kKivDB_Export = 0x4D457870,                 /* 'MExp' */
    kKivDB_Import = 0x4D496D70                  /* 'MImp' */
};

/* Value kinds: the top four bits of the a8 word of value transfers. */
enum
{
    kKivValueKind_Text = 0x20000000,     /* zero-terminated text; size = length + 1 or capacity */
    kKivValueKind_UInt32 = 0x30000000,   /* also booleans, as 0 or 1 */
    kKivValueKind_Int32 = 0x40000000,
    kKivValueKind_Double = 0x50000000,
    kKivValueKind_Mask = (int)0xF0000000
};

/* The field type word: bits 0-15 text length, 16-23 type, then four flag bits. ODBC data
 * sources report SQL type n as 0x40 + n and SQL type -n as 0x80 + n in the type byte. */
enum
{
    kKivFieldLengthMask = 0x0000FFFF,
    kKivFieldTypeMask = 0x00FF0000,
    kKivFieldTypeShift = 16,
    kKivFieldType_Boolean = 0x01,
    kKivFieldType_Integer = 0x02,
    kKivFieldType_UInteger = 0x03,
    kKivFieldType_Float = 0x04,
    kKivFieldType_Number = 0x05,
    kKivFieldType_Text = 0x06,
    kKivFieldType_LongText = 0x07,
    kKivFieldType_ODBCPositive = 0x40,
    kKivFieldType_ODBCNegative = 0x80,
    kKivFieldFlag_AutoUnique = 0x01000000,
    kKivFieldFlag_Indexed = 0x02000000, /* flag letter "X" */
    kKivFieldFlag_Unique = 0x04000000,  /* flag letter "Q" */
    kKivFieldFlag_CaseSensitive = 0x08000000
};

/* Language codes of the default-language service ('MGDL'); the same values as the
 * foundation's localization manager uses (kKivLanguage_...). */
enum
{
    kKivHostLanguage_English = 0x01000000,
    kKivHostLanguage_French = 0x02000000,
    kKivHostLanguage_Spanish = 0x03000000
};

#ifdef __cplusplus
}
#endif

#endif
