// Exact decimal numbers kept as packed base-100 digit pairs. Parsing, the text forms and the
// additions work on the pairs; multiplication and division unpack them into plain digit strings,
// compute exactly and round half up to the receiver's scale, so no result ever depends on binary
// floating point. Errors are reported on standard error and never stop the process.
#include "KivNumber.h"

#include "KivAssert.h"
#include "KivStringUtility.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

const char* const kKivNumber_E = "2.718281828";
const char* const kKivNumber_Pi = "3.141592653589793238462643383279502884197169399375";
const char* const kKivNumber_PiShort = "3.14159265358979";
const char* const kKivNumber_DivideByZeroValue = "99999999999999999999999999999999999999999999999999";

// A value unpacked into single decimal digits: digits[0] is at the power `exponent`. Zero has
// no digits. Multiplication, division, rounding and the text forms work in this form; it holds
// intermediate results of any size, which are rounded and checked before they are packed.
struct KivNumberDigits
{
    bool negative = false;
    int exponent = 0;
    std::vector<int> digits;
};

namespace
{
const char kPositiveMarker = 'p';
const char kNegativeMarker = 'n';
const char kZeroMarker = 'o';
const int kDivideByZeroDigits = 50;

void Normalize(KivNumberDigits& value_io)
{
    std::vector<int>& digits = value_io.digits;
    size_t leading = 0;
    while (leading < digits.size() && digits[leading] == 0)
        ++leading;
    digits.erase(digits.begin(), digits.begin() + leading);
    value_io.exponent -= (int)leading;
    while (!digits.empty() && digits.back() == 0)
        digits.pop_back();
    if (digits.empty())
    {
        value_io.negative = false;
        value_io.exponent = 0;
    }
}

// Digits before the point (0 for a value below 1).
int IntegralDigits(const KivNumberDigits& value_i)
{
    return value_i.digits.empty() || value_i.exponent < 0 ? 0 : value_i.exponent + 1;
}

// Digits after the point of a normalised value.
int FractionDigits(const KivNumberDigits& value_i)
{
    int fraction = (int)value_i.digits.size() - (value_i.exponent + 1);
    return fraction > 0 ? fraction : 0;
}

// Adds one unit in the last digit, carrying as far as needed; a carry out of the first digit
// adds a new leading 1.
void IncrementLastDigit(KivNumberDigits& value_io)
{
    std::vector<int>& digits = value_io.digits;
    for (size_t i = digits.size(); i-- > 0;)
    {
        if (++digits[i] < 10)
            return;
        digits[i] = 0;
    }
    digits.insert(digits.begin(), 1);
    ++value_io.exponent;
}

// Removes the digits after `scale_i` places; a first removed digit of 5 or more rounds the
// magnitude up (so -0.005 becomes -0.01 at two places).
void RoundHalfUp(KivNumberDigits& value_io, int scale_i)
{
    Normalize(value_io);
    if (FractionDigits(value_io) <= scale_i)
        return;
    long keep = (long)value_io.exponent + 1 + scale_i;
    if (keep < 0)
    {
        value_io.digits.clear();
    }
    else
    {
        bool roundUp = value_io.digits[(size_t)keep] >= 5;
        value_io.digits.resize((size_t)keep);
        if (roundUp)
            IncrementLastDigit(value_io);
    }
    Normalize(value_io);
}

KivNumberDigits Unpack(const KivString& packed_i)
{
    KivNumberDigits value;
    unsigned int length = packed_i.GetLength();
    if (length < 3)
        return value;
    const signed char* bytes = (const signed char*)packed_i.GetCStringAccess();
    value.negative = bytes[0] == kNegativeMarker;
    int sign = value.negative ? -1 : 1;
    int storedExponent = sign * bytes[1];
    value.exponent = storedExponent >= 10 ? storedExponent - 10 : storedExponent + 10;
    for (unsigned int i = 2; i < length; ++i)
    {
        int pair = sign * bytes[i] - 10;
        value.digits.push_back(pair / 10);
        value.digits.push_back(pair % 10);
    }
    Normalize(value);
    return value;
}

KivString Pack(KivNumberDigits value_i)
{
    Normalize(value_i);
    if (value_i.digits.empty())
        return KivString(kZeroMarker);
    if (value_i.digits.size() % 2 != 0)
        value_i.digits.push_back(0);
    int sign = value_i.negative ? -1 : 1;
    std::string bytes;
    bytes += value_i.negative ? kNegativeMarker : kPositiveMarker;
    int exponent = value_i.exponent;
    bytes += (char)(sign * (exponent >= 0 ? exponent + 10 : exponent - 10));
    for (size_t i = 0; i < value_i.digits.size(); i += 2)
        bytes += (char)(sign * (value_i.digits[i] * 10 + value_i.digits[i + 1] + 10));
    return KivString(bytes.data(), (unsigned int)bytes.size());
}

// The exponent of a non-zero packed value.
int PackedExponent(const KivString& packed_i)
{
    int storedExponent = (signed char)packed_i[1];
    if (packed_i[0] == kNegativeMarker)
        storedExponent = -storedExponent;
    return storedExponent >= 10 ? storedExponent - 10 : storedExponent + 10;
}

// Decodes pairs of either sign into their values 0..99.
std::vector<int> PairValues(const char* pairs_i)
{
    std::vector<int> values;
    for (const signed char* pair = (const signed char*)pairs_i; *pair != 0; ++pair)
        values.push_back((*pair < 0 ? -*pair : *pair) - 10);
    return values;
}

// Pairs whose first pair holds the digits at powers `topExponent_i` and `topExponent_i` - 1.
KivNumberDigits PairsToDecimal(bool negative_i, int topExponent_i, const std::vector<int>& pairs_i)
{
    KivNumberDigits value;
    value.negative = negative_i;
    value.exponent = topExponent_i;
    for (int pair : pairs_i)
    {
        value.digits.push_back(pair / 10);
        value.digits.push_back(pair % 10);
    }
    Normalize(value);
    return value;
}

bool IsDivideByZeroMagnitude(const KivString& packed_i)
{
    static const KivString positive =
        Pack(KivNumberDigits{false, kDivideByZeroDigits - 1, std::vector<int>(kDivideByZeroDigits, 9)});
    static const KivString negative =
        Pack(KivNumberDigits{true, kDivideByZeroDigits - 1, std::vector<int>(kDivideByZeroDigits, 9)});
    return packed_i == positive || packed_i == negative;
}

// ---- Unsigned integers as digit strings, most significant first, for the long division ----

typedef std::vector<int> KivDigitString;

void TrimLeadingZeros(KivDigitString& digits_io)
{
    size_t leading = 0;
    while (leading < digits_io.size() && digits_io[leading] == 0)
        ++leading;
    digits_io.erase(digits_io.begin(), digits_io.begin() + leading);
}

int CompareDigitStrings(const KivDigitString& left_i, const KivDigitString& right_i)
{
    if (left_i.size() != right_i.size())
        return left_i.size() < right_i.size() ? -1 : 1;
    for (size_t i = 0; i < left_i.size(); ++i)
        if (left_i[i] != right_i[i])
            return left_i[i] < right_i[i] ? -1 : 1;
    return 0;
}

// left -= right, where left >= right.
void SubtractDigitString(KivDigitString& left_io, const KivDigitString& right_i)
{
    int borrow = 0;
    size_t offset = left_io.size() - right_i.size();
    for (size_t i = left_io.size(); i-- > 0;)
    {
        int digit = left_io[i] - borrow - (i >= offset ? right_i[i - offset] : 0);
        borrow = digit < 0 ? 1 : 0;
        left_io[i] = digit + 10 * borrow;
    }
    TrimLeadingZeros(left_io);
}

// Long division by repeated subtraction: one quotient digit per dividend digit.
void LongDivide(const KivDigitString& dividend_i, const KivDigitString& divisor_i, KivDigitString& quotient_o,
                KivDigitString& remainder_o)
{
    quotient_o.clear();
    remainder_o.clear();
    for (int digit : dividend_i)
    {
        remainder_o.push_back(digit);
        TrimLeadingZeros(remainder_o);
        int count = 0;
        while (CompareDigitStrings(remainder_o, divisor_i) >= 0)
        {
            SubtractDigitString(remainder_o, divisor_i);
            ++count;
        }
        quotient_o.push_back(count);
    }
    TrimLeadingZeros(quotient_o);
}

// The value's digits as an integer and the power of ten of its last digit.
KivDigitString IntegerDigits(const KivNumberDigits& value_i, int& lastPower_o)
{
    lastPower_o = value_i.exponent - (int)value_i.digits.size() + 1;
    return value_i.digits;
}

KivNumberDigits DecimalFromInteger(bool negative_i, const KivDigitString& digits_i, int lastPower_i)
{
    KivNumberDigits value;
    value.negative = negative_i;
    value.digits = digits_i;
    value.exponent = lastPower_i + (int)digits_i.size() - 1;
    Normalize(value);
    return value;
}

// Divides magnitudes with the quotient truncated at the power 10^-`quotientScale_i`; the
// remainder is what the truncated quotient leaves of the dividend. Both come back unsigned.
void DivideMagnitudes(const KivNumberDigits& dividend_i, const KivNumberDigits& divisor_i,
                      int quotientScale_i, KivNumberDigits& quotient_o, KivNumberDigits& remainder_o)
{
    int dividendPower = 0;
    int divisorPower = 0;
    KivDigitString dividend = IntegerDigits(dividend_i, dividendPower);
    KivDigitString divisor = IntegerDigits(divisor_i, divisorPower);
    // quotient = dividend * 10^shift / divisor, where the quotient's last digit is at
    // 10^-quotientScale.
    long shift = (long)dividendPower - divisorPower + quotientScale_i;
    int remainderPower = dividendPower;
    if (shift >= 0)
        dividend.insert(dividend.end(), (size_t)shift, 0);
    else
        divisor.insert(divisor.end(), (size_t)-shift, 0);
    if (shift >= 0)
        remainderPower = dividendPower - (int)shift;
    KivDigitString quotient;
    KivDigitString remainder;
    LongDivide(dividend, divisor, quotient, remainder);
    quotient_o = DecimalFromInteger(false, quotient, -quotientScale_i);
    remainder_o = DecimalFromInteger(false, remainder, remainderPower);
}

// Plain text: no leading point, no trailing zeros after the point, integers without a point.
std::string FormatPlain(const KivNumberDigits& value_i)
{
    if (value_i.digits.empty())
        return "0";
    std::string text;
    if (value_i.negative)
        text += '-';
    int exponent = value_i.exponent;
    if (exponent < 0)
    {
        text += "0.";
        text.append((size_t)(-exponent - 1), '0');
    }
    bool pointWritten = exponent < 0;
    for (size_t i = 0; i < value_i.digits.size(); ++i)
    {
        if (exponent >= 0 && (int)i == exponent + 1)
        {
            text += '.';
            pointWritten = true;
        }
        text += (char)('0' + value_i.digits[i]);
    }
    if (pointWritten)
    {
        while (text.back() == '0')
            text.pop_back();
        if (text.back() == '.')
            text.pop_back();
    }
    else if (exponent >= 0 && (int)value_i.digits.size() < exponent + 1)
    {
        text.append((size_t)(exponent + 1) - value_i.digits.size(), '0');
    }
    return text;
}

// Scans decimal text into `value_o`, rounded to `scale_i` places. Returns 0 or an error code.
int ParseDecimal(const char* text_i, int length_i, int scale_i, KivNumberDigits& value_o)
{
    const char* scan = text_i;
    while (*scan == ' ')
        ++scan;
    KivNumberDigits value;
    if (*scan == '-' || *scan == '+')
        value.negative = *scan++ == '-';
    while (*scan == '0')
        ++scan;
    int integralCapacity = length_i - scale_i;
    int integralDigits = 0;
    int fractionDigits = 0;
    bool pointSeen = false;
    bool roundUp = false;
    bool stoppedInDigits = false;
    for (;; ++scan)
    {
        char character = *scan;
        if (character >= '0' && character <= '9')
        {
            if (!pointSeen)
            {
                if (integralDigits >= integralCapacity)
                    return kKivNumberError_OverflowNumber;
                ++integralDigits;
            }
            else if (fractionDigits == scale_i)
            {
                // The first digit past the scale decides the rounding; nothing after it is read.
                roundUp = character >= '5';
                stoppedInDigits = true;
                break;
            }
            else
            {
                ++fractionDigits;
            }
            value.digits.push_back(character - '0');
        }
        else if (character == '.')
        {
            if (pointSeen)
                return kKivNumberError_DecimalPointInvalid;
            pointSeen = true;
        }
        else
        {
            break;
        }
    }
    if (!stoppedInDigits)
    {
        while (*scan == ' ')
            ++scan;
        if (*scan == '+' || *scan == '-')
            return kKivNumberError_SignInvalid;
        if (*scan != 0)
            return kKivNumberError_DigitExpected;
    }
    value.exponent = integralDigits - 1;
    if (roundUp)
        IncrementLastDigit(value);
    Normalize(value);
    if (IntegralDigits(value) > integralCapacity)
        return kKivNumberError_OverflowNumber;
    value_o = value;
    return 0;
}

KivNumberDigits DecimalFromInteger(long long value_i)
{
    KivNumberDigits value;
    value.negative = value_i < 0;
    unsigned long long magnitude =
        value.negative ? 0ULL - (unsigned long long)value_i : (unsigned long long)value_i;
    for (; magnitude != 0; magnitude /= 10)
        value.digits.insert(value.digits.begin(), (int)(magnitude % 10));
    value.exponent = (int)value.digits.size() - 1;
    Normalize(value);
    return value;
}

// Fifteen significant digits: what a double holds reliably, so 0.1 stays 0.1.
KivNumberDigits DecimalFromDouble(double value_i)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.14e", value_i);
    KivNumberDigits value;
    const char* scan = text;
    if (*scan == '-')
    {
        value.negative = true;
        ++scan;
    }
    for (; *scan != 0 && *scan != 'e'; ++scan)
        if (*scan >= '0' && *scan <= '9')
            value.digits.push_back(*scan - '0');
    value.exponent = *scan == 'e' ? std::atoi(scan + 1) : 0;
    Normalize(value);
    return value;
}

