// Who made a clipboard change, as the Wayland clipboard guesses it from its watcher and the
// copy keystroke, against sway's real data-control clipboard.
#include "platform/wayland/WaylandPasteboard.h"

#include <gtest/gtest.h>
#include <thread>

using platform::wayland::WaylandPasteboard;
using namespace std::chrono_literals;

namespace {

constexpr std::int32_t editor = 4242;

struct OwnerCase {
    const char* name;
    bool refillBeforeKeystroke; // a clipboard manager puts the old text back early...
    const char* afterKeystroke; // ...and this text arrives after the keystroke (none: nothing)
    std::int32_t early;         // the owner seen before the copy counts as late
    std::int32_t late;          // and after
};

class WaylandOwnerTest : public ::testing::TestWithParam<OwnerCase> {};

// The first answer that differs from -1 within `span`, else -1.
std::int32_t ownerWithin(WaylandPasteboard& pasteboard, std::chrono::milliseconds span) {
    const auto end = std::chrono::steady_clock::now() + span;
    std::int32_t owner = -1;
    while (owner == -1 && std::chrono::steady_clock::now() < end) {
        owner = pasteboard.ownerProcess().value_or(-2);
        std::this_thread::sleep_for(20ms);
    }
    return owner;
}

TEST_P(WaylandOwnerTest, TakesOnlyTheApplicationsCopy) {
#if defined(__SANITIZE_THREAD__)
    // wl-copy and wl-paste run through QProcess, which forks the way ThreadSanitizer cannot
    // follow: the next thread started would abort the program.
    GTEST_SKIP() << "not under ThreadSanitizer";
#endif
    const OwnerCase& c = GetParam();
    WaylandPasteboard pasteboard;
    WaylandPasteboard other; // another client: the editor, or a clipboard manager
    ASSERT_TRUE(pasteboard.watchChanges()) << "sway offers data-control";
    ASSERT_TRUE(other.setString(QStringLiteral("the user's old text")));
    std::this_thread::sleep_for(100ms); // the watcher has reported it

    pasteboard.clearContents();
    if (c.refillBeforeKeystroke) {
        ASSERT_TRUE(other.setString(QStringLiteral("the user's old text")));
    }
    std::this_thread::sleep_for(100ms);
    pasteboard.noteKeystroke(editor);
    if (c.afterKeystroke) {
        ASSERT_TRUE(other.setString(QString::fromUtf8(c.afterKeystroke)));
    }

    EXPECT_EQ(ownerWithin(pasteboard, 200ms), c.early);
    std::this_thread::sleep_until(std::chrono::steady_clock::now() + WaylandPasteboard::lateCopy);
    EXPECT_EQ(pasteboard.ownerProcess(), c.late);
}

const OwnerCase ownerCases[] = {
    {"NewTextIsTheCopy", false, "the selection", editor, editor},
    {"RefillAfterTheKeystrokeIsBelievedOnlyLate", false, "the user's old text", -1, editor},
    {"RefillBeforeTheKeystrokeIsNobodys", true, nullptr, -1, -1},
    {"CopyAfterAnEarlyRefill", true, "the selection", editor, editor},
    {"NothingCameAfterTheClearing", false, nullptr, -1, -1},
};

INSTANTIATE_TEST_SUITE_P(Clipboard, WaylandOwnerTest, ::testing::ValuesIn(ownerCases),
                         [](const auto& param) { return std::string(param.param.name); });

} // namespace
