// Number <-> text conversions at their limits, and the exact URL and HTML encodings that pages
// rely on, with their inverses.
#include "KivStringUtility.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <random>
#include <set>
#include <string>

namespace
{
std::string Std(const KivString& string_i)
{
    return std::string(string_i.GetCStringAccess(), string_i.GetLength());
}
KivString Kiv(const std::string& string_i)
{
    return KivString(string_i.data(), (unsigned int)string_i.size());
}

int ToInt(const std::string& text_i, unsigned char radix_i = 10)
{
    return KivStringUtility::GetNumericalRepresentation(Kiv(text_i), radix_i);
}

std::string RandomBytes(std::mt19937& generator_io)
{
    std::string bytes(generator_io() % 40, '\0');
    for (char& byte : bytes)
        byte = (char)(generator_io() & 0xFF);
    return bytes;
}

std::string Html(const std::string& text_i)
{
    return Std(KivStringUtility::GetHTMLEncodedString(Kiv(text_i)));
}
std::string Url(const std::string& text_i, bool path_i)
{
    return Std(KivStringUtility::GetURLEncodedString(Kiv(text_i), path_i));
}
} // namespace

TEST(KivStringUtility, UnsignedToText)
{
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(0u, 10, 1)), "0");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(7u, 10, 3)), "007");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(1234u, 10, 2)), "1234");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(255u, 16, 1)), "FF");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(35u, 36, 1)), "Z");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(5u, 2, 8)), "00000101");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(UINT_MAX, 10, 1)), "4294967295");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(UINT_MAX, 16, 1)), "FFFFFFFF");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(UINT_MAX, 2, 1)), std::string(32, '1'));
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(1u, 10, 255)), std::string(254, '0') + "1");
}

TEST(KivStringUtility, BadRadixGivesTheEmptyString)
{
    for (unsigned char radix : {0, 1, 37, 255})
    {
        EXPECT_TRUE(KivStringUtility::GetStringRepresentation(0u, radix, 1).IsEmpty()) << (int)radix;
        EXPECT_TRUE(KivStringUtility::GetStringRepresentation(12u, radix, 1).IsEmpty()) << (int)radix;
        EXPECT_TRUE(KivStringUtility::GetStringRepresentation(-12, radix, 1).IsEmpty()) << (int)radix;
    }
}

TEST(KivStringUtility, MinimumOfZeroDigitsWarnsAndCountsAsOne)
{
    testing::internal::CaptureStderr();
    KivString text = KivStringUtility::GetStringRepresentation(0u, 10, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\tFILE: \"src/KivStringUtility\"\nSTATE WARNING: minimumDigitCount_i < 1\n");
    EXPECT_EQ(Std(text), "0");

    testing::internal::CaptureStderr();
    text = KivStringUtility::GetStringRepresentation(-5, 10, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\tFILE: \"src/KivStringUtility\"\nSTATE WARNING: minimumDigitCount_i < 1\n");
    EXPECT_EQ(Std(text), "-5");
}

TEST(KivStringUtility, SignedToText)
{
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(-7, 10, 3)), "-007");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(INT_MIN, 10, 1)), "-2147483648");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(INT_MIN, 16, 1)), "-80000000");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(INT_MAX, 10, 1)), "2147483647");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(-255, 16, 1)), "-FF");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(0, 10, 1)), "0");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(42)), "42");
}

TEST(KivStringUtility, DoubleToTextHasAFieldWidthOfFour)
{
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(1.5, 1)), " 1.5");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(12.25, 2)), "12.25");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(0.0, 0)), "   0");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(-1.5, 1)), "-1.5");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(2.675, 3)), "2.675");
    EXPECT_EQ(Std(KivStringUtility::GetStringRepresentation(123456.0, 0)), "123456");

    // Long results are not cut off.
    std::string huge = Std(KivStringUtility::GetStringRepresentation(1e300, 200));
    char expected[600];
    std::snprintf(expected, sizeof(expected), "%.200f", 1e300);
    EXPECT_EQ(huge, expected);
}

