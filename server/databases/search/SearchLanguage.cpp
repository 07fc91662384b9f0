// Lexer and recursive-descent parser of the search language. Field names may hold blanks and
// punctuation, so a name is not one token: the lexer makes tokens of everything a name can
// hold and keeps each token's place in the text, and the parser takes a name as the text from
// its first token up to the comparison operator that a value follows (after ORDER BY, up to
// the next comma). Keywords are recognised by context, so fields may be called Order, Desc or
// Not. What makes no sense on its own (a "#", a lone "!", "12abc") becomes a piece that a name
// may hold and that is refused, in the lexer's words, anywhere else.
#include "SearchLanguage.h"

#include "NameRules.h"

#include <algorithm>
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
        Bracket, // a field name in brackets; the text is the name, "]]" undoubled
        Piece,   // anything else: a part of a name, or a byte nothing may hold
        OpenParenthesis,
        CloseParenthesis,
        Comma,
        End
    };
    Kind kind = Kind::End;
    std::string text;    // the word, the undoubled text or name, the number, the symbol, the piece
    size_t position = 0; // 1-based byte position of its first byte
    size_t end = 0;      // offset just past it
    bool inName = false; // may be part of a field name written without brackets
    // A piece: why it cannot stand where a name does not go on (the message is made only when
    // it is reported, so that a long run of odd bytes costs no allocations).
    enum class Problem
    {
        None,
        UnexpectedCharacter,
        LoneExclamationMark,
        MalformedNumber,
        UnclosedBracket,
        EmptyBrackets
    };
    Problem problem = Problem::None;
};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}
bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}
bool isWordStart(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0xA0;
}
bool isWordPart(unsigned char c)
{
    return isWordStart(c) || isDigit(char(c));
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Text that can be a field name written without brackets.
bool isNameText(std::string_view name)
{
    if (name.empty() || name.size() > kMaximumFieldNameLength)
        return false;
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return isFieldNameByte(static_cast<unsigned char>(c)); });
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

bool hasProblem(const Token& token)
{
    return token.problem != Token::Problem::None;
}

std::string problemOf(const Token& token)
{
    switch (token.problem)
    {
    case Token::Problem::None:
        break;
    case Token::Problem::UnexpectedCharacter:
        if (token.text == "\"")
            return "Unexpected character " + quoteForMessage(token.text) + at(token.position) +
                   ". A text is written in single quotes, 'Paris', and a field name with blanks may be "
                   "written "
                   "in brackets, [Date of birth].";
        return "Unexpected character " + quoteForMessage(token.text) + at(token.position) + ".";
    case Token::Problem::LoneExclamationMark:
        return "Unexpected \"!\"" + at(token.position) + "; use != for not equal.";
    case Token::Problem::MalformedNumber:
        return "Malformed number " + quoteForMessage(token.text) + at(token.position) + ".";
    case Token::Problem::UnclosedBracket:
        return "The \"[\"" + at(token.position) +
               " has no closing \"]\" (write a \"]\" inside a name as two).";
    case Token::Problem::EmptyBrackets:
        return "The brackets" + at(token.position) + " hold no field name.";
    }
    return {};
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
                token.end = myOffset;
                tokens.push_back(std::move(token));
                return std::nullopt;
            }
            if (auto error = next(token))
                return error;
            token.end = myOffset;
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
        {
            number(token);
            return std::nullopt;
        }
        if (isWordStart(byte))
        {
            token.kind = Token::Kind::Word;
            token.inName = true;
            const size_t start = myOffset;
            while (myOffset < myText.size() && isWordPart(static_cast<unsigned char>(myText[myOffset])))
                ++myOffset;
            token.text = std::string(myText.substr(start, myOffset - start));
            return std::nullopt;
        }
        if (c == '[')
        {
            bracket(token);
            return std::nullopt;
        }
        ++myOffset;
        token.text = std::string(1, c);
        switch (c)
        {
        case '(':
            token.kind = Token::Kind::OpenParenthesis;
            return std::nullopt;
        case ')':
            token.kind = Token::Kind::CloseParenthesis;
            return std::nullopt;
        case ',':
            token.kind = Token::Kind::Comma;
            return std::nullopt;
        case '=':
        case '<':
        case '>':
        case '!':
            token.kind = Token::Kind::Symbol;
            token.inName = true;
            if (c != '=' && myOffset < myText.size() &&
                (myText[myOffset] == '=' || (c == '<' && myText[myOffset] == '>')))
                token.text += myText[myOffset++];
            if (token.text == "!")
            {
                token.kind = Token::Kind::Piece;
                token.problem = Token::Problem::LoneExclamationMark;
            }
            return std::nullopt;
        default:
            token.kind = Token::Kind::Piece;
            token.inName = isFieldNameByte(byte);
            token.problem = Token::Problem::UnexpectedCharacter;
            return std::nullopt;
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

    // "[Date of birth]", a "]" inside written as two. A quote ends the search for the closing
    // bracket (no name holds one), so that a "[" in a name written without brackets, as in
    // "Size [cm = '3'", stays a part of that name.
    void bracket(Token& token)
    {
        const size_t start = myOffset++;
        std::string name;
        // A "[" before the point where an earlier one found no "]" finds none either (it sees
        // the same runs of "]"): not scanning again keeps "[[[[..." linear.
        while (start >= myNoClosingBracketBefore && myOffset < myText.size() && myText[myOffset] != '\'')
        {
            const char c = myText[myOffset++];
            if (c != ']')
            {
                name += c;
                continue;
            }
            if (myOffset < myText.size() && myText[myOffset] == ']')
            {
                name += ']';
                ++myOffset;
                continue;
            }
            token.kind = Token::Kind::Bracket;
            token.text = std::move(name);
            token.inName = true;
            if (trimmed(token.text).empty())
            {
                token.kind = Token::Kind::Piece;
                token.inName = false;
                token.problem = Token::Problem::EmptyBrackets;
            }
            return;
        }
        myNoClosingBracketBefore = std::max(myNoClosingBracketBefore, myOffset);
        myOffset = start + 1;
        token.kind = Token::Kind::Piece;
        token.text = "[";
        token.inName = true;
        token.problem = Token::Problem::UnclosedBracket;
    }

    void number(Token& token)
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
        const bool runsOn =
            myOffset < myText.size() && isWordPart(static_cast<unsigned char>(myText[myOffset]));
        if (!digits || runsOn || myOffset - start > 400)
        {
            // "2nd" may begin a name ("2nd phone"); as a value it is a malformed number.
            while (myOffset < myText.size() && isWordPart(static_cast<unsigned char>(myText[myOffset])))
                ++myOffset;
            token.kind = Token::Kind::Piece;
            token.problem = Token::Problem::MalformedNumber;
        }
        token.text = std::string(myText.substr(start, myOffset - start));
        token.inName = token.text.find('.') == std::string::npos;
    }

    std::string_view myText;
    size_t myOffset = 0;
    size_t myNoClosingBracketBefore = 0;
};

