// The settings window's content, bound to a settings store of its own and a simulated
// desktop, offscreen.
#include "ui/SettingsView.h"

#include "hotkeys/RecorderField.h"
#include "platform/sim/SimDesktop.h"
#include "platform/sim/SimLoginItem.h"
#include "service/AppSettings.h"
#include "support/SettingsFormat.h"
#include "tests/common/TestUtil.h"
#include "tests/hotkeys/AlertAnswerer.h"
#include "tests/hotkeys/HotkeysFixture.h"
#include "ui/Color.h"
#include "ui/SettingsIcon.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

class SettingsViewTest : public HotkeysTest {
protected:
    SettingsViewTest()
        : settings(std::make_unique<QSettings>(home.filePath(QStringLiteral("settings.ini")),
                                               support::settingsFormat()),
                   loginItem) {}

    void SetUp() override {
        HotkeysTest::SetUp();
        trigger = Hotkeys::Name(QStringLiteral("triggerMendwise"), Hotkeys::Shortcut(38, 0x300));
        view = std::make_unique<ui::SettingsView>(
            settings, desktop, desktop, trigger,
            ui::GeneralSettingsTab::Commands{[this] {
                                                 ++openSettingsCalls;
                                                 return settingsToolExists;
                                             },
                                             [this] { ++restarts; }});
        view->show();
    }

    void TearDown() override {
        view.reset();
        HotkeysTest::TearDown();
    }

    ui::AISettingsTab& ai() {
        view->setCurrentTab(1);
        return *view->aiTab();
    }
    QLineEdit& keyField() { return *ai().keyField(); }
    QPushButton& save() { return *ai().saveButton(); }

    QTemporaryDir home;
    platform::sim::SimLoginItem loginItem;
    AppSettings settings;
    platform::sim::SimDesktop desktop;
    Hotkeys::Name trigger;
    std::unique_ptr<ui::SettingsView> view;
    int openSettingsCalls = 0;
    bool settingsToolExists = true;
    int restarts = 0;
};

} // namespace

TEST_F(SettingsViewTest, TheShortcutRowHoldsTheTriggersRecorderAndSaysARefusal) {
    ASSERT_EQ(view->tabBar()->count(), 2);
    EXPECT_EQ(view->tabBar()->tabText(0), QStringLiteral("General"));
    EXPECT_EQ(view->tabBar()->tabText(1), QStringLiteral("AI"));
    EXPECT_EQ(view->currentTab(), 0);
    Hotkeys::RecorderField* field = view->recorderField();
    EXPECT_EQ(field->shortcutName().rawValue(), QStringLiteral("triggerMendwise"));
    EXPECT_EQ(field->text(), QStringLiteral("Ctrl+Shift+J"));

    // A shortcut the desktop refuses is said under the row, until one holds.
    EXPECT_EQ(view->generalTab()->shortcutProblem(), QString());
    hotKeys->refuse(40, 0x300);
    trigger.setShortcut(Hotkeys::Shortcut(40, 0x300));
    EXPECT_EQ(view->generalTab()->shortcutProblem(),
              QStringLiteral("Ctrl+Shift+K is used by another program"));
    trigger.setShortcut(Hotkeys::Shortcut(38, 0x300));
    EXPECT_EQ(view->generalTab()->shortcutProblem(), QString());
}

