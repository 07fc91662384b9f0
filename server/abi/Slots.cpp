// The slot rules shared by the server and the database callback.
#include "abi/Slots.h"

#include "KivModuleInterface.h"

#include <cstring>

namespace kiv::abi
{

uint32_t readWord(const void* slot)
{
    return slot ? *static_cast<const uint32_t*>(slot) : 0;
}

void writeWord(void* slot, uint32_t value)
{
    if (slot)
        *static_cast<uint32_t*>(slot) = value;
}

std::string_view readText(const void* text, const void* lengthPlusOne)
{
    if (!text)
        return {};
    const char* characters = static_cast<const char*>(text);
    if (!lengthPlusOne)
        return std::string_view(characters);
    return std::string_view(characters, ::strnlen(characters, readWord(lengthPlusOne)));
}

std::string_view readBytes(const void* bytes, uint32_t length)
{
    return bytes ? std::string_view(static_cast<const char*>(bytes), length) : std::string_view();
}

namespace
{
bool fits(void* buffer, uint32_t room, size_t needed)
{
    return buffer && needed <= room;
}
} // namespace

uint32_t writeText(void* buffer, void* capacity, std::string_view text, uint32_t missing)
{
    if (!capacity)
        return missing;
    uint32_t& room = *static_cast<uint32_t*>(capacity);
    if (!fits(buffer, room, text.size() + 1))
    {
        room = uint32_t(text.size() + 1);
        return kKivResult_BufferTooSmall;
    }
    if (!text.empty())
        std::memcpy(buffer, text.data(), text.size());
    static_cast<char*>(buffer)[text.size()] = '\0';
    room = uint32_t(text.size());
    return kKivResult_Success;
}

uint32_t writeBytes(void* buffer, void* capacity, const void* value, uint32_t size, uint32_t missing)
{
    if (!capacity)
        return missing;
    uint32_t& room = *static_cast<uint32_t*>(capacity);
    if (!fits(buffer, room, size))
    {
        room = size;
        return kKivResult_BufferTooSmall;
    }
    std::memcpy(buffer, value, size);
    room = size;
    return kKivResult_Success;
}

uint32_t writeTextPair(void* firstBuffer, void* firstCapacity, void* secondBuffer, void* secondCapacity,
                       std::string_view first, std::string_view second, uint32_t missing)
{
    if (!firstCapacity || !secondCapacity)
        return missing;
    uint32_t& firstRoom = *static_cast<uint32_t*>(firstCapacity);
    uint32_t& secondRoom = *static_cast<uint32_t*>(secondCapacity);
    if (!fits(firstBuffer, firstRoom, first.size() + 1) || !fits(secondBuffer, secondRoom, second.size() + 1))
    {
        firstRoom = uint32_t(first.size() + 1);
        secondRoom = uint32_t(second.size() + 1);
        return kKivResult_BufferTooSmall;
    }
    writeText(firstBuffer, firstCapacity, first, missing);
    return writeText(secondBuffer, secondCapacity, second, missing);
}

} // namespace kiv::abi
