// The accessibility port of the simulated desktop.
#include "platform/sim/SimDesktop.h"
#include "platform/sim/SimDesktopState.h"

namespace platform::sim {

namespace {

QString elementName(Element element) {
    switch (element) {
    case Element::application:
        return QStringLiteral("application");
    case Element::focused:
        return QStringLiteral("focused");
    case Element::window:
        return QStringLiteral("window");
    }
    return QStringLiteral("?");
}

const SimElement* simElement(const AXRef& ref) {
    return ref ? dynamic_cast<const SimElement*>(ref->element()) : nullptr;
}

AXRef elementRef(std::int32_t pid, Element kind) {
    return makeAX(std::shared_ptr<AXElementImpl>(std::make_shared<SimElement>(pid, kind)));
}

// Every read hands out a fresh object, the way a copy call returns a new reference.
AXResult resultOf(const AXAnswer& answer) {
    AXResult result;
    result.error = answer.error;
    if (answer.value)
        result.value = std::make_shared<const AXObject>(*answer.value);
    return result;
}

AXResult success(AXRef value) {
    return {ax::success, std::move(value)};
}
AXResult failure(AXError code) {
    return {code, nullptr};
}

AXResult applicationAttribute(const SimApplication& app, const QString& attribute) {
    const std::int32_t pid = app.info.processIdentifier;
    if (attribute == QLatin1String(axattr::focusedUIElement)) {
        if (!app.hasFocusedElement)
            return failure(ax::noValue);
        return success(elementRef(pid, Element::focused));
    }
    if (attribute == QLatin1String(axattr::windows))
        return success(makeAX(std::vector<AXRef>{elementRef(pid, Element::window)}));
    if (attribute == QLatin1String(axattr::role))
        return success(makeAX(QStringLiteral("AXApplication")));
    if (attribute == QLatin1String("AXTitle") && app.info.localizedName)
        return success(makeAX(*app.info.localizedName));
    return failure(ax::attributeUnsupported);
}

AXResult focusedAttribute(const SimApplication& app, const QString& attribute) {
    if (attribute == QLatin1String(axattr::role))
        return success(makeAX(app.role));
    if (attribute == QLatin1String("AXValue"))
        return success(makeAX(app.text));
    if (attribute == QLatin1String(axattr::selectedText))
        return success(makeAX(app.selected()));
    if (attribute == QLatin1String(axattr::selectedTextRange)) {
        const auto [start, length] = app.clampedSelection();
        return success(makeAX(CFRange{start, length}));
    }
    if (attribute == QLatin1String(axattr::position)) {
        if (!app.elementFrame)
            return failure(ax::noValue);
        return success(makeAX(Point{app.elementFrame->x, app.elementFrame->y}));
    }
    if (attribute == QLatin1String(axattr::size)) {
        if (!app.elementFrame)
            return failure(ax::noValue);
        return success(makeAX(Size{app.elementFrame->width, app.elementFrame->height}));
    }
    return failure(ax::attributeUnsupported);
}

AXResult windowAttribute(const QString& attribute) {
    if (attribute == QLatin1String(axattr::role))
        return success(makeAX(QStringLiteral("AXWindow")));
    return failure(ax::attributeUnsupported);
}

} // namespace

QString SimElement::describe() const {
    return QStringLiteral("<AXUIElement %1 pid=%2>").arg(elementName(kind_)).arg(pid_);
}

QString AXCall::toString() const {
    const QString target = element ? QStringLiteral("%1 %2").arg(pid).arg(elementName(*element))
                                   : QStringLiteral("<foreign>");
    switch (kind) {
    case Kind::isProcessTrusted:
        return QStringLiteral("isProcessTrusted");
    case Kind::isProcessTrustedWithPrompt:
        return QStringLiteral("isProcessTrustedWithPrompt");
    case Kind::createApplication:
        return QStringLiteral("createApplication %1").arg(pid);
    case Kind::copyAttributeValue:
        return QStringLiteral("read ") + target + u' ' + attribute;
    case Kind::copyParameterizedAttributeValue:
        return QStringLiteral("readParameterized ") + target + u' ' + attribute;
    case Kind::setAttributeValue:
        return QStringLiteral("write ") + target + u' ' + attribute;
    }
    return {};
}

void SimDesktop::setTrusted(bool trusted) {
    const std::lock_guard lock(state_->mutex);
    state_->trusted = trusted;
}

void SimDesktop::setPromptGrantsTrust(bool grants) {
    const std::lock_guard lock(state_->mutex);
    state_->promptGrantsTrust = grants;
}

int SimDesktop::trustPromptCount() const {
    const std::lock_guard lock(state_->mutex);
    return state_->trustPrompts;
}

std::vector<AXCall> SimDesktop::accessibilityCalls() const {
    const std::lock_guard lock(state_->mutex);
    return state_->axCalls;
}

QStringList SimDesktop::accessibilityCallLog() const {
    QStringList log;
    for (const AXCall& call : accessibilityCalls())
        log << call.toString();
    return log;
}

void SimDesktop::clearAccessibilityCalls() {
    const std::lock_guard lock(state_->mutex);
    state_->axCalls.clear();
}

bool SimDesktop::isProcessTrusted() {
    const std::lock_guard lock(state_->mutex);
    state_->axCalls.push_back({AXCall::Kind::isProcessTrusted, -1, std::nullopt, {}});
    return state_->trusted;
}

bool SimDesktop::isProcessTrustedWithPrompt() {
    const std::lock_guard lock(state_->mutex);
    state_->axCalls.push_back({AXCall::Kind::isProcessTrustedWithPrompt, -1, std::nullopt, {}});
    ++state_->trustPrompts;
    if (state_->promptGrantsTrust)
        state_->trusted = true;
    return state_->trusted;
}

AXRef SimDesktop::createApplication(std::int32_t pid) {
    const std::lock_guard lock(state_->mutex);
    state_->axCalls.push_back({AXCall::Kind::createApplication, pid, std::nullopt, {}});
    // Like the real call, this succeeds for any pid; reads then tell whether it is alive.
    return elementRef(pid, Element::application);
}

std::optional<AXResult> SimDesktop::State::commonAttributeAnswer(AXCall::Kind kind,
                                                                 const AXRef& element,
                                                                 const QString& attribute,
                                                                 const SimElement*& target,
                                                                 const SimApplication*& app) {
    target = simElement(element);
    AXCall call{kind, -1, std::nullopt, attribute};
    if (target) {
        call.pid = target->pid();
        call.element = target->kind();
    }
    axCalls.push_back(call);

    if (!trusted)
        return failure(ax::apiDisabled);
    if (!target)
        return failure(ax::illegalArgument);
    app = find(target->pid());
    if (!app || (target->kind() == Element::focused && !app->hasFocusedElement))
        return failure(ax::invalidUIElement);
    const auto scripted = app->answers.find({target->kind(), attribute});
    if (scripted != app->answers.end())
        return resultOf(scripted->second);
    return std::nullopt;
}

AXResult SimDesktop::copyAttributeValue(const AXRef& element, const QString& attribute) {
    const std::lock_guard lock(state_->mutex);
    const SimElement* target = nullptr;
    const SimApplication* app = nullptr;
    if (auto answer = state_->commonAttributeAnswer(AXCall::Kind::copyAttributeValue, element,
                                                    attribute, target, app))
        return *answer;
    switch (target->kind()) {
    case Element::application:
        return applicationAttribute(*app, attribute);
    case Element::focused:
        return focusedAttribute(*app, attribute);
    case Element::window:
        return windowAttribute(attribute);
    }
    return failure(ax::attributeUnsupported);
}

AXResult SimDesktop::copyParameterizedAttributeValue(const AXRef& element, const QString& attribute,
                                                     const AXRef& parameter) {
    const std::lock_guard lock(state_->mutex);
    const SimElement* target = nullptr;
    const SimApplication* app = nullptr;
    if (auto answer = state_->commonAttributeAnswer(AXCall::Kind::copyParameterizedAttributeValue,
                                                    element, attribute, target, app))
        return *answer;
    if (target->kind() != Element::focused || attribute != QLatin1String(axattr::boundsForRange))
        return failure(ax::parameterizedAttributeUnsupported);
    CFRange range;
    if (!axValueGetValue(parameter, range))
        return failure(ax::illegalArgument);
    if (!app->selectionBounds)
        return failure(ax::noValue);
    return success(makeAX(*app->selectionBounds));
}

AXError SimDesktop::setAttributeValue(const AXRef& element, const QString& attribute,
                                      const AXRef& value) {
    const std::lock_guard lock(state_->mutex);
    const SimElement* target = nullptr;
    const SimApplication* found = nullptr;
    if (auto answer = state_->commonAttributeAnswer(AXCall::Kind::setAttributeValue, element,
                                                    attribute, target, found))
        return answer->error;
    const auto text = axString(value);
    if (target->kind() != Element::focused || attribute != QLatin1String(axattr::selectedText))
        return ax::attributeUnsupported;
    if (!text)
        return ax::illegalArgument;
    SimApplication& app = state_->applications.at(target->pid());
    if (!app.editable)
        return ax::attributeUnsupported;
    const auto [start, length] = app.clampedSelection();
    app.text.replace(start, length, *text);
    app.selection = CFRange{start + text->size(), 0};
    return ax::success;
}

} // namespace platform::sim
