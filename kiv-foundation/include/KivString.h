// The byte string of the foundation and the module: counted (zero bytes allowed), always followed
// by a terminating zero in storage, and shared copy-on-write between copies so that passing and
// returning strings by value costs a reference count, not a copy.
// Characters are single bytes in the Mac OS Roman character set.
#ifndef KIV_STRING_H
#define KIV_STRING_H

#include "KivBuffer.h"

// Flags of Find, Contains, ReplaceAll, BeginsWith, EndsWith and CompareTo.
constexpr unsigned int kKivString_CaseInsensitive = 1; // compare through the upper-case map
constexpr unsigned int kKivString_Backward = 2;        // Find and ReplaceAll search from the end
constexpr unsigned int kKivString_Rescan = 4;          // ReplaceAll resumes at the replacement, not after it

// The shared storage of a string: a buffer whose size is the capacity, the length in use, the
// number of strings sharing it and whether a caller holds its raw bytes (GetBuffer).
class KivStringRepresentation : public KivBuffer
{
public:
    // A representation of `length_i` bytes (contents undefined) with the terminator written.
    explicit KivStringRepresentation(unsigned int length_i);
    ~KivStringRepresentation() override;

    // The process-wide representation of the empty string; callers that keep it increment it.
    static KivStringRepresentation* GetEmptyStringRepresentation();

    // Makes `__stringRepresentation_io` unshared with the length `length_i`, keeping the bytes
    // that fit, and returns the address of the terminator.
    static char* MakeUniqueCopy(KivStringRepresentation*& __stringRepresentation_io, unsigned int length_i);

    // Makes the representation unshared with room for `size_i` bytes without changing its
    // length, and returns its base address. Capacity never shrinks.
    static char* ReserveSize(KivStringRepresentation*& __stringRepresentation_io, unsigned int size_i);

    void IncrementReferenceCount() { ++myReferenceCount; }
    void DecrementReferenceCount(); // deletes the representation when the count reaches 0
    bool IsUnique() const { return myReferenceCount == 1; }
    unsigned int GetReferenceCount() const { return myReferenceCount; }

    char* GetBaseAddress() const { return myBaseAddress; }
    unsigned int GetLength() const { return myLength; }
    void SetLength(unsigned int length_i) { myLength = length_i; }
    void Lock(bool locked_i) { myLockedFlag = locked_i; }
    bool IsLocked() const { return myLockedFlag; }

    // A new buffer of exactly the length, holding a copy of the bytes. A named function, since a
    // conversion operator to one's own base class is never called.
    KivBuffer GetBufferCopy() const;

private:
    KivStringRepresentation(const KivStringRepresentation&) = delete;
    KivStringRepresentation& operator=(const KivStringRepresentation&) = delete;

    char* myBaseAddress;
    KivUInt32 myLength;
    KivUInt32 myReferenceCount;
    bool myLockedFlag;

    static KivStringRepresentation* ourEmptyStringRepresentation;
};

class KivString : public KivObject
{
public:
    // Construction. A copy shares the other string's representation.
    KivString();
    KivString(const KivString& source_i);
    KivString(char character_i);
    KivString(char character_i, unsigned int count_i);
    KivString(const void* bytes_i, unsigned int length_i);
    KivString(const char* cString_i);
    KivString(const unsigned char* pascalString_i);
    explicit KivString(bool value_i); // "yes" or "no"
    ~KivString() override;

    // Assignment. A null zero-terminated string empties the string.
    KivString& Assign(const KivString& source_i);
    KivString& Assign(const char* cString_i);
    KivString& Assign(const unsigned char* pascalString_i);
    KivString& Assign(char character_i);
    KivString& Assign(const void* bytes_i, unsigned int length_i);
    KivString& Assign(bool value_i);
    KivString& operator=(const KivString& source_i);
    KivString& operator=(const char* cString_i);
    KivString& operator=(const unsigned char* pascalString_i);
    KivString& operator=(char character_i);

    // Length and content.
    unsigned int GetLength() const { return myStringRepresentation->GetLength(); }
    bool IsEmpty() const { return GetLength() == 0; }
    bool IsNotEmpty() const { return GetLength() != 0; }
    void Empty();

    // Element access; an offset not below the length aborts.
    char operator[](unsigned int offset_i) const;
    char GetAt(const unsigned int& offset_i) const;
    void SetAt(const unsigned int& offset_i, const char& character_i);

    // Appending and joining.
    KivString& Append(const KivString& source_i);
    KivString& Append(const char* cString_i);
    KivString& Append(const unsigned char* pascalString_i);
    KivString& Append(char character_i);
    KivString& Append(const void* bytes_i, unsigned int length_i);
    KivString& Prepend(const KivString& source_i);
    KivString& Prepend(const char* cString_i);
    KivString& Prepend(const unsigned char* pascalString_i);
    KivString& Prepend(char character_i);
    KivString& Prepend(const void* bytes_i, unsigned int length_i);
    KivString& operator+=(char character_i);
    KivString& operator+=(const char* cString_i);
    KivString& operator+=(const KivString& source_i);
    KivString operator+(const char* cString_i) const;
    KivString operator+(const KivString& source_i) const;

