#include "service/ClaudeModel.h"

#include "tests/common/TestUtil.h"

#include <QHash>
#include <QVariant>
#include <gtest/gtest.h>
#include <unordered_set>

TEST(ClaudeModel, CasesCarryTheirIdentifiersAndNamesInPickerOrder) {
    const auto& cases = ClaudeModel::allCases();
    ASSERT_EQ(cases.size(), 3U);
    EXPECT_EQ(cases[0], ClaudeModel::haiku);
    EXPECT_EQ(cases[1], ClaudeModel::sonnet);
    EXPECT_EQ(cases[2], ClaudeModel::opus);
    EXPECT_EQ(cases[0].rawValue(), QStringLiteral("claude-haiku-4-5"));
    EXPECT_EQ(cases[1].rawValue(), QStringLiteral("claude-sonnet-4-6"));
    EXPECT_EQ(cases[2].rawValue(), QStringLiteral("claude-opus-4-6"));
    EXPECT_EQ(cases[0].displayName(), QStringLiteral("Haiku 4.5"));
    EXPECT_EQ(cases[1].displayName(), QStringLiteral("Sonnet 4.6"));
    EXPECT_EQ(cases[2].displayName(), QStringLiteral("Opus 4.6"));
    EXPECT_EQ(ClaudeModel(), ClaudeModel::haiku);
}

TEST(ClaudeModel, ConstructionFromRawValueIsExact) {
    for (const ClaudeModel model : ClaudeModel::allCases())
        EXPECT_EQ(ClaudeModel::fromRawValue(model.rawValue()), model);
    for (const char* other : {"Claude-haiku-4-5", "claude-haiku-4-5 ", " claude-haiku-4-5",
                              "CLAUDE-OPUS-4-6", "claude-haiku-4", "claude-haiku-4-5\n", ""})
        EXPECT_EQ(ClaudeModel::fromRawValue(QString::fromUtf8(other)), std::nullopt) << other;
}

TEST(ClaudeModel, UsableAsHashKeyAndVariantTag) {
    QHash<ClaudeModel, int> qtHash;
    std::unordered_set<ClaudeModel> stdSet;
    for (const ClaudeModel model : ClaudeModel::allCases()) {
        qtHash.insert(model, model.value());
        stdSet.insert(model);
    }
    qtHash.insert(*ClaudeModel::fromRawValue(u"claude-opus-4-6"), 99);
    EXPECT_EQ(qtHash.size(), 3);
    EXPECT_EQ(qtHash.value(ClaudeModel::opus), 99);
    EXPECT_EQ(stdSet.size(), 3U);
    EXPECT_EQ(QVariant::fromValue(ClaudeModel(ClaudeModel::sonnet)).value<ClaudeModel>(),
              ClaudeModel::sonnet);
}
