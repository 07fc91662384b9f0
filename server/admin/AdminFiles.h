// The exports folder of the region in the browser: the administration page lists its files
// with download links and takes uploads into it, so that files the editor exports can be
// fetched and files to import can be sent without a shell on the server. Only regular files
// directly in the folder are offered; an upload is written under a hidden temporary name and
// renamed into place, and never replaces a file unless the form asks for that.
#pragma once

#include "admin/AdminSection.h"
#include "http/HttpMessage.h"

#include <string>
#include <string_view>

namespace kiv
{

// The URL below the administration page that downloads a file: "<admin>files/NAME".
constexpr std::string_view kAdminFilesPath = "files/";

std::string renderExportFiles(RequestContext& request);
// The "upload" action: a multipart form with the file in "file", optionally its new name in
// "name" and "replace=yes".
AdminNotice uploadExportFile(RequestContext& request);
void downloadExportFile(RequestContext& request, std::string_view name, HttpResponse& response);

// Why a name cannot be given to an uploaded file (empty when it can): only letters, digits,
// blanks and ".-_()+", not hidden, ending in .csv or .txt.
std::string findUploadNameProblem(std::string_view name);

} // namespace kiv
