#include "text/TextSelectionService.h"

#include "support/Background.h"
#include "support/Error.h"
#include "support/Graphemes.h"
#include "support/Log.h"
#include "text/TextSelectionError.h"

#include <QCoreApplication>
#include <initializer_list>

using platform::AXRef;
using platform::AXResult;
using platform::RunningApplication;

namespace {

const QString tag = QStringLiteral("[TextSelectionService] ");

QString separator() {
    return tag + QString(33, QChar(0x2500));
}

void say(const QString& message) {
    support::log(tag + message);
}

QString code(platform::AXError error) {
    return QString::number(error);
}

QString orNil(const std::optional<QString>& value) {
    return value ? *value : QStringLiteral("nil");
}

QString count(const QString& text) {
    return QString::number(support::graphemeCount(text));
}

// A readable account of an attribute value that was not a usable text.
QString describeValue(const AXRef& value) {
    if (const auto text = platform::axString(value))
        return u'"' + *text + u'"';
    return platform::axDescribe(value);
}

// The pasteboard's text, when the source application put it there. A clipboard manager that
// refills an emptied clipboard would otherwise pass its old entry off as the selection, which
// would then be rewritten and pasted over the user's text. Where the pasteboard cannot tell
// owners, or there is no source application, any text counts.
std::optional<QString> copiedBy(platform::PasteboardPort& pasteboard,
                                const std::optional<RunningApplication>& sourceApp) {
    if (!sourceApp)
        return pasteboard.string();
    const auto ownerBefore = pasteboard.ownerProcess();
    std::optional<QString> text = pasteboard.string();
    if (!ownerBefore)
        return text;
    // This process copies for applications that have no copy keystroke (xterm's PRIMARY).
    const bool fromSource =
        (*ownerBefore == sourceApp->processIdentifier ||
         *ownerBefore == static_cast<std::int32_t>(QCoreApplication::applicationPid())) &&
        pasteboard.ownerProcess() == ownerBefore;
    return fromSource ? text : std::nullopt;
}

} // namespace

TextSelectionService::TextSelectionService(platform::AccessibilityPort& accessibility,
                                           platform::PasteboardPort& pasteboard,
                                           platform::KeyboardEventsPort& keyboardEvents,
                                           platform::WorkspacePort& workspace, PasteRoad pasteRoad)
    : accessibility_(accessibility), pasteboard_(pasteboard), keyboardEvents_(keyboardEvents),
      workspace_(workspace), pasteRoad_(pasteRoad) {}

bool TextSelectionService::canPostKeystrokes() {
    return keyboardEvents_.canReachApplications();
}

QString TextSelectionService::frontmostBundle() {
    const auto front = workspace_.frontmostApplication();
    return orNil(front ? front->bundleIdentifier : std::nullopt);
}

QString TextSelectionService::copySelectedText(const std::optional<RunningApplication>& sourceApp,
                                               const std::stop_token& stop) {
    const bool hasBundle =
        sourceApp && sourceApp->bundleIdentifier && !sourceApp->bundleIdentifier->isEmpty();
    const QString bundle =
        hasBundle ? *sourceApp->bundleIdentifier : QStringLiteral("EMPTY ⚠️");
    const QString name = orNil(sourceApp ? sourceApp->localizedName : std::nullopt);
    const bool trusted = accessibility_.isProcessTrusted();
    support::log(separator() + u'\n' + tag + QStringLiteral("📋 copySelectedText BEGIN") +
                 QStringLiteral("\n  - sourceApp bundle:  ") + bundle +
                 QStringLiteral("\n  - sourceApp name:    ") + name +
                 QStringLiteral("\n  - AX trusted:        ") +
                 (trusted ? QStringLiteral("true") : QStringLiteral("false")) +
                 QStringLiteral("\n  - Current frontmost: ") + frontmostBundle());

    if (sourceApp) {
        say(QStringLiteral("🔍 Trying AX API for PID ") +
            QString::number(sourceApp->processIdentifier) + QStringLiteral("..."));
        if (auto text = readSelectedTextViaAX(sourceApp->processIdentifier)) {
            say(QStringLiteral("✅ AX SUCCESS — ") + count(*text) + QStringLiteral(" chars: ") +
                support::quotedPreview(*text));
            support::log(separator());
            return *std::move(text);
        }
        say(QStringLiteral("⚠️ AX returned nothing — falling back to CGEvent copy"));
    }
    return copyViaKeystroke(sourceApp, stop);
}

