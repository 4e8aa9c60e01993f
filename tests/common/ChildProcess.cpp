#include "tests/common/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace testutil {

ChildProcess::ChildProcess(const QString& program, const QStringList& arguments) {
    int in[2];
    int out[2];
    int err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        return;
    // Everything the child needs is prepared before fork: after it, only async-signal-safe calls.
    std::vector<QByteArray> storage{program.toLocal8Bit()};
    for (const QString& argument : arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    argv.reserve(storage.size() + 1);
    for (QByteArray& item : storage)
        argv.push_back(item.data());
    argv.push_back(nullptr);

    pid_ = ::fork();
    if (pid_ < 0) {
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
            ::close(fd);
        return;
    }
    if (pid_ == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
    // Writing to a child that has gone must fail, not kill the test program.
    ::fcntl(in_, F_SETFL, O_NONBLOCK);
    ::signal(SIGPIPE, SIG_IGN);
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    closeFd(in_);
    closeFd(out_);
    closeFd(err_);
}

void ChildProcess::closeFd(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

bool ChildProcess::pump(QByteArray& pending, int timeoutMs) {
    if (pending.isEmpty())
        closeFd(in_);
    pollfd fds[3] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}, {in_, POLLOUT, 0}};
    if (out_ < 0 && err_ < 0 && in_ < 0)
        return false;
    const int n = ::poll(fds, 3, timeoutMs);
    if (n < 0 && errno != EINTR)
        return false;
    char buffer[64 * 1024];
    const auto drain = [&](int& fd, QByteArray& into, short revents) {
        if (fd < 0 || revents == 0)
            return;
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got > 0)
            into.append(buffer, got);
        else if (got == 0 || errno != EINTR)
            closeFd(fd);
    };
    drain(out_, result_.out, fds[0].revents);
    drain(err_, result_.err, fds[1].revents);
    if (in_ >= 0 && fds[2].revents != 0) {
        const ssize_t put = ::write(in_, pending.constData(), static_cast<size_t>(pending.size()));
        if (put > 0)
            pending.remove(0, put);
        else if (errno != EAGAIN && errno != EINTR) {
            closeFd(in_);
            pending.clear();
        }
    }
    return true;
}

bool ChildProcess::waitForOutput(const std::function<bool(const QByteArray&)>& condition,
                                 std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition(result_.out)) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || out_ < 0)
            return condition(result_.out);
        pollfd fd{out_, POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(std::min<long long>(left.count(), 100))) > 0) {
            char buffer[4096];
            const ssize_t got = ::read(out_, buffer, sizeof buffer);
            if (got > 0)
                result_.out.append(buffer, got);
            else if (got == 0)
                closeFd(out_);
        }
    }
    return true;
}

ChildProcess::Result ChildProcess::finish(const QByteArray& input,
                                          std::chrono::milliseconds timeout) {
    if (pid_ <= 0 || reaped_)
        return result_;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    QByteArray pending = input;
    bool timedOut = false;
    while (out_ >= 0 || err_ >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        if (!pump(pending, static_cast<int>(std::min<long long>(left.count(), 100))))
            break;
    }
    closeFd(in_);
    if (timedOut)
        ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    result_.finished = !timedOut;
    if (WIFEXITED(status))
        result_.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result_.signal = WTERMSIG(status);
    return result_;
}

ChildProcess::Result ChildProcess::run(const QString& program, const QStringList& arguments,
                                       const QByteArray& input, std::chrono::milliseconds timeout) {
    ChildProcess child(program, arguments);
    return child.finish(input, timeout);
}

} // namespace testutil
