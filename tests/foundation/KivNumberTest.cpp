// KivNumber: exact decimal arithmetic checked text for text against cases that Python's decimal
// module computed (tests/data/gen_number_cases.py), plus the documented parse errors, messages,
// packed bytes and validity checks.
#include "KivNumber.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace
{
struct NumberCase
{
    int line;
    std::vector<std::string> fields;
};

std::vector<NumberCase> LoadCases()
{
    std::vector<NumberCase> cases;
    std::ifstream file(KIV_TEST_DATA_DIR "/number_cases.txt");
    std::string text;
    for (int line = 1; std::getline(file, text); ++line)
    {
        NumberCase oneCase{line, {}};
        size_t start = 0;
        for (size_t bar; (bar = text.find('|', start)) != std::string::npos; start = bar + 1)
            oneCase.fields.push_back(text.substr(start, bar - start));
        oneCase.fields.push_back(text.substr(start));
        cases.push_back(oneCase);
    }
    return cases;
}

std::vector<NumberCase> CasesOf(const std::string& operation_i)
{
    static const std::vector<NumberCase> all = LoadCases();
    std::vector<NumberCase> selected;
    for (const NumberCase& oneCase : all)
        if (oneCase.fields[0] == operation_i)
            selected.push_back(oneCase);
    return selected;
}

int Int(const std::string& text_i)
{
    return std::stoi(text_i);
}

std::string Text(const KivString& text_i)
{
    return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}
std::string Text(const KivNumber& number_i)
{
    return Text(number_i.GetStringRepresentation());
}

std::string Hex(const KivString& bytes_i)
{
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < bytes_i.GetLength(); ++i)
    {
        unsigned char byte = (unsigned char)bytes_i[i];
        hex += digits[byte >> 4];
        hex += digits[byte & 15];
    }
    return hex;
}

KivString Bytes(const std::vector<int>& bytes_i)
{
    std::string bytes;
    for (int byte : bytes_i)
        bytes += (char)byte;
    return KivString(bytes.data(), (unsigned int)bytes.size());
}

// The standard-error text of one reported error, written here from the documented table.
std::string Message(int code_i)
{
    std::string body;
    switch (code_i)
    {
    case 2001:
        body = "Invalid Parameter";
        break;
    case 2002:
        body = "Null Pointer Parameter for Output";
        break;
    case 2003:
        body = "Null Pointer Parameter for Input";
        break;
    case -2041:
        body = "Alpha Expected";
        break;
    case -2042:
        body = "Alpha or Digit Expected";
        break;
    case -2043:
        body = "Char Too Long";
        break;
    case -2044:
        body = "Dec Point Invalid";
        break;
    case -2045:
        body = "Digit Expected";
        break;
    case -2046:
        body = "Divide By Zero";
        break;
    case -2047:
        body = "Negative Num to Unsigned";
        break;
    case -2048:
        body = "Overflow Short";
        break;
    case -2049:
        body = "Overflow Unsigned Short";
        break;
    case -2050:
        body = "Overflow Long";
        break;
    case -2051:
        body = "Overflow Unsigned Long";
        break;
    case -2052:
        body = "Overflow Double";
        break;
    case -2053:
        body = "Overflow Number";
        break;
    case -2054:
        body = "Sign Invalid";
        break;
    case -2055:
        body = "Zero Raised to Negative Power";
        break;
    default:
        body = "Unknown error";
        break;
    }
    return "\tFILE: \"src/KivNumber\"\nKivNumber: " + body + "\n;g";
}

const std::string kFiftyNines(50, '9');

// Runs a case whose operands are "a" (fields 1-3) and "b" (fields 4-6).
struct BinaryCase
{
    explicit BinaryCase(const NumberCase& case_i)
        : left(Int(case_i.fields[1]), Int(case_i.fields[2]), case_i.fields[3].c_str()),
          right(Int(case_i.fields[4]), Int(case_i.fields[5]), case_i.fields[6].c_str())
    {
    }
    KivNumber left;
    KivNumber right;
};

