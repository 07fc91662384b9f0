// Splits a page text into a doubly linked list of plain-text and tag tokens, marks the product's
// own tags ("<kiv" followed by a letter or digit) and pairs end tags with their start tags.
// Concatenating the token texts in list order always gives back the input bytes exactly.
#ifndef KIV_TAG_TOKENIZER_H
#define KIV_TAG_TOKENIZER_H

#include "KivObject.h"
#include "KivString.h"

class KivDataStream;

// Token flags. A start tag has the tag bit; an end tag adds the end bit; a product tag adds the
// product bit; a start tag that found its end tag gets the paired bits OR-ed in.
constexpr KivUInt32 kKivToken_Text = 0x00;
constexpr KivUInt32 kKivToken_Tag = 0x02;
constexpr KivUInt32 kKivToken_EndTag = 0x22;
constexpr KivUInt32 kKivToken_ProductTag = 0x82;
constexpr KivUInt32 kKivToken_ProductEndTag = 0xA2;
constexpr KivUInt32 kKivToken_Paired = 0x12;

class KivTagTokenizer : public KivObject
{
public:
    struct Token
    {
        KivUInt32 myFlags;
        // The token's bytes exactly as they stood in the input, "<" and ">" of a tag included.
        KivString myText;
    };

    struct TokenListEntry
    {
        TokenListEntry* myNextEntry;
        TokenListEntry* myPreviousEntry;
        Token myToken;
        // For a paired end tag its start tag, for a paired start tag its end tag; null otherwise.
        TokenListEntry* myAssociatedEntry;
    };

    explicit KivTagTokenizer(const bool& pairAllTags_i);
    KivTagTokenizer(const KivDataStream& stream_i, const bool& pairAllTags_i);
    KivTagTokenizer(const KivTagTokenizer&) = delete;
    KivTagTokenizer& operator=(const KivTagTokenizer&) = delete;
    ~KivTagTokenizer() override;

    // Appends the tokens of the stream's bytes to the list; an unterminated tag at the end of the
    // stream stays a tag token holding the bytes read so far.
    void Process(const KivDataStream& stream_i);

    // Called each time a tag token has been closed by its ">"; pairs it when it is an end tag.
    virtual void LastTokenInListIsComplete();

    // The nearest unpaired start tag that `endTag_i` closes, skipping completed inner product
    // pairs whole, or null.
    TokenListEntry* FindAssociatedStartTag(const TokenListEntry* endTag_i) const;

    unsigned int GetPageLength() const;
    unsigned int CountTokens() const;

    void EmptyTokenList();
    // Rebuilds the page from its tokens into `page_o` while freeing them; the list ends empty.
    void EmptyTokenList(KivString& page_o);

    // The sum of the text lengths from `first_i` up to and including `last_i`.
    unsigned int GetConcatLength(const TokenListEntry* first_i, const TokenListEntry* last_i) const;

    // Merges the texts of the entries after `first_io` up to and including `last_i` into
    // `first_io` and deletes those entries.
    void ConcatenateTokens(TokenListEntry*& first_io, const TokenListEntry* last_i);

    // Re-splits the stretch `first_io`..`last_io` (for instance after its texts were edited) and
    // splices the new tokens in its place; on return the two name the new stretch.
    void Retokenize(TokenListEntry*& first_io, TokenListEntry*& last_io);

    // True once a product start tag has been read.
    bool ContainsProductTag() const { return myProductTagFound; }
    bool PairsAllTags() const { return myPairAllTags; }

    TokenListEntry* GetFirstTokenInList() const { return myFirstTokenInList; }
    TokenListEntry* GetLastTokenInList() const { return myLastTokenInList; }

    static void ZeroTokenListEntry(TokenListEntry* tokenListEntry_i);

protected:
    TokenListEntry* myFirstTokenInList;
    TokenListEntry* myLastTokenInList;
    bool myProductTagFound;
    bool myPairAllTags;

private:
    class PairingIndex;
    friend class PairingIndex;

    // Creates a zeroed entry holding `byte_i` at the end of the list.
    TokenListEntry* AppendNewEntry(char byte_i, KivUInt32 flags_i);
    // Pairs `endTag_i` with its start tag when the pairing option allows it.
    void PairEndTag(TokenListEntry* endTag_i);
    // Unlinks `entry_i` and frees it, unpairing its partner so no pointer is left dangling.
    void DeleteEntry(TokenListEntry* entry_i);
    static void UnpairEntry(TokenListEntry* entry_i);
    static void AppendToToken(Token* token_io, const KivString& text_i);

    // Set only while Process runs: the start tags that an end tag closed at the end of the list
    // could still pair with, by name, so that pairing does not walk the whole list back for
    // every end tag. A subclass's LastTokenInListIsComplete may read the list but must not
    // relink or delete entries while Process runs.
    PairingIndex* myPairingIndex;
};

#endif