const char* NumberErrorMessage(int code_i)
{
    switch (code_i)
    {
    case kKivNumberError_InvalidParameter:
        return "KivNumber: Invalid Parameter\n;g";
    case kKivNumberError_NullOutputPointer:
        return "KivNumber: Null Pointer Parameter for Output\n;g";
    case kKivNumberError_NullInputPointer:
        return "KivNumber: Null Pointer Parameter for Input\n;g";
    case kKivNumberError_AlphaExpected:
        return "KivNumber: Alpha Expected\n;g";
    case kKivNumberError_AlphaOrDigitExpected:
        return "KivNumber: Alpha or Digit Expected\n;g";
    case kKivNumberError_CharTooLong:
        return "KivNumber: Char Too Long\n;g";
    case kKivNumberError_DecimalPointInvalid:
        return "KivNumber: Dec Point Invalid\n;g";
    case kKivNumberError_DigitExpected:
        return "KivNumber: Digit Expected\n;g";
    case kKivNumberError_DivideByZero:
        return "KivNumber: Divide By Zero\n;g";
    case kKivNumberError_NegativeToUnsigned:
        return "KivNumber: Negative Num to Unsigned\n;g";
    case kKivNumberError_OverflowShort:
        return "KivNumber: Overflow Short\n;g";
    case kKivNumberError_OverflowUnsignedShort:
        return "KivNumber: Overflow Unsigned Short\n;g";
    case kKivNumberError_OverflowLong:
        return "KivNumber: Overflow Long\n;g";
    case kKivNumberError_OverflowUnsignedLong:
        return "KivNumber: Overflow Unsigned Long\n;g";
    case kKivNumberError_OverflowDouble:
        return "KivNumber: Overflow Double\n;g";
    case kKivNumberError_OverflowNumber:
        return "KivNumber: Overflow Number\n;g";
    case kKivNumberError_SignInvalid:
        return "KivNumber: Sign Invalid\n;g";
    case kKivNumberError_ZeroToNegativePower:
        return "KivNumber: Zero Raised to Negative Power\n;g";
    default:
        return "KivNumber: Unknown error\n;g";
    }
}

