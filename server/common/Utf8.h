// Text for regions that serve UTF-8. The module writes its own words as ISO 8859-1 bytes while
// data imported from a UTF-8 file is already UTF-8, so a page can hold both: every well-formed
// UTF-8 sequence is kept as it is and every other byte is read as ISO 8859-1 and re-encoded.
#pragma once

#include <string>
#include <string_view>

namespace kiv
{

// The length of the well-formed UTF-8 sequence at the start of text (2 to 4), or 0 when it
// does not start with one. Overlong forms, surrogates and code points above U+10FFFF are not
// well-formed.
size_t utf8SequenceLength(std::string_view text);

// Converts text in place as described above. Pure ASCII and text that is already well-formed
// UTF-8 are left untouched, after one pass over the bytes and without allocating.
void convertLatin1ToUtf8(std::string& text);

} // namespace kiv
