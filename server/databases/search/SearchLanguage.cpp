// Lexer and recursive-descent parser of the search language. Keywords are recognised by
// context, so fields may be called Order or Desc: a word followed by a comparison operator is
// always a field name.
#include "SearchLanguage.h"

#include "NameRules.h"

#include <optional>

namespace kiv::db::search
{

namespace
{
struct Token
{
    enum class Kind
    {
        Word,
        Text,
        Number,
        Symbol,
        OpenParenthesis,
        CloseParenthesis,
        Comma,
        End
    };
    Kind kind = Kind::End;
    std::string text; // the word, the undoubled text, the number, or the symbol
    size_t position = 0;
};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}
bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// Token texts are quoted in messages that end up in HTML pages: keep only harmless bytes.
std::string quoteForMessage(std::string_view text)
{
    std::string shown;
    for (const char c : text.substr(0, 24))
    {
        const auto byte = static_cast<unsigned char>(c);
        const bool harmless = byte >= 0x20 && byte < 0x7F && c != '<' && c != '>' && c != '&' && c != '"';
        shown += harmless ? c : '?';
    }
    if (text.size() > 24)
        shown += "...";
    return "\"" + shown + "\"";
}

std::string at(size_t position)
{
    return " at position " + std::to_string(position);
}

bool equalsKeyword(std::string_view word, std::string_view keyword)
{
    if (word.size() != keyword.size())
        return false;
    for (size_t i = 0; i < word.size(); ++i)
    {
        char c = word[i];
        if (c >= 'a' && c <= 'z')
            c = char(c - 32);
        if (c != keyword[i])
            return false;
    }
    return true;
}

class Lexer
{
public:
    explicit Lexer(std::string_view text) : myText(text) {}

    std::optional<SyntaxError> run(std::vector<Token>& tokens)
    {
        while (true)
        {
            while (myOffset < myText.size() && isBlank(myText[myOffset]))
                ++myOffset;
            Token token;
            token.position = myOffset + 1;
            if (myOffset >= myText.size())
            {
                tokens.push_back(std::move(token));
                return std::nullopt;
            }
            if (auto error = next(token))
                return error;
            tokens.push_back(std::move(token));
        }
    }

private:
    std::optional<SyntaxError> next(Token& token)
    {
        const char c = myText[myOffset];
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\'')
            return quoted(token);
        if (isDigit(c) || c == '.' ||
            ((c == '-' || c == '+') && myOffset + 1 < myText.size() &&
             (isDigit(myText[myOffset + 1]) || myText[myOffset + 1] == '.')))
            return number(token);
        if (isFieldNameStart(byte))
        {
            token.kind = Token::Kind::Word;
            const size_t start = myOffset;
            while (myOffset < myText.size() && isFieldNamePart(static_cast<unsigned char>(myText[myOffset])))
                ++myOffset;
            token.text = std::string(myText.substr(start, myOffset - start));
            return std::nullopt;
        }
        ++myOffset;
        switch (c)
        {
        case '(':
            token.kind = Token::Kind::OpenParenthesis;
            token.text = "(";
            return std::nullopt;
        case ')':
            token.kind = Token::Kind::CloseParenthesis;
            token.text = ")";
            return std::nullopt;
        case ',':
            token.kind = Token::Kind::Comma;
            token.text = ",";
            return std::nullopt;
        case '=':
            token.kind = Token::Kind::Symbol;
            token.text = "=";
            return std::nullopt;
        case '<':
        case '>':
        case '!':
            token.kind = Token::Kind::Symbol;
            token.text = std::string(1, c);
            if (myOffset < myText.size() &&
                (myText[myOffset] == '=' || (c == '<' && myText[myOffset] == '>')))
                token.text += myText[myOffset++];
            if (token.text == "!")
                return SyntaxError{"Unexpected \"!\"" + at(token.position) + "; use != for not equal."};
            return std::nullopt;
        default:
            return SyntaxError{"Unexpected character " + quoteForMessage(std::string(1, c)) +
                               at(token.position) + "."};
        }
    }

    std::optional<SyntaxError> quoted(Token& token)
    {
        token.kind = Token::Kind::Text;
        ++myOffset; // the opening quote
        while (myOffset < myText.size())
        {
            const char c = myText[myOffset++];
            if (c != '\'')
            {
                token.text += c;
                continue;
            }
            if (myOffset < myText.size() && myText[myOffset] == '\'')
            {
                token.text += '\'';
                ++myOffset;
                continue;
            }
            return std::nullopt;
        }
        return SyntaxError{"The quoted text that begins" + at(token.position) +
                           " has no closing quote (write a quote inside a text as two quotes)."};
    }

