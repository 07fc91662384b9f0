// Fuzzes the search language's parser and its translation to SQL: any input must parse or be
// refused with a message, and a parsed search must translate without touching SQLite.
// fuzz-link: kivserver_databases
#include "SearchLanguage.h"
#include "SearchToSql.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace
{
const kiv::db::FieldDefinition* lookup(std::string_view name)
{
    // A few fields of different types, found by name as the store would.
    static const kiv::db::FieldDefinition fields[] = {{"Name", "c2", 0x02060028, 1},
                                                      {"Price", "c3", 0x00050000, 1},
                                                      {"Qty", "c4", 0x00020000, 1},
                                                      {"Active", "c5", 0x00010000, 1},
                                                      {"Weight", "c6", 0x00040000, 1}};
    for (const auto& field : fields)
        if (kiv::db::compareFolded(field.name, name) == 0)
            return &field;
    return nullptr;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto parsed = kiv::db::search::parseSearch(text);
    if (auto* error = std::get_if<kiv::db::search::SyntaxError>(&parsed))
    {
        if (error->message.empty())
            std::abort(); // a refusal must say why
        return 0;
    }
    kiv::db::SqlSearch sql;
    std::string message;
    const uint32_t code =
        kiv::db::translateSearch(std::get<kiv::db::search::Query>(parsed), lookup, sql, message);
    if (code == 0 && sql.orderBy.empty())
        std::abort(); // the order always ends with the row id
    // No value may reach the SQL text: it holds only column names, keywords and parameters.
    for (const char c : sql.where)
        if (c == '\'' || c == '"' || c == ';')
            std::abort();
    return 0;
}
