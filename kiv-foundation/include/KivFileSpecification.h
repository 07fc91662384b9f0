// Where a file is, as a path: the name given by a caller, reduced to the form the operating
// system expects. A KivFileSpecification names a place; it does not need anything to exist there.
#ifndef KIV_FILE_SPECIFICATION_H
#define KIV_FILE_SPECIFICATION_H

#include "KivObject.h"
#include "KivString.h"

class KivFileSpecification : public KivObject
{
public:
    KivFileSpecification();
    explicit KivFileSpecification(const KivString& pathname_i);
    KivFileSpecification(const KivFileSpecification& source_i);
    KivFileSpecification& operator=(const KivFileSpecification& source_i);
    ~KivFileSpecification() override;

    // Points this path object at another path.
    void SetPathname(const KivString& pathname_i);

    // The path as the operating system takes it: trailing separators removed (except for the
    // root itself), since "name/" and "name" are the same item.
    KivString GetOperatingSystemPathname() const;

    // The last component of the path; empty for the root or an empty path.
    KivString GetName() const;

private:
    KivString myPathname;
};

#endif