// Codes after which the number holds 0 instead of keeping its value.
bool ErrorResetsToZero(int code_i)
{
    switch (code_i)
    {
    case kKivNumberError_DecimalPointInvalid:
    case kKivNumberError_ZeroToNegativePower:
        return true;
    case kKivNumberError_InvalidParameter:
    case kKivNumberError_NullOutputPointer:
    case kKivNumberError_NullInputPointer:
    case kKivNumberError_DivideByZero:
        return false;
    default:
        // Codes outside the table are unknown errors, which also reset the value.
        return code_i > kKivNumberError_AlphaExpected || code_i < kKivNumberError_ZeroToNegativePower;
    }
}
} // namespace

// ---- Construction and assignment ----

void KivNumber::Initialize(int length_i, int scale_i)
{
    myLength = length_i;
    myScale = scale_i;
    AssertValid();
}

KivNumber::KivNumber()
{
    Initialize(kDefaultLength, kDefaultScale);
}

KivNumber::KivNumber(const int& length_i, const int& scale_i)
{
    Initialize(length_i, scale_i);
}

KivNumber::KivNumber(const int& length_i, const int& scale_i, const char* text_i)
{
    Initialize(length_i, scale_i);
    AssignString(text_i);
}

KivNumber::KivNumber(const int& length_i, const int& scale_i, const KivString& text_i)
{
    Initialize(length_i, scale_i);
    AssignString(text_i);
}

