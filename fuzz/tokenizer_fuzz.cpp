// Feeds arbitrary bytes to the tag tokenizer: the page rebuilt from its tokens must equal the
// input, pairing links must be mutual and point backwards, and the list operations (merge and
// re-split of a stretch chosen by the input) must keep the page intact.
// fuzz-gate-runs: 50000
#include "KivString.h"
#include "KivTagTokenizer.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace
{
typedef KivTagTokenizer::TokenListEntry Entry;

void Require(bool condition_i)
{
    if (!condition_i)
        std::abort();
}

bool IsKnownFlags(KivUInt32 flags_i)
{
    return flags_i == kKivToken_Text || flags_i == kKivToken_Tag || flags_i == kKivToken_EndTag ||
           flags_i == kKivToken_ProductTag || flags_i == kKivToken_ProductEndTag ||
           flags_i == (kKivToken_Tag | kKivToken_Paired) ||
           flags_i == (kKivToken_ProductTag | kKivToken_Paired);
}

void CheckList(const KivTagTokenizer& tokenizer_i, unsigned int size_i)
{
    Require(tokenizer_i.GetPageLength() == size_i);
    const Entry* previous = nullptr;
    for (const Entry* entry = tokenizer_i.GetFirstTokenInList(); entry != nullptr; entry = entry->myNextEntry)
    {
        Require(entry->myPreviousEntry == previous);
        Require(IsKnownFlags(entry->myToken.myFlags));
        const Entry* partner = entry->myAssociatedEntry;
        if (partner != nullptr)
        {
            Require(partner->myAssociatedEntry == entry);
            bool isEndTag = (entry->myToken.myFlags & kKivToken_EndTag) == kKivToken_EndTag;
            Require(isEndTag != ((partner->myToken.myFlags & kKivToken_EndTag) == kKivToken_EndTag));
        }
        previous = entry;
    }
    Require(tokenizer_i.GetLastTokenInList() == previous);
}

void CheckPage(KivTagTokenizer& tokenizer_io, const uint8_t* data_i, size_t size_i)
{
    KivString page;
    tokenizer_io.EmptyTokenList(page);
    Require(page.GetLength() == size_i);
    Require(size_i == 0 || std::memcmp(page.GetCStringAccess(), data_i, size_i) == 0);
    Require(tokenizer_io.CountTokens() == 0);
}

Entry* EntryAt(const KivTagTokenizer& tokenizer_i, unsigned int index_i)
{
    Entry* entry = tokenizer_i.GetFirstTokenInList();
    while (entry != nullptr && index_i-- > 0)
        entry = entry->myNextEntry;
    return entry;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    unsigned int length = (unsigned int)size;

    for (bool pairAllTags : {false, true})
    {
        KivBufferStream stream(data, length);
        KivTagTokenizer tokenizer(stream, pairAllTags);
        CheckList(tokenizer, length);
        CheckPage(tokenizer, data, size);
    }

    // A string stream stops at the first zero byte.
    {
        KivString text(data, length);
        size_t textLength = size > 0 ? std::strlen(text.GetCStringAccess()) : 0;
        KivTagTokenizer tokenizer(KivStringStream(text), true);
        CheckList(tokenizer, (unsigned int)textLength);
        CheckPage(tokenizer, data, textLength);
    }

    // Merge one stretch and re-split another, both chosen by the first input bytes.
    if (size >= 2)
    {
        KivBufferStream stream(data, length);
        KivTagTokenizer tokenizer(stream, data[0] & 1);
        unsigned int count = tokenizer.CountTokens();
        unsigned int first = data[0] % count;
        unsigned int last = first + data[1] % (count - first);
        Entry* firstEntry = EntryAt(tokenizer, first);
        Entry* lastEntry = EntryAt(tokenizer, last);
        if (data[1] & 0x80)
        {
            tokenizer.ConcatenateTokens(firstEntry, lastEntry);
            Require(tokenizer.CountTokens() == count - (last - first));
        }
        else
        {
            tokenizer.Retokenize(firstEntry, lastEntry);
        }
        CheckList(tokenizer, length);
        CheckPage(tokenizer, data, size);
    }
    return 0;
}
