// Fixed-width integer names and four-character codes shared by the foundation and the module.
// Sizes in the foundation's data layouts (block headers, string lengths) are 32-bit on every
// platform, so the code names the width instead of relying on `int` and `long`.
#ifndef KIV_TYPES_H
#define KIV_TYPES_H

#include <cstdint>

typedef std::int8_t KivSInt8;
typedef std::uint8_t KivUInt8;
typedef std::int16_t KivSInt16;
typedef std::uint16_t KivUInt16;
typedef std::int32_t KivSInt32;
typedef std::uint32_t KivUInt32;
typedef std::int64_t KivSInt64;
typedef std::uint64_t KivUInt64;

// A four-character code: the four ASCII characters, most significant byte first ('Less').
constexpr KivUInt32 KivFourCharCode(char a_i, char b_i, char c_i, char d_i)
{
    return ((KivUInt32)(unsigned char)a_i << 24) | ((KivUInt32)(unsigned char)b_i << 16) |
           ((KivUInt32)(unsigned char)c_i << 8) | (KivUInt32)(unsigned char)d_i;
}

// Results of the foundation's three-way comparisons.
constexpr KivUInt32 kKivCompare_Less = KivFourCharCode('L', 'e', 's', 's');
constexpr KivUInt32 kKivCompare_Equal = KivFourCharCode('E', 'q', 'u', ' ');
constexpr KivUInt32 kKivCompare_Greater = KivFourCharCode('G', 'r', 't', 'r');

#endif
