// The shortcut recorder in a window, over the simulated hot keys and a US layout, offscreen.
#include "hotkeys/Recorder.h"

#include "hotkeys/RecorderField.h"
#include "tests/common/TestUtil.h"
#include "tests/hotkeys/AlertAnswerer.h"
#include "tests/hotkeys/HotkeysFixture.h"

#include <QLineEdit>
#include <QMainWindow>
#include <QMenuBar>
#include <QTest>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using Hotkeys::RecorderField;
using Hotkeys::Shortcut;

namespace {

// A window with a text field, the recorder and another text field, in that focus order.
class RecorderTest : public HotkeysTest {
protected:
    void SetUp() override {
        HotkeysTest::SetUp();
        activity = support::NotificationCenter::defaultCenter().addObserver(
            QString::fromLatin1(Hotkeys::recorderActiveStatusDidChange),
            [this](const support::Notification& n) {
                statuses.append(n.userInfo.value(QStringLiteral("isActive")).toBool());
            });

        auto* column = new QVBoxLayout(&window);
        before = new QLineEdit;
        recorder = new Hotkeys::Recorder(
            name, [this](const std::optional<Shortcut>& shortcut) { changes.append(shortcut); });
        after = new QLineEdit;
        column->addWidget(before);
        column->addWidget(recorder);
        column->addWidget(after);
        field()->setEnvironment({std::nullopt, false, [this] { ++beeps; }});
        window.show();
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
        testutil::processEventsFor(20ms);
        before->setFocus();
        statuses.clear();
    }

    void TearDown() override {
        activity.reset();
        HotkeysTest::TearDown();
    }

    RecorderField* field() const { return recorder->field(); }

    void startRecording() {
        QTest::mouseClick(field(), Qt::LeftButton, {}, field()->rect().center());
        ASSERT_TRUE(field()->isRecording());
    }

    // The stored entry, as text.
    QString stored() const { return store().value(QStringLiteral("Hotkeys_test")).toString(); }

    Hotkeys::Name name{QStringLiteral("test")};
    QWidget window;
    QLineEdit* before = nullptr;
    Hotkeys::Recorder* recorder = nullptr;
    QLineEdit* after = nullptr;
    QList<std::optional<Shortcut>> changes;
    QList<bool> statuses;
    support::Observation activity;
    int beeps = 0;
};

const Shortcut commandShiftJ(38, 0x300);

} // namespace

TEST_F(RecorderTest, AClickStartsRecording) {
    startRecording();
    EXPECT_EQ(field()->placeholderText(), QStringLiteral("Press Shortcut"));
    // No caret: the field looks the same across a whole blink period.
    const QImage first = field()->grab().toImage();
    bool steady = true;
    for (int i = 0; i < 12 && steady; ++i) {
        testutil::processEventsFor(100ms);
        steady = field()->grab().toImage() == first;
    }
    EXPECT_TRUE(steady) << "the caret is hidden while recording";
    EXPECT_EQ(statuses, QList<bool>{true});
    EXPECT_TRUE(Hotkeys::recorderIsActive());
}