TEST(KivStringUtility, TextToIntInRadixTen)
{
    EXPECT_EQ(ToInt(" \t+17\r\n "), 17);
    EXPECT_EQ(ToInt("1,000,000"), 1000000);
    EXPECT_EQ(ToInt("1,250"), 1250);
    EXPECT_EQ(ToInt("12.9"), 12);
    EXPECT_EQ(ToInt(" 42abc"), 42);
    EXPECT_EQ(ToInt("abc"), 0);
    EXPECT_EQ(ToInt(""), 0);
    EXPECT_EQ(ToInt(" \r\n\t"), 0);
    EXPECT_EQ(ToInt("-"), 0);
    EXPECT_EQ(ToInt("\t-12"), -12);
    EXPECT_EQ(ToInt("- 12"), 0);
    EXPECT_EQ(ToInt("+-12"), 0);
    EXPECT_EQ(ToInt(std::string("12\0"
                                "34",
                                5)),
              12);
    EXPECT_EQ(ToInt("2147483647"), INT_MAX);
    EXPECT_EQ(ToInt("-2147483648"), INT_MIN);
    EXPECT_EQ(ToInt("2147483648"), INT_MIN); // overflow wraps
    EXPECT_EQ(ToInt("4294967297"), 1);
}

TEST(KivStringUtility, TextToIntInOtherRadixes)
{
    EXPECT_EQ(ToInt("-ff", 16), -255);
    EXPECT_EQ(ToInt("FFFFFFFF", 16), -1);
    EXPECT_EQ(ToInt("7fffffff", 16), INT_MAX);
    EXPECT_EQ(ToInt("1,0", 16), 1); // commas are skipped only in radix 10
    EXPECT_EQ(ToInt("10102", 2), 10);
    EXPECT_EQ(ToInt("zz", 36), 1295);
    EXPECT_EQ(ToInt("z[", 36), 35);
    EXPECT_EQ(ToInt("1\xE9", 36), 1); // bytes above 0x7F are no digit in any radix
    EXPECT_EQ(ToInt("19", 8), 1);
    EXPECT_EQ(ToInt("12", 37), 0);
    EXPECT_EQ(ToInt("12", 255), 0);
    EXPECT_EQ(ToInt("12", 0), 0);
}

TEST(KivStringUtility, TextToIntReadsBackEveryRepresentation)
{
    std::mt19937 generator(5);
    for (int round = 0; round < 500; ++round)
    {
        int value = (int)generator();
        unsigned char radix = (unsigned char)(2 + generator() % 35);
        KivString text = KivStringUtility::GetStringRepresentation(value, radix, 1);
        ASSERT_EQ(KivStringUtility::GetNumericalRepresentation(text, radix), value)
            << Std(text) << " radix " << (int)radix;
    }
}

TEST(KivStringUtility, TextToDouble)
{
    EXPECT_DOUBLE_EQ(KivStringUtility::GetNumericalRepresentation(KivString("3.25")), 3.25);
    EXPECT_DOUBLE_EQ(KivStringUtility::GetNumericalRepresentation(KivString("  -1e3x")), -1000.0);
    EXPECT_DOUBLE_EQ(KivStringUtility::GetNumericalRepresentation(KivString("abc")), 0.0);
    EXPECT_DOUBLE_EQ(KivStringUtility::GetNumericalRepresentation(KivString()), 0.0);
}

TEST(KivStringUtility, URLEncodingExamples)
{
    EXPECT_EQ(Url("a b&c/d", false), "a%20b%26c/d");
    EXPECT_EQ(Url("a b&c/d", true), "a%20b%26c%2Fd");
    EXPECT_EQ(Url("http://host/~me?q=1+2", true), "http%3A%2F%2Fhost%2F%7Eme%3Fq%3D1%2B2");
    EXPECT_EQ(Url("50%", false), "50%25");

    KivString plain("Hello-World_(1).txt,it's!*");
    KivString unchanged(plain);
    EXPECT_FALSE(KivStringUtility::URLEncode(plain, true));
    EXPECT_TRUE(plain == unchanged);

    KivString text("x y");
    EXPECT_TRUE(KivStringUtility::URLEncode(text, false));
    EXPECT_TRUE(text == "x%20y");
}

TEST(KivStringUtility, EncodingsOfLongValuesComeBackWhole)
{
    // A long value made only of encoded characters grows five- or threefold; each encoder sizes
    // its result once instead of letting it grow 32 bytes at a time.
    std::string ampersands(200000, '&');
    std::string html = Html(ampersands);
    ASSERT_EQ(html.size(), 1000000u);
    EXPECT_EQ(html.compare(0, 10, "&amp;&amp;"), 0);
    EXPECT_EQ(html.compare(html.size() - 5, 5, "&amp;"), 0);

    std::string mixed;
    for (int byte = 0; byte < 256; ++byte)
        mixed += (char)byte;
    std::string expected;
    for (int byte = 0; byte < 256; ++byte)
        expected += Html(std::string(1, (char)byte));
    EXPECT_EQ(Html(mixed), expected);

    std::string slashes(200000, '/');
    std::string url = Url(slashes, true);
    ASSERT_EQ(url.size(), 600000u);
    EXPECT_EQ(url.compare(0, 6, "%2F%2F"), 0);
    EXPECT_EQ(Url(slashes, false), slashes);
}

