// Exact decimal numbers with a declared precision and scale, like an SQL NUMERIC(p, s) column:
// database number fields and counters are computed and printed without binary floating-point
// error. Failures are reported on standard error and the server carries on.
#ifndef KIV_NUMBER_H
#define KIV_NUMBER_H

#include "KivString.h"

// Error codes reported through KivNumber::HandleNumberError (each prints its own message).
constexpr int kKivNumberError_InvalidParameter = 2001;
constexpr int kKivNumberError_NullOutputPointer = 2002;
constexpr int kKivNumberError_NullInputPointer = 2003;
constexpr int kKivNumberError_AlphaExpected = -2041;
constexpr int kKivNumberError_AlphaOrDigitExpected = -2042;
constexpr int kKivNumberError_CharTooLong = -2043;
constexpr int kKivNumberError_DecimalPointInvalid = -2044; // the value becomes 0
constexpr int kKivNumberError_DigitExpected = -2045;
constexpr int kKivNumberError_DivideByZero = -2046; // the value becomes fifty nines
constexpr int kKivNumberError_NegativeToUnsigned = -2047;
constexpr int kKivNumberError_OverflowShort = -2048;
constexpr int kKivNumberError_OverflowUnsignedShort = -2049;
constexpr int kKivNumberError_OverflowLong = -2050;
constexpr int kKivNumberError_OverflowUnsignedLong = -2051;
constexpr int kKivNumberError_OverflowDouble = -2052;
constexpr int kKivNumberError_OverflowNumber = -2053;
constexpr int kKivNumberError_SignInvalid = -2054;
constexpr int kKivNumberError_ZeroToNegativePower = -2055; // the value becomes 0

// Constant texts for e and pi.
extern const char* const kKivNumber_E;                 // "2.718281828"
extern const char* const kKivNumber_Pi;                // fifty digits
extern const char* const kKivNumber_PiShort;           // "3.14159265358979"
extern const char* const kKivNumber_DivideByZeroValue; // fifty nines

struct KivNumberDigits; // an unpacked value, used inside the arithmetic

// The value is a packed byte string in `myNumber`:
//   null   ""          zero   "o"
//   other  sign marker 'p' or 'n', the exponent e of the most significant digit stored as e + 10
//          (e >= 0) or e - 10 (e < 0), then the digits two per byte as pair + 10; for a negative
//          number the exponent and pair bytes are negated. The first pair is at least 10, the
//          last is not 00. No byte of a value is 0, so the C-string view ends at its end.
// 123.45 is 'p' 12 22 44 60; -123.45 is 'n' -12 -22 -44 -60.
class KivNumber : public KivObject
{
public:
    static constexpr int kDefaultLength = 38;
    static constexpr int kDefaultScale = 8;
    static constexpr int kMaximumLength = 100;

    // A null number of precision 38 and scale 8.
    KivNumber();
    // A null number of the given precision (1..100) and scale (0..length).
    KivNumber(const int& length_i, const int& scale_i);
    KivNumber(const int& length_i, const int& scale_i, const char* text_i);
    KivNumber(const int& length_i, const int& scale_i, const KivString& text_i);
    // Parsed with the default precision and scale.
    KivNumber(const char* text_i);
    KivNumber(const KivString& text_i);
    KivNumber(signed char value_i);
    KivNumber(short value_i);
    KivNumber(int value_i);
    KivNumber(unsigned char value_i);
    KivNumber(unsigned short value_i);
    KivNumber(unsigned int value_i);
    // Fifteen significant digits of the double, rounded to the scale; -2052 when it is not
    // finite or does not fit.
    KivNumber(double value_i);
    // Copies precision, scale and value.
    KivNumber(const KivNumber& source_i);
    ~KivNumber() override;

    // Assignment keeps this number's precision and scale: the value is rounded to the scale, and
    // one whose integral part does not fit is refused with -2053. The division-by-zero mark
    // (fifty nines) is copied as it is, whatever the precision.
    KivNumber& operator=(const KivNumber& source_i);
    KivNumber& operator=(const KivString& text_i);
    KivNumber& operator=(const char* text_i);
    KivNumber& operator=(int value_i);
    KivNumber& operator=(unsigned int value_i);
    KivNumber& operator=(double value_i);

    // Parses decimal text: spaces, an optional sign, digits with at most one point, trailing
    // spaces. Digits past the scale are rounded half up. A null pointer or an empty text makes the
    // number null. Returns 0 or the error code (already reported).
    int AssignString(const char* text_i);
    int AssignString(const KivString& text_i);