// Checks every case of an in-place operation and the exact standard-error text of its errors.
template <typename Operation> void CheckInPlaceCases(const std::string& name_i, Operation operation_i)
{
    std::vector<NumberCase> cases = CasesOf(name_i);
    ASSERT_GT(cases.size(), 100u) << name_i;
    std::string expectedErrors;
    testing::internal::CaptureStderr();
    for (const NumberCase& oneCase : cases)
    {
        BinaryCase operands(oneCase);
        int code = operation_i(operands.left, operands.right);
        EXPECT_EQ(Text(operands.left), oneCase.fields[7]) << name_i << " case on line " << oneCase.line;
        EXPECT_EQ(code, Int(oneCase.fields[8])) << name_i << " case on line " << oneCase.line;
        if (code != 0)
            expectedErrors += Message(code);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErrors);
}

// Condition text of an assertion as a regular expression matching it literally.
std::string AssertionPattern(const std::string& condition_i)
{
    std::string pattern = "^\tFILE: \"src/KivNumber\"\nSTATE ASSERTION FAILURE: ";
    for (char character : condition_i)
    {
        if (std::string(".[]{}()\\*+?|^$").find(character) != std::string::npos)
            pattern += '\\';
        pattern += character;
    }
    return pattern + "\n$";
}
} // namespace

// ---- Generated cases ----

TEST(KivNumberCases, ParsingFollowsTheScanRules)
{
    std::vector<NumberCase> cases = CasesOf("parse");
    ASSERT_GT(cases.size(), 1000u);
    std::string expectedErrors;
    testing::internal::CaptureStderr();
    for (const NumberCase& oneCase : cases)
    {
        KivNumber number(Int(oneCase.fields[1]), Int(oneCase.fields[2]));
        int code = number.AssignString(oneCase.fields[3].c_str());
        EXPECT_EQ(Text(number), oneCase.fields[4])
            << "line " << oneCase.line << ": '" << oneCase.fields[3] << "'";
        EXPECT_EQ(code, Int(oneCase.fields[5]))
            << "line " << oneCase.line << ": '" << oneCase.fields[3] << "'";
        if (code != 0)
            expectedErrors += Message(code);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErrors);
}

TEST(KivNumberCases, PackedBytesAndCurrentLengths)
{
    std::vector<NumberCase> cases = CasesOf("pack");
    ASSERT_GT(cases.size(), 100u);
    for (const NumberCase& oneCase : cases)
    {
        KivNumber number(Int(oneCase.fields[1]), Int(oneCase.fields[2]), oneCase.fields[3].c_str());
        EXPECT_EQ(Hex(number.GetInternalData()), oneCase.fields[4]) << "line " << oneCase.line;
        int numLen = -1;
        int scale = -1;
        number.GetCurrentNumLenAndScale(&numLen, &scale);
        EXPECT_EQ(numLen, Int(oneCase.fields[5])) << "line " << oneCase.line;
        EXPECT_EQ(scale, Int(oneCase.fields[6])) << "line " << oneCase.line;
        EXPECT_EQ(number.GetCurrentIntegralLen(), Int(oneCase.fields[7])) << "line " << oneCase.line;
    }
}

TEST(KivNumberCases, AdditionAndSubtraction)
{
    CheckInPlaceCases("add", [](KivNumber& left, const KivNumber& right) { return left.Add(right); });
    CheckInPlaceCases("sub", [](KivNumber& left, const KivNumber& right) { return left.Subtract(right); });
}

TEST(KivNumberCases, MultiplicationRoundsHalfUpToTheScale)
{
    CheckInPlaceCases("mul", [](KivNumber& left, const KivNumber& right) { return left.Multiply(right); });
}

TEST(KivNumberCases, DivisionRoundsHalfUpToTheScale)
{
    CheckInPlaceCases("div",
                      [](KivNumber& left, const KivNumber& right) { return left.DivideNoRemainder(right); });
    CheckInPlaceCases("mod", [](KivNumber& left, const KivNumber& right) { return left.Remainder(right); });
}

TEST(KivNumberCases, DivisionWithQuotientAndRemainder)
{
    std::vector<NumberCase> cases = CasesOf("divmod");
    ASSERT_GT(cases.size(), 100u);
    testing::internal::CaptureStderr();
    std::string expectedErrors;
    for (const NumberCase& oneCase : cases)
    {
        BinaryCase operands(oneCase);
        KivNumber quotient(operands.left.GetLength(), operands.left.GetScale());
        KivNumber remainder(operands.left.GetLength(), operands.left.GetScale());
        std::string dividendBefore = Text(operands.left);
        int code = operands.left.Divide(operands.right, &quotient, &remainder);
        EXPECT_EQ(Text(quotient), oneCase.fields[7]) << "line " << oneCase.line;
        EXPECT_EQ(Text(remainder), oneCase.fields[8]) << "line " << oneCase.line;
        EXPECT_EQ(code, Int(oneCase.fields[9])) << "line " << oneCase.line;
        EXPECT_EQ(Text(operands.left), dividendBefore) << "line " << oneCase.line;
        if (code != 0)
            expectedErrors += Message(code);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErrors);
}