std::optional<QString> TextSelectionService::readSelectedTextViaAX(std::int32_t pid) {
    if (!accessibility_.isProcessTrusted()) {
        say(QStringLiteral("AX: ❌ NOT TRUSTED — open System Settings → Privacy & Security → "
                           "Accessibility and enable Mendwise, then QUIT and RELAUNCH the app"));
        return std::nullopt;
    }
    // Every element and value below is an owned reference, released when it goes out of scope
    // on whichever path returns.
    const AXRef application = accessibility_.createApplication(pid);
    {
        const AXResult windows = accessibility_.copyAttributeValue(
            application, QLatin1String(platform::axattr::windows));
        say(QStringLiteral("AX: kAXWindowsAttribute result: ") + code(windows.error) +
            QStringLiteral(" (0=success)"));
    }
    const AXResult focused = accessibility_.copyAttributeValue(
        application, QLatin1String(platform::axattr::focusedUIElement));
    say(QStringLiteral("AX: kAXFocusedUIElement result: ") + code(focused.error) +
        QStringLiteral(" (0=success)"));
    if (focused.error != platform::ax::success || !focused.value) {
        say(QStringLiteral("AX: could not get focused element (error ") + code(focused.error) +
            u')');
        return std::nullopt;
    }
    {
        const AXResult role =
            accessibility_.copyAttributeValue(focused.value, QLatin1String(platform::axattr::role));
        say(QStringLiteral("AX: focused element role: ") +
            platform::axString(role.value).value_or(QStringLiteral("unknown")));
    }
    const AXResult selected = accessibility_.copyAttributeValue(
        focused.value, QLatin1String(platform::axattr::selectedText));
    say(QStringLiteral("AX: kAXSelectedText result: ") + code(selected.error) +
        QStringLiteral(" (0=success)"));
    if (selected.error != platform::ax::success) {
        say(QStringLiteral("AX: could not read kAXSelectedTextAttribute (error ") +
            code(selected.error) + u')');
        return std::nullopt;
    }
    // Returned exactly as read: a selection of spaces is still a selection.
    if (auto text = platform::axString(selected.value); text && !text->isEmpty())
        return text;
    say(QStringLiteral("AX: attribute returned empty or non-string value: ") +
        describeValue(selected.value));
    return std::nullopt;
}

QString TextSelectionService::copyViaKeystroke(const std::optional<RunningApplication>& sourceApp,
                                               const std::stop_token& stop) {
    // Without keystrokes a copy can only fail, after emptying the user's clipboard for nothing.
    if (!canPostKeystrokes()) {
        say(QStringLiteral("❌ No synthetic copy: this desktop lets no program send keystrokes"));
        support::log(separator());
        throw TextSelectionError(TextSelectionError::noAccessibleText);
    }
    const std::optional<QString> saved = pasteboard_.string();
    say(QStringLiteral("📌 Pasteboard BEFORE clear: ") +
        (saved ? support::quotedPreview(*saved) : QStringLiteral("empty")));
    // Cleared first, so even a selection equal to the old contents shows up as new text.
    pasteboard_.clearContents();
    say(QStringLiteral("🧹 Pasteboard cleared"));

    try {
        say(QStringLiteral("⏱ Waiting 200ms for modifier keys to release..."));
        // The user may still be holding the trigger's modifiers; they would join the Command+C.
        support::sleepFor(stop, modifierReleaseWait);
        say(QStringLiteral("⏱ Done. Frontmost: ") + frontmostBundle());
        say(QStringLiteral("⌨️ Posting Cmd+C via CGEvent to PID ") +
            QString::number(sourceApp ? sourceApp->processIdentifier : -1) + QStringLiteral("..."));
        postCommandKeystroke(keyCodeC, sourceApp);
        // The desktop may have been asked only now, and said no: no copy will come.
        if (!canPostKeystrokes()) {
            if (saved)
                restorePasteboard(*saved);
            say(QStringLiteral("❌ No synthetic copy: the desktop did not let Mendwise type"));
            support::log(separator());
            throw TextSelectionError(TextSelectionError::noAccessibleText);
        }

        const auto deadline = std::chrono::steady_clock::now() + copyDeadline;
        while (std::chrono::steady_clock::now() < deadline) {
            support::sleepFor(stop, pollInterval);
            // Any non-empty text the source application put there counts; the change counter
            // is not compared.
            const std::optional<QString> copied = copiedBy(pasteboard_, sourceApp);
            if (copied && !copied->isEmpty()) {
                say(QStringLiteral("📋 Pasteboard AFTER copy: ") + support::quotedPreview(*copied));
                say(QStringLiteral("📋 Pasteboard change count: ") +
                    QString::number(pasteboard_.changeCount()));
                say(QStringLiteral("✅ copySelectedText SUCCESS — ") + count(*copied) +
                    QStringLiteral(" chars"));
                support::log(separator());
                return *copied;
            }
        }
    } catch (const support::CancellationError&) {
        // Nobody asked for the copy any more: give the user their clipboard text back.
        if (saved)
            restorePasteboard(*saved);
        throw;
    }

    say(QStringLiteral("📋 Pasteboard AFTER copy: still empty ⚠️"));
    say(QStringLiteral("📋 Pasteboard change count: ") + QString::number(pasteboard_.changeCount()));
    if (saved)
        restorePasteboard(*saved);
    say(QStringLiteral("❌ copySelectedText FAILED — throwing noTextSelected"));
    support::log(separator());
    throw TextSelectionError(TextSelectionError::noTextSelected);
}

