// Splits page text into text and tag tokens with a byte-at-a-time state machine, so that it can
// read any KivDataStream, and pairs end tags with their start tags as each tag is closed.
#include "KivTagTokenizer.h"

#include "KivAssert.h"
#include "KivString.h"

#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

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

// What a start tag closed by the end tag `endText_i` begins with: "</name attr>" looks for
// "<name attr", the attributes of the end tag staying in.
KivString GetStartTagPrefix(const KivString& endText_i)
{
    unsigned int endLength = endText_i.GetLength();
    KivString prefix('<');
    prefix.Append(endText_i.GetSubstring(2, endLength > 3 ? endLength - 3 : 0));
    return prefix;
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

// The start tags still open to an end tag closed at the end of the list, so that pairing costs
// about the same per end tag however long the page is. Walking back from the end of the list,
// FindAssociatedStartTag passes over text, end tags and paired start tags and jumps over every
// completed product pair; the only entries it can stop at are the unpaired start tags outside
// those pairs. They are kept here in list order, and each is filed under every prefix an end tag
// could ask for: its bytes, folded as the case-insensitive comparison folds them, up to each
// white-space byte or ">". The nearest entry filed under the wanted prefix is then the one the
// walk would find. A page of thousands of unmatched end tags made that walk quadratic.
class KivTagTokenizer::PairingIndex
{
public:
    // Seeds the index from a list that an earlier Process call left, walking it as
    // FindAssociatedStartTag would from its end.
    explicit PairingIndex(const KivTagTokenizer& tokenizer_i)
    {
        std::vector<TokenListEntry*> visible;
        TokenListEntry* entry = tokenizer_i.myLastTokenInList;
        while (entry != nullptr)
        {
            KivUInt32 flags = entry->myToken.myFlags;
            if (flags == kKivToken_ProductEndTag && entry->myAssociatedEntry != nullptr)
            {
                entry = entry->myAssociatedEntry->myPreviousEntry;
                continue;
            }
            if (IsCandidate(entry))
                visible.push_back(entry);
            entry = entry->myPreviousEntry;
        }
        for (auto candidate = visible.rbegin(); candidate != visible.rend(); ++candidate)
            Add(*candidate);
    }

    // Files a finished entry, which must be the last one the index has seen.
    void Add(TokenListEntry* entry_i)
    {
        if (!IsCandidate(entry_i))
            return;
        const size_t slot = myOpenStartTags.size();
        myOpenStartTags.push_back(entry_i);
        const KivString& text = entry_i->myToken.myText;
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.GetCStringAccess());
        KivUInt64 hash = Start(entry_i->myToken.myFlags);
        for (unsigned int i = 0; i < text.GetLength(); ++i)
        {
            if (i >= 1 && (IsWhiteSpace(bytes[i]) || bytes[i] == '>'))
                myPrefixes[hash].emplace_back(slot, entry_i);
            hash = Step(hash, bytes[i]);
        }
    }

    // The nearest open start tag with `wantedFlags_i` whose text continues `prefix_i` with white
    // space or ">", or null.
    TokenListEntry* Find(KivUInt32 wantedFlags_i, const KivString& prefix_i)
    {
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(prefix_i.GetCStringAccess());
        KivUInt64 hash = Start(wantedFlags_i);
        for (unsigned int i = 0; i < prefix_i.GetLength(); ++i)
            hash = Step(hash, bytes[i]);
        auto found = myPrefixes.find(hash);
        if (found == myPrefixes.end())
            return nullptr;
        std::vector<std::pair<size_t, TokenListEntry*>>& filed = found->second;
        // Entries that were paired or hidden since they were filed never come back: drop them
        // from the top so that each is looked at once.
        while (!filed.empty() && !IsOpen(filed.back(), wantedFlags_i))
            filed.pop_back();
        for (size_t i = filed.size(); i-- > 0;)
        {
            if (!IsOpen(filed[i], wantedFlags_i))
                continue;
            TokenListEntry* entry = filed[i].second;
            const KivString& text = entry->myToken.myText;
            // Checked in full, as the walk checks it: two prefixes may share a hash.
            if (text.GetLength() > prefix_i.GetLength() &&
                text.BeginsWith(prefix_i, kKivString_CaseInsensitive))
            {
                unsigned char next = (unsigned char)text[prefix_i.GetLength()];
                if (IsWhiteSpace(next) || next == '>')
                    return entry;
            }
        }
        return nullptr;
    }

    // Records that `startTag_i`, found by Find, was paired. Pairing a product start tag hides it
    // and every start tag after it: the walk jumps over the completed pair.
    void Paired(TokenListEntry* startTag_i, bool productPair_i)
    {
        if (!productPair_i)
            return;
        for (size_t slot = myOpenStartTags.size(); slot-- > 0;)
            if (myOpenStartTags[slot] == startTag_i)
            {
                myOpenStartTags.resize(slot);
                return;
            }
    }

private:
    static bool IsCandidate(const TokenListEntry* entry_i)
    {
        return entry_i->myToken.myFlags == kKivToken_Tag || entry_i->myToken.myFlags == kKivToken_ProductTag;
    }

    bool IsOpen(const std::pair<size_t, TokenListEntry*>& filed_i, KivUInt32 wantedFlags_i) const
    {
        return filed_i.first < myOpenStartTags.size() && myOpenStartTags[filed_i.first] == filed_i.second &&
               filed_i.second->myToken.myFlags == wantedFlags_i;
    }

    // FNV-1a over the bytes folded as BeginsWith folds them without regard to case (ASCII only).
    static KivUInt64 Start(KivUInt32 flags_i) { return 0xCBF29CE484222325ULL ^ flags_i; }
    static KivUInt64 Step(KivUInt64 hash_i, unsigned char byte_i)
    {
        unsigned char folded = byte_i >= 'a' && byte_i <= 'z' ? (unsigned char)(byte_i - 'a' + 'A') : byte_i;
        return (hash_i ^ folded) * 0x100000001B3ULL;
    }

    std::vector<TokenListEntry*> myOpenStartTags; // in list order
    std::unordered_map<KivUInt64, std::vector<std::pair<size_t, TokenListEntry*>>> myPrefixes;
};

