// Reading the selection of native Wayland clients under sway through the accessibility bus:
// mousepad (GTK 3) and the Qt text app, text typed into them with wtype.
#include "platform/freedesktop/AtspiAccessibility.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/TestUtil.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
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

void wtype(const QStringList& arguments) {
    const auto result = testutil::ChildProcess::run(QStringLiteral("wtype"), arguments);
    ASSERT_TRUE(result.finished && result.exitCode == 0) << result.err.toStdString();
}

std::optional<QString> stringOf(const AXResult& result) {
    return result.error == ax::success ? axString(result.value) : std::nullopt;
}

// Selects a range through the object's own Text interface. GTK 3 acts on none of wtype's
// non-character keys (arrows, Backspace, Ctrl chords): wtype sends a new keymap every time.
// dbus-send rather than QtDBus: strings QtDBus makes on its thread look like races to
// ThreadSanitizer.
bool selectThroughAtspi(const AXRef& element, int start, int end) {
    const auto dbusSend = [](const QStringList& arguments) {
        return QString::fromUtf8(
            testutil::ChildProcess::run(QStringLiteral("dbus-send"),
                                        QStringList{QStringLiteral("--print-reply")} + arguments)
                .out);
    };
    const auto where = QRegularExpression(QStringLiteral("<AXUIElement (:[0-9.]+)(/\\S+)>"))
                           .match(axDescribe(element));
    const auto bus =
        QRegularExpression(QStringLiteral("string \"([^\"]+)\""))
            .match(dbusSend({QStringLiteral("--session"), QStringLiteral("--dest=org.a11y.Bus"),
                             QStringLiteral("/org/a11y/bus"),
                             QStringLiteral("org.a11y.Bus.GetAddress")}));
    return where.hasMatch() && bus.hasMatch() &&
           dbusSend({QString(QStringLiteral("--bus=") + bus.captured(1)),
                     QString(QStringLiteral("--dest=") + where.captured(1)), where.captured(2),
                     QStringLiteral("org.a11y.atspi.Text.AddSelection"),
                     QStringLiteral("int32:%1").arg(start), QStringLiteral("int32:%1").arg(end)})
               .contains(QLatin1String("boolean true"));
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
        wtype({typed});
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

    void expectSelection(const AXRef& focused, const QString& expected) {
        std::optional<QString> selected;
        EXPECT_TRUE(testutil::waitUntil([&] {
            selected = stringOf(accessibility.copyAttributeValue(focused, axattr::selectedText));
            return selected == expected;
        })) << "selected: "
            << selected.value_or(QStringLiteral("(nothing)")).toStdString();
    }

    freedesktop::AtspiAccessibility accessibility;
};

} // namespace

TEST_F(WaylandAccessibilityTest, GtkEditorSelectionIsReadNatively) {
    const QString path = QDir::home().filePath(QStringLiteral("empty.txt"));
    ASSERT_TRUE(QFile(path).open(QIODevice::WriteOnly));
    const testutil::ScopedEnv wayland("GDK_BACKEND", QStringLiteral("wayland"));
    testutil::ChildProcess mousepad(QStringLiteral("mousepad"),
                                    {QStringLiteral("--disable-server"), path});
    ASSERT_TRUE(mousepad.started());
    const AXRef focused = typeInto(mousepad.pid());
    ASSERT_NE(focused, nullptr);
    ASSERT_TRUE(selectThroughAtspi(focused, 4, 15));
    expectSelection(focused, QStringLiteral("quick brown"));
}

TEST_F(WaylandAccessibilityTest, QtEditorSelectionIsReadNatively) {
    const testutil::ScopedEnv wayland("QT_QPA_PLATFORM", QStringLiteral("wayland"));
    testutil::ChildProcess editor(QStringLiteral(MENDWISE_QT_TEXT_APP), {QString()});
    ASSERT_TRUE(editor.started());
    const AXRef focused = typeInto(editor.pid());
    ASSERT_NE(focused, nullptr);
    wtype({QStringLiteral("-M"), QStringLiteral("shift"), QStringLiteral("-k"),
           QStringLiteral("Left"), QStringLiteral("-k"), QStringLiteral("Left"),
           QStringLiteral("-k"), QStringLiteral("Left"), QStringLiteral("-m"),
           QStringLiteral("shift")});
    expectSelection(focused, QStringLiteral("fox"));
}
