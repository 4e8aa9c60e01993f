#include "platform/x11/SelectionTransfer.h"

#include "platform/freedesktop/GuiThread.h"

#include <QClipboard>
#include <QGuiApplication>

namespace platform::x11 {

using freedesktop::callOnGuiThread;

namespace {

bool transfer(QClipboard::Mode from, QClipboard::Mode to, std::chrono::milliseconds guiWait) {
    return callOnGuiThread<bool>(
               [from, to] {
                   if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr)
                       return false;
                   QClipboard* clipboard = QGuiApplication::clipboard();
                   const QString text = clipboard->text(from);
                   if (text.isEmpty())
                       return false;
                   clipboard->setText(text, to);
                   return true;
               },
               guiWait)
        .value_or(false);
}

} // namespace

bool copyPrimaryToClipboard(std::chrono::milliseconds guiWait) {
    return transfer(QClipboard::Selection, QClipboard::Clipboard, guiWait);
}

bool copyClipboardToPrimary(std::chrono::milliseconds guiWait) {
    return transfer(QClipboard::Clipboard, QClipboard::Selection, guiWait);
}

} // namespace platform::x11
