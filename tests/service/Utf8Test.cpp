#include "service/Utf8.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

TEST(Utf8, WellFormedTextIsKeptWhole) {
    const QByteArray valid[] = {"",
                                "plain",
                                "caf\xc3\xa9",
                                "\xe2\x82\xac",
                                "\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9",
                                "\xf4\x8f\xbf\xbf",
                                QByteArray("nul\0byte", 8)};
    for (const QByteArray& bytes : valid) {
        EXPECT_EQ(service::firstInvalidUtf8(bytes), std::nullopt) << bytes.toHex().constData();
        EXPECT_EQ(service::decodeUtf8Strictly(bytes)->toUtf8(), bytes);
    }
    // A leading byte-order mark is a character of the text, not dropped.
    EXPECT_EQ(service::decodeUtf8Strictly("\xef\xbb\xbf{}"), QChar(0xfeff) + QStringLiteral("{}"));
}

TEST(Utf8, MalformedSequencesAreFoundAtTheirFirstByte) {
    const struct {
        QByteArray bytes;
        qsizetype offset;
    } cases[] = {
        {"\xff", 0},                 // never valid
        {"ab\x80", 2},               // stray continuation byte
        {"\xc0\xaf", 0},             // overlong '/'
        {"\xc1\xbf", 0},             // overlong
        {"x\xe0\x80\xaf", 1},        // overlong three-byte form
        {"\xed\xa0\x80", 0},         // UTF-16 surrogate
        {"\xf0\x80\x80\xaf", 0},     // overlong four-byte form
        {"\xf4\x90\x80\x80", 0},     // above U+10FFFF
        {"\xf5\x80\x80\x80", 0},     // lead byte out of range
        {"ok\xe2\x82", 2},           // truncated at the end
        {"\xe2\x28\xa1", 0},         // bad second byte
        {"\xf0\x9f\x98", 0},         // truncated emoji
        {"\xc3\xa9\xe2\x82\x41", 2}, // bad third byte after a good character
    };
    for (const auto& c : cases) {
        EXPECT_EQ(service::firstInvalidUtf8(c.bytes), c.offset) << c.bytes.toHex().constData();
        EXPECT_EQ(service::decodeUtf8Strictly(c.bytes), std::nullopt);
    }
}
