#pragma once

// The simulated desktop: an in-memory implementation of the accessibility, pasteboard,
// keyboard-events, workspace and screens ports, for tests. It is one object that is all five
// ports at once, so a component under test takes it in place of each port:
//
//   platform::sim::SimDesktop desktop;
//   TextSelectionService service(desktop, desktop, desktop, desktop);
//
// A fresh desktop: trusted, no applications, nothing frontmost, an empty pasteboard, one
// 1440 x 900 screen (visible frame 0, 0, 1440, 875) that is also the main screen, the mouse at
// (720, 450).
//
// Scripting (every method may be called from any thread; the ports are called from background
// threads while a test scripts the desktop from the main thread):
//
//   desktop.addApplication({.processIdentifier = 42,
//                           .bundleIdentifier = QStringLiteral("org.example.editor"),
//                           .localizedName = QStringLiteral("Editor")});
//   desktop.setFrontmost(42);                       // std::nullopt: no application in front
//   desktop.setText(42, QStringLiteral("Hello wrld"), {6, 4});   // focused element's text and
//                                                   // selected range (UTF-16 units)
//   desktop.setSelectedText(42, QStringLiteral("wrld"));         // text that is all selected
//
// Accessibility. Each application has an application element and (unless
// setFocusedElement(pid, false)) a focused element. They answer from the model above: the
// application "AXRole", "AXTitle", "AXWindows" (one window), "AXFocusedUIElement"; the focused
// element "AXRole" (setRole, default "AXTextArea"), "AXValue", "AXSelectedText",
// "AXSelectedTextRange", "AXPosition" and "AXSize" (from setElementFrame, accessibility
// coordinates), and the parameterized "AXBoundsForRange" (from setSelectionBounds). Anything
// else is ax::attributeUnsupported. Any answer can be replaced:
//
//   desktop.setAnswer(42, Element::focused, "AXSelectedText", AXAnswer::with(QString("  ")));
//   desktop.setAnswer(42, Element::application, "AXFocusedUIElement", AXAnswer::noValue());
//   desktop.setAnswer(42, Element::focused, "AXBoundsForRange",
//                     AXAnswer::failure(ax::cannotComplete));
//
// setTrusted(false) makes every attribute read fail with ax::apiDisabled; trustPromptCount()
// counts isProcessTrustedWithPrompt calls. accessibilityCalls() / accessibilityCallLog() list
// every call made, in order, e.g. "createApplication 42", "read 42 focused AXRole".
// Every value handed out is a fresh object, so AXObject::liveCount() shows what a caller keeps.
//
// Keystrokes. Every posted event is logged (postedEvents()). A key-down of C (8) with Command
// and no Shift, Control or Option, delivered to an application (posted to its pid, or through a tap
// while it is frontmost), makes it copy as setCopyBehaviour says: its selection (the default;
// nothing when the selection is empty), a fixed or empty text, or never, after an optional delay. A
// key-down of V (9) with Command replaces its selection with the pasteboard's text, leaving the
// caret after it (setAnswersPaste(pid, false) to ignore it). With no delay the answer happens
// inside the post call. setHeldModifiers(flags) stands for keys the user holds down: events created
// from a hardware-state source start with those flags, as real ones do.
// setKeyboardEventCreationFails / setEventSourceCreationFails make creation fail.
//
// Pasteboard. The port's own calls script it (clearContents, setString); putOnPasteboard adds
// another flavour, e.g. putOnPasteboard("image/png", bytes), which clearContents removes.
//
// Screens and workspace. setScreens(list, mainIndex) (mainIndex std::nullopt: no main screen),
// setMouseLocation, openedURLs / openedFolders and setOpenSucceeds.

#include "platform/Accessibility.h"
#include "platform/KeyboardEvents.h"
#include "platform/Pasteboard.h"
#include "platform/Screens.h"
#include "platform/Workspace.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace platform::sim {

