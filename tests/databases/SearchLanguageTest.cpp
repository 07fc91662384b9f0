// The search language: the parser's tree and precedence on its own, then every operator,
// ordering, type-aware comparison, error codes and texts, and the cursor through the service.
#include "search/SearchLanguage.h"
#include "ServiceTesting.h"

namespace kiv::db::testing
{
namespace
{

using search::Node;
using search::Operator;
using search::parseSearch;
using search::Query;
using search::SyntaxError;

// A compact picture of the tree: (a AND (NOT b)) etc.
std::string shape(const Node* node)
{
    if (!node)
        return "";
    switch (node->kind)
    {
    case Node::Kind::And:
        return "(" + shape(node->left.get()) + " AND " + shape(node->right.get()) + ")";
    case Node::Kind::Or:
        return "(" + shape(node->left.get()) + " OR " + shape(node->right.get()) + ")";
    case Node::Kind::Not:
        return "NOT " + shape(node->left.get());
    case Node::Kind::Comparison:
        return node->field;
    }
    return "?";
}

std::string shapeOf(const std::string& text)
{
    auto parsed = parseSearch(text);
    if (auto* error = std::get_if<SyntaxError>(&parsed))
        return "error: " + error->message;
    return shape(std::get<Query>(parsed).condition.get());
}

std::string errorOf(const std::string& text)
{
    auto parsed = parseSearch(text);
    auto* error = std::get_if<SyntaxError>(&parsed);
    return error ? error->message : "";
}

TEST(SearchParser, NotBindsTighterThanAndWhichBindsTighterThanOr)
{
    EXPECT_EQ(shapeOf("a = 1 OR b = 2 AND c = 3"), "(a OR (b AND c))");
    EXPECT_EQ(shapeOf("a = 1 AND b = 2 OR c = 3"), "((a AND b) OR c)");
    EXPECT_EQ(shapeOf("NOT a = 1 AND b = 2"), "(NOT a AND b)");
    EXPECT_EQ(shapeOf("NOT (a = 1 AND b = 2)"), "NOT (a AND b)");
    EXPECT_EQ(shapeOf("(a = 1 OR b = 2) AND c = 3"), "((a OR b) AND c)");
    EXPECT_EQ(shapeOf("A = '1' AND  NOT B = '2'"), "(A AND NOT B)"); // the editor's form
    EXPECT_EQ(shapeOf("a=1 and b=2 or not c=3"), "((a AND b) OR NOT c)");
}

TEST(SearchParser, KeywordsCanBeFieldNamesWhereAnOperatorFollows)
{
    EXPECT_EQ(shapeOf("Order = 1 AND Not = 2"), "(Order AND Not)");
    auto parsed = parseSearch("Desc = 'x' ORDER BY Order DESC, Desc");
    ASSERT_TRUE(std::holds_alternative<Query>(parsed));
    const auto& order = std::get<Query>(parsed).order;
    ASSERT_EQ(order.size(), 2u);
    EXPECT_EQ(order[0].field, "Order");
    EXPECT_TRUE(order[0].descending);
    EXPECT_EQ(order[1].field, "Desc");
    EXPECT_FALSE(order[1].descending);
}

TEST(SearchParser, LiteralsKeepTheirTextAndKind)
{
    auto parsed = parseSearch("City = 'O''Hare' AND Price >= -12.50e3 AND Active = TRUE");
    ASSERT_TRUE(std::holds_alternative<Query>(parsed));
    const Node* root = std::get<Query>(parsed).condition.get();
    const Node* city = root->left->left.get();
    EXPECT_EQ(city->value.text, "O'Hare");
    EXPECT_EQ(city->value.kind, search::Literal::Kind::Text);
    const Node* price = root->left->right.get();
    EXPECT_EQ(price->op, Operator::GreaterOrEqual);
    EXPECT_EQ(price->value.text, "-12.50e3");
    EXPECT_EQ(price->value.kind, search::Literal::Kind::Number);
    EXPECT_EQ(root->right->value.text, "1");
}

TEST(SearchParser, EmptyOrBlankSearchSelectsEverything)
{
    for (const char* text : {"", "   ", "\t\r\n"})
    {
        auto parsed = parseSearch(text);
        ASSERT_TRUE(std::holds_alternative<Query>(parsed));
        EXPECT_EQ(std::get<Query>(parsed).condition, nullptr);
    }
    auto ordered = parseSearch("ORDER BY Name");
    ASSERT_TRUE(std::holds_alternative<Query>(ordered));
    EXPECT_EQ(std::get<Query>(ordered).condition, nullptr);
    EXPECT_EQ(std::get<Query>(ordered).order.size(), 1u);
}

TEST(SearchParser, SyntaxErrorsSayWhatAndWhere)
{
    EXPECT_EQ(
        errorOf("City = 'Paris"),
        "The quoted text that begins at position 8 has no closing quote (write a quote inside a text as two "
        "quotes).");
    EXPECT_EQ(errorOf("City 'Paris'"),
              "Expected a comparison operator after the field \"City\" at position 6 but found \"Paris\".");
    EXPECT_EQ(errorOf("City ="),
              "Expected a value (a quoted text or a number) at position 7 but found the end of "
              "the search.");
    EXPECT_EQ(
        errorOf("(City = 'a'"),
        "Expected \")\" to close the \"(\" at position 1 but found the end of the search at position 12.");
    EXPECT_EQ(errorOf("City = 'a')"), "Unmatched \")\" at position 11.");
    EXPECT_EQ(errorOf("City = 'a' Name = 'b'"),
              "Unexpected \"Name\" at position 12: expected AND, OR, ORDER BY or the end of the search.");
    EXPECT_EQ(errorOf("City = 'a' ORDER BY"),
              "Expected a field name after ORDER BY at position 20 but found the end of the search.");
    EXPECT_EQ(errorOf("City ! 'a'"), "Unexpected \"!\" at position 6; use != for not equal.");
    EXPECT_EQ(errorOf("Qty = 12abc"), "Malformed number \"12abc\" at position 7.");
    EXPECT_EQ(errorOf("City = 'a' AND"),
              "Expected a field name at position 15 but found the end of the search.");
    EXPECT_EQ(errorOf("City ; 'a'"), "Unexpected character \";\" at position 6.");
}

TEST(SearchParser, HostileSizesAreRefusedByLimits)
{
    std::string deep;
    for (int i = 0; i < 40; ++i)
        deep += "(";
    deep += "a = 1";
    for (int i = 0; i < 40; ++i)
        deep += ")";
    EXPECT_NE(errorOf(deep).find("nested more than 32 levels"), std::string::npos);
    std::string many = "a = 1";
    for (int i = 0; i < 300; ++i)
        many += " OR a = 1";
    EXPECT_NE(errorOf(many).find("more than 256 comparisons"), std::string::npos);
    EXPECT_NE(errorOf(std::string(200000, ' ')).find("longer than"), std::string::npos);
    EXPECT_NE(errorOf(std::string("a = 'x\0y'", 9)).find("NUL"), std::string::npos);
    std::string nots;
    for (int i = 0; i < 1000; ++i)
        nots += "NOT ";
    EXPECT_NE(errorOf(nots + "a = 1").find("nested"), std::string::npos);
}

class SearchServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const std::vector<std::vector<std::pair<std::string, std::string>>> rows = {
            {{"Name", "Apple"},
             {"City", "Paris"},
             {"Price", "10"},
             {"Qty", "5"},
             {"Weight", "1.5"},
             {"Active", "1"},
             {"Code", "abc"}},
            {{"Name", "banana"},
             {"City", "O'Hare"},
             {"Price", "9.99"},
             {"Qty", "-2"},
             {"Weight", "0.5"},
             {"Active", "0"},
             {"Code", "ABC"}},
            {{"Name", "Cherry"},
             {"City", "paris"},
             {"Price", "100"},
             {"Qty", "12"},
             {"Weight", "2"},
             {"Active", "1"},
             {"Code", "xAbcx"}},
            {{"Name", "date"},
             {"City", "Lyon"},
             {"Price", "12345678901234567890123456789012345678"},
             {"Qty", "0"},
             {"Weight", "10"},
             {"Active", "0"},
             {"Code", "x"}},
            {{"Name", "\xC9lan"}, {"City", "Lyon"}, {"Qty", "7"}, {"Code", ""}}, // no price
        };
        for (const auto& row : rows)
            ASSERT_EQ(addRecord(db, row), 0u) << db.message();
    }

