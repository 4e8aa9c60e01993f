#include "platform/sim/SimDesktop.h"

#include "platform/sim/SimDesktopState.h"

#include <algorithm>

namespace platform::sim {

// --- Scheduler ---------------------------------------------------------------------------

Scheduler::Scheduler() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

Scheduler::~Scheduler() {
    thread_.request_stop();
    thread_.join();
}

void Scheduler::schedule(std::chrono::steady_clock::duration delay, std::function<void()> action) {
    {
        const std::lock_guard lock(mutex_);
        queue_.emplace(std::chrono::steady_clock::now() + delay, std::move(action));
    }
    wake_.notify_all();
}

void Scheduler::run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        if (queue_.empty()) {
            wake_.wait(lock, stop, [this] { return !queue_.empty(); });
            continue;
        }
        const auto due = queue_.begin()->first;
        if (std::chrono::steady_clock::now() < due) {
            // Wake early only for something due sooner.
            wake_.wait_until(lock, stop, due, [this, due] {
                return !queue_.empty() && queue_.begin()->first < due;
            });
            continue;
        }
        auto action = std::move(queue_.begin()->second);
        queue_.erase(queue_.begin());
        lock.unlock();
        action();
        lock.lock();
    }
}

// --- Model -------------------------------------------------------------------------------

std::pair<qsizetype, qsizetype> SimApplication::clampedSelection() const {
    const auto size = static_cast<std::int64_t>(text.size());
    const auto start = std::clamp<std::int64_t>(selection.location, 0, size);
    const auto length = std::clamp<std::int64_t>(selection.length, 0, size - start);
    return {static_cast<qsizetype>(start), static_cast<qsizetype>(length)};
}

QString SimApplication::selected() const {
    const auto [start, length] = clampedSelection();
    return text.mid(start, length);
}

SimApplication* SimDesktop::State::find(std::int32_t pid) {
    const auto it = applications.find(pid);
    return it == applications.end() ? nullptr : &it->second;
}

void SimDesktop::State::clearPasteboard() {
    plainText.reset();
    flavours.clear();
    ++changeCount;
}

void SimDesktop::State::writeString(const QString& text) {
    plainText = text;
    ++changeCount;
}

SimDesktop::SimDesktop() : state_(std::make_unique<State>()) {
    state_->screenList = {Screen{{0, 0, 1440, 900}, {0, 0, 1440, 875}}};
    state_->mainIndex = 0;
    state_->mouse = {720, 450};
}

SimDesktop::~SimDesktop() = default;

// --- Applications --------------------------------------------------------------------------

void SimDesktop::addApplication(const RunningApplication& app) {
    const std::lock_guard lock(state_->mutex);
    SimApplication simulated;
    simulated.info = app;
    state_->applications.insert_or_assign(app.processIdentifier, std::move(simulated));
}

void SimDesktop::removeApplication(std::int32_t pid) {
    const std::lock_guard lock(state_->mutex);
    state_->applications.erase(pid);
    if (state_->frontmost == pid)
        state_->frontmost.reset();
}

void SimDesktop::setFrontmost(std::optional<std::int32_t> pid) {
    const std::lock_guard lock(state_->mutex);
    state_->frontmost = pid;
}

void SimDesktop::setFocusedElement(std::int32_t pid, bool present) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->hasFocusedElement = present;
}

void SimDesktop::setRole(std::int32_t pid, const QString& role) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->role = role;
}

void SimDesktop::setText(std::int32_t pid, const QString& text, CFRange selection) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid)) {
        app->text = text;
        app->selection = selection;
    }
}

void SimDesktop::setSelectedText(std::int32_t pid, const QString& text) {
    setText(pid, text, {0, static_cast<std::int64_t>(text.size())});
}

QString SimDesktop::text(std::int32_t pid) const {
    const std::lock_guard lock(state_->mutex);
    const auto* app = state_->find(pid);
    return app ? app->text : QString();
}

CFRange SimDesktop::selectedRange(std::int32_t pid) const {
    const std::lock_guard lock(state_->mutex);
    const auto* app = state_->find(pid);
    return app ? app->selection : CFRange{};
}

QString SimDesktop::selectedText(std::int32_t pid) const {
    const std::lock_guard lock(state_->mutex);
    const auto* app = state_->find(pid);
    return app ? app->selected() : QString();
}

void SimDesktop::setElementFrame(std::int32_t pid, std::optional<Rect> frame) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->elementFrame = frame;
}

void SimDesktop::setSelectionBounds(std::int32_t pid, std::optional<Rect> bounds) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->selectionBounds = bounds;
}

void SimDesktop::setAnswer(std::int32_t pid, Element element, const QString& attribute,
                           AXAnswer answer) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->answers.insert_or_assign({element, attribute}, std::move(answer));
}

void SimDesktop::clearAnswer(std::int32_t pid, Element element, const QString& attribute) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->answers.erase({element, attribute});
}

