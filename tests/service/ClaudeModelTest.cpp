#include "service/ClaudeModel.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

TEST(ClaudeModel, CasesInPickerOrderWithTheirIdentifiersNamesAndExactLookup) {
    const struct {
        ClaudeModel model;
        const char* rawValue;
        const char* displayName;
    } expected[] = {{ClaudeModel::haiku, "claude-haiku-4-5", "Haiku 4.5"},
                    {ClaudeModel::sonnet, "claude-sonnet-4-6", "Sonnet 4.6"},
                    {ClaudeModel::opus, "claude-opus-4-6", "Opus 4.6"}};
    ASSERT_EQ(ClaudeModel::allCases().size(), 3U);
    for (size_t i = 0; i < 3; ++i) {
        const ClaudeModel model = ClaudeModel::allCases()[i];
        EXPECT_EQ(model, expected[i].model);
        EXPECT_EQ(model.rawValue(), QString::fromLatin1(expected[i].rawValue));
        EXPECT_EQ(model.displayName(), QString::fromLatin1(expected[i].displayName));
        EXPECT_EQ(ClaudeModel::fromRawValue(model.rawValue()), model);
    }
    EXPECT_EQ(ClaudeModel(), ClaudeModel::haiku);
    for (const char* other : {"Claude-haiku-4-5", "claude-haiku-4-5 ", " claude-haiku-4-5",
                              "CLAUDE-OPUS-4-6", "claude-haiku-4", "claude-haiku-4-5\n", ""})
        EXPECT_EQ(ClaudeModel::fromRawValue(QString::fromUtf8(other)), std::nullopt) << other;
}