TEST(KivStringUtility, URLEncodingOfEveryByte)
{
    const std::set<int> always = {32, 34, 35, 36, 37, 38, 43, 59,  60,  61, 62,
                                  63, 64, 91, 92, 93, 94, 96, 123, 124, 125};
    const std::set<int> path = {47, 58, 126};
    for (int byte = 0; byte < 256; ++byte)
    {
        std::string single(1, (char)byte);
        char escaped[4];
        std::snprintf(escaped, sizeof(escaped), "%%%02X", byte);
        bool encoded = always.count(byte) != 0;
        EXPECT_EQ(Url(single, false), encoded ? escaped : single) << byte;
        EXPECT_EQ(Url(single, true), encoded || path.count(byte) != 0 ? escaped : single) << byte;
    }
}

TEST(KivStringUtility, URLDecodingUndoesTheEncoding)
{
    std::mt19937 generator(11);
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = RandomBytes(generator);
        for (bool path : {false, true})
            ASSERT_EQ(Std(KivStringUtility::GetURLDecodedString(Kiv(Url(bytes, path)))), bytes);
    }
    EXPECT_EQ(Std(KivStringUtility::GetURLDecodedString("%e9t%C3%A9")), "\xE9t\xC3\xA9");

    // Incomplete or malformed escapes stay as they are.
    KivString malformed("100%, %4 and %zz%");
    EXPECT_FALSE(KivStringUtility::URLDecode(malformed));
    EXPECT_TRUE(malformed == "100%, %4 and %zz%");
}

TEST(KivStringUtility, HTMLEncodingExamples)
{
    EXPECT_EQ(Html("Caf\xE9<b>"), "Caf&eacute;&lt;b&gt;");
    EXPECT_EQ(Html("\"Tom\" & 'Jerry'"), "&quot;Tom&quot; &amp; 'Jerry'");
    EXPECT_EQ(Html("\xD6"), "&Ouml;");
    EXPECT_EQ(Html("\xD3"), "&Oactue;");
    EXPECT_EQ(Html("\xAB\xF3\xFA\xDA"), "&lanquo;&oactue;&uactue;&Uactue;");
    EXPECT_EQ(Html("\xA0\xFF"), "&nbsp;&yuml;");
    EXPECT_EQ(Html(std::string("\x01\0\x7F\n", 4)), std::string("\x01\0\x7F\n", 4));
    EXPECT_EQ(Html(""), "");
}

TEST(KivStringUtility, HTMLEncodingOfBytesWithoutAnEntity)
{
    EXPECT_EQ(Html("\x80"), "&#4294967168");
    EXPECT_EQ(Html("\x9F"), "&#4294967199");
    EXPECT_EQ(Html("a\x85z"), "a&#4294967173z");
}

TEST(KivStringUtility, EntityTableCoversLatin1Once)
{
    std::set<int> codes;
    std::set<std::string> texts;
    for (const KivStringUtility::KivEntity& entity : KivStringUtility::kEntityTable)
    {
        codes.insert(entity.myCharacterCode);
        texts.insert(entity.myEntityText);
        std::string text = entity.myEntityText;
        EXPECT_EQ(text.front(), '&');
        EXPECT_EQ(text.back(), ';');
    }
    EXPECT_EQ(codes.size(), 100u);
    EXPECT_EQ(texts.size(), 100u);
    for (int code = 160; code < 256; ++code)
        EXPECT_EQ(codes.count(code), 1u) << code;
    for (int code : {34, 38, 60, 62})
        EXPECT_EQ(codes.count(code), 1u) << code;
}

TEST(KivStringUtility, HTMLDecodingUndoesTheEncoding)
{
    std::mt19937 generator(13);
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = RandomBytes(generator);
        for (char& byte : bytes)
            if ((unsigned char)byte >= 128 && (unsigned char)byte < 160)
                byte = '&'; // the numeric form of these bytes has no way back
        ASSERT_EQ(Std(KivStringUtility::GetHTMLDecodedString(Kiv(Html(bytes)))), bytes);
    }
    EXPECT_EQ(Std(KivStringUtility::GetHTMLDecodedString("&#233;&#65;&amp")), "\xE9"
                                                                              "A&amp");
    EXPECT_EQ(Std(KivStringUtility::GetHTMLDecodedString("&bogus; &#256; &#4294967168 &;")),
              "&bogus; &#256; &#4294967168 &;");
}
