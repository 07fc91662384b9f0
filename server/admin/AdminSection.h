// What the administration page is made of: sections that each render one part of the page for
// the request's region, and actions that a form of a section posts (with kivAdminAction=NAME)
// and that answer with a notice shown above the sections. A new part of the page is a file
// with its section (and its action, if it has a form) and one line in AdminPage.cpp's tables.
#pragma once

#include "services/RequestContext.h"

#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kiv
{

// The form field that names the action a post asks for.
constexpr std::string_view kAdminActionField = "kivAdminAction";

// What an action did: the status of the page and a notice for its top, as HTML.
struct AdminNotice
{
    int status = 200;
    std::string html;
};

using AdminSectionRenderer = std::string (*)(RequestContext& request);
using AdminAction = AdminNotice (*)(RequestContext& request);

// A notice saying an action worked, or why it did not, its text HTML-encoded.
AdminNotice adminSuccess(std::string_view text);
AdminNotice adminRefusal(int status, std::string_view text);

// The hidden field that sends a form's post to the named action.
std::string adminActionField(std::string_view action);

// A table of listed things (databases, files, backups) that a narrow screen shows as one block
// per row, each cell with its label: the head opens the table, each cell carries its label.
std::string listingTableHead(std::initializer_list<std::string_view> labels);
std::string listingCell(std::string_view label, std::string_view html);

// An entry of a folder as the page shows it.
struct FolderEntry
{
    std::string name;
    uintmax_t size = 0;
    std::time_t modified = 0;
};

enum class EntryKind
{
    File,
    Folder
};

// A name as a folder's own entry: no separator, not hidden (which also rules out "." and "..").
bool isPlainEntryName(std::string_view name);
// The entries of a folder of one kind, not hidden, sorted by name, at most limit of them.
// Symbolic links are never followed: a link is neither a file nor a folder here.
std::vector<FolderEntry> listFolderEntries(const std::filesystem::path& folder, EntryKind kind, size_t limit);

// "2026-11-25 00:15 UTC"; "-" for 0.
std::string formatAdminTime(std::time_t when);
// "512 bytes", "1.5 KiB", "12.0 MiB".
std::string formatByteCount(uintmax_t bytes);

} // namespace kiv
