// The registry of every user-visible text in up to three languages, looked up by string
// identifier and language, with the numbered placeholders "__1__".."__9__" filled in on the way
// out. English is the fallback language for texts that lack a translation.
#ifndef KIV_LOCALIZATION_MANAGER_H
#define KIV_LOCALIZATION_MANAGER_H

#include "KivObject.h"
#include "KivString.h"

class KivStringID;

// The language codes that hold texts; any other code stores and finds nothing.
constexpr unsigned long kKivLanguage_English = 0x01000000UL;
constexpr unsigned long kKivLanguage_French = 0x02000000UL;
constexpr unsigned long kKivLanguage_Spanish = 0x03000000UL;

// One identifier of the tree with its text in each language. A node owns its children, so
// deleting the root frees the whole tree.
class KivLocalizedStringNode : public KivObject
{
public:
    KivLocalizedStringNode(const unsigned int& stringID_i, KivLocalizedStringNode* parentNode_i,
                           KivLocalizedStringNode* leftNode_i, KivLocalizedStringNode* rightNode_i);
    KivLocalizedStringNode(const KivLocalizedStringNode&) = delete;
    KivLocalizedStringNode& operator=(const KivLocalizedStringNode&) = delete;
    ~KivLocalizedStringNode() override;

    unsigned int GetStringID() const { return myStringID; }

    // Stores the text in the language's slot; an unknown language is ignored.
    void SetString(const unsigned long& language_i, const KivString& string_i);
    // The text of the language, empty when none is stored or the language is unknown.
    KivString GetString(const unsigned long& language_i) const;

    KivLocalizedStringNode* GetParentNode() const { return myParentNode; }
    KivLocalizedStringNode* GetLeftNode() const { return myLeftNode; }
    KivLocalizedStringNode* GetRightNode() const { return myRightNode; }
    void SetLeftNode(KivLocalizedStringNode* node_i) { myLeftNode = node_i; }
    void SetRightNode(KivLocalizedStringNode* node_i) { myRightNode = node_i; }

private:
    unsigned int myStringID;
    KivString myLocalizedStrings[3];
    KivLocalizedStringNode* myParentNode;
    KivLocalizedStringNode* myLeftNode;
    KivLocalizedStringNode* myRightNode;
};

class KivLocalizationManager : public KivObject
{
public:
    KivLocalizationManager();
    KivLocalizationManager(const KivLocalizationManager&) = delete;
    KivLocalizationManager& operator=(const KivLocalizationManager&) = delete;
    ~KivLocalizationManager() override;

    // Both forms always return true; a text registered again for the same language replaces the
    // earlier one.
    bool RegisterString(const KivStringID& stringID_i, const unsigned long& language_i,
                        const KivString& string_i);
    bool RegisterString(const unsigned int& stringID_i, const unsigned long& language_i,
                        const KivString& string_i);

    bool UnregisterAllStrings();

    // The number of distinct identifiers registered.
    unsigned int GetStringCount() const { return myStringCount; }

    KivLocalizedStringNode* FindNode(const unsigned int& stringID_i) const;

    // The stored text, empty when the identifier or the language has none.
    KivString Find(const unsigned int& stringID_i, const unsigned long& language_i) const;

    // The text with each non-null `pN` substituted for "__N__"; falls back to English when
    // `useFallback_i` is set and the language has no text. Placeholders left unfilled are
    // reported on standard error and kept in the text.
    KivString GetString(const unsigned int& stringID_i, const unsigned long& language_i,
                        const bool& useFallback_i, const char* p1_i = nullptr, const char* p2_i = nullptr,
                        const char* p3_i = nullptr, const char* p4_i = nullptr, const char* p5_i = nullptr,
                        const char* p6_i = nullptr, const char* p7_i = nullptr, const char* p8_i = nullptr,
                        const char* p9_i = nullptr) const;
    KivString GetString(const KivStringID& stringID_i, const unsigned long& language_i,
                        const bool& useFallback_i, const char* p1_i = nullptr, const char* p2_i = nullptr,
                        const char* p3_i = nullptr, const char* p4_i = nullptr, const char* p5_i = nullptr,
                        const char* p6_i = nullptr, const char* p7_i = nullptr, const char* p8_i = nullptr,
                        const char* p9_i = nullptr) const;

private:
    void AddNode(const unsigned int& stringID_i, const unsigned long& language_i, const KivString& string_i);

    KivLocalizedStringNode* myRootNode;
    unsigned int myStringCount;
};

#endif
