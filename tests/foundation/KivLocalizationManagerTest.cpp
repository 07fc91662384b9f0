// The localization manager: texts by identifier and language, English as the fallback, and the
// numbered placeholders filled in order with a warning for each one left unfilled.
#include "KivLocalizationManager.h"

#include "KivStringID.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace
{
std::string ToStd(const KivString& text_i)
{
    return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

std::string Warning(int placeholder_i)
{
    return "\tFILE: \"src/KivLocalizationManager\"\nSTATE WARNING: "
           "localizedString.Contains(kStringPlaceholder" +
           std::to_string(placeholder_i) + ")\n";
}

const KivStringID kYes("EditDB_Word_Yes", 0);
const KivStringID kNothingFound("EditDB_String_NoDatabasesFound", 0);

class KivLocalizationManagerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        myManager.RegisterString(kYes, kKivLanguage_English, "Yes");
        myManager.RegisterString(kYes, kKivLanguage_French, "Oui");
        myManager.RegisterString(kYes, kKivLanguage_Spanish, "Si");
        myManager.RegisterString(kNothingFound, kKivLanguage_English, "No databases were found.");
    }

    // Looks the text up and returns it with everything written to standard error meanwhile.
    std::string Get(unsigned int id_i, const char* p1_i, const char* p2_i, std::string& warnings_o,
                    const char* p3_i = nullptr)
    {
        testing::internal::CaptureStderr();
        KivString text = myManager.GetString(id_i, kKivLanguage_English, false, p1_i, p2_i, p3_i);
        warnings_o = testing::internal::GetCapturedStderr();
        return ToStd(text);
    }

    KivLocalizationManager myManager;
};
} // namespace

TEST_F(KivLocalizationManagerTest, LooksUpEachLanguage)
{
    EXPECT_EQ(ToStd(myManager.GetString(kYes, kKivLanguage_English, false)), "Yes");
    EXPECT_EQ(ToStd(myManager.GetString(kYes, kKivLanguage_French, false)), "Oui");
    EXPECT_EQ(ToStd(myManager.GetString(kYes.GetID(), kKivLanguage_Spanish, true)), "Si");
    EXPECT_EQ(ToStd(myManager.Find(kYes.GetID(), kKivLanguage_French)), "Oui");
    EXPECT_EQ(myManager.GetStringCount(), 2u);
}

TEST_F(KivLocalizationManagerTest, FallsBackToEnglishOnlyWhenAsked)
{
    EXPECT_EQ(ToStd(myManager.GetString(kNothingFound, kKivLanguage_French, false)), "");
    EXPECT_EQ(ToStd(myManager.GetString(kNothingFound, kKivLanguage_French, true)),
              "No databases were found.");
    EXPECT_EQ(ToStd(myManager.GetString(kNothingFound, kKivLanguage_Spanish, true)),
              "No databases were found.");
    // An unknown language has no texts of its own, so it falls back too.
    EXPECT_EQ(ToStd(myManager.GetString(kYes, 0x04000000UL, true)), "Yes");
    EXPECT_EQ(ToStd(myManager.GetString(kYes, 0x04000000UL, false)), "");
}

TEST_F(KivLocalizationManagerTest, UnknownIdentifierGivesEmptyText)
{
    KivStringID missing("EditDB_Word_Missing", 0);
    EXPECT_EQ(ToStd(myManager.GetString(missing, kKivLanguage_English, true)), "");
    EXPECT_EQ(myManager.FindNode(missing.GetID()), nullptr);
    EXPECT_EQ(ToStd(myManager.Find(missing.GetID(), kKivLanguage_English)), "");
}

TEST_F(KivLocalizationManagerTest, RegisteringAgainReplacesWithoutCounting)
{
    EXPECT_TRUE(myManager.RegisterString(kYes.GetID(), kKivLanguage_French, "Oui!"));
    EXPECT_EQ(ToStd(myManager.Find(kYes.GetID(), kKivLanguage_French)), "Oui!");
    EXPECT_EQ(ToStd(myManager.Find(kYes.GetID(), kKivLanguage_English)), "Yes");
    EXPECT_TRUE(myManager.RegisterString(kNothingFound, kKivLanguage_Spanish, "Nada"));
    EXPECT_EQ(myManager.GetStringCount(), 2u);
}

TEST_F(KivLocalizationManagerTest, UnknownLanguageCreatesNodeWithoutText)
{
    EXPECT_TRUE(myManager.RegisterString(1234u, 0x04000000UL, "Hallo"));
    EXPECT_EQ(myManager.GetStringCount(), 3u);
    ASSERT_NE(myManager.FindNode(1234u), nullptr);
    EXPECT_EQ(ToStd(myManager.Find(1234u, 0x04000000UL)), "");
    EXPECT_EQ(ToStd(myManager.FindNode(1234u)->GetString(0x04000000UL)), "");
}

