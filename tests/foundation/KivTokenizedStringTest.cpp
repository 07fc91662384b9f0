// Splitting at a separator: one token more than there are separators, empty tokens kept.
#include "KivTokenizedString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
std::vector<std::string> Tokens(const KivTokenizedString& tokenized_i)
{
    std::vector<std::string> tokens;
    for (unsigned int i = 0; i < tokenized_i.GetTokenCount(); ++i)
    {
        KivString token = tokenized_i.GetToken(i);
        tokens.emplace_back(token.GetCStringAccess(), token.GetLength());
    }
    return tokens;
}

typedef std::vector<std::string> Strings;
} // namespace

TEST(KivTokenizedString, EmptyTokensBetweenAndAfterSeparators)
{
    KivTokenizedString tokenized("a,,b,", ",", 0);
    EXPECT_EQ(Tokens(tokenized), (Strings{"a", "", "b", ""}));
    EXPECT_EQ(Tokens(KivTokenizedString(",a", ",", 0)), (Strings{"", "a"}));
    EXPECT_EQ(Tokens(KivTokenizedString(",", ",", 0)), (Strings{"", ""}));
}

TEST(KivTokenizedString, WithoutSeparatorTheWholeSourceIsOneToken)
{
    KivTokenizedString tokenized("abc", ",", 0);
    EXPECT_EQ(Tokens(tokenized), (Strings{"abc"}));
}

TEST(KivTokenizedString, MultiByteSeparators)
{
    EXPECT_EQ(Tokens(KivTokenizedString("aXYbXYc", "XY", 0)), (Strings{"a", "b", "c"}));
    EXPECT_EQ(Tokens(KivTokenizedString("name, precision", ", ", 0)), (Strings{"name", "precision"}));
    // Overlapping candidates: the search resumes after each separator.
    EXPECT_EQ(Tokens(KivTokenizedString("aXXXb", "XX", 0)), (Strings{"a", "Xb"}));
}

TEST(KivTokenizedString, CaseInsensitiveSeparator)
{
    EXPECT_EQ(Tokens(KivTokenizedString("1and2AND3", "and", 1)), (Strings{"1", "2", "3"}));
    EXPECT_EQ(Tokens(KivTokenizedString("1and2AND3", "and", 0)), (Strings{"1", "2AND3"}));
}

TEST(KivTokenizedString, EmptySourceOrSeparatorIsRefused)
{
    KivTokenizedString tokenized;
    EXPECT_FALSE(tokenized.Tokenize("", ",", 0));
    EXPECT_EQ(tokenized.GetTokenCount(), 0u);
    EXPECT_FALSE(tokenized.Tokenize("a,b", "", 0));
    EXPECT_EQ(tokenized.GetTokenCount(), 0u);

    ASSERT_TRUE(tokenized.Tokenize("a,b", ",", 0));
    EXPECT_FALSE(tokenized.Tokenize("", ",", 0));
    EXPECT_EQ(Tokens(tokenized), (Strings{"a", "b"})); // nothing changed
}

TEST(KivTokenizedString, OutOfRangeIndexGivesAnEmptyToken)
{
    KivTokenizedString tokenized("a,b", ",", 0);
    EXPECT_TRUE(tokenized.GetToken(2).IsEmpty());
    EXPECT_TRUE(tokenized[0xFFFFFFFF].IsEmpty());
    EXPECT_TRUE(tokenized[1] == "b");
    EXPECT_TRUE(KivTokenizedString().GetToken(0).IsEmpty());
}

TEST(KivTokenizedString, TokenizeAppendsUntilEmptied)
{
    KivTokenizedString tokenized("a,b", ",", 0);
    ASSERT_TRUE(tokenized.Tokenize("c,d,e", ",", 0));
    EXPECT_EQ(tokenized.GetTokenCount(), 5u);

    tokenized.Empty();
    EXPECT_EQ(tokenized.GetTokenCount(), 0u);
    ASSERT_TRUE(tokenized.Tokenize("c,d,e", ",", 0));
    EXPECT_EQ(Tokens(tokenized), (Strings{"c", "d", "e"}));
}

TEST(KivTokenizedString, CopiesAreIndependent)
{
    KivTokenizedString original("x|y", "|", 0);
    KivTokenizedString copy(original);
    KivTokenizedString assigned;
    assigned = original;
    original.Empty();
    EXPECT_EQ(Tokens(copy), (Strings{"x", "y"}));
    EXPECT_EQ(Tokens(assigned), (Strings{"x", "y"}));
    EXPECT_EQ(original.GetTokenCount(), 0u);
}
