#include "tests/common/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace testutil {

namespace {

QByteArray contents(int fd) {
    QByteArray data;
    char buffer[64 * 1024];
    ssize_t n = 0;
    for (off_t at = 0; (n = ::pread(fd, buffer, sizeof buffer, at)) > 0; at += n)
        data.append(buffer, n);
    return data;
}

void closeFd(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

} // namespace

ChildProcess::ChildProcess(const QString& program, const QStringList& arguments) {
    int in[2];
    out_ = ::memfd_create("child-out", MFD_CLOEXEC);
    err_ = ::memfd_create("child-err", MFD_CLOEXEC);
    if (out_ < 0 || err_ < 0 || ::pipe2(in, O_CLOEXEC) != 0)
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
    if (pid_ == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out_, STDOUT_FILENO);
        ::dup2(err_, STDERR_FILENO);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(in[0]);
    in_ = in[1];
    // Writing to a child that has gone must fail, not kill the test program.
    ::fcntl(in_, F_SETFL, O_NONBLOCK);
    ::signal(SIGPIPE, SIG_IGN);
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    for (int* fd : {&in_, &out_, &err_})
        closeFd(*fd);
}

QByteArray ChildProcess::output() const {
    return contents(out_);
}

bool ChildProcess::waitForOutput(const std::function<bool(const QByteArray&)>& condition,
                                 std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition(result_.out = output())) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

ChildProcess::Result ChildProcess::finish(const QByteArray& input,
                                          std::chrono::milliseconds timeout) {
    if (pid_ <= 0 || reaped_)
        return result_;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    QByteArray pending = input;
    int status = 0;
    result_.finished = true;
    while (::waitpid(pid_, &status, WNOHANG) != pid_) {
        if (in_ >= 0 && !pending.isEmpty()) {
            const ssize_t put = ::write(in_, pending.constData(), pending.size());
            if (put > 0)
                pending.remove(0, put);
            else if (errno != EAGAIN && errno != EINTR)
                pending.clear();
        }
        if (pending.isEmpty())
            closeFd(in_);
        if (std::chrono::steady_clock::now() >= deadline) {
            result_.finished = false;
            ::kill(pid_, SIGKILL);
            while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    reaped_ = true;
    closeFd(in_);
    if (WIFEXITED(status))
        result_.exitCode = WEXITSTATUS(status);
    result_.out = contents(out_);
    result_.err = contents(err_);
    return result_;
}

ChildProcess::Result ChildProcess::run(const QString& program, const QStringList& arguments,
                                       const QByteArray& input, std::chrono::milliseconds timeout) {
    ChildProcess child(program, arguments);
    return child.finish(input, timeout);
}

} // namespace testutil
