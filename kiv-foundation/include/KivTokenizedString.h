// Splits a string at every occurrence of a separator string and hands out the pieces by index.
// Adjacent separators give empty tokens; there is no quoting or escaping.
#ifndef KIV_TOKENIZED_STRING_H
#define KIV_TOKENIZED_STRING_H

#include "KivString.h"
#include "TKivArray.h"

class KivTokenizedString : public KivObject
{
public:
    KivTokenizedString();
    // `flags_i` bit 0 (kKivString_CaseInsensitive) matches the separator without regard to case.
    KivTokenizedString(const KivString& source_i, const KivString& separator_i, unsigned int flags_i = 0);
    KivTokenizedString(const KivTokenizedString& tokenizedString_i);
    KivTokenizedString& operator=(const KivTokenizedString& tokenizedString_i);
    ~KivTokenizedString() override;

    // False, changing nothing, when the source or the separator is empty. The token offsets are
    // appended to those already held: call Empty() first to tokenize a second string.
    bool Tokenize(const KivString& source_i, const KivString& separator_i, unsigned int flags_i = 0);

    unsigned int GetTokenCount() const { return myTokenOffsets.GetElementCount(); }
    // The token as a new string; an index out of range gives an empty string.
    KivString GetToken(unsigned int index_i) const;
    KivString operator[](unsigned int index_i) const { return GetToken(index_i); }

    // Empties the source, the separator and the token offsets.
    void Empty();

private:
    KivString mySourceString;
    KivString mySeparatorString;
    TKivArray<unsigned int> myTokenOffsets; // byte offset of each token's start, ascending
};

#endif
