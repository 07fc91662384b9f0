// String identifiers: the string as given and the CRC of its (optionally lower-cased) bytes.
#include "KivStringID.h"

#include "KivCRC32.h"

KivStringID::KivStringID() : myID(CalculateID(myString, 0)) {}

KivStringID::KivStringID(const KivString& string_i, unsigned int flags_i)
    : myString(string_i), myID(CalculateID(myString, flags_i))
{
}

KivStringID::KivStringID(const char* string_i, unsigned int flags_i)
    : myString(string_i), myID(CalculateID(myString, flags_i))
{
}

KivStringID::KivStringID(char character_i, unsigned int flags_i)
    : myString(character_i), myID(CalculateID(myString, flags_i))
{
}

KivStringID::KivStringID(const KivStringID& stringID_i, unsigned int flags_i)
    : KivObject(stringID_i), myString(stringID_i.myString), myID(CalculateID(myString, flags_i))
{
}

KivStringID::KivStringID(const KivStringID& stringID_i)
    : KivObject(stringID_i), myString(stringID_i.myString), myID(stringID_i.myID)
{
}

KivStringID& KivStringID::operator=(const KivStringID& stringID_i)
{
    myString = stringID_i.myString;
    myID = stringID_i.myID;
    return *this;
}

KivStringID::~KivStringID() = default;

unsigned int KivStringID::CalculateID(const KivString& string_i, unsigned int flags_i)
{
    KivString string(string_i);
    if ((flags_i & kKivStringID_CaseInsensitive) != 0)
        string.ConvertToLowercase();
    KivCRC32 crc;
    crc.Process(string.GetCStringAccess(), string.GetLength());
    return crc;
}
