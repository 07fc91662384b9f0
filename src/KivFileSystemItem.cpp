// File-system items looked up by path with stat(2), and the exceptions for an item of the
// wrong kind.
#include "KivFileSystemItem.h"

#include <sys/stat.h>

namespace
{

// The item's mode, or false when nothing is there (or it cannot be reached).
bool KivGetItemMode(const KivString& pathname_i, mode_t& mode_io)
{
    if (pathname_i.IsEmpty())
        return false;
    struct stat status;
    if (::stat(pathname_i.GetCStringAccess(), &status) != 0)
        return false;
    mode_io = status.st_mode;
    return true;
}

} // namespace

KivFileSystemItem::KivFileSystemItem() {}

KivFileSystemItem::KivFileSystemItem(const KivFileSpecification& specification_i)
    : mySpecification(specification_i)
{
}

KivFileSystemItem::KivFileSystemItem(const KivString& pathname_i) : mySpecification(pathname_i) {}

KivFileSystemItem::KivFileSystemItem(const KivFileSystemItem& source_i)
    : KivObject(), mySpecification(source_i.mySpecification)
{
}

KivFileSystemItem& KivFileSystemItem::operator=(const KivFileSystemItem& source_i)
{
    mySpecification = source_i.mySpecification;
    return *this;
}

KivFileSystemItem::~KivFileSystemItem() {}

void KivFileSystemItem::Redefine(const KivFileSpecification& specification_i)
{
    mySpecification = specification_i;
}

void KivFileSystemItem::Redefine(const KivString& pathname_i)
{
    mySpecification.SetPathname(pathname_i);
}

bool KivFileSystemItem::Exists() const
{
    mode_t mode = 0;
    return KivGetItemMode(GetOperatingSystemPathname(), mode);
}

bool KivFileSystemItem::IsAFolder() const
{
    mode_t mode = 0;
    return KivGetItemMode(GetOperatingSystemPathname(), mode) && S_ISDIR(mode);
}

bool KivFileSystemItem::IsAFile() const
{
    mode_t mode = 0;
    return KivGetItemMode(GetOperatingSystemPathname(), mode) && S_ISREG(mode);
}

void KivFileSystemItem::RequireFileOrNothing() const
{
    if (Exists() && !IsAFile())
        throw IsNotAFile(GetOperatingSystemPathname());
}

void KivFileSystemItem::RequireFolderOrNothing() const
{
    if (Exists() && !IsAFolder())
        throw IsNotAFolder(GetOperatingSystemPathname());
}

KivString KivFileSystemItem::GetOperatingSystemPathname() const
{
    return mySpecification.GetOperatingSystemPathname();
}

KivFileSystemItem::IsNotAFile::IsNotAFile(const KivString& pathname_i) : myPathname(pathname_i) {}

KivFileSystemItem::IsNotAFile::IsNotAFile(const IsNotAFile& source_i)
    : KivException(source_i), myPathname(source_i.myPathname)
{
}

KivFileSystemItem::IsNotAFile::~IsNotAFile() {}

KivException* KivFileSystemItem::IsNotAFile::Clone() const
{
    return new IsNotAFile(*this);
}

KivString KivFileSystemItem::IsNotAFile::GetStringRepresentation() const
{
    return KivString("Not a file: ") + myPathname;
}

KivFileSystemItem::IsNotAFolder::IsNotAFolder(const KivString& pathname_i) : myPathname(pathname_i) {}

KivFileSystemItem::IsNotAFolder::IsNotAFolder(const IsNotAFolder& source_i)
    : KivException(source_i), myPathname(source_i.myPathname)
{
}

KivFileSystemItem::IsNotAFolder::~IsNotAFolder() {}

KivException* KivFileSystemItem::IsNotAFolder::Clone() const
{
    return new IsNotAFolder(*this);
}

KivString KivFileSystemItem::IsNotAFolder::GetStringRepresentation() const
{
    return KivString("Not a folder: ") + myPathname;
}
