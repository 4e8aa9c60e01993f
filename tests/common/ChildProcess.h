#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <chrono>
#include <functional>
#include <sys/types.h>

// Child processes for tests, started with plain fork and exec. QProcess (Qt 6.4) starts its
// children in a way that leaves ThreadSanitizer believing the parent itself has forked, after
// which any new thread aborts the test program; fork and exec are understood by it.
namespace testutil {

class ChildProcess {
public:
    struct Result {
        bool finished = false; // false: it did not end in time and was killed
        int exitCode = -1;     // when it exited normally
        QByteArray out;        // standard output
        QByteArray err;        // standard error
    };

    // Starts `program` (looked up in PATH) with the test's environment. Its standard input is a
    // pipe, its output and error go to files in memory, so it never waits for the test to read.
    // Ignores SIGPIPE in the test program from then on.
    ChildProcess(const QString& program, const QStringList& arguments);
    // Kills the child if it still runs, and reaps it.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] bool started() const { return pid_ > 0; }
    [[nodiscard]] pid_t pid() const { return pid_; }

    // The standard output so far.
    [[nodiscard]] QByteArray output() const;
    // Waits until `condition` holds for the standard output so far, or the time is up.
    bool waitForOutput(const std::function<bool(const QByteArray&)>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Writes `input`, closes standard input and waits for the end (killing the child when the
    // time is up).
    Result finish(const QByteArray& input = {},
                  std::chrono::milliseconds timeout = std::chrono::seconds(30));

    // Runs a program to its end.
    static Result run(const QString& program, const QStringList& arguments,
                      const QByteArray& input = {},
                      std::chrono::milliseconds timeout = std::chrono::seconds(30));

private:
    pid_t pid_ = -1;
    bool reaped_ = false;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
    Result result_;
};

} // namespace testutil
