#include "platform/x11/X11Pasteboard.h"

#include "platform/x11/GuiThread.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>
#include <atomic>

namespace platform::x11 {

class X11Pasteboard::Impl {
public:
    explicit Impl(std::chrono::milliseconds guiWait) : guiWait(guiWait) {}

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

    std::chrono::milliseconds guiWait;
    std::atomic<std::int64_t> changes{0};
    QMetaObject::Connection watch;
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
    d_->onGui<bool>([](QClipboard& clipboard) -> std::optional<bool> {
        // QClipboard::clear() does nothing while another client owns the selection; owning it
        // with empty data clears it for everyone.
        clipboard.setMimeData(new QMimeData, QClipboard::Clipboard);
        return true;
    });
}

bool X11Pasteboard::setString(const QString& text) {
    return d_
        ->onGui<bool>([text](QClipboard& clipboard) -> std::optional<bool> {
            auto* data = new QMimeData;
            data->setText(text);
            clipboard.setMimeData(data, QClipboard::Clipboard);
            return clipboard.ownsClipboard();
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

} // namespace platform::x11
