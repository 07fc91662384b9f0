// Copy-on-write byte strings, their shared representation, and the read-only byte streams.
// Every mutating operation first makes the representation unshared (MakeUniqueCopy) with the
// length it will have, so a copy taken before the change never sees it.
#include "KivString.h"

#include "KivAssert.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

namespace
{
// Capacity for a length: the next multiple of 32 strictly above it, leaving room for the terminator.
unsigned int PaddedSize(unsigned int length_i)
{
    return (length_i + 32) & ~31u;
}

unsigned int CStringLength(const char* cString_i)
{
    return cString_i != nullptr ? std::strlen(cString_i) : 0;
}

unsigned int PascalLength(const unsigned char* pascalString_i)
{
    return pascalString_i != nullptr ? pascalString_i[0] : 0;
}

const unsigned char* PascalBytes(const unsigned char* pascalString_i)
{
    return pascalString_i != nullptr ? pascalString_i + 1 : nullptr;
}

// Both case maps in one block, upper first, so that the signed index of ConvertToLowercase
// stays inside it.
struct KivCaseMaps
{
    unsigned char myBytes[512];
};

constexpr KivCaseMaps MakeCaseMaps()
{
    // Mac OS Roman lower-case letters and their upper-case partners, beyond ASCII.
    const unsigned char pairs[][2] = {{0x87, 0xE7}, {0x88, 0xCB}, {0x89, 0xE5}, {0x8A, 0x80}, {0x8B, 0xCC},
                                      {0x8C, 0x81}, {0x8D, 0x82}, {0x8E, 0x83}, {0x8F, 0xE9}, {0x90, 0xE6},
                                      {0x91, 0xE8}, {0x92, 0xEA}, {0x93, 0xED}, {0x94, 0xEB}, {0x95, 0xEC},
                                      {0x96, 0x84}, {0x97, 0xEE}, {0x98, 0xF1}, {0x99, 0xEF}, {0x9A, 0x85},
                                      {0x9B, 0xCD}, {0x9C, 0xF2}, {0x9D, 0xF4}, {0x9E, 0xF3}, {0x9F, 0x86},
                                      {0xBE, 0xAE}, {0xBF, 0xAF}, {0xCF, 0xCE}, {0xD8, 0xD9}};
    KivCaseMaps maps{};
    for (unsigned int i = 0; i < 256; ++i)
    {
        maps.myBytes[i] = (unsigned char)i;
        maps.myBytes[256 + i] = (unsigned char)i;
    }
    for (unsigned int c = 'a'; c <= 'z'; ++c)
    {
        maps.myBytes[c] = (unsigned char)(c - 'a' + 'A');
        maps.myBytes[256 + c - 'a' + 'A'] = (unsigned char)c;
    }
    for (const auto& pair : pairs)
    {
        maps.myBytes[pair[0]] = pair[1];
        maps.myBytes[256 + pair[1]] = pair[0];
    }
    return maps;
}

constexpr KivCaseMaps ourCaseMaps = MakeCaseMaps();

// The fold of the case-insensitive comparisons: ASCII only, so that ordering and prefix tests do
// not depend on what lies in memory before a table.
unsigned char FoldForComparison(unsigned char byte_i, bool caseInsensitive_i)
{
    return caseInsensitive_i && byte_i < 0x80 ? ourCaseMaps.myBytes[byte_i] : byte_i;
}

bool EqualBytes(const unsigned char* left_i, const unsigned char* right_i, unsigned int length_i,
                bool caseInsensitive_i)
{
    if (!caseInsensitive_i)
        return std::memcmp(left_i, right_i, length_i) == 0;
    for (unsigned int i = 0; i < length_i; ++i)
        if (FoldForComparison(left_i[i], true) != FoldForComparison(right_i[i], true))
            return false;
    return true;
}

const char* const kTrueWords[] = {"true", "t", "yes", "y", "on", "1"};
} // namespace

const unsigned char* const KivString::ourUppercaseCharacterMap = ourCaseMaps.myBytes;
const unsigned char* const KivString::ourLowercaseCharacterMap = ourCaseMaps.myBytes + 256;

// ---------------------------------------------------------------------------------------------
// KivStringRepresentation

KivStringRepresentation* KivStringRepresentation::ourEmptyStringRepresentation = nullptr;

KivStringRepresentation::KivStringRepresentation(unsigned int length_i)
    : myBaseAddress(nullptr), myLength(length_i), myReferenceCount(1), myLockedFlag(false)
{
    // Beyond this the padded capacity would wrap around to a small block.
    KIV_ASSERT_STATE(length_i < 0xFFFFFFE0u);
    myBaseAddress = static_cast<char*>(SetSize(PaddedSize(length_i), 0));
    myBaseAddress[length_i] = 0;
}

KivStringRepresentation::~KivStringRepresentation() {}

KivStringRepresentation* KivStringRepresentation::GetEmptyStringRepresentation()
{
    // Created on first use and kept until the process ends; its own reference keeps its count
    // above 1, so no string ever writes into it.
    if (ourEmptyStringRepresentation == nullptr)
        ourEmptyStringRepresentation = new KivStringRepresentation(0);
    return ourEmptyStringRepresentation;
}

void KivStringRepresentation::DecrementReferenceCount()
{
    if (--myReferenceCount == 0)
        delete this;
}