TEST_F(KivLocalizationManagerTest, UnregisterAllEmptiesTheTree)
{
    EXPECT_TRUE(myManager.UnregisterAllStrings());
    EXPECT_EQ(myManager.GetStringCount(), 0u);
    EXPECT_EQ(myManager.FindNode(kYes.GetID()), nullptr);
    EXPECT_EQ(ToStd(myManager.GetString(kYes, kKivLanguage_English, true, "x")), "");
    myManager.RegisterString(kYes, kKivLanguage_English, "Yes again");
    EXPECT_EQ(ToStd(myManager.GetString(kYes, kKivLanguage_English, false)), "Yes again");
}

TEST(KivLocalizationManagerTree, FindsEveryIdentifierInAnyInsertionOrder)
{
    std::vector<unsigned int> ids;
    for (unsigned int i = 0; i < 600; i++)
        ids.push_back(i * 7919u);
    ids.push_back(0);
    ids.push_back(0xFFFFFFFFu);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(7));

    KivLocalizationManager manager;
    for (unsigned int id : ids)
        manager.RegisterString(id, kKivLanguage_Spanish, KivString(std::to_string(id).c_str()));
    EXPECT_EQ(manager.GetStringCount(), 601u); // 0 appears twice

    for (unsigned int id : ids)
    {
        KivLocalizedStringNode* node = manager.FindNode(id);
        ASSERT_NE(node, nullptr) << id;
        EXPECT_EQ(node->GetStringID(), id);
        EXPECT_EQ(ToStd(manager.Find(id, kKivLanguage_Spanish)), std::to_string(id));
        // Smaller identifiers hang to the left, larger or equal ones to the right.
        if (node->GetParentNode() != nullptr)
            EXPECT_EQ(node->GetParentNode()->GetLeftNode() == node,
                      id < node->GetParentNode()->GetStringID());
    }
    EXPECT_EQ(manager.FindNode(3u), nullptr);
}

TEST_F(KivLocalizationManagerTest, SubstitutesPlaceholdersInOrder)
{
    unsigned int id = 99;
    myManager.RegisterString(id, kKivLanguage_English,
                             "__1__ __2__ __3__ __4__ __5__ __6__ __7__ __8__ __9__ __1__");
    testing::internal::CaptureStderr();
    KivString text =
        myManager.GetString(id, kKivLanguage_English, false, "a", "b", "c", "d", "e", "f", "g", "h", "i");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(ToStd(text), "a b c d e f g h i a");
}

TEST_F(KivLocalizationManagerTest, WarnsAboutEachUnfilledPlaceholder)
{
    unsigned int id = 100;
    myManager.RegisterString(id, kKivLanguage_English, "Found __1__ of __2__");
    std::string warnings;
    EXPECT_EQ(Get(id, "3", nullptr, warnings), "Found 3 of __2__");
    EXPECT_EQ(warnings, Warning(2));

    EXPECT_EQ(Get(id, nullptr, nullptr, warnings), "Found __1__ of __2__");
    EXPECT_EQ(warnings, Warning(1) + Warning(2));
}

TEST_F(KivLocalizationManagerTest, ReplacementsMayFeedLaterPlaceholders)
{
    unsigned int id = 101;
    myManager.RegisterString(id, kKivLanguage_English, "<__1__>");
    std::string warnings;
    // The text of p1 brings in "__2__", which the second round fills.
    EXPECT_EQ(Get(id, "__2__ and __2__", "x", warnings), "<x and x>");
    EXPECT_EQ(warnings, "");
    // An earlier placeholder brought in later is not filled again, and is reported.
    EXPECT_EQ(Get(id, "__3__", nullptr, warnings, "__1__"), "<__1__>");
    EXPECT_EQ(warnings, Warning(1));
    // A replacement holding its own placeholder does not loop.
    EXPECT_EQ(Get(id, "__1____1__", nullptr, warnings), "<__1____1__>");
    EXPECT_EQ(warnings, Warning(1));
}

TEST_F(KivLocalizationManagerTest, SubstitutesIntoTheFallbackText)
{
    unsigned int id = 102;
    myManager.RegisterString(id, kKivLanguage_English, "Delete __1__?");
    myManager.RegisterString(id, kKivLanguage_French, "Supprimer __1__ ?");
    EXPECT_EQ(ToStd(myManager.GetString(id, kKivLanguage_Spanish, true, "&quot;db&quot;")),
              "Delete &quot;db&quot;?");
    EXPECT_EQ(ToStd(myManager.GetString(id, kKivLanguage_French, true, "db")), "Supprimer db ?");
}