// Save is enabled only while the field differs from the stored key, which the field starts
// from each time the tab opens; it stores the key as typed and says so for 1.5 s.
TEST_F(SettingsViewTest, SaveFollowsTheStoredKeyStoresItAsTypedAndSaysSaved) {
    EXPECT_EQ(keyField().text(), QString());
    EXPECT_FALSE(save().isEnabled());
    QTest::keyClicks(&keyField(), QStringLiteral("draft"));
    EXPECT_TRUE(save().isEnabled());
    view->setCurrentTab(0);
    EXPECT_EQ(settings.apiKey(), QString()) << "nothing is stored before Save";
    settings.setApiKey(QStringLiteral("stored-elsewhere"));
    view->setCurrentTab(1);
    EXPECT_EQ(keyField().text(), QStringLiteral("stored-elsewhere"));
    EXPECT_FALSE(save().isEnabled());

    keyField().clear();
    QTest::keyClicks(&keyField(), QStringLiteral("  sk-ant-key "));
    QElapsedTimer timer;
    timer.start();
    QTest::mouseClick(&save(), Qt::LeftButton);
    EXPECT_EQ(settings.apiKey(), QStringLiteral("  sk-ant-key ")) << "stored untrimmed";
    EXPECT_EQ(save().text(), QStringLiteral("Saved!"));
    EXPECT_FALSE(save().isEnabled());

    testutil::processEventsFor(1000ms);
    if (timer.elapsed() < 1400) {
        EXPECT_EQ(save().text(), QStringLiteral("Saved!"));
    }
    ASSERT_TRUE(testutil::waitUntil([&] { return save().text() == QStringLiteral("Save"); }, 3s));
    EXPECT_GE(timer.elapsed(), 1450);
    EXPECT_FALSE(save().isEnabled()) << "the field still equals the stored key";
}

TEST_F(SettingsViewTest, TheEyeSwitchesBetweenMaskedAndClearWithoutTouchingTheText) {
    QTest::keyClicks(&keyField(), QStringLiteral("secret"));
    EXPECT_EQ(keyField().echoMode(), QLineEdit::Password);
    QTest::mouseClick(ai().eyeButton(), Qt::LeftButton);
    EXPECT_EQ(keyField().echoMode(), QLineEdit::Normal);
    QTest::mouseClick(ai().eyeButton(), Qt::LeftButton);
    EXPECT_EQ(keyField().echoMode(), QLineEdit::Password);
    EXPECT_EQ(keyField().text(), QStringLiteral("secret"));

    QTest::mouseClick(ai().keyPageLink(), Qt::LeftButton); // "Get API key"
    EXPECT_EQ(desktop.openedURLs(),
              QList<QUrl>{QUrl(QStringLiteral("https://console.anthropic.com/settings/keys"))});
}

// Each control stores what the user does at once and shows a change made elsewhere; the model
// picker lists the models in order; Reset restores the default prompt.
TEST_F(SettingsViewTest, EveryControlIsBoundToItsSettingBothWays) {
    QComboBox& picker = *ai().modelPicker();
    ASSERT_EQ(picker.count(), 3);
    EXPECT_EQ(picker.itemText(0), QStringLiteral("Haiku 4.5"));
    EXPECT_EQ(picker.itemText(1), QStringLiteral("Sonnet 4.6"));
    EXPECT_EQ(picker.itemText(2), QStringLiteral("Opus 4.6"));
    EXPECT_EQ(picker.currentIndex(), 0);

    QTest::keyClick(&picker, Qt::Key_Down);
    EXPECT_EQ(settings.selectedModel(), ClaudeModel(ClaudeModel::sonnet));
    settings.setSelectedModel(ClaudeModel::opus);
    EXPECT_EQ(picker.currentText(), QStringLiteral("Opus 4.6"));

    QPlainTextEdit& editor = *ai().promptEditor();
    EXPECT_EQ(editor.toPlainText(), AppSettings::defaultSystemPrompt);
    editor.selectAll();
    QTest::keyClicks(&editor, QStringLiteral("Be"));
    EXPECT_EQ(settings.systemPrompt(), QStringLiteral("Be"));

    QTest::mouseClick(ai().resetButton(), Qt::LeftButton);
    EXPECT_EQ(settings.systemPrompt(), AppSettings::defaultSystemPrompt);
    EXPECT_EQ(editor.toPlainText(), AppSettings::defaultSystemPrompt);

    view->setCurrentTab(0);
    ui::GeneralSettingsTab& general = *view->generalTab();
    QList<QAbstractButton*> switches;
    for (QAbstractButton* b : general.findChildren<QAbstractButton*>()) {
        if (b->isCheckable())
            switches << b;
    }
    ASSERT_EQ(switches.size(), 3);
    EXPECT_EQ(switches[0]->accessibleName(), QStringLiteral("Launch at Login"));
    EXPECT_FALSE(switches[0]->isChecked());
    EXPECT_TRUE(switches[1]->isChecked()) << "the menu-bar icon is shown by default";

    QTest::mouseClick(switches[0], Qt::LeftButton);
    EXPECT_TRUE(settings.launchAtLogin());
    EXPECT_TRUE(loginItem.isRegistered());
    QTest::mouseClick(switches[1], Qt::LeftButton);
    EXPECT_FALSE(settings.showMenuBarIcon());

    settings.setAutoFixOnTrigger(true);
    EXPECT_TRUE(switches[2]->isChecked());
}

