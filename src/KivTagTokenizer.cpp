// Splits page text into text and tag tokens with a byte-at-a-time state machine, so that it can
// read any KivDataStream, and pairs end tags with their start tags as each tag is closed.
#include "KivTagTokenizer.h"

#include "KivAssert.h"
#include "KivString.h"

namespace
{
// States of the tokenizer; each names what has been read of the current token so far.
enum TokenizerState
{
    kState_NewToken = 1,
    kState_AfterOpen,       // "<"
    kState_AfterOpenK,      // "<k"
    kState_AfterOpenKI,     // "<ki"
    kState_AfterOpenKIV,    // "<kiv"
    kState_TagName,         // inside the tag name
    kState_AfterEndOpen,    // "</"
    kState_AfterEndOpenK,   // "</k"
    kState_AfterEndOpenKI,  // "</ki"
    kState_AfterEndOpenKIV, // "</kiv"
    kState_Text,            // plain text up to the next "<"
    kState_Attributes,      // after the name
    kState_AfterWhiteSpace, // white space among the attributes
    kState_AfterEqualSign,  // "=" of an attribute
    kState_QuotedValue      // inside a double-quoted value, where ">" does not close the tag
};

// Only ASCII counts: the tag grammar is defined on bytes, not on the page's character set.
bool IsLetterOrDigit(unsigned char byte_i)
{
    return (byte_i >= 'A' && byte_i <= 'Z') || (byte_i >= 'a' && byte_i <= 'z') ||
           (byte_i >= '0' && byte_i <= '9');
}

bool IsWhiteSpace(unsigned char byte_i)
{
    return byte_i == 9 || byte_i == 10 || byte_i == 13 || byte_i == 32;
}

bool IsByte(unsigned char byte_i, char upper_i)
{
    return byte_i == (unsigned char)upper_i || byte_i == (unsigned char)(upper_i - 'A' + 'a');
}

// Bytes of the current token not yet stored in its text. Storing them in runs instead of one
// at a time, with the capacity doubled whenever it runs out, keeps a long page linear.
class PendingBytes
{
public:
    PendingBytes() : myCount(0) {}

    void Add(KivString& text_io, char byte_i)
    {
        if (myCount == sizeof(myBytes))
            Flush(text_io);
        myBytes[myCount++] = byte_i;
    }

    void Flush(KivString& text_io)
    {
        if (myCount == 0)
            return;
        unsigned int length = text_io.GetLength();
        if (length + myCount >= text_io.GetCapacity())
            text_io.Reserve(2 * length > length + myCount ? 2 * length : length + myCount);
        text_io.Append(myBytes, myCount);
        myCount = 0;
    }

private:
    char myBytes[256];
    unsigned int myCount;
};
} // namespace

KivTagTokenizer::KivTagTokenizer(const bool& pairAllTags_i)
    : myFirstTokenInList(nullptr), myLastTokenInList(nullptr), myProductTagFound(false),
      myPairAllTags(pairAllTags_i)
{
}

KivTagTokenizer::KivTagTokenizer(const KivDataStream& stream_i, const bool& pairAllTags_i)
    : KivTagTokenizer(pairAllTags_i)
{
    Process(stream_i);
}

KivTagTokenizer::~KivTagTokenizer()
{
    EmptyTokenList();
}