char* KivStringRepresentation::MakeUniqueCopy(KivStringRepresentation*& __stringRepresentation_io,
                                              unsigned int length_i)
{
    // Beyond this the padded capacity would wrap around to a small block.
    KIV_ASSERT_STATE(length_i < 0xFFFFFFE0u);
    KivStringRepresentation* stringRepresentation = __stringRepresentation_io;
    if (stringRepresentation->IsUnique())
    {
        unsigned int roundedSize = PaddedSize(length_i);
        if (stringRepresentation->GetSize() <= length_i && roundedSize > stringRepresentation->GetSize())
        {
            stringRepresentation->SetSize(roundedSize, kKivBuffer_KeepContents);
            stringRepresentation->myBaseAddress = static_cast<char*>(stringRepresentation->GetAddress());
        }
        stringRepresentation->SetLength(length_i);
    }
    else
    {
        KivStringRepresentation* newStringRepresentation =
            new (std::nothrow) KivStringRepresentation(length_i);
        KIV_ASSERT_NOT_NULL(newStringRepresentation);
        unsigned int keptLength =
            stringRepresentation->GetLength() < length_i ? stringRepresentation->GetLength() : length_i;
        std::memcpy(newStringRepresentation->myBaseAddress, stringRepresentation->myBaseAddress, keptLength);
        stringRepresentation->DecrementReferenceCount();
        __stringRepresentation_io = newStringRepresentation;
    }
    KIV_ASSERT_NOT_NULL(__stringRepresentation_io);
    char* terminator = __stringRepresentation_io->myBaseAddress + length_i;
    *terminator = 0;
    return terminator;
}

char* KivStringRepresentation::ReserveSize(KivStringRepresentation*& __stringRepresentation_io,
                                           unsigned int size_i)
{
    KIV_ASSERT_STATE(size_i < 0xFFFFFFE0u);
    KivStringRepresentation* stringRepresentation = __stringRepresentation_io;
    unsigned int length = stringRepresentation->GetLength();
    if (stringRepresentation->IsUnique())
    {
        unsigned int roundedSize = PaddedSize(size_i);
        if (stringRepresentation->GetSize() <= size_i && roundedSize > stringRepresentation->GetSize())
        {
            stringRepresentation->SetSize(roundedSize, kKivBuffer_KeepContents);
            stringRepresentation->myBaseAddress = static_cast<char*>(stringRepresentation->GetAddress());
        }
    }
    else
    {
        // The copy is sized for the larger of the request and the length, so no byte is lost.
        KivStringRepresentation* newStringRepresentation =
            new (std::nothrow) KivStringRepresentation(size_i > length ? size_i : length);
        KIV_ASSERT_NOT_NULL(newStringRepresentation);
        std::memcpy(newStringRepresentation->myBaseAddress, stringRepresentation->myBaseAddress, length);
        newStringRepresentation->SetLength(length);
        stringRepresentation->DecrementReferenceCount();
        __stringRepresentation_io = newStringRepresentation;
    }
    KIV_ASSERT_NOT_NULL(__stringRepresentation_io);
    __stringRepresentation_io->myBaseAddress[length] = 0;
    return __stringRepresentation_io->myBaseAddress;
}

KivBuffer KivStringRepresentation::GetBufferCopy() const
{
    KivBuffer buffer(myLength, 0);
    if (myLength != 0)
        std::memcpy(buffer.GetAddress(), myBaseAddress, myLength);
    return buffer;
}

// ---------------------------------------------------------------------------------------------
// KivString: construction and assignment

void KivString::InitializeWithBytes(const void* bytes_i, unsigned int length_i)
{
    if (length_i == 0)
    {
        myStringRepresentation = KivStringRepresentation::GetEmptyStringRepresentation();
        myStringRepresentation->IncrementReferenceCount();
        return;
    }
    KivStringRepresentation* newStringRepresentation = new (std::nothrow) KivStringRepresentation(length_i);
    KIV_ASSERT_NOT_NULL(newStringRepresentation);
    std::memcpy(newStringRepresentation->GetBaseAddress(), bytes_i, length_i);
    myStringRepresentation = newStringRepresentation;
}

KivString::KivString()
{
    InitializeWithBytes(nullptr, 0);
}

KivString::KivString(const KivString& source_i)
    : KivObject(source_i), myStringRepresentation(source_i.myStringRepresentation)
{
    KIV_ASSERT_NOT_NULL(myStringRepresentation);
    myStringRepresentation->IncrementReferenceCount();
}

KivString::KivString(char character_i)
{
    InitializeWithBytes(&character_i, 1);
}

KivString::KivString(char character_i, unsigned int count_i)
{
    InitializeWithBytes(nullptr, 0);
    if (count_i != 0)
        std::memset(ReserveLength(count_i), character_i, count_i);
}

KivString::KivString(const void* bytes_i, unsigned int length_i)
{
    InitializeWithBytes(bytes_i, length_i);
}

KivString::KivString(const char* cString_i)
{
    InitializeWithBytes(cString_i, CStringLength(cString_i));
}

KivString::KivString(const unsigned char* pascalString_i)
{
    InitializeWithBytes(PascalBytes(pascalString_i), PascalLength(pascalString_i));
}

KivString::KivString(bool value_i)
{
    InitializeWithBytes(value_i ? "yes" : "no", value_i ? 3 : 2);
}

KivString::~KivString()
{
    KIV_ASSERT_NOT_NULL(myStringRepresentation);
    myStringRepresentation->DecrementReferenceCount();
}

void KivString::Rebind(KivStringRepresentation* stringRepresentation_i)
{
    // Increment first: the new representation may be the one being released.
    stringRepresentation_i->IncrementReferenceCount();
    myStringRepresentation->DecrementReferenceCount();
    myStringRepresentation = stringRepresentation_i;
}

