// Search tree to SQL for data sources. Comparisons follow the column's value class: numbers
// compare by value, text by the column's collation, folded to lower case unless the driver
// reports the column as case-sensitive. Every comparison yields true or false, never NULL, so
// NOT means what a reader expects.
#include "OdbcSearch.h"

#include "DatabaseResultCodes.h"
#include "DecimalText.h"
#include "OdbcColumn.h"
#include "SearchToSql.h"

namespace kiv::db::odbc
{

namespace
{
using search::Node;
using search::Operator;

// LIKE patterns escape their wildcards with '!' rather than a backslash, whose meaning in a
// string literal differs between servers.
std::string likePattern(const std::string& value, bool contains)
{
    std::string pattern = contains ? "%" : "";
    for (const char c : value)
    {
        if (c == '%' || c == '_' || c == '!')
            pattern += '!';
        pattern += c;
    }
    return pattern + "%";
}

class Translator
{
public:
    Translator(const ColumnLookup& lookup, const QuoteIdentifier& quote, OdbcSearch& sql,
               std::string& message)
        : myLookup(lookup), myQuote(quote), mySql(sql), myMessage(message)
    {
    }

    uint32_t condition(const Node& node, std::string& out)
    {
        return writeCondition(
            node,
            [this](const Node& comparison, std::string& text) { return this->comparison(comparison, text); },
            out);
    }

    uint32_t order(const std::vector<search::OrderItem>& items)
    {
        for (const auto& item : items)
        {
            const Column* column = myLookup(item.field);
            if (!column)
                return notFound(item.field);
            mySql.orderBy += (mySql.orderBy.empty() ? "" : ", ") + myQuote(column->field.column) +
                             (item.descending ? " DESC" : " ASC");
        }
        return result::kSuccess;
    }

private:
    uint32_t notFound(const std::string& name)
    {
        myMessage = name;
        return result::kFieldNotFound;
    }

    uint32_t badValue(const Node& node, const Column& column, const std::string& why)
    {
        myMessage = "The value for the field " + column.field.name + " at position " +
                    std::to_string(node.position) + " " + why;
        return result::kImproperFormat;
    }

    std::string bind(Parameter parameter)
    {
        mySql.parameters.push_back(std::move(parameter));
        return "?";
    }

    void textMatch(const Node& node, const std::string& text, bool fold, std::string& out)
    {
        const std::string pattern = likePattern(node.value.text, node.op == Operator::Contains);
        if (fold)
            out = "(LOWER(" + text + ") LIKE LOWER(" + bind(Parameter::ofText(pattern)) + ") ESCAPE '!')";
        else
            out = "(" + text + " LIKE " + bind(Parameter::ofText(pattern)) + " ESCAPE '!')";
    }

    uint32_t comparison(const Node& node, std::string& out)
    {
        const Column* column = myLookup(node.field);
        if (!column)
            return notFound(node.field);
        const std::string name = myQuote(column->field.column);
        const bool matching = node.op == Operator::Contains || node.op == Operator::BeginsWith;
        const std::string symbol = comparisonSymbol(node.op);
        const std::string value(trimBlanks(node.value.text));
        const std::string asText = "COALESCE(CAST(" + name + " AS VARCHAR(255)), '')";
        switch (column->classOrText())
        {
        case FieldType::Text:
        case FieldType::LongText:
        {
            const bool fold = !column->field.caseSensitive();
            const std::string text = column->valueClass ? "COALESCE(" + name + ", '')" : asText;
            if (matching)
                textMatch(node, text, fold, out);
            else if (fold)
                out = "(LOWER(" + text + ") " + symbol + " LOWER(" +
                      bind(Parameter::ofText(node.value.text)) + "))";
            else
                out = "(" + text + " " + symbol + " " + bind(Parameter::ofText(node.value.text)) + ")";
            return result::kSuccess;
        }
        case FieldType::Number:
            if (matching)
            {
                textMatch(node, asText, false, out);
                return result::kSuccess;
            }
            if (value.empty())
            {
                if (node.op != Operator::Equal && node.op != Operator::NotEqual)
                    return badValue(node, *column,
                                    "is empty; an empty value can only be compared with = or <>.");
                out = "(" + name + (node.op == Operator::Equal ? " IS NULL)" : " IS NOT NULL)");
                return result::kSuccess;
            }
            if (!isDecimalText(value))
                return badValue(node, *column, "is not a number.");
            {
                const std::string parameter = bind(Parameter::ofText(value, SQL_NUMERIC));
                if (node.op == Operator::NotEqual)
                    out = "(" + name + " IS NULL OR " + name + " <> " + parameter + ")";
                else
                    out = "(" + name + " IS NOT NULL AND " + name + " " + symbol + " " + parameter + ")";
            }
            return result::kSuccess;
        case FieldType::Boolean:
        {
            if (matching)
            {
                textMatch(node, asText, false, out);
                return result::kSuccess;
            }
            const auto truth = parseTruth(value);
            if (!truth || value.empty())
                return badValue(node, *column, "is not true or false (write 1, 0, true or false).");
            if (node.op != Operator::Equal && node.op != Operator::NotEqual)
                return badValue(node, *column, "can only be compared with = or <>.");
            // A missing value counts as false, as the record buffer shows it.
            const std::string test = "(" + name + " = " + bind(column->parameterOf(int64_t(1))) + ")";
            const bool wantTrue = *truth == (node.op == Operator::Equal);
            out = wantTrue ? "(" + name + " IS NOT NULL AND " + test + ")"
                           : "(" + name + " IS NULL OR NOT " + test + ")";
            return result::kSuccess;
        }
        case FieldType::Float:
        case FieldType::Integer:
        case FieldType::UInteger:
        {
            if (matching)
            {
                textMatch(node, asText, false, out);
                return result::kSuccess;
            }
            Parameter parameter;
            if (const auto whole = parseInteger(value))
                parameter = Parameter::ofInteger(*whole);
            else if (const auto real = parseDouble(value))
                parameter = Parameter::ofDouble(*real);
            else
                return badValue(node, *column, "is not a number.");
            out = "(COALESCE(" + name + ", 0) " + symbol + " " + bind(std::move(parameter)) + ")";
            return result::kSuccess;
        }
        }
        return badValue(node, *column, "cannot be compared: the field has an unknown type.");
    }

    const ColumnLookup& myLookup;
    const QuoteIdentifier& myQuote;
    OdbcSearch& mySql;
    std::string& myMessage;
};
} // namespace

uint32_t translateSearch(const search::Query& query, const ColumnLookup& lookup, const QuoteIdentifier& quote,
                         OdbcSearch& sql, std::string& message)
{
    sql = OdbcSearch();
    Translator translator(lookup, quote, sql, message);
    if (query.condition)
        if (const uint32_t code = translator.condition(*query.condition, sql.where); code != result::kSuccess)
            return code;
    return translator.order(query.order);
}

} // namespace kiv::db::odbc
