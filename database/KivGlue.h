// The module's side of the host's general service callback. Every service the host offers
// (tag parameters, arguments, page variables, preferences, the log, the HTTP response) has
// one thin wrapper here that turns foundation types into the callback's raw arguments and
// back; no other module code calls the callback itself.
//
// Conventions shared by all wrappers:
// - the per-call record comes first; it must be the one the host passed to this call;
// - a `bool` result is true exactly when the host answered 0;
// - output buffers start at a small capacity and are retried once, with the size the host
//   wrote back, when the host answers 'MBtS'; a second 'MBtS' is a failure;
// - getters with a default set the output to the default when the host fails;
// - counters and other scalars read 0 when the host does not answer.
#ifndef KIV_GLUE_H
#define KIV_GLUE_H

#include "KivModuleInterface.h"
#include "KivBuffer.h"
#include "KivNumber.h"
#include "KivString.h"
#include "KivStringID.h"
#include "KivTag.h"
#include "KivTypes.h"

// HTTP status numbers the module may ask the host to answer with. Only 302, 401 and 404 reach
// the host as themselves; every other status is sent as a plain success ("200").
class KivHTTPResponse
{
public:
    enum StatusCode
    {
        kStatus_OK = 200,
        kStatus_Created = 201,
        kStatus_NoContent = 204,
        kStatus_MovedPermanently = 301,
        kStatus_Found = 302,
        kStatus_SeeOther = 303,
        kStatus_NotModified = 304,
        kStatus_BadRequest = 400,
        kStatus_Unauthorized = 401,
        kStatus_Forbidden = 403,
        kStatus_NotFound = 404,
        kStatus_InternalServerError = 500,
        kStatus_NotImplemented = 501,
        kStatus_ServiceUnavailable = 503
    };
};

// Copies `length_i` bytes into `buffer_io`, sized to length + 1, and terminates them with a
// zero byte; returns the buffer's address. Input texts reach the host this way so that it can
// rely on the terminator even for strings that share their storage.
void* KivUtilCopyAndTerminateBuffer(KivBuffer& buffer_io, const void* bytes_i, unsigned int length_i);

// Server information is not provided by this host interface; always 0, no host call.
unsigned int KivGlueGetServerInformation(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The module's own location on the server ('MMdP', 'MMPP').
bool KivGlueGetModulePath(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io);
bool KivGlueGetModuleParentFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io);

// Sends page text to the server ('MWtS'). An empty text is not sent and counts as success.
bool KivGlueWriteToServer(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& text_i);

// Server log lines ('MWtL') of increasing severity.
bool KivGlueAddNoteToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i);
bool KivGlueAddWarningToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i);
bool KivGlueAddErrorToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i);
bool KivGlueAddFailureToServerLog(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& line_i);

// Reports a failure to the page author as a headline and a hint ('MSEI').
bool KivGlueSetErrorInformation(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& headline_i,
                                const KivString& hint_i);

// Replaces the text by the host's normalized form of it ('MNmS').
bool KivGlueNormalizeString(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& text_io);

// Module identity, registered at initialisation.
bool KivGlueRegisterModuleName(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i);
bool KivGlueRegisterModuleVersion(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& version_i);
bool KivGlueRegisterModuleAuthor(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& author_i);
bool KivGlueRegisterModuleDeveloperID(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const KivString& developerID_i);
bool KivGlueRegisterModuleVersionTrackerURL(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                            const KivString& address_i);

// Tags and actions the module answers for. The tag flags (kKivTagFlag_...) pass through.
bool KivGlueRegisterForTag(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivTag& tag_i,
                           const unsigned int& flags_i);
bool KivGlueUnregisterForTag(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivTag& tag_i);
bool KivGlueRegisterForAction(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& actionName_i,
                              KivStringID& identifier_io);
bool KivGlueUnregisterForAction(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& actionName_i);

