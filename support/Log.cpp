#include "support/Log.h"

#include <QStringList>
#include <cerrno>
#include <mutex>
#include <unistd.h>

namespace support {

namespace {

std::mutex& logMutex() {
    static std::mutex mutex;
    return mutex;
}

LogCapture* currentCapture = nullptr; // guarded by logMutex()
int output = STDOUT_FILENO;           // guarded by logMutex()

void writeAll(int fd, const QByteArray& bytes) {
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return; // the output is gone; diagnostics are best effort
        }
        data += written;
        left -= written;
    }
}

} // namespace

void log(const QString& record) {
    const QByteArray bytes = (record + u'\n').toUtf8();
    const std::lock_guard lock(logMutex());
    if (currentCapture) {
        currentCapture->append(record);
        if (!currentCapture->echo_)
            return;
    }
    // One write(2) per record: unbuffered, so nothing is lost if the process dies next.
    writeAll(output, bytes);
}

void setLogOutput(int fileDescriptor) {
    const std::lock_guard lock(logMutex());
    output = fileDescriptor;
}

LogCapture::LogCapture(bool echo) : echo_(echo) {
    const std::lock_guard lock(logMutex());
    outer_ = currentCapture;
    currentCapture = this;
}

LogCapture::~LogCapture() {
    const std::lock_guard lock(logMutex());
    currentCapture = outer_;
}

void LogCapture::append(const QString& record) {
    records_.append(record);
}

QStringList LogCapture::records() const {
    const std::lock_guard lock(logMutex());
    return records_;
}

bool LogCapture::contains(const QString& record) const {
    return indexOf(record) >= 0;
}

qsizetype LogCapture::indexOf(const QString& record, qsizetype from) const {
    const std::lock_guard lock(logMutex());
    return records_.indexOf(record, from);
}

qsizetype LogCapture::indexOfPrefix(const QString& prefix, qsizetype from) const {
    const std::lock_guard lock(logMutex());
    for (qsizetype i = std::max<qsizetype>(from, 0); i < records_.size(); ++i) {
        if (records_[i].startsWith(prefix))
            return i;
    }
    return -1;
}

void LogCapture::clear() {
    const std::lock_guard lock(logMutex());
    records_.clear();
}

} // namespace support
