// Fuzzes the search language's parser and its translation to SQL in the embedded store's own
// dialect: any input must parse or be refused with a message, and a parsed search must
// translate into SQL whose text is only the translator's and the dialect's own words (column
// names, keywords, parameters, the empty text of COALESCE and the 0/1 case flags), with every
// value of the search bound as a parameter, in order, once. The quotes the dialect writes
// itself are told apart from input by where they stand, not refused wholesale.
// fuzz-link: kivserver_databases
// fuzz-gate-runs: 200000
#include "DatabaseService.h"
#include "ScratchFolder.h"
#include "search/SearchLanguage.h"
#include "search/SqlTranslation.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

namespace
{
namespace db = kiv::db;
namespace search = kiv::db::search;

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// A database of the embedded store with a field of every type (one text field indexed, one
// case-sensitive), opened once: its table supplies the dialect and the field lookup.
struct Fixture
{
    std::unique_ptr<db::DatabaseService> service;
    db::Table* table = nullptr;

    Fixture()
    {
        db::ServiceEnvironment environment;
        environment.dataFolder = fuzz::makeScratchFolder("kiv-search-fuzz");
        service = std::make_unique<db::DatabaseService>(environment);
        db::DatabaseHandle handle = 0;
        require(service->openDatabase("Fuzz", db::OpenMode::Exclusive, db::OpenIntent::CreateIfMissing, "",
                                      handle) == 0);
        db::Database* database = service->database(handle);
        const std::pair<const char*, uint32_t> fields[] = {
            {"Name", 0x02060028},  {"Code", 0x08060010},   {"Price", 0x00050000},  {"Qty", 0x00020000},
            {"Stock", 0x00030000}, {"Active", 0x00010000}, {"Weight", 0x00040000}, {"Notes", 0x00070000}};
        for (const auto& [field, type] : fields)
            require(database->addField(field, type) == 0);
        table = &database->table();
    }

    std::optional<size_t> lookup(std::string_view name) const { return table->fieldIndex(name); }
    db::FieldType classOf(std::string_view name) const { return table->fields()[*lookup(name)].type(); }
};

const Fixture& fixture()
{
    static const Fixture instance;
    return instance;
}

bool isTranslatorWord(std::string_view word)
{
    static const std::string_view words[] = {"AND",  "OR",           "NOT",       "IS",   "NULL",
                                             "AS",   "CAST",         "COALESCE",  "TEXT", "ASC",
                                             "DESC", "kiv_contains", "kiv_begins"};
    for (const auto known : words)
        if (word == known)
            return true;
    for (const auto& field : fixture().table->fields())
        if (word == field.column)
            return true;
    return false;
}

bool isWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Reads the SQL text as a small lexer would and refuses anything the translator and the
// dialect do not write themselves; returns the number of parameters.
size_t countParametersOfTranslatorText(std::string_view sql)
{
    size_t parameters = 0;
    size_t at = 0;
    while (at < sql.size())
    {
        const char c = sql[at];
        if (c == ' ' || c == '(' || c == ')' || c == ',' || c == '=' || c == '<' || c == '>')
            ++at;
        else if (c == '?')
        {
            ++parameters;
            ++at;
        }
        else if (sql.compare(at, 2, "''") == 0)
        {
            // The empty text of COALESCE(column, ''): the only quotes the dialect writes.
            require(sql.substr(0, at).size() >= 2 && sql.compare(at - 2, 2, ", ") == 0);
            at += 2;
            require(at < sql.size() && sql[at] == ')');
        }
        else if ((c == '0' || c == '1') && (at + 1 == sql.size() || !isWordCharacter(sql[at + 1])))
            ++at; // the case flag of kiv_contains and kiv_begins
        else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_')
        {
            size_t end = at;
            while (end < sql.size() && isWordCharacter(sql[end]))
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

// A comparison binds its value, except that a Boolean comparison is a truth test of the column,
// and an empty value compared with = or <> on a Number field asks whether the field holds a
// value at all. CONTAINS and BEGINSWITH always bind their text.
bool bindsItsValue(const search::Node& comparison)
{
    if (comparison.op == search::Operator::Contains || comparison.op == search::Operator::BeginsWith)
        return true;
    const db::FieldType type = fixture().classOf(comparison.field);
    if (type == db::FieldType::Boolean)
        return false;
    const bool presenceTest =
        type == db::FieldType::Number &&
        (comparison.op == search::Operator::Equal || comparison.op == search::Operator::NotEqual) &&
        db::trimBlanks(comparison.value.text).empty();
    return !presenceTest;
}

// A text parameter is the value as written or without its surrounding blanks; a number
// parameter comes from a value that is not blank.
bool bindingComesFrom(const db::SqlBinding& binding, const search::Literal& value)
{
    if (const auto* text = std::get_if<std::string>(&binding.value))
        return *text == value.text || *text == db::trimBlanks(value.text);
    return !db::trimBlanks(value.text).empty();
}

void checkTranslation(const search::Query& query, const db::SqlSearch& sql)
{
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
    const Fixture& database = fixture();
    db::SqlSearch sql;
    std::string message;
    const db::FieldIndexLookup lookup = [&database](std::string_view name) { return database.lookup(name); };
    if (db::translateSearch(query, lookup, database.table->dialect(), sql, message) == 0)
        checkTranslation(query, sql);
    else
        require(!message.empty()); // a refused translation names the field or the problem
    return 0;
}