KivNumber::KivNumber(const char* text_i)
{
    Initialize(kDefaultLength, kDefaultScale);
    AssignString(text_i);
}

KivNumber::KivNumber(const KivString& text_i)
{
    Initialize(kDefaultLength, kDefaultScale);
    AssignString(text_i);
}

KivNumber::KivNumber(signed char value_i) : KivNumber((int)value_i) {}
KivNumber::KivNumber(short value_i) : KivNumber((int)value_i) {}
KivNumber::KivNumber(unsigned char value_i) : KivNumber((unsigned int)value_i) {}
KivNumber::KivNumber(unsigned short value_i) : KivNumber((unsigned int)value_i) {}

KivNumber::KivNumber(int value_i)
{
    Initialize(kDefaultLength, kDefaultScale);
    AssignInteger(value_i);
}

KivNumber::KivNumber(unsigned int value_i)
{
    Initialize(kDefaultLength, kDefaultScale);
    AssignInteger(value_i);
}

KivNumber::KivNumber(double value_i)
{
    Initialize(kDefaultLength, kDefaultScale);
    AssignDouble(value_i);
}

KivNumber::KivNumber(const KivNumber& source_i)
    : KivObject(source_i), myNumber(source_i.myNumber), myLength(source_i.myLength), myScale(source_i.myScale)
{
    AssertValid();
}

KivNumber::~KivNumber() {}

KivNumber& KivNumber::operator=(const KivNumber& source_i)
{
    if (&source_i == this)
        return *this;
    if (source_i.IsNull())
    {
        myNumber.Empty();
    }
    else if (IsDivideByZeroMagnitude(source_i.myNumber))
    {
        // The division-by-zero mark is carried as it is, whatever the capacity.
        myNumber = source_i.myNumber;
        AssertValid();
    }
    else
    {
        StoreDigits(Unpack(source_i.myNumber), kKivNumberError_OverflowNumber);
    }
    return *this;
}

KivNumber& KivNumber::operator=(const KivString& text_i)
{
    AssignString(text_i);
    return *this;
}

KivNumber& KivNumber::operator=(const char* text_i)
{
    AssignString(text_i);
    return *this;
}

KivNumber& KivNumber::operator=(int value_i)
{
    AssignInteger(value_i);
    return *this;
}

KivNumber& KivNumber::operator=(unsigned int value_i)
{
    AssignInteger(value_i);
    return *this;
}

KivNumber& KivNumber::operator=(double value_i)
{
    AssignDouble(value_i);
    return *this;
}

int KivNumber::AssignString(const KivString& text_i)
{
    return AssignString(text_i.GetCStringAccess());
}

int KivNumber::AssignString(const char* text_i)
{
    if (text_i == nullptr || *text_i == 0)
    {
        myNumber.Empty();
        return 0;
    }
    KivNumberDigits value;
    int code = ParseDecimal(text_i, myLength, myScale, value);
    if (code != 0)
    {
        HandleNumberError(code);
        return code;
    }
    myNumber = Pack(value);
    AssertValid();
    return 0;
}

void KivNumber::AssignInteger(long long value_i)
{
    StoreDigits(DecimalFromInteger(value_i), kKivNumberError_OverflowNumber);
}

void KivNumber::AssignDouble(double value_i)
{
    if (!std::isfinite(value_i))
    {
        HandleNumberError(kKivNumberError_OverflowDouble);
        return;
    }
    StoreDigits(DecimalFromDouble(value_i), kKivNumberError_OverflowDouble);
}

int KivNumber::StoreDigits(KivNumberDigits value_i, int errorCode_i)
{
    RoundHalfUp(value_i, myScale);
    if (IntegralDigits(value_i) > IntegralCapacity())
    {
        HandleNumberError(errorCode_i);
        return errorCode_i;
    }
    myNumber = Pack(value_i);
    AssertValid();
    return 0;
}

void KivNumber::SetInternalData(const KivString& packedNumber_i)
{
    myNumber = packedNumber_i;
    AssertValid();
}

int KivNumber::SetLengthAndScale(int length_i, int scale_i)
{
    int newLength = length_i == -1 ? myLength : length_i;
    int newScale = scale_i == -1 ? myScale : scale_i;
    if (newLength < 1 || newLength > kMaximumLength || newScale < 0 || newScale > newLength)
    {
        HandleNumberError(kKivNumberError_InvalidParameter);
        return kKivNumberError_InvalidParameter;
    }
    int newCapacity = newLength - newScale;
    KivNumberDigits value = Unpack(myNumber);
    if (newScale < GetCurrentScale())
        RoundHalfUp(value, newScale);
    // Rounding may carry into a new integral digit (9.99 to 10.0), so the rounded value is the
    // one that must fit. The division-by-zero mark keeps its exemption while the capacity grows.
    bool keepsMark = IsDivideByZeroMagnitude(myNumber) && newCapacity >= IntegralCapacity();
    if (newCapacity < IntegralDigits(value) && !keepsMark)
    {
        HandleNumberError(kKivNumberError_OverflowNumber);
        return kKivNumberError_OverflowNumber;
    }
    myLength = newLength;
    myScale = newScale;
    if (!IsNull() && !IsDivideByZeroMagnitude(myNumber))
        myNumber = Pack(value);
    AssertValid();
    return 0;
}

// ---- State ----

int KivNumber::GetCurrentScale() const
{
    unsigned int length = myNumber.GetLength();
    if (length < 3)
        return 0;
    int storedDigits = 2 * (int)(length - 2);
    int scale = storedDigits - (PackedExponent(myNumber) + 1);
    int lastPair = (signed char)myNumber[length - 1];
    if ((lastPair < 0 ? -lastPair : lastPair) % 10 == 0)
        --scale;
    return scale > 0 ? scale : 0;
}

