// A program of someone else's: built with nothing but a compiler and -I, it includes the
// foundation's headers and compiles the few sources it needs itself. Each case breaks one
// assertion; CheckAssertLines.cmake compares what it writes with the project's own lines.
#include "KivAssert.h"
#include "KivObject.h"
#include "TKivArray.h"
#include "TKivDictionary.h"
#include "TKivNameValuePairList.h"

#include <cstring>

namespace
{
class LopsidedDictionary : public TKivDictionary<unsigned int, unsigned int>
{
public:
    void AddKeyOnly(unsigned int key_i) { myKeyArray.Append(key_i); }
};

class LopsidedList : public TKivNameValuePairList<unsigned int, unsigned int>
{
public:
    void AddNameOnly(unsigned int name_i) { myNameArray.Append(name_i); }
};
} // namespace

int main(int argc, char** argv)
{
    const char* which = argc > 1 ? argv[1] : "";
    if (std::strcmp(which, "array") == 0)
    {
        TKivArray<unsigned int> empty(nullptr);
        return (int)empty[0];
    }
    if (std::strcmp(which, "dictionary") == 0)
    {
        LopsidedDictionary dictionary;
        dictionary.AddKeyOnly(1);
        dictionary.Add(2, 2);
    }
    if (std::strcmp(which, "list") == 0)
    {
        LopsidedList list;
        list.AddNameOnly(1);
        list.Add(2, 2);
    }
    if (std::strcmp(which, "object") == 0)
    {
        char foreign[32] = {};
        KivObject::MemoryDeallocator(foreign + 9);
    }
    if (std::strcmp(which, "program") == 0)
    {
        const char* missing = nullptr;
        KIV_ASSERT_NOT_NULL(missing);
    }
    return 0;
}
