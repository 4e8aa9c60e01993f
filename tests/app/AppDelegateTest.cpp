// The application controller over the simulated desktop, with a real Messages API server on
// loopback: launch, trigger, placement, the whole rewrite, failures and termination.
#include "app/AppDelegate.h"

#include "platform/sim/SimDesktop.h"
#include "platform/sim/SimLoginItem.h"
#include "service/AppSettings.h"
#include "support/Background.h"
#include "support/Log.h"
#include "support/SettingsFormat.h"
#include "tests/common/LoopbackHttpServer.h"
#include "tests/common/TestUtil.h"
#include "tests/hotkeys/HotkeysFixture.h"
#include "ui/ActionPickerView.h"
#include "ui/FloatingPanel.h"
#include "ui/ScreenGeometry.h"
#include "ui/SettingsView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLineEdit>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using platform::sim::SimDesktop;
using testutil::HttpResponse;
using testutil::waitUntil;

namespace {

constexpr std::int32_t editorPid = 42;
constexpr std::uint32_t keyJ = 38;
constexpr std::uint32_t commandShift = 768;

class AppDelegateTest : public HotkeysTest {
protected:
    void SetUp() override {
        HotkeysTest::SetUp();
        ASSERT_TRUE(storeDir.isValid());
        settings = std::make_unique<AppSettings>(
            std::make_unique<QSettings>(storeDir.filePath(QStringLiteral("Mendwise.conf")),
                                        support::settingsFormat()),
            loginItem);
        settings->setApiKey(QStringLiteral("sk-ant-test-key"));

        desktop->addApplication(
            {editorPid, QStringLiteral("org.example.Editor"), QStringLiteral("Editor")});
        desktop->setFrontmost(editorPid);
        desktop->setText(editorPid, QStringLiteral("I has a speling eror."), {0, 21});
        server.setHandler([](const testutil::HttpRequest&) {
            return HttpResponse::messagesAnswer(QStringLiteral("I have a spelling error."));
        });
    }

    void TearDown() override {
        support::waitForBackgroundIdle();
        delegate.reset();
        QApplication::processEvents();
        HotkeysTest::TearDown();
    }

    void launch() {
        delegate = std::make_unique<app::AppDelegate>(
            app::Desktop{desktop, desktop, desktop, desktop, desktop}, *settings,
            app::AppDelegate::Options{QStringLiteral("/usr/bin/mendwise"), QUrl(server.url())});
        delegate->applicationDidFinishLaunching();
    }

    // Presses and releases the trigger; returns once the picker is on screen.
    ui::ActionPickerView* trigger() {
        int shown = 0;
        auto connection =
            QObject::connect(delegate.get(), &app::AppDelegate::pickerShown, [&] { ++shown; });
        hotKeys->press(keyJ, commandShift);
        hotKeys->release(keyJ, commandShift);
        const bool ok = waitUntil([&] { return shown == 1; });
        QObject::disconnect(connection);
        return ok ? qobject_cast<ui::ActionPickerView*>(delegate->floatingPanel()->contentView())
                  : nullptr;
    }

    // The instruction the request with this index carried (the request must have arrived).
    QString systemOfRequest(std::size_t index) const {
        return QJsonDocument::fromJson(server.requests().at(index).body)["system"].toString();
    }

