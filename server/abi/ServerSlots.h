// The server callback's adapter: every selector has one argument shape, and the shape decides
// how its slots are read and its answer written (Slots.h). Behind it the host answers typed
// requests, one method per shape, and never sees a slot.
//
//   Out      a3 buffer, a4 &capacity                                     text the host holds
//   In       a3 text, a4 &(length + 1); a7 &word for 'MWtL' and 'MRfT'    text the module hands over
//   Write    a3 bytes, a4 &length ('MWtS': no terminating zero counted)
//   InOut    a3 buffer holding the input, a4 &capacity                   the host rewrites the text
//   NameOut  a3 name, a4 &(length + 1), a5 buffer, a6 &capacity, a7 &index (or null)
//   TwoIn    a3, a4 first text; a5, a6 second text
//   PairOut  a3 name buffer, a4 &capacity, a5 value buffer, a6 &capacity, a7 &index
//   Scalar   a7 &word out
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kiv::abi
{

class ServerRequests
{
public:
    virtual ~ServerRequests() = default;
    virtual uint32_t text(uint32_t selector, std::string& out) = 0;
    virtual uint32_t take(uint32_t selector, std::string_view text, uint32_t word) = 0;
    virtual uint32_t write(std::string_view bytes) = 0;
    virtual uint32_t transform(uint32_t selector, std::string_view input, std::string& out) = 0;
    virtual uint32_t lookup(uint32_t selector, std::string_view name, uint32_t index, std::string& out) = 0;
    virtual uint32_t takePair(uint32_t selector, std::string_view first, std::string_view second) = 0;
    virtual uint32_t entry(uint32_t selector, uint32_t index, std::string& name, std::string& value) = 0;
    virtual uint32_t scalar(uint32_t selector, uint32_t& out) = 0;
};

// Decodes one call of the server callback and answers it through `host`; 'MUnF' for a
// selector of no known shape.
uint32_t answerServerCall(ServerRequests& host, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                          void* a7);

} // namespace kiv::abi
