// The CLIPBOARD selection through the pasteboard port, checked against other X clients.
#include "platform/x11/X11Pasteboard.h"
#include "tests/common/TestUtil.h"
#include "tests/x11/DesktopApps.h"

#include <QProcess>
#include <gtest/gtest.h>
#include <thread>

using namespace std::chrono_literals;
using platform::x11::X11Pasteboard;

namespace {

using x11test::pastedElsewhere;

// xclip with these words on CLIPBOARD, `input` on its standard input.
std::optional<QString> xclip(const QString& words, const QByteArray& input = {}) {
    return x11test::run(QStringLiteral("xclip"),
                        QString(QStringLiteral("-selection clipboard ") + words).split(u' '), 10s,
                        input);
}

// Whether another client is offered text on CLIPBOARD (Qt offers UTF8_STRING with any text).
bool textOfferedElsewhere() {
    return xclip(QStringLiteral("-o -t TARGETS"))
        .value_or(QString())
        .split(u'\n')
        .contains(QStringLiteral("UTF8_STRING"));
}

// Another client takes CLIPBOARD with `bytes` as the given target; it serves until it loses it.
void copyElsewhere(const QByteArray& bytes, const QString& target = QStringLiteral("UTF8_STRING")) {
    ASSERT_TRUE(xclip(QStringLiteral("-i -t ") + target, bytes));
}

} // namespace

TEST(Pasteboard, TextGoesBothWaysBetweenThisProcessAndOtherClients) {
    X11Pasteboard pasteboard;
    auto count = pasteboard.changeCount();
    const QString text = QStringLiteral("Grüße, 世界 ✓ 👩‍👩‍👧");
    ASSERT_TRUE(pasteboard.setString(text));
    EXPECT_GT(pasteboard.changeCount(), count);
    EXPECT_EQ(pasteboard.string(), text);
    EXPECT_TRUE(pasteboard.types().contains(QStringLiteral("text/plain")));
    EXPECT_TRUE(textOfferedElsewhere());
    EXPECT_EQ(pastedElsewhere(), text);

    // Another owner's text is read and counted.
    count = pasteboard.changeCount();
    copyElsewhere("theirs");
    EXPECT_TRUE(testutil::waitUntil([&] { return pasteboard.changeCount() > count; }));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("theirs"));
    EXPECT_TRUE(pasteboard.types().contains(QStringLiteral("text/plain")));
    // Clearing must work while the selection belongs to someone else, and taking it back too.
    pasteboard.clearContents();
    EXPECT_EQ(pasteboard.string(), std::nullopt);
    EXPECT_FALSE(textOfferedElsewhere());
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("ours again")));
    EXPECT_EQ(pastedElsewhere(), QStringLiteral("ours again"));

    // Cleared while it is ours: counted, and nothing is offered any more.
    count = pasteboard.changeCount();
    pasteboard.clearContents();
    EXPECT_GT(pasteboard.changeCount(), count);
    EXPECT_EQ(pasteboard.string(), std::nullopt);
    EXPECT_TRUE(pasteboard.types().isEmpty());
    EXPECT_FALSE(textOfferedElsewhere());
}

// Another client copies while this process's event loop does not run (as when an editor
// answers a synthetic copy): Qt sees no event of the newer time. xclip serves from a child it
// forks, so its ownership is awaited too, still without running the event loop (each read
// bounded: until then this process owns the clipboard and cannot answer).
void copyElsewhereUnnoticed(const QString& text) {
    EXPECT_EQ(QProcess::execute(
                  QStringLiteral("sh"),
                  {QStringLiteral("-c"),
                   QStringLiteral("printf %1 | xclip -i -selection clipboard; for i in $(seq 50); "
                                  "do [ \"$(timeout 2 xclip -o -selection clipboard)\" = %1 ] "
                                  "&& exit; sleep 0.1; done; exit 1")
                       .arg(text)}),
              0)
        << "xclip never took the clipboard";
}

TEST(Pasteboard, TakingItBackWorksAfterACopyQtNeverHeardOf) {
    X11Pasteboard pasteboard;
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("before")));
    copyElsewhereUnnoticed("copied");
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("replacement")));
    EXPECT_EQ(pastedElsewhere(), QStringLiteral("replacement"));

    copyElsewhereUnnoticed("copied");
    pasteboard.clearContents();
    EXPECT_FALSE(textOfferedElsewhere());
}

TEST(Pasteboard, MalformedAndHugeContentsAreHandled) {
    X11Pasteboard pasteboard;
    // Invalid UTF-8 from another client decodes with replacement characters.
    copyElsewhere(QByteArray("ok \xff\xfe end"));
    ASSERT_TRUE(testutil::waitUntil([&] { return pasteboard.string().has_value(); }));
    EXPECT_EQ(pasteboard.string(), QStringLiteral("ok \uFFFD\uFFFD end"));

    // Only an image, no text: no string, but the flavour is there until cleared.
    copyElsewhere(QByteArray("\x89PNG\r\n\x1a\n", 8), QStringLiteral("image/png"));
    ASSERT_TRUE(testutil::waitUntil(
        [&] { return pasteboard.types().contains(QStringLiteral("image/png")); }));
    EXPECT_EQ(pasteboard.string(), std::nullopt);
    pasteboard.clearContents();
    EXPECT_TRUE(pasteboard.types().isEmpty());

    // Several megabytes travel in increments between clients.
    const QString huge = QString(qsizetype{3} * 1024 * 1024, u'x') + QStringLiteral("end");
    ASSERT_TRUE(pasteboard.setString(huge));
    const auto elsewhere = pastedElsewhere();
    ASSERT_TRUE(elsewhere);
    EXPECT_EQ(elsewhere->size(), huge.size());
    EXPECT_TRUE(elsewhere->endsWith(QLatin1String("xend")));
}

TEST(Pasteboard, AWorkerGivesUpWhenTheGuiThreadNeverComes) {
    X11Pasteboard pasteboard(200ms);
    ASSERT_TRUE(pasteboard.setString(QStringLiteral("kept")));
    std::optional<QString> readBack = QStringLiteral("unset");
    bool wrote = true;
    // This (GUI) thread blocks on the worker: the worker's hops cannot run and must time out.
    std::thread worker([&] {
        readBack = pasteboard.string();
        wrote = pasteboard.setString(QStringLiteral("lost"));
        pasteboard.clearContents();
    });
    worker.join();
    EXPECT_EQ(readBack, std::nullopt);
    EXPECT_FALSE(wrote);
    // The abandoned work never runs later.
    testutil::processEventsFor(100ms);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("kept"));
}
