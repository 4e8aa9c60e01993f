#pragma once

// Internal to the simulated desktop: its state, shared by the files that implement the ports.

#include "platform/sim/SimDesktop.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace platform::sim {

// An element of a simulated application, as handed out through the accessibility port.
class SimElement : public AXElementImpl {
public:
    SimElement(std::int32_t pid, Element kind) : pid_(pid), kind_(kind) {}
    [[nodiscard]] QString describe() const override;
    [[nodiscard]] std::int32_t pid() const { return pid_; }
    [[nodiscard]] Element kind() const { return kind_; }

private:
    std::int32_t pid_;
    Element kind_;
};

class SimEventSource : public EventSource {
public:
    explicit SimEventSource(int state) : state_(state) {}
    [[nodiscard]] int state() const { return state_; }

private:
    int state_;
};

struct SimApplication {
    RunningApplication info;
    bool hasFocusedElement = true;
    QString role = QStringLiteral("AXTextArea");
    QString text;
    CFRange selection;
    std::optional<Rect> elementFrame;
    std::optional<Rect> selectionBounds;
    std::map<std::pair<Element, QString>, AXAnswer> answers;
    CopyBehaviour copy;
    bool answersPaste = true;
    // Whether the focused control takes text written to its selection through accessibility.
    bool editable = false;

    // The selected range, kept inside the text.
    [[nodiscard]] std::pair<qsizetype, qsizetype> clampedSelection() const;
    [[nodiscard]] QString selected() const;
};

// Runs actions later, in order of their due time, on its own thread. Destroying it stops the
// thread; actions not yet due are dropped.
class Scheduler {
public:
    Scheduler();
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    void schedule(std::chrono::steady_clock::duration delay, std::function<void()> action);

private:
    void run(const std::stop_token& stop);

    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> queue_;
    std::jthread thread_; // last: starts once the queue exists, stops before it goes
};

struct SimDesktop::State {
    mutable std::mutex mutex;

    std::map<std::int32_t, SimApplication> applications;
    std::optional<std::int32_t> frontmost;

    bool trusted = true;
    bool promptGrantsTrust = false;
    int trustPrompts = 0;
    std::vector<AXCall> axCalls;

    std::optional<QString> plainText;
    std::map<QString, QByteArray> flavours;
    std::int64_t changeCount = 0;

    std::vector<PostedEvent> events;
    bool keyDownFails = false;
    bool keyUpFails = false;
    bool sourceFails = false;
    bool keystrokesReach = true;
    CGEventFlags heldModifiers = 0;
    // Which source each live event was created from, to log its state when posted.
    std::map<const KeyboardEvent*, std::pair<std::weak_ptr<KeyboardEvent>, int>> eventSources;

    std::vector<Screen> screenList;
    std::optional<std::size_t> mainIndex;
    Point mouse;

    QList<QUrl> urls;
    QStringList folders;
    bool openSucceeds = true;

    Scheduler scheduler; // last: destroyed first, so no late action meets a dying state

    // The helpers below expect `mutex` to be held.
    SimApplication* find(std::int32_t pid);
    // Records an attribute read and gives the answers every read shares: failure for an
    // untrusted process or an element that is not ours or is gone, or the scripted answer. None
    // when the element's own attributes decide; `target` and `app` are then set.
    std::optional<AXResult> commonAttributeAnswer(AXCall::Kind kind, const AXRef& element,
                                                  const QString& attribute,
                                                  const SimElement*& target,
                                                  const SimApplication*& app);
    void clearPasteboard();
    void writeString(const QString& text);
    void record(const KeyboardEventRef& event, std::optional<std::int32_t> targetPid,
                std::optional<int> tap, std::optional<std::int32_t> deliveredTo);
    // An application reacting to a key event delivered to it.
    void react(std::int32_t pid, const KeyboardEvent& event);
    void performCopy(std::int32_t pid, const CopyBehaviour& behaviour);
    void performPaste(std::int32_t pid);
};

} // namespace platform::sim