bool KivString::IsInOwnStorage(const void* bytes_i) const
{
    // Bytes inside this string's block may move or be overwritten by the change they feed.
    const char* bytes = static_cast<const char*>(bytes_i);
    const char* base = myStringRepresentation->GetBaseAddress();
    return bytes != nullptr && std::less_equal<const char*>()(base, bytes) &&
           std::less<const char*>()(bytes, base + myStringRepresentation->GetSize());
}

KivString& KivString::Assign(const KivString& source_i)
{
    KIV_ASSERT_NOT_NULL(source_i.myStringRepresentation);
    Rebind(source_i.myStringRepresentation);
    return *this;
}

KivString& KivString::Assign(const char* cString_i)
{
    return Assign(cString_i, CStringLength(cString_i));
}

KivString& KivString::Assign(const unsigned char* pascalString_i)
{
    return Assign(PascalBytes(pascalString_i), PascalLength(pascalString_i));
}

KivString& KivString::Assign(char character_i)
{
    return Assign(&character_i, 1);
}

KivString& KivString::Assign(const void* bytes_i, unsigned int length_i)
{
    if (length_i == 0)
    {
        Empty();
        return *this;
    }
    if (IsInOwnStorage(bytes_i))
        return Assign(KivString(bytes_i, length_i));
    char* terminator = KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, length_i);
    std::memcpy(terminator - length_i, bytes_i, length_i);
    return *this;
}

KivString& KivString::Assign(bool value_i)
{
    return value_i ? Assign("yes", 3) : Assign("no", 2);
}

KivString& KivString::operator=(const KivString& source_i)
{
    return Assign(source_i);
}
KivString& KivString::operator=(const char* cString_i)
{
    return Assign(cString_i);
}
KivString& KivString::operator=(const unsigned char* pascalString_i)
{
    return Assign(pascalString_i);
}
KivString& KivString::operator=(char character_i)
{
    return Assign(character_i);
}

void KivString::Empty()
{
    Rebind(KivStringRepresentation::GetEmptyStringRepresentation());
}

// ---------------------------------------------------------------------------------------------
// Element access

char KivString::operator[](unsigned int offset_i) const
{
    return GetAt(offset_i);
}

char KivString::GetAt(const unsigned int& offset_i) const
{
    KIV_ASSERT_STATE(offset_i < GetLength());
    return myStringRepresentation->GetBaseAddress()[offset_i];
}

void KivString::SetAt(const unsigned int& offset_i, const char& character_i)
{
    KIV_ASSERT_STATE(offset_i < GetLength());
    char value = character_i; // the argument may refer into this string's storage
    MakeUnique();
    myStringRepresentation->GetBaseAddress()[offset_i] = value;
}

// ---------------------------------------------------------------------------------------------
// Appending, inserting, substrings

KivString& KivString::Append(const KivString& source_i)
{
    return Append(source_i.GetCStringAccess(), source_i.GetLength());
}
KivString& KivString::Append(const char* cString_i)
{
    return Append(cString_i, CStringLength(cString_i));
}
KivString& KivString::Append(const unsigned char* pascalString_i)
{
    return Append(PascalBytes(pascalString_i), PascalLength(pascalString_i));
}
KivString& KivString::Append(char character_i)
{
    return Append(&character_i, 1);
}

KivString& KivString::Append(const void* bytes_i, unsigned int length_i)
{
    if (length_i == 0)
        return *this;
    if (IsInOwnStorage(bytes_i))
        return Append(KivString(bytes_i, length_i));
    char* terminator =
        KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, GetLength() + length_i);
    std::memcpy(terminator - length_i, bytes_i, length_i);
    return *this;
}

KivString& KivString::Prepend(const KivString& source_i)
{
    return Insert(source_i, 0);
}
KivString& KivString::Prepend(const char* cString_i)
{
    return Insert(cString_i, 0);
}
KivString& KivString::Prepend(const unsigned char* pascalString_i)
{
    return Insert(pascalString_i, 0);
}
KivString& KivString::Prepend(char character_i)
{
    return Insert(character_i, 0);
}
KivString& KivString::Prepend(const void* bytes_i, unsigned int length_i)
{
    return Insert(bytes_i, length_i, 0);
}

KivString& KivString::operator+=(char character_i)
{
    return Append(character_i);
}
KivString& KivString::operator+=(const char* cString_i)
{
    return Append(cString_i);
}
KivString& KivString::operator+=(const KivString& source_i)
{
    return Append(source_i);
}

KivString KivString::operator+(const char* cString_i) const
{
    KivString result(*this);
    result.Append(cString_i);
    return result;
}

KivString KivString::operator+(const KivString& source_i) const
{
    KivString result(*this);
    result.Append(source_i);
    return result;
}

KivString operator+(const char* cString_i, const KivString& source_i)
{
    KivString result(cString_i);
    result.Append(source_i);
    return result;
}

KivString& KivString::Insert(const KivString& source_i, unsigned int offset_i)
{
    return Insert(source_i.GetCStringAccess(), source_i.GetLength(), offset_i);
}
KivString& KivString::Insert(const char* cString_i, unsigned int offset_i)
{
    return Insert(cString_i, CStringLength(cString_i), offset_i);
}
KivString& KivString::Insert(const unsigned char* pascalString_i, unsigned int offset_i)
{
    return Insert(PascalBytes(pascalString_i), PascalLength(pascalString_i), offset_i);
}
KivString& KivString::Insert(char character_i, unsigned int offset_i)
{
    return Insert(&character_i, 1, offset_i);
}

