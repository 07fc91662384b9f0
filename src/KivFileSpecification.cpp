// File paths as the operating system takes them.
#include "KivFileSpecification.h"

KivFileSpecification::KivFileSpecification() {}

KivFileSpecification::KivFileSpecification(const KivString& pathname_i) : myPathname(pathname_i) {}

KivFileSpecification::KivFileSpecification(const KivFileSpecification& source_i)
    : KivObject(), myPathname(source_i.myPathname)
{
}

KivFileSpecification& KivFileSpecification::operator=(const KivFileSpecification& source_i)
{
    myPathname = source_i.myPathname;
    return *this;
}

KivFileSpecification::~KivFileSpecification() {}

void KivFileSpecification::SetPathname(const KivString& pathname_i)
{
    myPathname = pathname_i;
}

KivString KivFileSpecification::GetOperatingSystemPathname() const
{
    KivString pathname(myPathname);
    while (pathname.GetLength() > 1 && pathname.EndsWith('/'))
        pathname.TrimRight(1u);
    return pathname;
}

KivString KivFileSpecification::GetName() const
{
    KivString pathname = GetOperatingSystemPathname();
    unsigned int separator = 0;
    if (!pathname.Find('/', pathname.GetLength(), pathname.GetLength(), kKivString_Backward, separator))
        return pathname;
    return pathname.GetSubstring(separator + 1, pathname.GetLength());
}