TEST_F(SettingsViewTest, ThePermissionRowFollowsTrustOnlyWhenDrawnAgain) {
    desktop.setTrusted(false);
    view->hide();
    view->show();
    ui::GeneralSettingsTab& general = *view->generalTab();
    EXPECT_TRUE(testutil::labelTexts(general).contains(QStringLiteral("Not Enabled")));
    const auto tiles = general.findChildren<ui::SettingsIcon*>();
    const auto lock = std::find_if(tiles.begin(), tiles.end(), [](const ui::SettingsIcon* t) {
        return t->icon() == QStringLiteral("lock.shield.fill");
    });
    ASSERT_NE(lock, tiles.end());
    EXPECT_EQ((*lock)->color(), ui::colors::red());

    desktop.setTrusted(true);
    testutil::processEventsFor(100ms);
    EXPECT_TRUE(testutil::labelTexts(general).contains(QStringLiteral("Not Enabled")))
        << "no polling";

    view->setCurrentTab(1);
    view->setCurrentTab(0);
    EXPECT_TRUE(testutil::labelTexts(general).contains(QStringLiteral("Enabled")));
    EXPECT_EQ((*lock)->color(), ui::colors::green());
}

// Without accessibility settings to open, the user gets a hint instead.
TEST_F(SettingsViewTest, RestartAndOpenSettingsRunTheirCommands) {
    QAbstractButton* restart = testutil::buttonWithText(*view, QStringLiteral("Restart App"));
    QAbstractButton* open = testutil::buttonWithText(*view, QStringLiteral("Open System Settings"));
    ASSERT_TRUE(restart && open);
    QTest::mouseClick(restart, Qt::LeftButton);
    EXPECT_EQ(restarts, 1);
    const AlertAnswerer alerts(QStringLiteral("OK"));
    QTest::mouseClick(open, Qt::LeftButton);
    EXPECT_TRUE(alerts.texts.isEmpty());
    settingsToolExists = false;
    QTest::mouseClick(open, Qt::LeftButton);
    EXPECT_EQ(alerts.texts,
              QStringList{QStringLiteral("No accessibility settings were found on this desktop.")});
    EXPECT_EQ(openSettingsCalls, 2);
}

TEST_F(SettingsViewTest, TheKeystrokeProblemShowsWithItsAllowButtonUntilCleared) {
    ui::GeneralSettingsTab& general = *view->generalTab();
    QAbstractButton* allow = testutil::buttonWithText(*view, QStringLiteral("Allow…"));
    ASSERT_NE(allow, nullptr);
    EXPECT_FALSE(allow->isVisible());
    int retries = 0;
    general.setKeystrokeProblem(QStringLiteral("Mendwise may not type"), [&retries] { ++retries; });
    EXPECT_TRUE(testutil::labelTexts(general).contains(QStringLiteral("Mendwise may not type")));
    ASSERT_TRUE(allow->isVisible());
    QTest::mouseClick(allow, Qt::LeftButton);
    EXPECT_EQ(retries, 1);
    general.setKeystrokeProblem({}, {});
    EXPECT_FALSE(allow->isVisible());
    EXPECT_FALSE(testutil::labelTexts(general).contains(QStringLiteral("Mendwise may not type")));
}