KivString& KivString::Insert(const void* bytes_i, unsigned int length_i, unsigned int offset_i)
{
    if (length_i == 0)
        return *this;
    if (IsInOwnStorage(bytes_i))
        return Insert(KivString(bytes_i, length_i), offset_i);
    unsigned int oldLength = GetLength();
    if (offset_i > oldLength)
        offset_i = oldLength;
    KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, oldLength + length_i);
    char* base = myStringRepresentation->GetBaseAddress();
    std::memmove(base + offset_i + length_i, base + offset_i, oldLength - offset_i);
    std::memcpy(base + offset_i, bytes_i, length_i);
    return *this;
}

KivString KivString::GetSubstring(unsigned int offset_i, unsigned int count_i) const
{
    unsigned int length = GetLength();
    if (offset_i >= length)
        return KivString();
    if (count_i > length - offset_i)
        count_i = length - offset_i;
    return KivString(GetCStringAccess() + offset_i, count_i);
}

KivString KivString::operator()(unsigned int offset_i, unsigned int count_i) const
{
    return GetSubstring(offset_i, count_i);
}

void KivString::RemoveSubstring(unsigned int offset_i, unsigned int count_i)
{
    ReplaceSubstring(offset_i, count_i, nullptr, 0);
}

void KivString::RemoveSubstring(unsigned int offset_i, unsigned int count_i, KivString& removed_io)
{
    KivString removed = GetSubstring(offset_i, count_i);
    removed_io.Empty();
    ReplaceSubstring(offset_i, count_i, nullptr, 0);
    removed_io = removed;
}

unsigned int KivString::ReplaceSubstring(unsigned int offset_i, unsigned int count_i,
                                         const KivString& source_i)
{
    return ReplaceSubstring(offset_i, count_i, source_i.GetCStringAccess(), source_i.GetLength());
}
unsigned int KivString::ReplaceSubstring(unsigned int offset_i, unsigned int count_i, const char* cString_i)
{
    return ReplaceSubstring(offset_i, count_i, cString_i, CStringLength(cString_i));
}
unsigned int KivString::ReplaceSubstring(unsigned int offset_i, unsigned int count_i,
                                         const unsigned char* pascalString_i)
{
    return ReplaceSubstring(offset_i, count_i, PascalBytes(pascalString_i), PascalLength(pascalString_i));
}
unsigned int KivString::ReplaceSubstring(unsigned int offset_i, unsigned int count_i, char character_i)
{
    return ReplaceSubstring(offset_i, count_i, &character_i, 1);
}

unsigned int KivString::ReplaceSubstring(unsigned int offset_i, unsigned int count_i, const void* bytes_i,
                                         unsigned int length_i)
{
    unsigned int oldLength = GetLength();
    if (offset_i >= oldLength)
        return 0;
    if (length_i != 0 && IsInOwnStorage(bytes_i))
        return ReplaceSubstring(offset_i, count_i, KivString(bytes_i, length_i));
    if (count_i > oldLength - offset_i)
        count_i = oldLength - offset_i;
    unsigned int newLength = oldLength - count_i + length_i;
    unsigned int tailOffset = offset_i + count_i;
    unsigned int tailLength = oldLength - tailOffset;

    // The tail moves once: the string grows before the move, and shrinks only after it.
    KivStringRepresentation::MakeUniqueCopy(myStringRepresentation,
                                            length_i > count_i ? newLength : oldLength);
    char* base = myStringRepresentation->GetBaseAddress();
    if (length_i != count_i)
        std::memmove(base + offset_i + length_i, base + tailOffset, tailLength);
    if (length_i != 0)
        std::memcpy(base + offset_i, bytes_i, length_i);
    if (length_i < count_i)
        KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, newLength);
    return newLength - oldLength;
}

unsigned int KivString::ReplaceAll(const KivString& pattern_i, const KivString& replacement_i,
                                   unsigned int flags_i)
{
    // Hold the pattern: it may be this string, which the replacements change.
    KivString pattern(pattern_i);
    return ReplaceAll(pattern.GetCStringAccess(), pattern.GetLength(), replacement_i, flags_i);
}
unsigned int KivString::ReplaceAll(const char* pattern_i, const KivString& replacement_i,
                                   unsigned int flags_i)
{
    return ReplaceAll(pattern_i, CStringLength(pattern_i), replacement_i, flags_i);
}
unsigned int KivString::ReplaceAll(const unsigned char* pattern_i, const KivString& replacement_i,
                                   unsigned int flags_i)
{
    return ReplaceAll(PascalBytes(pattern_i), PascalLength(pattern_i), replacement_i, flags_i);
}
unsigned int KivString::ReplaceAll(char pattern_i, const KivString& replacement_i, unsigned int flags_i)
{
    return ReplaceAll(&pattern_i, 1, replacement_i, flags_i);
}

