// Copy-on-write strings: sharing and unsharing, the capacity steps, every editing operation's
// clamping, the Horspool search against a plain search, the signed ordering, the Mac OS Roman
// case maps, the raw buffer protocol, the truth values and the byte streams.
#include "KivString.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace
{
std::string Text(const KivString& string_i)
{
    return std::string(string_i.GetCStringAccess(), string_i.GetLength());
}

KivString FromStd(const std::string& text_i)
{
    return KivString(text_i.data(), (unsigned int)text_i.size());
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Construction, assignment, sharing

TEST(KivString, EveryConstructorAndAssignmentKindBuildsTheSameBytes)
{
    const unsigned char pascal[] = {3, 'a', 'b', 'c', 'x'};
    EXPECT_EQ(Text(KivString()), "");
    EXPECT_EQ(Text(KivString('z')), "z");
    EXPECT_EQ(Text(KivString('-', 4)), "----");
    EXPECT_EQ(Text(KivString("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(Text(KivString("abc")), "abc");
    EXPECT_EQ(Text(KivString(static_cast<const char*>(nullptr))), "");
    EXPECT_EQ(Text(KivString(pascal)), "abc");
    EXPECT_EQ(Text(KivString(true)), "yes");
    EXPECT_EQ(Text(KivString(false)), "no");

    KivString target("previous");
    EXPECT_EQ(Text(target.Assign(pascal)), "abc");
    EXPECT_EQ(Text(target.Assign('q')), "q");
    EXPECT_EQ(Text(target.Assign("x\0y", 3)), std::string("x\0y", 3));
    EXPECT_EQ(Text(target.Assign(true)), "yes");
    EXPECT_EQ(Text(target.Assign(false)), "no");
    EXPECT_EQ(Text(target.Assign(static_cast<const char*>(nullptr))), "");
    target = "text";
    EXPECT_EQ(Text(target), "text");
    // Storage always holds a terminator after the counted bytes.
    EXPECT_EQ(target.GetCStringAccess()[4], '\0');
}

TEST(KivString, EmptyStringsShareOneRepresentation)
{
    KivString first;
    KivString second("text");
    second.Empty();
    KivString third("");
    EXPECT_TRUE(first.SharesRepresentationWith(second));
    EXPECT_TRUE(first.SharesRepresentationWith(third));
    EXPECT_TRUE(first.IsEmpty());
    EXPECT_FALSE(first.IsNotEmpty());
    // Writing into an empty string never writes into the shared empty representation.
    second.Append("x");
    EXPECT_EQ(Text(first), "");
    EXPECT_FALSE(first.SharesRepresentationWith(second));
}

TEST(KivString, CopiesShareUntilEitherSideChanges)
{
    const std::vector<std::pair<const char*, std::function<void(KivString&)>>> mutations = {
        {"SetAt", [](KivString& s) { s.SetAt(0, 'J'); }},
        {"Append", [](KivString& s) { s.Append("!"); }},
        {"Prepend", [](KivString& s) { s.Prepend('>'); }},
        {"Insert", [](KivString& s) { s.Insert("--", 5); }},
        {"ReplaceSubstring", [](KivString& s) { s.ReplaceSubstring(0, 5, "HELLO"); }},
        {"ReplaceAll", [](KivString& s) { s.ReplaceAll('o', KivString("0"), 0); }},
        {"RemoveSubstring", [](KivString& s) { s.RemoveSubstring(0, 6); }},
        {"ConvertToUppercase", [](KivString& s) { s.ConvertToUppercase(); }},
        {"ConvertToLowercase", [](KivString& s) { s.ConvertToLowercase(0, 1); }},
        {"Reverse", [](KivString& s) { s.Reverse(); }},
        {"TrimLeft", [](KivString& s) { s.TrimLeft(2u); }},
        {"TrimRight", [](KivString& s) { s.TrimRight("dl"); }},
        {"GetBuffer",
         [](KivString& s)
         {
             s.GetBuffer(3)[0] = 'X';
             s.ReleaseBuffer(3);
         }},
        {"ReserveLength", [](KivString& s) { s.ReserveLength(2)[0] = 'X'; }},
        {"MakeUnique", [](KivString& s) { s.MakeUnique(); }},
        {"Reserve", [](KivString& s) { s.Reserve(100); }},
    };
    for (const auto& mutation : mutations)
    {
        SCOPED_TRACE(mutation.first);
        KivString original("Hello world");
        KivString copy(original);
        ASSERT_TRUE(copy.SharesRepresentationWith(original));
        mutation.second(copy);
        EXPECT_EQ(Text(original), "Hello world");
        EXPECT_FALSE(copy.SharesRepresentationWith(original));
    }

    KivString original("Hello world");
    KivString assigned;
    assigned = original;
    EXPECT_TRUE(assigned.SharesRepresentationWith(original));
    original.Append('!');
    EXPECT_EQ(Text(assigned), "Hello world");
    EXPECT_EQ(Text(original), "Hello world!");
}

TEST(KivString, CapacityIsTheNextMultipleOf32AboveTheLengthAndNeverShrinks)
{
    const unsigned int expected[][2] = {{0, 32}, {1, 32}, {31, 32}, {32, 64}, {33, 64}, {63, 64}, {64, 96}};
    for (const auto& pair : expected)
    {
        KivString string('x', pair[0]);
        EXPECT_EQ(string.GetCapacity(), pair[1]) << "length " << pair[0];
    }

    KivString growing('x', 31);
    growing.Append('y'); // length 32 needs a terminator at index 32
    EXPECT_EQ(growing.GetCapacity(), 64u);
    growing.TrimRight(30u);
    EXPECT_EQ(growing.GetCapacity(), 64u);
    growing.Reserve(10);
    EXPECT_EQ(growing.GetCapacity(), 64u);
    growing.Reserve(64);
    EXPECT_EQ(growing.GetCapacity(), 96u);
    EXPECT_EQ(Text(growing), "xx");

    // Reserving on a shared string keeps its length and bytes.
    KivString shared(growing);
    shared.Reserve(200);
    EXPECT_EQ(Text(shared), "xx");
    EXPECT_EQ(shared.GetCapacity(), 224u);
}

TEST(KivString, SourcesInsideTheStringItselfAreReadBeforeTheyMove)
{
    KivString string('a', 31);
    string.Append(string); // crosses a capacity step, so the block is replaced
    EXPECT_EQ(Text(string), std::string(62, 'a'));

    KivString word("abcdef");
    word.Insert(word.GetCStringAccess() + 2, 3, 1);
    EXPECT_EQ(Text(word), "acdebcdef");
    word.Assign(word.GetCStringAccess() + 3, 2);
    EXPECT_EQ(Text(word), "eb");
    word.ReplaceSubstring(0, 1, word);
    EXPECT_EQ(Text(word), "ebb");
    word.ReplaceAll(word, word + word, 0);
    EXPECT_EQ(Text(word), "ebbebb");
}

// ---------------------------------------------------------------------------------------------
// Element access and editing

TEST(KivString, ElementsAreReadAndWrittenByOffset)
{
    KivString string("abc");
    EXPECT_EQ(string[1], 'b');
    EXPECT_EQ(string.GetAt(2), 'c');
    string.SetAt(0, 'X');
    EXPECT_EQ(Text(string), "Xbc");
}

TEST(KivStringDeathTest, OffsetsAtOrPastTheLengthAbort)
{
    const char* message =
        "^\tFILE: \"src/KivString\"\nSTATE ASSERTION FAILURE: offset_i < GetLength\\(\\)\n$";
    EXPECT_DEATH((void)KivString("abc")[3], message);
    EXPECT_DEATH((void)KivString().GetAt(0), message);
    EXPECT_DEATH(KivString("abc").SetAt(7, 'x'), message);
}

TEST(KivString, AppendPrependInsertAndOperators)
{
    const unsigned char pascal[] = {2, '<', '>'};
    KivString string("mid");
    string.Append('1').Append("23").Append(pascal).Append(KivString("!"));
    EXPECT_EQ(Text(string), "mid123<>!");
    string.Prepend("p:").Prepend('[').Prepend(pascal);
    EXPECT_EQ(Text(string), "<>[p:mid123<>!");

    KivString inserted("ace");
    inserted.Insert('b', 1).Insert("d", 3).Insert(KivString("f"), 100);
    EXPECT_EQ(Text(inserted), "abcdef"); // an offset past the end appends

    KivString sum = KivString("a") + "b" + KivString("c");
    sum += 'd';
    sum += "e";
    sum += KivString("f");
    EXPECT_EQ(Text(sum), "abcdef");
    EXPECT_EQ(Text("x" + KivString("y")), "xy");
}

TEST(KivString, SubstringsAndRemovalClampToTheString)
{
    KivString string("hello");
    EXPECT_EQ(Text(string.GetSubstring(1, 3)), "ell");
    EXPECT_EQ(Text(string.GetSubstring(3, 100)), "lo");
    EXPECT_EQ(Text(string.GetSubstring(5, 1)), "");
    EXPECT_EQ(Text(string(0, 2)), "he");

    KivString removed("stale");
    string.RemoveSubstring(1, 2, removed);
    EXPECT_EQ(Text(string), "hlo");
    EXPECT_EQ(Text(removed), "el");
    string.RemoveSubstring(3, 1, removed); // offset at the end: nothing removed, `removed` emptied
    EXPECT_EQ(Text(string), "hlo");
    EXPECT_EQ(Text(removed), "");
    string.RemoveSubstring(1, 100);
    EXPECT_EQ(Text(string), "h");
}

TEST(KivString, ReplaceSubstringReturnsTheLengthChangeAsUnsigned)
{
    KivString string("0123456789");
    EXPECT_EQ(string.ReplaceSubstring(2, 3, "abcde"), 2u);
    EXPECT_EQ(Text(string), "01abcde56789");
    EXPECT_EQ(string.ReplaceSubstring(2, 5, 'X'), 0xFFFFFFFCu);
    EXPECT_EQ(Text(string), "01X56789");
    EXPECT_EQ(string.ReplaceSubstring(6, 100, KivString("yz")), 0u);
    EXPECT_EQ(Text(string), "01X567yz");
    EXPECT_EQ(string.ReplaceSubstring(8, 1, "ignored"), 0u);
    EXPECT_EQ(Text(string), "01X567yz");
}

TEST(KivString, ReplaceAllDirectionsCaseAndRescan)
{
    KivString string("One one ONE");
    EXPECT_EQ(string.ReplaceAll("one", KivString("two"), 0), 1u);
    EXPECT_EQ(Text(string), "One two ONE");
    EXPECT_EQ(string.ReplaceAll("one", KivString("2"), kKivString_CaseInsensitive), 2u);
    EXPECT_EQ(Text(string), "2 two 2");

    // Replacing continues after the inserted text, so overlapping hits are taken from the
    // direction of the search, and rescanning also sees what the replacement produced.
    KivString forward("aaa"), backward("aaa"), rescanned("aaa");
    EXPECT_EQ(forward.ReplaceAll("aa", KivString("b"), 0), 1u);
    EXPECT_EQ(Text(forward), "ba");
    EXPECT_EQ(backward.ReplaceAll("aa", KivString("b"), kKivString_Backward), 1u);
    EXPECT_EQ(Text(backward), "ab");
    EXPECT_EQ(rescanned.ReplaceAll("aa", KivString("a"), kKivString_Rescan), 2u);
    EXPECT_EQ(Text(rescanned), "a");

    KivString both("xAbAbAby");
    EXPECT_EQ(both.ReplaceAll("ab", KivString("<ab>"), kKivString_Backward | kKivString_CaseInsensitive), 3u);
    EXPECT_EQ(Text(both), "x<ab><ab><ab>y");
    EXPECT_EQ(both.ReplaceAll(KivString(), KivString("z"), 0), 0u);
}

namespace
{
// Replacing one hit at a time, each search resuming just past the inserted text (going forward)
// or just before the replaced hit (going backward): the reference for ReplaceAll.
unsigned int ReplaceOneByOne(KivString& string_io, const std::string& pattern_i,
                             const KivString& replacement_i, unsigned int flags_i)
{
    const bool backward = (flags_i & kKivString_Backward) != 0;
    unsigned int start = backward ? 0xFFFFFFFFu : 0;
    unsigned int found = 0;
    unsigned int count = 0;
    while (
        string_io.Find(pattern_i.data(), (unsigned int)pattern_i.size(), start, 0xFFFFFFFFu, flags_i, found))
    {
        string_io.ReplaceSubstring(found, (unsigned int)pattern_i.size(), replacement_i);
        ++count;
        if (!backward)
            start = found + replacement_i.GetLength();
        else if (found == 0)
            break;
        else
            start = found - 1;
    }
    return count;
}
} // namespace

TEST(KivString, ReplaceAllMatchesReplacingOneHitAtATime)
{
    std::mt19937 generator(20240611);
    const char alphabet[] = {'a', 'A', 'b', '\x8A', '\x80', 'x'};
    for (int round = 0; round < 3000; ++round)
    {
        std::string text(generator() % 60, 'a');
        for (char& byte : text)
            byte = alphabet[generator() % sizeof(alphabet)];
        std::string pattern(1 + generator() % 3, 'a');
        for (char& byte : pattern)
            byte = alphabet[generator() % sizeof(alphabet)];
        std::string replacement(generator() % 4, 'a');
        for (char& byte : replacement)
            byte = alphabet[generator() % sizeof(alphabet)];
        const unsigned int flags = generator() % 4; // case and direction, never rescanning

        KivString expected = FromStd(text);
        const unsigned int expectedCount = ReplaceOneByOne(expected, pattern, FromStd(replacement), flags);
        KivString actual = FromStd(text);
        KivString shared(actual);
        ASSERT_EQ(
            actual.ReplaceAll(pattern.data(), (unsigned int)pattern.size(), FromStd(replacement), flags),
            expectedCount)
            << text << " / " << pattern << " / " << replacement << " / " << flags;
        ASSERT_EQ(Text(actual), Text(expected)) << text << " / " << pattern << " / " << replacement;
        ASSERT_EQ(Text(shared), text); // a copy taken before never sees the change
        ASSERT_EQ(actual.GetCStringAccess()[actual.GetLength()], '\0');
    }
}

TEST(KivString, ReplaceAllOnALongValueWithAHitAtEveryByte)
{
    // Doubling the quotes of a posted value of a few hundred kilobytes used to move the tail
    // and regrow the block once per quote; it must come back in one piece.
    KivString quotes('\'', 300000);
    EXPECT_EQ(quotes.ReplaceAll('\'', KivString("''"), 0), 300000u);
    EXPECT_EQ(quotes.GetLength(), 600000u);
    EXPECT_EQ(Text(quotes), std::string(600000, '\''));

    KivString spaces(' ', 300000);
    spaces.Append('x');
    EXPECT_EQ(spaces.ReplaceAll(' ', KivString(), kKivString_Backward), 300000u);
    EXPECT_EQ(Text(spaces), "x");
    KivString onlySpaces(' ', 1000);
    EXPECT_EQ(onlySpaces.ReplaceAll(' ', KivString(), 0), 1000u);
    EXPECT_TRUE(onlySpaces.IsEmpty());
}

// ---------------------------------------------------------------------------------------------
// Find, compared with a plain search over random text

namespace
{
unsigned char Fold(unsigned char byte_i, bool caseInsensitive_i)
{
    return caseInsensitive_i ? KivString::GetUppercaseCharacter(byte_i) : byte_i;
}

bool MatchesAt(const std::string& text_i, unsigned int offset_i, const std::string& pattern_i,
               bool caseInsensitive_i)
{
    for (unsigned int i = 0; i < pattern_i.size(); ++i)
        if (Fold(text_i[offset_i + i], caseInsensitive_i) != Fold(pattern_i[i], caseInsensitive_i))
            return false;
    return true;
}

// The search range of Find, written out directly: forward the `count` bytes from `start`,
// backward the `count` bytes ending at `start`, the first hit in the direction of travel.
bool PlainFind(const std::string& text_i, const std::string& pattern_i, unsigned int start_i,
               unsigned int count_i, unsigned int flags_i, unsigned int& foundOffset_io)
{
    const unsigned int length = text_i.size();
    const unsigned int patternLength = pattern_i.size();
    const bool caseInsensitive = (flags_i & kKivString_CaseInsensitive) != 0;
    if ((flags_i & kKivString_Backward) == 0)
    {
        if (start_i >= length)
            return false;
        count_i = std::min(count_i, length - start_i);
        if (patternLength == 0 || patternLength > count_i)
            return false;
        for (unsigned int offset = start_i; offset + patternLength <= start_i + count_i; ++offset)
            if (MatchesAt(text_i, offset, pattern_i, caseInsensitive))
                return foundOffset_io = offset, true;
        return false;
    }
    if (length == 0)
        return false;
    start_i = std::min(start_i, length - 1);
    count_i = std::min(count_i, start_i + 1);
    if (patternLength == 0 || patternLength > count_i)
        return false;
    for (long long offset = (long long)start_i - patternLength + 1;
         offset >= (long long)start_i - count_i + 1; --offset)
        if (MatchesAt(text_i, (unsigned int)offset, pattern_i, caseInsensitive))
            return foundOffset_io = (unsigned int)offset, true;
    return false;
}
} // namespace

TEST(KivStringFind, AgreesWithAPlainSearchOnRandomText)
{
    // A small alphabet with case pairs inside and outside ASCII makes hits and near misses common.
    const std::string alphabet = "abAB\x8A\x80\x8E\x83 \xE9";
    std::mt19937 random(20240611);
    auto randomText = [&](unsigned int maximumLength_i)
    {
        std::string text(random() % (maximumLength_i + 1), ' ');
        for (char& c : text)
            c = alphabet[random() % alphabet.size()];
        return text;
    };
    const unsigned int starts[] = {0, 1, 5, 17, 1000, 0xFFFFFFFFu};
    const unsigned int counts[] = {0, 1, 3, 10, 40, 0xFFFFFFFFu};
    unsigned int hits = 0;
    for (int round = 0; round < 4000; ++round)
    {
        std::string text = randomText(60);
        std::string pattern = randomText(6);
        if (round % 3 == 0 && !text.empty())
        {
            unsigned int from = random() % text.size();
            pattern = text.substr(from, 1 + random() % 5);
        }
        KivString string = FromStd(text);
        for (unsigned int flags = 0; flags < 4; ++flags)
        {
            unsigned int start = random() % 2 ? starts[random() % 6] : random() % 64;
            unsigned int count = random() % 2 ? counts[random() % 6] : random() % 64;
            unsigned int expectedOffset = 0xDEADBEEF, foundOffset = 0xDEADBEEF;
            bool expected = PlainFind(text, pattern, start, count, flags, expectedOffset);
            bool found = string.Find(FromStd(pattern), start, count, flags, foundOffset);
            ASSERT_EQ(found, expected) << "text \"" << text << "\" pattern \"" << pattern << "\" start "
                                       << start << " count " << count << " flags " << flags;
            if (found)
            {
                ASSERT_EQ(foundOffset, expectedOffset)
                    << "text \"" << text << "\" pattern \"" << pattern << "\"";
                ++hits;
            }
        }
    }
    EXPECT_GT(hits, 2000u);
}

TEST(KivStringFind, EdgeCasesOfRangeAndPattern)
{
    KivString string("abcabc");
    unsigned int offset = 99;
    EXPECT_FALSE(string.Find("", 0, 100, 0, offset));
    EXPECT_FALSE(string.Find("abc", 1, 2, 0, offset)); // pattern longer than the range
    EXPECT_FALSE(string.Find("a", 6, 100, 0, offset)); // start at the end
    EXPECT_EQ(offset, 99u);

    EXPECT_TRUE(string.Find("abc", 500, 0xFFFFFFFFu, kKivString_Backward, offset)); // from the last byte
    EXPECT_EQ(offset, 3u);
    EXPECT_TRUE(string.Find('c', 4, 0xFFFFFFFFu, kKivString_Backward, offset));
    EXPECT_EQ(offset, 2u);
    const unsigned char pascal[] = {2, 'C', 'A'};
    EXPECT_TRUE(string.Find(pascal, 0, 100, kKivString_CaseInsensitive, offset));
    EXPECT_EQ(offset, 2u);
    EXPECT_TRUE(string.Find("ca", 2, 4, 0, offset));
    EXPECT_FALSE(string.Find("ca", 3, 3, 0, offset));

    // Case-insensitive search folds accented letters too: 0x8A and 0x80 are a case pair.
    EXPECT_TRUE(KivString("caf\x8A").Contains("CAF\x80", kKivString_CaseInsensitive));
    EXPECT_FALSE(KivString("caf\x8A").Contains("CAF\x80"));
    EXPECT_TRUE(KivString("x\0y", 3).Contains(KivString("\0y", 2)));
    EXPECT_TRUE(KivString("abc").Contains('c'));

    // A long pattern found at the end of a longer text.
    std::string longText(600, 'a');
    std::string longPattern(200, 'a');
    longPattern.back() = 'b';
    longText.replace(400, 200, longPattern);
    EXPECT_TRUE(FromStd(longText).Find(FromStd(longPattern), 0, 0xFFFFFFFFu, 0, offset));
    EXPECT_EQ(offset, 400u);
}

// ---------------------------------------------------------------------------------------------
// Ordering, prefixes, case

TEST(KivString, CompareToOrdersBytesAsSignedValues)
{
    EXPECT_EQ(KivString("a").CompareTo("ab"), kKivCompare_Less);
    EXPECT_EQ(KivString("ab").CompareTo("a"), kKivCompare_Greater);
    EXPECT_EQ(KivString("ab").CompareTo(KivString("ab")), kKivCompare_Equal);
    EXPECT_EQ(KivString().CompareTo(""), kKivCompare_Equal);
    EXPECT_EQ(KivString("\xE9").CompareTo("A"), kKivCompare_Less);
    EXPECT_EQ(KivString("A").CompareTo('\xE9'), kKivCompare_Greater);
    EXPECT_EQ(KivString("\xFF").CompareTo("\x80"), kKivCompare_Greater);
    EXPECT_EQ(KivString(" ").CompareTo("\x7F"), kKivCompare_Less);
    EXPECT_EQ(KivString("\x01").CompareTo(KivString("\0", 1)), kKivCompare_Greater);

    EXPECT_EQ(KivString("Hello").CompareTo("hELLO", kKivString_CaseInsensitive), kKivCompare_Equal);
    EXPECT_EQ(KivString("a").CompareTo("B", kKivString_CaseInsensitive), kKivCompare_Less);
    EXPECT_EQ(KivString("a").CompareTo("B"), kKivCompare_Greater);
    // Only ASCII folds in comparisons: 0x8A is not equal to its upper-case partner 0x80.
    EXPECT_EQ(KivString("\x8A").CompareTo("\x80", kKivString_CaseInsensitive), kKivCompare_Greater);

    EXPECT_TRUE(KivString("\xE9") < KivString("A"));
    EXPECT_TRUE(KivString("b") > KivString("a"));
    EXPECT_TRUE(KivString("a\0b", 3) != KivString("a\0c", 3));
    EXPECT_TRUE(KivString("x") == "x");
    EXPECT_TRUE("x" == KivString("x"));
    EXPECT_TRUE("x" != KivString("X"));
}

TEST(KivString, BeginsWithAndEndsWith)
{
    KivString string("Index.HTML");
    const unsigned char pascal[] = {2, 'I', 'n'};
    EXPECT_TRUE(string.BeginsWith("Ind"));
    EXPECT_TRUE(string.BeginsWith(pascal));
    EXPECT_TRUE(string.BeginsWith('I'));
    EXPECT_FALSE(string.BeginsWith("ind"));
    EXPECT_TRUE(string.BeginsWith("ind", kKivString_CaseInsensitive));
    EXPECT_TRUE(string.EndsWith(".html", kKivString_CaseInsensitive));
    EXPECT_FALSE(string.EndsWith(".html"));
    EXPECT_TRUE(string.EndsWith(KivString("ML")));
    EXPECT_TRUE(string.EndsWith('L'));
    EXPECT_TRUE(string.BeginsWith(string));
    EXPECT_FALSE(string.BeginsWith(""));
    EXPECT_FALSE(string.EndsWith(KivString()));
    EXPECT_FALSE(string.EndsWith("xIndex.HTML"));
    EXPECT_FALSE(KivString("caf\x8A").EndsWith("\x80", kKivString_CaseInsensitive));
}

TEST(KivString, CaseMapsFollowMacOSRoman)
{
    const unsigned char pairs[][2] = {{'a', 'A'},   {'z', 'Z'},   {0x87, 0xE7}, {0x8A, 0x80},
                                      {0x9F, 0x86}, {0xBE, 0xAE}, {0xCF, 0xCE}, {0xD8, 0xD9}};
    for (const auto& pair : pairs)
    {
        EXPECT_EQ(KivString::GetUppercaseCharacter(pair[0]), pair[1]);
        EXPECT_EQ(KivString::GetLowercaseCharacter(pair[1]), pair[0]);
    }
    for (unsigned char unchanged :
         {(unsigned char)'0', (unsigned char)'@', (unsigned char)0xA0, (unsigned char)0xFF})
    {
        EXPECT_EQ(KivString::GetUppercaseCharacter(unchanged), unchanged);
        EXPECT_EQ(KivString::GetLowercaseCharacter(unchanged), unchanged);
    }
}

TEST(KivString, ConvertToUppercaseMapsAccentsAndConvertToLowercaseUpperCasesThem)
{
    KivString upper("caf\x8E \x87t\xE9!");
    upper.ConvertToUppercase();
    EXPECT_EQ(Text(upper), "CAF\x83 \xE7T\xE9!");

    // Lower-casing lower-cases ASCII but turns accented letters into their upper-case forms,
    // and leaves upper-case accented letters alone.
    KivString lower("ABC\x8A\x80\xE7z");
    lower.ConvertToLowercase();
    EXPECT_EQ(Text(lower), "abc\x80\x80\xE7z");

    KivString ranged("ABCDEF");
    ranged.ConvertToLowercase(2, 2);
    EXPECT_EQ(Text(ranged), "ABcdEF");
    ranged.ConvertToLowercase(4, 100);
    EXPECT_EQ(Text(ranged), "ABcdef");
    ranged.ConvertToUppercase(6, 1);
    EXPECT_EQ(Text(ranged), "ABcdef");
    ranged.ConvertToUppercase(1, 2);
    EXPECT_EQ(Text(ranged), "ABCdef");
}

// ---------------------------------------------------------------------------------------------
// Trimming, reversing, copying out

TEST(KivString, TrimRemovesRunsFromTheEndsAndCountsThem)
{
    KivString string(" \t x y \t ");
    EXPECT_EQ(string.TrimRight(" \t"), 3u);
    EXPECT_EQ(Text(string), " \t x y");
    EXPECT_EQ(string.TrimLeft(' '), 1u);
    EXPECT_EQ(Text(string), "\t x y");

    KivString both("--x-y--");
    EXPECT_EQ(both.Trim('-'), 4u);
    EXPECT_EQ(Text(both), "x-y");
    KivString all("....");
    EXPECT_EQ(all.Trim("."), 4u);
    EXPECT_TRUE(all.IsEmpty());

    // The set is zero-terminated, so a zero byte in the string is never part of it.
    KivString zeros("\0\0a", 3);
    EXPECT_EQ(zeros.TrimLeft(""), 0u);
    EXPECT_EQ(zeros.TrimLeft(static_cast<const char*>(nullptr)), 0u);
    EXPECT_EQ(zeros.TrimLeft('\0'), 2u);
    EXPECT_EQ(Text(zeros), "a");

    KivString counted("abc");
    EXPECT_EQ(counted.TrimRight(1u), 1u);
    EXPECT_EQ(Text(counted), "ab");
    EXPECT_EQ(counted.TrimLeft(100u), 2u);
    EXPECT_EQ(Text(counted), "");
    KivString three("abc");
    EXPECT_EQ(three.TrimLeft(100u), 3u);
}

TEST(KivString, ReverseSwapsBytesEndForEnd)
{
    KivString odd("abcde"), even("ab\0d", 4), single("x");
    odd.Reverse();
    even.Reverse();
    single.Reverse();
    EXPECT_EQ(Text(odd), "edcba");
    EXPECT_EQ(Text(even), std::string("d\0ba", 4));
    EXPECT_EQ(Text(single), "x");
}

TEST(KivString, GetCStringCopiesAtMostTheBufferSizeAndTerminates)
{
    char buffer[12];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(KivString("abc").GetCString(buffer, 10), 3u);
    EXPECT_STREQ(buffer, "abc");

    // A string of exactly the buffer size is copied whole; its terminator goes one byte further.
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(KivString("0123456789").GetCString(buffer, 10), 10u);
    EXPECT_EQ(std::string(buffer, 11), std::string("0123456789\0", 11));

    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(KivString("0123456789A").GetCString(buffer, 10), 9u);
    EXPECT_STREQ(buffer, "012345678");

    EXPECT_EQ(KivString("abc").GetCString(nullptr, 10), 0u);
}

TEST(KivString, GetPascalStringPrefixesTheLength)
{
    unsigned char buffer[300];
    EXPECT_EQ(KivString("hello").GetPascalString(buffer, 3), 3u);
    EXPECT_EQ(std::string((const char*)buffer, 4), "\x03hel");
    EXPECT_EQ(KivString("hi").GetPascalString(buffer, 255), 2u);
    EXPECT_EQ(std::string((const char*)buffer, 3), "\x02hi");
    EXPECT_EQ(KivString('x', 400).GetPascalString(buffer, 255), 255u);
    EXPECT_EQ(buffer[0], 255);
}

// ---------------------------------------------------------------------------------------------
// Raw buffer protocol and conversions

TEST(KivString, GetBufferLocksUntilReleaseBuffer)
{
    KivString string("old");
    char* buffer = string.GetBuffer(10);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(std::string(buffer, 3), "old"); // the bytes that fit are kept
    EXPECT_EQ(string.GetBuffer(10), nullptr);
    std::strcpy(buffer, "written");
    string.ReleaseBuffer(-1);
    EXPECT_EQ(Text(string), "written");

    buffer = string.GetBuffer(20);
    ASSERT_NE(buffer, nullptr);
    string.ReleaseBuffer(2);
    EXPECT_EQ(Text(string), "wr");
    EXPECT_EQ(string.GetCStringAccess()[2], '\0');

    // A copy taken while locked shares the lock, so it cannot hand out the same bytes again.
    string.GetBuffer(4);
    KivString copy(string);
    EXPECT_EQ(copy.GetBuffer(4), nullptr);
    string.ReleaseBuffer(0);
    EXPECT_TRUE(string.IsEmpty());
}

TEST(KivStringDeathTest, ReleaseBufferChecksTheLockAndTheLength)
{
    EXPECT_DEATH(
        KivString("abc").ReleaseBuffer(1),
        "^\tFILE: \"src/KivString\"\nSTATE ASSERTION FAILURE: myStringRepresentation->IsLocked\\(\\)\n$");
    EXPECT_DEATH(
        {
            KivString string;
            string.GetBuffer(10); // capacity 32
            string.ReleaseBuffer(32);
        },
        "^\tFILE: \"src/KivString\"\nSTATE ASSERTION FAILURE: \\(stringLength < \\(KivSInt32\\) "
        "myStringRepresentation->GetSize\\(\\)\\)\n$");
    EXPECT_DEATH(
        {
            KivString string;
            std::memset(string.GetBuffer(10), 'x', 32); // no zero byte anywhere in the block
            string.ReleaseBuffer(-1);
        },
        "STATE ASSERTION FAILURE: \\(stringLength < \\(KivSInt32\\) "
        "myStringRepresentation->GetSize\\(\\)\\)");
}

TEST(KivStringDeathTest, FailedStorageAllocationAborts)
{
    EXPECT_DEATH(
        {
            KivString string("abc");
            KivObject::SetMemoryAllocatorDeallocatorProcs([](unsigned int) -> void* { return nullptr; },
                                                          nullptr);
            string.Append("more than the 32 bytes that the string has room for");
        },
        "^\tFILE: \"src/KivBuffer\"\nNULL POINTER ASSERTION: newBufferData\n$");
}

TEST(KivString, TruthValues)
{
    for (const char* word : {"true", "T", "Yes", "y", "ON", "Y", "1", "tRuE"})
        EXPECT_TRUE(bool(KivString(word))) << word;
    for (const char* word : {"2", "", "no", "off", "0", "yes ", " 1", "truth"})
        EXPECT_FALSE(bool(KivString(word))) << word;
}

TEST(KivString, ConvertsToABufferOfExactlyItsLength)
{
    KivString string("a\0c", 3);
    string.Reserve(100);
    KivBuffer buffer = string;
    ASSERT_EQ(buffer.GetSize(), 3u);
    EXPECT_EQ(std::string(static_cast<const char*>(buffer.GetAddress()), 3), std::string("a\0c", 3));
    KivBuffer empty = KivString();
    EXPECT_EQ(empty.GetSize(), 0u);
}

// ---------------------------------------------------------------------------------------------
// Streams

TEST(KivStringStream, ReadsUpToTheFirstZeroByteAndCanBeRepositioned)
{
    KivString source("ab\0cd", 5);
    KivStringStream stream(source);
    source.SetAt(0, 'X'); // the stream holds its own copy
    unsigned char byte = 0;
    std::string read;
    while (stream.GetNextByte(byte))
        read += (char)byte;
    EXPECT_EQ(read, "ab");
    EXPECT_EQ(byte, 0);
    EXPECT_FALSE(stream.GetNextByte(byte)); // stays at the zero byte

    EXPECT_TRUE(stream.SetByteOffset(3));
    ASSERT_TRUE(stream.GetNextByte(byte));
    EXPECT_EQ(byte, 'c');
    EXPECT_FALSE(stream.SetByteOffset(5));

    const KivDataStream& base = stream;
    ASSERT_TRUE(base.GetNextByte(byte));
    EXPECT_EQ(byte, 'd');
    EXPECT_FALSE(base.GetNextByte(byte));
}

TEST(KivBufferStream, ReadsExactlyTheBlockIncludingZeroBytes)
{
    const char bytes[] = {'a', '\0', 'b'};
    KivBufferStream stream(bytes, 3);
    unsigned char byte = 0;
    std::string read;
    while (stream.GetNextByte(byte))
        read += (char)byte;
    EXPECT_EQ(read, std::string("a\0b", 3));

    KivBufferStream empty(bytes, 0);
    EXPECT_FALSE(empty.GetNextByte(byte));
    KivBufferStream none(nullptr, 10);
    EXPECT_FALSE(none.GetNextByte(byte));
}
