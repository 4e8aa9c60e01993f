#pragma once

#include <QString>
#include <QStringList>
#include <functional>

// Diagnostics: plain records on standard output. A record may span several lines; it is
// written with one write call and flushed, so records from two threads never interleave.
namespace support {

void log(const QString& record);

// Where records go from now on (a file descriptor; standard output by default). A tool whose
// standard output carries its result sends its diagnostics to standard error instead.
void setLogOutput(int fileDescriptor);

// Tests capture records: while a capture exists, records go to it (and, if `echo` is set,
// to standard output too). Captures nest; the innermost one receives the records.
class LogCapture {
public:
    explicit LogCapture(bool echo = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] QStringList records() const;
    [[nodiscard]] bool contains(const QString& record) const;
    // Index of the first record equal to `record` at or after `from`, or -1.
    [[nodiscard]] qsizetype indexOf(const QString& record, qsizetype from = 0) const;
    // Index of the first record starting with `prefix` at or after `from`, or -1.
    [[nodiscard]] qsizetype indexOfPrefix(const QString& prefix, qsizetype from = 0) const;
    void clear();

private:
    friend void log(const QString& record);
    void append(const QString& record);

    bool echo_;
    LogCapture* outer_;
    QStringList records_;
};

} // namespace support
