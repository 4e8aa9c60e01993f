#include "platform/x11/X11Pasteboard.h"

#include "platform/freedesktop/GuiThread.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QMimeData>
#include <QWindow>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <xcb/xcb.h>

namespace platform::x11 {

using freedesktop::callOnGuiThread;

namespace {

xcb_connection_t* qtConnection() {
    auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    auto* x11 =
        app != nullptr ? app->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    const xcb_atom_t atom = reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    return atom;
}

} // namespace

// Qt takes the selection with the time of the last X event it saw. When another client took
// the selection later (a copy in an editor that Qt heard nothing of), the server ignores Qt's
// request, while QClipboard still believes it owns the selection. So before each change a
// property is touched on a window of Qt's, and Qt's event loop runs until Qt has seen that
// PropertyNotify, whose time is then Qt's; afterwards the server is asked who owns the
// selection.
class X11Pasteboard::Impl : public QAbstractNativeEventFilter {
public:
    explicit Impl(std::chrono::milliseconds guiWait) : guiWait(guiWait) {}

    ~Impl() override {
        if (filterInstalled && QCoreApplication::instance() != nullptr)
            QCoreApplication::instance()->removeNativeEventFilter(this);
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    template <typename T>
    std::optional<T> onGui(std::function<std::optional<T>(QClipboard&)> work) {
        return callOnGuiThread<std::optional<T>>(
                   [work = std::move(work)]() -> std::optional<T> {
                       if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr)
                           return std::nullopt;
                       QClipboard* clipboard = QGuiApplication::clipboard();
                       if (clipboard == nullptr)
                           return std::nullopt;
                       return work(*clipboard);
                   },
                   guiWait)
            .value_or(std::nullopt);
    }

    // GUI thread. Brings Qt's idea of the server time up to date (waits at most a second).
    void refreshQtTime() {
        xcb_connection_t* connection = qtConnection();
        if (connection == nullptr || refreshing)
            return; // a change made from inside another change's wait goes ahead as it is
        if (!stampWindow) {
            stampWindow = std::make_unique<QWindow>();
            stampWindow->create();
            stampAtom = internAtom(connection, "_MENDWISE_TIMESTAMP");
            clipboardAtom = internAtom(connection, "CLIPBOARD");
            QCoreApplication::instance()->installNativeEventFilter(this);
            filterInstalled = true;
        }
        // Counted, not flagged: a notification of an earlier touch that came late must not pass
        // for this one.
        ++stampsMade;
        refreshing = true;
        xcb_change_property(connection, XCB_PROP_MODE_APPEND,
                            static_cast<xcb_window_t>(stampWindow->winId()), stampAtom,
                            XCB_ATOM_STRING, 8, 0, nullptr);
        xcb_flush(connection);
        QElapsedTimer waited;
        waited.start();
        while (stampsSeen < stampsMade && waited.elapsed() < 1000)
            QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 5);
        refreshing = false;
    }

    // GUI thread. The server's answer: the selection's owner, XCB_NONE for none.
    xcb_window_t clipboardOwner() const {
        xcb_connection_t* connection = qtConnection();
        if (connection == nullptr || clipboardAtom == XCB_ATOM_NONE)
            return XCB_NONE;
        xcb_get_selection_owner_reply_t* reply = xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, clipboardAtom), nullptr);
        const xcb_window_t owner = reply != nullptr ? reply->owner : xcb_window_t{XCB_NONE};
        std::free(reply);
        return owner;
    }

    // GUI thread. Whether the owner is one of Qt's windows (X resource ids carry the
    // connection's base).
    bool qtOwnsClipboard() const {
        xcb_connection_t* connection = qtConnection();
        const xcb_window_t owner = clipboardOwner();
        if (connection == nullptr || owner == XCB_NONE)
            return false;
        const xcb_setup_t* setup = xcb_get_setup(connection);
        return (owner & ~setup->resource_id_mask) == setup->resource_id_base;
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message,
                           qintptr* /*result*/) override {
        if (eventType != "xcb_generic_event_t" || !stampWindow)
            return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            return false;
        const auto* notify = static_cast<const xcb_property_notify_event_t*>(message);
        if (notify->window == static_cast<xcb_window_t>(stampWindow->winId()) &&
            notify->atom == stampAtom)
            ++stampsSeen;
        return false; // Qt handles it too, and takes its time
    }

    std::chrono::milliseconds guiWait;
    std::atomic<std::int64_t> changes{0};
    QMetaObject::Connection watch;
    // GUI thread only.
    std::unique_ptr<QWindow> stampWindow;
    xcb_atom_t stampAtom = XCB_ATOM_NONE;
    xcb_atom_t clipboardAtom = XCB_ATOM_NONE;
    bool filterInstalled = false;
    std::uint64_t stampsMade = 0;
    std::uint64_t stampsSeen = 0;
    bool refreshing = false;
};