void KivTagTokenizer::Process(const KivDataStream& stream_i)
{
    int state = kState_NewToken;
    unsigned char byte = 0;
    PendingBytes pending;
    while (stream_i.GetNextByte(byte))
    {
        if (state == kState_NewToken || (state == kState_Text && byte == '<'))
        {
            bool isTag = byte == '<';
            if (myLastTokenInList != nullptr)
                pending.Flush(myLastTokenInList->myToken.myText);
            AppendNewEntry((char)byte, isTag ? kKivToken_Tag : kKivToken_Text);
            state = isTag ? kState_AfterOpen : kState_Text;
            continue;
        }

        Token& token = myLastTokenInList->myToken;
        pending.Add(token.myText, (char)byte);
        bool closes = false;
        switch (state)
        {
        case kState_AfterOpen:
            if (IsByte(byte, 'K'))
                state = kState_AfterOpenK;
            else if (byte == '/')
            {
                token.myFlags = kKivToken_EndTag;
                state = kState_AfterEndOpen;
            }
            else if (IsLetterOrDigit(byte))
                state = kState_TagName;
            else
            {
                // "< b>", "<\tb>", "<!--": a "<" not followed by a name is text.
                token.myFlags = kKivToken_Text;
                state = kState_Text;
            }
            break;
        // The product prefix "kiv" is matched letter by letter, in either case, the same way
        // after "<" and after "</"; the states of each sequence are consecutive.
        case kState_AfterOpenK:
        case kState_AfterEndOpenK:
            state = IsByte(byte, 'I') ? state + 1 : kState_TagName;
            break;
        case kState_AfterOpenKI:
        case kState_AfterEndOpenKI:
            state = IsByte(byte, 'V') ? state + 1 : kState_TagName;
            break;
        case kState_AfterOpenKIV:
        case kState_AfterEndOpenKIV:
            if (byte == '>')
                closes = true;
            else
            {
                if (IsLetterOrDigit(byte))
                {
                    bool isStartTag = state == kState_AfterOpenKIV;
                    token.myFlags = isStartTag ? kKivToken_ProductTag : kKivToken_ProductEndTag;
                    // Only a product start tag counts: an end tag alone opens nothing.
                    myProductTagFound = myProductTagFound || isStartTag;
                }
                state = kState_TagName;
            }
            break;
        case kState_TagName:
            if (IsWhiteSpace(byte))
                state = kState_Attributes;
            else if (byte == '>')
                closes = true;
            break;
        case kState_AfterEndOpen:
            state = IsByte(byte, 'K') ? kState_AfterEndOpenK : kState_TagName;
            break;
        case kState_Text:
            break;
        case kState_Attributes:
            if (IsWhiteSpace(byte))
                state = kState_AfterWhiteSpace;
            else if (byte == '=')
                state = kState_AfterEqualSign;
            else if (byte == '>')
                closes = true;
            break;
        case kState_AfterWhiteSpace:
            if (byte == '=')
                state = kState_AfterEqualSign;
            else if (byte == '>')
                closes = true;
            break;
        case kState_AfterEqualSign:
            state = byte == '"' ? kState_QuotedValue : kState_Attributes;
            break;
        case kState_QuotedValue:
            if (byte == '"')
                state = kState_Attributes;
            break;
        default:
            KIV_UNEXPECTED_STATE();
        }

        if (closes)
        {
            pending.Flush(token.myText);
            LastTokenInListIsComplete();
            state = kState_NewToken;
        }
    }
    if (myLastTokenInList != nullptr)
        pending.Flush(myLastTokenInList->myToken.myText);
}

void KivTagTokenizer::LastTokenInListIsComplete()
{
    PairEndTag(myLastTokenInList);
}

void KivTagTokenizer::PairEndTag(TokenListEntry* endTag_i)
{
    if (endTag_i == nullptr)
        return;
    KivUInt32 flags = endTag_i->myToken.myFlags;
    if ((flags & kKivToken_EndTag) != kKivToken_EndTag)
        return;
    if (flags == kKivToken_EndTag && !myPairAllTags)
        return;

    TokenListEntry* startTag = FindAssociatedStartTag(endTag_i);
    if (startTag != nullptr)
    {
        endTag_i->myAssociatedEntry = startTag;
        startTag->myToken.myFlags |= kKivToken_Paired;
        startTag->myAssociatedEntry = endTag_i;
    }
}

