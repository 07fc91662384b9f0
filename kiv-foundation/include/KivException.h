// The root of the foundation's exceptions. Exceptions are kept for conditions the caller cannot
// prevent (exhausted memory, a file-system item of the wrong kind); programming errors abort.
#ifndef KIV_EXCEPTION_H
#define KIV_EXCEPTION_H

#include "KivObject.h"

class KivString;

class KivException : public KivObject
{
public:
    KivException() = default;
    KivException(const KivException&) = default;
    KivException& operator=(const KivException&) = default;
    ~KivException() override;

    // A new copy of this exception, of its most derived class; the caller deletes it.
    virtual KivException* Clone() const;

    // A text describing the exception; empty for the base class.
    virtual KivString GetStringRepresentation() const;
};

class KivObject::MemoryAllocationFailure : public KivException
{
public:
    ~MemoryAllocationFailure() override;
    KivException* Clone() const override;
    KivString GetStringRepresentation() const override;
};

#endif