X11Pasteboard::X11Pasteboard(std::chrono::milliseconds guiWait)
    : d_(std::make_unique<Impl>(guiWait)) {
    d_->onGui<bool>([impl = d_.get()](QClipboard& clipboard) -> std::optional<bool> {
        impl->watch =
            QObject::connect(&clipboard, &QClipboard::changed, [impl](QClipboard::Mode mode) {
                if (mode == QClipboard::Clipboard)
                    impl->changes.fetch_add(1);
            });
        return true;
    });
}

X11Pasteboard::~X11Pasteboard() {
    QObject::disconnect(d_->watch);
}

std::optional<QString> X11Pasteboard::string() {
    return d_->onGui<QString>([](QClipboard& clipboard) -> std::optional<QString> {
        const QMimeData* data = clipboard.mimeData(QClipboard::Clipboard);
        if (data == nullptr || !data->hasText())
            return std::nullopt;
        return data->text();
    });
}

void X11Pasteboard::clearContents() {
    d_->onGui<bool>([impl = d_.get()](QClipboard& clipboard) -> std::optional<bool> {
        impl->refreshQtTime();
        clipboard.clear(QClipboard::Clipboard);
        return impl->clipboardOwner() == XCB_NONE;
    });
}

bool X11Pasteboard::setString(const QString& text) {
    return d_
        ->onGui<bool>([impl = d_.get(), text](QClipboard& clipboard) -> std::optional<bool> {
            impl->refreshQtTime();
            auto* data = new QMimeData;
            data->setText(text);
            clipboard.setMimeData(data, QClipboard::Clipboard);
            return impl->qtOwnsClipboard();
        })
        .value_or(false);
}

std::int64_t X11Pasteboard::changeCount() {
    return d_->changes.load();
}

QStringList X11Pasteboard::types() {
    return d_
        ->onGui<QStringList>([](QClipboard& clipboard) -> std::optional<QStringList> {
            const QMimeData* data = clipboard.mimeData(QClipboard::Clipboard);
            if (data == nullptr)
                return QStringList{};
            return data->formats();
        })
        .value_or(QStringList{});
}

std::optional<std::int32_t> X11Pasteboard::ownerProcess() {
    return d_
        ->onGui<std::int32_t>([impl = d_.get()](
                                  QClipboard& /*clipboard*/) -> std::optional<std::int32_t> {
            xcb_connection_t* connection = qtConnection();
            const xcb_window_t owner = impl->clipboardOwner();
            if (connection == nullptr || owner == XCB_NONE)
                return -1;
            if (impl->qtOwnsClipboard())
                return static_cast<std::int32_t>(QCoreApplication::applicationPid());
            const std::uint32_t mask = xcb_get_setup(connection)->resource_id_mask;
            const auto property = [connection](xcb_window_t window, const char* name,
                                               xcb_atom_t type) {
                std::vector<std::uint32_t> values;
                const xcb_atom_t atom = internAtom(connection, name);
                xcb_get_property_reply_t* reply = xcb_get_property_reply(
                    connection, xcb_get_property(connection, 0, window, atom, type, 0, 4096),
                    nullptr);
                if (reply != nullptr && reply->format == 32) {
                    const auto* data =
                        static_cast<const std::uint32_t*>(xcb_get_property_value(reply));
                    values.assign(data, data + xcb_get_property_value_length(reply) / 4);
                }
                std::free(reply);
                return values;
            };
            const xcb_window_t root =
                xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
            for (const std::uint32_t window : property(root, "_NET_CLIENT_LIST", XCB_ATOM_WINDOW)) {
                if ((window & ~mask) != (owner & ~mask))
                    continue;
                const auto pid = property(window, "_NET_WM_PID", XCB_ATOM_CARDINAL);
                if (!pid.empty() && pid.front() > 0 && pid.front() <= INT32_MAX)
                    return static_cast<std::int32_t>(pid.front());
            }
            return -1;
        })
        .value_or(-1);
}

} // namespace platform::x11
