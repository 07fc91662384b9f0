// The root exception and the allocator's exhausted-memory exception.
#include "KivException.h"

#include "KivString.h"

KivException::~KivException() {}

KivException* KivException::Clone() const
{
    return new KivException(*this);
}

KivString KivException::GetStringRepresentation() const
{
    return KivString();
}

KivObject::MemoryAllocationFailure::~MemoryAllocationFailure() {}

KivException* KivObject::MemoryAllocationFailure::Clone() const
{
    return new MemoryAllocationFailure(*this);
}

KivString KivObject::MemoryAllocationFailure::GetStringRepresentation() const
{
    return KivString("Memory allocation failure");
}