TEST(KivNumberCases, Comparisons)
{
    std::vector<NumberCase> cases = CasesOf("cmp");
    ASSERT_GT(cases.size(), 100u);
    for (const NumberCase& oneCase : cases)
    {
        BinaryCase operands(oneCase);
        int expected = Int(oneCase.fields[7]);
        EXPECT_EQ(operands.left.CompareValue(operands.right), expected) << "line " << oneCase.line;
        EXPECT_EQ(operands.right.CompareValue(operands.left), -expected) << "line " << oneCase.line;
        EXPECT_EQ(operands.left < operands.right, expected < 0) << "line " << oneCase.line;
        EXPECT_EQ(operands.left == operands.right, expected == 0) << "line " << oneCase.line;
        EXPECT_EQ(operands.left >= operands.right, expected >= 0) << "line " << oneCase.line;
    }
}

TEST(KivNumberCases, RoundingAndScaledText)
{
    testing::internal::CaptureStderr();
    std::string expectedErrors;
    for (const NumberCase& oneCase : CasesOf("round"))
    {
        KivNumber number(Int(oneCase.fields[1]), Int(oneCase.fields[2]), oneCase.fields[3].c_str());
        int code = number.Round(Int(oneCase.fields[4]));
        EXPECT_EQ(Text(number), oneCase.fields[5]) << "line " << oneCase.line;
        EXPECT_EQ(code, Int(oneCase.fields[6])) << "line " << oneCase.line;
        if (code != 0)
            expectedErrors += Message(code);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErrors);

    std::vector<NumberCase> cases = CasesOf("text");
    ASSERT_GT(cases.size(), 100u);
    for (const NumberCase& oneCase : cases)
    {
        KivNumber number(Int(oneCase.fields[1]), Int(oneCase.fields[2]), oneCase.fields[3].c_str());
        KivString text =
            number.GetStringRepresentation((unsigned int)Int(oneCase.fields[4]), oneCase.fields[5] == "1");
        EXPECT_EQ(Text(text), oneCase.fields[6]) << "line " << oneCase.line;
    }
}

TEST(KivNumberCases, PowersAndLengthChanges)
{
    testing::internal::CaptureStderr();
    std::string expectedErrors;
    for (const NumberCase& oneCase : CasesOf("pow"))
    {
        KivNumber base(Int(oneCase.fields[1]), Int(oneCase.fields[2]), oneCase.fields[3].c_str());
        KivNumber power = base.pow(Int(oneCase.fields[4]));
        EXPECT_EQ(Text(power), oneCase.fields[5]) << "line " << oneCase.line;
        if (Int(oneCase.fields[6]) != 0)
            expectedErrors += Message(Int(oneCase.fields[6]));
    }
    for (const NumberCase& oneCase : CasesOf("setls"))
    {
        KivNumber number(Int(oneCase.fields[1]), Int(oneCase.fields[2]), oneCase.fields[3].c_str());
        int code = number.SetLengthAndScale(Int(oneCase.fields[4]), Int(oneCase.fields[5]));
        EXPECT_EQ(Text(number), oneCase.fields[6]) << "line " << oneCase.line;
        EXPECT_EQ(code, Int(oneCase.fields[7])) << "line " << oneCase.line;
        if (code != 0)
            expectedErrors += Message(code);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expectedErrors);
}

// ---- Parsing ----

TEST(KivNumberParse, EmptyTextIsNullAndZerosAreZero)
{
    KivNumber number("5");
    number.AssignString("");
    EXPECT_TRUE(number.IsNull());
    EXPECT_EQ(Text(number), "");
    number.AssignString((const char*)nullptr);
    EXPECT_TRUE(number.IsNull());
    for (const char* zero : {"0", "-0", "000.000", "-.", "  +0  "})
    {
        KivNumber parsed(zero);
        EXPECT_EQ(Text(parsed.GetInternalData()), "o") << zero;
        EXPECT_TRUE(parsed.IsZero()) << zero;
        EXPECT_FALSE(parsed.IsNegative()) << zero;
        EXPECT_EQ(Text(parsed), "0") << zero;
    }
}