// The elements of a simulated application that attributes can be read from.
enum class Element { application, focused, window };

// A scripted answer to an attribute read: an error code and, on success, a value.
struct AXAnswer {
    AXError error = ax::success;
    std::optional<AXObject::Payload> value;

    static AXAnswer with(AXObject::Payload value) { return {ax::success, std::move(value)}; }
    static AXAnswer noValue() { return {ax::success, std::nullopt}; }
    static AXAnswer failure(AXError code) { return {code, std::nullopt}; }
};

// One call made through the accessibility port.
struct AXCall {
    enum class Kind {
        isProcessTrusted,
        isProcessTrustedWithPrompt,
        createApplication,
        copyAttributeValue,
        copyParameterizedAttributeValue,
        setAttributeValue,
    };
    Kind kind = Kind::isProcessTrusted;
    std::int32_t pid = -1;          // the application the element belongs to
    std::optional<Element> element; // for reads of one of our elements
    QString attribute;

    // "isProcessTrusted", "createApplication 42", "read 42 focused AXRole",
    // "readParameterized 42 focused AXBoundsForRange".
    [[nodiscard]] QString toString() const;
    // Whether the call reached an application (anything but a trust test).
    [[nodiscard]] bool touchesApplication() const {
        return kind != Kind::isProcessTrusted && kind != Kind::isProcessTrustedWithPrompt;
    }
};

// How an application answers a synthetic Command+C.
struct CopyBehaviour {
    enum class Kind { selection, fixedText, never };
    Kind kind = Kind::selection;
    QString text; // for fixedText
    std::chrono::milliseconds delay{0};

    static CopyBehaviour selection(std::chrono::milliseconds after = {}) {
        return {Kind::selection, {}, after};
    }
    static CopyBehaviour fixedText(QString copied, std::chrono::milliseconds after = {}) {
        return {Kind::fixedText, std::move(copied), after};
    }
    static CopyBehaviour emptyText(std::chrono::milliseconds after = {}) {
        return fixedText({}, after);
    }
    static CopyBehaviour never() { return {Kind::never, {}, {}}; }
};

// One event handed to the keyboard-events port.
struct PostedEvent {
    std::uint16_t virtualKey = 0;
    bool keyDown = false;
    CGEventFlags flags = 0;
    std::optional<std::int32_t> targetPid;   // posted to this process
    std::optional<int> tap;                  // posted through this event tap
    int sourceState = -1;                    // state of the event's source; -1 without one
    std::optional<std::int32_t> deliveredTo; // the application that received it
};

