#include "platform/wayland/WaylandWorkspace.h"

#include "platform/freedesktop/AtspiAccessibility.h"
#include "platform/freedesktop/DesktopEntries.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QProcess>
#include <QUrl>
#include <array>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace platform::wayland {

using freedesktop::DesktopEntries;
using freedesktop::processName;

namespace {

constexpr int ipcTimeoutMs = 150;

// A file descriptor closed on every path.
class Socket {
public:
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    [[nodiscard]] int fd() const { return fd_; }

private:
    int fd_;
};

bool transfer(int fd, char* data, std::size_t size, bool sending) {
    std::size_t done = 0;
    while (done < size) {
        pollfd ready{fd, static_cast<short>(sending ? POLLOUT : POLLIN), 0};
        if (::poll(&ready, 1, ipcTimeoutMs) <= 0)
            return false;
        const ssize_t n = sending ? ::send(fd, data + done, size - done, MSG_NOSIGNAL)
                                  : ::recv(fd, data + done, size - done, 0);
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// One request over sway's IPC socket (the i3 protocol): the reply's JSON, or none.
std::optional<QJsonDocument> swayRequest(const QByteArray& socketPath, std::uint32_t type) {
    sockaddr_un address{};
    if (socketPath.isEmpty() ||
        static_cast<std::size_t>(socketPath.size()) >= sizeof(address.sun_path))
        return std::nullopt;
    const Socket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.fd() < 0)
        return std::nullopt;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.constData(),
                static_cast<std::size_t>(socketPath.size()));
    if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return std::nullopt;
    constexpr std::size_t headerSize = 14;
    std::array<char, headerSize> header{'i', '3', '-', 'i', 'p', 'c'};
    const std::uint32_t length = 0;
    std::memcpy(header.data() + 6, &length, 4);
    std::memcpy(header.data() + 10, &type, 4);
    if (!transfer(socket.fd(), header.data(), header.size(), true) ||
        !transfer(socket.fd(), header.data(), header.size(), false) ||
        std::memcmp(header.data(), "i3-ipc", 6) != 0)
        return std::nullopt;
    std::uint32_t replyLength = 0;
    std::memcpy(&replyLength, header.data() + 6, 4);
    if (replyLength > 64U * 1024U * 1024U)
        return std::nullopt;
    QByteArray reply(static_cast<qsizetype>(replyLength), '\0');
    if (!transfer(socket.fd(), reply.data(), replyLength, false))
        return std::nullopt;
    QJsonParseError error{};
    QJsonDocument document = QJsonDocument::fromJson(reply, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    return document;
}

std::optional<QJsonObject> focusedNode(const QJsonObject& node) {
    if (node.value(QLatin1String("focused")).toBool())
        return node;
    for (const char* children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue& child : node.value(QLatin1String(children)).toArray()) {
            if (auto found = focusedNode(child.toObject()))
                return found;
        }
    }
    return std::nullopt;
}

struct Window {
    std::int32_t pid = -1;
    QString appId;
    QString title;
};

// The window sway has focused; none when sway is not the compositor or nothing has focus.
std::optional<Window> swayFocusedWindow() {
    const QByteArray socketPath = qgetenv("SWAYSOCK");
    constexpr std::uint32_t getTree = 4;
    const auto tree = swayRequest(socketPath, getTree);
    if (!tree)
        return std::nullopt;
    const auto node = focusedNode(tree->object());
    if (!node || !node->contains(QLatin1String("pid")))
        return std::nullopt;
    Window window;
    window.pid = node->value(QLatin1String("pid")).toInt(-1);
    window.appId = node->value(QLatin1String("app_id")).toString();
    if (window.appId.isEmpty()) // an X11 client under XWayland
        window.appId = node->value(QLatin1String("window_properties"))
                           .toObject()
                           .value(QLatin1String("class"))
                           .toString();
    window.title = node->value(QLatin1String("name")).toString();
    return window;
}

} // namespace

class WaylandWorkspace::Impl {
public:
    Impl(std::shared_ptr<freedesktop::AtspiAccessibility> accessibility, QString opener)
        : accessibility(std::move(accessibility)), opener(std::move(opener)) {}

    const DesktopEntries& entries() {
        std::call_once(scanned, [this] {
            desktopEntries =
                DesktopEntries::scan(DesktopEntries::standardDataDirs(), QLocale::system().name());
        });
        return desktopEntries;
    }

    std::optional<RunningApplication> current() {
        const std::int32_t self = static_cast<std::int32_t>(::getpid());
        if (const auto window = swayFocusedWindow()) {
            if (window->pid == self)
                return std::nullopt;
            return describe(window->pid, window->appId, window->title);
        }
        if (accessibility) {
            if (const auto active = accessibility->activeApplication(self))
                return describe(active->pid, active->name, QString());
        }
        return std::nullopt;
    }

    RunningApplication describe(std::int32_t pid, const QString& id, const QString& title) {
        RunningApplication app;
        app.processIdentifier = pid;
        const QString process = processName(pid);
        if (!id.isEmpty())
            app.bundleIdentifier = id;
        else if (!process.isEmpty())
            app.bundleIdentifier = process;
        if (auto name = entries().applicationName(id, id, process))
            app.localizedName = std::move(name);
        else if (!id.isEmpty())
            app.localizedName = id;
        else if (!title.isEmpty())
            app.localizedName = title;
        return app;
    }

    std::shared_ptr<freedesktop::AtspiAccessibility> accessibility;
    QString opener;
    std::once_flag scanned;
    DesktopEntries desktopEntries;
    std::mutex mutex;
    std::optional<RunningApplication> lastFront;
};

WaylandWorkspace::WaylandWorkspace(std::shared_ptr<freedesktop::AtspiAccessibility> accessibility,
                                   QString opener)
    : d_(std::make_unique<Impl>(std::move(accessibility), std::move(opener))) {}
WaylandWorkspace::~WaylandWorkspace() = default;

std::optional<RunningApplication> WaylandWorkspace::frontmostApplication() {
    auto front = d_->current();
    const std::lock_guard lock(d_->mutex);
    if (front)
        d_->lastFront = front;
    // Our own panel in front, or a moment with no focus at all: the user's application is the
    // one that was in front before.
    return d_->lastFront;
}

bool WaylandWorkspace::openURL(const QUrl& url) {
    if (url.isEmpty() || !url.isValid())
        return false;
    return QProcess::startDetached(d_->opener, {url.toString(QUrl::FullyEncoded)});
}

bool WaylandWorkspace::openFolder(const QString& path) {
    const QFileInfo folder(path);
    if (path.isEmpty() || !folder.isDir())
        return false;
    return QProcess::startDetached(
        d_->opener, {QUrl::fromLocalFile(folder.absoluteFilePath()).toString(QUrl::FullyEncoded)});
}

} // namespace platform::wayland
