// A string paired with a 32-bit identifier computed from it, so that parameter names, action
// codes and localized-string keys are compared and looked up with one integer comparison.
#ifndef KIV_STRING_ID_H
#define KIV_STRING_ID_H

#include "KivString.h"

// Flag of the constructors and CalculateID: the identifier ignores letter case.
constexpr unsigned int kKivStringID_CaseInsensitive = 1;

class KivStringID : public KivObject
{
public:
    // The empty string, whose identifier is 0xFFFFFFFF.
    KivStringID();
    KivStringID(const KivString& string_i, unsigned int flags_i = 0);
    KivStringID(const char* string_i, unsigned int flags_i = 0);
    KivStringID(char character_i, unsigned int flags_i);
    // Takes the other's string and computes the identifier again with `flags_i`.
    KivStringID(const KivStringID& stringID_i, unsigned int flags_i);
    // Copies string and identifier as they are.
    KivStringID(const KivStringID& stringID_i);
    KivStringID& operator=(const KivStringID& stringID_i);
    ~KivStringID() override;

    // Only the identifiers are compared: two strings whose identifiers collide are equal.
    bool operator==(const KivStringID& stringID_i) const { return myID == stringID_i.myID; }
    bool operator!=(const KivStringID& stringID_i) const { return myID != stringID_i.myID; }

    unsigned int GetID() const { return myID; }
    // The string exactly as it was given, letter case included.
    KivString GetString() const { return myString; }
    unsigned int GetStringLength() const { return myString.GetLength(); }
    const char* GetCStringAccess() const { return myString.GetCStringAccess(); }

    // The complemented CRC-32 (register starting at 0) of the string's bytes, after
    // ConvertToLowercase when `flags_i` has kKivStringID_CaseInsensitive.
    static unsigned int CalculateID(const KivString& string_i, unsigned int flags_i);

private:
    KivString myString;
    KivUInt32 myID;
};

#endif
