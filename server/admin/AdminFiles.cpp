// Downloads from and uploads into the region's exports folder.
#include "admin/AdminFiles.h"

#include "http/Forms.h"
#include "logging/Log.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

constexpr size_t kMaxListedFiles = 500;
constexpr size_t kMaxNameLength = 120;

// Why the region refuses this file of its exports folder (one of its own files, such as a log
// kept there), or empty.
std::string refusalOfRegion(RequestContext& request, std::string_view name)
{
    fs::path file;
    std::string why;
    return request.databaseService().files().resolve(name, file, why) == 0 ? std::string() : why;
}

// A header value that names the file in ASCII, with the exact name beside it for the browsers
// that read filename*.
std::string attachmentDisposition(std::string_view name)
{
    std::string plain;
    for (const char c : name)
        plain += std::isalnum(static_cast<unsigned char>(c)) ||
                         std::string_view("._-+() ").find(c) != std::string_view::npos
                     ? c
                     : '_';
    return "attachment; filename=\"" + plain + "\"; filename*=UTF-8''" + percentEncode(name);
}

// Writes content as folder/name: a hidden temporary file first, then renamed over an existing
// file (replace) or linked to the name, which fails if a file has it. Empty, or what failed.
std::string writeUpload(const fs::path& folder, const std::string& name, std::string_view content,
                        bool replace)
{
    static std::atomic<unsigned> counter{0};
    std::error_code error;
    fs::create_directories(folder, error);
    FileDescriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isOpen())
        return "the exports folder " + folder.string() + " cannot be opened";
    const std::string hidden = ".upload-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    FileDescriptor out(::openat(directory.get(), hidden.c_str(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640));
    if (!out.isOpen())
        return "a temporary file cannot be made in the exports folder";
    size_t written = 0;
    while (written < content.size())
    {
        const ssize_t step = ::write(out.get(), content.data() + written, content.size() - written);
        if (step <= 0)
            break;
        written += static_cast<size_t>(step);
    }
    std::string problem;
    if (written != content.size() || ::fsync(out.get()) != 0)
        problem = "the file could not be written whole (is the disk full?)";
    out.reset();
    if (problem.empty() && replace &&
        ::renameat(directory.get(), hidden.c_str(), directory.get(), name.c_str()) != 0)
        problem = "the file could not be put in place";
    if (problem.empty() && !replace &&
        ::linkat(directory.get(), hidden.c_str(), directory.get(), name.c_str(), 0) != 0)
        problem = errno == EEXIST
                      ? "a file named " + name + " is there already; tick \"Replace\" to overwrite it"
                      : "the file could not be put in place";
    if (!problem.empty() || !replace)
        ::unlinkat(directory.get(), hidden.c_str(), 0);
    return problem;
}

} // namespace

std::string findUploadNameProblem(std::string_view name)
{
    if (name.empty() || name.size() > kMaxNameLength)
        return "a file name has 1 to " + std::to_string(kMaxNameLength) + " characters";
    if (name[0] == '.' || name.back() == ' ' || name.back() == '.')
        return "a file name may not start with a dot nor end with a dot or a blank";
    for (const char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) &&
            std::string_view("._-+() ").find(c) == std::string_view::npos)
            return "a file name holds only letters, digits, blanks and . - _ + ( )";
    std::string extension = toLower(name.substr(std::min(name.size(), name.rfind('.'))));
    if (extension != ".csv" && extension != ".txt")
        return "a file name ends in .csv or .txt";
    return {};
}

std::string renderExportFiles(RequestContext& request)
{
    const RegionConfig& region = request.region.region;
    const fs::path folder = exportsFolderOf(region);
    const std::string base = request.server.adminPath + std::string(kAdminFilesPath);
    std::string html =
        "<section class=\"files\">\n<h2>Files for export and import</h2>\n<p>The editor exports to "
        "and imports from <code>" +
        htmlEncode(folder.string()) + "</code>.</p>\n";
    const std::vector<FolderEntry> files = listFolderEntries(folder, EntryKind::File, kMaxListedFiles);
    if (files.empty())
        html += "<p>The folder holds no files yet.</p>\n";
    else
    {
        html += listingTableHead({"File", "Size", "Changed"});
        for (const auto& file : files)
            html += "<tr>" +
                    listingCell("File", "<a download href=\"" + htmlEncode(base + percentEncode(file.name)) +
                                            "\">" + htmlEncode(file.name) + "</a>") +
                    listingCell("Size", formatByteCount(file.size)) +
                    listingCell("Changed", formatAdminTime(file.modified)) + "</tr>\n";
        html += "</table>\n";
    }
    html += "<form class=\"upload\" method=\"post\" enctype=\"multipart/form-data\" action=\"" +
            htmlEncode(request.server.adminPath) + "\">\n" + adminActionField("upload") +
            "<p><label>CSV file <input type=\"file\" name=\"file\" accept=\".csv,.txt,text/csv\" "
            "required></label></p>\n"
            "<p><label>Save as <input type=\"text\" name=\"name\" maxlength=\"" +
            std::to_string(kMaxNameLength) +
            "\" placeholder=\"the file's own name\"></label></p>\n"
            "<p><label><input type=\"checkbox\" name=\"replace\" value=\"yes\"> Replace a file of that "
            "name</label></p>\n"
            "<p><input type=\"submit\" value=\"Upload\"> (up to " +
            formatByteCount(region.maxUploadBytes) + ")</p>\n</form>\n</section>\n";
    return html;
}