void TextSelectionService::restorePasteboard(const QString& saved) {
    pasteboard_.replaceContents(saved);
    say(QStringLiteral("↩️ Restored previous pasteboard contents"));
}

void TextSelectionService::pasteText(const QString& text, const std::stop_token& stop) {
    say(QStringLiteral("📤 pasteText BEGIN — ") + count(text) + QStringLiteral(" chars"));
    pasteboard_.replaceContents(text);
    say(QStringLiteral("✅ Text written to pasteboard"));
    support::sleepFor(stop, pasteSettleWait);
    // Whoever is in front now receives the paste; the panel never took that place.
    const auto front = workspace_.frontmostApplication();
    if (pasteRoad_ == PasteRoad::accessibilityFirst && front &&
        replaceSelectionViaAX(front->processIdentifier, text)) {
        say(QStringLiteral("🛣 Paste road: accessibility — the selection of ") +
            orNil(front->bundleIdentifier) + QStringLiteral(" was replaced directly"));
        say(QStringLiteral("✅ pasteText END"));
        return;
    }
    if (!canPostKeystrokes()) {
        say(QStringLiteral("🛣 Paste road: none — the answer stays on the clipboard"));
        throw TextSelectionError(TextSelectionError::answerOnClipboard);
    }
    // Only where there is a choice of roads does the log say which one was taken.
    if (pasteRoad_ == PasteRoad::accessibilityFirst)
        say(QStringLiteral("🛣 Paste road: keystroke"));
    say(QStringLiteral("⌨️ Posting Cmd+V to: ") +
        orNil(front ? front->bundleIdentifier : std::nullopt));
    postCommandKeystroke(keyCodeV, front);
    if (!canPostKeystrokes()) {
        say(QStringLiteral("🛣 Paste road: none — the answer stays on the clipboard"));
        throw TextSelectionError(TextSelectionError::answerOnClipboard);
    }
    say(QStringLiteral("✅ pasteText END"));
}

bool TextSelectionService::replaceSelectionViaAX(std::int32_t pid, const QString& text) {
    if (!accessibility_.isProcessTrusted())
        return false;
    const AXRef application = accessibility_.createApplication(pid);
    const AXResult focused = accessibility_.copyAttributeValue(
        application, QLatin1String(platform::axattr::focusedUIElement));
    if (focused.error != platform::ax::success || !focused.value)
        return false;
    const platform::AXError written = accessibility_.setAttributeValue(
        focused.value, QLatin1String(platform::axattr::selectedText), platform::makeAX(text));
    if (written != platform::ax::success) {
        say(QStringLiteral("AX: could not replace the selection (error ") + code(written) + u')');
        return false;
    }
    return true;
}

void TextSelectionService::postCommandKeystroke(std::uint16_t keyCode,
                                                const std::optional<RunningApplication>& target) {
    const platform::EventSourceRef source =
        keyboardEvents_.createEventSource(platform::hidSystemState);
    const platform::KeyboardEventRef down =
        keyboardEvents_.createKeyboardEvent(source, keyCode, true);
    const platform::KeyboardEventRef up =
        keyboardEvents_.createKeyboardEvent(source, keyCode, false);
    for (const auto& event : {down, up}) {
        // Command alone: modifiers the user still holds must not turn this into another chord.
        if (event)
            platform::setEventFlags(event, platform::eventflags::command);
    }
    for (const auto& event : {down, up}) {
        if (!event)
            continue;
        if (target)
            keyboardEvents_.postToPid(target->processIdentifier, event);
        else
            keyboardEvents_.post(platform::hidEventTap, event);
    }
}