// Keys without Control, Alt or Super are refused with a beep; a shortcut is stored, shown,
// reported and ends recording.
TEST_F(RecorderTest, AShortcutIsStoredShownReportedAndEndsRecording) {
    startRecording();
    QTest::keyClick(field(), Qt::Key_J);
    QTest::keyClick(field(), Qt::Key_J, Qt::ShiftModifier);
    QTest::keyClick(field(), Qt::Key_Left);
    EXPECT_EQ(beeps, 3);
    EXPECT_TRUE(field()->isRecording());
    EXPECT_EQ(field()->text(), QString()) << "no key is typed into the field";
    QTest::keyClick(field(), Qt::Key_J, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(stored(), QStringLiteral("{\"carbonKeyCode\":38,\"carbonModifiers\":768}"));
    EXPECT_EQ(field()->text(), QStringLiteral("Ctrl+Shift+J"));
    ASSERT_EQ(changes.size(), 1);
    EXPECT_EQ(changes[0], std::optional<Shortcut>(commandShiftJ));
    EXPECT_FALSE(field()->isRecording());
    EXPECT_EQ(statuses, (QList<bool>{true, false}));
    EXPECT_FALSE(Hotkeys::recorderIsActive());
    EXPECT_EQ(field()->placeholderText(), QStringLiteral("Record Shortcut"));
    EXPECT_TRUE(hotKeys->isRegistered(38, 0x300));

    // Function keys are taken alone; F12 alone, reserved by the system here, is taken all the
    // same.
    hotKeys->setSymbolicHotKeys({{true, 111, 0}});
    const std::tuple<Qt::Key, int, const char*> functionKeys[] = {{Qt::Key_F5, 96, "F5"},
                                                                  {Qt::Key_F12, 111, "F12"}};
    for (const auto& [key, code, text] : functionKeys) {
        startRecording();
        QTest::keyClick(field(), key);
        EXPECT_EQ(stored(),
                  QStringLiteral(R"({"carbonKeyCode":%1,"carbonModifiers":0})").arg(code));
        EXPECT_EQ(field()->text(), QString::fromLatin1(text));
    }
    EXPECT_EQ(beeps, 3);
    EXPECT_EQ(changes.size(), 3);
}

// Escape and Tab end recording and keep the shortcut; Delete and
// Backspace clear it (a name without default keeps no entry) and recording goes on.
TEST_F(RecorderTest, EscapeOrTabEndsRecordingDeleteOrBackspaceClears) {
    const struct {
        Qt::Key key;
        bool clears;
    } cases[] = {{Qt::Key_Escape, false},
                 {Qt::Key_Tab, false},
                 {Qt::Key_Backspace, true},
                 {Qt::Key_Delete, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        Hotkeys::setShortcut(commandShiftJ, name);
        EXPECT_EQ(field()->text(), QStringLiteral("Ctrl+Shift+J")) << "follows the stored shortcut";
        changes.clear();
        startRecording();
        QTest::keyClick(field(), c.key);
        EXPECT_EQ(field()->isRecording(), c.clears);
        EXPECT_EQ(field()->hasFocus(), c.clears);
        EXPECT_TRUE(c.key != Qt::Key_Tab || after->hasFocus()) << "Tab moves the focus on";
        EXPECT_EQ(Hotkeys::shortcut(name), c.clears ? std::nullopt : std::optional(commandShiftJ));
        EXPECT_EQ(store().contains(QStringLiteral("Hotkeys_test")), !c.clears);
        EXPECT_EQ(changes.size(), c.clears ? 1 : 0);
        EXPECT_EQ(field()->text(), c.clears ? QString() : QStringLiteral("Ctrl+Shift+J"));
        EXPECT_EQ(hotKeys->isRegistered(38, 0x300), !c.clears);
        if (c.clears)
            QTest::keyClick(field(), Qt::Key_Escape);
    }
    EXPECT_EQ(beeps, 0);
}

TEST_F(RecorderTest, AClickJustOutsideIsToleratedAndOneFurtherOutEndsRecording) {
    startRecording();
    const QRect frame = field()->geometry();
    const QPoint right(frame.right() + 1, frame.center().y());
    QTest::mouseClick(&window, Qt::LeftButton, {},
                      field()->parentWidget()->mapTo(&window, right + QPoint(2, 0)));
    EXPECT_TRUE(field()->isRecording()) << "2 points outside";
    QTest::mouseClick(&window, Qt::LeftButton, {},
                      field()->parentWidget()->mapTo(&window, right + QPoint(4, 0)));
    EXPECT_FALSE(field()->isRecording()) << "4 points outside";
}

TEST_F(RecorderTest, OptionAloneIsRefusedInASandboxOnlyOnMacOS15Point0And15Point1) {
    const struct {
        const char* version;
        bool sandboxed;
        Qt::KeyboardModifiers modifiers;
        bool refused;
    } cases[] = {
        {"15.1", true, Qt::AltModifier, true},
        {"15.1", true, Qt::AltModifier | Qt::ShiftModifier, true},
        {"15.1", true, Qt::AltModifier | Qt::ControlModifier, false}, // Command+Option is fine
        {"15.0", true, Qt::AltModifier, true},
        {"15.1", false, Qt::AltModifier, false},
        {"15.2", true, Qt::AltModifier, false},
        {"14.6", true, Qt::AltModifier, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.version << (c.sandboxed ? " sandboxed " : " ") << c.modifiers.toInt());
        field()->setEnvironment({QVersionNumber::fromString(QLatin1String(c.version)), c.sandboxed,
                                 [this] { ++beeps; }});
        startRecording();
        const AlertAnswerer alerts(QStringLiteral("OK"));
        QTest::keyClick(field(), Qt::Key_A, c.modifiers);
        testutil::waitUntil([&] { return field()->isRecording(); }, 300ms);
        EXPECT_EQ(alerts.texts.join(u'|').startsWith(
                      QLatin1String("This keyboard shortcut cannot be used: ")),
                  c.refused);
        if (field()->isRecording())
            QTest::keyClick(field(), Qt::Key_Escape);
    }
    EXPECT_EQ(changes.size(), 4);
    EXPECT_EQ(stored(), QStringLiteral("{\"carbonKeyCode\":0,\"carbonModifiers\":2048}"));
}

// A menu item's shortcut is refused, without running the item; a system-wide one is refused
// unless the alert's second button is chosen (which the X11 hot-key tests choose on Xvfb).
TEST_F(RecorderTest, MenuItemAndSystemShortcutsAreRefusedWithAnAlert) {
    QMainWindow mainWindow;
    QMenu* file = mainWindow.menuBar()->addMenu(QStringLiteral("&File"));
    QAction* quit = file->addAction(QStringLiteral("&Quit"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    int quits = 0;
    QObject::connect(quit, &QAction::triggered, [&] { ++quits; });
    // Command+Option+T reserved by the system.
    hotKeys->setSymbolicHotKeys({{true, 17, 0x900}});

    startRecording();
    AlertAnswerer alerts(QStringLiteral("OK"));
    QTest::keyClick(field(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(alerts.buttons, QStringList{QStringLiteral("OK")});
    EXPECT_EQ(quits, 0) << "the menu item does not run";
    ASSERT_TRUE(testutil::waitUntil([&] { return field()->isRecording(); }, 2s))
        << "recording starts again once the window is active again";
    QTest::keyClick(field(), Qt::Key_T, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_EQ(alerts.texts,
              (QStringList{QStringLiteral("This keyboard shortcut cannot be used as it's already "
                                          "used by the “Quit” menu item."),
                           QStringLiteral("This keyboard shortcut cannot be used as it's already a "
                                          "system-wide keyboard shortcut.")}));
    EXPECT_EQ(alerts.details.value(1),
              QStringLiteral("Most system-wide keyboard shortcuts can be changed in the keyboard "
                             "settings of your desktop or window manager."));
    EXPECT_EQ(alerts.buttons,
              (QStringList{QStringLiteral("OK"), QStringLiteral("Use Shortcut Anyway")}));
    EXPECT_EQ(stored(), QString());
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(RecorderTest, TheWindowOpeningOrBecomingActiveDoesNotStartRecording) {
    // A window whose only focusable control is the recorder.
    QWidget alone;
    auto* only = new Hotkeys::Recorder(name, {}, &alone);
    alone.show();
    alone.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&alone));
    testutil::processEventsFor(50ms);
    EXPECT_FALSE(only->field()->isRecording());

    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    alone.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&alone));
    testutil::processEventsFor(50ms);
    EXPECT_FALSE(only->field()->isRecording());
    EXPECT_TRUE(statuses.isEmpty());

    // A click still starts it.
    QTest::mouseClick(only->field(), Qt::LeftButton);
    EXPECT_TRUE(only->field()->isRecording());
    // And the window resigning ends it.
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_FALSE(only->field()->isRecording());
}
