// Field type words and value conversions. The rules aim at what a page author expects: text
// "12" is a fine integer, 2.5 is not, "yes" is a fine boolean, a number keeps the exact text
// it was given.
#include "FieldTypes.h"

#include "DecimalText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace kiv::db
{

namespace
{
constexpr uint32_t kKnownBits = 0x0FFFFFFF;
constexpr int64_t kUInt32Max = 0xFFFFFFFFLL;
constexpr int64_t kInt32Min = -2147483648LL;
constexpr int64_t kInt32Max = 2147483647LL;

bool isIntegerType(FieldType type)
{
    return type == FieldType::Integer || type == FieldType::UInteger || type == FieldType::Boolean;
}

std::optional<int64_t> integerFromDouble(double value)
{
    if (!std::isfinite(value) || std::trunc(value) != value || std::fabs(value) > 9.0e15)
        return std::nullopt;
    return int64_t(value);
}

ConversionError storeInteger(FieldType type, std::optional<int64_t> value, FieldValue& stored)
{
    if (!value)
        return ConversionError::TypeMismatch;
    if (type == FieldType::Boolean)
    {
        stored = int64_t(*value != 0);
        return ConversionError::None;
    }
    const bool fits = type == FieldType::UInteger ? (*value >= 0 && *value <= kUInt32Max)
                                                  : (*value >= kInt32Min && *value <= kInt32Max);
    if (!fits)
        return ConversionError::TypeMismatch;
    stored = *value;
    return ConversionError::None;
}

// A text longer than the field's length is stored whole all the same: TooLong only tells the
// caller, which decides whether to refuse it or keep it and say so.
ConversionError storeText(const FieldDefinition& field, std::string text, FieldValue& stored)
{
    const bool tooLong =
        field.type() == FieldType::Text && field.length() != 0 && text.size() > field.length();
    stored = std::move(text);
    return tooLong ? ConversionError::TooLong : ConversionError::None;
}
} // namespace

bool isValidTypeWord(uint32_t typeWord)
{
    if (typeWord & ~kKnownBits)
        return false;
    const uint32_t code = (typeWord >> 16) & 0xFF;
    if (code < 0x01 || code > 0x07)
        return false;
    const auto type = FieldType(code);
    if ((typeWord & 0x01000000) && type != FieldType::Integer && type != FieldType::UInteger)
        return false;
    return true;
}

std::string_view fieldTypeName(FieldType type)
{
    switch (type)
    {
    case FieldType::Boolean:
        return "Boolean";
    case FieldType::Integer:
        return "Integer";
    case FieldType::UInteger:
        return "UInteger";
    case FieldType::Float:
        return "Float";
    case FieldType::Number:
        return "Number";
    case FieldType::Text:
        return "Text";
    case FieldType::LongText:
        return "LongText";
    }
    return {};
}

std::optional<FieldType> fieldTypeByName(std::string_view name)
{
    for (uint8_t code = 1; code <= 7; ++code)
        if (compareFolded(fieldTypeName(FieldType(code)), name) == 0)
            return FieldType(code);
    return std::nullopt;
}

std::string_view trimBlanks(std::string_view text)
{
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::optional<bool> parseTruth(std::string_view text)
{
    const std::string word = foldCase(trimBlanks(text));
    if (word == "1" || word == "true" || word == "t" || word == "yes" || word == "y" || word == "on")
        return true;
    if (word.empty() || word == "0" || word == "false" || word == "f" || word == "no" || word == "n" ||
        word == "off")
        return false;
    return std::nullopt;
}

std::optional<int64_t> parseInteger(std::string_view text)
{
    text = trimBlanks(text);
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    int64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<double> parseDouble(std::string_view text)
{
    text = trimBlanks(text);
    if (!isDecimalText(text))
        return std::nullopt;
    const double value = decimalTextToDouble(text);
    if (!std::isfinite(value))
        return std::nullopt;
    return value;
}

ConversionError convertForField(const FieldDefinition& field, const InputValue& input, FieldValue& stored)
{
    const FieldType type = field.type();
    if (isIntegerType(type))
    {
        std::optional<int64_t> value;
        if (const auto* u = std::get_if<uint32_t>(&input))
            value = int64_t(*u);
        else if (const auto* i = std::get_if<int32_t>(&input))
            value = int64_t(*i);
        else if (const auto* d = std::get_if<double>(&input))
            value = integerFromDouble(*d);
        else
        {
            const auto text = std::get<std::string_view>(input);
            if (type == FieldType::Boolean)
            {
                if (const auto truth = parseTruth(text))
                    value = int64_t(*truth);
            }
            else if (trimBlanks(text).empty())
                value = 0;
            else if (!(value = parseInteger(text)))
            {
                if (const auto real = parseDouble(text))
                    value = integerFromDouble(*real);
            }
        }
        return storeInteger(type, value, stored);
    }
    if (type == FieldType::Float)
    {
        std::optional<double> value;
        if (const auto* u = std::get_if<uint32_t>(&input))
            value = double(*u);
        else if (const auto* i = std::get_if<int32_t>(&input))
            value = double(*i);
        else if (const auto* d = std::get_if<double>(&input))
            value = std::isfinite(*d) ? std::optional<double>(*d) : std::nullopt;
        else
        {
            const auto text = std::get<std::string_view>(input);
            value = trimBlanks(text).empty() ? std::optional<double>(0.0) : parseDouble(text);
        }
        if (!value)
            return ConversionError::TypeMismatch;
        stored = *value;
        return ConversionError::None;
    }
    if (type == FieldType::Number)
    {
        if (const auto* u = std::get_if<uint32_t>(&input))
            stored = std::to_string(*u);
        else if (const auto* i = std::get_if<int32_t>(&input))
            stored = std::to_string(*i);
        else if (const auto* d = std::get_if<double>(&input))
        {
            if (!std::isfinite(*d))
                return ConversionError::TypeMismatch;
            stored = formatDouble(*d);
        }
        else
        {
            // The exact text is the point of a Number field: keep it as sent, blanks aside.
            const auto text = trimBlanks(std::get<std::string_view>(input));
            if (text.empty())
                stored = std::monostate();
            else if (!isDecimalText(text))
                return ConversionError::TypeMismatch;
            else
                stored = std::string(text);
        }
        return ConversionError::None;
    }
    // Text and LongText take every kind, numbers in their decimal form.
    if (const auto* u = std::get_if<uint32_t>(&input))
        return storeText(field, std::to_string(*u), stored);
    if (const auto* i = std::get_if<int32_t>(&input))
        return storeText(field, std::to_string(*i), stored);
    if (const auto* d = std::get_if<double>(&input))
        return storeText(field, formatDouble(*d), stored);
    return storeText(field, std::string(std::get<std::string_view>(input)), stored);
}

std::string valueAsText(const FieldDefinition& field, const FieldValue& value)
{
    if (const auto* i = std::get_if<int64_t>(&value))
        return std::to_string(field.type() == FieldType::Boolean ? int64_t(*i != 0) : *i);
    if (const auto* d = std::get_if<double>(&value))
        return formatDouble(*d);
    if (const auto* s = std::get_if<std::string>(&value))
        return *s;
    return {};
}

std::optional<double> valueAsDouble(const FieldValue& value)
{
    if (const auto* i = std::get_if<int64_t>(&value))
        return double(*i);
    if (const auto* d = std::get_if<double>(&value))
        return *d;
    if (const auto* s = std::get_if<std::string>(&value))
        return trimBlanks(*s).empty() ? std::optional<double>(0.0) : parseDouble(*s);
    return 0.0;
}

std::optional<int64_t> valueAsInteger(const FieldValue& value)
{
    if (const auto* i = std::get_if<int64_t>(&value))
        return *i;
    if (const auto* d = std::get_if<double>(&value))
        return integerFromDouble(*d);
    if (const auto* s = std::get_if<std::string>(&value))
    {
        if (trimBlanks(*s).empty())
            return 0;
        if (auto whole = parseInteger(*s))
            return whole;
        if (auto real = parseDouble(*s))
            return integerFromDouble(*real);
        return std::nullopt;
    }
    return 0;
}

namespace
{
// ASCII and Latin-1 capitals to small letters (not the multiplication sign), as a table: the
// collation of case-insensitive text fields calls compareFolded for every comparison.
struct FoldTable
{
    unsigned char byte[256];
    constexpr FoldTable() : byte()
    {
        for (int c = 0; c < 256; ++c)
            byte[c] = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7) ? c + 32 : c;
    }
};
constexpr FoldTable kFold;
} // namespace

unsigned char foldCase(unsigned char c)
{
    return kFold.byte[c];
}

std::string foldCase(std::string_view text)
{
    std::string folded(text);
    for (auto& c : folded)
        c = char(kFold.byte[static_cast<unsigned char>(c)]);
    return folded;
}

int compareFolded(std::string_view a, std::string_view b)
{
    const size_t common = std::min(a.size(), b.size());
    const auto* left = reinterpret_cast<const unsigned char*>(a.data());
    const auto* right = reinterpret_cast<const unsigned char*>(b.data());
    for (size_t i = 0; i < common; ++i)
    {
        if (left[i] == right[i])
            continue;
        const int l = kFold.byte[left[i]];
        const int r = kFold.byte[right[i]];
        if (l != r)
            return l < r ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

} // namespace kiv::db
