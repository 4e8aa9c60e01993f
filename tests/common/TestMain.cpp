// Shared main of every test program: a QApplication (offscreen unless the desktop session
// chose a platform) and GoogleTest. Each program gets fresh XDG directories, so no test ever
// reads or writes the user's real settings.
#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    for (const char* dir : {"config", "data", "cache", "state"})
        QDir(home.path()).mkpath(QString::fromLatin1(dir));
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/cache")).toUtf8());
    qputenv("XDG_STATE_HOME", (home.path() + QStringLiteral("/state")).toUtf8());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    ::testing::InitGoogleTest(&argc, argv);
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
