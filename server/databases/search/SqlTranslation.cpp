// Search tree to SQL. Comparisons follow the field's value class: numbers compare by value
// (Number fields exactly), text by the store's text comparison, Booleans by truth. Every
// comparison yields true or false, never NULL, so NOT means what a reader expects.
#include "search/SqlTranslation.h"

#include "DecimalText.h"
#include "KivModuleInterface.h"

namespace kiv::db
{

namespace
{
using search::Node;
using search::Operator;

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

class Translator
{
public:
    Translator(const FieldIndexLookup& lookup, const SqlDialect& dialect, SqlSearch& sql,
               std::string& message)
        : myLookup(lookup), myDialect(dialect), mySql(sql), myMessage(message),
          myBinder([this](SqlBinding binding) { return bind(std::move(binding)); })
    {
    }

    // A chain of one operator becomes one flat parenthesised list: SQLite's parser has a
    // small stack, and "a AND b AND c" must not nest as deep as the chain is long.
    uint32_t condition(const Node& node, std::string& out)
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
                if (const uint32_t code = condition(*operands[i], operand); code != kKivResult_Success)
                    return code;
                out += (i ? glue : "") + operand;
            }
            out += ")";
            return kKivResult_Success;
        }
        case Node::Kind::Not:
        {
            std::string operand;
            if (const uint32_t code = condition(*node.left, operand); code != kKivResult_Success)
                return code;
            out = "(NOT " + operand + ")";
            return kKivResult_Success;
        }
        case Node::Kind::Comparison:
            return comparison(node, out);
        }
        return kKivResult_UnknownError;
    }

    uint32_t order(const std::vector<search::OrderItem>& items)
    {
        for (const auto& item : items)
        {
            const auto field = myLookup(item.field);
            if (!field)
                return notFound(item.field);
            // Long text has no order the stores agree on; the editor offers no ordering by it.
            if (myDialect.classOf(*field) == FieldType::LongText)
            {
                myMessage = myDialect.fieldName(*field);
                return kKivResult_NotIndexed;
            }
            mySql.orderBy += (mySql.orderBy.empty() ? "" : ", ") + myDialect.column(*field) +
                             (item.descending ? " DESC" : " ASC");
        }
        return kKivResult_Success;
    }

private:
    uint32_t notFound(const std::string& name)
    {
        myMessage = name;
        return kKivResult_NotFound;
    }

    uint32_t badValue(const Node& node, size_t field, const std::string& why)
    {
        myMessage = "The value for the field " + myDialect.fieldName(field) + " at position " +
                    std::to_string(node.position) + " " + why;
        return kKivResult_ImproperFormat;
    }

    // Made in place: moving a binding in makes GCC suspect the variant's copy reads it
    // uninitialised.
    template <typename... Arguments> std::string bind(Arguments&&... arguments)
    {
        mySql.bindings.emplace_back(std::forward<Arguments>(arguments)...);
        return "?";
    }

    uint32_t comparison(const Node& node, std::string& out)
    {
        const auto found = myLookup(node.field);
        if (!found)
            return notFound(node.field);
        const size_t field = *found;
        if (node.op == Operator::Contains || node.op == Operator::BeginsWith)
        {
            out = myDialect.matchText(field, node.op == Operator::Contains, node.value.text, myBinder);
            return kKivResult_Success;
        }
        const char* symbol = comparisonSymbol(node.op);
        const std::string value(trimBlanks(node.value.text));
        switch (myDialect.classOf(field))
        {
        case FieldType::Text:
        case FieldType::LongText:
            out = myDialect.compareText(field, symbol, bind(node.value.text));
            return kKivResult_Success;
        case FieldType::Number:
            return number(node, field, symbol, value, out);
        case FieldType::Boolean:
        {
            const auto truth = parseTruth(value);
            if (!truth || value.empty())
                return badValue(node, field, "is not true or false (write 1, 0, true or false).");
            if (node.op != Operator::Equal && node.op != Operator::NotEqual)
                return badValue(node, field, "can only be compared with = or <>.");
            const std::string test = myDialect.isTrue(field, myBinder);
            out = *truth == (node.op == Operator::Equal) ? test : "(NOT " + test + ")";
            return kKivResult_Success;
        }
        case FieldType::Float:
        case FieldType::Integer:
        case FieldType::UInteger:
            if (const auto whole = parseInteger(value))
                out = myDialect.compareNumber(field, symbol, bind(*whole));
            else if (const auto real = parseDouble(value))
                out = myDialect.compareNumber(field, symbol, bind(*real));
            else
                return badValue(node, field, "is not a number.");
            return kKivResult_Success;
        }
        return badValue(node, field, "cannot be compared: the field has an unknown type.");
    }

    // A Number field may hold no value; '' asks for exactly that.
    uint32_t number(const Node& node, size_t field, const char* symbol, const std::string& value,
                    std::string& out)
    {
        const std::string column = myDialect.column(field);
        if (value.empty())
        {
            if (node.op != Operator::Equal && node.op != Operator::NotEqual)
                return badValue(node, field, "is empty; an empty value can only be compared with = or <>.");
            out = "(" + column + (node.op == Operator::Equal ? " IS NULL)" : " IS NOT NULL)");
            return kKivResult_Success;
        }
        if (!isDecimalText(value))
            return badValue(node, field, "is not a number.");
        const std::string parameter = bind(value, SqlBinding::As::Decimal);
        if (node.op == Operator::NotEqual)
            out = "(" + column + " IS NULL OR " + column + " <> " + parameter + ")";
        else
            out = "(" + column + " IS NOT NULL AND " + column + " " + symbol + " " + parameter + ")";
        return kKivResult_Success;
    }

    const FieldIndexLookup& myLookup;
    const SqlDialect& myDialect;
    SqlSearch& mySql;
    std::string& myMessage;
    SqlBinder myBinder;
};
} // namespace

uint32_t translateSearch(const search::Query& query, const FieldIndexLookup& lookup,
                         const SqlDialect& dialect, SqlSearch& sql, std::string& message)
{
    sql = SqlSearch();
    Translator translator(lookup, dialect, sql, message);
    if (query.condition)
        if (const uint32_t code = translator.condition(*query.condition, sql.where);
            code != kKivResult_Success)
            return code;
    return translator.order(query.order);
}

} // namespace kiv::db
