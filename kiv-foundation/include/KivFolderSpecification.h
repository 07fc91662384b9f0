// A folder of the file system and the items it holds by name.
#ifndef KIV_FOLDER_SPECIFICATION_H
#define KIV_FOLDER_SPECIFICATION_H

#include "KivException.h"
#include "KivFileSpecification.h"
#include "KivObject.h"
#include "KivString.h"

class KivFolderSpecification : public KivObject
{
public:
    // Thrown when the folder holds no item of the name asked for.
    class ItemNotFound;

    // Throws KivFileSystemItem::IsNotAFolder when the path names an existing item that is not a
    // folder.
    explicit KivFolderSpecification(const KivString& pathname_i);
    KivFolderSpecification(const KivFolderSpecification& source_i);
    ~KivFolderSpecification() override;

    KivString GetOperatingSystemPathname() const;

    // Whether the folder holds an item of that name (a single path component).
    bool Contains(const KivString& name_i) const;
    // The KivFileSpecification of the named item; throws ItemNotFound when there is none.
    KivFileSpecification GetItemSpecification(const KivString& name_i) const;

private:
    KivString GetItemPathname(const KivString& name_i) const;

    KivFileSpecification mySpecification;
};

class KivFolderSpecification::ItemNotFound : public KivException
{
public:
    ItemNotFound(const KivString& folder_i, const KivString& name_i);
    ItemNotFound(const ItemNotFound& source_i);
    ~ItemNotFound() override;
    KivException* Clone() const override;
    KivString GetStringRepresentation() const override;

private:
    KivString myFolder;
    KivString myName;
};

#endif
