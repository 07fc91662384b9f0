// The search language of the embedded databases, parsed into a tree. This part knows nothing
// of SQL or SQLite: a backend walks the tree and turns it into its own query with every value
// bound as a parameter. docs/search-language.md describes the language.
//
//   search     := [condition] [ORDER BY orderItem {"," orderItem}]
//   condition  := andTerm {OR andTerm}
//   andTerm    := notTerm {AND notTerm}
//   notTerm    := NOT notTerm | "(" condition ")" | comparison
//   comparison := field operator value
//   operator   := "=" | "<>" | "!=" | "<" | ">" | "<=" | ">=" | CONTAINS | BEGINSWITH
//   value      := 'quoted text' | number | TRUE | FALSE
//   orderItem  := field [ASC | DESC]
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kiv::db::search
{

// Limits that keep hostile input cheap: every one is refused with a clear message.
constexpr size_t kMaximumSearchLength = 100000;
constexpr size_t kMaximumDepth = 32;
constexpr size_t kMaximumConditions = 256;
constexpr size_t kMaximumOrderItems = 16;

enum class Operator
{
    Equal,
    NotEqual,
    Less,
    Greater,
    LessOrEqual,
    GreaterOrEqual,
    Contains,
    BeginsWith
};

struct Literal
{
    enum class Kind
    {
        Text,  // from a quoted text, quotes undoubled
        Number // from a bare number (or TRUE = 1, FALSE = 0), as written
    };
    Kind kind = Kind::Text;
    std::string text;
};

struct Node
{
    enum class Kind
    {
        And,
        Or,
        Not,
        Comparison
    };
    Kind kind = Kind::Comparison;
    std::unique_ptr<Node> left;  // And, Or, Not
    std::unique_ptr<Node> right; // And, Or
    // Comparison
    std::string field;
    Operator op = Operator::Equal;
    Literal value;
    size_t position = 0; // 1-based byte position of the field name, for messages
};

struct OrderItem
{
    std::string field;
    bool descending = false;
    size_t position = 0;
};

struct Query
{
    std::unique_ptr<Node> condition; // null: every record
    std::vector<OrderItem> order;
};

struct SyntaxError
{
    std::string message; // says what is wrong and where ("... at position 12")
};

std::variant<Query, SyntaxError> parseSearch(std::string_view text);

// Every field name a query mentions, in order of appearance (for checking against a database).
std::vector<const std::string*> fieldsOf(const Query& query);

} // namespace kiv::db::search