unsigned int KivString::ReplaceAll(const void* pattern_i, unsigned int patternLength_i,
                                   const KivString& replacement_i, unsigned int flags_i)
{
    if (patternLength_i == 0)
        return 0;
    KivString pattern;
    if (IsInOwnStorage(pattern_i))
    {
        pattern.Assign(pattern_i, patternLength_i);
        pattern_i = pattern.GetCStringAccess();
    }
    const KivString replacement(replacement_i); // it may be this string
    const unsigned int replacementLength = replacement.GetLength();
    const bool backward = (flags_i & kKivString_Backward) != 0;
    const bool rescan = (flags_i & kKivString_Rescan) != 0;
    const unsigned int findFlags = flags_i & (kKivString_CaseInsensitive | kKivString_Backward);

    unsigned int replacements = 0;
    unsigned int start = backward ? 0xFFFFFFFFu : 0;
    unsigned int foundOffset = 0;
    if (!rescan)
    {
        // Without rescanning, every search after a replacement only sees bytes that no
        // replacement has touched yet (the tail going forward, the head going backward), so all
        // hits can be found in the unchanged string first and the result built in one pass.
        // Replacing one hit at a time would move the tail and regrow the block for every hit,
        // which is quadratic: doubling the quotes of a long posted value took minutes.
        std::vector<unsigned int> hits;
        while (Find(pattern_i, patternLength_i, start, 0xFFFFFFFFu, findFlags, foundOffset))
        {
            hits.push_back(foundOffset);
            if (!backward)
                start = foundOffset + patternLength_i;
            else if (foundOffset == 0)
                break;
            else
                start = foundOffset - 1;
        }
        if (hits.empty())
            return 0;
        if (backward)
            std::reverse(hits.begin(), hits.end());
        const unsigned int oldLength = GetLength();
        const unsigned long long newLength = (unsigned long long)oldLength +
                                             (unsigned long long)hits.size() * replacementLength -
                                             (unsigned long long)hits.size() * patternLength_i;
        KIV_ASSERT_STATE(newLength < 0xFFFFFFE0u);
        if (newLength == 0)
        {
            Empty();
            return (unsigned int)hits.size();
        }
        KivString result;
        char* out = result.ReserveLength((unsigned int)newLength);
        const char* in = GetCStringAccess();
        unsigned int copied = 0;
        for (unsigned int hit : hits)
        {
            std::memcpy(out, in + copied, hit - copied);
            out += hit - copied;
            if (replacementLength != 0)
                std::memcpy(out, replacement.GetCStringAccess(), replacementLength);
            out += replacementLength;
            copied = hit + patternLength_i;
        }
        std::memcpy(out, in + copied, oldLength - copied);
        Assign(result);
        return (unsigned int)hits.size();
    }
    while (Find(pattern_i, patternLength_i, start, 0xFFFFFFFFu, findFlags, foundOffset))
    {
        ReplaceSubstring(foundOffset, patternLength_i, replacement);
        ++replacements;
        if (!backward)
        {
            start = rescan ? foundOffset : foundOffset + replacementLength;
            continue;
        }
        // Backward, the next match must end before the replacement (or, rescanning, may end
        // within it); nothing is left once the start would fall before the string.
        unsigned int nextEnd = rescan ? foundOffset + replacementLength : foundOffset;
        if (nextEnd == 0)
            break;
        start = nextEnd - 1;
    }
    return replacements;
}

// ---------------------------------------------------------------------------------------------
// Searching and comparing

bool KivString::Find(const KivString& pattern_i, unsigned int start_i, unsigned int count_i,
                     unsigned int flags_i, unsigned int& foundOffset_io) const
{
    return Find(pattern_i.GetCStringAccess(), pattern_i.GetLength(), start_i, count_i, flags_i,
                foundOffset_io);
}
bool KivString::Find(const char* pattern_i, unsigned int start_i, unsigned int count_i, unsigned int flags_i,
                     unsigned int& foundOffset_io) const
{
    return Find(pattern_i, CStringLength(pattern_i), start_i, count_i, flags_i, foundOffset_io);
}
bool KivString::Find(const unsigned char* pattern_i, unsigned int start_i, unsigned int count_i,
                     unsigned int flags_i, unsigned int& foundOffset_io) const
{
    return Find(PascalBytes(pattern_i), PascalLength(pattern_i), start_i, count_i, flags_i, foundOffset_io);
}
bool KivString::Find(char pattern_i, unsigned int start_i, unsigned int count_i, unsigned int flags_i,
                     unsigned int& foundOffset_io) const
{
    return Find(&pattern_i, 1, start_i, count_i, flags_i, foundOffset_io);
}

