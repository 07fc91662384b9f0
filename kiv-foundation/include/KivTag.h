// The name of a custom tag. Page authors write tag names in any letter case, so two tags are
// equal when their case-insensitive identifiers are; no string comparison follows.
#ifndef KIV_TAG_H
#define KIV_TAG_H

#include "KivStringID.h"

class KivTag : public KivObject
{
public:
    KivTag();
    KivTag(const KivString& name_i);
    KivTag(const char* name_i);
    KivTag(const KivTag& tag_i);
    KivTag& operator=(const KivTag& tag_i);
    ~KivTag() override;

    // The name as it was given, letter case included.
    KivString GetName() const { return myName.GetString(); }
    operator KivString() const { return myName.GetString(); }
    // The case-insensitive identifier of the name.
    unsigned int GetID() const { return myName.GetID(); }

    bool operator==(const KivTag& tag_i) const { return myName == tag_i.myName; }
    bool operator!=(const KivTag& tag_i) const { return !(myName == tag_i.myName); }

private:
    KivStringID myName;
};

#endif
