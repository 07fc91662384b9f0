// Fuzzes the search language's parser and its translation to SQL: any input must parse or be
// refused with a message, and a parsed search must translate without touching SQLite into SQL
// whose text is only the translator's own words (column names, keywords, parameters, the empty
// text and the 0/1 flags it writes itself), with every value of the search bound as a parameter,
// in order, once.
// fuzz-link: kivserver_databases
// fuzz-gate-runs: 200000
#include "SearchLanguage.h"
#include "SearchToSql.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace
{
namespace search = kiv::db::search;

// A few fields of different types, found by name as the store would.
const kiv::db::FieldDefinition kFields[] = {{"Name", "c2", 0x02060028, 1},
                                            {"Price", "c3", 0x00050000, 1},
                                            {"Qty", "c4", 0x00020000, 1},
                                            {"Active", "c5", 0x00010000, 1},
                                            {"Weight", "c6", 0x00040000, 1}};

const kiv::db::FieldDefinition* lookup(std::string_view name)
{
    for (const auto& field : kFields)
        if (kiv::db::compareFolded(field.name, name) == 0)
            return &field;
    return nullptr;
}

void require(bool condition)
{
    if (!condition)
        std::abort();
}

bool isTranslatorWord(std::string_view word)
{
    static const std::string_view words[] = {"AND",  "OR",        "NOT",          "IS",        "NULL",
                                             "AS",   "CAST",      "COALESCE",     "TEXT",      "ASC",
                                             "DESC", "kiv_rowid", "kiv_contains", "kiv_begins"};
    for (const auto known : words)
        if (word == known)
            return true;
    for (const auto& field : kFields)
        if (word == field.column)
            return true;
    return false;
}

// Reads the SQL text as a small lexer would and refuses anything the translator does not write
// itself; returns the number of parameters.
size_t countParametersOfTranslatorText(std::string_view sql)
{
    size_t parameters = 0;
    size_t at = 0;
    while (at < sql.size())
    {
        const unsigned char c = static_cast<unsigned char>(sql[at]);
        if (c == ' ' || c == '(' || c == ')' || c == ',' || c == '=' || c == '<' || c == '>')
            ++at;
        else if (c == '?')
        {
            ++parameters;
            ++at;
        }
        else if (sql.compare(at, 2, "''") == 0)
        {
            // The empty text of COALESCE(column, ''): the only quote the translator writes.
            at += 2;
            require(at == sql.size() || sql[at] != '\'');
        }
        else if ((c == '0' || c == '1') &&
                 (at + 1 == sql.size() || !std::isalnum((unsigned char)sql[at + 1])))
            ++at; // the case flag of kiv_contains and kiv_begins
        else if (std::isalpha(c) || c == '_')
        {
            size_t end = at;
            while (end < sql.size() && (std::isalnum((unsigned char)sql[end]) || sql[end] == '_'))
                ++end;
            require(isTranslatorWord(sql.substr(at, end - at)));
            at = end;
        }
        else
            std::abort(); // a quote, a semicolon, a digit or any other byte of a value
    }
    return parameters;
}

void collectComparisons(const search::Node& node, std::vector<const search::Node*>& comparisons)
{
    if (node.kind == search::Node::Kind::Comparison)
    {
        comparisons.push_back(&node);
        return;
    }
    collectComparisons(*node.left, comparisons);
    if (node.right)
        collectComparisons(*node.right, comparisons);
}

// A comparison binds its value, except that an empty value compared with = or <> on a Number
// field asks whether the field holds a value at all.
bool bindsItsValue(const search::Node& comparison)
{
    const bool presenceTest =
        lookup(comparison.field)->type() == kiv::db::FieldType::Number &&
        (comparison.op == search::Operator::Equal || comparison.op == search::Operator::NotEqual) &&
        kiv::db::trimBlanks(comparison.value.text).empty();
    return !presenceTest;
}

// A text parameter is the value as written or without its surrounding blanks; a number
// parameter comes from a value that is not blank.
bool bindingComesFrom(const kiv::db::SqlBinding& binding, const search::Literal& value)
{
    if (const auto* text = std::get_if<std::string>(&binding))
        return *text == value.text || *text == kiv::db::trimBlanks(value.text);
    return !kiv::db::trimBlanks(value.text).empty();
}

void checkTranslation(const search::Query& query, const kiv::db::SqlSearch& sql)
{
    require(!sql.orderBy.empty()); // the order always ends with the row id
    require(countParametersOfTranslatorText(sql.orderBy) == 0);
    require(countParametersOfTranslatorText(sql.where) == sql.bindings.size());

    std::vector<const search::Node*> comparisons;
    if (query.condition)
        collectComparisons(*query.condition, comparisons);
    size_t next = 0;
    for (const search::Node* comparison : comparisons)
    {
        if (!bindsItsValue(*comparison))
            continue;
        require(next < sql.bindings.size() && bindingComesFrom(sql.bindings[next], comparison->value));
        ++next;
    }
    require(next == sql.bindings.size());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto parsed = search::parseSearch(text);
    if (auto* error = std::get_if<search::SyntaxError>(&parsed))
    {
        require(!error->message.empty()); // a refusal must say why
        return 0;
    }
    const auto& query = std::get<search::Query>(parsed);
    kiv::db::SqlSearch sql;
    std::string message;
    if (kiv::db::translateSearch(query, lookup, sql, message) == 0)
        checkTranslation(query, sql);
    else
        require(!message.empty()); // a refused translation names the field or the problem
    return 0;
}
