// Fields of the embedded databases: the type word of the module interface taken apart, the
// value a record holds for a field, and the conversions between the value kinds the module
// sends or asks for and the seven native field types.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kiv::db
{

enum class FieldType : uint8_t
{
    Boolean = 0x01,
    Integer = 0x02,
    UInteger = 0x03,
    Float = 0x04,
    Number = 0x05,
    Text = 0x06,
    LongText = 0x07
};

struct FieldDefinition
{
    std::string name;   // as the field was created
    std::string column; // the SQL column holding it: "c<N>", never derived from the name
    uint32_t typeWord = 0;
    int64_t nextAutoValue = 1; // next value an auto-unique field hands out

    FieldType type() const { return FieldType((typeWord >> 16) & 0xFF); }
    uint32_t length() const { return typeWord & 0xFFFF; }
    bool autoUnique() const { return typeWord & 0x01000000; }
    bool indexed() const { return typeWord & 0x02000000; }
    bool unique() const { return typeWord & 0x04000000; }
    bool caseSensitive() const { return typeWord & 0x08000000; }
    bool isTextual() const { return type() == FieldType::Text || type() == FieldType::LongText; }
};

// A type word the embedded store accepts: a native type, no unknown bits. Auto-unique is for
// integer types only; text length only for Text.
bool isValidTypeWord(uint32_t typeWord);
std::string_view fieldTypeName(FieldType type); // "Boolean" ... "LongText"
std::optional<FieldType> fieldTypeByName(std::string_view name);

// What a record holds for one field: nothing (a Number without a value), an integer (also
// Boolean, Integer, UInteger), a double (Float) or text (Text, LongText, and a Number's text).
using FieldValue = std::variant<std::monostate, int64_t, double, std::string>;

// A field's position among a database's fields, by its name.
using FieldIndexLookup = std::function<std::optional<size_t>(std::string_view name)>;

// A value as the module sends it, decoded from the slots.
using InputValue = std::variant<uint32_t, int32_t, double, std::string_view>;

enum class ConversionError
{
    None,
    TypeMismatch,
    TooLong
};

// Converts what the module sent into what the field stores. TooLong: a text longer than the
// field's length, which is in `stored` whole.
ConversionError convertForField(const FieldDefinition& field, const InputValue& input, FieldValue& stored);

// Reads of a stored value as each value kind; nullopt when the value does not fit the kind.
std::string valueAsText(const FieldDefinition& field, const FieldValue& value);
std::optional<double> valueAsDouble(const FieldValue& value);
std::optional<int64_t> valueAsInteger(const FieldValue& value);

// Words that mean true or false in text ("true", "yes", "on", "1", ... without regard to case).
std::optional<bool> parseTruth(std::string_view text);
// A whole decimal integer with optional sign and surrounding blanks.
std::optional<int64_t> parseInteger(std::string_view text);
// A finite floating-point number with optional surrounding blanks.
std::optional<double> parseDouble(std::string_view text);
std::string_view trimBlanks(std::string_view text);

// Case folding of the single-byte text the system stores: ASCII and the Latin-1 letters.
unsigned char foldCase(unsigned char c);
std::string foldCase(std::string_view text);
int compareFolded(std::string_view a, std::string_view b);

} // namespace kiv::db
