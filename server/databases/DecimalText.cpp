// Exact comparison of decimal texts: each text is reduced to a sign, its significant digits
// and a decimal exponent, which are then compared as a human would.
#include "DecimalText.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace kiv::db
{

namespace
{
constexpr size_t kMaximumLength = 400;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// value = sign * 0.d1d2d3... * 10^exponent; digits has no leading or trailing zeros; zero has
// empty digits.
struct DecimalParts
{
    bool negative = false;
    std::string digits;
    long exponent = 0;
};

std::optional<DecimalParts> splitDecimal(std::string_view text)
{
    if (text.empty() || text.size() > kMaximumLength)
        return std::nullopt;
    DecimalParts parts;
    size_t i = 0;
    if (text[i] == '+' || text[i] == '-')
        parts.negative = text[i++] == '-';
    std::string mantissa;
    long pointPosition = -1;
    bool sawDigit = false;
    for (; i < text.size(); ++i)
    {
        const char c = text[i];
        if (isDigit(c))
        {
            mantissa += c;
            sawDigit = true;
        }
        else if (c == '.' && pointPosition < 0)
            pointPosition = long(mantissa.size());
        else
            break;
    }
    if (!sawDigit)
        return std::nullopt;
    if (pointPosition < 0)
        pointPosition = long(mantissa.size());
    long exponent = 0;
    if (i < text.size())
    {
        if (text[i] != 'e' && text[i] != 'E')
            return std::nullopt;
        ++i;
        bool negativeExponent = false;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            negativeExponent = text[i++] == '-';
        if (i >= text.size())
            return std::nullopt;
        for (; i < text.size(); ++i)
        {
            if (!isDigit(text[i]) || exponent > 100000)
                return std::nullopt;
            exponent = exponent * 10 + (text[i] - '0');
        }
        if (negativeExponent)
            exponent = -exponent;
    }
    size_t first = 0;
    while (first < mantissa.size() && mantissa[first] == '0')
        ++first;
    size_t last = mantissa.size();
    while (last > first && mantissa[last - 1] == '0')
        --last;
    parts.digits = mantissa.substr(first, last - first);
    parts.exponent = pointPosition - long(first) + exponent;
    if (parts.digits.empty())
    {
        parts.negative = false; // -0 equals 0
        parts.exponent = 0;
    }
    return parts;
}

int compareMagnitude(const DecimalParts& a, const DecimalParts& b)
{
    if (a.digits.empty() || b.digits.empty())
        return int(!a.digits.empty()) - int(!b.digits.empty());
    if (a.exponent != b.exponent)
        return a.exponent < b.exponent ? -1 : 1;
    const int order = a.digits.compare(b.digits);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

int compareBytes(std::string_view a, std::string_view b)
{
    const int order = a.compare(b);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}
} // namespace

bool isDecimalText(std::string_view text)
{
    return splitDecimal(text).has_value();
}

int compareDecimalText(std::string_view a, std::string_view b)
{
    const auto left = splitDecimal(a);
    const auto right = splitDecimal(b);
    if (!left || !right)
    {
        if (left.has_value() != right.has_value())
            return left ? -1 : 1;
        return compareBytes(a, b);
    }
    if (left->negative != right->negative)
        return left->negative ? -1 : 1;
    const int magnitude = compareMagnitude(*left, *right);
    return left->negative ? -magnitude : magnitude;
}

double decimalTextToDouble(std::string_view text)
{
    std::string copy(text.substr(0, kMaximumLength));
    return std::strtod(copy.c_str(), nullptr);
}

std::string formatDouble(double value)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

} // namespace kiv::db