    // The packed bytes as they stand; SetInternalData checks them like any other assignment.
    void SetInternalData(const KivString& packedNumber_i);
    const KivString& GetInternalData() const { return myNumber; }

    // -1 for either keeps the current one. Returns 0 or the error code (2001 for a bad argument,
    // -2053 when the value's integral part would no longer fit); on error nothing changes.
    int SetLengthAndScale(int length_i, int scale_i);
    int GetLength() const { return myLength; }
    int GetScale() const { return myScale; }

    // State. A null number counts as zero in IsZero, in comparisons and in arithmetic.
    bool IsNull() const { return myNumber.IsEmpty(); }
    bool IsZero() const { return myNumber.GetLength() < 2; }
    bool IsNegative() const { return myNumber.GetLength() > 1 && myNumber[0] == 'n'; }
    bool IsPositive() const { return myNumber.GetLength() > 1 && myNumber[0] == 'p'; }
    // Digits the value needs, digits after the point and digits before it (all 0 for zero).
    int GetCurrentNumLen() const;
    int GetCurrentScale() const;
    int GetCurrentIntegralLen() const;
    void GetCurrentNumLenAndScale(int* numLen_o, int* scale_o) const;

    // Arithmetic in place, exact and then rounded half up to this number's scale. Each returns 0
    // or the error code it reported; on error the value is unchanged unless the error table
    // says otherwise (a zero divisor leaves fifty nines). Add and Subtract refuse, before any
    // work, an operand whose first digit lies beyond this number's integral capacity.
    int Add(const KivNumber& operand_i);
    int Subtract(const KivNumber& operand_i);
    int Multiply(const KivNumber& operand_i);
    // Leaves this number alone and stores the integral quotient (truncated towards zero) in
    // `quotient_o` and, when not null, the remainder (the sign of this number) in `remainder_o`,
    // each in its own precision and scale. `quotient_o` may be this number. A zero divisor puts
    // the fifty nines in the quotient.
    int Divide(const KivNumber& divisor_i, KivNumber* quotient_o, KivNumber* remainder_o);
    // This number divided by the divisor, rounded half up to the scale.
    int DivideNoRemainder(const KivNumber& divisor_i);
    // This number divided by the divisor, remainder of the integral quotient.
    int Remainder(const KivNumber& divisor_i);
    int Round(const int& scale_i);
    int RoundNumX(int scale_i, int currentScale_i);
    void Negate();
    void ReverseSign() { Negate(); }
    void MakeAbsoluteValue();

    // Move a zero-terminated string of packed pair bytes (either sign) by one decimal digit.
    // ShiftRight puts a 0 in front and may add a pair at the end: the buffer needs room for one
    // more byte. ShiftLeft drops the first digit and removes a trailing pair that becomes 00.
    static void ShiftRight(char* pairs_io);
    static void ShiftLeft(char* pairs_io);

    // -1, 0 or 1.
    int CompareValue(const KivNumber& other_i) const;
    int CompareAbsValue(const KivNumber& other_i) const;

    KivNumber& operator+=(const KivNumber& operand_i);
    KivNumber& operator-=(const KivNumber& operand_i);
    KivNumber& operator*=(const KivNumber& operand_i);
    KivNumber& operator/=(const KivNumber& divisor_i);
    KivNumber& operator%=(const KivNumber& divisor_i);
    KivNumber& operator++();
    KivNumber operator++(int);
    KivNumber& operator--();
    KivNumber operator--(int);
    KivNumber operator+() const { return *this; }
    KivNumber operator-() const;
    KivNumber abs() const;
    // Square-and-multiply in this number's precision and scale, each step rounded; a negative
    // power multiplies the reciprocal. 0 to a negative power reports -2055 and gives 0.
    KivNumber pow(int power_i) const;

    // The truncated integral part (through the text and the string utilities' base 10
    // conversion, so values beyond 32 bits wrap).
    operator int() const;
    operator unsigned int() const;
    operator KivString() const { return GetStringRepresentation(); }
    // Plain decimal text: "" for null, "0", "123.45", "100", "0.05", "-0.5".
    KivString GetStringRepresentation() const;
    // At least `scale_i` digits after the point (at most 100 are added), rounded half up first
    // when `round_i`; "0.00" for null with a scale of 2.
    KivString GetStringRepresentation(const unsigned int& scale_i, const bool& round_i) const;

