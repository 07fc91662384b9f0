// Export and import pieces shared by the backends.
#include "files/RecordFiles.h"

#include "ServiceCodes.h"
#include "FieldTypes.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>

namespace kiv::db
{

std::optional<std::string> resolveFieldList(std::string_view list, size_t fieldCount,
                                            const FieldIndexLookup& lookup, std::vector<size_t>& columns)
{
    columns.clear();
    list = trimBlanks(list);
    while (!list.empty())
    {
        const size_t comma = list.find(',');
        const auto name = trimBlanks(list.substr(0, comma));
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
        if (name.empty())
            continue;
        const auto index = lookup(name);
        if (!index)
            return std::string(name);
        columns.push_back(*index);
    }
    if (columns.empty())
        for (size_t i = 0; i < fieldCount; ++i)
            columns.push_back(i);
    return std::nullopt;
}

uint32_t writeFileInPlace(const std::filesystem::path& target, const std::string& shownName,
                          const std::function<uint32_t(std::ostream&)>& write, std::string& fileError)
{
    static std::atomic<unsigned> counter{0};
    const auto temporary =
        target.parent_path() / ("." + target.filename().string() + ".tmp-" + std::to_string(::getpid()) +
                                "-" + std::to_string(counter++));
    std::error_code ignored;
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
        {
            fileError = "The export file " + quoteValue(shownName) + " cannot be written.";
            return result::kFileError;
        }
        uint32_t code = kKivResult_UnknownError;
        try
        {
            code = write(out);
        }
        catch (...)
        {
            out.close();
            std::filesystem::remove(temporary, ignored);
            throw;
        }
        if (code != kKivResult_Success)
        {
            out.close();
            std::filesystem::remove(temporary, ignored);
            return code;
        }
        out.close();
        if (!out)
        {
            std::filesystem::remove(temporary, ignored);
            fileError = "The export file " + quoteValue(shownName) + " could not be written.";
            return result::kFileError;
        }
    }
    std::filesystem::rename(temporary, target, ignored);
    if (ignored)
    {
        std::filesystem::remove(temporary, ignored);
        fileError = "The export file " + quoteValue(shownName) + " could not be put in place.";
        return result::kFileError;
    }
    return kKivResult_Success;
}

uint32_t resolveImportHeader(const std::vector<std::string>& header, const FieldIndexLookup& lookup,
                             const std::function<std::string(size_t)>& fieldName,
                             const std::string& databaseName, std::vector<size_t>& columns,
                             std::string& message)
{
    columns.clear();
    for (const auto& name : header)
    {
        const auto index = lookup(trimBlanks(name));
        if (!index)
        {
            message = "Row 1: the column " + quoteValue(name) + " names no field of the database " +
                      databaseName + ".";
            return result::kImportFailed;
        }
        if (std::find(columns.begin(), columns.end(), *index) != columns.end())
        {
            message = "Row 1: the field " + fieldName(*index) + " is named twice.";
            return result::kImportFailed;
        }
        columns.push_back(*index);
    }
    return kKivResult_Success;
}

std::string quoteValue(std::string_view value)
{
    std::string shown;
    for (const char c : value.substr(0, 40))
    {
        const auto byte = static_cast<unsigned char>(c);
        shown += (byte < 0x20 || c == '<' || c == '>' || c == '&' || c == '"') ? '?' : c;
    }
    return "\"" + shown + (value.size() > 40 ? "...\"" : "\"");
}

} // namespace kiv::db
