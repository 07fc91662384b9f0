// Dictionaries keep their keys sorted and unique and find them by binary search; name/value
// lists keep insertion order and duplicates. Both abort when their two halves disagree.
#include "KivString.h"
#include "KivStringID.h"
#include "TKivDictionary.h"
#include "TKivNameValuePairList.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
std::vector<std::string> ourDisposed;
void RecordKey(unsigned int& key_io)
{
    ourDisposed.push_back("key " + std::to_string(key_io));
}
void RecordValue(KivString& value_io)
{
    ourDisposed.push_back(std::string("value ") + value_io.GetCStringAccess());
}

TKivDictionary<unsigned int, KivString> TensDictionary()
{
    TKivDictionary<unsigned int, KivString> dictionary;
    dictionary.Add(30, "thirty");
    dictionary.Add(10, "ten");
    dictionary.Add(20, "twenty");
    return dictionary;
}

// Breaks the invariant the way a faulty subclass could.
class TKivLopsidedDictionary : public TKivDictionary<unsigned int, unsigned int>
{
public:
    void AddKeyOnly(unsigned int key_i) { myKeyArray.Append(key_i); }
    void AddValueOnly(unsigned int value_i) { myValueArray.Append(value_i); }
};

class TKivLopsidedList : public TKivNameValuePairList<KivStringID, KivString>
{
public:
    void AddNameOnly(const KivStringID& name_i) { myNameArray.Append(name_i); }
};
} // namespace

TEST(TKivDictionary, FindElementGivesThePositionOrTheInsertionPoint)
{
    TKivDictionary<unsigned int, KivString> dictionary = TensDictionary();
    unsigned int index = 99;
    EXPECT_FALSE(dictionary.FindElement(5, index));
    EXPECT_EQ(index, 0u);
    EXPECT_FALSE(dictionary.FindElement(25, index));
    EXPECT_EQ(index, 2u);
    EXPECT_FALSE(dictionary.FindElement(40, index));
    EXPECT_EQ(index, 3u);
    for (unsigned int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(dictionary.FindElement(10 * (i + 1), index));
        EXPECT_EQ(index, i);
    }

    TKivDictionary<unsigned int, KivString> empty;
    EXPECT_FALSE(empty.FindElement(1, index));
    EXPECT_EQ(index, 0u);
}

TEST(TKivDictionary, AddKeepsKeysSortedAndRefusesDuplicates)
{
    TKivDictionary<unsigned int, KivString> dictionary = TensDictionary();
    EXPECT_FALSE(dictionary.Add(20, "again"));
    EXPECT_EQ(dictionary.GetElementCount(), 3u);

    KivString value;
    EXPECT_TRUE(dictionary.Find(20, value));
    EXPECT_TRUE(value == "twenty");

    const char* expected[] = {"ten", "twenty", "thirty"};
    for (unsigned int i = 0; i < 3; ++i)
    {
        unsigned int key = 0;
        ASSERT_TRUE(dictionary.GetElement(i, key, value));
        EXPECT_EQ(key, 10 * (i + 1));
        EXPECT_TRUE(value == expected[i]);
    }
    unsigned int key = 7;
    EXPECT_FALSE(dictionary.GetElement(3, key, value));
    EXPECT_EQ(key, 7u);
}

TEST(TKivDictionary, FindLeavesTheValueAloneWhenTheKeyIsMissing)
{
    TKivDictionary<unsigned int, KivString> dictionary = TensDictionary();
    KivString value("untouched");
    EXPECT_FALSE(dictionary.Find(15, value));
    EXPECT_TRUE(value == "untouched");
}

TEST(TKivDictionary, StringKeysSortCaseSensitivelyInSignedByteOrder)
{
    TKivDictionary<KivString, unsigned int> dictionary;
    EXPECT_TRUE(dictionary.Add("b", 1));
    EXPECT_TRUE(dictionary.Add("B", 2));
    EXPECT_TRUE(dictionary.Add("\xE9t\xE9", 3)); // bytes above 0x7F sort first
    EXPECT_TRUE(dictionary.Add("ab", 4));
    EXPECT_TRUE(dictionary.Add("a", 5));
    EXPECT_FALSE(dictionary.Add("a", 6));

    const char* expected[] = {"\xE9t\xE9", "B", "a", "ab", "b"};
    for (unsigned int i = 0; i < 5; ++i)
    {
        KivString key;
        unsigned int value = 0;
        ASSERT_TRUE(dictionary.GetElement(i, key, value));
        EXPECT_TRUE(key == expected[i]) << i;
    }
    unsigned int value = 0;
    EXPECT_TRUE(dictionary.Find("ab", value));
    EXPECT_EQ(value, 4u);
    EXPECT_FALSE(dictionary.Find("A", value));
}

