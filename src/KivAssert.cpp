// Writes assertion lines in the one form every layer uses, then aborts or carries on.
#include "KivAssert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void KivAssertReport(const char* file_i, const char* kind_i, const char* condition_i)
{
    // The path is printed without its extension: "src/KivString.cpp" -> "src/KivString".
    const char* slash = std::strrchr(file_i, '/');
    const char* dot = std::strrchr(slash != nullptr ? slash : file_i, '.');
    int pathLength = dot != nullptr ? (int)(dot - file_i) : (int)std::strlen(file_i);
    std::fprintf(stderr, "\tFILE: \"%.*s\"\n%s%s\n", pathLength, file_i, kind_i, condition_i);
    std::fflush(stderr);
}

void KivAssertAbort(const char* file_i, const char* kind_i, const char* condition_i)
{
    KivAssertReport(file_i, kind_i, condition_i);
    std::abort();
}
