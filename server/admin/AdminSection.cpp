// The pieces every section of the administration page shares.
#include "admin/AdminSection.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>

namespace kiv
{

AdminNotice adminSuccess(std::string_view text)
{
    return {200, "<p class=\"notice\">" + htmlEncode(text) + "</p>\n"};
}

AdminNotice adminRefusal(int status, std::string_view text)
{
    return {status, "<p class=\"refused\">" + htmlEncode(text) + "</p>\n"};
}

std::string adminActionField(std::string_view action)
{
    return "<input type=\"hidden\" name=\"" + std::string(kAdminActionField) + "\" value=\"" +
           htmlEncode(action) + "\">\n";
}

std::string listingTableHead(std::initializer_list<std::string_view> labels)
{
    std::string html = "<table class=\"listing\">\n<tr class=\"head\">";
    for (const std::string_view label : labels)
        html += "<th>" + htmlEncode(label) + "</th>";
    return html + "</tr>\n";
}

std::string listingCell(std::string_view label, std::string_view html)
{
    return "<td data-label=\"" + htmlEncode(label) + "\">" + std::string(html) + "</td>";
}

bool isPlainEntryName(std::string_view name)
{
    return !name.empty() && name.size() <= 255 && name[0] != '.' &&
           name.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

std::vector<FolderEntry> listFolderEntries(const std::filesystem::path& folder, EntryKind kind, size_t limit)
{
    std::vector<FolderEntry> entries;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    {
        const std::string name = entry.path().filename().string();
        struct stat info;
        if (!isPlainEntryName(name) || ::lstat(entry.path().c_str(), &info) != 0 ||
            !(kind == EntryKind::File ? S_ISREG(info.st_mode) : S_ISDIR(info.st_mode)))
            continue;
        entries.push_back({name, static_cast<uintmax_t>(info.st_size), info.st_mtim.tv_sec});
        if (entries.size() == limit)
            break;
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
}

std::string formatAdminTime(std::time_t when)
{
    if (when == 0)
        return "-";
    std::tm utc{};
    gmtime_r(&when, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc);
    return text;
}

std::string formatByteCount(uintmax_t bytes)
{
    if (bytes < 1024)
        return std::to_string(bytes) + " bytes";
    const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(units))
    {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

} // namespace kiv