TEST(TKivDictionary, AgreesWithAnOrderedMapOnRandomKeys)
{
    std::mt19937 generator(99);
    TKivDictionary<unsigned int, unsigned int> dictionary;
    std::map<unsigned int, unsigned int> reference;
    for (unsigned int i = 0; i < 400; ++i)
    {
        unsigned int key = generator() % 500;
        bool added = reference.emplace(key, i).second;
        ASSERT_EQ(dictionary.Add(key, i), added);
    }
    ASSERT_EQ(dictionary.GetElementCount(), reference.size());
    unsigned int index = 0;
    for (const auto& entry : reference)
    {
        unsigned int key = 0, value = 0;
        ASSERT_TRUE(dictionary.GetElement(index++, key, value));
        EXPECT_EQ(key, entry.first);
        EXPECT_EQ(value, entry.second);
    }
    for (unsigned int key = 0; key < 520; ++key)
    {
        unsigned int value = 0xDEAD;
        bool present = reference.count(key) != 0;
        EXPECT_EQ(dictionary.Find(key, value), present);
        EXPECT_EQ(value, present ? reference[key] : 0xDEAD);
    }
}

TEST(TKivDictionary, CopiesAreIndependent)
{
    TKivDictionary<unsigned int, KivString> original = TensDictionary();
    TKivDictionary<unsigned int, KivString> copy(original);
    TKivDictionary<unsigned int, KivString> assigned;
    assigned = original;
    original.Empty();
    EXPECT_EQ(original.GetElementCount(), 0u);
    EXPECT_EQ(copy.GetElementCount(), 3u);
    KivString value;
    EXPECT_TRUE(assigned.Find(30, value));
    EXPECT_TRUE(value == "thirty");
}

TEST(TKivDictionary, EmptyDisposesOfKeysThenValues)
{
    ourDisposed.clear();
    {
        TKivDictionary<unsigned int, KivString> dictionary(RecordKey, RecordValue);
        dictionary.Add(2, "b");
        dictionary.Add(1, "a");
    }
    EXPECT_EQ(ourDisposed, (std::vector<std::string>{"key 1", "key 2", "value a", "value b"}));
}

TEST(TKivDictionaryDeathTest, KeysAndValuesOutOfStepAbort)
{
    TKivLopsidedDictionary dictionary;
    dictionary.Add(1, 1);
    dictionary.AddKeyOnly(2);
    EXPECT_DEATH(dictionary.Add(3, 3), "^\tFILE: \"kiv-foundation/include/TKivDictionary\"\nSTATE ASSERTION "
                                       "FAILURE: myKeyArray.GetElementCount\\(\\) == "
                                       "myValueArray.GetElementCount\\(\\)\n$");
    unsigned int value = 0;
    EXPECT_DEATH(dictionary.Find(1, value), "myKeyArray.GetElementCount\\(\\) == myValueArray");
    EXPECT_DEATH(dictionary.Empty(), "myKeyArray.GetElementCount\\(\\) == myValueArray");
    dictionary.AddValueOnly(2); // destruction checks the invariant too
}

TEST(TKivNameValuePairList, KeepsInsertionOrderAndDuplicates)
{
    TKivNameValuePairList<KivStringID, KivString> list;
    list.Add(KivStringID("Content-Type", 1), "text/html");
    list.Add(KivStringID("X-Note", 1), "first");
    list.Add(KivStringID("x-note", 1), "second");
    ASSERT_EQ(list.GetElementCount(), 3u);
    EXPECT_TRUE(list.GetNameArray()[1] == list.GetNameArray()[2]);
    EXPECT_TRUE(list.GetNameArray()[0].GetString() == "Content-Type");
    EXPECT_TRUE(list.GetValueArray()[2] == "second");

    TKivNameValuePairList<KivStringID, KivString> copy(list);
    list.Empty();
    EXPECT_EQ(list.GetElementCount(), 0u);
    EXPECT_EQ(copy.GetElementCount(), 3u);
}

TEST(TKivNameValuePairListDeathTest, NamesAndValuesOutOfStepAbort)
{
    TKivLopsidedList list;
    list.AddNameOnly(KivStringID("orphan"));
    EXPECT_DEATH(list.Add(KivStringID("name"), "value"),
                 "^\tFILE: \"kiv-foundation/include/TKivNameValuePairList\"\nSTATE ASSERTION FAILURE: "
                 "myNameArray.GetElementCount\\(\\) == myValueArray.GetElementCount\\(\\)\n$");
}
