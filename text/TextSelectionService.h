#pragma once

#include "platform/Accessibility.h"
#include "platform/Geometry.h"
#include "platform/KeyboardEvents.h"
#include "platform/Pasteboard.h"
#include "platform/Screens.h"
#include "platform/Workspace.h"

#include <QString>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>

// Exchanges text with the application the user is working in: reads its selection (through
// accessibility, or by sending it Command+C and watching the pasteboard) and pastes text back
// with Command+V. Holds no state of its own beyond the ports, so one instance serves every call
// and overlapping calls do not disturb each other (the pasteboard itself is shared, though).
//
// copySelectedText and pasteText block and must run on a background thread; their waits end
// early with support::CancellationError when `stop` is requested.
class TextSelectionService {
public:
    static constexpr std::chrono::milliseconds modifierReleaseWait{200};
    static constexpr std::chrono::milliseconds copyDeadline{500};
    static constexpr std::chrono::milliseconds pollInterval{50};
    static constexpr std::chrono::milliseconds pasteSettleWait{50};
    static constexpr std::uint16_t keyCodeC = 8;
    static constexpr std::uint16_t keyCodeV = 9;

    // Which way the answer goes into the application. Keystrokes (the clipboard and a
    // synthetic paste) are the way on X11; where keystrokes cannot be sent or are a detour
    // (Wayland), writing the selection through accessibility comes first.
    enum class PasteRoad { keystroke, accessibilityFirst };

    TextSelectionService(platform::AccessibilityPort& accessibility,
                         platform::PasteboardPort& pasteboard,
                         platform::KeyboardEventsPort& keyboardEvents,
                         platform::WorkspacePort& workspace,
                         PasteRoad pasteRoad = PasteRoad::keystroke);

    // The text selected in `sourceApp`, never empty. Throws TextSelectionError (noTextSelected)
    // when neither accessibility nor a synthetic copy produced text.
    QString copySelectedText(const std::optional<platform::RunningApplication>& sourceApp,
                             const std::stop_token& stop);

    // The selected text of the focused element of process `pid`, or none. Never fails.
    std::optional<QString> readSelectedTextViaAX(std::int32_t pid);

    // Puts `text` on the pasteboard and sends Command+V to the frontmost application, or
    // replaces its selection through accessibility (see PasteRoad). Where neither works, throws
    // TextSelectionError (answerOnClipboard): the answer stays on the clipboard for the user.
    void pasteText(const QString& text, const std::stop_token& stop);

    // Posts one Command+key down and up: to `target`'s process, or through the HID event tap.
    void postCommandKeystroke(std::uint16_t keyCode,
                              const std::optional<platform::RunningApplication>& target);

    // Where the selection of process `pid` is on screen, in global coordinates (origin
    // bottom-left): below its bounds, or below the focused control; none when unknown.
    static std::optional<platform::Point>
    selectionAnchor(std::int32_t pid, platform::AccessibilityPort& accessibility,
                    platform::ScreensPort& screens);

private:
    QString copyViaKeystroke(const std::optional<platform::RunningApplication>& sourceApp,
                             const std::stop_token& stop);
    void restorePasteboard(const QString& saved);
    QString frontmostBundle();
    // Whether synthetic keystrokes can be made on this desktop at all.
    bool canPostKeystrokes();
    // Writes `text` over the selection of the focused control of `pid` through accessibility.
    bool replaceSelectionViaAX(std::int32_t pid, const QString& text);

    platform::AccessibilityPort& accessibility_;
    platform::PasteboardPort& pasteboard_;
    platform::KeyboardEventsPort& keyboardEvents_;
    platform::WorkspacePort& workspace_;
    PasteRoad pasteRoad_;
};