    // Inserts at `offset_i`, clamped to the length (so a large offset appends).
    KivString& Insert(const KivString& source_i, unsigned int offset_i);
    KivString& Insert(const char* cString_i, unsigned int offset_i);
    KivString& Insert(const unsigned char* pascalString_i, unsigned int offset_i);
    KivString& Insert(char character_i, unsigned int offset_i);
    KivString& Insert(const void* bytes_i, unsigned int length_i, unsigned int offset_i);

    // Substrings. Offsets at or past the end give an empty result or change nothing; counts are
    // clamped to the bytes available.
    KivString GetSubstring(unsigned int offset_i, unsigned int count_i) const;
    KivString operator()(unsigned int offset_i, unsigned int count_i) const;
    void RemoveSubstring(unsigned int offset_i, unsigned int count_i);
    void RemoveSubstring(unsigned int offset_i, unsigned int count_i, KivString& removed_io);

    // Replaces up to `count_i` bytes at `offset_i`; returns the new length minus the old one,
    // as an unsigned 32-bit value (so a shrink wraps around).
    unsigned int ReplaceSubstring(unsigned int offset_i, unsigned int count_i, const KivString& source_i);
    unsigned int ReplaceSubstring(unsigned int offset_i, unsigned int count_i, const char* cString_i);
    unsigned int ReplaceSubstring(unsigned int offset_i, unsigned int count_i,
                                  const unsigned char* pascalString_i);
    unsigned int ReplaceSubstring(unsigned int offset_i, unsigned int count_i, char character_i);
    unsigned int ReplaceSubstring(unsigned int offset_i, unsigned int count_i, const void* bytes_i,
                                  unsigned int length_i);

    // Replaces every occurrence of the pattern; returns the number of replacements. With
    // kKivString_Rescan and a replacement containing the pattern the loop never ends.
    unsigned int ReplaceAll(const KivString& pattern_i, const KivString& replacement_i, unsigned int flags_i);
    unsigned int ReplaceAll(const char* pattern_i, const KivString& replacement_i, unsigned int flags_i);
    unsigned int ReplaceAll(const unsigned char* pattern_i, const KivString& replacement_i,
                            unsigned int flags_i);
    unsigned int ReplaceAll(char pattern_i, const KivString& replacement_i, unsigned int flags_i);
    unsigned int ReplaceAll(const void* pattern_i, unsigned int patternLength_i,
                            const KivString& replacement_i, unsigned int flags_i);

    // Searches `count_i` bytes from `start_i` (backward: the `count_i` bytes ending at `start_i`)
    // and stores the match's offset from the string's beginning in `foundOffset_io`.
    bool Find(const KivString& pattern_i, unsigned int start_i, unsigned int count_i, unsigned int flags_i,
              unsigned int& foundOffset_io) const;
    bool Find(const char* pattern_i, unsigned int start_i, unsigned int count_i, unsigned int flags_i,
              unsigned int& foundOffset_io) const;
    bool Find(const unsigned char* pattern_i, unsigned int start_i, unsigned int count_i,
              unsigned int flags_i, unsigned int& foundOffset_io) const;
    bool Find(char pattern_i, unsigned int start_i, unsigned int count_i, unsigned int flags_i,
              unsigned int& foundOffset_io) const;
    bool Find(const void* pattern_i, unsigned int patternLength_i, unsigned int start_i, unsigned int count_i,
              unsigned int flags_i, unsigned int& foundOffset_io) const;
    bool Contains(char pattern_i, unsigned int flags_i = 0) const;
    bool Contains(const char* pattern_i, unsigned int flags_i = 0) const;
    bool Contains(const KivString& pattern_i, unsigned int flags_i = 0) const;

