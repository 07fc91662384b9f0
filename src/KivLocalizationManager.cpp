// The localized-text registry: an unbalanced binary tree on the string identifier, which stays
// shallow because the identifiers are CRC values that arrive in no particular order.
#include "KivLocalizationManager.h"

#include "KivAssert.h"
#include "KivStringID.h"

namespace
{
const KivString kStringPlaceholder1("__1__");
const KivString kStringPlaceholder2("__2__");
const KivString kStringPlaceholder3("__3__");
const KivString kStringPlaceholder4("__4__");
const KivString kStringPlaceholder5("__5__");
const KivString kStringPlaceholder6("__6__");
const KivString kStringPlaceholder7("__7__");
const KivString kStringPlaceholder8("__8__");
const KivString kStringPlaceholder9("__9__");

const KivString* const kStringPlaceholders[9] = {
    &kStringPlaceholder1, &kStringPlaceholder2, &kStringPlaceholder3,
    &kStringPlaceholder4, &kStringPlaceholder5, &kStringPlaceholder6,
    &kStringPlaceholder7, &kStringPlaceholder8, &kStringPlaceholder9};

// The warning names the placeholder constant, so each placeholder has its own line.
const char* const kUnfilledPlaceholderWarnings[9] = {
    "localizedString.Contains(kStringPlaceholder1)", "localizedString.Contains(kStringPlaceholder2)",
    "localizedString.Contains(kStringPlaceholder3)", "localizedString.Contains(kStringPlaceholder4)",
    "localizedString.Contains(kStringPlaceholder5)", "localizedString.Contains(kStringPlaceholder6)",
    "localizedString.Contains(kStringPlaceholder7)", "localizedString.Contains(kStringPlaceholder8)",
    "localizedString.Contains(kStringPlaceholder9)"};

// The slot of a language code in a node, or -1 for a code that holds no texts.
int LanguageSlot(const unsigned long& language_i)
{
    switch (language_i)
    {
    case kKivLanguage_English:
        return 0;
    case kKivLanguage_French:
        return 1;
    case kKivLanguage_Spanish:
        return 2;
    default:
        return -1;
    }
}
} // namespace

KivLocalizedStringNode::KivLocalizedStringNode(const unsigned int& stringID_i,
                                               KivLocalizedStringNode* parentNode_i,
                                               KivLocalizedStringNode* leftNode_i,
                                               KivLocalizedStringNode* rightNode_i)
    : myStringID(stringID_i), myParentNode(parentNode_i), myLeftNode(leftNode_i), myRightNode(rightNode_i)
{
}

KivLocalizedStringNode::~KivLocalizedStringNode()
{
    delete myLeftNode;
    delete myRightNode;
}

void KivLocalizedStringNode::SetString(const unsigned long& language_i, const KivString& string_i)
{
    int slot = LanguageSlot(language_i);
    if (slot >= 0)
        myLocalizedStrings[slot] = string_i;
}

KivString KivLocalizedStringNode::GetString(const unsigned long& language_i) const
{
    int slot = LanguageSlot(language_i);
    return slot >= 0 ? myLocalizedStrings[slot] : KivString();
}

KivLocalizationManager::KivLocalizationManager() : myRootNode(nullptr), myStringCount(0) {}

KivLocalizationManager::~KivLocalizationManager()
{
    UnregisterAllStrings();
}

bool KivLocalizationManager::RegisterString(const KivStringID& stringID_i, const unsigned long& language_i,
                                            const KivString& string_i)
{
    AddNode(stringID_i.GetID(), language_i, string_i);
    return true;
}

bool KivLocalizationManager::RegisterString(const unsigned int& stringID_i, const unsigned long& language_i,
                                            const KivString& string_i)
{
    AddNode(stringID_i, language_i, string_i);
    return true;
}

bool KivLocalizationManager::UnregisterAllStrings()
{
    delete myRootNode;
    myRootNode = nullptr;
    myStringCount = 0;
    return true;
}

void KivLocalizationManager::AddNode(const unsigned int& stringID_i, const unsigned long& language_i,
                                     const KivString& string_i)
{
    if (myRootNode == nullptr)
    {
        myRootNode = new KivLocalizedStringNode(stringID_i, nullptr, nullptr, nullptr);
        myRootNode->SetString(language_i, string_i);
        myStringCount++;
        return;
    }

    KivLocalizedStringNode* node = myRootNode;
    for (;;)
    {
        if (node->GetStringID() == stringID_i)
        {
            node->SetString(language_i, string_i);
            return;
        }
        bool goRight = node->GetStringID() <= stringID_i;
        KivLocalizedStringNode* child = goRight ? node->GetRightNode() : node->GetLeftNode();
        if (child == nullptr)
        {
            child = new KivLocalizedStringNode(stringID_i, node, nullptr, nullptr);
            if (goRight)
                node->SetRightNode(child);
            else
                node->SetLeftNode(child);
            child->SetString(language_i, string_i);
            myStringCount++;
            return;
        }
        node = child;
    }
}

KivLocalizedStringNode* KivLocalizationManager::FindNode(const unsigned int& stringID_i) const
{
    KivLocalizedStringNode* node = myRootNode;
    while (node != nullptr && node->GetStringID() != stringID_i)
        node = stringID_i < node->GetStringID() ? node->GetLeftNode() : node->GetRightNode();
    return node;
}

KivString KivLocalizationManager::Find(const unsigned int& stringID_i, const unsigned long& language_i) const
{
    KivLocalizedStringNode* node = FindNode(stringID_i);
    return node != nullptr ? node->GetString(language_i) : KivString();
}

KivString KivLocalizationManager::GetString(const unsigned int& stringID_i, const unsigned long& language_i,
                                            const bool& useFallback_i, const char* p1_i, const char* p2_i,
                                            const char* p3_i, const char* p4_i, const char* p5_i,
                                            const char* p6_i, const char* p7_i, const char* p8_i,
                                            const char* p9_i) const
{
    KivString localizedString;
    if (myRootNode == nullptr)
        return localizedString;

    localizedString = Find(stringID_i, language_i);
    if (localizedString.IsEmpty() && useFallback_i)
        localizedString = Find(stringID_i, kKivLanguage_English);

    // In order, so that a replacement holding a later placeholder is filled in its turn.
    const char* const replacements[9] = {p1_i, p2_i, p3_i, p4_i, p5_i, p6_i, p7_i, p8_i, p9_i};
    for (int k = 0; k < 9; k++)
    {
        if (replacements[k] != nullptr)
            localizedString.ReplaceAll(*kStringPlaceholders[k], KivString(replacements[k]),
                                       kKivString_CaseInsensitive);
    }

    // An unfilled placeholder means the caller passed too few arguments; the text still goes out.
    for (int k = 0; k < 9; k++)
    {
        if (localizedString.Contains(*kStringPlaceholders[k], kKivString_CaseInsensitive))
            KivAssertReport(KIV_ASSERT_HERE, "STATE WARNING: ", kUnfilledPlaceholderWarnings[k]);
    }
    return localizedString;
}

KivString KivLocalizationManager::GetString(const KivStringID& stringID_i, const unsigned long& language_i,
                                            const bool& useFallback_i, const char* p1_i, const char* p2_i,
                                            const char* p3_i, const char* p4_i, const char* p5_i,
                                            const char* p6_i, const char* p7_i, const char* p8_i,
                                            const char* p9_i) const
{
    return GetString(stringID_i.GetID(), language_i, useFallback_i, p1_i, p2_i, p3_i, p4_i, p5_i, p6_i, p7_i,
                     p8_i, p9_i);
}
