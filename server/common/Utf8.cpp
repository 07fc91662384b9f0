// ISO 8859-1 to UTF-8, keeping what is UTF-8 already.
#include "common/Utf8.h"

namespace kiv
{

size_t utf8SequenceLength(std::string_view text)
{
    if (text.empty())
        return 0;
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    size_t length = 0;
    // The second byte's range rules out overlong forms (E0, F0), surrogates (ED) and code
    // points above U+10FFFF (F4); C0, C1 and F5 to FF never start a sequence.
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    }
    if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high)
        return 0;
    for (size_t i = 2; i < length; ++i)
        if (byte(i) < 0x80 || byte(i) > 0xBF)
            return 0;
    return length;
}

namespace
{

// The offset of the first byte that is neither ASCII nor part of a well-formed sequence.
size_t firstStrayByte(std::string_view text)
{
    size_t i = 0;
    while (i < text.size())
    {
        if (static_cast<unsigned char>(text[i]) < 0x80)
        {
            ++i;
            continue;
        }
        const size_t length = utf8SequenceLength(text.substr(i));
        if (length == 0)
            return i;
        i += length;
    }
    return text.size();
}

} // namespace

void convertLatin1ToUtf8(std::string& text)
{
    const size_t stray = firstStrayByte(text);
    if (stray == text.size())
        return;
    std::string converted;
    converted.reserve(text.size() + (text.size() - stray) / 2 + 8);
    converted.append(text, 0, stray);
    const std::string_view rest = std::string_view(text).substr(stray);
    size_t i = 0;
    while (i < rest.size())
    {
        const unsigned char c = static_cast<unsigned char>(rest[i]);
        const size_t length = c < 0x80 ? 1 : utf8SequenceLength(rest.substr(i));
        if (length != 0)
        {
            converted.append(rest.substr(i, length));
            i += length;
            continue;
        }
        converted += static_cast<char>(0xC0 | (c >> 6));
        converted += static_cast<char>(0x80 | (c & 0x3F));
        ++i;
    }
    text = std::move(converted);
}

} // namespace kiv