class SimDesktop : public AccessibilityPort,
                   public PasteboardPort,
                   public KeyboardEventsPort,
                   public WorkspacePort,
                   public ScreensPort {
public:
    SimDesktop();
    ~SimDesktop() override;
    SimDesktop(const SimDesktop&) = delete;
    SimDesktop& operator=(const SimDesktop&) = delete;

    // --- Applications -------------------------------------------------------------------
    // Adds (or replaces) an application; it starts with a focused, empty text element.
    void addApplication(const RunningApplication& app);
    void removeApplication(std::int32_t pid);
    // The application in front; std::nullopt (or an unknown pid) for none.
    void setFrontmost(std::optional<std::int32_t> pid);

    void setFocusedElement(std::int32_t pid, bool present);
    void setRole(std::int32_t pid, const QString& role);
    void setText(std::int32_t pid, const QString& text, CFRange selection = {});
    void setSelectedText(std::int32_t pid, const QString& text);
    [[nodiscard]] QString text(std::int32_t pid) const;
    [[nodiscard]] CFRange selectedRange(std::int32_t pid) const;
    [[nodiscard]] QString selectedText(std::int32_t pid) const;
    // Accessibility geometry (origin top-left, y down); std::nullopt: not known.
    void setElementFrame(std::int32_t pid, std::optional<Rect> frame);
    void setSelectionBounds(std::int32_t pid, std::optional<Rect> bounds);

    void setAnswer(std::int32_t pid, Element element, const QString& attribute, AXAnswer answer);
    void clearAnswer(std::int32_t pid, Element element, const QString& attribute);

    void setCopyBehaviour(std::int32_t pid, CopyBehaviour behaviour);
    void setAnswersPaste(std::int32_t pid, bool answers);
    // Whether writing "AXSelectedText" of the focused control replaces its selection.
    void setEditable(std::int32_t pid, bool editable);

    // --- Accessibility trust and call record -------------------------------------------
    void setTrusted(bool trusted);
    // Whether the prompt grants trust at once, as a desktop whose accessibility support the
    // prompt switches on.
    void setPromptGrantsTrust(bool grants);
    [[nodiscard]] int trustPromptCount() const;
    [[nodiscard]] std::vector<AXCall> accessibilityCalls() const;
    [[nodiscard]] QStringList accessibilityCallLog() const;
    void clearAccessibilityCalls();

    // --- Keyboard events -----------------------------------------------------------------
    [[nodiscard]] std::vector<PostedEvent> postedEvents() const;
    void clearPostedEvents();
    void setKeyboardEventCreationFails(bool keyDown, bool keyUp);
    void setEventSourceCreationFails(bool fails);
    // A desktop where synthetic keystrokes reach no application (Wayland without a channel).
    void setKeystrokesReachApplications(bool reach);
    // Modifiers held on the keyboard; new events from a hidSystemState source carry them.
    void setHeldModifiers(CGEventFlags flags);

    // --- Pasteboard ----------------------------------------------------------------------
    // Adds a flavour beside what is there (like a second setData:forType:).
    void putOnPasteboard(const QString& type, const QByteArray& data);
    [[nodiscard]] std::optional<QByteArray> pasteboardData(const QString& type) const;

    // --- Screens and mouse ---------------------------------------------------------------
    void setScreens(std::vector<Screen> screens, std::optional<std::size_t> mainIndex = 0);
    void setMouseLocation(Point location);

    // --- Workspace -----------------------------------------------------------------------
    [[nodiscard]] QList<QUrl> openedURLs() const;
    [[nodiscard]] QStringList openedFolders() const;
    void setOpenSucceeds(bool succeeds);

    // --- AccessibilityPort ---------------------------------------------------------------
    bool isProcessTrusted() override;
    bool isProcessTrustedWithPrompt() override;
    AXRef createApplication(std::int32_t pid) override;
    AXResult copyAttributeValue(const AXRef& element, const QString& attribute) override;
    AXResult copyParameterizedAttributeValue(const AXRef& element, const QString& attribute,
                                             const AXRef& parameter) override;
    AXError setAttributeValue(const AXRef& element, const QString& attribute,
                              const AXRef& value) override;

    // --- PasteboardPort ------------------------------------------------------------------
    std::optional<QString> string() override;
    void clearContents() override;
    bool setString(const QString& text) override;
    std::int64_t changeCount() override;
    QStringList types() override;

    // --- KeyboardEventsPort --------------------------------------------------------------
    EventSourceRef createEventSource(int stateId) override;
    KeyboardEventRef createKeyboardEvent(const EventSourceRef& source, std::uint16_t virtualKey,
                                         bool keyDown) override;
    void postToPid(std::int32_t pid, const KeyboardEventRef& event) override;
    void post(int tap, const KeyboardEventRef& event) override;
    [[nodiscard]] bool canReachApplications() const override;

    // --- WorkspacePort -------------------------------------------------------------------
    std::optional<RunningApplication> frontmostApplication() override;
    bool openURL(const QUrl& url) override;
    bool openFolder(const QString& path) override;

    // --- ScreensPort ---------------------------------------------------------------------
    std::vector<Screen> screens() override;
    std::optional<Screen> mainScreen() override;
    Point mouseLocation() override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace platform::sim