    std::vector<std::string> names(const std::string& text) { return column(db, text, "Name"); }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = openSampleDatabase(service, "Shop");
};

using Names = std::vector<std::string>;

TEST_F(SearchServiceTest, EveryComparisonOperatorOnText)
{
    EXPECT_EQ(names("City = 'paris'"), (Names{"Apple", "Cherry"})); // not case-sensitive
    EXPECT_EQ(names("City = 'O''Hare'"), Names{"banana"});
    EXPECT_EQ(names("City <> 'Lyon'"), (Names{"Apple", "banana", "Cherry"}));
    EXPECT_EQ(names("City != 'Lyon'"), (Names{"Apple", "banana", "Cherry"}));
    EXPECT_EQ(names("Name < 'b'"), Names{"Apple"});
    EXPECT_EQ(names("Name <= 'BANANA'"), (Names{"Apple", "banana"}));
    EXPECT_EQ(names("Name > 'd'"), (Names{"date", "\xC9lan"}));
    EXPECT_EQ(names("Name >= 'Date'"), (Names{"date", "\xC9lan"}));
    EXPECT_EQ(names("Name CONTAINS 'ERR'"), Names{"Cherry"});
    EXPECT_EQ(names("Name BEGINSWITH 'b'"), Names{"banana"});
    EXPECT_EQ(names("Name beginswith '\xE9'"), Names{"\xC9lan"}); // Latin-1 letters fold too
    EXPECT_EQ(names("Name CONTAINS ''"), (Names{"Apple", "banana", "Cherry", "date", "\xC9lan"}));
}