int KivNumber::GetCurrentNumLen() const
{
    if (IsZero())
        return 0;
    int exponent = PackedExponent(myNumber);
    return exponent >= 0 ? GetCurrentScale() + exponent + 1 : GetCurrentScale();
}

int KivNumber::GetCurrentIntegralLen() const
{
    return GetCurrentNumLen() - GetCurrentScale();
}

void KivNumber::GetCurrentNumLenAndScale(int* numLen_o, int* scale_o) const
{
    if (numLen_o == nullptr || scale_o == nullptr)
    {
        const_cast<KivNumber*>(this)->HandleNumberError(kKivNumberError_NullOutputPointer);
        return;
    }
    *numLen_o = GetCurrentNumLen();
    *scale_o = GetCurrentScale();
}

// ---- Validity ----

void KivNumber::AssertValid() const
{
    KIV_ASSERT_STATE(myLength > 0 && myLength <= 100);
    KIV_ASSERT_STATE(myScale >= 0);
    KIV_ASSERT_STATE(myLength >= myScale);
    int nCurStrLen = (int)myNumber.GetLength();
    if (nCurStrLen == 0)
        return;
    if (nCurStrLen == 1)
    {
        KIV_ASSERT_STATE(myNumber[0] == 'o');
        return;
    }
    KIV_ASSERT_STATE(nCurStrLen > 2);
    KIV_ASSERT_STATE(myNumber[0] == 'n' || myNumber[0] == 'p');
    bool negative = myNumber[0] == 'n';
    int nExp = (signed char)myNumber[1];
    KIV_ASSERT_STATE(nExp >= 10 || nExp <= -10);
    if (negative)
    {
        KIV_ASSERT_STATE(nExp > 10 || nExp <= -10);
        nExp = -nExp;
    }
    else
    {
        KIV_ASSERT_STATE(nExp >= 10 || nExp < -10);
    }
    nExp = nExp >= 10 ? nExp - 10 : nExp + 10;
    int nNumDigStored = 2 * (nCurStrLen - 2);
    // The division-by-zero mark is wider than most numbers; it is the one value allowed to
    // exceed the declared precision, so that a page's division by zero cannot stop the server.
    if (!IsDivideByZeroMagnitude(myNumber))
    {
        KIV_ASSERT_STATE(nExp < myLength - myScale);
        KIV_ASSERT_STATE(nNumDigStored <= myLength + 1);
    }
    const signed char* ptrData = (const signed char*)myNumber.GetCStringAccess() + 2;
    const signed char* lastData = ptrData + (nCurStrLen - 3);
    KIV_ASSERT_STATE(*ptrData >= 20 || *ptrData <= -20);
    for (; ptrData <= lastData; ++ptrData)
    {
        if (negative)
            KIV_ASSERT_STATE(*ptrData <= -10 && *ptrData > -110);
        else
            KIV_ASSERT_STATE(*ptrData >= 10 && *ptrData < 110);
    }
    ptrData = lastData;
    KIV_ASSERT_STATE(*ptrData > 10 || *ptrData < -10);
    int nCurScale = nNumDigStored - (nExp + 1);
    if ((*ptrData < 0 ? -*ptrData : *ptrData) % 10 == 0)
        --nCurScale;
    if (nCurScale < 0)
        nCurScale = 0;
    KIV_ASSERT_STATE(nCurScale <= myScale + 1);
}

// ---- Errors ----

void KivNumber::HandleNumberError(const int& code_i)
{
    // The file is named like the assertion lines name it.
    KivAssertReportMessage(KIV_ASSERT_HERE, NumberErrorMessage(code_i));
    if (code_i == kKivNumberError_DivideByZero)
    {
        myNumber =
            Pack(KivNumberDigits{false, kDivideByZeroDigits - 1, std::vector<int>(kDivideByZeroDigits, 9)});
        AssertValid();
    }
    else if (ErrorResetsToZero(code_i))
    {
        myNumber = KivString(kZeroMarker);
    }
}

// ---- Arithmetic ----

namespace
{
KivNumberDigits MultiplyDigits(const KivNumberDigits& left_i, const KivNumberDigits& right_i)
{
    KivNumberDigits product;
    product.negative = left_i.negative != right_i.negative;
    product.exponent = left_i.exponent + right_i.exponent + 1;
    product.digits.assign(left_i.digits.size() + right_i.digits.size(), 0);
    for (size_t i = 0; i < left_i.digits.size(); ++i)
        for (size_t j = 0; j < right_i.digits.size(); ++j)
            product.digits[i + j + 1] += left_i.digits[i] * right_i.digits[j];
    int carry = 0;
    for (size_t k = product.digits.size(); k-- > 0;)
    {
        int sum = product.digits[k] + carry;
        product.digits[k] = sum % 10;
        carry = sum / 10;
    }
    Normalize(product);
    return product;
}

// Copies the pair bytes of a non-zero packed value into a work string, with room for the pair
// that ShiftRight may add, and returns the writable bytes (release them with ReleaseBuffer).
char* CopyPairs(const KivString& packed_i, KivString& work_io)
{
    unsigned int pairCount = packed_i.GetLength() - 2;
    char* pairs = work_io.GetBuffer(pairCount + 1);
    KIV_ASSERT_NOT_NULL(pairs);
    std::memcpy(pairs, packed_i.GetCStringAccess() + 2, pairCount);
    pairs[pairCount] = 0;
    return pairs;
}
} // namespace

