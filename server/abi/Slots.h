// The argument slots of both callbacks, read and written by one set of rules. Nothing outside
// abi/ touches a slot.
//
// - In: a text and the address of its length + 1; the text ends at its first zero byte within
//   that many bytes (a null length address: at its terminating zero; a length word of 0: empty).
// - Out: a buffer and the address of its capacity. A text needs length + 1 bytes, the text and
//   a terminating zero. When the capacity is smaller the answer is 'MBtS' and the capacity word
//   receives the size needed; on success it receives the length. A null buffer asks for the size.
// - Words (handles, counts, indexes, kinds) by address; an output word is written only on success.
#pragma once

#include <cstdint>
#include <string_view>

namespace kiv::abi
{

uint32_t readWord(const void* slot);        // 0 for a null slot
void writeWord(void* slot, uint32_t value); // nothing for a null slot
std::string_view readText(const void* text, const void* lengthPlusOne);
// Exactly `length` bytes ('MWtS' counts no terminating zero).
std::string_view readBytes(const void* bytes, uint32_t length);
// 0, 'MBtS', or `missing` when there is no capacity word.
uint32_t writeText(void* buffer, void* capacity, std::string_view text, uint32_t missing);
uint32_t writeBytes(void* buffer, void* capacity, const void* value, uint32_t size, uint32_t missing);
// Two outputs that take part in the size rule together: after 'MBtS' both capacity words hold
// the sizes needed.
uint32_t writeTextPair(void* firstBuffer, void* firstCapacity, void* secondBuffer, void* secondCapacity,
                       std::string_view first, std::string_view second, uint32_t missing);

} // namespace kiv::abi
