// The table of compiled-in assets. Its definition is generated at build time from the files in
// server/site/assets (see server/CMakeLists.txt); only BuiltinAssets.cpp reads it.
#pragma once

#include "site/BuiltinAssets.h"

#include <cstddef>

namespace kiv
{

struct BuiltinAssetTable
{
    const BuiltinAsset* first;
    size_t count;

    const BuiltinAsset* begin() const { return first; }
    const BuiltinAsset* end() const { return first + count; }
};

BuiltinAssetTable builtinAssetTable();

} // namespace kiv
