// Folders and the items they hold by name.
#include "KivFolderSpecification.h"

#include "KivFileSystemItem.h"

KivFolderSpecification::KivFolderSpecification(const KivString& pathname_i) : mySpecification(pathname_i)
{
    KivFileSystemItem(mySpecification).RequireFolderOrNothing();
}

KivFolderSpecification::KivFolderSpecification(const KivFolderSpecification& source_i)
    : KivObject(), mySpecification(source_i.mySpecification)
{
}

KivFolderSpecification::~KivFolderSpecification() {}

KivString KivFolderSpecification::GetOperatingSystemPathname() const
{
    return mySpecification.GetOperatingSystemPathname();
}

bool KivFolderSpecification::Contains(const KivString& name_i) const
{
    // A name is one component: anything that would climb out of the folder is not in it.
    if (name_i.IsEmpty() || name_i.Contains('/') || name_i == "." || name_i == "..")
        return false;
    return KivFileSystemItem(GetItemPathname(name_i)).Exists();
}

KivFileSpecification KivFolderSpecification::GetItemSpecification(const KivString& name_i) const
{
    if (!Contains(name_i))
        throw ItemNotFound(GetOperatingSystemPathname(), name_i);
    return KivFileSpecification(GetItemPathname(name_i));
}

KivString KivFolderSpecification::GetItemPathname(const KivString& name_i) const
{
    KivString pathname = GetOperatingSystemPathname();
    if (!pathname.EndsWith('/'))
        pathname += '/';
    pathname += name_i;
    return pathname;
}

KivFolderSpecification::ItemNotFound::ItemNotFound(const KivString& folder_i, const KivString& name_i)
    : myFolder(folder_i), myName(name_i)
{
}

KivFolderSpecification::ItemNotFound::ItemNotFound(const ItemNotFound& source_i)
    : KivException(source_i), myFolder(source_i.myFolder), myName(source_i.myName)
{
}

KivFolderSpecification::ItemNotFound::~ItemNotFound() {}

KivException* KivFolderSpecification::ItemNotFound::Clone() const
{
    return new ItemNotFound(*this);
}

KivString KivFolderSpecification::ItemNotFound::GetStringRepresentation() const
{
    return KivString("No item ") + myName + " in " + myFolder;
}
