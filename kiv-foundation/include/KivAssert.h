// The one assertion facility of the foundation, the module and the host.
// Programming errors write one line naming the source file and the broken condition to
// standard error and abort; warnings write the same form and carry on.
#ifndef KIV_ASSERT_H
#define KIV_ASSERT_H

// Assertion lines name a file by its place in the project, without the extension
// ("src/KivString", "kiv-foundation/include/TKivArray"), however the compiler was told to find
// it: __FILE__ is absolute in one build, relative in another, and a program may reach these
// headers through a folder of its own. This header's path as the same compiler spells it tells
// where the headers are and, above them, where the project's root is. Each translation unit
// keeps its own copy, and every unit of one build spells the header alike, so a template
// instantiation merged across units may refer to any of them.
static const char kKivAssertHeaderFile[] = __FILE__;

// Where `file_i` (a __FILE__) lies in the project: `folder` followed by the first
// `pathLength` bytes of `path`. Found, in this order: a file beside this header is in
// "kiv-foundation/include/"; a file under the project root (the folder that holds
// kiv-foundation/include) is named from that root; otherwise the path from its last folder that
// is one of the project's top-level folders (src, database, server, tests, ...), so that a
// checkout inside a folder named "src" still names "src/KivString"; otherwise as given.
struct KivAssertLocation
{
    const char* folder;
    const char* path;
    int pathLength;
};
KivAssertLocation KivAssertLocate(const char* file_i, const char* headerFile_i);

// Writes "\tFILE: \"<location>\"\n<kind><condition>\n" to standard error.
void KivAssertReport(const char* file_i, const char* headerFile_i, const char* kind_i,
                     const char* condition_i);
[[noreturn]] void KivAssertAbort(const char* file_i, const char* headerFile_i, const char* kind_i,
                                 const char* condition_i);
// Writes "\tFILE: \"<location>\"\n<message>" to standard error (KivNumber's error reports).
void KivAssertReportMessage(const char* file_i, const char* headerFile_i, const char* message_i);

// The two arguments that say where an assertion is.
#define KIV_ASSERT_HERE __FILE__, kKivAssertHeaderFile

#define KIV_ASSERT_STATE(condition)                                                                          \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            KivAssertAbort(KIV_ASSERT_HERE, "STATE ASSERTION FAILURE: ", #condition);                        \
    } while (0)

#define KIV_ASSERT_NOT_NULL(pointer)                                                                         \
    do                                                                                                       \
    {                                                                                                        \
        if ((pointer) == nullptr)                                                                            \
            KivAssertAbort(KIV_ASSERT_HERE, "NULL POINTER ASSERTION: ", #pointer);                           \
    } while (0)

// Reached a state that cannot happen; `text` is stringized as written, so a string literal
// keeps its quotes and an empty argument gives an empty condition.
#define KIV_UNEXPECTED_STATE(text) KivAssertAbort(KIV_ASSERT_HERE, "UNEXPECTED STATE: ", #text)

#define KIV_WARN_STATE(condition)                                                                            \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            KivAssertReport(KIV_ASSERT_HERE, "STATE WARNING: ", #condition);                                 \
    } while (0)

#endif
