// The settings file's text format: what Qt's own INI writer produced reads the same, what we
// write reads back, and nothing typed is ever decoded.
#include "support/SettingsFormat.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

const QVariant values[] = {
    QStringLiteral("plain"),
    QString(),
    QStringLiteral("  spaced, with \"quotes\"; a comma and = sign \\ "),
    QStringLiteral("line one\nline two\ttab \x01"
                   "a"),
    QStringLiteral("@looks typed"),
    QStringLiteral("Grüße – 日本語 🙂"),
    true,
    QStringList{QStringLiteral("a"), QStringLiteral("b, c")},
};

// Keys as people and Qt write them: a group, a slash, characters Qt escapes.
const QString keys[] = {QStringLiteral("api_key"), QStringLiteral("Group/key"),
                        QStringLiteral("General/real group"), QStringLiteral("ünï cödé")};

QVariant asWritten(const QVariant& value) {
    // The file keeps no types: a Boolean reads back as its word.
    return value.typeId() == QMetaType::Bool ? QVariant(value.toString()) : value;
}

TEST(SettingsFormatTest, ReadsQtsIniAndItsOwnTheSame) {
    QTemporaryDir dir;
    for (const bool byQt : {true, false}) {
        const QString path = dir.filePath(byQt ? "qt.conf" : "ours.conf");
        {
            QSettings writer = byQt ? QSettings(path, QSettings::IniFormat)
                                    : QSettings(path, support::settingsFormat());
            for (const QString& key : keys)
                for (std::size_t i = 0; i < std::size(values); ++i)
                    writer.setValue(key + QString::number(i), values[i]);
        }
        // Under another name: QSettings would answer from its in-process cache of the file.
        const QString copy = path + QStringLiteral(".copy");
        ASSERT_TRUE(QFile::copy(path, copy));
        QSettings reader(copy, support::settingsFormat());
        ASSERT_EQ(reader.status(), QSettings::NoError);
        for (const QString& key : keys)
            for (std::size_t i = 0; i < std::size(values); ++i)
                EXPECT_EQ(reader.value(key + QString::number(i)), asWritten(values[i]))
                    << (byQt ? "Qt's file, " : "our file, ") << qPrintable(key) << i;
    }
}

TEST(SettingsFormatTest, TypedValuesStayUndecodedBytes) {
    // A picture, and a byte array claiming 4 GB: Qt would build the one and allocate the other.
    for (const char* text : {"@Variant(\\0\\0\\0\\x45\\0\\0\\0\\x1)",
                             "@ByteArray(\\xff\\xff\\xff\\xfe)", "@Rect(1 2 3 4)"}) {
        const QVariant value = support::ini::parseValue(QString::fromLatin1(text));
        EXPECT_EQ(value.typeId(), QMetaType::QByteArray) << text;
    }
    EXPECT_EQ(support::ini::parseValue(QStringLiteral("@String(@x)")), QStringLiteral("@x"));
}

} // namespace
