// Byte-string helpers shared by the host's layers.
#include "common/Text.h"

#include <cstdio>
#include <ctime>
#include <sys/time.h>

namespace kiv
{

char toLowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string toLower(std::string_view text)
{
    std::string lowered(text);
    for (char& c : lowered)
        c = toLowerAscii(c);
    return lowered;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (toLowerAscii(a[i]) != toLowerAscii(b[i]))
            return false;
    return true;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix)
{
    return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

size_t findIgnoringCase(std::string_view text, std::string_view needle, size_t position)
{
    if (needle.empty())
        return position <= text.size() ? position : std::string_view::npos;
    // Pages and module output are scanned whole for markers: test the first byte in both cases
    // before comparing the rest, which keeps the scan to a few instructions a byte.
    const char lower = toLowerAscii(needle[0]);
    const char upper = (lower >= 'a' && lower <= 'z') ? static_cast<char>(lower - 'a' + 'A') : lower;
    const std::string_view rest = needle.substr(1);
    for (size_t i = position; i + needle.size() <= text.size(); ++i)
        if ((text[i] == lower || text[i] == upper) &&
            equalsIgnoringCase(text.substr(i + 1, rest.size()), rest))
            return i;
    return std::string_view::npos;
}

std::string_view trim(std::string_view text, std::string_view characters)
{
    size_t first = text.find_first_not_of(characters);
    if (first == std::string_view::npos)
        return {};
    size_t last = text.find_last_not_of(characters);
    return text.substr(first, last - first + 1);
}

namespace
{
// The bytes htmlEncode replaces or drops: the five special characters and control bytes other
// than tab, carriage return and line feed.
struct HtmlSpecialBytes
{
    bool special[256] = {};
    constexpr HtmlSpecialBytes()
    {
        for (int c = 0; c < 0x20; ++c)
            special[c] = c != '\t' && c != '\r' && c != '\n';
        special[0x7F] = true;
        for (unsigned char c : {'&', '<', '>', '"', '\''})
            special[c] = true;
    }
};
constexpr HtmlSpecialBytes kHtmlSpecialBytes;
} // namespace

bool htmlEncodingChanges(std::string_view text)
{
    for (char c : text)
        if (kHtmlSpecialBytes.special[static_cast<unsigned char>(c)])
            return true;
    return false;
}

std::string htmlEncode(std::string_view text)
{
    if (!htmlEncodingChanges(text))
        return std::string(text);
    std::string encoded;
    encoded.reserve(text.size());
    for (char c : text)
    {
        switch (c)
        {
        case '&':
            encoded += "&amp;";
            break;
        case '<':
            encoded += "&lt;";
            break;
        case '>':
            encoded += "&gt;";
            break;
        case '"':
            encoded += "&quot;";
            break;
        case '\'':
            encoded += "&#39;";
            break;
        case '\t':
        case '\r':
        case '\n':
            encoded += c;
            break;
        default:
            // A NUL or other control byte has no place in HTML text, and a browser may
            // read it differently from whatever filtered the page.
            if (static_cast<unsigned char>(c) >= 0x20 && c != '\x7F')
                encoded += c;
        }
    }
    return encoded;
}

namespace
{

bool decodeReference(std::string_view name, std::string& out)
{
    static const std::pair<std::string_view, char> named[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"nbsp", '\xA0'}};
    if (!name.empty() && name[0] == '#')
    {
        unsigned long value = 0;
        size_t digits = 0;
        bool hex = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
        for (size_t i = hex ? 2 : 1; i < name.size(); ++i, ++digits)
        {
            char c = name[i];
            int digit = (c >= '0' && c <= '9')          ? c - '0'
                        : (hex && c >= 'a' && c <= 'f') ? c - 'a' + 10
                        : (hex && c >= 'A' && c <= 'F') ? c - 'A' + 10
                                                        : -1;
            if (digit < 0 || value > 0xFFFF)
                return false;
            value = value * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
        }
        if (digits == 0 || value == 0 || value > 255)
            return false;
        out += static_cast<char>(value);
        return true;
    }
    for (const auto& [entity, character] : named)
        if (name == entity)
        {
            out += character;
            return true;
        }
    return false;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

std::string htmlDecode(std::string_view text)
{
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '&')
        {
            size_t semicolon = text.find(';', i + 1);
            if (semicolon != std::string_view::npos && semicolon - i <= 10 &&
                decodeReference(text.substr(i + 1, semicolon - i - 1), decoded))
            {
                i = semicolon;
                continue;
            }
        }
        decoded += text[i];
    }
    return decoded;
}

bool percentDecode(std::string_view text, bool plusIsSpace, std::string& decoded)
{
    decoded.clear();
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        char c = text[i];
        if (c == '%')
        {
            int high = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
            int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return false;
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        }
        else if (c == '+' && plusIsSpace)
            decoded += ' ';
        else
            decoded += c;
    }
    return true;
}

std::string percentEncode(std::string_view text)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (unsigned char c : text)
    {
        bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved)
            encoded += static_cast<char>(c);
        else
        {
            encoded += '%';
            encoded += digits[c >> 4];
            encoded += digits[c & 15];
        }
    }
    return encoded;
}

const std::string* findValue(const NameValueList& list, std::string_view name)
{
    for (const auto& [key, value] : list)
        if (key == name)
            return &value;
    return nullptr;
}

std::string fourCharacterCode(uint32_t code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        char c = static_cast<char>((code >> shift) & 0xFF);
        if (c < 0x20 || c > 0x7E)
        {
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08X", code);
            return hex;
        }
        text += c;
    }
    return text;
}

std::string utcTimeNow()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char stamp[40];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
    char millis[8];
    std::snprintf(millis, sizeof millis, ".%03dZ", static_cast<int>(now.tv_usec / 1000));
    return std::string(stamp) + millis;
}

} // namespace kiv
