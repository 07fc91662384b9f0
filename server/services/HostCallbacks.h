// The two callbacks a module receives in every call record: the server callback, which
// answers every host service selector, and the database callback, which forwards to the
// request's database session. Both take the ModuleCall as their connection handle.
#pragma once

#include "KivModuleInterface.h"

#include <cstdint>
#include <string_view>

namespace kiv
{

// Result codes the host answers besides those of the interface header. They are listed
// here, in one place, with their meaning.
enum : uint32_t
{
    kHostResult_NotFound = KIV_FOURCC('M', 'N', 't', 'F'), // no such parameter, argument, variable, ...
    kHostResult_NotAuthorized =
        KIV_FOURCC('M', 'N', 'A', 'u'),                        // refused: path outside the region, bad header
    kHostResult_InvalidValue = KIV_FOURCC('M', 'I', 'n', 'v'), // malformed argument (status text, ...)
    kHostResult_NoRequest = KIV_FOURCC('M', 'N', 'R', 'q') // the selector needs a page request; there is none
};

uint32_t serverSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                               void* a7);
uint32_t databaseSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                                 void* a7, void* a8);

// The 'Out' half of the size protocol: writes value into buffer when *capacity is large
// enough and stores the number of bytes written; otherwise stores the size needed and
// answers 'MBtS'. A terminating zero is added when there is room for it.
uint32_t writeOutput(void* buffer, void* capacity, std::string_view value);

// The host's normal form of a text ('MNmS'): blanks at both ends removed, every run of
// blanks inside replaced by one space.
std::string normalizeText(std::string_view text);

} // namespace kiv
