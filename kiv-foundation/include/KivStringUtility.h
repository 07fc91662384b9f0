// Conversions between numbers and text, and the URL and HTML encodings of text. Parameters and
// preferences arrive as text and become numbers here; every value the module writes into a page
// is encoded here. The functions hold no state.
#ifndef KIV_STRING_UTILITY_H
#define KIV_STRING_UTILITY_H

#include "KivString.h"

class KivStringUtility : public KivObject
{
public:
    // One row of the named-entity table: the entity text and the Latin-1 character it stands for.
    struct KivEntity
    {
        const char* myEntityText;
        unsigned char myCharacterCode;
    };

    static constexpr unsigned int kEntityCount = 100;
    // Digit d of any radix is character d.
    static const char kRadixDigit[];
    // Searched from the first row to the last; a few spellings are the table's own ("&Oactue;",
    // "&lanquo;") and pages produced by the system carry them, so they stay.
    static const KivEntity kEntityTable[kEntityCount];

    // The value in `radix_i` (2 to 36; any other radix gives the empty string), padded on the left
    // with "0" to `minimumDigitCount_i` digits. A minimum of 0 draws a warning and counts as 1.
    static KivString GetStringRepresentation(unsigned int value_i, unsigned char radix_i = 10,
                                             unsigned char minimumDigitCount_i = 1);
    // As above, preceded by "-" for a negative value; the sign does not count towards the minimum.
    static KivString GetStringRepresentation(int value_i, unsigned char radix_i = 10,
                                             unsigned char minimumDigitCount_i = 1);
    // printf "%*.<precision>f" with a field width of 4: short results are padded on the left with
    // spaces (1.5 with precision 1 gives " 1.5").
    static KivString GetStringRepresentation(double value_i, unsigned char precision_i);

    // The integer at the start of the trimmed text; 0 when there is none or the radix is above 36.
    // In radix 10 commas are skipped ("1,250" is 1250). Overflow wraps silently.
    static int GetNumericalRepresentation(const KivString& text_i, unsigned char radix_i);
    // The platform's atof of the text.
    static double GetNumericalRepresentation(const KivString& text_i);

    // Replaces the characters that would break a URL's query by "%" and two upper-case hex digits;
    // "/", ":" and "~" only when `encodePathCharacters_i`. True if anything was replaced.
    static bool URLEncode(KivString& text_io, const bool& encodePathCharacters_i);
    static KivString GetURLEncodedString(const KivString& text_i, const bool& encodePathCharacters_i);
    // The inverse of URLEncode: every "%" followed by two hex digits becomes that byte ("+" is
    // left alone). True if anything was replaced.
    static bool URLDecode(KivString& text_io);
    static KivString GetURLDecodedString(const KivString& text_i);

    // Encodes "&", "<", ">" and the double quote, and every byte of 128 or more through the
    // entity table. Bytes 128-159 have no entity and keep the established numeric form
    // "&#4294967168" (the byte as a signed character widened to 32 bits, no closing ";").
    static KivString GetHTMLEncodedString(const KivString& text_i);
    // Turns the entities of the table and "&#<decimal>;" back into bytes; anything else, and
    // numeric forms above 255 (such as those of bytes 128-159), stays as it is.
    static KivString GetHTMLDecodedString(const KivString& text_i);

private:
    KivStringUtility() = delete;
};

#endif