int KivNumber::AddOrSubtract(const KivNumber& operand_i, bool subtract_i)
{
    int capacity = IntegralCapacity();
    if ((!IsZero() && PackedExponent(myNumber) >= capacity) ||
        (!operand_i.IsZero() && PackedExponent(operand_i.myNumber) >= capacity))
    {
        HandleNumberError(kKivNumberError_OverflowNumber);
        return kKivNumberError_OverflowNumber;
    }
    bool negativeOperand = operand_i.IsNegative() != subtract_i;
    if (operand_i.IsZero())
    {
        if (IsNull())
            myNumber = KivString(kZeroMarker);
        return 0;
    }
    if (IsZero())
    {
        KivNumberDigits value = Unpack(operand_i.myNumber);
        value.negative = negativeOperand;
        return StoreDigits(value, kKivNumberError_OverflowNumber);
    }

    // Pairs line up only when the exponents differ by an even number of digits; otherwise the
    // operand with the smaller exponent moves one digit right first.
    int exponentA = PackedExponent(myNumber);
    int exponentB = PackedExponent(operand_i.myNumber);
    char* pairsA = CopyPairs(myNumber, myWorkNumber1);
    char* pairsB = CopyPairs(operand_i.myNumber, myWorkNumber2);
    if ((exponentA - exponentB) % 2 != 0)
    {
        if (exponentA < exponentB)
            ShiftRight(pairsA), ++exponentA;
        else
            ShiftRight(pairsB), ++exponentB;
    }
    std::vector<int> valuesA = PairValues(pairsA);
    std::vector<int> valuesB = PairValues(pairsB);
    myWorkNumber1.ReleaseBuffer(-1);
    myWorkNumber2.ReleaseBuffer(-1);

    // Both magnitudes aligned on the larger exponent, with one spare pair in front for the carry.
    int topExponent = exponentA > exponentB ? exponentA : exponentB;
    size_t offsetA = (size_t)(topExponent - exponentA) / 2 + 1;
    size_t offsetB = (size_t)(topExponent - exponentB) / 2 + 1;
    size_t count = std::max(offsetA + valuesA.size(), offsetB + valuesB.size());
    std::vector<int> alignedA(count, 0);
    std::vector<int> alignedB(count, 0);
    std::copy(valuesA.begin(), valuesA.end(), alignedA.begin() + (long)offsetA);
    std::copy(valuesB.begin(), valuesB.end(), alignedB.begin() + (long)offsetB);

    std::vector<int> result(count, 0);
    bool negativeResult = IsNegative();
    if (IsNegative() == negativeOperand)
    {
        int carry = 0;
        for (size_t k = count; k-- > 0;)
        {
            int sum = alignedA[k] + alignedB[k] + carry;
            result[k] = sum % 100;
            carry = sum / 100;
        }
    }
    else
    {
        int order = CompareAbsValue(operand_i);
        if (order == 0)
        {
            myNumber = KivString(kZeroMarker);
            return 0;
        }
        const std::vector<int>& larger = order > 0 ? alignedA : alignedB;
        const std::vector<int>& smaller = order > 0 ? alignedB : alignedA;
        negativeResult = order > 0 ? IsNegative() : negativeOperand;
        int borrow = 0;
        for (size_t k = count; k-- > 0;)
        {
            int difference = larger[k] - smaller[k] - borrow;
            borrow = difference < 0 ? 1 : 0;
            result[k] = difference + 100 * borrow;
        }
    }
    // The spare pair holds the digits at powers topExponent + 2 and topExponent + 1.
    return StoreDigits(PairsToDecimal(negativeResult, topExponent + 2, result),
                       kKivNumberError_OverflowNumber);
}

int KivNumber::Add(const KivNumber& operand_i)
{
    return AddOrSubtract(operand_i, false);
}

int KivNumber::Subtract(const KivNumber& operand_i)
{
    return AddOrSubtract(operand_i, true);
}

int KivNumber::Multiply(const KivNumber& operand_i)
{
    return StoreDigits(MultiplyDigits(Unpack(myNumber), Unpack(operand_i.myNumber)),
                       kKivNumberError_OverflowNumber);
}

int KivNumber::Divide(const KivNumber& divisor_i, KivNumber* quotient_o, KivNumber* remainder_o)
{
    if (quotient_o == nullptr)
    {
        HandleNumberError(kKivNumberError_NullOutputPointer);
        return kKivNumberError_NullOutputPointer;
    }
    if (divisor_i.IsZero())
    {
        quotient_o->HandleNumberError(kKivNumberError_DivideByZero);
        return kKivNumberError_DivideByZero;
    }
    KivNumberDigits quotient;
    KivNumberDigits remainder;
    DivideMagnitudes(Unpack(myNumber), Unpack(divisor_i.myNumber), 0, quotient, remainder);
    quotient.negative = IsNegative() != divisor_i.IsNegative();
    remainder.negative = IsNegative();
    int code = quotient_o->StoreDigits(quotient, kKivNumberError_OverflowNumber);
    if (remainder_o != nullptr)
    {
        int remainderCode = remainder_o->StoreDigits(remainder, kKivNumberError_OverflowNumber);
        if (code == 0)
            code = remainderCode;
    }
    return code;
}

int KivNumber::DivideNoRemainder(const KivNumber& divisor_i)
{
    return DivideInPlace(divisor_i, false);
}

int KivNumber::Remainder(const KivNumber& divisor_i)
{
    return DivideInPlace(divisor_i, true);
}

int KivNumber::DivideInPlace(const KivNumber& divisor_i, bool keepRemainder_i)
{
    if (divisor_i.IsZero())
    {
        HandleNumberError(kKivNumberError_DivideByZero);
        return kKivNumberError_DivideByZero;
    }
    // For the quotient, one digit more than the scale is enough to round half up exactly; the
    // remainder is the one left by the integral quotient.
    KivNumberDigits quotient;
    KivNumberDigits remainder;
    DivideMagnitudes(Unpack(myNumber), Unpack(divisor_i.myNumber), keepRemainder_i ? 0 : myScale + 1,
                     quotient, remainder);
    quotient.negative = IsNegative() != divisor_i.IsNegative();
    remainder.negative = IsNegative();
    return StoreDigits(keepRemainder_i ? remainder : quotient, kKivNumberError_OverflowNumber);
}

int KivNumber::Round(const int& scale_i)
{
    return RoundNumX(scale_i, GetCurrentScale());
}

