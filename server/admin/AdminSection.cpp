// The pieces every section of the administration page shares.
#include "admin/AdminSection.h"

#include <cstdio>

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
