// An item of the file system found at a path: whether it exists, and whether it is a folder or
// a file. The item is looked up again on every question, so the answers follow changes that
// other processes make.
#ifndef KIV_FILE_SYSTEM_ITEM_H
#define KIV_FILE_SYSTEM_ITEM_H

#include "KivException.h"
#include "KivFileSpecification.h"
#include "KivObject.h"
#include "KivString.h"

class KivFileSystemItem : public KivObject
{
public:
    // Thrown when a file was needed and the item is something else.
    class IsNotAFile;
    // Thrown when a folder was needed and the item is something else.
    class IsNotAFolder;

    KivFileSystemItem();
    explicit KivFileSystemItem(const KivFileSpecification& specification_i);
    explicit KivFileSystemItem(const KivString& pathname_i);
    KivFileSystemItem(const KivFileSystemItem& source_i);
    KivFileSystemItem& operator=(const KivFileSystemItem& source_i);
    ~KivFileSystemItem() override;

    // Makes this the item at another place.
    void Redefine(const KivFileSpecification& specification_i);
    void Redefine(const KivString& pathname_i);

    bool Exists() const;
    bool IsAFolder() const;
    // A regular file (following symbolic links).
    bool IsAFile() const;

    // Throw IsNotAFile / IsNotAFolder when the item exists and is of the other kind; a missing
    // item passes, since it can still be created as the kind wanted.
    void RequireFileOrNothing() const;
    void RequireFolderOrNothing() const;

    KivString GetOperatingSystemPathname() const;

private:
    KivFileSpecification mySpecification;
};

class KivFileSystemItem::IsNotAFile : public KivException
{
public:
    explicit IsNotAFile(const KivString& pathname_i);
    IsNotAFile(const IsNotAFile& source_i);
    ~IsNotAFile() override;
    KivException* Clone() const override;
    KivString GetStringRepresentation() const override;

private:
    KivString myPathname;
};

class KivFileSystemItem::IsNotAFolder : public KivException
{
public:
    explicit IsNotAFolder(const KivString& pathname_i);
    IsNotAFolder(const IsNotAFolder& source_i);
    ~IsNotAFolder() override;
    KivException* Clone() const override;
    KivString GetStringRepresentation() const override;

private:
    KivString myPathname;
};

#endif