TEST_F(SearchServiceTest, CaseSensitiveFieldsCompareExactly)
{
    EXPECT_EQ(names("Code = 'abc'"), Names{"Apple"});
    EXPECT_EQ(names("Code CONTAINS 'Abc'"), Names{"Cherry"});
    EXPECT_EQ(names("Code BEGINSWITH 'A'"), Names{"banana"});
    EXPECT_EQ(names("Code = ''"), Names{"\xC9lan"});
}

TEST_F(SearchServiceTest, NumbersCompareByValueExactly)
{
    EXPECT_EQ(names("Price > 9.999"), (Names{"Apple", "Cherry", "date"}));
    EXPECT_EQ(names("Price = '10.000'"), Names{"Apple"}); // quoted, as the editor sends it
    EXPECT_EQ(names("Price < 1e3"), (Names{"Apple", "banana", "Cherry"}));
    EXPECT_EQ(names("Price > 12345678901234567890123456789012345677"), Names{"date"});
    EXPECT_EQ(names("Price = 12345678901234567890123456789012345678.0"), Names{"date"});
    EXPECT_EQ(names("Price = ''"), Names{"\xC9lan"});
    EXPECT_EQ(names("Price <> 10"), (Names{"banana", "Cherry", "date", "\xC9lan"}));
    EXPECT_EQ(names("Qty < 0"), Names{"banana"});
    EXPECT_EQ(names("Qty >= '7'"), (Names{"Cherry", "\xC9lan"}));
    EXPECT_EQ(names("Weight <= 1.5"), (Names{"Apple", "banana", "\xC9lan"}));
    EXPECT_EQ(names("Active = TRUE"), (Names{"Apple", "Cherry"}));
    EXPECT_EQ(names("Active = 'false'"), (Names{"banana", "date", "\xC9lan"}));
    EXPECT_EQ(names("Qty CONTAINS '2'"), (Names{"banana", "Cherry"}));
}

TEST_F(SearchServiceTest, OrderByFollowsTheFieldType)
{
    EXPECT_EQ(names("ORDER BY Price"), (Names{"\xC9lan", "banana", "Apple", "Cherry", "date"}));
    EXPECT_EQ(names("Price <> '' ORDER BY Price DESC"), (Names{"date", "Cherry", "Apple", "banana"}));
    EXPECT_EQ(names("ORDER BY Name"), (Names{"Apple", "banana", "Cherry", "date", "\xC9lan"}));
    EXPECT_EQ(names("ORDER BY City, Qty DESC"), (Names{"\xC9lan", "date", "banana", "Cherry", "Apple"}));
    EXPECT_EQ(names("Active = 1 OR Qty = 0 ORDER BY Weight DESC"), (Names{"date", "Cherry", "Apple"}));
}

TEST_F(SearchServiceTest, BooleanLogicAndParentheses)
{
    EXPECT_EQ(names("City = 'Lyon' AND NOT Qty = 0"), Names{"\xC9lan"});
    EXPECT_EQ(names("NOT (City = 'Lyon' OR City = 'Paris')"), Names{"banana"});
    EXPECT_EQ(names("(Qty > 0 OR Active = 0) AND Price > 9.99"), (Names{"Apple", "Cherry", "date"}));
    EXPECT_EQ(names("Qty > 0 OR Active = 0 AND Price > 9.99"), (Names{"Apple", "Cherry", "date", "\xC9lan"}));
    EXPECT_EQ(names("NOT Price = 10"), (Names{"banana", "Cherry", "date", "\xC9lan"})); // includes no value
}