TEST(KivNumberParse, ErrorsReportTheirMessageAndKeepOrResetTheValue)
{
    struct
    {
        const char* text;
        int code;
        const char* valueAfter;
    } cases[] = {
        {"1234.5", -2053, "12.5"}, // integral capacity of (5, 2) is 3 digits
        {"1.2x", -2045, "12.5"},   {"12a", -2045, "12.5"}, {"12-", -2054, "12.5"},
        {"12 +", -2054, "12.5"},   {"1.2.3", -2044, "0"},  {"999.996", -2053, "12.5"},
    };
    for (const auto& oneCase : cases)
    {
        KivNumber number(5, 2, "12.5");
        testing::internal::CaptureStderr();
        EXPECT_EQ(number.AssignString(oneCase.text), oneCase.code) << oneCase.text;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(oneCase.code)) << oneCase.text;
        EXPECT_EQ(Text(number), oneCase.valueAfter) << oneCase.text;
    }
}

TEST(KivNumberParse, DigitsPastTheScaleRoundAndEndTheScan)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(Text(KivNumber(5, 2, "1.234x")), "1.23"); // the scan stops at the third decimal
    EXPECT_EQ(Text(KivNumber(5, 2, "1.235x")), "1.24");
    EXPECT_EQ(Text(KivNumber(5, 2, "-1.995")), "-2");
    EXPECT_EQ(Text(KivNumber(5, 0, "1.2.3")), "1");
    EXPECT_EQ(Text(KivNumber(5, 2, "12   ")), "12");
    EXPECT_EQ(Text(KivNumber(5, 2, "   -.5")), "-0.5");
    EXPECT_EQ(Text(KivNumber(5, 2, "0.004")), "0");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(KivNumberParse, PackedFormOfTheDocumentedExamples)
{
    EXPECT_EQ(KivNumber("123.45").GetInternalData(), Bytes({'p', 12, 22, 44, 60}));
    EXPECT_EQ(KivNumber("-123.45").GetInternalData(), Bytes({'n', -12, -22, -44, -60}));
    EXPECT_EQ(KivNumber("0.05").GetInternalData(), Bytes({'p', -12, 60}));
    KivNumber number("123.45");
    EXPECT_EQ(number.GetCurrentNumLen(), 5);
    EXPECT_EQ(number.GetCurrentScale(), 2);
    EXPECT_EQ(number.GetCurrentIntegralLen(), 3);
    EXPECT_EQ(KivNumber("1200").GetCurrentScale(), 0);
    EXPECT_EQ(KivNumber("1200").GetCurrentIntegralLen(), 4);
}

// ---- Text forms and conversions ----

TEST(KivNumberText, PlainAndScaledForms)
{
    EXPECT_EQ(Text(KivNumber("0123.4500")), "123.45");
    EXPECT_EQ(Text(KivNumber("100")), "100");
    EXPECT_EQ(Text(KivNumber("-0.5")), "-0.5");
    EXPECT_EQ(Text((KivString)KivNumber("0.05")), "0.05");
    KivNumber pi("3.14159");
    EXPECT_EQ(Text(pi.GetStringRepresentation(2, true)), "3.14");
    EXPECT_EQ(Text(pi.GetStringRepresentation(2, false)), "3.14159");
    EXPECT_EQ(Text(KivNumber("5").GetStringRepresentation(2, false)), "5.00");
    EXPECT_EQ(Text(KivNumber("-0.004").GetStringRepresentation(2, true)), "0.00");
    EXPECT_EQ(Text(KivNumber().GetStringRepresentation(2, false)), "0.00");
    EXPECT_EQ(Text(KivNumber("9.995").GetStringRepresentation(0, true)), "10");
    // A page may ask for any precision; the padding stops at the largest possible scale.
    EXPECT_EQ(Text(KivNumber("1").GetStringRepresentation(4000000000U, false)), "1." + std::string(100, '0'));
}