    QTemporaryDir storeDir;
    std::shared_ptr<SimDesktop> desktop = std::make_shared<SimDesktop>();
    platform::sim::SimLoginItem loginItem;
    std::unique_ptr<AppSettings> settings;
    testutil::LoopbackHttpServer server;
    support::LogCapture log;
    std::unique_ptr<app::AppDelegate> delegate;
};

// A prompt that switches accessibility on is told in the settings.
TEST_F(AppDelegateTest, LaunchChecksTrustAsksOnceIfNeededAndBindsTheTriggerTillTermination) {
    const QString granted = QStringLiteral("[AppDelegate] ✅ Accessibility granted");
    const QString asking =
        QStringLiteral("[AppDelegate] ⚠️ Requesting Accessibility permission…");
    const std::pair<bool, bool> cases[] = {{true, false}, {false, false}, {false, true}};
    for (const auto& [trusted, promptGrants] : cases) {
        SCOPED_TRACE(testing::Message() << trusted << promptGrants);
        log.clear();
        desktop->setTrusted(trusted);
        desktop->setPromptGrantsTrust(promptGrants);
        const int prompts = desktop->trustPromptCount();
        launch();
        EXPECT_EQ(log.contains(granted), trusted);
        EXPECT_EQ(log.contains(asking), !trusted);
        EXPECT_EQ(desktop->trustPromptCount() - prompts, trusted ? 0 : 1);
        ASSERT_NE(delegate->floatingPanel(), nullptr);
        EXPECT_TRUE(hotKeys->isRegistered(keyJ, commandShift));
        EXPECT_LT(log.indexOf(trusted ? granted : asking),
                  log.indexOf(
                      QStringLiteral("[HotkeyManager] Registered shortcut using Hotkeys library")));
        delegate->openSettings();
        auto* view = delegate->settingsWindow()->findChild<ui::SettingsView*>();
        ASSERT_NE(view, nullptr);
        EXPECT_EQ(view->generalTab()->accessibilityNotice().contains(
                      u"Restart applications started before Mendwise"),
                  promptGrants);

        // Termination releases the trigger.
        delegate->applicationWillTerminate();
        EXPECT_FALSE(hotKeys->isRegistered(keyJ, commandShift));
        hotKeys->press(keyJ, commandShift);
        hotKeys->release(keyJ, commandShift);
        testutil::processEventsFor(50ms);
        EXPECT_FALSE(log.contains(QStringLiteral("[AppDelegate] 🚀 showPicker")));
    }
}

// Only a program run from a transient place (a download, a mounted image) is told to move, and
// never one installed or in a build tree.
TEST_F(AppDelegateTest, InstallLocationWarnsOnlyForTransientPlaces) {
    QTemporaryDir buildTree;
    QFile cache(buildTree.filePath(QStringLiteral("CMakeCache.txt")));
    ASSERT_TRUE(cache.open(QIODevice::WriteOnly));
    ASSERT_TRUE(QDir(buildTree.path()).mkpath(QStringLiteral("Downloads/app")));
    const QString home = QStringLiteral("/home/me");
    const struct {
        QString path;
        bool exempt;
        bool transient;
    } cases[] = {
        {QStringLiteral("/usr/bin/mendwise"), true, false},
        {QStringLiteral("/opt/mendwise/bin/mendwise"), true, false},
        {QStringLiteral("/home/me/.local/bin/mendwise"), true, false},
        {buildTree.filePath(QStringLiteral("Downloads/app/mendwise")), true, true},
        {QStringLiteral("/home/me/Downloads/mendwise/mendwise"), false, true},
        {QStringLiteral("/home/me/.localized/mendwise"), false, false},
        {QStringLiteral("/Volumes/Mendwise/Mendwise.app"), false, true},
        {QStringLiteral("/private/var/folders/xy/T/AppTranslocation/d/Mendwise.app"), false, true},
        {QStringLiteral("/ApplicationsOld/Downloads/Mendwise.app"), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(app::AppDelegate::isInstalledOrBuilt(c.path, home), c.exempt)
            << c.path.toStdString();
        EXPECT_EQ(app::AppDelegate::shouldWarnAboutInstallLocation(c.path), c.transient)
            << c.path.toStdString();
    }
}

TEST_F(AppDelegateTest, TheTrayIconFollowsItsSwitchAndAutoFixRunsAtTheTrigger) {
    launch();
    ASSERT_NE(delegate->statusItem(), nullptr);
    EXPECT_TRUE(delegate->statusItem()->isVisible());
    settings->setShowMenuBarIcon(false);
    EXPECT_FALSE(delegate->statusItem()->isVisible());
    settings->setShowMenuBarIcon(true);
    EXPECT_TRUE(delegate->statusItem()->isVisible());

    settings->setAutoFixOnTrigger(true);
    ui::ActionPickerView* picker = trigger();
    ASSERT_NE(picker, nullptr);
    EXPECT_NE(picker->phase(), ui::ActionPickerView::Phase::picker()) << "opens working";
    ASSERT_TRUE(waitUntil([&] { return server.requests().size() == 1; }));
    EXPECT_EQ(systemOfRequest(0), AppSettings::defaultSystemPrompt);
}

TEST_F(AppDelegateTest, TriggerPlacesThePickerBelowTheSelection) {
    // Selection rectangle (100, 200, 300, 20) in accessibility coordinates on a 900-high
    // screen: anchor (400, 680), panel origin (404, 532).
    desktop->setSelectionBounds(editorPid, platform::Rect{100, 200, 300, 20});
    launch();
    ui::ActionPickerView* picker = trigger();
    ASSERT_NE(picker, nullptr);
    EXPECT_EQ(picker->phase(), ui::ActionPickerView::Phase::picker());
    EXPECT_EQ(delegate->floatingPanel()->geometry(),
              ui::qtRectFromGlobal(platform::Rect{404, 532, 240, 140}));
    // Nothing is read at trigger time.
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(desktop->postedEvents().empty());

    // Without a source application the picker follows the mouse (a second trigger while the
    // panel is up re-places it: end-to-end.sh checks that below a new selection).
    desktop->setFrontmost(std::nullopt);
    desktop->setMouseLocation({700, 600});
    ASSERT_NE(trigger(), nullptr);
    EXPECT_TRUE(log.contains(QStringLiteral("[AppDelegate] 🚀 showPicker — nil")));
    EXPECT_EQ(delegate->floatingPanel()->geometry(),
              ui::qtRectFromGlobal(platform::Rect{712, 452, 240, 140}));
}

TEST_F(AppDelegateTest, ThePromptIsReadWhenTheActionRunsAndACustomOneReplacesItOnce) {
    launch();
    ui::ActionPickerView* picker = trigger();
    ASSERT_NE(picker, nullptr);
    settings->setSystemPrompt(QStringLiteral("Edited after the trigger."));
    picker->handleKey(124); // Right
    picker->handleKey(36);  // Return opens the field
    ASSERT_EQ(picker->phase(), ui::ActionPickerView::Phase::custom());
    picker->instructionField()->setText(QStringLiteral("  make it formal  "));
    picker->submitCustom();
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(systemOfRequest(0), QStringLiteral("make it formal"));
    ASSERT_TRUE(waitUntil([&] { return !delegate->floatingPanel()->isVisible(); }, 3s));

    desktop->setText(editorPid, QStringLiteral("another eror"), {0, 12});
    ui::ActionPickerView* next = trigger();
    ASSERT_NE(next, nullptr);
    next->handleKey(36);
    ASSERT_TRUE(server.waitForRequests(2));
    EXPECT_EQ(systemOfRequest(1), QStringLiteral("Edited after the trigger."));
}

// A failed request and a failed capture each show their own description (that they paste
// nothing and a failed capture sends no request, end_to_end checks on a real desktop).
TEST_F(AppDelegateTest, AFailureShowsItsDescriptionAndPastesNothing) {
    const QByteArray apiError = R"({"type":"error","error":{"type":"api_error"}})";
    server.setHandler(
        [apiError](const testutil::HttpRequest&) { return HttpResponse::json(500, apiError); });
    launch();
    for (const bool selected : {true, false}) {
        if (!selected)
            desktop->setText(editorPid, QStringLiteral("no selection here"), {3, 0});
        ui::ActionPickerView* picker = trigger();
        ASSERT_NE(picker, nullptr);
        picker->handleKey(36);
        ASSERT_TRUE(waitUntil(
            [&] { return picker->phase().kind() == ui::ActionPickerView::Phase::Kind::error; }));
        EXPECT_EQ(picker->phase().errorDescription(),
                  selected ? QString::fromUtf8(apiError)
                           : QStringLiteral("No text is currently selected."));
    }
    // What an empty captured text fails with.
    EXPECT_EQ(app::AppDelegate::MendwiseError().errorDescription(),
              QStringLiteral("No text selected"));
}

} // namespace
