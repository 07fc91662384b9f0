// Sample data import through the database service.
#include "site/SampleData.h"

#include "DatabaseSession.h"
#include "KivModuleInterface.h"
#include "logging/Log.h"

#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace kiv
{

std::vector<std::vector<std::string>> parseCsv(std::string_view text)
{
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    std::string field;
    bool quoted = false, fieldStarted = false;
    for (size_t i = 0; i < text.size(); ++i)
    {
        char c = text[i];
        if (quoted)
        {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"')
                field += text[++i];
            else if (c == '"')
                quoted = false;
            else
                field += c;
            continue;
        }
        if (c == '"' && field.empty())
            quoted = fieldStarted = true;
        else if (c == ',')
        {
            row.push_back(std::move(field));
            field.clear();
            fieldStarted = true;
        }
        else if (c == '\n' || c == '\r')
        {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n')
                ++i;
            if (fieldStarted || !field.empty() || !row.empty())
            {
                row.push_back(std::move(field));
                rows.push_back(std::move(row));
            }
            row.clear();
            field.clear();
            fieldStarted = false;
        }
        else
        {
            field += c;
            fieldStarted = true;
        }
    }
    if (fieldStarted || !field.empty() || !row.empty())
    {
        row.push_back(std::move(field));
        rows.push_back(std::move(row));
    }
    return rows;
}

FieldDeclaration parseFieldDeclaration(std::string_view cell)
{
    static const std::pair<std::string_view, uint32_t> types[] = {
        {"Boolean", kKivFieldType_Boolean},   {"Integer", kKivFieldType_Integer},
        {"UInteger", kKivFieldType_UInteger}, {"Float", kKivFieldType_Float},
        {"Number", kKivFieldType_Number},     {"Text", kKivFieldType_Text},
        {"LongText", kKivFieldType_LongText}};
    std::vector<std::string> parts;
    size_t start = 0;
    while (true)
    {
        size_t colon = cell.find(':', start);
        parts.emplace_back(trim(cell.substr(start, colon == std::string_view::npos ? colon : colon - start)));
        if (colon == std::string_view::npos)
            break;
        start = colon + 1;
    }
    FieldDeclaration field{parts[0], (kKivFieldType_Text << kKivFieldTypeShift) | 64};
    if (parts.size() > 1)
    {
        for (const auto& [name, code] : types)
            if (equalsIgnoringCase(parts[1], name))
                field.typeWord = code << kKivFieldTypeShift;
        if (parts.size() > 2 && !parts[2].empty() &&
            parts[2].find_first_not_of("0123456789") == std::string::npos && parts[2].size() < 6)
            field.typeWord |= static_cast<uint32_t>(std::stoul(parts[2])) & kKivFieldLengthMask;
        else if (equalsIgnoringCase(parts[1], "Text"))
            field.typeWord |= 64;
        if (parts.size() > 3)
        {
            if (parts[3].find_first_of("xX") != std::string::npos)
                field.typeWord |= kKivFieldFlag_Indexed;
            if (parts[3].find_first_of("qQ") != std::string::npos)
                field.typeWord |= kKivFieldFlag_Unique;
        }
    }
    return field;
}

namespace
{

// A thin client of the database service with the argument shapes a module would use.
class ServiceClient
{
public:
    explicit ServiceClient(const fs::path& dataFolder) : mySession(db::SessionEnvironment{dataFolder}) {}

    uint32_t call(uint32_t selector, void* a3 = nullptr, void* a4 = nullptr, void* a5 = nullptr,
                  void* a6 = nullptr, void* a7 = nullptr, void* a8 = nullptr)
    {
        return mySession.handle(selector, a3, a4, a5, a6, a7, a8);
    }
    uint32_t callWithText(uint32_t selector, void* handle, const std::string& text, void* a8 = nullptr)
    {
        std::string copy = text;
        uint32_t size = static_cast<uint32_t>(copy.size() + 1);
        return call(selector, handle, copy.data(), &size, nullptr, nullptr, a8);
    }
    std::vector<std::string> databaseNames()
    {
        std::vector<std::string> names;
        uint32_t count = 0;
        if (call(kKivDB_GetDatabaseCount, nullptr, nullptr, nullptr, nullptr, nullptr, &count) != 0)
            return names;
        for (uint32_t index = 0; index < count && index < 10000; ++index)
        {
            std::string buffer(64, '\0');
            uint32_t capacity = static_cast<uint32_t>(buffer.size());
            uint32_t result = call(kKivDB_GetDatabaseNameByIndex, &index, buffer.data(), &capacity);
            if (result == kKivResult_BufferTooSmall)
            {
                buffer.resize(capacity);
                result = call(kKivDB_GetDatabaseNameByIndex, &index, buffer.data(), &capacity);
            }
            if (result == 0)
                names.push_back(buffer.substr(0, capacity));
        }
        return names;
    }

private:
    db::DatabaseSession mySession;
};

std::string databaseNameFor(const fs::path& csv)
{
    std::string name = csv.stem().string();
    if (!name.empty() && name[0] >= 'a' && name[0] <= 'z')
        name[0] = static_cast<char>(name[0] - 'a' + 'A');
    return name;
}

void importFile(ServiceClient& service, const fs::path& csv, const std::string& name,
                const RegionConfig& region)
{
    std::ifstream in(csv, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    auto rows = parseCsv(content.str());
    LogContext context{region.name, "", ""};
    if (rows.size() < 1)
        return;
    if (uint32_t result = service.callWithText(kKivDB_CreateDatabase, nullptr, name); result != 0)
    {
        writeServerLog(LogKind::Warning, context,
                       "sample data: cannot create database " + name + " (" + fourCharacterCode(result) +
                           ")");
        return;
    }
    uint32_t handle = 0, mode = 3;
    std::string databaseName = name, uniqueField;
    uint32_t nameSize = static_cast<uint32_t>(name.size() + 1), uniqueSize = 1;
    if (uint32_t result = service.call(kKivDB_OpenDatabase, &handle, databaseName.data(), &nameSize,
                                       uniqueField.data(), &uniqueSize, &mode);
        result != 0)
    {
        writeServerLog(LogKind::Warning, context,
                       "sample data: cannot open database " + name + " (" + fourCharacterCode(result) + ")");
        return;
    }
    std::vector<FieldDeclaration> fields;
    for (const auto& cell : rows[0])
        fields.push_back(parseFieldDeclaration(cell));
    // The record identifier the editor and deleteRecord rely on; a service that makes its
    // own refuses this one, which is fine.
    uint32_t idWord = (kKivFieldType_UInteger << kKivFieldTypeShift) | kKivFieldFlag_AutoUnique |
                      kKivFieldFlag_Indexed | kKivFieldFlag_Unique;
    service.callWithText(kKivDB_AddField, &handle, "KIVIDFIELD", &idWord);
    for (auto& field : fields)
        if (uint32_t result = service.callWithText(kKivDB_AddField, &handle, field.name, &field.typeWord);
            result != 0)
            writeServerLog(LogKind::Warning, context,
                           "sample data: cannot add field " + field.name + " (" + fourCharacterCode(result) +
                               ")");
    size_t added = 0;
    for (size_t r = 1; r < rows.size(); ++r)
    {
        if (service.call(kKivDB_CreateRecord, &handle) != 0)
            break;
        for (size_t c = 0; c < fields.size() && c < rows[r].size(); ++c)
        {
            std::string fieldName = fields[c].name, value = rows[r][c];
            uint32_t fieldSize = static_cast<uint32_t>(fieldName.size() + 1);
            uint32_t valueSize = static_cast<uint32_t>(value.size() + 1);
            uint32_t kind = kKivValueKind_Text;
            service.call(kKivDB_SetFieldValue, &handle, fieldName.data(), &fieldSize, value.data(),
                         &valueSize, &kind);
        }
        if (service.call(kKivDB_AddRecord, &handle) == 0)
            ++added;
    }
    service.call(kKivDB_CloseDatabase, &handle);
    writeServerLog(LogKind::Note, context,
                   "sample data: created database " + name + " with " + std::to_string(added) +
                       " records from " + csv.string());
}

} // namespace

void importSampleData(const RegionConfig& region)
{
    fs::path folder = region.siteRoot / "data";
    std::error_code error;
    if (!fs::is_directory(folder, error))
        return;
    try
    {
        ServiceClient service(region.dataFolder);
        std::string connection = ",,";
        uint32_t size = static_cast<uint32_t>(connection.size() + 1);
        if (uint32_t result = service.call(kKivDB_Initialize, nullptr, connection.data(), &size); result != 0)
        {
            writeServerLog(LogKind::Note, {region.name, "", ""},
                           "sample data not imported: the database service answered " +
                               fourCharacterCode(result));
            return;
        }
        auto existing = service.databaseNames();
        for (const auto& entry : fs::directory_iterator(folder, error))
        {
            if (toLower(entry.path().extension().string()) != ".csv")
                continue;
            std::string name = databaseNameFor(entry.path());
            bool present = false;
            for (const auto& known : existing)
                present = present || equalsIgnoringCase(known, name);
            if (!present)
                importFile(service, entry.path(), name, region);
        }
        service.call(kKivDB_Terminate);
    }
    catch (const std::exception& problem)
    {
        writeServerLog(LogKind::Warning, {region.name, "", ""},
                       std::string("sample data: ") + problem.what());
    }
}

} // namespace kiv