int KivNumber::RoundNumX(int scale_i, int currentScale_i)
{
    if (scale_i < 0)
    {
        HandleNumberError(kKivNumberError_InvalidParameter);
        return kKivNumberError_InvalidParameter;
    }
    if (scale_i >= currentScale_i || IsZero())
        return 0;
    KivNumberDigits value = Unpack(myNumber);
    RoundHalfUp(value, scale_i);
    return StoreDigits(value, kKivNumberError_OverflowNumber);
}

void KivNumber::Negate()
{
    unsigned int length = myNumber.GetLength();
    if (length < 3)
        return;
    std::string bytes(myNumber.GetCStringAccess(), length);
    bytes[0] = bytes[0] == kNegativeMarker ? kPositiveMarker : kNegativeMarker;
    for (unsigned int i = 1; i < length; ++i)
        bytes[i] = (char)-(signed char)bytes[i];
    myNumber = KivString(bytes.data(), length);
    AssertValid();
}

void KivNumber::MakeAbsoluteValue()
{
    if (IsNegative())
        Negate();
}

void KivNumber::ShiftRight(char* pairs_io)
{
    KIV_ASSERT_NOT_NULL(pairs_io);
    size_t count = std::strlen(pairs_io);
    if (count == 0)
        return;
    int sign = (signed char)pairs_io[0] < 0 ? -1 : 1;
    int lastPair = sign * (signed char)pairs_io[count - 1] - 10;
    // Backwards, so that each pair still reads its unshifted predecessor.
    for (size_t i = count; i-- > 0;)
    {
        int pair = sign * (signed char)pairs_io[i] - 10;
        int previousLow = i > 0 ? (sign * (signed char)pairs_io[i - 1] - 10) % 10 : 0;
        pairs_io[i] = (char)(sign * (previousLow * 10 + pair / 10 + 10));
    }
    if (lastPair % 10 != 0)
    {
        pairs_io[count] = (char)(sign * ((lastPair % 10) * 10 + 10));
        pairs_io[count + 1] = 0;
    }
}

void KivNumber::ShiftLeft(char* pairs_io)
{
    KIV_ASSERT_NOT_NULL(pairs_io);
    size_t count = std::strlen(pairs_io);
    if (count == 0)
        return;
    int sign = (signed char)pairs_io[0] < 0 ? -1 : 1;
    for (size_t i = 0; i < count; ++i)
    {
        int pair = sign * (signed char)pairs_io[i] - 10;
        int nextHigh = i + 1 < count ? (sign * (signed char)pairs_io[i + 1] - 10) / 10 : 0;
        pairs_io[i] = (char)(sign * ((pair % 10) * 10 + nextHigh + 10));
    }
    if (count > 1 && sign * (signed char)pairs_io[count - 1] == 10)
        pairs_io[count - 1] = 0;
}

int KivNumber::CompareAbsValue(const KivNumber& other_i) const
{
    if (IsZero() || other_i.IsZero())
        return IsZero() ? (other_i.IsZero() ? 0 : -1) : 1;
    int exponent = PackedExponent(myNumber);
    int otherExponent = PackedExponent(other_i.myNumber);
    if (exponent != otherExponent)
        return exponent < otherExponent ? -1 : 1;
    // Both are aligned to their first digit, so the pairs compare in order; a value that runs
    // out first is the smaller one.
    std::vector<int> pairs = PairValues(myNumber.GetCStringAccess() + 2);
    std::vector<int> otherPairs = PairValues(other_i.myNumber.GetCStringAccess() + 2);
    for (size_t i = 0; i < pairs.size() && i < otherPairs.size(); ++i)
        if (pairs[i] != otherPairs[i])
            return pairs[i] < otherPairs[i] ? -1 : 1;
    if (pairs.size() != otherPairs.size())
        return pairs.size() < otherPairs.size() ? -1 : 1;
    return 0;
}

int KivNumber::CompareValue(const KivNumber& other_i) const
{
    int sign = IsNegative() ? -1 : (IsZero() ? 0 : 1);
    int otherSign = other_i.IsNegative() ? -1 : (other_i.IsZero() ? 0 : 1);
    if (sign != otherSign)
        return sign < otherSign ? -1 : 1;
    return sign * CompareAbsValue(other_i);
}

// ---- Operators ----

KivNumber& KivNumber::operator+=(const KivNumber& operand_i)
{
    Add(operand_i);
    return *this;
}

KivNumber& KivNumber::operator-=(const KivNumber& operand_i)
{
    Subtract(operand_i);
    return *this;
}

KivNumber& KivNumber::operator*=(const KivNumber& operand_i)
{
    Multiply(operand_i);
    return *this;
}

KivNumber& KivNumber::operator/=(const KivNumber& divisor_i)
{
    DivideNoRemainder(divisor_i);
    return *this;
}

KivNumber& KivNumber::operator%=(const KivNumber& divisor_i)
{
    Remainder(divisor_i);
    return *this;
}

KivNumber& KivNumber::operator++()
{
    Add(KivNumber(1));
    return *this;
}

KivNumber KivNumber::operator++(int)
{
    KivNumber previous(*this);
    Add(KivNumber(1));
    return previous;
}

KivNumber& KivNumber::operator--()
{
    Subtract(KivNumber(1));
    return *this;
}

KivNumber KivNumber::operator--(int)
{
    KivNumber previous(*this);
    Subtract(KivNumber(1));
    return previous;
}

KivNumber KivNumber::operator-() const
{
    KivNumber result(*this);
    result.Negate();
    return result;
}

KivNumber KivNumber::abs() const
{
    KivNumber result(*this);
    result.MakeAbsoluteValue();
    return result;
}

