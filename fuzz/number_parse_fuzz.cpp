// Feeds arbitrary bytes to KivNumber's parser and then works on whatever came out: the text
// forms must parse back to the same packed value, an addition undone by a subtraction must give
// the number back, comparisons must be antisymmetric, and nothing a page could write may abort.
// Input: byte 0 picks the precision, byte 1 the scale, byte 2 a small power; the rest is two
// texts separated by the first newline.
// fuzz-gate-runs: 50000
#include "KivNumber.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{
void Require(bool condition_i)
{
    if (!condition_i)
        std::abort();
}

// Two numbers of the same precision and scale give exact sums and differences unless they
// overflow, so a + b - b must be a again.
void CheckArithmetic(const KivNumber& left_i, const KivNumber& right_i, int power_i)
{
    KivNumber sum(left_i);
    if (sum.Add(right_i) == 0 && sum.Subtract(right_i) == 0)
        Require(sum.CompareValue(left_i) == 0);

    int order = left_i.CompareValue(right_i);
    Require(order >= -1 && order <= 1 && right_i.CompareValue(left_i) == -order);
    Require(left_i.CompareAbsValue(left_i.abs()) == 0);

    KivNumber product(left_i);
    product *= right_i;
    KivNumber quotient(left_i);
    quotient /= right_i;
    KivNumber remainder(left_i);
    remainder %= right_i;
    KivNumber integralQuotient(left_i.GetLength(), left_i.GetScale());
    KivNumber divideRemainder(left_i.GetLength(), left_i.GetScale());
    KivNumber(left_i).Divide(right_i, &integralQuotient, &divideRemainder);
    KivNumber power = left_i.pow(power_i);
    (void)power.GetStringRepresentation();
    (void)(int)quotient;
    (void)(unsigned int)product;

    KivNumber rounded(left_i);
    rounded.Round(power_i < 0 ? -power_i : power_i);
    KivNumber resized(left_i);
    resized.SetLengthAndScale(left_i.GetLength() - 1, power_i);
}

void CheckTextForms(const KivNumber& number_i)
{
    KivString text = number_i.GetStringRepresentation();
    KivNumber reparsed(number_i.GetLength(), number_i.GetScale(), text);
    Require(reparsed.GetInternalData() == number_i.GetInternalData());
    for (unsigned int scale : {0U, 2U, 7U})
    {
        KivString scaled = number_i.GetStringRepresentation(scale, true);
        Require(scaled.IsEmpty() || scaled[0] != '.');
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data_i, std::size_t size_i)
{
    if (size_i < 3 || size_i > 4096)
        return 0;
    int length = 1 + data_i[0] % KivNumber::kMaximumLength;
    int scale = data_i[1] % (length + 1);
    int power = (int)(data_i[2] % 17) - 8;
    std::string input((const char*)data_i + 3, size_i - 3);
    size_t newline = input.find('\n');
    std::string leftText = input.substr(0, newline);
    std::string rightText = newline == std::string::npos ? std::string("1") : input.substr(newline + 1);

    // The texts may hold zero bytes: parse both the C-string view and the counted string.
    KivNumber left(length, scale, leftText.c_str());
    KivNumber right(length, scale, KivString(rightText.data(), (unsigned int)rightText.size()));
    CheckTextForms(left);
    CheckTextForms(right);
    CheckArithmetic(left, right, power);
    return 0;
}