    std::optional<SyntaxError> number(Token& token)
    {
        token.kind = Token::Kind::Number;
        const size_t start = myOffset;
        if (myText[myOffset] == '-' || myText[myOffset] == '+')
            ++myOffset;
        bool digits = false;
        bool point = false;
        while (myOffset < myText.size() && (isDigit(myText[myOffset]) || (myText[myOffset] == '.' && !point)))
        {
            point = point || myText[myOffset] == '.';
            digits = digits || isDigit(myText[myOffset]);
            ++myOffset;
        }
        if (digits && myOffset < myText.size() && (myText[myOffset] == 'e' || myText[myOffset] == 'E'))
        {
            size_t exponent = myOffset + 1;
            if (exponent < myText.size() && (myText[exponent] == '-' || myText[exponent] == '+'))
                ++exponent;
            if (exponent < myText.size() && isDigit(myText[exponent]))
            {
                myOffset = exponent;
                while (myOffset < myText.size() && isDigit(myText[myOffset]))
                    ++myOffset;
            }
        }
        token.text = std::string(myText.substr(start, myOffset - start));
        const bool runsOn =
            myOffset < myText.size() && isFieldNamePart(static_cast<unsigned char>(myText[myOffset]));
        if (!digits || runsOn || token.text.size() > 400)
        {
            while (myOffset < myText.size() && isFieldNamePart(static_cast<unsigned char>(myText[myOffset])))
                ++myOffset;
            return SyntaxError{"Malformed number " + quoteForMessage(myText.substr(start, myOffset - start)) +
                               at(token.position) + "."};
        }
        return std::nullopt;
    }

    std::string_view myText;
    size_t myOffset = 0;
};

class Parser
{
public:
    explicit Parser(std::vector<Token> tokens) : myTokens(std::move(tokens)) {}

    std::variant<Query, SyntaxError> run()
    {
        Query query;
        if (!atEnd() && !atOrderBy())
        {
            query.condition = condition(0);
            if (myError)
                return *myError;
        }
        if (atOrderBy())
        {
            myIndex += 2;
            orderList(query.order);
            if (myError)
                return *myError;
        }
        if (!atEnd())
        {
            const Token& stray = current();
            if (stray.kind == Token::Kind::CloseParenthesis)
                return SyntaxError{"Unmatched \")\"" + at(stray.position) + "."};
            return SyntaxError{"Unexpected " + quoteForMessage(stray.text) + at(stray.position) +
                               ": expected AND, OR, ORDER BY or the end of the search."};
        }
        return query;
    }

private:
    const Token& current() const { return myTokens[myIndex]; }
    const Token& peek(size_t ahead = 1) const
    {
        return myTokens[std::min(myIndex + ahead, myTokens.size() - 1)];
    }
    bool atEnd() const { return current().kind == Token::Kind::End; }
    bool isWord(const Token& token, std::string_view keyword) const
    {
        return token.kind == Token::Kind::Word && equalsKeyword(token.text, keyword);
    }
    bool atOrderBy() const { return isWord(current(), "ORDER") && isWord(peek(), "BY"); }
    bool isOperatorAt(size_t ahead) const
    {
        const Token& token = peek(ahead);
        return token.kind == Token::Kind::Symbol || isWord(token, "CONTAINS") || isWord(token, "BEGINSWITH");
    }

    std::unique_ptr<Node> fail(std::string message)
    {
        if (!myError)
            myError = SyntaxError{std::move(message)};
        return nullptr;
    }

    std::string describeCurrent() const
    {
        if (atEnd())
            return "the end of the search";
        return quoteForMessage(current().text);
    }

    static std::unique_ptr<Node> join(Node::Kind kind, std::unique_ptr<Node> left,
                                      std::unique_ptr<Node> right)
    {
        auto node = std::make_unique<Node>();
        node->kind = kind;
        node->left = std::move(left);
        node->right = std::move(right);
        return node;
    }

    std::unique_ptr<Node> condition(size_t depth)
    {
        auto left = andTerm(depth);
        while (left && isWord(current(), "OR"))
        {
            ++myIndex;
            auto right = andTerm(depth);
            if (!right)
                return nullptr;
            left = join(Node::Kind::Or, std::move(left), std::move(right));
        }
        return left;
    }

    std::unique_ptr<Node> andTerm(size_t depth)
    {
        auto left = notTerm(depth);
        while (left && isWord(current(), "AND"))
        {
            ++myIndex;
            auto right = notTerm(depth);
            if (!right)
                return nullptr;
            left = join(Node::Kind::And, std::move(left), std::move(right));
        }
        return left;
    }

