// Number <-> text conversions and the URL and HTML encodings.
#include "KivStringUtility.h"

#include "KivAssert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

const char KivStringUtility::kRadixDigit[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

const KivStringUtility::KivEntity KivStringUtility::kEntityTable[kEntityCount] = {
    {"&Aacute;", 193}, {"&Acirc;", 194},  {"&AElig;", 198},  {"&Agrave;", 192}, {"&Aring;", 197},
    {"&Atilde;", 195}, {"&Auml;", 196},   {"&Ccedil;", 199}, {"&ETH;", 208},    {"&Eacute;", 201},
    {"&Ecirc;", 202},  {"&Egrave;", 200}, {"&Euml;", 203},   {"&Iacute;", 205}, {"&Icirc;", 206},
    {"&Igrave;", 204}, {"&Iuml;", 207},   {"&Ntilde;", 209}, {"&Oactue;", 211}, {"&Ocirc;", 212},
    {"&Ograve;", 210}, {"&Oslash;", 216}, {"&Otilde;", 213}, {"&Ouml;", 214},   {"&Uactue;", 218},
    {"&Ucirc;", 219},  {"&Ugrave;", 217}, {"&Uuml;", 220},   {"&Yacute;", 221}, {"&THORN;", 222},
    {"&aacute;", 225}, {"&acirc;", 226},  {"&acute;", 180},  {"&aelig;", 230},  {"&agrave;", 224},
    {"&aring;", 229},  {"&atilde;", 227}, {"&auml;", 228},   {"&amp;", 38},     {"&brvbar;", 166},
    {"&ccedil;", 231}, {"&cedil;", 184},  {"&cent;", 162},   {"&copy;", 169},   {"&curren;", 164},
    {"&deg;", 176},    {"&divide;", 247}, {"&eacute;", 233}, {"&ecirc;", 234},  {"&egrave;", 232},
    {"&eth;", 240},    {"&euml;", 235},   {"&frac14;", 188}, {"&frac12;", 189}, {"&frac34;", 190},
    {"&gt;", 62},      {"&iacute;", 237}, {"&icirc;", 238},  {"&iexcl;", 161},  {"&igrave;", 236},
    {"&iquest;", 191}, {"&iuml;", 239},   {"&lanquo;", 171}, {"&lt;", 60},      {"&macr;", 175},
    {"&micro;", 181},  {"&middot;", 183}, {"&nbsp;", 160},   {"&not;", 172},    {"&ntilde;", 241},
    {"&oactue;", 243}, {"&ocirc;", 244},  {"&ograve;", 242}, {"&ordf;", 170},   {"&ordm;", 186},
    {"&oslash;", 248}, {"&otilde;", 245}, {"&ouml;", 246},   {"&para;", 182},   {"&plusmn;", 177},
    {"&pound;", 163},  {"&quot;", 34},    {"&raquo;", 187},  {"&reg;", 174},    {"&sect;", 167},
    {"&shy;", 173},    {"&sup1;", 185},   {"&sup2;", 178},   {"&sup3;", 179},   {"&szlig;", 223},
    {"&times;", 215},  {"&thorn;", 254},  {"&uactue;", 250}, {"&ucirc;", 251},  {"&ugrave;", 249},
    {"&uml;", 168},    {"&uuml;", 252},   {"&yacute;", 253}, {"&yen;", 165},    {"&yuml;", 255},
};

namespace
{
// A radix below 2 is refused as well: radix 1 would never bring a non-zero value down to 0.
bool IsUsableRadix(unsigned char radix_i)
{
    return radix_i >= 2 && radix_i <= 36;
}

const KivStringUtility::KivEntity* FindEntityForCharacter(unsigned char character_i)
{
    for (const KivStringUtility::KivEntity& entity : KivStringUtility::kEntityTable)
        if (entity.myCharacterCode == character_i)
            return &entity;
    return nullptr;
}

int GetHexDigitValue(char character_i)
{
    if (character_i >= '0' && character_i <= '9')
        return character_i - '0';
    if (character_i >= 'A' && character_i <= 'F')
        return character_i - 'A' + 10;
    if (character_i >= 'a' && character_i <= 'f')
        return character_i - 'a' + 10;
    return -1;
}

bool IsURLReservedCharacter(unsigned char character_i, bool encodePathCharacters_i)
{
    switch (character_i)
    {
    case ' ':
    case '"':
    case '#':
    case '$':
    case '%':
    case '&':
    case '+':
    case ';':
    case '<':
    case '=':
    case '>':
    case '?':
    case '@':
    case '[':
    case '\\':
    case ']':
    case '^':
    case '`':
    case '{':
    case '|':
    case '}':
        return true;
    case '/':
    case ':':
    case '~':
        return encodePathCharacters_i;
    default:
        return false;
    }
}
} // namespace

KivString KivStringUtility::GetStringRepresentation(unsigned int value_i, unsigned char radix_i,
                                                    unsigned char minimumDigitCount_i)
{
    KivString result;
    result.Reserve(10);
    if (!IsUsableRadix(radix_i))
        return result;
    if (minimumDigitCount_i < 1)
    {
        KivAssertReport(KIV_ASSERT_HERE, "STATE WARNING: ", "minimumDigitCount_i < 1");
        minimumDigitCount_i = 1;
    }
    // Digits come out least significant first; the string is reversed at the end.
    do
    {
        result.Append(kRadixDigit[value_i % radix_i]);
        value_i /= radix_i;
    } while (value_i != 0);
    while (result.GetLength() < minimumDigitCount_i)
        result.Append('0');
    result.Reverse();
    return result;
}

KivString KivStringUtility::GetStringRepresentation(int value_i, unsigned char radix_i,
                                                    unsigned char minimumDigitCount_i)
{
    if (!IsUsableRadix(radix_i))
        return KivString();
    if (value_i >= 0)
        return GetStringRepresentation((unsigned int)value_i, radix_i, minimumDigitCount_i);
    // The magnitude is taken as unsigned so that the most negative value has one.
    KivString result('-');
    result.Append(GetStringRepresentation(0u - (unsigned int)value_i, radix_i, minimumDigitCount_i));
    return result;
}

KivString KivStringUtility::GetStringRepresentation(double value_i, unsigned char precision_i)
{
    char format[16];
    std::snprintf(format, sizeof(format), "%%*.%uf", (unsigned int)precision_i);
    // Large values with a large precision run to hundreds of characters: measure first.
    int length = std::snprintf(nullptr, 0, format, 4, value_i);
    if (length <= 0)
        return KivString();
    std::vector<char> text((size_t)length + 1);
    std::snprintf(text.data(), text.size(), format, 4, value_i);
    return KivString(text.data(), (unsigned int)length);
}

int KivStringUtility::GetNumericalRepresentation(const KivString& text_i, unsigned char radix_i)
{
    if (radix_i >= 37)
        return 0;
    KivString text(text_i);
    text.Trim(" \t\r\n");
    if (text.IsEmpty())
        return 0;
    text.ConvertToUppercase();

    unsigned int length = text.GetLength();
    unsigned int offset = 0;
    bool negative = false;
    if (text[0] == '-')
    {
        negative = true;
        offset = 1;
    }
    else if (text[0] == '+')
        offset = 1;

    // Unsigned arithmetic, so that overflow wraps instead of being undefined.
    unsigned int result = 0;
    for (; offset < length; ++offset)
    {
        unsigned char character = (unsigned char)text[offset];
        if (character == 0)
            break;
        int digit;
        if (radix_i == 10)
        {
            if (character == ',')
                continue;
            if (character < '0' || character > '9')
                break;
            digit = character - '0';
        }
        else
            digit = character > 64 ? character - 'A' + 10 : character - '0';
        if (digit < 0 || digit >= radix_i)
            break;
        result = result * radix_i + (unsigned int)digit;
    }
    if (negative)
        result = 0u - result;
    return (int)result;
}

double KivStringUtility::GetNumericalRepresentation(const KivString& text_i)
{
    return std::atof(text_i.GetCStringAccess());
}

bool KivStringUtility::URLEncode(KivString& text_io, const bool& encodePathCharacters_i)
{
    unsigned int length = text_io.GetLength();
    // Sized exactly before the first byte goes in: a string grows 32 bytes at a time, so letting
    // a long value grow byte by byte would copy it over and over.
    unsigned int encodedLength = length;
    for (unsigned int i = 0; i < length; ++i)
        if (IsURLReservedCharacter((unsigned char)text_io[i], encodePathCharacters_i))
            encodedLength += 2;
    if (encodedLength == length)
        return false;
    KivString encoded;
    encoded.Reserve(encodedLength);
    bool replaced = false;
    for (unsigned int i = 0; i < length; ++i)
    {
        unsigned char character = (unsigned char)text_io[i];
        if (IsURLReservedCharacter(character, encodePathCharacters_i))
        {
            encoded.Append('%');
            encoded.Append(kRadixDigit[character >> 4]);
            encoded.Append(kRadixDigit[character & 0x0F]);
            replaced = true;
        }
        else
            encoded.Append((char)character);
    }
    if (replaced)
        text_io = encoded;
    return replaced;
}

KivString KivStringUtility::GetURLEncodedString(const KivString& text_i, const bool& encodePathCharacters_i)
{
    KivString text(text_i);
    URLEncode(text, encodePathCharacters_i);
    return text;
}

bool KivStringUtility::URLDecode(KivString& text_io)
{
    unsigned int length = text_io.GetLength();
    KivString decoded;
    decoded.Reserve(length);
    bool replaced = false;
    for (unsigned int i = 0; i < length; ++i)
    {
        char character = text_io[i];
        if (character == '%' && i + 2 < length)
        {
            int high = GetHexDigitValue(text_io[i + 1]);
            int low = GetHexDigitValue(text_io[i + 2]);
            if (high >= 0 && low >= 0)
            {
                decoded.Append((char)(high * 16 + low));
                i += 2;
                replaced = true;
                continue;
            }
        }
        decoded.Append(character);
    }
    if (replaced)
        text_io = decoded;
    return replaced;
}

KivString KivStringUtility::GetURLDecodedString(const KivString& text_i)
{
    KivString text(text_i);
    URLDecode(text);
    return text;
}

namespace
{
// The length of a byte's encoded form in GetHTMLEncodedString.
unsigned int HTMLEncodedLength(unsigned char character_i)
{
    switch (character_i)
    {
    case '&':
        return 5;
    case '<':
    case '>':
        return 4;
    case '"':
        return 6;
    default:
        break;
    }
    if (character_i < 128)
        return 1;
    if (const KivStringUtility::KivEntity* entity = FindEntityForCharacter(character_i))
        return (unsigned int)std::strlen(entity->myEntityText);
    return 12; // "&#" and the ten digits of the widened byte
}
} // namespace

KivString KivStringUtility::GetHTMLEncodedString(const KivString& text_i)
{
    unsigned int length = text_i.GetLength();
    // Sized exactly first, so that a long value is not copied again at every 32-byte growth.
    unsigned long long encodedLength = 0;
    for (unsigned int i = 0; i < length; ++i)
        encodedLength += HTMLEncodedLength((unsigned char)text_i[i]);
    KIV_ASSERT_STATE(encodedLength < 0xFFFFFFE0u);
    KivString encoded;
    encoded.Reserve((unsigned int)encodedLength);
    for (unsigned int i = 0; i < length; ++i)
    {
        char character = text_i[i];
        switch (character)
        {
        case '&':
            encoded.Append("&amp;");
            break;
        case '<':
            encoded.Append("&lt;");
            break;
        case '>':
            encoded.Append("&gt;");
            break;
        case '"':
            encoded.Append("&quot;");
            break;
        default:
            if ((unsigned char)character < 128)
                encoded.Append(character);
            else if (const KivEntity* entity = FindEntityForCharacter((unsigned char)character))
                encoded.Append(entity->myEntityText);
            else
            {
                // Bytes 128-159 have no entity. Their numeric form widens the byte as a signed
                // character and has no closing ";"; pages in use carry it, so it is kept.
                encoded.Append("&#");
                encoded.Append(
                    GetStringRepresentation((unsigned int)(KivSInt32)(signed char)character, 10, 3));
            }
            break;
        }
    }
    return encoded;
}

KivString KivStringUtility::GetHTMLDecodedString(const KivString& text_i)
{
    unsigned int length = text_i.GetLength();
    const char* text = text_i.GetCStringAccess();
    KivString decoded;
    decoded.Reserve(length);
    for (unsigned int i = 0; i < length; ++i)
    {
        if (text[i] == '&')
        {
            unsigned int end = i + 1;
            while (end < length && end - i <= 10 && text[end] != ';' && text[end] != '&')
                ++end;
            if (end < length && text[end] == ';')
            {
                KivString entityText(text + i, end - i + 1);
                int character = -1;
                if (entityText.GetLength() > 3 && entityText[1] == '#')
                {
                    KivString digits = entityText.GetSubstring(2, entityText.GetLength() - 3);
                    bool allDigits = digits.GetLength() <= 3;
                    for (unsigned int d = 0; d < digits.GetLength(); ++d)
                        allDigits = allDigits && digits[d] >= '0' && digits[d] <= '9';
                    if (allDigits)
                        character = GetNumericalRepresentation(digits, 10);
                }
                else
                {
                    for (const KivEntity& entity : kEntityTable)
                        if (entityText == entity.myEntityText)
                        {
                            character = entity.myCharacterCode;
                            break;
                        }
                }
                if (character >= 0 && character <= 255)
                {
                    decoded.Append((char)character);
                    i = end;
                    continue;
                }
            }
        }
        decoded.Append(text[i]);
    }
    return decoded;
}