TEST_F(SearchServiceTest, UnknownFieldsAnswerNotFoundAndLongTextIsNotOrdered)
{
    EXPECT_EQ(db.executeSearch("Colour = 'red'"), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Colour");
    EXPECT_EQ(db.executeSearch("Name = 'a' ORDER BY Size"), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Size");
    EXPECT_EQ(service.lastFailure().line, "no field \"Size\" in \"Shop\"");
    EXPECT_EQ(db.executeSearch("ORDER BY Notes DESC"), kKivResult_NotIndexed);
    EXPECT_EQ(db.message(), "Notes");
    EXPECT_EQ(service.lastFailure().line, "search: the long text field \"Notes\" cannot be ordered");
}

TEST_F(SearchServiceTest, MalformedSearchesAnswerImproperFormatWithTheReason)
{
    EXPECT_EQ(db.executeSearch("Name = 'a' AND"), kKivResult_ImproperFormat);
    EXPECT_EQ(db.message(), "Expected a field name at position 15 but found the end of the search.");
    EXPECT_EQ(db.executeSearch("Qty = 'many'"), kKivResult_ImproperFormat);
    EXPECT_EQ(db.message(), "The value for the field Qty at position 1 is not a number.");
    EXPECT_EQ(db.executeSearch("Price > ''"), kKivResult_ImproperFormat);
    EXPECT_EQ(db.executeSearch("Active = 'maybe'"), kKivResult_ImproperFormat);
}

TEST_F(SearchServiceTest, CursorMovesStopAtTheEnds)
{
    ASSERT_EQ(db.executeSearch("ORDER BY Name"), 0u);
    EXPECT_EQ(resultCount(db), 5u);
    EXPECT_EQ(db.moveLast(), 0u);
    EXPECT_EQ(text(db, "Name"), "\xC9lan");
    EXPECT_EQ(db.moveNext(), kKivResult_EndOfFile);
    EXPECT_EQ(text(db, "Name"), "\xC9lan"); // the cursor stays
    EXPECT_EQ(db.movePrevious(), 0u);
    EXPECT_EQ(text(db, "Name"), "date");
    EXPECT_EQ(db.moveFirst(), 0u);
    EXPECT_EQ(db.movePrevious(), kKivResult_BeginningOfFile);
    EXPECT_EQ(text(db, "Name"), "Apple");
    ASSERT_EQ(db.executeSearch("Name = 'nobody'"), 0u);
    EXPECT_EQ(resultCount(db), 0u);
    EXPECT_EQ(db.moveFirst(), kKivResult_EndOfFile);
    EXPECT_EQ(db.moveLast(), kKivResult_EndOfFile);
}

TEST_F(SearchServiceTest, JumpCountsFromTheFirstResult)
{
    ASSERT_EQ(db.executeSearch("ORDER BY Name DESC"), 0u);
    EXPECT_EQ(db.jump(0), 0u);
    EXPECT_EQ(text(db, "Name"), "\xC9lan");
    EXPECT_EQ(db.jump(3), 0u);
    EXPECT_EQ(text(db, "Name"), "banana");
    EXPECT_EQ(db.moveNext(), 0u);
    EXPECT_EQ(text(db, "Name"), "Apple");
    EXPECT_EQ(db.jump(5), kKivResult_EndOfFile);
}

TEST_F(SearchServiceTest, MoveToFindsARecordByItsUniqueID)
{
    EXPECT_EQ(db.moveTo(std::string_view("3")), 0u); // no search: every record
    EXPECT_EQ(text(db, "Name"), "Cherry");
    EXPECT_EQ(db.moveNext(), 0u);
    EXPECT_EQ(text(db, "Name"), "date");
    EXPECT_EQ(db.moveTo(uint32_t(99)), result::kRecordNotFound);
    ASSERT_EQ(db.executeSearch("City = 'Lyon'"), 0u);
    EXPECT_EQ(db.moveTo(uint32_t(5)), 0u);
    EXPECT_EQ(db.moveTo(uint32_t(1)), result::kRecordNotFound); // not among the results
}

TEST_F(SearchServiceTest, DeletingWhileWalkingTheResultsVisitsEachOnce)
{
    // The module's deleteRecord loop: read the ID, delete, move on.
    ASSERT_EQ(db.executeSearch("City <> 'Paris'"), 0u);
    std::vector<std::string> deleted;
    for (uint32_t move = db.moveFirst(); move == 0; move = db.moveNext())
    {
        const std::string id = text(db, "KIVIDFIELD");
        ASSERT_EQ(db.deleteRecord(std::string_view(id)), 0u);
        deleted.push_back(id);
    }
    EXPECT_EQ(deleted, (Names{"2", "4", "5"}));
    EXPECT_EQ(names(""), (Names{"Apple", "Cherry"}));
}

TEST_F(SearchServiceTest, WithoutASearchTheResultsAreEveryRecord)
{
    EXPECT_EQ(resultCount(db), 5u);
    ASSERT_EQ(db.executeSearch("City = 'Lyon'"), 0u);
    EXPECT_EQ(resultCount(db), 2u);
    db.clearSearch();
    EXPECT_EQ(resultCount(db), 5u);
}

} // namespace
} // namespace kiv::db::testing