    std::unique_ptr<Node> notTerm(size_t depth)
    {
        if (depth >= kMaximumDepth)
            return fail("The search is nested more than " + std::to_string(kMaximumDepth) + " levels deep" +
                        at(current().position) + ".");
        // NOT followed by an operator is a field called NOT.
        if (isWord(current(), "NOT") && !isOperatorAt(1))
        {
            ++myIndex;
            auto operand = notTerm(depth + 1);
            if (!operand)
                return nullptr;
            return join(Node::Kind::Not, std::move(operand), nullptr);
        }
        if (current().kind == Token::Kind::OpenParenthesis)
        {
            const size_t open = current().position;
            ++myIndex;
            auto inner = condition(depth + 1);
            if (!inner)
                return nullptr;
            if (current().kind != Token::Kind::CloseParenthesis)
                return fail("Expected \")\" to close the \"(\"" + at(open) + " but found " +
                            describeCurrent() + at(current().position) + ".");
            ++myIndex;
            return inner;
        }
        return comparison();
    }

    std::unique_ptr<Node> comparison()
    {
        if (++myConditions > kMaximumConditions)
            return fail("The search has more than " + std::to_string(kMaximumConditions) + " comparisons.");
        const Token& field = current();
        if (field.kind != Token::Kind::Word)
            return fail("Expected a field name" + at(field.position) + " but found " + describeCurrent() +
                        ".");
        auto node = std::make_unique<Node>();
        node->field = field.text;
        node->position = field.position;
        ++myIndex;
        const Token& op = current();
        if (op.kind == Token::Kind::Symbol)
        {
            static const std::pair<std::string_view, Operator> symbols[] = {
                {"=", Operator::Equal},          {"<>", Operator::NotEqual}, {"!=", Operator::NotEqual},
                {"<", Operator::Less},           {">", Operator::Greater},   {"<=", Operator::LessOrEqual},
                {">=", Operator::GreaterOrEqual}};
            bool known = false;
            for (const auto& [text, value] : symbols)
                if (op.text == text)
                {
                    node->op = value;
                    known = true;
                }
            if (!known)
                return fail("Unknown operator " + quoteForMessage(op.text) + at(op.position) + ".");
        }
        else if (isWord(op, "CONTAINS"))
            node->op = Operator::Contains;
        else if (isWord(op, "BEGINSWITH"))
            node->op = Operator::BeginsWith;
        else
            return fail("Expected a comparison operator after the field " + quoteForMessage(field.text) +
                        at(op.position) + " but found " + describeCurrent() + ".");
        ++myIndex;
        const Token& value = current();
        if (value.kind == Token::Kind::Text)
            node->value = Literal{Literal::Kind::Text, value.text};
        else if (value.kind == Token::Kind::Number)
            node->value = Literal{Literal::Kind::Number, value.text};
        else if (isWord(value, "TRUE") || isWord(value, "FALSE"))
            node->value = Literal{Literal::Kind::Number, isWord(value, "TRUE") ? "1" : "0"};
        else
            return fail("Expected a value (a quoted text or a number)" + at(value.position) + " but found " +
                        describeCurrent() + ".");
        ++myIndex;
        return node;
    }

    void orderList(std::vector<OrderItem>& order)
    {
        while (true)
        {
            const Token& field = current();
            if (field.kind != Token::Kind::Word)
            {
                fail("Expected a field name after ORDER BY" + at(field.position) + " but found " +
                     describeCurrent() + ".");
                return;
            }
            if (order.size() == kMaximumOrderItems)
            {
                fail("ORDER BY can name at most " + std::to_string(kMaximumOrderItems) + " fields.");
                return;
            }
            OrderItem item{field.text, false, field.position};
            ++myIndex;
            if (isWord(current(), "ASC") || isWord(current(), "DESC"))
            {
                item.descending = isWord(current(), "DESC");
                ++myIndex;
            }
            order.push_back(std::move(item));
            if (current().kind != Token::Kind::Comma)
                return;
            ++myIndex;
        }
    }

    std::vector<Token> myTokens;
    size_t myIndex = 0;
    size_t myConditions = 0;
    std::optional<SyntaxError> myError;
};

void collectFields(const Node* node, std::vector<const std::string*>& fields)
{
    if (!node)
        return;
    if (node->kind == Node::Kind::Comparison)
    {
        fields.push_back(&node->field);
        return;
    }
    collectFields(node->left.get(), fields);
    collectFields(node->right.get(), fields);
}
} // namespace

std::variant<Query, SyntaxError> parseSearch(std::string_view text)
{
    if (text.size() > kMaximumSearchLength)
        return SyntaxError{"The search is longer than " + std::to_string(kMaximumSearchLength) + " bytes."};
    if (text.find('\0') != std::string_view::npos)
        return SyntaxError{"The search contains a NUL byte at position " +
                           std::to_string(text.find('\0') + 1) + "."};
    std::vector<Token> tokens;
    if (auto error = Lexer(text).run(tokens))
        return *error;
    return Parser(std::move(tokens)).run();
}

std::vector<const std::string*> fieldsOf(const Query& query)
{
    std::vector<const std::string*> fields;
    collectFields(query.condition.get(), fields);
    for (const auto& item : query.order)
        fields.push_back(&item.field);
    return fields;
}

} // namespace kiv::db::search
