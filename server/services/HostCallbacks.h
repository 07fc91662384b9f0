// The two callbacks a module receives in every call record: the server callback, which
// answers every host service selector, and the database callback, which goes to the request's
// database service. Both take the ModuleCall as their connection handle; the slot adapters of
// abi/ decode the arguments, and the answers here are typed.
#pragma once

#include "KivModuleInterface.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kiv
{

uint32_t serverSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                               void* a7);
uint32_t databaseSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                                 void* a7, void* a8);

// The host's normal form of a text ('MNmS'): blanks at both ends removed, every run of
// blanks inside replaced by one space.
std::string normalizeText(std::string_view text);

} // namespace kiv
