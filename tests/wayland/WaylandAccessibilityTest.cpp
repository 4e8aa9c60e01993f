// Reading the selection of a native Wayland client under sway through the accessibility bus:
// the Qt text app with a word selected.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"

#include <gtest/gtest.h>

#ifndef MENDWISE_QT_TEXT_APP
#error "the build names the Qt text app"
#endif

using namespace platform;
using namespace std::chrono_literals;

namespace {

// This program needs no window, so it is no Wayland client: at exit Qt 6.4's Wayland plugin
// races with its own event thread, which ThreadSanitizer reports. This is set before main
// creates the QApplication; the applications under test are told to use Wayland when started.
[[maybe_unused]] const bool offscreen = qputenv("QT_QPA_PLATFORM", "offscreen");

} // namespace

// GTK 3 is checked on the same road by the Wayland end-to-end test (tests/e2e/wayland.sh).
TEST(WaylandAccessibilityTest, QtEditorSelectionIsReadNatively) {
    freedesktop::AtspiAccessibility accessibility;
    ASSERT_TRUE(accessibility.setAccessibilityEnabled(true));
    const testutil::ScopedEnv wayland("QT_QPA_PLATFORM", QStringLiteral("wayland"));
    const QString text = QStringLiteral("The quick brown fox");
    testutil::ChildProcess editor(QStringLiteral(MENDWISE_QT_TEXT_APP),
                                  {QStringLiteral("--select"), QStringLiteral("16,3"), text});
    // It says "ready" once sway has given its window the keyboard.
    ASSERT_TRUE(
        editor.waitForOutput([](const QByteArray& out) { return out.contains("ready\n"); }, 15s));
    const auto focusedText = [&](const char* attribute) {
        return x11test::focusedText(accessibility, editor.pid(), attribute);
    };
    std::optional<QString> seen;
    ASSERT_TRUE(testutil::waitUntil([&] { return (seen = focusedText("AXValue")) == text; }, 10s))
        << "text: " << seen.value_or(QStringLiteral("(nothing)")).toStdString();
    EXPECT_EQ(focusedText(axattr::selectedText), QStringLiteral("fox"));
}
