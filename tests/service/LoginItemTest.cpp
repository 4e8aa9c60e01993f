#include "platform/freedesktop/XdgAutostartLoginItem.h"
#include "tests/common/TestUtil.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using platform::freedesktop::XdgAutostartLoginItem;

namespace {

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray execLine(const QByteArray& entry) {
    for (const QByteArray& line : entry.split('\n')) {
        if (line.startsWith("Exec="))
            return line.mid(5);
    }
    return {};
}

} // namespace

TEST(XdgAutostartLoginItem, RegisterCreatesTheEntryAndUnregisterRemovesIt) {
    QTemporaryDir config;
    const testutil::ScopedEnv env("XDG_CONFIG_HOME", config.path());
    const QString entry =
        config.path() + QStringLiteral("/autostart/app.mendwise.Mendwise.desktop");
    ASSERT_EQ(XdgAutostartLoginItem::entryPath(), entry);

    XdgAutostartLoginItem running; // starts the running executable
    EXPECT_EQ(running.registerLoginItem(), std::nullopt);
    const QByteArray contents = readFile(entry);
    EXPECT_TRUE(contents.startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(contents.contains("\nType=Application\n"));
    EXPECT_TRUE(contents.contains("\nName=Mendwise\n"));
    EXPECT_EQ(execLine(contents), '"' + QCoreApplication::applicationFilePath().toUtf8() + '"');

    EXPECT_EQ(running.registerLoginItem(), std::nullopt); // again: same entry
    EXPECT_EQ(readFile(entry), contents);
    EXPECT_EQ(running.unregisterLoginItem(), std::nullopt);
    EXPECT_FALSE(QFileInfo::exists(entry));
    EXPECT_EQ(running.unregisterLoginItem(), std::nullopt); // not registered is fine
}

TEST(XdgAutostartLoginItem, EntryFollowsTheXdgConfigHomeRules) {
    QTemporaryDir home;
    const testutil::ScopedEnv homeEnv("HOME", home.path());
    const QString fallback =
        home.path() + QStringLiteral("/.config/autostart/app.mendwise.Mendwise.desktop");
    {
        const testutil::ScopedEnv unset("XDG_CONFIG_HOME", std::nullopt);
        EXPECT_EQ(XdgAutostartLoginItem::entryPath(), fallback);
        EXPECT_EQ(XdgAutostartLoginItem(QStringLiteral("/usr/bin/mendwise")).registerLoginItem(),
                  std::nullopt);
        EXPECT_TRUE(QFileInfo::exists(fallback)); // folders created as needed
    }
    {
        const testutil::ScopedEnv relative("XDG_CONFIG_HOME", QStringLiteral("relative/config"));
        EXPECT_EQ(XdgAutostartLoginItem::entryPath(), fallback);
    }
}

TEST(XdgAutostartLoginItem, TheEntryOfEarlierVersionsNeverStaysBeside) {
    QTemporaryDir config;
    const testutil::ScopedEnv env("XDG_CONFIG_HOME", config.path());
    const QString legacy = config.path() + QStringLiteral("/autostart/mendwise.desktop");
    ASSERT_EQ(XdgAutostartLoginItem::legacyEntryPath(), legacy);
    XdgAutostartLoginItem loginItem(QStringLiteral("/usr/bin/mendwise"));
    for (const bool registering : {true, false}) {
        ASSERT_TRUE(QDir().mkpath(config.path() + QStringLiteral("/autostart")));
        QFile old(legacy);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.close();
        EXPECT_EQ(registering ? loginItem.registerLoginItem() : loginItem.unregisterLoginItem(),
                  std::nullopt);
        EXPECT_FALSE(QFileInfo::exists(legacy)) << registering;
        EXPECT_EQ(QFileInfo::exists(XdgAutostartLoginItem::entryPath()), registering);
    }
}

TEST(XdgAutostartLoginItem, StartsTheInstalledProgramByItsInstalledName) {
    QTemporaryDir dir;
    const QString program = dir.filePath(QStringLiteral("opt/mendwise"));
    const QString link = dir.filePath(QStringLiteral("bin/mendwise"));
    const QString build = dir.filePath(QStringLiteral("build/app/mendwise"));
    for (const QString& path : {program, build}) {
        ASSERT_TRUE(QDir().mkpath(QFileInfo(path).path()));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    ASSERT_TRUE(QDir().mkpath(QFileInfo(link).path()));
    ASSERT_TRUE(QFile::link(program, link));
    const struct {
        QString running, installed, expected;
    } cases[] = {
        {program, program, program}, // installed, run from there
        {program, link, link},       // the installed name is a link to what runs
        {build, link, build},        // a developer's build tree
        {build, dir.filePath(QStringLiteral("usr/bin/mendwise")), build}, // nothing installed
    };
    for (const auto& c : cases)
        EXPECT_EQ(XdgAutostartLoginItem::programToStart(c.running, c.installed), c.expected)
            << c.running.toStdString() << " / " << c.installed.toStdString();
}

TEST(XdgAutostartLoginItem, ExecQuotesEveryPath) {
    const struct {
        QString path;
        QByteArray exec;
    } cases[] = {
        {QStringLiteral("/opt/Mendwise Apps/mendwise"), R"("/opt/Mendwise Apps/mendwise")"},
        {QStringLiteral("/home/a\"b/mendwise"), R"("/home/a\\"b/mendwise")"},
        {QStringLiteral("/tmp/$HOME/`x`/mendwise"), R"("/tmp/\\$HOME/\\`x\\`/mendwise")"},
        {QStringLiteral("/tmp/back\\slash"), R"("/tmp/back\\\\slash")"},
        {QStringLiteral("/tmp/100%/mendwise"), R"("/tmp/100%%/mendwise")"},
        {QStringLiteral("/tmp/caf\u00e9;&|/m"), "\"/tmp/caf\xc3\xa9;&|/m\""},
        {QStringLiteral("/tmp/line\nbreak"), R"("/tmp/line\nbreak")"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(execLine(XdgAutostartLoginItem::entryContents(c.path)), c.exec)
            << c.exec.constData();
}

TEST(XdgAutostartLoginItem, AFailureNamesTheFolder) {
    QTemporaryDir config;
    const testutil::ScopedEnv env("XDG_CONFIG_HOME", config.path());
    // A file where the autostart folder should be.
    QFile blocker(config.path() + QStringLiteral("/autostart"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    XdgAutostartLoginItem loginItem(QStringLiteral("/usr/bin/mendwise"));
    const std::optional<QString> error = loginItem.registerLoginItem();
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->contains(config.path() + QStringLiteral("/autostart")))
        << error->toStdString();
}
