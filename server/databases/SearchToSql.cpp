// Search tree to SQL. Comparisons follow the field's type: numbers compare by value (Number
// fields exactly, through the KIVNUM collation), text by the column's collation (binary when
// the field is case-sensitive, KIVNOCASE otherwise). Every comparison yields true or false,
// never NULL, so NOT means what a reader expects.
#include "SearchToSql.h"

#include "DatabaseResultCodes.h"
#include "DecimalText.h"

namespace kiv::db
{

namespace
{
using search::Literal;
using search::Node;
using search::Operator;

class Translator
{
public:
    Translator(const FieldLookup& lookup, SqlSearch& sql, std::string& message)
        : myLookup(lookup), mySql(sql), myMessage(message)
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
            const FieldDefinition* field = myLookup(item.field);
            if (!field)
                return notFound(item.field);
            mySql.orderBy += field->column + (item.descending ? " DESC, " : " ASC, ");
        }
        mySql.orderBy += "kiv_rowid";
        return result::kSuccess;
    }

private:
    uint32_t notFound(const std::string& name)
    {
        myMessage = name;
        return result::kFieldNotFound;
    }

    uint32_t badValue(const Node& node, const FieldDefinition& field, const std::string& why)
    {
        myMessage = "The value for the field " + field.name + " at position " +
                    std::to_string(node.position) + " " + why;
        return result::kImproperFormat;
    }

    std::string bind(SqlBinding value)
    {
        mySql.bindings.push_back(std::move(value));
        return "?";
    }

    // CONTAINS and BEGINSWITH look at the value's text; they work on every type.
    void textMatch(const Node& node, const FieldDefinition& field, const std::string& column,
                   std::string& out)
    {
        const char* function = node.op == Operator::Contains ? "kiv_contains(" : "kiv_begins(";
        const bool caseSensitive = !field.isTextual() || field.caseSensitive();
        out = std::string(function) + column + ", " + bind(node.value.text) + ", " +
              (caseSensitive ? "1" : "0") + ")";
    }

    uint32_t comparison(const Node& node, std::string& out)
    {
        const FieldDefinition* field = myLookup(node.field);
        if (!field)
            return notFound(node.field);
        const std::string& column = field->column;
        const bool matching = node.op == Operator::Contains || node.op == Operator::BeginsWith;
        const std::string symbol = comparisonSymbol(node.op);
        const std::string value(trimBlanks(node.value.text));
        switch (field->type())
        {
        case FieldType::Text:
        case FieldType::LongText:
            if (matching)
                textMatch(node, *field, column, out);
            else
                out = "(" + column + " " + symbol + " " + bind(node.value.text) + ")";
            return result::kSuccess;
        case FieldType::Number:
            if (matching)
            {
                textMatch(node, *field, "COALESCE(" + column + ", '')", out);
                return result::kSuccess;
            }
            if (value.empty())
            {
                // A Number field may hold no value; '' asks for exactly that.
                if (node.op != Operator::Equal && node.op != Operator::NotEqual)
                    return badValue(node, *field,
                                    "is empty; an empty value can only be compared with = or <>.");
                out = "(" + column + (node.op == Operator::Equal ? " IS NULL)" : " IS NOT NULL)");
                return result::kSuccess;
            }
            if (!isDecimalText(value))
                return badValue(node, *field, "is not a number.");
            if (node.op == Operator::NotEqual)
                out = "(" + column + " IS NULL OR " + column + " <> " + bind(value) + ")";
            else
                out = "(" + column + " IS NOT NULL AND " + column + " " + symbol + " " + bind(value) + ")";
            return result::kSuccess;
        case FieldType::Float:
        case FieldType::Integer:
        case FieldType::UInteger:
        case FieldType::Boolean:
        {
            if (matching)
            {
                textMatch(node, *field, "CAST(" + column + " AS TEXT)", out);
                return result::kSuccess;
            }
            // Each kind of value is bound where it is known: a default-constructed binding
            // assigned later makes GCC suspect the variant's copy reads it uninitialised.
            const auto compareWith = [&](SqlBinding binding)
            {
                out = "(" + column + " " + symbol + " " + bind(std::move(binding)) + ")";
                return result::kSuccess;
            };
            if (field->type() == FieldType::Boolean)
            {
                const auto truth = parseTruth(value);
                if (!truth || value.empty())
                    return badValue(node, *field, "is not true or false (write 1, 0, true or false).");
                return compareWith(int64_t(*truth));
            }
            if (const auto whole = parseInteger(value))
                return compareWith(*whole);
            if (const auto real = parseDouble(value))
                return compareWith(*real);
            return badValue(node, *field, "is not a number.");
        }
        }
        return badValue(node, *field, "cannot be compared: the field has an unknown type.");
    }

    const FieldLookup& myLookup;
    SqlSearch& mySql;
    std::string& myMessage;
};
} // namespace

const char* comparisonSymbol(Operator op)
{
    switch (op)
    {
    case Operator::NotEqual:
        return "<>";
    case Operator::Less:
        return "<";
    case Operator::Greater:
        return ">";
    case Operator::LessOrEqual:
        return "<=";
    case Operator::GreaterOrEqual:
        return ">=";
    default:
        return "=";
    }
}

namespace
{
void collectChain(const Node& node, Node::Kind kind, std::vector<const Node*>& operands)
{
    if (node.kind != kind)
    {
        operands.push_back(&node);
        return;
    }
    collectChain(*node.left, kind, operands);
    collectChain(*node.right, kind, operands);
}
} // namespace

uint32_t writeCondition(const Node& node, const ComparisonWriter& comparison, std::string& out)
{
    switch (node.kind)
    {
    case Node::Kind::And:
    case Node::Kind::Or:
    {
        std::vector<const Node*> operands;
        collectChain(node, node.kind, operands);
        const char* glue = node.kind == Node::Kind::And ? " AND " : " OR ";
        out = "(";
        for (size_t i = 0; i < operands.size(); ++i)
        {
            std::string operand;
            if (const uint32_t code = writeCondition(*operands[i], comparison, operand);
                code != result::kSuccess)
                return code;
            out += (i ? glue : "") + operand;
        }
        out += ")";
        return result::kSuccess;
    }
    case Node::Kind::Not:
    {
        std::string operand;
        if (const uint32_t code = writeCondition(*node.left, comparison, operand); code != result::kSuccess)
            return code;
        out = "(NOT " + operand + ")";
        return result::kSuccess;
    }
    case Node::Kind::Comparison:
        return comparison(node, out);
    }
    return result::kUnknownError;
}

uint32_t translateSearch(const search::Query& query, const FieldLookup& lookup, SqlSearch& sql,
                         std::string& message)
{
    sql = SqlSearch();
    Translator translator(lookup, sql, message);
    if (query.condition)
        if (const uint32_t code = translator.condition(*query.condition, sql.where); code != result::kSuccess)
            return code;
    return translator.order(query.order);
}

} // namespace kiv::db
