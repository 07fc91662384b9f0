// The one assertion facility of the foundation, the module and the host.
// Programming errors write one line naming the source file and the broken condition to
// standard error and abort; warnings write the same form and carry on.
#ifndef KIV_ASSERT_H
#define KIV_ASSERT_H

// Writes "\tFILE: \"<file without extension>\"\n<kind><condition>\n" to standard error.
// `file_i` is __FILE__ as the build gives it (relative to the project root).
void KivAssertReport(const char* file_i, const char* kind_i, const char* condition_i);
[[noreturn]] void KivAssertAbort(const char* file_i, const char* kind_i, const char* condition_i);

#define KIV_ASSERT_STATE(condition)                                                                          \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            KivAssertAbort(__FILE__, "STATE ASSERTION FAILURE: ", #condition);                               \
    } while (0)

#define KIV_ASSERT_NOT_NULL(pointer)                                                                         \
    do                                                                                                       \
    {                                                                                                        \
        if ((pointer) == nullptr)                                                                            \
            KivAssertAbort(__FILE__, "NULL POINTER ASSERTION: ", #pointer);                                  \
    } while (0)

// Reached a state that cannot happen; `text` is stringized as written, so a string literal
// keeps its quotes and an empty argument gives an empty condition.
#define KIV_UNEXPECTED_STATE(text) KivAssertAbort(__FILE__, "UNEXPECTED STATE: ", #text)

#define KIV_WARN_STATE(condition)                                                                            \
    do                                                                                                       \
    {                                                                                                        \
        if (!(condition))                                                                                    \
            KivAssertReport(__FILE__, "STATE WARNING: ", #condition);                                        \
    } while (0)

#endif
