#include "platform/x11/XDisplay.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <map>

namespace platform::x11 {

namespace {

// Xlib has one process-wide error handler. Ours counts the errors of our own connections and
// hands every other connection's errors to the handler that was there before.
std::mutex trapMutex;
std::map<Display*, std::uint64_t>& errorCounts() {
    static std::map<Display*, std::uint64_t> counts;
    return counts;
}
XErrorHandler previousHandler = nullptr;

int handleXError(Display* display, XErrorEvent* event) {
    {
        const std::lock_guard lock(trapMutex);
        auto found = errorCounts().find(display);
        if (found != errorCounts().end()) {
            ++found->second;
            return 0;
        }
    }
    return previousHandler != nullptr ? previousHandler(display, event) : 0;
}

void registerDisplay(Display* display) {
    static std::once_flag installed;
    std::call_once(installed, [] { previousHandler = XSetErrorHandler(handleXError); });
    const std::lock_guard lock(trapMutex);
    errorCounts()[display] = 0;
}

void unregisterDisplay(Display* display) {
    const std::lock_guard lock(trapMutex);
    errorCounts().erase(display);
}

std::uint64_t errorCount(Display* display) {
    const std::lock_guard lock(trapMutex);
    auto found = errorCounts().find(display);
    return found != errorCounts().end() ? found->second : 0;
}

thread_local std::uint64_t trapStart = 0;

} // namespace

XDisplay::XDisplay() {
    display_ = XOpenDisplay(nullptr);
    if (display_ != nullptr)
        registerDisplay(display_);
}

XDisplay::~XDisplay() {
    if (display_ == nullptr)
        return;
    XCloseDisplay(display_);
    unregisterDisplay(display_);
}

void XDisplay::beginErrorTrap() {
    trapStart = errorCount(display_);
}

bool XDisplay::endErrorTrap() {
    XSync(display_, False);
    return errorCount(display_) == trapStart;
}

XWindowId XDisplay::rootWindow() const {
    return display_ != nullptr ? DefaultRootWindow(display_) : 0;
}

std::optional<QByteArray> XDisplay::property(XWindowId window, const char* name, unsigned long type,
                                             int format) {
    if (display_ == nullptr || window == 0)
        return std::nullopt;
    const Atom atom = XInternAtom(display_, name, False);
    Atom actualType = 0;
    int actualFormat = 0;
    unsigned long items = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    int status = BadImplementation;
    const bool ok = checked([&] {
        status = XGetWindowProperty(display_, window, atom, 0, 1 << 16, False, type, &actualType,
                                    &actualFormat, &items, &remaining, &data);
    });
    std::optional<QByteArray> result;
    if (ok && status == Success && data != nullptr && actualType == type &&
        actualFormat == format && items > 0) {
        // Format-32 items come as C longs, whatever their size on the wire.
        const auto itemSize = format == 32 ? sizeof(long) : static_cast<std::size_t>(format / 8);
        result = QByteArray(reinterpret_cast<const char*>(data),
                            static_cast<qsizetype>(items * itemSize));
    }
    if (data != nullptr)
        XFree(data);
    return result;
}

XWindowId XDisplay::activeWindow() {
    const auto value = property(rootWindow(), "_NET_ACTIVE_WINDOW", XA_WINDOW, 32);
    if (!value || value->size() < static_cast<qsizetype>(sizeof(long)))
        return 0;
    return static_cast<XWindowId>(*reinterpret_cast<const long*>(value->constData()));
}

XWindowId XDisplay::focusedClientWindow() {
    if (const XWindowId active = activeWindow(); active != 0 && windowExists(active))
        return active;
    if (display_ == nullptr)
        return 0;
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(display_, &focus, &revert);
    const Atom wmState = XInternAtom(display_, "WM_STATE", False);
    // The focus may sit on a child of the client window; the client carries WM_STATE.
    for (Window window = focus; window > PointerRoot && window != rootWindow();) {
        Atom type = 0;
        int format = 0;
        unsigned long items = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        int status = BadImplementation;
        if (!checked([&] {
                status = XGetWindowProperty(display_, window, wmState, 0, 0, False, AnyPropertyType,
                                            &type, &format, &items, &remaining, &data);
            }))
            return 0;
        if (data != nullptr)
            XFree(data);
        if (status == Success && type != None)
            return window;
        const auto parent = parentOf(window);
        if (!parent)
            return 0;
        window = *parent;
    }
    return 0;
}

bool XDisplay::windowExists(XWindowId window) {
    if (display_ == nullptr || window == 0)
        return false;
    XWindowAttributes attributes{};
    Status status = 0;
    return checked([&] { status = XGetWindowAttributes(display_, window, &attributes); }) &&
           status != 0;
}

std::optional<std::int32_t> XDisplay::windowPid(XWindowId window) {
    const auto value = property(window, "_NET_WM_PID", XA_CARDINAL, 32);
    if (!value || value->size() < static_cast<qsizetype>(sizeof(long)))
        return std::nullopt;
    const long pid = *reinterpret_cast<const long*>(value->constData());
    if (pid <= 0 || pid > INT32_MAX)
        return std::nullopt;
    return static_cast<std::int32_t>(pid);
}

std::optional<WindowClass> XDisplay::windowClass(XWindowId window) {
    if (display_ == nullptr || window == 0)
        return std::nullopt;
    XClassHint hint{nullptr, nullptr};
    Status status = 0;
    if (!checked([&] { status = XGetClassHint(display_, window, &hint); }) || status == 0)
        return std::nullopt;
    WindowClass result{QString::fromLocal8Bit(hint.res_name),
                       QString::fromLocal8Bit(hint.res_class)};
    if (hint.res_name != nullptr)
        XFree(hint.res_name);
    if (hint.res_class != nullptr)
        XFree(hint.res_class);
    return result;
}

std::optional<QString> XDisplay::windowTitle(XWindowId window) {
    if (display_ == nullptr || window == 0)
        return std::nullopt;
    const Atom utf8 = XInternAtom(display_, "UTF8_STRING", False);
    if (const auto name = property(window, "_NET_WM_NAME", utf8, 8); name && !name->isEmpty())
        return QString::fromUtf8(*name);
    XTextProperty text{nullptr, 0, 0, 0};
    Status status = 0;
    if (!checked([&] { status = XGetWMName(display_, window, &text); }) || status == 0)
        return std::nullopt;
    std::optional<QString> result;
    char** list = nullptr;
    int count = 0;
    if (Xutf8TextPropertyToTextList(display_, &text, &list, &count) >= Success && count > 0 &&
        list != nullptr)
        result = QString::fromUtf8(list[0]);
    if (list != nullptr)
        XFreeStringList(list);
    if (text.value != nullptr)
        XFree(text.value);
    return result;
}

std::optional<XWindowId> XDisplay::parentOf(XWindowId window) {
    Window root = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!checked([&] { XQueryTree(display_, window, &root, &parent, &children, &count); }))
        return std::nullopt;
    if (children != nullptr)
        XFree(children);
    return parent;
}

XWindowId XDisplay::topLevelAncestor(XWindowId window) {
    if (display_ == nullptr)
        return 0;
    const Window rootId = rootWindow();
    while (window != 0 && window != rootId) {
        const auto parent = parentOf(window);
        if (!parent)
            return 0;
        if (*parent == rootId)
            return window;
        window = *parent;
    }
    return 0;
}

} // namespace platform::x11