TEST(KivNumberText, ConversionsFromAndToBuiltInNumbers)
{
    EXPECT_EQ(Text(KivNumber(-2147483647 - 1)), "-2147483648");
    EXPECT_EQ(Text(KivNumber(4294967295U)), "4294967295");
    EXPECT_EQ(Text(KivNumber((signed char)-7)), "-7");
    EXPECT_EQ(Text(KivNumber((unsigned short)65535)), "65535");
    EXPECT_EQ(Text(KivNumber(0.1)), "0.1");
    EXPECT_EQ(Text(KivNumber(3.14159)), "3.14159");
    EXPECT_EQ(Text(KivNumber(-2.5e-9)), "0"); // below the scale of 8: rounds to zero
    EXPECT_EQ((int)KivNumber("-12.9"), -12);
    EXPECT_EQ((unsigned int)KivNumber("3000000000"), 3000000000U);
    EXPECT_EQ((int)KivNumber(), 0);

    testing::internal::CaptureStderr();
    KivNumber notFinite(std::nan(""));
    KivNumber tooLarge(1e40);
    KivNumber small(5, 2);
    small = 1000;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2052) + Message(-2052) + Message(-2053));
    EXPECT_TRUE(notFinite.IsNull());
    EXPECT_TRUE(tooLarge.IsNull());
    EXPECT_TRUE(small.IsNull());
}

TEST(KivNumberText, ConstantsOfEAndPi)
{
    EXPECT_EQ(Text(KivNumber(kKivNumber_E)), "2.71828183");
    EXPECT_EQ(Text(KivNumber(100, 60, kKivNumber_Pi)), kKivNumber_Pi);
    EXPECT_STREQ(kKivNumber_PiShort, "3.14159265358979");
}

// ---- Arithmetic behaviour beyond the generated cases ----

TEST(KivNumberArithmetic, DivisionByZeroLeavesFiftyNinesAndNeverAborts)
{
    KivNumber number("12.5");
    testing::internal::CaptureStderr();
    number /= KivNumber("0");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2046));
    EXPECT_EQ(Text(number), kFiftyNines);

    // The mark is wider than the default precision; everything after it must keep working.
    testing::internal::CaptureStderr();
    KivNumber copy(number);
    KivNumber assigned(10, 2, "1");
    assigned = number;
    number += 1;
    KivNumber negated = -number;
    KivNumber scaledDown(number);
    scaledDown.SetLengthAndScale(38, 10);
    number.SetLengthAndScale(100, 20);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2053) + Message(-2053));
    EXPECT_EQ(Text(copy), kFiftyNines);
    EXPECT_EQ(Text(assigned), kFiftyNines);
    EXPECT_EQ(Text(negated), "-" + kFiftyNines);
    EXPECT_EQ(Text(number), kFiftyNines);
    EXPECT_EQ(number.GetScale(), 20);

    KivNumber quotient("3");
    KivNumber remainder("4");
    testing::internal::CaptureStderr();
    EXPECT_EQ(KivNumber("7").Divide(KivNumber(), &quotient, &remainder), -2046);
    KivNumber modulo = KivNumber("7") % 0;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2046) + Message(-2046));
    EXPECT_EQ(Text(quotient), kFiftyNines);
    EXPECT_EQ(Text(remainder), "4");
    EXPECT_EQ(Text(modulo), kFiftyNines);
}

TEST(KivNumberArithmetic, PowersOfZeroAndOne)
{
    EXPECT_EQ(Text(KivNumber("2").pow(10)), "1024");
    EXPECT_EQ(Text(KivNumber("2").pow(-2)), "0.25");
    EXPECT_EQ(Text(KivNumber("-3").pow(3)), "-27");
    EXPECT_EQ(Text(KivNumber("0").pow(5)), "0");
    EXPECT_EQ(Text(KivNumber("0").pow(0)), "1");
    EXPECT_EQ(Text(KivNumber("1").pow(-2147483647 - 1)), "1");
    testing::internal::CaptureStderr();
    KivNumber result = KivNumber("0").pow(-1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2055));
    EXPECT_EQ(Text(result), "0");
}

