// Reading the selection of a native Wayland client under sway through the accessibility bus:
// the Qt text app, text typed into it with wtype.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

#ifndef MENDWISE_QT_TEXT_APP
#error "the build names the Qt text app"
#endif

using namespace platform;
using namespace std::chrono_literals;

namespace {

const QString typed = QStringLiteral("The quick brown fox");

// This program needs no window, so it is no Wayland client: at exit Qt 6.4's Wayland plugin
// races with its own event thread, which ThreadSanitizer reports. This is set before main
// creates the QApplication; the applications under test are told to use Wayland when started.
[[maybe_unused]] const bool offscreen = qputenv("QT_QPA_PLATFORM", "offscreen");

// The pid of the window sway gives the keyboard focus to, -1 when none.
qint64 focusedPid(const QJsonObject& node) {
    if (node.value(QStringLiteral("focused")).toBool() && node.contains(QStringLiteral("pid")))
        return node.value(QStringLiteral("pid")).toInteger();
    for (const char* key : {"nodes", "floating_nodes"})
        for (const auto child : node.value(QLatin1String(key)).toArray())
            if (const qint64 pid = focusedPid(child.toObject()); pid > 0)
                return pid;
    return -1;
}

qint64 focusedPid() {
    const auto tree = testutil::ChildProcess::run(
        QStringLiteral("swaymsg"), {QStringLiteral("-t"), QStringLiteral("get_tree")});
    return focusedPid(QJsonDocument::fromJson(tree.out).object());
}

std::optional<QString> stringOf(const AXResult& result) {
    return result.error == ax::success ? axString(result.value) : std::nullopt;
}

class WaylandAccessibilityTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(accessibility.setAccessibilityEnabled(true)); }

    // Types into the app of `pid` once sway has focused it; the focused text object.
    AXRef typeInto(qint64 pid) {
        if (!testutil::waitUntil([&] { return focusedPid() == pid; }, 15s)) {
            ADD_FAILURE() << "sway never focused the window of " << pid;
            return nullptr;
        }
        const auto typing = testutil::ChildProcess::run(QStringLiteral("wtype"), {typed});
        EXPECT_EQ(typing.exitCode, 0) << typing.err.toStdString();
        AXRef focused;
        const bool holdsText = testutil::waitUntil(
            [&] {
                const auto app = accessibility.createApplication(static_cast<std::int32_t>(pid));
                const auto result = accessibility.copyAttributeValue(app, axattr::focusedUIElement);
                focused = result.error == ax::success ? result.value : nullptr;
                return focused && stringOf(accessibility.copyAttributeValue(focused, "AXValue")) ==
                                      std::optional(typed);
            },
            10s);
        if (!holdsText)
            ADD_FAILURE() << "no focused object holding the typed text";
        return holdsText ? focused : nullptr;
    }

    freedesktop::AtspiAccessibility accessibility;
};

} // namespace

// GTK 3 is checked on the same road by the Wayland end-to-end test (tests/e2e/wayland.sh).
TEST_F(WaylandAccessibilityTest, QtEditorSelectionIsReadNatively) {
    const testutil::ScopedEnv wayland("QT_QPA_PLATFORM", QStringLiteral("wayland"));
    testutil::ChildProcess editor(QStringLiteral(MENDWISE_QT_TEXT_APP), {QString()});
    ASSERT_TRUE(editor.started());
    const AXRef focused = typeInto(editor.pid());
    ASSERT_NE(focused, nullptr);
    ASSERT_EQ(testutil::ChildProcess::run(
                  QStringLiteral("wtype"),
                  QStringLiteral("-M shift -k Left -k Left -k Left -m shift").split(u' '))
                  .exitCode,
              0);
    std::optional<QString> selected;
    EXPECT_TRUE(testutil::waitUntil([&] {
        selected = stringOf(accessibility.copyAttributeValue(focused, axattr::selectedText));
        return selected == QStringLiteral("fox");
    })) << "selected: "
        << selected.value_or(QStringLiteral("(nothing)")).toStdString();
}