// Boyer-Moore-Horspool. The skip table holds single bytes and the pattern length is stored
// truncated to 8 bits: that keeps the table at 256 bytes on the stack, and patterns are short.
bool KivString::Find(const void* pattern_i, unsigned int patternLength_i, unsigned int start_i,
                     unsigned int count_i, unsigned int flags_i, unsigned int& foundOffset_io) const
{
    const unsigned char* text = reinterpret_cast<const unsigned char*>(GetCStringAccess());
    const unsigned char* pattern = static_cast<const unsigned char*>(pattern_i);
    const unsigned int length = GetLength();
    const unsigned char* map = ourUppercaseCharacterMap;
    const bool caseInsensitive = (flags_i & kKivString_CaseInsensitive) != 0;
    auto mapped = [map, caseInsensitive](unsigned char byte_i)
    { return caseInsensitive ? map[byte_i] : byte_i; };
    const unsigned char storedPatternLength = (unsigned char)patternLength_i;
    unsigned char skipTable[256];

    if ((flags_i & kKivString_Backward) == 0)
    {
        if (start_i >= length)
            return false;
        if (count_i > length - start_i)
            count_i = length - start_i;
        if (patternLength_i == 0 || count_i == 0 || patternLength_i > count_i)
            return false;
        std::memset(skipTable, storedPatternLength, sizeof skipTable);
        for (unsigned int i = patternLength_i; i >= 1; --i)
        {
            unsigned char& entry = skipTable[mapped(pattern[i - 1])];
            if (entry == storedPatternLength)
                entry = (unsigned char)(patternLength_i - i);
        }
        const unsigned int lastAlignment = start_i + count_i - patternLength_i;
        unsigned int alignment = start_i;
        while (alignment <= lastAlignment)
        {
            unsigned char shift = skipTable[mapped(text[alignment + patternLength_i - 1])];
            if (shift != 0)
            {
                alignment += shift;
                continue;
            }
            unsigned int i = patternLength_i - 1;
            while (i > 0 && mapped(text[alignment + i - 1]) == mapped(pattern[i - 1]))
                --i;
            if (i == 0)
            {
                foundOffset_io = alignment;
                return true;
            }
            ++alignment;
        }
        return false;
    }

    if (length == 0)
        return false;
    if (start_i > length - 1)
        start_i = length - 1;
    if (count_i > start_i + 1)
        count_i = start_i + 1;
    if (patternLength_i == 0 || count_i == 0 || patternLength_i > count_i)
        return false;
    std::memset(skipTable, storedPatternLength, sizeof skipTable);
    for (unsigned int i = 0; i < patternLength_i; ++i)
    {
        unsigned char& entry = skipTable[mapped(pattern[i])];
        if (entry == storedPatternLength)
            entry = (unsigned char)i;
    }
    // Alignments run from start - patternLength + 1 down to start - count + 1; signed so that
    // stepping below the lowest one ends the loop.
    const long long lowestAlignment = (long long)start_i - count_i + 1;
    long long alignment = (long long)start_i - patternLength_i + 1;
    while (alignment >= lowestAlignment)
    {
        unsigned char shift = skipTable[mapped(text[alignment])];
        if (shift != 0)
        {
            alignment -= shift;
            continue;
        }
        unsigned int i = patternLength_i - 1;
        while (i > 0 && mapped(text[alignment + i]) == mapped(pattern[i]))
            --i;
        if (i == 0)
        {
            foundOffset_io = (unsigned int)alignment;
            return true;
        }
        --alignment;
    }
    return false;
}

bool KivString::Contains(char pattern_i, unsigned int flags_i) const
{
    unsigned int foundOffset;
    return Find(pattern_i, 0, 0xFFFFFFFFu, flags_i, foundOffset);
}
bool KivString::Contains(const char* pattern_i, unsigned int flags_i) const
{
    unsigned int foundOffset;
    return Find(pattern_i, 0, 0xFFFFFFFFu, flags_i, foundOffset);
}
bool KivString::Contains(const KivString& pattern_i, unsigned int flags_i) const
{
    unsigned int foundOffset;
    return Find(pattern_i, 0, 0xFFFFFFFFu, flags_i, foundOffset);
}

