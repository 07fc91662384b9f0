// Fuzzes the search language's parser and its translation to SQL: any input must parse or be
// refused with a message, and a parsed search must translate without touching SQLite.
// fuzz-link: kivserver_databases
// fuzz-gate-runs: 200000
#include "search/SearchLanguage.h"
#include "search/SqlTranslation.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string_view>

namespace
{
// A few fields of different types, found by name as the store would, and columns named by
// position: no value may ever reach the SQL text.
const kiv::db::FieldDefinition kFields[] = {{"Name", "c2", 0x02060028, 1},   {"Price", "c3", 0x00050000, 1},
                                            {"Qty", "c4", 0x00020000, 1},    {"Active", "c5", 0x00010000, 1},
                                            {"Weight", "c6", 0x00040000, 1}, {"Notes", "c7", 0x00070000, 1}};

std::optional<size_t> lookup(std::string_view name)
{
    for (size_t i = 0; i < std::size(kFields); ++i)
        if (kiv::db::compareFolded(kFields[i].name, name) == 0)
            return i;
    return std::nullopt;
}

class Dialect : public kiv::db::SqlDialect
{
public:
    const std::string& fieldName(size_t field) const override { return kFields[field].name; }
    kiv::db::FieldType classOf(size_t field) const override { return kFields[field].type(); }
    std::string column(size_t field) const override { return kFields[field].column; }
    std::string compareText(size_t field, const char* symbol, const std::string& parameter) const override
    {
        return column(field) + symbol + parameter;
    }
    std::string matchText(size_t field, bool, const std::string& text,
                          const kiv::db::SqlBinder& bind) const override
    {
        return column(field) + " LIKE " + bind(kiv::db::SqlBinding(text));
    }
    std::string compareNumber(size_t field, const char* symbol, const std::string& parameter) const override
    {
        return column(field) + symbol + parameter;
    }
    std::string isTrue(size_t field, const kiv::db::SqlBinder&) const override
    {
        return column(field) + " <> 0";
    }
};
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
    const Dialect dialect;
    kiv::db::translateSearch(std::get<kiv::db::search::Query>(parsed), lookup, dialect, sql, message);
    // No value may reach the SQL text: it holds only column names, keywords and parameters.
    for (const std::string* part : {&sql.where, &sql.orderBy})
        for (const char c : *part)
            if (c == '\'' || c == '"' || c == ';')
                std::abort();
    return 0;
}
