// Splitting at a separator: only the start offset of each token is stored, and the tokens are
// cut out of the source on demand.
#include "KivTokenizedString.h"

KivTokenizedString::KivTokenizedString() = default;

KivTokenizedString::KivTokenizedString(const KivString& source_i, const KivString& separator_i,
                                       unsigned int flags_i)
{
    Tokenize(source_i, separator_i, flags_i);
}

KivTokenizedString::KivTokenizedString(const KivTokenizedString& tokenizedString_i) = default;

KivTokenizedString& KivTokenizedString::operator=(const KivTokenizedString& tokenizedString_i) = default;

KivTokenizedString::~KivTokenizedString() = default;

bool KivTokenizedString::Tokenize(const KivString& source_i, const KivString& separator_i,
                                  unsigned int flags_i)
{
    if (source_i.IsEmpty() || separator_i.IsEmpty())
        return false;
    mySourceString = source_i;
    mySeparatorString = separator_i;
    unsigned int findFlags = flags_i & kKivString_CaseInsensitive;
    unsigned int separatorLength = mySeparatorString.GetLength();
    unsigned int offset = 0;
    for (;;)
    {
        unsigned int foundOffset = 0;
        bool found = mySourceString.Find(mySeparatorString, offset, 0xFFFFFFFF, findFlags, foundOffset);
        myTokenOffsets.Append(offset);
        if (!found)
            break;
        offset = foundOffset + separatorLength;
    }
    return true;
}

KivString KivTokenizedString::GetToken(unsigned int index_i) const
{
    unsigned int tokenCount = myTokenOffsets.GetElementCount();
    if (index_i >= tokenCount)
        return KivString();
    if (tokenCount == 1)
        return mySourceString;
    unsigned int separatorLength = mySeparatorString.GetLength();
    if (index_i == 0)
        return mySourceString.GetSubstring(0, myTokenOffsets[1] - separatorLength);
    unsigned int tokenOffset = myTokenOffsets[index_i];
    if (index_i == tokenCount - 1)
        return mySourceString.GetSubstring(tokenOffset, 0xFFFFFFFF);
    return mySourceString.GetSubstring(tokenOffset,
                                       myTokenOffsets[index_i + 1] - separatorLength - tokenOffset);
}

void KivTokenizedString::Empty()
{
    mySourceString.Empty();
    mySeparatorString.Empty();
    myTokenOffsets.Empty();
}
