// Sample data, made through the typed database service.
#include "site/SampleData.h"

#include "DatabaseService.h"
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

FieldDeclaration parseFieldDeclaration(std::string_view cell, std::string* problem)
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
    auto refuse = [&](const std::string& why)
    {
        if (problem && problem->empty())
            *problem = "'" + std::string(cell) + "': " + why;
    };
    FieldDeclaration field{parts[0], (kKivFieldType_Text << kKivFieldTypeShift) | 64};
    if (parts.size() > 1)
    {
        bool known = false;
        for (const auto& [name, code] : types)
            if (equalsIgnoringCase(parts[1], name))
            {
                field.typeWord = code << kKivFieldTypeShift;
                known = true;
            }
        if (!known)
            refuse("unknown type '" + parts[1] +
                   "' (Boolean, Integer, UInteger, Float, Number, Text, LongText)");
        if (parts.size() > 2 && !parts[2].empty() &&
            parts[2].find_first_not_of("0123456789") == std::string::npos && parts[2].size() < 6)
            field.typeWord |= static_cast<uint32_t>(std::stoul(parts[2])) & kKivFieldLengthMask;
        else if (parts.size() > 2 && !parts[2].empty())
            refuse("the length '" + parts[2] + "' is not a number from 0 to 99999");
        else if (equalsIgnoringCase(parts[1], "Text"))
            field.typeWord |= 64;
        if (parts.size() > 3)
        {
            if (parts[3].find_first_of("xX") != std::string::npos)
                field.typeWord |= kKivFieldFlag_Indexed;
            if (parts[3].find_first_of("qQ") != std::string::npos)
                field.typeWord |= kKivFieldFlag_Unique;
            if (parts[3].find_first_not_of("xXqQ") != std::string::npos)
                refuse("the flags '" + parts[3] + "' are not X (indexed) and Q (unique)");
        }
        if (parts.size() > 4)
            refuse("more than name:type:length:flags");
    }
    return field;
}

namespace
{

std::string databaseNameFor(const fs::path& csv)
{
    std::string name = csv.stem().string();
    if (!name.empty() && name[0] >= 'a' && name[0] <= 'z')
        name[0] = static_cast<char>(name[0] - 'a' + 'A');
    return name;
}

void importFile(db::DatabaseService& service, const fs::path& csv, const std::string& name,
                const RegionConfig& region)
{
    std::ifstream in(csv, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    auto rows = parseCsv(content.str());
    LogContext context{region.name, "", ""};
    if (rows.empty())
        return;
    const auto refused = [&](const std::string& what, uint32_t code)
    {
        writeServerLog(LogKind::Warning, context,
                       "sample data: cannot " + what + " (" + fourCharacterCode(code) + ": " +
                           service.lastFailure().line + ")");
    };
    db::DatabaseHandle handle = 0;
    if (uint32_t code =
            service.openDatabase(name, db::OpenMode::Exclusive, db::OpenIntent::CreateIfMissing, "", handle);
        code != 0)
        return refused("create database " + name, code);
    db::Database& database = *service.database(handle);
    std::vector<FieldDeclaration> fields;
    for (const auto& cell : rows[0])
        fields.push_back(parseFieldDeclaration(cell));
    for (auto& field : fields)
        if (uint32_t code = database.addField(field.name, field.typeWord); code != 0)
            refused("add field " + field.name, code);
    size_t added = 0;
    for (size_t r = 1; r < rows.size(); ++r)
    {
        database.createRecord();
        for (size_t c = 0; c < fields.size() && c < rows[r].size(); ++c)
            database.setValue(fields[c].name, db::InputValue(std::string_view(rows[r][c])));
        if (uint32_t code = database.addRecord(); code == 0)
            ++added;
        else
            refused("add row " + std::to_string(r + 1) + " of " + csv.string(), code);
    }
    service.closeDatabase(handle);
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
        db::ServiceEnvironment environment;
        environment.dataFolder = region.dataFolder;
        environment.durableCommits = region.durableCommits;
        environment.trashDays = region.trashDays;
        environment.warning = [&](const std::string& line) {
            writeServerLog(LogKind::Warning, {region.name, "", ""}, "sample data: " + line);
        };
        db::DatabaseService service(std::move(environment));
        std::vector<std::string> existing;
        service.listDatabases(existing);
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
    }
    catch (const std::exception& problem)
    {
        writeServerLog(LogKind::Warning, {region.name, "", ""},
                       std::string("sample data: ") + problem.what());
    }
}

} // namespace kiv
