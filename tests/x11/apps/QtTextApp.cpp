// A small Qt text editor for the X11 tests: one window with a multi-line editor (or a one-line
// field with --line) holding the given text, the given range selected.
//
// Reports on standard output, one line each: "ready" once its window is active, "text:" and
// the percent-encoded text after every change, "key:" and the key sequence of every key press
// it receives (e.g. "key:Ctrl+C"), so tests can see exactly which chord arrived.
//
// Usage: mendwise_qt_text_app [--line] [--select START,LENGTH] TEXT
#include <QApplication>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>

namespace {

void report(const QString& line) {
    std::fputs((line + u'\n').toUtf8().constData(), stdout);
    std::fflush(stdout);
}

class KeyReporter : public QObject {
protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        // Only where the key is delivered first: unhandled keys travel on to the parents.
        if (event->type() == QEvent::KeyPress && watched == QApplication::focusWidget()) {
            const auto* key = static_cast<QKeyEvent*>(event);
            const int code = key->key();
            const bool modifier = (code >= Qt::Key_Shift && code <= Qt::Key_Alt) ||
                                  code == Qt::Key_Super_L || code == Qt::Key_Super_R ||
                                  code == Qt::Key_AltGr;
            if (!key->isAutoRepeat() && !modifier)
                report(QStringLiteral("key:") +
                       QKeySequence(key->keyCombination()).toString(QKeySequence::PortableText));
        }
        return false;
    }
};

void reportText(const QString& text) {
    report(QStringLiteral("text:") + QString::fromLatin1(QUrl::toPercentEncoding(text)));
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("mendwise_qt_text_app"));
    // Options first, the text last.
    const QStringList arguments = QApplication::arguments().mid(1);
    const QString text = arguments.value(arguments.size() - 1);
    const qsizetype select = arguments.indexOf(QStringLiteral("--select"));
    const QStringList range = select < 0 ? QStringList() : arguments.value(select + 1).split(u',');
    const int start = range.value(0).toInt();
    const int length = range.value(1).toInt();

    QWidget window;
    window.setWindowTitle(QStringLiteral("Mendwise Qt text"));
    auto* layout = new QVBoxLayout(&window);
    QWidget* editor = nullptr;
    if (arguments.contains(QStringLiteral("--line"))) {
        auto* field = new QLineEdit(text);
        field->setSelection(start, length);
        QObject::connect(field, &QLineEdit::textChanged, reportText);
        editor = field;
    } else {
        auto* area = new QPlainTextEdit;
        area->setPlainText(text);
        QTextCursor cursor(area->document());
        cursor.setPosition(start);
        cursor.setPosition(start + length, QTextCursor::KeepAnchor);
        area->setTextCursor(cursor);
        QObject::connect(area, &QPlainTextEdit::textChanged,
                         [area] { reportText(area->toPlainText()); });
        editor = area;
    }
    layout->addWidget(editor);
    KeyReporter keys;
    app.installEventFilter(&keys);
    window.resize(480, 240);
    window.move(200, 150);
    window.show();
    window.activateWindow();
    editor->setFocus();

    // "ready" once the window manager has made the window active.
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (window.isActiveWindow() && editor->hasFocus()) {
            poll.stop();
            report(QStringLiteral("ready"));
        }
    });
    poll.start(20);
    return QApplication::exec();
}
