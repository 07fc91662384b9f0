// Tag names, identified without regard to letter case.
#include "KivTag.h"

KivTag::KivTag() : myName(KivString(), kKivStringID_CaseInsensitive) {}

KivTag::KivTag(const KivString& name_i) : myName(name_i, kKivStringID_CaseInsensitive) {}

KivTag::KivTag(const char* name_i) : myName(name_i, kKivStringID_CaseInsensitive) {}

KivTag::KivTag(const KivTag& tag_i) : KivObject(tag_i), myName(tag_i.myName) {}

KivTag& KivTag::operator=(const KivTag& tag_i)
{
    myName = tag_i.myName;
    return *this;
}

KivTag::~KivTag() = default;