KivNumber KivNumber::pow(int power_i) const
{
    KivNumber result(myLength, myScale);
    if (power_i == 0)
    {
        result.AssignInteger(1);
        return result;
    }
    if (IsZero())
    {
        if (power_i < 0)
            result.HandleNumberError(kKivNumberError_ZeroToNegativePower);
        else
            result.myNumber = KivString(kZeroMarker);
        return result;
    }
    int capacity = IntegralCapacity();
    KivNumberDigits base = Unpack(myNumber);
    unsigned int remainingPower = power_i < 0 ? 0U - (unsigned int)power_i : (unsigned int)power_i;
    bool fits = true;
    if (power_i < 0)
    {
        KivNumberDigits reciprocal;
        KivNumberDigits remainder;
        DivideMagnitudes(DecimalFromInteger(1), base, myScale + 1, reciprocal, remainder);
        reciprocal.negative = base.negative;
        RoundHalfUp(reciprocal, myScale);
        base = reciprocal;
        fits = IntegralDigits(base) <= capacity;
    }
    // Square-and-multiply; every product is rounded to the scale as the in-place Multiply would.
    KivNumberDigits accumulated = DecimalFromInteger(1);
    while (fits)
    {
        if (remainingPower & 1U)
        {
            accumulated = MultiplyDigits(accumulated, base);
            RoundHalfUp(accumulated, myScale);
            fits = IntegralDigits(accumulated) <= capacity;
        }
        remainingPower >>= 1;
        if (remainingPower == 0)
            break;
        base = MultiplyDigits(base, base);
        RoundHalfUp(base, myScale);
        fits = fits && IntegralDigits(base) <= capacity;
    }
    if (!fits)
    {
        result.myNumber = myNumber;
        result.HandleNumberError(kKivNumberError_OverflowNumber);
        return result;
    }
    result.StoreDigits(accumulated, kKivNumberError_OverflowNumber);
    return result;
}

// ---- Conversions ----

KivNumber::operator int() const
{
    KivString text = GetStringRepresentation();
    return KivStringUtility::GetNumericalRepresentation(text.IsEmpty() ? KivString("0") : text, 10);
}

KivNumber::operator unsigned int() const
{
    return (unsigned int)(int)*this;
}

KivString KivNumber::GetStringRepresentation() const
{
    if (IsNull())
        return KivString();
    std::string text = FormatPlain(Unpack(myNumber));
    return KivString(text.data(), (unsigned int)text.size());
}

KivString KivNumber::GetStringRepresentation(const unsigned int& scale_i, const bool& round_i) const
{
    // No number has more than 100 decimals, so padding beyond that carries nothing; the cap keeps
    // a page's absurd precision from allocating gigabytes.
    int scale = scale_i < (unsigned int)kMaximumLength ? (int)scale_i : kMaximumLength;
    std::string text;
    if (!IsNull())
    {
        KivNumberDigits value = Unpack(myNumber);
        if (round_i)
            RoundHalfUp(value, scale);
        text = FormatPlain(value);
    }
    if (scale > 0)
    {
        size_t point = text.find('.');
        if (point == std::string::npos)
        {
            point = text.size();
            text += '.';
        }
        size_t decimals = text.size() - point - 1;
        if (decimals < (size_t)scale)
            text.append((size_t)scale - decimals, '0');
    }
    if (!text.empty() && text[0] == '.')
        text.insert(text.begin(), '0');
    return KivString(text.data(), (unsigned int)text.size());
}

// ---- Free operators ----

KivNumber operator+(const KivNumber& left_i, const KivNumber& right_i)
{
    return KivNumber(left_i) += right_i;
}
KivNumber operator-(const KivNumber& left_i, const KivNumber& right_i)
{
    return KivNumber(left_i) -= right_i;
}
KivNumber operator*(const KivNumber& left_i, const KivNumber& right_i)
{
    return KivNumber(left_i) *= right_i;
}
KivNumber operator/(const KivNumber& left_i, const KivNumber& right_i)
{
    return KivNumber(left_i) /= right_i;
}
KivNumber operator%(const KivNumber& left_i, const KivNumber& right_i)
{
    return KivNumber(left_i) %= right_i;
}
bool operator==(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) == 0;
}
bool operator!=(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) != 0;
}
bool operator<(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) < 0;
}
bool operator>(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) > 0;
}
bool operator<=(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) <= 0;
}
bool operator>=(const KivNumber& left_i, const KivNumber& right_i)
{
    return left_i.CompareValue(right_i) >= 0;
}

// Each mixed form converts the built-in operand and calls the form between two numbers.
#define KIV_NUMBER_DEFINE_OPERATOR(Type, Result, op)                                                         \
    Result operator op(const KivNumber& left_i, Type right_i)                                                \
    {                                                                                                        \
        return left_i op KivNumber(right_i);                                                                 \
    }                                                                                                        \
    Result operator op(Type left_i, const KivNumber& right_i)                                                \
    {                                                                                                        \
        return KivNumber(left_i) op right_i;                                                                 \
    }
#define KIV_NUMBER_DEFINE_OPERATORS(Type)                                                                    \
    KIV_NUMBER_DEFINE_OPERATOR(Type, KivNumber, +)                                                           \
    KIV_NUMBER_DEFINE_OPERATOR(Type, KivNumber, -)                                                           \
    KIV_NUMBER_DEFINE_OPERATOR(Type, KivNumber, *)                                                           \
    KIV_NUMBER_DEFINE_OPERATOR(Type, KivNumber, /)                                                           \
    KIV_NUMBER_DEFINE_OPERATOR(Type, KivNumber, %)                                                           \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, ==)                                                               \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, !=)                                                               \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, <)                                                                \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, >)                                                                \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, <=)                                                               \
    KIV_NUMBER_DEFINE_OPERATOR(Type, bool, >=)

KIV_NUMBER_DEFINE_OPERATORS(unsigned int)
KIV_NUMBER_DEFINE_OPERATORS(int)
KIV_NUMBER_DEFINE_OPERATORS(unsigned short)
KIV_NUMBER_DEFINE_OPERATORS(short)
KIV_NUMBER_DEFINE_OPERATORS(unsigned char)
KIV_NUMBER_DEFINE_OPERATORS(signed char)
KIV_NUMBER_DEFINE_OPERATORS(double)