KivTagTokenizer::KivTagTokenizer(const bool& pairAllTags_i)
    : myFirstTokenInList(nullptr), myLastTokenInList(nullptr), myProductTagFound(false),
      myPairAllTags(pairAllTags_i), myPairingIndex(nullptr)
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
    std::unique_ptr<PairingIndex> pairingIndex(new PairingIndex(*this));
    // The index lives for this call only, also when an allocation fails part-way.
    struct IndexScope
    {
        PairingIndex*& myIndex;
        PairingIndex* myOuterIndex;
        ~IndexScope() { myIndex = myOuterIndex; }
    } indexScope{myPairingIndex, myPairingIndex};
    myPairingIndex = pairingIndex.get();

    int state = kState_NewToken;
    unsigned char byte = 0;
    PendingBytes pending;
    while (stream_i.GetNextByte(byte))
    {
        if (state == kState_NewToken || (state == kState_Text && byte == '<'))
        {
            bool isTag = byte == '<';
            if (myLastTokenInList != nullptr)
            {
                pending.Flush(myLastTokenInList->myToken.myText);
                // A token is finished once the next one starts; only then is it filed.
                myPairingIndex->Add(myLastTokenInList);
            }
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

    TokenListEntry* startTag = nullptr;
    if (myPairingIndex != nullptr && endTag_i == myLastTokenInList)
        startTag = myPairingIndex->Find(flags == kKivToken_EndTag ? kKivToken_Tag : kKivToken_ProductTag,
                                        GetStartTagPrefix(endTag_i->myToken.myText));
    else
        startTag = FindAssociatedStartTag(endTag_i);
    if (startTag != nullptr)
    {
        endTag_i->myAssociatedEntry = startTag;
        startTag->myToken.myFlags |= kKivToken_Paired;
        startTag->myAssociatedEntry = endTag_i;
        if (myPairingIndex != nullptr)
            myPairingIndex->Paired(startTag, flags == kKivToken_ProductEndTag);
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

    const KivString prefix = GetStartTagPrefix(endTag_i->myToken.myText);
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
