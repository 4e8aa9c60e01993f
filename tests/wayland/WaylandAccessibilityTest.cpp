// Reading the selection of a native Wayland client under sway through the accessibility bus:
// the Qt text app, text typed into it with wtype.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

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
    testutil::ChildProcess editor(QStringLiteral(MENDWISE_QT_TEXT_APP), {QString()});
    // It says "ready" once sway has given its window the keyboard.
    ASSERT_TRUE(
        editor.waitForOutput([](const QByteArray& out) { return out.contains("ready\n"); }, 15s));
    // The text under `attribute` of the editor's focused object.
    const auto focusedText = [&](const char* attribute) -> std::optional<QString> {
        const auto focused = accessibility.copyAttributeValue(
            accessibility.createApplication(editor.pid()), axattr::focusedUIElement);
        const auto value = accessibility.copyAttributeValue(focused.value, attribute);
        if (focused.error != ax::success || value.error != ax::success)
            return std::nullopt;
        return axString(value.value);
    };
    const auto wtype = [](const QStringList& arguments) {
        const auto typing = testutil::ChildProcess::run(QStringLiteral("wtype"), arguments);
        EXPECT_EQ(typing.exitCode, 0) << typing.err.toStdString();
    };
    const QString typed = QStringLiteral("The quick brown fox");
    wtype({typed});
    std::optional<QString> seen;
    ASSERT_TRUE(testutil::waitUntil([&] { return (seen = focusedText("AXValue")) == typed; }, 10s))
        << "text: " << seen.value_or(QStringLiteral("(nothing)")).toStdString();
    wtype(QStringLiteral("-M shift -k Left -k Left -k Left -m shift").split(u' '));
    EXPECT_TRUE(testutil::waitUntil([&] {
        return (seen = focusedText(axattr::selectedText)) == QStringLiteral("fox");
    })) << "selected: "
        << seen.value_or(QStringLiteral("(nothing)")).toStdString();
}