KivTagTokenizer::TokenListEntry* KivTagTokenizer::FindAssociatedStartTag(const TokenListEntry* endTag_i) const
{
    KIV_ASSERT_NOT_NULL(endTag_i);
    KivUInt32 wantedFlags = 0;
    switch (endTag_i->myToken.myFlags)
    {
    case kKivToken_EndTag:
        wantedFlags = kKivToken_Tag;
        break;
    case kKivToken_ProductEndTag:
        wantedFlags = kKivToken_ProductTag;
        break;
    default:
        KIV_UNEXPECTED_STATE();
    }

    // "</name attr>" looks for "<name attr": the attributes of the end tag stay in the prefix.
    const KivString& endText = endTag_i->myToken.myText;
    unsigned int endLength = endText.GetLength();
    KivString prefix('<');
    prefix.Append(endText.GetSubstring(2, endLength > 3 ? endLength - 3 : 0));
    unsigned int prefixLength = prefix.GetLength();

    TokenListEntry* entry = endTag_i->myPreviousEntry;
    while (entry != nullptr)
    {
        KivUInt32 flags = entry->myToken.myFlags;
        if (flags == kKivToken_ProductEndTag && entry->myAssociatedEntry != nullptr)
        {
            // A completed inner product pair cannot hold the start tag we want: skip it whole.
            entry = entry->myAssociatedEntry->myPreviousEntry;
            continue;
        }
        if (flags == wantedFlags)
        {
            const KivString& text = entry->myToken.myText;
            if (text.GetLength() > prefixLength && text.BeginsWith(prefix, kKivString_CaseInsensitive))
            {
                unsigned char next = (unsigned char)text[prefixLength];
                if (IsWhiteSpace(next) || next == '>')
                    return entry;
            }
        }
        entry = entry->myPreviousEntry;
    }
    return nullptr;
}

unsigned int KivTagTokenizer::GetPageLength() const
{
    return GetConcatLength(myFirstTokenInList, myLastTokenInList);
}

unsigned int KivTagTokenizer::CountTokens() const
{
    unsigned int count = 0;
    for (const TokenListEntry* entry = myFirstTokenInList; entry != nullptr; entry = entry->myNextEntry)
        count++;
    return count;
}

void KivTagTokenizer::EmptyTokenList()
{
    TokenListEntry* entry = myFirstTokenInList;
    while (entry != nullptr)
    {
        TokenListEntry* next = entry->myNextEntry;
        delete entry;
        entry = next;
    }
    myFirstTokenInList = nullptr;
    myLastTokenInList = nullptr;
}

void KivTagTokenizer::EmptyTokenList(KivString& page_o)
{
    page_o.Empty();
    page_o.Reserve(GetPageLength());
    // The list stays consistent after each step, so running out of memory part-way leaves the
    // remaining entries for the destructor.
    while (myFirstTokenInList != nullptr)
    {
        page_o.Append(myFirstTokenInList->myToken.myText);
        DeleteEntry(myFirstTokenInList);
    }
}

unsigned int KivTagTokenizer::GetConcatLength(const TokenListEntry* first_i,
                                              const TokenListEntry* last_i) const
{
    unsigned int length = 0;
    for (const TokenListEntry* entry = first_i; entry != nullptr; entry = entry->myNextEntry)
    {
        length += entry->myToken.myText.GetLength();
        if (entry == last_i)
            break;
    }
    return length;
}

void KivTagTokenizer::ConcatenateTokens(TokenListEntry*& first_io, const TokenListEntry* last_i)
{
    if (first_io == nullptr || last_i == nullptr)
        return;
    first_io->myToken.myText.Reserve(GetConcatLength(first_io, last_i));
    if (first_io == last_i)
        return;

    TokenListEntry* entry = first_io->myNextEntry;
    while (entry != nullptr)
    {
        TokenListEntry* next = entry->myNextEntry;
        bool isLast = entry == last_i;
        AppendToToken(&first_io->myToken, entry->myToken.myText);
        DeleteEntry(entry);
        if (isLast)
            break;
        entry = next;
    }
}

