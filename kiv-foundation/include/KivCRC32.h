// The CRC-32 checksum behind string identifiers and the library's plain checksums.
// The register starts at 0 rather than the usual 0xFFFFFFFF, so results differ from common
// CRC-32 tools; stored identifiers depend on this, so it must never change.
#ifndef KIV_CRC32_H
#define KIV_CRC32_H

#include "KivObject.h"

class KivCRC32 : public KivObject
{
public:
    KivCRC32() = default;
    KivCRC32(const KivCRC32&) = default;
    KivCRC32& operator=(const KivCRC32&) = default;
    ~KivCRC32() override;

    // Starts a new checksum (register 0).
    void Reset() { myRegister = 0; }

    // Feeds `length_i` bytes; may be called repeatedly to checksum data that arrives in pieces.
    void Process(const void* bytes_i, unsigned int length_i);

    // The checksum so far: the complement of the register. Reading it changes nothing.
    operator unsigned int() const { return ~myRegister; }

private:
    KivUInt32 myRegister = 0;
};

#endif