    // Writes the code's message to standard error and sets the value the code calls for.
    void HandleNumberError(const int& code_i);

    // Aborts on a broken packed value or precision; run after every assignment.
    void AssertValid() const;

private:
    void Initialize(int length_i, int scale_i);
    void AssignInteger(long long value_i);
    void AssignDouble(double value_i);
    // Rounds half up to the scale and stores the value, or reports `errorCode_i` when its
    // integral part does not fit and leaves the number as it was.
    int StoreDigits(KivNumberDigits value_i, int errorCode_i);
    int AddOrSubtract(const KivNumber& operand_i, bool subtract_i);
    // This number divided by the divisor (rounded to the scale), or the remainder of the
    // integral quotient.
    int DivideInPlace(const KivNumber& divisor_i, bool keepRemainder_i);
    int IntegralCapacity() const { return myLength - myScale; }

    KivString myNumber;
    // Work areas of the pair arithmetic, kept so that repeated additions reuse their storage.
    KivString myWorkNumber1;
    KivString myWorkNumber2;
    KivSInt32 myLength;
    KivSInt32 myScale;
};

// Free operators between two numbers and between a number and a built-in number, in both orders.
// The built-in operand becomes a KivNumber of the default precision and scale first; the result
// takes the precision and scale of the left operand.
#define KIV_NUMBER_DECLARE_OPERATORS(Type)                                                                   \
    KivNumber operator+(const KivNumber& left_i, Type right_i);                                              \
    KivNumber operator-(const KivNumber& left_i, Type right_i);                                              \
    KivNumber operator*(const KivNumber& left_i, Type right_i);                                              \
    KivNumber operator/(const KivNumber& left_i, Type right_i);                                              \
    KivNumber operator%(const KivNumber& left_i, Type right_i);                                              \
    KivNumber operator+(Type left_i, const KivNumber& right_i);                                              \
    KivNumber operator-(Type left_i, const KivNumber& right_i);                                              \
    KivNumber operator*(Type left_i, const KivNumber& right_i);                                              \
    KivNumber operator/(Type left_i, const KivNumber& right_i);                                              \
    KivNumber operator%(Type left_i, const KivNumber& right_i);                                              \
    bool operator==(const KivNumber& left_i, Type right_i);                                                  \
    bool operator!=(const KivNumber& left_i, Type right_i);                                                  \
    bool operator<(const KivNumber& left_i, Type right_i);                                                   \
    bool operator>(const KivNumber& left_i, Type right_i);                                                   \
    bool operator<=(const KivNumber& left_i, Type right_i);                                                  \
    bool operator>=(const KivNumber& left_i, Type right_i);                                                  \
    bool operator==(Type left_i, const KivNumber& right_i);                                                  \
    bool operator!=(Type left_i, const KivNumber& right_i);                                                  \
    bool operator<(Type left_i, const KivNumber& right_i);                                                   \
    bool operator>(Type left_i, const KivNumber& right_i);                                                   \
    bool operator<=(Type left_i, const KivNumber& right_i);                                                  \
    bool operator>=(Type left_i, const KivNumber& right_i);

KivNumber operator+(const KivNumber& left_i, const KivNumber& right_i);
KivNumber operator-(const KivNumber& left_i, const KivNumber& right_i);
KivNumber operator*(const KivNumber& left_i, const KivNumber& right_i);
KivNumber operator/(const KivNumber& left_i, const KivNumber& right_i);
KivNumber operator%(const KivNumber& left_i, const KivNumber& right_i);
bool operator==(const KivNumber& left_i, const KivNumber& right_i);
bool operator!=(const KivNumber& left_i, const KivNumber& right_i);
bool operator<(const KivNumber& left_i, const KivNumber& right_i);
bool operator>(const KivNumber& left_i, const KivNumber& right_i);
bool operator<=(const KivNumber& left_i, const KivNumber& right_i);
bool operator>=(const KivNumber& left_i, const KivNumber& right_i);
KIV_NUMBER_DECLARE_OPERATORS(unsigned int)
KIV_NUMBER_DECLARE_OPERATORS(int)
KIV_NUMBER_DECLARE_OPERATORS(unsigned short)
KIV_NUMBER_DECLARE_OPERATORS(short)
KIV_NUMBER_DECLARE_OPERATORS(unsigned char)
KIV_NUMBER_DECLARE_OPERATORS(signed char)
KIV_NUMBER_DECLARE_OPERATORS(double)

#undef KIV_NUMBER_DECLARE_OPERATORS

#endif
