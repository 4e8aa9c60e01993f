#include "tests/common/TestUtil.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QThread>
#include <cstdlib>

namespace testutil {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() >= timeout.count())
            return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    return true;
}

void processEventsFor(std::chrono::milliseconds duration) {
    waitUntil([] { return false; }, duration);
}

QStringList labelTexts(const QWidget& root) {
    QStringList texts;
    for (const QLabel* label : root.findChildren<QLabel*>()) {
        if (!label->text().isEmpty())
            texts << label->text();
    }
    return texts;
}

QAbstractButton* buttonWithText(const QWidget& root, const QString& text) {
    for (QAbstractButton* button : root.findChildren<QAbstractButton*>()) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

ScopedEnv::ScopedEnv(const char* name, const std::optional<QString>& value) : name_(name) {
    if (const char* old = std::getenv(name))
        previous_ = QByteArray(old);
    if (value)
        qputenv(name, value->toUtf8());
    else
        qunsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (previous_)
        qputenv(name_.constData(), *previous_);
    else
        qunsetenv(name_.constData());
}

} // namespace testutil
