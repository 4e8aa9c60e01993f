#pragma once

#include "platform/sim/SimDesktop.h"
#include "support/Log.h"
#include "tests/common/TestUtil.h"
#include "text/TextSelectionError.h"
#include "text/TextSelectionService.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <gtest/gtest.h>

// A simulated desktop with one editor in front, the service under test, and a log capture.
// Every test ends with no accessibility value or keyboard event left alive.
class TextExchangeTest : public ::testing::Test {
protected:
    static constexpr std::int32_t editorPid = 42;

    void SetUp() override {
        desktop.addApplication(editor);
        desktop.setFrontmost(editorPid);
        axBaseline = platform::AXObject::liveCount();
        eventBaseline = platform::KeyboardEvent::live().load();
    }

    void TearDown() override {
        EXPECT_EQ(platform::AXObject::liveCount(), axBaseline) << "accessibility values leaked";
        EXPECT_EQ(platform::KeyboardEvent::live().load(), eventBaseline) << "events leaked";
    }

    // Runs `work` on a thread of its own, as the service is meant to be called, and returns
    // its result (or rethrows what it threw).
    template <typename Work> static auto inBackground(Work work) {
        return std::async(std::launch::async, std::move(work)).get();
    }

    // The case `work` failed with, run as above; none when it succeeded.
    template <typename Work> static std::optional<TextSelectionError::Case> failureOf(Work work) {
        try {
            inBackground(std::move(work));
        } catch (const TextSelectionError& error) {
            return error.errorCase();
        }
        return std::nullopt;
    }

    // The two events of a Command chord sent since the last clear: down then up, Command alone,
    // from a hardware-state source, to `target` (through the event tap when none) and received
    // by `receiver`.
    void expectCommandChord(std::uint16_t key, std::optional<std::int32_t> target,
                            std::optional<std::int32_t> receiver) const {
        const auto events = desktop.postedEvents();
        ASSERT_EQ(events.size(), 2U);
        EXPECT_TRUE(events[0].keyDown);
        EXPECT_FALSE(events[1].keyDown);
        for (const auto& event : events) {
            EXPECT_EQ(event.virtualKey, key);
            EXPECT_EQ(event.flags, platform::eventflags::command);
            EXPECT_EQ(event.targetPid, target);
            EXPECT_EQ(event.tap, target ? std::nullopt : std::optional(0));
            EXPECT_EQ(event.sourceState, 1);
            EXPECT_EQ(event.deliveredTo, receiver);
        }
    }

    static QString separator() {
        return QStringLiteral("[TextSelectionService] ") + QString(33, QChar(0x2500));
    }

    const platform::RunningApplication editor{editorPid, QStringLiteral("org.example.editor"),
                                              QStringLiteral("Editor")};
    platform::sim::SimDesktop desktop;
    TextSelectionService service{desktop, desktop, desktop, desktop};
    support::LogCapture logs;

private:
    std::int64_t axBaseline = 0;
    std::int64_t eventBaseline = 0;
};