    // False for an empty pattern or one longer than the string.
    bool BeginsWith(const KivString& source_i, unsigned int flags_i = 0) const;
    bool BeginsWith(const char* cString_i, unsigned int flags_i = 0) const;
    bool BeginsWith(const unsigned char* pascalString_i, unsigned int flags_i = 0) const;
    bool BeginsWith(char character_i, unsigned int flags_i = 0) const;
    bool BeginsWith(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const;
    bool EndsWith(const KivString& source_i, unsigned int flags_i = 0) const;
    bool EndsWith(const char* cString_i, unsigned int flags_i = 0) const;
    bool EndsWith(const unsigned char* pascalString_i, unsigned int flags_i = 0) const;
    bool EndsWith(char character_i, unsigned int flags_i = 0) const;
    bool EndsWith(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const;

    // kKivCompare_Less, kKivCompare_Equal or kKivCompare_Greater. Bytes compare as signed values,
    // so 0x80-0xFF sort before 0x00-0x7F.
    KivUInt32 CompareTo(const KivString& source_i, unsigned int flags_i = 0) const;
    KivUInt32 CompareTo(const char* cString_i, unsigned int flags_i = 0) const;
    KivUInt32 CompareTo(const unsigned char* pascalString_i, unsigned int flags_i = 0) const;
    KivUInt32 CompareTo(char character_i, unsigned int flags_i = 0) const;
    KivUInt32 CompareTo(const void* bytes_i, unsigned int length_i, unsigned int flags_i) const;
    bool operator==(const KivString& source_i) const;
    bool operator!=(const KivString& source_i) const;
    bool operator<(const KivString& source_i) const;
    bool operator>(const KivString& source_i) const;
    bool operator==(const char* cString_i) const;
    bool operator!=(const char* cString_i) const;

    // Removing runs of bytes from the set (or the single character) at the ends; each returns the
    // number of bytes removed. The flags are accepted for symmetry and not used.
    unsigned int Trim(const char* set_i, unsigned int flags_i = 0);
    unsigned int Trim(char character_i, unsigned int flags_i = 0);
    unsigned int TrimLeft(const char* set_i, unsigned int flags_i = 0);
    unsigned int TrimLeft(char character_i, unsigned int flags_i = 0);
    unsigned int TrimRight(const char* set_i, unsigned int flags_i = 0);
    unsigned int TrimRight(char character_i, unsigned int flags_i = 0);
    // Drop min(count, length) bytes from that end.
    unsigned int TrimLeft(unsigned int count_i);
    unsigned int TrimRight(unsigned int count_i);

    // Case conversion through the Mac OS Roman maps. ConvertToLowercase lower-cases ASCII but
    // turns accented letters (0x80-0xFF) into their upper-case forms; callers rely on that.
    void ConvertToLowercase();
    void ConvertToUppercase();
    void ConvertToLowercase(unsigned int offset_i, unsigned int count_i);
    void ConvertToUppercase(unsigned int offset_i, unsigned int count_i);
    static unsigned char GetUppercaseCharacter(unsigned char character_i);
    static unsigned char GetLowercaseCharacter(unsigned char character_i);

    void Reverse();

    // Copies into a caller's buffer. GetCString copies up to `bufferSize_i` bytes and writes a
    // terminator after them, so the buffer must be one byte larger; returns the count copied.
    unsigned int GetCString(char* buffer_io, unsigned int bufferSize_i) const;
    unsigned int GetPascalString(unsigned char* buffer_io, unsigned char maxLength_i) const;
    const char* GetCStringAccess() const { return myStringRepresentation->GetBaseAddress(); }

    // Raw access. GetBuffer gives `size_i` writable bytes (null when already handed out);
    // ReleaseBuffer sets the length (-1: up to the first zero byte) and ends the lock.
    char* GetBuffer(unsigned int size_i);
    void ReleaseBuffer(int length_i = -1);
    // Sets the length to `length_i` (new bytes undefined) and returns the base address.
    char* ReserveLength(unsigned int length_i);
    // Makes room for `size_i` bytes without changing the length.
    void Reserve(const unsigned int& size_i);
    void MakeUnique();

    // True for "true", "t", "yes", "y", "on" and "1", compared without regard to case.
    explicit operator bool() const;
    operator KivBuffer() const;

    // The capacity of the representation (for tests and diagnostics).
    unsigned int GetCapacity() const { return myStringRepresentation->GetSize(); }
    bool SharesRepresentationWith(const KivString& other_i) const
    {
        return myStringRepresentation == other_i.myStringRepresentation;
    }

private:
    void InitializeWithBytes(const void* bytes_i, unsigned int length_i);
    bool IsInOwnStorage(const void* bytes_i) const;
    void Rebind(KivStringRepresentation* stringRepresentation_i);

    KivStringRepresentation* myStringRepresentation;

    // The upper map immediately precedes the lower one in memory: ConvertToLowercase indexes the
    // lower map with a signed byte and so reads the upper map for 0x80-0xFF.
    static const unsigned char* const ourUppercaseCharacterMap;
    static const unsigned char* const ourLowercaseCharacterMap;
};

KivString operator+(const char* cString_i, const KivString& source_i);
bool operator==(const char* cString_i, const KivString& source_i);
bool operator!=(const char* cString_i, const KivString& source_i);

// Read-only byte sources for the parsers.
class KivDataStream : public KivObject
{
public:
    ~KivDataStream() override;
    // Stores the next byte and returns true, or returns false at the end.
    virtual bool GetNextByte(unsigned char& byte_io) const = 0;
};

// Reads a string up to its first zero byte (not its length).
class KivStringStream : public KivDataStream
{
public:
    // Copies share the string's representation, which is never changed while shared, so the
    // next-byte pointer stays valid in a copy.
    explicit KivStringStream(const KivString& source_i);
    ~KivStringStream() override;
    bool GetNextByte(unsigned char& byte_io) const override;
    // Moves to `offset_i`; false when it is not below the length.
    bool SetByteOffset(const unsigned int& offset_i);

private:
    KivString myString;
    mutable const char* myNextByte;
};

// Reads a caller's block without copying it; the block must outlive the stream.
class KivBufferStream : public KivDataStream
{
public:
    KivBufferStream(const void* bytes_i, unsigned int length_i);
    ~KivBufferStream() override;
    bool GetNextByte(unsigned char& byte_io) const override;

private:
    const unsigned char* myStart;
    std::uintptr_t myLastByte;
    mutable std::uintptr_t myNextByte;
};

#endif