bool KivString::BeginsWith(const KivString& source_i, unsigned int flags_i) const
{
    return BeginsWith(source_i.GetCStringAccess(), source_i.GetLength(), flags_i);
}
bool KivString::BeginsWith(const char* cString_i, unsigned int flags_i) const
{
    return BeginsWith(cString_i, CStringLength(cString_i), flags_i);
}
bool KivString::BeginsWith(const unsigned char* pascalString_i, unsigned int flags_i) const
{
    return BeginsWith(PascalBytes(pascalString_i), PascalLength(pascalString_i), flags_i);
}
bool KivString::BeginsWith(char character_i, unsigned int flags_i) const
{
    return BeginsWith(&character_i, 1, flags_i);
}
bool KivString::BeginsWith(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const
{
    if (length_i == 0 || length_i > GetLength())
        return false;
    return EqualBytes(reinterpret_cast<const unsigned char*>(GetCStringAccess()),
                      static_cast<const unsigned char*>(bytes_i), length_i,
                      (flags_i & kKivString_CaseInsensitive) != 0);
}

bool KivString::EndsWith(const KivString& source_i, unsigned int flags_i) const
{
    return EndsWith(source_i.GetCStringAccess(), source_i.GetLength(), flags_i);
}
bool KivString::EndsWith(const char* cString_i, unsigned int flags_i) const
{
    return EndsWith(cString_i, CStringLength(cString_i), flags_i);
}
bool KivString::EndsWith(const unsigned char* pascalString_i, unsigned int flags_i) const
{
    return EndsWith(PascalBytes(pascalString_i), PascalLength(pascalString_i), flags_i);
}
bool KivString::EndsWith(char character_i, unsigned int flags_i) const
{
    return EndsWith(&character_i, 1, flags_i);
}
bool KivString::EndsWith(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const
{
    if (length_i == 0 || length_i > GetLength())
        return false;
    return EqualBytes(reinterpret_cast<const unsigned char*>(GetCStringAccess()) + GetLength() - length_i,
                      static_cast<const unsigned char*>(bytes_i), length_i,
                      (flags_i & kKivString_CaseInsensitive) != 0);
}

KivUInt32 KivString::CompareTo(const KivString& source_i, unsigned int flags_i) const
{
    return CompareTo(source_i.GetCStringAccess(), source_i.GetLength(), flags_i);
}
KivUInt32 KivString::CompareTo(const char* cString_i, unsigned int flags_i) const
{
    return CompareTo(cString_i, CStringLength(cString_i), flags_i);
}
KivUInt32 KivString::CompareTo(const unsigned char* pascalString_i, unsigned int flags_i) const
{
    return CompareTo(PascalBytes(pascalString_i), PascalLength(pascalString_i), flags_i);
}
KivUInt32 KivString::CompareTo(char character_i, unsigned int flags_i) const
{
    return CompareTo(&character_i, 1, flags_i);
}

// Bytes compare as signed values, so 0x80-0xFF order before ASCII; sorted lists and dictionary
// keys throughout the system depend on this order.
KivUInt32 KivString::CompareTo(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const
{
    const unsigned char* mine = reinterpret_cast<const unsigned char*>(GetCStringAccess());
    const unsigned char* theirs = static_cast<const unsigned char*>(bytes_i);
    const unsigned int myLength = GetLength();
    const bool caseInsensitive = (flags_i & kKivString_CaseInsensitive) != 0;
    for (unsigned int i = 0;; ++i)
    {
        if (i == myLength)
            return i < length_i ? kKivCompare_Less : kKivCompare_Equal;
        if (i == length_i)
            return kKivCompare_Greater;
        signed char mineByte = (signed char)FoldForComparison(mine[i], caseInsensitive);
        signed char theirByte = (signed char)FoldForComparison(theirs[i], caseInsensitive);
        if (mineByte < theirByte)
            return kKivCompare_Less;
        if (mineByte > theirByte)
            return kKivCompare_Greater;
    }
}

bool KivString::operator==(const KivString& source_i) const
{
    return GetLength() == source_i.GetLength() &&
           std::memcmp(GetCStringAccess(), source_i.GetCStringAccess(), GetLength()) == 0;
}
bool KivString::operator!=(const KivString& source_i) const
{
    return !(*this == source_i);
}
bool KivString::operator<(const KivString& source_i) const
{
    return CompareTo(source_i) == kKivCompare_Less;
}
bool KivString::operator>(const KivString& source_i) const
{
    return CompareTo(source_i) == kKivCompare_Greater;
}
bool KivString::operator==(const char* cString_i) const
{
    return CompareTo(cString_i) == kKivCompare_Equal;
}
bool KivString::operator!=(const char* cString_i) const
{
    return !(*this == cString_i);
}
bool operator==(const char* cString_i, const KivString& source_i)
{
    return source_i == cString_i;
}
bool operator!=(const char* cString_i, const KivString& source_i)
{
    return source_i != cString_i;
}

// ---------------------------------------------------------------------------------------------
// Trimming

namespace
{
// The length of the run of bytes from `set_i` at one end of the string. The set is counted, so
// that the single-character forms can trim zero bytes.
unsigned int EdgeRunLength(const KivString& string_i, const char* set_i, unsigned int setLength_i,
                           bool fromRight_i)
{
    const char* bytes = string_i.GetCStringAccess();
    const unsigned int length = string_i.GetLength();
    unsigned int count = 0;
    while (count < length &&
           std::memchr(set_i, bytes[fromRight_i ? length - 1 - count : count], setLength_i) != nullptr)
        ++count;
    return count;
}
} // namespace

unsigned int KivString::Trim(const char* set_i, unsigned int flags_i)
{
    unsigned int removed = TrimRight(set_i, flags_i);
    return removed + TrimLeft(set_i, flags_i);
}

unsigned int KivString::Trim(char character_i, unsigned int flags_i)
{
    unsigned int removed = TrimRight(character_i, flags_i);
    return removed + TrimLeft(character_i, flags_i);
}

unsigned int KivString::TrimLeft(const char* set_i, unsigned int)
{
    return set_i != nullptr ? TrimLeft(EdgeRunLength(*this, set_i, std::strlen(set_i), false)) : 0;
}

unsigned int KivString::TrimLeft(char character_i, unsigned int)
{
    return TrimLeft(EdgeRunLength(*this, &character_i, 1, false));
}

unsigned int KivString::TrimRight(const char* set_i, unsigned int)
{
    return set_i != nullptr ? TrimRight(EdgeRunLength(*this, set_i, std::strlen(set_i), true)) : 0;
}

unsigned int KivString::TrimRight(char character_i, unsigned int)
{
    return TrimRight(EdgeRunLength(*this, &character_i, 1, true));
}

unsigned int KivString::TrimLeft(unsigned int count_i)
{
    if (count_i > GetLength())
        count_i = GetLength();
    if (count_i != 0)
        RemoveSubstring(0, count_i);
    return count_i;
}

unsigned int KivString::TrimRight(unsigned int count_i)
{
    if (count_i > GetLength())
        count_i = GetLength();
    if (count_i != 0)
        KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, GetLength() - count_i);
    return count_i;
}

// ---------------------------------------------------------------------------------------------
// Case conversion and reversal

unsigned char KivString::GetUppercaseCharacter(unsigned char character_i)
{
    return ourUppercaseCharacterMap[character_i];
}

unsigned char KivString::GetLowercaseCharacter(unsigned char character_i)
{
    return ourLowercaseCharacterMap[character_i];
}

void KivString::ConvertToLowercase()
{
    ConvertToLowercase(0, GetLength());
}
void KivString::ConvertToUppercase()
{
    ConvertToUppercase(0, GetLength());
}

void KivString::ConvertToLowercase(unsigned int offset_i, unsigned int count_i)
{
    if (offset_i >= GetLength())
        return;
    if (count_i > GetLength() - offset_i)
        count_i = GetLength() - offset_i;
    MakeUnique();
    char* bytes = myStringRepresentation->GetBaseAddress() + offset_i;
    // The signed index is deliberate: for 0x80-0xFF it reads the upper map just before this one,
    // which is what case-insensitive identifiers computed through this function expect.
    for (unsigned int i = 0; i < count_i; ++i)
        bytes[i] = (char)ourLowercaseCharacterMap[(signed char)bytes[i]];
}

void KivString::ConvertToUppercase(unsigned int offset_i, unsigned int count_i)
{
    if (offset_i >= GetLength())
        return;
    if (count_i > GetLength() - offset_i)
        count_i = GetLength() - offset_i;
    MakeUnique();
    char* bytes = myStringRepresentation->GetBaseAddress() + offset_i;
    for (unsigned int i = 0; i < count_i; ++i)
        bytes[i] = (char)ourUppercaseCharacterMap[(unsigned char)bytes[i]];
}

void KivString::Reverse()
{
    const unsigned int length = GetLength();
    if (length < 2)
        return;
    MakeUnique();
    char* bytes = myStringRepresentation->GetBaseAddress();
    for (unsigned int i = 0; i < length / 2; ++i)
    {
        char swapped = bytes[i];
        bytes[i] = bytes[length - 1 - i];
        bytes[length - 1 - i] = swapped;
    }
}

// ---------------------------------------------------------------------------------------------
// Copies out, raw access, conversions

unsigned int KivString::GetCString(char* buffer_io, unsigned int bufferSize_i) const
{
    if (buffer_io == nullptr)
        return 0;
    unsigned int count = GetLength();
    if (count > bufferSize_i)
        count = bufferSize_i != 0 ? bufferSize_i - 1 : 0;
    std::memcpy(buffer_io, GetCStringAccess(), count);
    buffer_io[count] = 0;
    return count;
}

unsigned int KivString::GetPascalString(unsigned char* buffer_io, unsigned char maxLength_i) const
{
    if (buffer_io == nullptr)
        return 0;
    unsigned int count = GetLength();
    if (count > maxLength_i)
        count = maxLength_i;
    buffer_io[0] = (unsigned char)count;
    std::memcpy(buffer_io + 1, GetCStringAccess(), count);
    return count;
}

char* KivString::GetBuffer(unsigned int size_i)
{
    if (myStringRepresentation->IsLocked())
        return nullptr;
    KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, size_i);
    myStringRepresentation->Lock(true);
    return myStringRepresentation->GetBaseAddress();
}

void KivString::ReleaseBuffer(int length_i)
{
    KIV_ASSERT_STATE(myStringRepresentation->IsLocked());
    char* base = myStringRepresentation->GetBaseAddress();
    KivSInt32 stringLength = length_i;
    if (stringLength == -1)
    {
        // Measured within the block only: a caller that wrote no zero byte fails the check below.
        const void* zero = std::memchr(base, 0, myStringRepresentation->GetSize());
        stringLength = zero != nullptr ? (KivSInt32)(static_cast<const char*>(zero) - base)
                                       : (KivSInt32)myStringRepresentation->GetSize();
    }
    // clang-format off
    KIV_ASSERT_STATE((stringLength < (KivSInt32) myStringRepresentation->GetSize()));
    // clang-format on
    KIV_ASSERT_STATE(stringLength >= 0);
    myStringRepresentation->SetLength((unsigned int)stringLength);
    base[stringLength] = 0;
    myStringRepresentation->Lock(false);
}

char* KivString::ReserveLength(unsigned int length_i)
{
    KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, length_i);
    return myStringRepresentation->GetBaseAddress();
}