class Parser
{
public:
    Parser(std::string_view text, std::vector<Token> tokens, const FieldCheck& isField)
        : myText(text), myTokens(std::move(tokens)), myIsField(isField)
    {
    }

    std::variant<Query, SyntaxError> run()
    {
        Query query;
        // A search that begins with a field called "Order by date" compares it.
        if (!atEnd() && (!atOrderBy() || startsKnownComparison()))
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
            if (hasProblem(stray))
                return SyntaxError{problemOf(stray)};
            if (stray.kind == Token::Kind::CloseParenthesis)
                return SyntaxError{"Unmatched \")\"" + at(stray.position) + "."};
            return SyntaxError{"Unexpected " + describe(stray) + at(stray.position) +
                               ": expected AND, OR, ORDER BY or the end of the search."};
        }
        return query;
    }

private:
    // A way to read a comparison's field name: up to the operator at `operatorIndex`.
    struct Reading
    {
        size_t operatorIndex = 0;
        std::string name;
        bool known = false; // names a field of the database
    };

    const Token& current() const { return myTokens[myIndex]; }
    const Token& tokenAt(size_t index) const { return myTokens[std::min(index, myTokens.size() - 1)]; }
    bool atEnd() const { return current().kind == Token::Kind::End; }
    static bool isWord(const Token& token, std::string_view keyword)
    {
        return token.kind == Token::Kind::Word && equalsKeyword(token.text, keyword);
    }
    bool atOrderBy() const { return isWord(current(), "ORDER") && isWord(tokenAt(myIndex + 1), "BY"); }
    static bool isOperator(const Token& token)
    {
        return token.kind == Token::Kind::Symbol || isWord(token, "CONTAINS") || isWord(token, "BEGINSWITH");
    }
    static bool isValue(const Token& token)
    {
        return token.kind == Token::Kind::Text || token.kind == Token::Kind::Number ||
               isWord(token, "TRUE") || isWord(token, "FALSE");
    }
    bool known(std::string_view name) const { return myIsField && myIsField(name); }

    // The text of the tokens [first, last), blanks around it left out.
    std::string_view textOf(size_t first, size_t last) const
    {
        const size_t from = myTokens[first].position - 1;
        return trimmed(myText.substr(from, myTokens[last - 1].end - from));
    }

    static std::string describe(const Token& token)
    {
        if (token.kind == Token::Kind::End)
            return "the end of the search";
        return quoteForMessage(token.kind == Token::Kind::Bracket ? "[" + token.text + "]" : token.text);
    }

    std::unique_ptr<Node> fail(std::string message)
    {
        if (!myError)
            myError = SyntaxError{std::move(message)};
        return nullptr;
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

    // The field name of a comparison that begins at token `first`: the name in brackets, or
    // the text up to an operator that a value follows. Of several such operators, the longest
    // reading that names a field wins, and without one the shortest.
    std::optional<Reading> comparisonReading(size_t first) const
    {
        std::optional<Reading> shortest;
        std::optional<Reading> longestKnown;
        const Token& head = tokenAt(first);
        if (head.kind == Token::Kind::Bracket && isOperator(tokenAt(first + 1)) &&
            isValue(tokenAt(first + 2)))
        {
            const auto name = trimmed(head.text);
            if (name.size() <= kMaximumFieldNameLength)
            {
                Reading reading{first + 1, std::string(name), known(name)};
                if (reading.known)
                    return reading;
                shortest = std::move(reading);
            }
        }
        for (size_t next = first + 1; next < myTokens.size() && myTokens[next - 1].inName; ++next)
        {
            const auto name = textOf(first, next);
            if (name.size() > kMaximumFieldNameLength)
                break;
            if (!isOperator(myTokens[next]) || !isValue(tokenAt(next + 1)) || !isNameText(name))
                continue;
            Reading reading{next, std::string(name), known(name)};
            if (reading.known)
                longestKnown = reading;
            if (!shortest)
                shortest = std::move(reading);
        }
        return longestKnown ? longestKnown : shortest;
    }

    bool startsKnownComparison() const
    {
        const auto reading = comparisonReading(myIndex);
        return reading && reading->known;
    }

    // Why no comparison begins at token `first`, as precisely as the tokens allow.
    std::string notAComparison(size_t first) const
    {
        const Token& head = myTokens[first];
        if (head.kind == Token::Kind::Symbol || (!head.inName && !hasProblem(head)))
            return "Expected a field name" + at(head.position) + " but found " + describe(head) + ".";
        size_t next = first;
        for (; myTokens[next].inName; ++next)
        {
            const Token& token = myTokens[next];
            if (hasProblem(token))
                return problemOf(token);
            if (next > first && isOperator(token))
            {
                const Token& value = tokenAt(next + 1);
                if (hasProblem(value))
                    return problemOf(value);
                if (!isValue(value))
                    return "Expected a value (a quoted text or a number)" + at(value.position) +
                           " but found " + describe(value) + ".";
                return "The field name " + quoteForMessage(textOf(first, next)) + at(head.position) +
                       " is longer than " + std::to_string(kMaximumFieldNameLength) +
                       " bytes or holds a character that field names cannot have.";
            }
            if (textOf(first, next + 1).size() > kMaximumFieldNameLength)
                return "The field name that begins" + at(head.position) + " is longer than " +
                       std::to_string(kMaximumFieldNameLength) + " bytes.";
        }
        if (hasProblem(myTokens[next]))
            return problemOf(myTokens[next]);
        return "Expected a comparison operator after the field " + quoteForMessage(textOf(first, next)) +
               at(myTokens[next].position) + " but found " + describe(myTokens[next]) + ".";
    }

    // "Name == 'x'" reads as the field "Name =", which no database has; where the text before
    // the first operator names a field, the mistake is more likely what follows that operator.
    std::optional<std::string> misreadField(size_t first, const Reading& reading) const
    {
        if (reading.known || !myIsField)
            return std::nullopt;
        for (size_t op = first + 1; op < reading.operatorIndex; ++op)
        {
            if (!isOperator(myTokens[op]))
                continue;
            if (!known(textOf(first, op)))
                return std::nullopt;
            const Token& value = myTokens[op + 1];
            return hasProblem(value) ? problemOf(value)
                                     : "Expected a value (a quoted text or a number)" + at(value.position) +
                                           " but found " + describe(value) + ".";
        }
        return std::nullopt;
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
        // NOT followed by an operator is a field called NOT, and "Not before = '2020'" compares
        // the field "Not before" where the database has one.
        if (isWord(current(), "NOT") && !isOperator(tokenAt(myIndex + 1)) && !startsKnownComparison())
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
                            describe(current()) + at(current().position) + ".");
            ++myIndex;
            return inner;
        }
        return comparison();
    }

    std::unique_ptr<Node> comparison()
    {
        if (++myConditions > kMaximumConditions)
            return fail("The search has more than " + std::to_string(kMaximumConditions) + " comparisons.");
        const auto reading = comparisonReading(myIndex);
        if (!reading)
            return fail(notAComparison(myIndex));
        if (const auto typo = misreadField(myIndex, *reading))
            return fail(*typo);
        auto node = std::make_unique<Node>();
        node->field = reading->name;
        node->position = current().position;
        myIndex = reading->operatorIndex;
        const Token& op = current();
        if (op.kind == Token::Kind::Symbol)
        {
            static const std::pair<std::string_view, Operator> symbols[] = {
                {"=", Operator::Equal},          {"<>", Operator::NotEqual}, {"!=", Operator::NotEqual},
                {"<", Operator::Less},           {">", Operator::Greater},   {"<=", Operator::LessOrEqual},
                {">=", Operator::GreaterOrEqual}};
            bool knownSymbol = false;
            for (const auto& [text, value] : symbols)
                if (op.text == text)
                {
                    node->op = value;
                    knownSymbol = true;
                }
            if (!knownSymbol)
                return fail("Unknown operator " + quoteForMessage(op.text) + at(op.position) + ".");
        }
        else
            node->op = isWord(op, "CONTAINS") ? Operator::Contains : Operator::BeginsWith;
        ++myIndex;
        const Token& value = current();
        if (value.kind == Token::Kind::Text)
            node->value = Literal{Literal::Kind::Text, value.text};
        else if (value.kind == Token::Kind::Number)
            node->value = Literal{Literal::Kind::Number, value.text};
        else
            node->value = Literal{Literal::Kind::Number, isWord(value, "TRUE") ? "1" : "0"};
        ++myIndex;
        return node;
    }

    // One ORDER BY item: the tokens [first, end). "Price DESC" orders by Price descending,
    // unless only the field "Price Desc" exists; "[Price Desc]" always names that field.
    void orderItem(size_t first, size_t end, OrderItem& item)
    {
        const Token& head = myTokens[first];
        const Token& last = myTokens[end - 1];
        const bool direction = end - first > 1 && (isWord(last, "ASC") || isWord(last, "DESC"));
        const bool descending = direction && isWord(last, "DESC");
        struct Candidate
        {
            std::string_view name;
            bool descending;
            bool bracketed;
        };
        std::vector<Candidate> candidates;
        if (head.kind == Token::Kind::Bracket && (end - first == 1 || (end - first == 2 && direction)))
            candidates.push_back({trimmed(head.text), descending, true});
        if (direction)
            candidates.push_back({textOf(first, end - 1), descending, false});
        candidates.push_back({textOf(first, end), false, false});
        const auto chosen = std::find_if(candidates.begin(), candidates.end(),
                                         [&](const Candidate& c) { return known(c.name); });
        const Candidate& reading = chosen != candidates.end() ? *chosen : candidates.front();
        const bool valid =
            reading.bracketed ? reading.name.size() <= kMaximumFieldNameLength : isNameText(reading.name);
        if (!valid)
        {
            for (size_t i = first; i < end; ++i)
                if (hasProblem(myTokens[i]))
                {
                    fail(problemOf(myTokens[i]));
                    return;
                }
            fail("The field name " + quoteForMessage(reading.name) + at(head.position) + " is longer than " +
                 std::to_string(kMaximumFieldNameLength) +
                 " bytes or holds a character that field names cannot have.");
            return;
        }
        item = OrderItem{std::string(reading.name), reading.descending, head.position};
    }

    void orderList(std::vector<OrderItem>& order)
    {
        while (true)
        {
            const Token& head = current();
            if (!head.inName)
            {
                fail(hasProblem(head) ? problemOf(head)
                                      : "Expected a field name after ORDER BY" + at(head.position) +
                                            " but found " + describe(head) + ".");
                return;
            }
            if (order.size() == kMaximumOrderItems)
            {
                fail("ORDER BY can name at most " + std::to_string(kMaximumOrderItems) + " fields.");
                return;
            }
            size_t end = myIndex;
            while (myTokens[end].inName)
                ++end;
            OrderItem item;
            orderItem(myIndex, end, item);
            if (myError)
                return;
            order.push_back(std::move(item));
            myIndex = end;
            if (current().kind != Token::Kind::Comma)
                return;
            ++myIndex;
        }
    }

    std::string_view myText;
    std::vector<Token> myTokens;
    const FieldCheck& myIsField;
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

std::variant<Query, SyntaxError> parseSearch(std::string_view text, const FieldCheck& isField)
{
    if (text.size() > kMaximumSearchLength)
        return SyntaxError{"The search is longer than " + std::to_string(kMaximumSearchLength) + " bytes."};
    if (text.find('\0') != std::string_view::npos)
        return SyntaxError{"The search contains a NUL byte at position " +
                           std::to_string(text.find('\0') + 1) + "."};
    std::vector<Token> tokens;
    if (auto error = Lexer(text).run(tokens))
        return *error;
    return Parser(text, std::move(tokens), isField).run();
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
