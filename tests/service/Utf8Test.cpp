#include "service/Utf8.h"

#include "tests/common/TestUtil.h"

#include <gtest/gtest.h>

// Well-formed text is kept whole; a malformed sequence is found at its first byte.
TEST(Utf8, DecodesStrictlyAndFindsTheFirstMalformedByte) {
    const struct {
        QByteArray bytes;
        std::optional<qsizetype> offset;
    } cases[] = {
        {"", std::nullopt},
        {"plain", std::nullopt},
        {"caf\xc3\xa9", std::nullopt},
        {"\xe2\x82\xac", std::nullopt},
        {"\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9", std::nullopt},
        {"\xf4\x8f\xbf\xbf", std::nullopt},
        {QByteArray("nul\0byte", 8), std::nullopt},
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
        const auto decoded = service::decodeUtf8Strictly(c.bytes);
        EXPECT_EQ(decoded.has_value(), !c.offset.has_value());
        EXPECT_EQ(decoded.value_or(QString()).toUtf8(), c.offset ? QByteArray() : c.bytes);
    }
    // A leading byte-order mark is a character of the text, not dropped.
    EXPECT_EQ(service::decodeUtf8Strictly("\xef\xbb\xbf{}"), QChar(0xfeff) + QStringLiteral("{}"));
}