void KivTagTokenizer::Retokenize(TokenListEntry*& first_io, TokenListEntry*& last_io)
{
    if (first_io == nullptr || last_io == nullptr)
        return;

    KivString text;
    text.Reserve(GetConcatLength(first_io, last_io));
    for (const TokenListEntry* entry = first_io; entry != nullptr; entry = entry->myNextEntry)
    {
        text.Append(entry->myToken.myText);
        if (entry == last_io)
            break;
    }

    // A buffer stream rather than a string stream: the text may hold zero bytes.
    KivTagTokenizer retokenizer(myPairAllTags);
    KivBufferStream stream(text.GetCStringAccess(), text.GetLength());
    retokenizer.Process(stream);
    KIV_ASSERT_NOT_NULL(retokenizer.myFirstTokenInList);
    KIV_ASSERT_NOT_NULL(retokenizer.myLastTokenInList);

    TokenListEntry* before = first_io->myPreviousEntry;
    TokenListEntry* after = nullptr;
    TokenListEntry* entry = first_io;
    while (entry != nullptr)
    {
        after = entry->myNextEntry;
        bool isLast = entry == last_io;
        DeleteEntry(entry);
        if (isLast)
            break;
        entry = after;
    }

    first_io = retokenizer.myFirstTokenInList;
    last_io = retokenizer.myLastTokenInList;
    retokenizer.myFirstTokenInList = nullptr;
    retokenizer.myLastTokenInList = nullptr;
    myProductTagFound = myProductTagFound || retokenizer.myProductTagFound;

    first_io->myPreviousEntry = before;
    if (before != nullptr)
        before->myNextEntry = first_io;
    else
        myFirstTokenInList = first_io;
    last_io->myNextEntry = after;
    if (after != nullptr)
        after->myPreviousEntry = last_io;
    else
        myLastTokenInList = last_io;

    // End tags of the new stretch, and those after it that lost their start tag with the old
    // stretch, may now pair with start tags outside the stretch: pair them as Process would.
    for (entry = first_io; entry != nullptr; entry = entry->myNextEntry)
    {
        KivUInt32 flags = entry->myToken.myFlags;
        if ((flags == kKivToken_EndTag || flags == kKivToken_ProductEndTag) &&
            entry->myAssociatedEntry == nullptr)
            PairEndTag(entry);
    }
}

void KivTagTokenizer::ZeroTokenListEntry(TokenListEntry* tokenListEntry_i)
{
    KIV_ASSERT_NOT_NULL(tokenListEntry_i);
    tokenListEntry_i->myNextEntry = nullptr;
    tokenListEntry_i->myPreviousEntry = nullptr;
    tokenListEntry_i->myToken.myFlags = kKivToken_Text;
    tokenListEntry_i->myToken.myText.Empty();
    tokenListEntry_i->myAssociatedEntry = nullptr;
}

KivTagTokenizer::TokenListEntry* KivTagTokenizer::AppendNewEntry(char byte_i, KivUInt32 flags_i)
{
    TokenListEntry* entry = new TokenListEntry;
    ZeroTokenListEntry(entry);
    entry->myToken.myFlags = flags_i;
    // Linked before its byte is stored, so that a failed allocation leaves the entry to the
    // destructor instead of leaking it.
    entry->myPreviousEntry = myLastTokenInList;
    if (myLastTokenInList != nullptr)
        myLastTokenInList->myNextEntry = entry;
    else
        myFirstTokenInList = entry;
    myLastTokenInList = entry;
    KIV_ASSERT_NOT_NULL(myLastTokenInList);
    entry->myToken.myText.Append(byte_i);
    return entry;
}

void KivTagTokenizer::UnpairEntry(TokenListEntry* entry_i)
{
    TokenListEntry* partner = entry_i->myAssociatedEntry;
    if (partner == nullptr)
        return;
    if (partner->myAssociatedEntry == entry_i)
    {
        partner->myAssociatedEntry = nullptr;
        // Only a start tag carries the paired bit; end tags never have it set.
        partner->myToken.myFlags &= ~(kKivToken_Paired & ~kKivToken_Tag);
    }
    entry_i->myAssociatedEntry = nullptr;
}

void KivTagTokenizer::DeleteEntry(TokenListEntry* entry_i)
{
    UnpairEntry(entry_i);
    if (entry_i->myPreviousEntry != nullptr)
        entry_i->myPreviousEntry->myNextEntry = entry_i->myNextEntry;
    else
        myFirstTokenInList = entry_i->myNextEntry;
    if (entry_i->myNextEntry != nullptr)
        entry_i->myNextEntry->myPreviousEntry = entry_i->myPreviousEntry;
    else
        myLastTokenInList = entry_i->myPreviousEntry;
    delete entry_i;
}

void KivTagTokenizer::AppendToToken(Token* token_io, const KivString& text_i)
{
    KIV_ASSERT_NOT_NULL(token_io);
    token_io->myText.Append(text_i);
}
