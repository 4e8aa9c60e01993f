// The popover content: fixed texts and its two commands.
#include "app/MenuBarView.h"

#include "hotkeys/Hotkeys.h"
#include "support/NotificationCenter.h"

#include <QAbstractButton>
#include <QLabel>
#include <QTest>
#include <gtest/gtest.h>

namespace {
QStringList labelTexts(const QWidget& view) {
    QStringList texts;
    for (const QLabel* label : view.findChildren<QLabel*>()) {
        if (!label->text().isEmpty())
            texts << label->text();
    }
    return texts;
}
QAbstractButton* button(const QWidget& view, const QString& text) {
    for (QAbstractButton* b : view.findChildren<QAbstractButton*>()) {
        if (b->text() == text)
            return b;
    }
    return nullptr;
}
} // namespace

TEST(MenuBarView, ShowsItsFixedTextsAndItsCommandsCallTheirCallbacks) {
    int settings = 0;
    int quits = 0;
    app::MenuBarView view({[&] { ++settings; }, [&] { ++quits; }, {}});
    EXPECT_EQ(view.size(), QSize(280, 200));
    EXPECT_EQ(
        labelTexts(view),
        (QStringList{QStringLiteral("Mendwise"), QStringLiteral("Ctrl+Shift+J to fix typos"),
                     QStringLiteral("Ready"), QStringLiteral("Select text and press hotkey")}));
    view.show();
    QAbstractButton* openSettings = button(view, QStringLiteral("Settings..."));
    QAbstractButton* quit = button(view, QStringLiteral("Quit Mendwise"));
    ASSERT_TRUE(openSettings && quit);
    QTest::mouseClick(openSettings, Qt::LeftButton);
    QTest::mouseClick(openSettings, Qt::LeftButton);
    EXPECT_EQ(settings, 2);
    EXPECT_EQ(quits, 0);
    QTest::mouseClick(quit, Qt::LeftButton);
    EXPECT_EQ(quits, 1);
}

TEST(MenuBarView, TheStatusSaysWhyTheShortcutDoesNotWork) {
    std::optional<QString> problem = QStringLiteral("Ctrl+Shift+J is used by another program");
    app::MenuBarView view({{}, {}, [&] { return problem; }});
    EXPECT_TRUE(labelTexts(view).contains(*problem));
    EXPECT_FALSE(labelTexts(view).contains(QStringLiteral("Ready")));
    problem.reset(); // registered after all
    support::NotificationCenter::defaultCenter().post(
        QString::fromLatin1(Hotkeys::registrationStatusDidChange));
    EXPECT_TRUE(labelTexts(view).contains(QStringLiteral("Ready")));
}
