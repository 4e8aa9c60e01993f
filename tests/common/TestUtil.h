#pragma once

#include <QString>
#include <QStringList>
#include <chrono>
#include <functional>
#include <optional>
#include <ostream>

class QAbstractButton;
class QWidget;

// Readable test failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList& list, std::ostream* out) {
    *out << '[' << list.join(QStringLiteral("\", \"")).toStdString() << ']';
}

// Helpers shared by the test programs.
namespace testutil {

// Runs the event loop until `condition` holds or `timeout` passes; returns whether it held.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Runs the event loop for `duration`.
void processEventsFor(std::chrono::milliseconds duration);

// The non-empty texts of the labels inside `root`, in creation order.
QStringList labelTexts(const QWidget& root);
// The first button inside `root` showing `text`; null when there is none.
QAbstractButton* buttonWithText(const QWidget& root, const QString& text);

// Sets an environment variable for the lifetime of this object, then restores it.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::optional<QString>& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    QByteArray name_;
    std::optional<QByteArray> previous_;
};

} // namespace testutil