void SimDesktop::setCopyBehaviour(std::int32_t pid, CopyBehaviour behaviour) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->copy = std::move(behaviour);
}

void SimDesktop::setAnswersPaste(std::int32_t pid, bool answers) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->answersPaste = answers;
}

void SimDesktop::setEditable(std::int32_t pid, bool editable) {
    const std::lock_guard lock(state_->mutex);
    if (auto* app = state_->find(pid))
        app->editable = editable;
}

// --- Pasteboard ------------------------------------------------------------------------------

void SimDesktop::putOnPasteboard(const QString& type, const QByteArray& data) {
    const std::lock_guard lock(state_->mutex);
    if (type == QLatin1String(plainTextType))
        state_->plainText = QString::fromUtf8(data);
    else
        state_->flavours.insert_or_assign(type, data);
    ++state_->changeCount;
}

std::optional<QByteArray> SimDesktop::pasteboardData(const QString& type) const {
    const std::lock_guard lock(state_->mutex);
    if (type == QLatin1String(plainTextType)) {
        if (state_->plainText)
            return state_->plainText->toUtf8();
        return std::nullopt;
    }
    const auto it = state_->flavours.find(type);
    if (it == state_->flavours.end())
        return std::nullopt;
    return it->second;
}

std::optional<QString> SimDesktop::string() {
    const std::lock_guard lock(state_->mutex);
    return state_->plainText;
}

void SimDesktop::clearContents() {
    const std::lock_guard lock(state_->mutex);
    state_->clearPasteboard();
}

bool SimDesktop::setString(const QString& text) {
    const std::lock_guard lock(state_->mutex);
    state_->writeString(text);
    return true;
}

std::int64_t SimDesktop::changeCount() {
    const std::lock_guard lock(state_->mutex);
    return state_->changeCount;
}

QStringList SimDesktop::types() {
    const std::lock_guard lock(state_->mutex);
    QStringList result;
    if (state_->plainText)
        result << QString::fromLatin1(plainTextType);
    for (const auto& [type, data] : state_->flavours)
        result << type;
    return result;
}

// --- Keyboard events -------------------------------------------------------------------------

std::vector<PostedEvent> SimDesktop::postedEvents() const {
    const std::lock_guard lock(state_->mutex);
    return state_->events;
}

void SimDesktop::clearPostedEvents() {
    const std::lock_guard lock(state_->mutex);
    state_->events.clear();
}

void SimDesktop::setKeyboardEventCreationFails(bool keyDown, bool keyUp) {
    const std::lock_guard lock(state_->mutex);
    state_->keyDownFails = keyDown;
    state_->keyUpFails = keyUp;
}

void SimDesktop::setEventSourceCreationFails(bool fails) {
    const std::lock_guard lock(state_->mutex);
    state_->sourceFails = fails;
}

void SimDesktop::setHeldModifiers(CGEventFlags flags) {
    const std::lock_guard lock(state_->mutex);
    state_->heldModifiers = flags;
}

void SimDesktop::setKeystrokesReachApplications(bool reach) {
    const std::lock_guard lock(state_->mutex);
    state_->keystrokesReach = reach;
}

bool SimDesktop::canReachApplications() const {
    const std::lock_guard lock(state_->mutex);
    return state_->keystrokesReach;
}

EventSourceRef SimDesktop::createEventSource(int stateId) {
    const std::lock_guard lock(state_->mutex);
    if (state_->sourceFails)
        return nullptr;
    return std::make_shared<SimEventSource>(stateId);
}

KeyboardEventRef SimDesktop::createKeyboardEvent(const EventSourceRef& source,
                                                 std::uint16_t virtualKey, bool keyDown) {
    const std::lock_guard lock(state_->mutex);
    if (keyDown ? state_->keyDownFails : state_->keyUpFails)
        return nullptr;
    std::erase_if(state_->eventSources,
                  [](const auto& entry) { return entry.second.first.expired(); });
    auto event = std::make_shared<KeyboardEvent>(virtualKey, keyDown);
    const auto* simSource = dynamic_cast<const SimEventSource*>(source.get());
    if (simSource && simSource->state() == hidSystemState)
        event->flags = state_->heldModifiers;
    state_->eventSources.emplace(
        event.get(), std::pair{std::weak_ptr(event), simSource ? simSource->state() : -1});
    return event;
}

void SimDesktop::State::record(const KeyboardEventRef& event, std::optional<std::int32_t> targetPid,
                               std::optional<int> tap, std::optional<std::int32_t> deliveredTo) {
    PostedEvent posted;
    posted.virtualKey = event->virtualKey;
    posted.keyDown = event->keyDown;
    posted.flags = event->flags;
    posted.targetPid = targetPid;
    posted.tap = tap;
    posted.deliveredTo = deliveredTo;
    const auto source = eventSources.find(event.get());
    if (source != eventSources.end() && source->second.first.lock() == event)
        posted.sourceState = source->second.second;
    events.push_back(posted);
}