unsigned int KivGlueGetPageID(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The tag occurrence being processed: its name, parameters and body.
KivTag KivGlueGetTag(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The `index_i`-th occurrence (0 for the first) of the named parameter, converted to the output
// type. True when the parameter is present; otherwise the output is set to the default.
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivStringID& value_io, const KivStringID& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, unsigned int& value_io,
                            const unsigned int& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, int& value_io, const int& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, double& value_io, const double& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, KivNumber& value_io, const KivNumber& default_i);
bool KivGlueGetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                            const unsigned int& index_i, bool& value_io, const bool& default_i);

// As above with an empty (or zero) default; a missing parameter is also reported to the page
// author through the error information, naming the tag and the parameter.
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivStringID& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivString& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, unsigned int& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, int& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, double& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, KivNumber& value_io);
bool KivGlueGetRequiredTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivStringID& name_i,
                                    const unsigned int& index_i, bool& value_io);

// The `index_i`-th parameter of the tag in the order written, name and value.
bool KivGlueGetTagParameterByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivStringID& name_io, KivStringID& value_io);
bool KivGlueGetTagParameterByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivStringID& name_io, KivString& value_io);
unsigned int KivGlueGetTagParameterCount(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The raw text between the tag and its end tag; empty on failure.
KivString KivGlueGetTagBody(_KIVAPI_ModuleProcessingInfo* processingInfo);

KivStringID KivGlueGetActionName(_KIVAPI_ModuleProcessingInfo* processingInfo);

// Arguments of the request: path arguments ('MPAr' ...) and posted form arguments ('MFAr' ...).
bool KivGlueGetPathArgument(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i);
bool KivGlueGetPathArgumentByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io);
unsigned int KivGlueGetPathArgumentCount(_KIVAPI_ModuleProcessingInfo* processingInfo);
bool KivGlueGetPostArgument(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const unsigned int& index_i, KivString& value_io, const KivString& default_i);
bool KivGlueGetPostArgumentByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io);
unsigned int KivGlueGetPostArgumentCount(_KIVAPI_ModuleProcessingInfo* processingInfo);

// A CGI environment variable of the request; empty when the host has none.
KivString KivGlueGetCGIEnvironmentVariable(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                           const KivString& variableName_i);

// Page variables, shared with the page author's other tags.
bool KivGlueSetPageVariable(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            const KivString& value_i);
bool KivGlueGetPageVariable(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                            KivString& value_io, const KivString& default_i);
bool KivGlueGetPageVariableByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& index_i,
                                   KivString& name_io, KivString& value_io);
unsigned int KivGlueGetPageVariableCount(_KIVAPI_ModuleProcessingInfo* processingInfo);

KivString KivGlueGetCookie(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& cookieName_i);

// The HTTP response of the current request.
bool KivGlueSetHTTPResponseStatus(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  KivHTTPResponse::StatusCode status_i, const KivString& message_i);
bool KivGlueSetHTTPResponseHeader(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                                  const KivString& value_i);
bool KivGlueSetHTTPResponseURI(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& uri_i);

// Administration and region paths; each is empty when the host fails.
KivString KivGlueGetAdminDomainName(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetAdminRegionPath(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetVirtualHost(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetVirtualRootPath(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetURLPath(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetURLParentFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivString KivGlueGetRegionDataFolderPath(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const KivString& subPath_i);
KivString KivGlueMapURLToPhysicalPath(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const KivString& urlPath_i);

// True when the file lies inside the region; the host may rewrite the path it was given.
bool KivGlueVerifyRegionContainsFile(_KIVAPI_ModuleProcessingInfo* processingInfo, KivString& path_io);

// The region's language code (kKivHostLanguage_..., the same values as kKivLanguage_...).
unsigned int KivGlueGetDefaultLanguage(_KIVAPI_ModuleProcessingInfo* processingInfo);

// True when the host accepts the login.
bool KivGlueValidateServerLogin(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& userName_i,
                                const KivString& password_i);
bool KivGlueValidateDomainLogin(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& userName_i,
                                const KivString& password_i);

// The region's preferences for this module, stored by the host.
bool KivGlueSetPreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i,
                          const KivString& value_i);
bool KivGlueGetPreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i,
                          KivString& value_io, const KivString& default_i);
bool KivGlueRemovePreference(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& key_i);

#endif