void KivString::Reserve(const unsigned int& size_i)
{
    KivStringRepresentation::ReserveSize(myStringRepresentation, size_i);
}

void KivString::MakeUnique()
{
    KivStringRepresentation::MakeUniqueCopy(myStringRepresentation, GetLength());
}

KivString::operator bool() const
{
    for (const char* word : kTrueWords)
        if (CompareTo(word, kKivString_CaseInsensitive) == kKivCompare_Equal)
            return true;
    return false;
}

KivString::operator KivBuffer() const
{
    return myStringRepresentation->GetBufferCopy();
}

// ---------------------------------------------------------------------------------------------
// Streams

KivDataStream::~KivDataStream() {}

KivStringStream::KivStringStream(const KivString& source_i)
    : myString(source_i), myNextByte(myString.GetCStringAccess())
{
}

KivStringStream::~KivStringStream() {}

bool KivStringStream::GetNextByte(unsigned char& byte_io) const
{
    byte_io = (unsigned char)*myNextByte;
    if (byte_io == 0)
        return false;
    ++myNextByte;
    return true;
}

bool KivStringStream::SetByteOffset(const unsigned int& offset_i)
{
    if (offset_i >= myString.GetLength())
        return false;
    myNextByte = myString.GetCStringAccess() + offset_i;
    return true;
}

KivBufferStream::KivBufferStream(const void* bytes_i, unsigned int length_i)
    : myStart(static_cast<const unsigned char*>(bytes_i)), myLastByte(0), myNextByte(~(std::uintptr_t)0)
{
    // Without a block the next-byte address is already past the last one, so nothing is read.
    if (bytes_i != nullptr)
    {
        myLastByte = reinterpret_cast<std::uintptr_t>(bytes_i) + length_i - 1;
        myNextByte = reinterpret_cast<std::uintptr_t>(bytes_i);
    }
}

KivBufferStream::~KivBufferStream() {}

bool KivBufferStream::GetNextByte(unsigned char& byte_io) const
{
    if (myNextByte > myLastByte)
        return false;
    byte_io = *reinterpret_cast<const unsigned char*>(myNextByte);
    ++myNextByte;
    return true;
}