void SimDesktop::State::react(std::int32_t pid, const KeyboardEvent& event) {
    constexpr CGEventFlags chordModifiers =
        eventflags::command | eventflags::shift | eventflags::control | eventflags::option;
    if (!event.keyDown || (event.flags & chordModifiers) != eventflags::command)
        return;
    SimApplication* app = find(pid);
    if (!app)
        return;
    if (event.virtualKey == 8) {
        const CopyBehaviour behaviour = app->copy;
        if (behaviour.kind == CopyBehaviour::Kind::never)
            return;
        if (behaviour.delay <= std::chrono::milliseconds::zero()) {
            performCopy(pid, behaviour);
        } else {
            scheduler.schedule(behaviour.delay, [this, pid, behaviour] {
                const std::lock_guard lock(mutex);
                performCopy(pid, behaviour);
            });
        }
    } else if (event.virtualKey == 9) {
        performPaste(pid);
    }
}

void SimDesktop::State::performCopy(std::int32_t pid, const CopyBehaviour& behaviour) {
    const SimApplication* app = find(pid);
    if (!app)
        return;
    QString copied = behaviour.text;
    if (behaviour.kind == CopyBehaviour::Kind::selection) {
        copied = app->selected();
        // Like a real editor: Copy does nothing without a selection.
        if (copied.isEmpty())
            return;
    }
    clearPasteboard();
    writeString(copied);
}

void SimDesktop::State::performPaste(std::int32_t pid) {
    SimApplication* app = find(pid);
    if (!app || !app->answersPaste || !plainText)
        return;
    const auto [start, length] = app->clampedSelection();
    // Built anew rather than edited in place: the old text may still be shared with a caller's
    // copy, and Qt's detach runs in uninstrumented code that ThreadSanitizer cannot follow.
    app->text = app->text.left(start) + *plainText + app->text.mid(start + length);
    app->selection = {static_cast<std::int64_t>(start + plainText->size()), 0};
}

void SimDesktop::postToPid(std::int32_t pid, const KeyboardEventRef& event) {
    if (!event)
        return;
    const std::lock_guard lock(state_->mutex);
    const bool exists = state_->find(pid) != nullptr;
    state_->record(event, pid, std::nullopt,
                   exists ? std::optional<std::int32_t>(pid) : std::nullopt);
    if (exists)
        state_->react(pid, *event);
}

void SimDesktop::post(int tap, const KeyboardEventRef& event) {
    if (!event)
        return;
    const std::lock_guard lock(state_->mutex);
    std::optional<std::int32_t> receiver;
    if (state_->frontmost && state_->find(*state_->frontmost))
        receiver = state_->frontmost;
    state_->record(event, std::nullopt, tap, receiver);
    if (receiver)
        state_->react(*receiver, *event);
}

// --- Workspace -------------------------------------------------------------------------------

std::optional<RunningApplication> SimDesktop::frontmostApplication() {
    const std::lock_guard lock(state_->mutex);
    if (!state_->frontmost)
        return std::nullopt;
    const auto* app = state_->find(*state_->frontmost);
    if (!app)
        return std::nullopt;
    return app->info;
}

bool SimDesktop::openURL(const QUrl& url) {
    const std::lock_guard lock(state_->mutex);
    state_->urls << url;
    return state_->openSucceeds;
}

bool SimDesktop::openFolder(const QString& path) {
    const std::lock_guard lock(state_->mutex);
    state_->folders << path;
    return state_->openSucceeds;
}

QList<QUrl> SimDesktop::openedURLs() const {
    const std::lock_guard lock(state_->mutex);
    return state_->urls;
}

QStringList SimDesktop::openedFolders() const {
    const std::lock_guard lock(state_->mutex);
    return state_->folders;
}

void SimDesktop::setOpenSucceeds(bool succeeds) {
    const std::lock_guard lock(state_->mutex);
    state_->openSucceeds = succeeds;
}

// --- Screens ---------------------------------------------------------------------------------

void SimDesktop::setScreens(std::vector<Screen> screens, std::optional<std::size_t> mainIndex) {
    const std::lock_guard lock(state_->mutex);
    state_->screenList = std::move(screens);
    state_->mainIndex = mainIndex;
}

void SimDesktop::setMouseLocation(Point location) {
    const std::lock_guard lock(state_->mutex);
    state_->mouse = location;
}

std::vector<Screen> SimDesktop::screens() {
    const std::lock_guard lock(state_->mutex);
    return state_->screenList;
}

std::optional<Screen> SimDesktop::mainScreen() {
    const std::lock_guard lock(state_->mutex);
    if (!state_->mainIndex || *state_->mainIndex >= state_->screenList.size())
        return std::nullopt;
    return state_->screenList[*state_->mainIndex];
}

Point SimDesktop::mouseLocation() {
    const std::lock_guard lock(state_->mutex);
    return state_->mouse;
}

} // namespace platform::sim
