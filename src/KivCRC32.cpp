// The reflected CRC-32 of polynomial 0xEDB88320, one table look-up per byte.
#include "KivCRC32.h"

namespace
{
struct KivCRC32Table
{
    KivUInt32 myEntries[256];
};

constexpr KivCRC32Table MakeCRC32Table()
{
    KivCRC32Table table{};
    for (KivUInt32 byte = 0; byte < 256; ++byte)
    {
        KivUInt32 value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) != 0 ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        table.myEntries[byte] = value;
    }
    return table;
}

// Built at compile time, so that static KivStringID constants of any translation unit can be
// constructed before this one's dynamic initialisation has run.
constexpr KivCRC32Table kCRC32Table = MakeCRC32Table();
static_assert(kCRC32Table.myEntries[1] == 0x77073096u && kCRC32Table.myEntries[3] == 0x990951BAu,
              "standard reflected CRC-32 table");
} // namespace

KivCRC32::~KivCRC32() = default;

void KivCRC32::Process(const void* bytes_i, unsigned int length_i)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(bytes_i);
    KivUInt32 crcRegister = myRegister;
    for (unsigned int i = 0; i < length_i; ++i)
        crcRegister = (crcRegister >> 8) ^ kCRC32Table.myEntries[(crcRegister ^ bytes[i]) & 0xFF];
    myRegister = crcRegister;
}
