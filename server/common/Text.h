// Small byte-string helpers shared by every layer of the host: case-insensitive comparison,
// trimming, HTML and percent coding. Texts are single-byte (ISO 8859-1); nothing here
// assumes UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv
{

// Ordered name/value pairs: repeated names are kept in the order they arrived.
using NameValueList = std::vector<std::pair<std::string, std::string>>;

char toLowerAscii(char c);
std::string toLower(std::string_view text);
bool equalsIgnoringCase(std::string_view a, std::string_view b);
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);
// Offset of needle in text from position, ignoring ASCII case; npos when absent.
size_t findIgnoringCase(std::string_view text, std::string_view needle, size_t position = 0);
std::string_view trim(std::string_view text, std::string_view characters = " \t\r\n");

// &, <, >, " and ' become character references; control bytes other than tab, CR and LF
// (a NUL from "%00", DEL) are dropped; every other byte passes unchanged.
std::string htmlEncode(std::string_view text);
// Whether htmlEncode would change the text: most field values have nothing to encode and are
// then used as they are.
bool htmlEncodingChanges(std::string_view text);
// Decodes the common named references and numeric references up to 255; anything else
// (including unknown names) is left as written.
std::string htmlDecode(std::string_view text);

// Decodes %XX escapes (and '+' as a space when asked). Returns false on a malformed escape.
bool percentDecode(std::string_view text, bool plusIsSpace, std::string& decoded);
// Escapes every byte outside the unreserved set.
std::string percentEncode(std::string_view text);

// The value of the first pair with this name (compared exactly), or nullptr.
const std::string* findValue(const NameValueList& list, std::string_view name);

// "MBtS" for 0x4D427453; codes that are not four printable characters print in hex.
std::string fourCharacterCode(uint32_t code);

// The time now in UTC, as the logs write it: ISO-8601 with milliseconds, "2026-11-25T00:14:33.120Z".
std::string utcTimeNow();

} // namespace kiv