TEST(KivNumberArithmetic, OperatorsMixBuiltInNumbersInBothOrders)
{
    KivNumber price("19.99");
    EXPECT_EQ(Text(price + 1), "20.99");
    EXPECT_EQ(Text(1U - price), "-18.99");
    EXPECT_EQ(Text(price * (short)3), "59.97");
    EXPECT_EQ(Text(price / 2.0), "9.995");
    EXPECT_EQ(Text(100 / KivNumber("3")), "33.33333333");
    EXPECT_EQ(Text(KivNumber("7.5") % 2), "1.5");
    EXPECT_EQ(Text(KivNumber("-7") % (unsigned char)3), "-1");
    EXPECT_TRUE(price > 19);
    EXPECT_TRUE(20 > price);
    EXPECT_TRUE(price == 19.99);
    EXPECT_TRUE((signed char)-1 < price);
    EXPECT_TRUE(price != (unsigned short)20);
    EXPECT_TRUE(KivNumber() == 0); // null counts as zero

    KivNumber counter("1.5");
    EXPECT_EQ(Text(counter++), "1.5");
    EXPECT_EQ(Text(++counter), "3.5");
    EXPECT_EQ(Text(counter--), "3.5");
    EXPECT_EQ(Text(--counter), "1.5");
    EXPECT_EQ(Text(-counter), "-1.5");
    EXPECT_EQ(Text(+counter), "1.5");
    EXPECT_EQ(Text((-counter).abs()), "1.5");
    counter -= counter;
    EXPECT_EQ(Text(counter.GetInternalData()), "o");
}

TEST(KivNumberArithmetic, QuotientMayReplaceTheDividend)
{
    KivNumber number("-17.5");
    KivNumber remainder(10, 2);
    EXPECT_EQ(number.Divide(KivNumber("5"), &number, &remainder), 0);
    EXPECT_EQ(Text(number), "-3");
    EXPECT_EQ(Text(remainder), "-2.5");
}

TEST(KivNumberArithmetic, AdditionRefusesOperandsWiderThanTheCapacityUpFront)
{
    // -995 would fit in (5, 2), but the operand's first digit lies beyond its three integral
    // digits, so the addition is refused before any digit work.
    KivNumber number(5, 2, "5");
    testing::internal::CaptureStderr();
    EXPECT_EQ(number.Add(KivNumber("-1000")), -2053);
    KivNumber largest(5, 2, "999.99");
    largest++;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2053) + Message(-2053));
    EXPECT_EQ(Text(number), "5");
    EXPECT_EQ(Text(largest), "999.99");
    EXPECT_EQ(number.Add(KivNumber("-0.004")), 0);
    EXPECT_EQ(Text(number), "5"); // 4.996 rounds back up at two places
}

TEST(KivNumberArithmetic, AssignmentKeepsPrecisionAndScale)
{
    KivNumber money(10, 2);
    money = KivNumber("2.345");
    EXPECT_EQ(Text(money), "2.35");
    EXPECT_EQ(money.GetScale(), 2);
    money = "7.125";
    EXPECT_EQ(Text(money), "7.13");
    money = KivString("-1.005");
    EXPECT_EQ(Text(money), "-1.01");
    money = 3.14159;
    EXPECT_EQ(Text(money), "3.14");
    testing::internal::CaptureStderr();
    money = KivNumber("123456789.5");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(-2053));
    EXPECT_EQ(Text(money), "3.14");
}

TEST(KivNumberArithmetic, LengthAndScaleChanges)
{
    KivNumber number(10, 4, "99.9999");
    testing::internal::CaptureStderr();
    EXPECT_EQ(number.SetLengthAndScale(0, 2), 2001);
    EXPECT_EQ(number.SetLengthAndScale(101, -1), 2001);
    EXPECT_EQ(number.SetLengthAndScale(5, 6), 2001);
    EXPECT_EQ(number.SetLengthAndScale(-1, -2), 2001);
    EXPECT_EQ(number.SetLengthAndScale(3, 1), -2053); // 100.0 no longer fits
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              Message(2001) + Message(2001) + Message(2001) + Message(2001) + Message(-2053));
    EXPECT_EQ(Text(number), "99.9999");
    EXPECT_EQ(number.GetLength(), 10);
    EXPECT_EQ(number.SetLengthAndScale(-1, 2), 0);
    EXPECT_EQ(Text(number), "100");
    EXPECT_EQ(number.GetLength(), 10);
    EXPECT_EQ(number.GetScale(), 2);
}