AdminNotice uploadExportFile(RequestContext& request)
{
    const RegionConfig& region = request.region.region;
    const std::string boundary = multipartBoundary(request.request.headerOr("Content-Type"));
    NameValueList fileNames;
    std::optional<NameValueList> form =
        boundary.empty() ? std::nullopt : parseMultipart(request.request.body, boundary, &fileNames);
    const std::string* content = form ? findValue(*form, "file") : nullptr;
    if (!content)
        return adminRefusal(400,
                            "Not uploaded: send the file as multipart/form-data in a field named \"file\".");
    if (content->size() > region.maxUploadBytes)
        return adminRefusal(413, "Not uploaded: the file has " + formatByteCount(content->size()) +
                                     ", more than the " + formatByteCount(region.maxUploadBytes) +
                                     " this region accepts (max_upload_bytes).");
    // A name typed into the form is taken as it is; the browser's name of the file loses any
    // folders some browsers send with it.
    std::string name;
    if (const std::string* typed = findValue(*form, "name"); typed && !trim(*typed).empty())
        name = std::string(trim(*typed));
    else if (const std::string* sent = findValue(fileNames, "file"))
        name = sent->substr(std::min(sent->size(), sent->find_last_of("/\\") + 1));
    std::string problem = findUploadNameProblem(name);
    if (problem.empty())
        problem = refusalOfRegion(request, name);
    const std::string user = request.request.user;
    LogContext where{region.name, request.request.path, ""};
    if (!problem.empty())
    {
        writeServerLog(LogKind::Warning, where,
                       "upload from " + user + " refused: \"" + name.substr(0, 200) + "\": " + problem);
        return adminRefusal(400, "Not uploaded: " + problem + ".");
    }
    const bool replace = findValue(*form, "replace") && *findValue(*form, "replace") == "yes";
    if (std::string failure = writeUpload(exportsFolderOf(region), name, *content, replace); !failure.empty())
    {
        const bool exists = failure.rfind("a file named", 0) == 0;
        writeServerLog(exists ? LogKind::Warning : LogKind::Error, where,
                       "upload of " + name + " from " + user + " failed: " + failure);
        return adminRefusal(exists ? 409 : 500, "Not uploaded: " + failure + ".");
    }
    writeServerLog(LogKind::Note, where,
                   "uploaded " + name + " (" + std::to_string(content->size()) + " bytes) for " + user);
    return adminSuccess("Uploaded " + name + " (" + formatByteCount(content->size()) +
                        "): the editor's import can read it under that name.");
}

void downloadExportFile(RequestContext& request, std::string_view name, HttpResponse& response)
{
    const fs::path folder = exportsFolderOf(request.region.region);
    if (!isPlainEntryName(name) || !refusalOfRegion(request, name).empty())
    {
        response = makeErrorResponse(404, "There is no such file in the exports folder.");
        return;
    }
    FileDescriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    FileDescriptor file(directory.isOpen() ? ::openat(directory.get(), std::string(name).c_str(),
                                                      O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)
                                           : -1);
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
    {
        response = makeErrorResponse(404, "There is no such file in the exports folder.");
        return;
    }
    response.status = 200;
    const std::string extension = toLower(fs::path(std::string(name)).extension().string());
    response.setHeader("Content-Type", extension == ".csv" ? "text/csv" : "application/octet-stream");
    response.setHeader("Content-Disposition", attachmentDisposition(name));
    response.setHeader("Last-Modified", formatHttpDate(info.st_mtim.tv_sec));
    response.bodyFileSize = static_cast<uint64_t>(info.st_size);
    response.bodyFile = std::move(file);
}

} // namespace kiv
