// The tag tokenizer: pages split into text and tag tokens and rebuild exactly, product tags are
// recognised by their "kiv" prefix, and end tags find their start tags from the inside out.
#include "KivTagTokenizer.h"

#include "KivString.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace
{
typedef KivTagTokenizer::TokenListEntry Entry;
typedef std::vector<std::pair<std::string, KivUInt32>> TokenDump;

std::string ToStd(const KivString& text_i)
{
    return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

std::unique_ptr<KivTagTokenizer> Tokenize(const std::string& page_i, bool pairAllTags_i)
{
    KivBufferStream stream(page_i.data(), (unsigned int)page_i.size());
    return std::make_unique<KivTagTokenizer>(stream, pairAllTags_i);
}

TokenDump Dump(const KivTagTokenizer& tokenizer_i)
{
    TokenDump dump;
    for (const Entry* entry = tokenizer_i.GetFirstTokenInList(); entry != nullptr; entry = entry->myNextEntry)
        dump.emplace_back(ToStd(entry->myToken.myText), entry->myToken.myFlags);
    return dump;
}

Entry* EntryAt(const KivTagTokenizer& tokenizer_i, unsigned int index_i)
{
    Entry* entry = tokenizer_i.GetFirstTokenInList();
    while (entry != nullptr && index_i-- > 0)
        entry = entry->myNextEntry;
    return entry;
}

std::string Rebuild(KivTagTokenizer& tokenizer_io)
{
    KivString page;
    tokenizer_io.EmptyTokenList(page);
    return ToStd(page);
}

void ExpectLinked(const KivTagTokenizer& tokenizer_i, unsigned int start_i, unsigned int end_i)
{
    Entry* start = EntryAt(tokenizer_i, start_i);
    Entry* end = EntryAt(tokenizer_i, end_i);
    EXPECT_EQ(start->myAssociatedEntry, end) << "start tag " << start_i;
    EXPECT_EQ(end->myAssociatedEntry, start) << "end tag " << end_i;
}

// The exact stderr text of an abort, as a regular expression.
std::string Exactly(const std::string& text_i)
{
    static const std::regex special(R"([\\^$.|?*+()\[\]{}])");
    return "^" + std::regex_replace(text_i, special, R"(\$&)") + "$";
}

// A random page built from the pieces that drive the state machine.
std::string RandomPage(std::mt19937& random_io)
{
    static const std::vector<std::string> pieces = {
        "<",    ">",    "\"",    "=",    "/", " ", "\t", "\n", "\r", "kiv", "KIV",
        "Kiv",  "</",   "</kiv", "<kiv", "X", "b", "1",  "-",  "!",  "&",   std::string(1, '\0'),
        "\xE9", "\xFF", "abc"};
    std::uniform_int_distribution<int> lengthDistribution(0, 60);
    std::uniform_int_distribution<size_t> pieceDistribution(0, pieces.size() - 1);
    std::string page;
    int count = lengthDistribution(random_io);
    for (int i = 0; i < count; i++)
        page += pieces[pieceDistribution(random_io)];
    return page;
}

class CountingTokenizer : public KivTagTokenizer
{
public:
    CountingTokenizer() : KivTagTokenizer(false) {}
    void LastTokenInListIsComplete() override
    {
        myCompletedTags.push_back(ToStd(myLastTokenInList->myToken.myText));
        KivTagTokenizer::LastTokenInListIsComplete();
    }
    std::vector<std::string> myCompletedTags;
};
} // namespace

// --- Round trip ---------------------------------------------------------------------------

TEST(KivTagTokenizerRoundTrip, EmptyStreamGivesEmptyListAndPage)
{
    auto tokenizer = Tokenize("", true);
    EXPECT_EQ(tokenizer->CountTokens(), 0u);
    EXPECT_EQ(tokenizer->GetPageLength(), 0u);
    EXPECT_EQ(tokenizer->GetFirstTokenInList(), nullptr);
    EXPECT_EQ(Rebuild(*tokenizer), "");
}

TEST(KivTagTokenizerRoundTrip, RandomPagesRebuildExactly)
{
    std::mt19937 random(20240611);
    for (int i = 0; i < 3000; i++)
    {
        std::string page = RandomPage(random);
        for (bool pairAllTags : {false, true})
        {
            auto tokenizer = Tokenize(page, pairAllTags);
            ASSERT_EQ(tokenizer->GetPageLength(), page.size()) << page;
            ASSERT_EQ(Rebuild(*tokenizer), page);
            EXPECT_EQ(tokenizer->CountTokens(), 0u);
            EXPECT_EQ(tokenizer->GetLastTokenInList(), nullptr);
        }
    }
}

TEST(KivTagTokenizerRoundTrip, StringStreamStopsAtFirstZeroByte)
{
    KivString text("a<b>\0c<d>", 9);
    KivTagTokenizer tokenizer(KivStringStream(text), false);
    EXPECT_EQ(Rebuild(tokenizer), "a<b>");
}

TEST(KivTagTokenizerRoundTrip, SecondProcessContinuesTheList)
{
    KivTagTokenizer tokenizer(false);
    tokenizer.Process(KivStringStream(KivString("ab<kivX")));
    tokenizer.Process(KivStringStream(KivString("cd</kivX>")));
    // The unterminated tag stays as it is; the second stream starts a new token.
    EXPECT_EQ(Dump(tokenizer), (TokenDump{{"ab", 0}, {"<kivX", 0x82}, {"cd", 0}, {"</kivX>", 0xA2}}));
    // A start tag cut off before its ">" has no byte after the name, so nothing pairs with it.
    EXPECT_EQ(EntryAt(tokenizer, 3)->myAssociatedEntry, nullptr);
}

TEST(KivTagTokenizerRoundTrip, LongTokensStayWhole)
{
    std::string longValue(1000, 'v');
    std::string page = std::string(100000, 'x') + "<kivX a=\"" + longValue + "\">" + std::string(300, 'y') +
                       "</kivX a=\"" + longValue + "\">" + std::string(257, 'z');
    auto tokenizer = Tokenize(page, false);
    EXPECT_EQ(tokenizer->CountTokens(), 5u);
    // The end tag is complete when it is paired, so its long attributes take part in the match.
    ExpectLinked(*tokenizer, 1, 3);
    EXPECT_EQ(Rebuild(*tokenizer), page);
}

// --- Token flags --------------------------------------------------------------------------

TEST(KivTagTokenizerFlags, TextAndTagsAlternate)
{
    auto tokenizer = Tokenize("a<b>c</b>d", false);
    EXPECT_EQ(Dump(*tokenizer), (TokenDump{{"a", 0}, {"<b>", 2}, {"c", 0}, {"</b>", 34}, {"d", 0}}));
}

TEST(KivTagTokenizerFlags, LessThanWithoutNameIsText)
{
    // Every "<" starts a token, even one that turns out to be text.
    EXPECT_EQ(Dump(*Tokenize("x< b>y", false)), (TokenDump{{"x", 0}, {"< b>y", 0}}));
    EXPECT_EQ(Dump(*Tokenize("<\tb>", false)), (TokenDump{{"<\tb>", 0}}));
    EXPECT_EQ(Dump(*Tokenize("<\nb><\rb>", false)), (TokenDump{{"<\nb>", 0}, {"<\rb>", 0}}));
    EXPECT_EQ(Dump(*Tokenize("<!-- c -->", false)), (TokenDump{{"<!-- c -->", 0}}));
    // The byte after "<" always joins its token, even another "<".
    EXPECT_EQ(Dump(*Tokenize("a<<b>", false)), (TokenDump{{"a", 0}, {"<<b>", 0}}));
}

TEST(KivTagTokenizerFlags, ProductTagsNeedLetterOrDigitAfterPrefix)
{
    EXPECT_EQ(Dump(*Tokenize("<kiv>", false)), (TokenDump{{"<kiv>", 2}}));
    EXPECT_EQ(Dump(*Tokenize("<kiv-x>", false)), (TokenDump{{"<kiv-x>", 2}}));
    EXPECT_EQ(Dump(*Tokenize("<KiVa>", false)), (TokenDump{{"<KiVa>", 0x82}}));
    EXPECT_EQ(Dump(*Tokenize("<kiv7 x>", false)), (TokenDump{{"<kiv7 x>", 0x82}}));
    EXPECT_EQ(Dump(*Tokenize("<kivX-anything>", false)), (TokenDump{{"<kivX-anything>", 0x82}}));
    EXPECT_EQ(Dump(*Tokenize("<kix>", false)), (TokenDump{{"<kix>", 2}}));
    EXPECT_EQ(Dump(*Tokenize("</KIVz></kiv></b>", false)),
              (TokenDump{{"</KIVz>", 0xA2}, {"</kiv>", 34}, {"</b>", 34}}));
}

TEST(KivTagTokenizerFlags, OnlyProductStartTagsSetTheProductFlag)
{
    EXPECT_FALSE(Tokenize("<b></kivX><kiv>", false)->ContainsProductTag());
    EXPECT_TRUE(Tokenize("text <kivX>", false)->ContainsProductTag());
}

TEST(KivTagTokenizerFlags, QuotedValueKeepsGreaterThan)
{
    EXPECT_EQ(Dump(*Tokenize("<kivX a=\"1>2\">", false)), (TokenDump{{"<kivX a=\"1>2\">", 0x82}}));
    EXPECT_EQ(Dump(*Tokenize("<a  b=\"x>y\" c=\"z\">t", false)),
              (TokenDump{{"<a  b=\"x>y\" c=\"z\">", 2}, {"t", 0}}));
    // Only a quote right after "=" opens a value.
    EXPECT_EQ(Dump(*Tokenize("<a b = \"x>y\">", false)), (TokenDump{{"<a b = \"x>", 2}, {"y\">", 0}}));
}

TEST(KivTagTokenizerFlags, GreaterThanRightAfterPartialPrefixDoesNotClose)
{
    // After "<k", "<ki", "</k" the next byte joins the name, even a ">".
    EXPECT_EQ(Dump(*Tokenize("<k>x>y", false)), (TokenDump{{"<k>x>", 2}, {"y", 0}}));
    EXPECT_EQ(Dump(*Tokenize("</ki>>", false)), (TokenDump{{"</ki>>", 34}}));
}

TEST(KivTagTokenizerFlags, UnterminatedTagStaysATagToken)
{
    auto tokenizer = Tokenize("a<kivX b=\"", true);
    EXPECT_EQ(Dump(*tokenizer), (TokenDump{{"a", 0}, {"<kivX b=\"", 0x82}}));
    EXPECT_EQ(tokenizer->GetLastTokenInList()->myAssociatedEntry, nullptr);
}

TEST(KivTagTokenizerFlags, CompletionIsReportedOncePerClosedTag)
{
    CountingTokenizer tokenizer;
    tokenizer.Process(KivStringStream(KivString("a<b>c<kiv><kivX \"q\" =\"x>\">< d></i")));
    EXPECT_EQ(tokenizer.myCompletedTags, (std::vector<std::string>{"<b>", "<kiv>", "<kivX \"q\" =\"x>\">"}));
}

// --- Pairing ------------------------------------------------------------------------------

TEST(KivTagTokenizerPairing, PlainEndTagsPairOnlyWhenAsked)
{
    auto unpaired = Tokenize("a<b>c</b>d", false);
    EXPECT_EQ(EntryAt(*unpaired, 1)->myToken.myFlags, 2u);
    EXPECT_EQ(EntryAt(*unpaired, 1)->myAssociatedEntry, nullptr);
    EXPECT_EQ(EntryAt(*unpaired, 3)->myAssociatedEntry, nullptr);

    auto paired = Tokenize("a<b>c</b>d", true);
    EXPECT_EQ(EntryAt(*paired, 1)->myToken.myFlags, 18u);
    EXPECT_EQ(EntryAt(*paired, 3)->myToken.myFlags, 34u);
    ExpectLinked(*paired, 1, 3);
}

TEST(KivTagTokenizerPairing, ProductTagsPairEitherWay)
{
    for (bool pairAllTags : {false, true})
    {
        auto tokenizer = Tokenize("<kivX a=\"1\">body</KIVX>", pairAllTags);
        EXPECT_EQ(EntryAt(*tokenizer, 0)->myToken.myFlags, 146u);
        ExpectLinked(*tokenizer, 0, 2);
    }
}

TEST(KivTagTokenizerPairing, NestedPairsFromTheInsideOut)
{
    auto tokenizer = Tokenize("<kivX><kivX></kivX></kivX>", false);
    ExpectLinked(*tokenizer, 1, 2);
    ExpectLinked(*tokenizer, 0, 3);

    auto plain = Tokenize("<b><i><b>x</b></i></b>", true);
    ExpectLinked(*plain, 2, 4);
    ExpectLinked(*plain, 1, 5);
    ExpectLinked(*plain, 0, 6);
}

TEST(KivTagTokenizerPairing, UnbalancedTagsStayUnpaired)
{
    auto tokenizer = Tokenize("</kivX><kivX><kivY></kivX></kivX>", false);
    EXPECT_EQ(EntryAt(*tokenizer, 0)->myAssociatedEntry, nullptr); // end before any start
    ExpectLinked(*tokenizer, 1, 3);                                // passes over the open kivY
    EXPECT_EQ(EntryAt(*tokenizer, 2)->myToken.myFlags, 0x82u);
    EXPECT_EQ(EntryAt(*tokenizer, 4)->myAssociatedEntry, nullptr); // its start is taken
}

TEST(KivTagTokenizerPairing, NameMustEndWhereThePrefixEnds)
{
    auto tokenizer = Tokenize("<kivX a><kivXY></kivX>", false);
    EXPECT_EQ(EntryAt(*tokenizer, 1)->myAssociatedEntry, nullptr);
    ExpectLinked(*tokenizer, 0, 2);

    // The end tag's attributes are part of what the start tag must begin with.
    auto attributes = Tokenize("<kivX z><kivX></kivX z>", false);
    ExpectLinked(*attributes, 0, 2);
    EXPECT_EQ(EntryAt(*attributes, 1)->myToken.myFlags, 0x82u);
}

TEST(KivTagTokenizerPairing, ProductAndPlainTagsNeverPairAcross)
{
    // "<kiv>" is a plain tag, so only a plain end tag closes it.
    auto tokenizer = Tokenize("<kiv></kiv><kivX></kivX>", true);
    ExpectLinked(*tokenizer, 0, 1);
    ExpectLinked(*tokenizer, 2, 3);
    // A plain "</kiv>" wants a plain "<kiv" start tag, never the product tag "<kivX>".
    auto across = Tokenize("<kivX></kiv>", true);
    EXPECT_EQ(EntryAt(*across, 0)->myAssociatedEntry, nullptr);
    EXPECT_EQ(EntryAt(*across, 1)->myAssociatedEntry, nullptr);
}

TEST(KivTagTokenizerPairing, CompletedInnerProductPairIsSkippedWhole)
{
    // Without the skip the last end tag would take the nearer, still open, second <kivX>.
    auto tokenizer = Tokenize("<kivX>1<kivY><kivX>2</kivY></kivX>", false);
    ExpectLinked(*tokenizer, 2, 5);
    ExpectLinked(*tokenizer, 0, 6);
    EXPECT_EQ(EntryAt(*tokenizer, 3)->myToken.myFlags, 0x82u);
    EXPECT_EQ(EntryAt(*tokenizer, 3)->myAssociatedEntry, nullptr);
}

TEST(KivTagTokenizerPairing, FindAssociatedStartTagOnAnyEndTag)
{
    auto tokenizer = Tokenize("<b><kivX>x</kivX></b>", false);
    Entry* plainEnd = EntryAt(*tokenizer, 4);
    EXPECT_EQ(plainEnd->myAssociatedEntry, nullptr);
    EXPECT_EQ(tokenizer->FindAssociatedStartTag(plainEnd), EntryAt(*tokenizer, 0));
    // The product start tag is already paired, so it is no longer wanted.
    EXPECT_EQ(tokenizer->FindAssociatedStartTag(EntryAt(*tokenizer, 3)), nullptr);
}

// --- List operations ----------------------------------------------------------------------

namespace
{
// Checks every pairing Process makes against the plain backward walk over the list as it stood
// when the end tag closed.
class WalkCheckingTokenizer : public KivTagTokenizer
{
public:
    explicit WalkCheckingTokenizer(bool pairAllTags_i) : KivTagTokenizer(pairAllTags_i) {}

    void LastTokenInListIsComplete() override
    {
        Entry* endTag = GetLastTokenInList();
        KivUInt32 flags = endTag->myToken.myFlags;
        bool pairs = flags == kKivToken_ProductEndTag || (flags == kKivToken_EndTag && PairsAllTags());
        Entry* expected = pairs ? FindAssociatedStartTag(endTag) : nullptr;
        KivTagTokenizer::LastTokenInListIsComplete();
        ++myChecked;
        if (endTag->myAssociatedEntry != expected)
            ++myMismatches;
    }

    unsigned int myChecked = 0;
    unsigned int myMismatches = 0;
};
} // namespace

TEST(KivTagTokenizerPairing, PairingAgreesWithTheBackwardWalkOnRandomPages)
{
    const char* const pieces[] = {
        "<kivA>", "</kivA>", "<KIVa x>",       "</kiva x>",       "<kivB>", "</kivB>", "<b>",
        "</b>",   "<B y>",   "</b y>",         "<k>x>",           "</k>x>", "<b\ty>",  "</b\ty>",
        "t",      " ",       "<kivA a=\">\">", "</kivA a=\">\">", "<",      "</kiv>"};
    std::mt19937 generator(7);
    for (int round = 0; round < 400; ++round)
    {
        std::string page;
        unsigned int count = generator() % 80;
        for (unsigned int i = 0; i < count; ++i)
            page += pieces[generator() % (sizeof(pieces) / sizeof(pieces[0]))];
        for (bool pairAll : {false, true})
        {
            // In one piece, and in two, so that a second Process call starts from a list.
            WalkCheckingTokenizer whole(pairAll);
            KivBufferStream stream(page.data(), (unsigned int)page.size());
            whole.Process(stream);
            EXPECT_EQ(whole.myMismatches, 0u) << page;

            WalkCheckingTokenizer split(pairAll);
            size_t cut = page.empty() ? 0 : generator() % page.size();
            KivBufferStream first(page.data(), (unsigned int)cut);
            KivBufferStream second(page.data() + cut, (unsigned int)(page.size() - cut));
            split.Process(first);
            split.Process(second);
            EXPECT_EQ(split.myMismatches, 0u) << page << " cut at " << cut;
            EXPECT_EQ(Rebuild(split), page);
        }
    }
}

TEST(KivTagTokenizerPairing, ManyUnmatchedTagsStillPairTheRest)
{
    // Tens of thousands of start and end tags that never match: each end tag used to walk back
    // over the whole list. The pairs around them must still be found.
    std::string page = "<kivOuter><b>";
    for (int i = 0; i < 20000; ++i)
        page += "<kivA><i>";
    for (int i = 0; i < 20000; ++i)
        page += "</kivB></u>";
    page += "</b></kivOuter>";
    std::unique_ptr<KivTagTokenizer> tokenizer = Tokenize(page, true);
    Entry* outer = tokenizer->GetFirstTokenInList();
    Entry* bold = outer->myNextEntry;
    Entry* last = tokenizer->GetLastTokenInList();
    EXPECT_EQ(outer->myAssociatedEntry, last);
    EXPECT_EQ(outer->myToken.myFlags, kKivToken_ProductTag | kKivToken_Paired);
    EXPECT_EQ(bold->myAssociatedEntry, last->myPreviousEntry);
    EXPECT_EQ(bold->myToken.myFlags, kKivToken_Tag | kKivToken_Paired);
    EXPECT_EQ(outer->myNextEntry->myNextEntry->myAssociatedEntry, nullptr);
    EXPECT_EQ(Rebuild(*tokenizer), page);
}

TEST(KivTagTokenizerList, ConcatLengthRunsFromFirstToLast)
{
    auto tokenizer = Tokenize("ab<c>de</c>", false);
    EXPECT_EQ(tokenizer->GetConcatLength(EntryAt(*tokenizer, 1), EntryAt(*tokenizer, 2)), 5u);
    EXPECT_EQ(tokenizer->GetConcatLength(EntryAt(*tokenizer, 2), EntryAt(*tokenizer, 2)), 2u);
    EXPECT_EQ(tokenizer->GetConcatLength(nullptr, EntryAt(*tokenizer, 2)), 0u);
    EXPECT_EQ(tokenizer->GetPageLength(), 11u);
}

TEST(KivTagTokenizerList, ConcatenateMergesAndRelinks)
{
    auto tokenizer = Tokenize("a<b>c<i>e", false);
    Entry* first = EntryAt(*tokenizer, 1);
    tokenizer->ConcatenateTokens(first, EntryAt(*tokenizer, 3));
    EXPECT_EQ(Dump(*tokenizer), (TokenDump{{"a", 0}, {"<b>c<i>", 2}, {"e", 0}}));
    EXPECT_EQ(first->myNextEntry->myPreviousEntry, first);

    Entry* tail = EntryAt(*tokenizer, 1);
    tokenizer->ConcatenateTokens(tail, tokenizer->GetLastTokenInList());
    EXPECT_EQ(tokenizer->GetLastTokenInList(), tail);
    EXPECT_EQ(tail->myNextEntry, nullptr);

    Entry* none = nullptr;
    tokenizer->ConcatenateTokens(none, tail);
    tokenizer->ConcatenateTokens(tail, nullptr);
    EXPECT_EQ(Rebuild(*tokenizer), "a<b>c<i>e");
}

TEST(KivTagTokenizerList, ConcatenatingAPairLeavesNoDanglingLink)
{
    auto tokenizer = Tokenize("<kivX>a</kivX>b<kivY>c</kivY>", false);
    Entry* first = EntryAt(*tokenizer, 0);
    tokenizer->ConcatenateTokens(first, EntryAt(*tokenizer, 4));
    EXPECT_EQ(first->myAssociatedEntry, nullptr);
    EXPECT_EQ(first->myToken.myFlags, 0x82u);
    // The kivY end tag lost its start tag into the merged token.
    EXPECT_EQ(EntryAt(*tokenizer, 2)->myAssociatedEntry, nullptr);
    EXPECT_EQ(Rebuild(*tokenizer), "<kivX>a</kivX>b<kivY>c</kivY>");
}

TEST(KivTagTokenizerList, RetokenizeSplitsAnEditedStretch)
{
    auto tokenizer = Tokenize("<kivX>a<b>c", false);
    Entry* first = EntryAt(*tokenizer, 2);
    Entry* last = EntryAt(*tokenizer, 3);
    first->myToken.myText = "<i>";
    last->myToken.myText = "x</kivX>y";
    tokenizer->Retokenize(first, last);
    EXPECT_EQ(Dump(*tokenizer),
              (TokenDump{{"<kivX>", 146}, {"a", 0}, {"<i>", 2}, {"x", 0}, {"</kivX>", 0xA2}, {"y", 0}}));
    EXPECT_EQ(first, EntryAt(*tokenizer, 2));
    EXPECT_EQ(last, tokenizer->GetLastTokenInList());
    // The new end tag pairs with the start tag before the stretch.
    ExpectLinked(*tokenizer, 0, 4);
    EXPECT_EQ(Rebuild(*tokenizer), "<kivX>a<i>x</kivX>y");
}

TEST(KivTagTokenizerList, RetokenizeUnpairsTagsOutsideTheOldStretch)
{
    auto tokenizer = Tokenize("<kivX>a</kivX>", false);
    Entry* start = EntryAt(*tokenizer, 0);
    start->myToken.myText = "<b>";
    start->myToken.myFlags = 2;
    tokenizer->Retokenize(start, start);
    EXPECT_EQ(tokenizer->GetFirstTokenInList(), start);
    EXPECT_EQ(start->myAssociatedEntry, nullptr);
    EXPECT_EQ(tokenizer->GetLastTokenInList()->myAssociatedEntry, nullptr);
    EXPECT_EQ(Rebuild(*tokenizer), "<b>a</kivX>");
}

TEST(KivTagTokenizerList, RetokenizeKeepsZeroBytes)
{
    std::string page("a\0<b>", 5);
    auto tokenizer = Tokenize(page, false);
    Entry* first = tokenizer->GetFirstTokenInList();
    Entry* last = tokenizer->GetLastTokenInList();
    tokenizer->Retokenize(first, last);
    EXPECT_EQ(tokenizer->CountTokens(), 2u);
    EXPECT_EQ(Rebuild(*tokenizer), page);
}

// --- Abort paths --------------------------------------------------------------------------

TEST(KivTagTokenizerDeathTest, FindAssociatedStartTagRejectsNullAndNonEndTags)
{
    auto tokenizer = Tokenize("a<b>", false);
    EXPECT_DEATH(tokenizer->FindAssociatedStartTag(nullptr),
                 Exactly("\tFILE: \"src/KivTagTokenizer\"\nNULL POINTER ASSERTION: endTag_i\n"));
    EXPECT_DEATH(tokenizer->FindAssociatedStartTag(EntryAt(*tokenizer, 1)),
                 Exactly("\tFILE: \"src/KivTagTokenizer\"\nUNEXPECTED STATE: \n"));
}

TEST(KivTagTokenizerDeathTest, ListHelpersRejectNull)
{
    EXPECT_DEATH(KivTagTokenizer::ZeroTokenListEntry(nullptr),
                 Exactly("\tFILE: \"src/KivTagTokenizer\"\nNULL POINTER ASSERTION: tokenListEntry_i\n"));
}

TEST(KivTagTokenizerDeathTest, RetokenizeOfAnEmptyStretchAborts)
{
    auto tokenizer = Tokenize("a<b>", false);
    Entry* first = tokenizer->GetFirstTokenInList();
    first->myToken.myText.Empty();
    EXPECT_DEATH(
        tokenizer->Retokenize(first, first),
        Exactly("\tFILE: \"src/KivTagTokenizer\"\nNULL POINTER ASSERTION: retokenizer.myFirstTokenInList\n"));
}