TEST(KivNumberArithmetic, ErrorTableSetsTheDocumentedValues)
{
    const int keeps[] = {2001,  2002,  2003,  -2041, -2042, -2043, -2045, -2047,
                         -2048, -2049, -2050, -2051, -2052, -2053, -2054};
    for (int code : keeps)
    {
        KivNumber number("4.5");
        testing::internal::CaptureStderr();
        number.HandleNumberError(code);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(code)) << code;
        EXPECT_EQ(Text(number), "4.5") << code;
    }
    for (int code : {-2044, -2055, -1, 0, 9999})
    {
        KivNumber number("4.5");
        testing::internal::CaptureStderr();
        number.HandleNumberError(code);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(code)) << code;
        EXPECT_EQ(Text(number), "0") << code;
    }
    KivNumber number;
    int numLen = 0;
    testing::internal::CaptureStderr();
    number.GetCurrentNumLenAndScale(&numLen, nullptr);
    EXPECT_EQ(KivNumber("1").Divide(KivNumber("2"), nullptr, nullptr), 2002);
    EXPECT_EQ(number.Round(-1), 2001);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Message(2002) + Message(2002) + Message(2001));
}

TEST(KivNumberArithmetic, ShiftsMovePackedPairsByOneDigit)
{
    char positive[8] = {22, 44, 60, 0}; // 12 34 50
    KivNumber::ShiftRight(positive);
    EXPECT_STREQ(positive, std::string({11, 33, 55}).c_str()); // 01 23 45
    KivNumber::ShiftLeft(positive);
    EXPECT_STREQ(positive, std::string({22, 44, 60}).c_str());
    char negative[8] = {-22, -44, -61, 0}; // 12 34 51
    KivNumber::ShiftRight(negative);
    EXPECT_STREQ(negative, std::string({-11, -33, -55, -20}).c_str()); // 01 23 45 10
    KivNumber::ShiftLeft(negative);
    EXPECT_STREQ(negative, std::string({-22, -44, -61}).c_str());
}

// ---- Validity checks ----

TEST(KivNumberDeathTest, InvalidLengthOrScaleAborts)
{
    EXPECT_DEATH(KivNumber(0, 0), AssertionPattern("myLength > 0 && myLength <= 100"));
    EXPECT_DEATH(KivNumber(101, 0), AssertionPattern("myLength > 0 && myLength <= 100"));
    EXPECT_DEATH(KivNumber(5, -1), AssertionPattern("myScale >= 0"));
    EXPECT_DEATH(KivNumber(5, 6), AssertionPattern("myLength >= myScale"));
}

TEST(KivNumberDeathTest, BrokenPackedValuesAbort)
{
    struct
    {
        std::vector<int> bytes;
        const char* condition;
    } cases[] = {
        {{'x'}, "myNumber[0] == 'o'"},
        {{'p', 20}, "nCurStrLen > 2"},
        {{'q', 20, 20}, "myNumber[0] == 'n' || myNumber[0] == 'p'"},
        {{'p', 5, 20}, "nExp >= 10 || nExp <= -10"},
        {{'n', 10, -20}, "nExp > 10 || nExp <= -10"},
        {{'p', -10, 20}, "nExp >= 10 || nExp < -10"},
        {{'p', 13, 20}, "nExp < myLength - myScale"},
        {{'p', 10, 20, 20, 20, 20}, "nNumDigStored <= myLength + 1"},
        {{'p', 10, 15}, "*ptrData >= 20 || *ptrData <= -20"},
        {{'p', 10, 20, 110}, "*ptrData >= 10 && *ptrData < 110"},
        {{'n', -10, -20, 30}, "*ptrData <= -10 && *ptrData > -110"},
        {{'p', 10, 20, 10}, "*ptrData > 10 || *ptrData < -10"},
        {{'p', -11, 20, 21}, "nCurScale <= myScale + 1"},
    };
    for (const auto& oneCase : cases)
    {
        KivString packed = Bytes(oneCase.bytes);
        EXPECT_DEATH(KivNumber(5, 2).SetInternalData(packed), AssertionPattern(oneCase.condition))
            << oneCase.condition;
    }
}

TEST(KivNumberValidity, WellFormedPackedValuesAreAccepted)
{
    KivNumber number(5, 2);
    number.SetInternalData(Bytes({'n', -12, -22, -44, -60}));
    EXPECT_EQ(Text(number), "-123.45");
    number.SetInternalData(KivString("o"));
    EXPECT_TRUE(number.IsZero());
    number.SetInternalData(KivString());
    EXPECT_TRUE(number.IsNull());
}
