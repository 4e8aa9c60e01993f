#include "tests/common/LoopbackHttpServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace testutil {

namespace {

bool sameName(QByteArrayView a, QByteArrayView b) {
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

} // namespace

QByteArray HttpRequest::header(QByteArrayView name) const {
    for (const auto& [key, value] : headers) {
        if (sameName(key, name))
            return value;
    }
    return {};
}

int HttpRequest::headerCount(QByteArrayView name) const {
    int count = 0;
    for (const auto& header : headers)
        count += sameName(header.first, name) ? 1 : 0;
    return count;
}

HttpResponse HttpResponse::json(int status, QByteArray body) {
    HttpResponse response;
    response.status = status;
    response.headers = {{"Content-Type", "application/json"}};
    response.body = std::move(body);
    return response;
}

HttpResponse HttpResponse::messagesAnswer(const QString& text, int inputTokens, int outputTokens) {
    const QJsonObject answer{
        {QStringLiteral("id"), QStringLiteral("msg_loopback")},
        {QStringLiteral("type"), QStringLiteral("message")},
        {QStringLiteral("role"), QStringLiteral("assistant")},
        {QStringLiteral("content"),
         QJsonArray{QJsonObject{{QStringLiteral("type"), QStringLiteral("text")},
                                {QStringLiteral("text"), text}}}},
        {QStringLiteral("stop_reason"), QStringLiteral("end_turn")},
        {QStringLiteral("usage"), QJsonObject{{QStringLiteral("input_tokens"), inputTokens},
                                              {QStringLiteral("output_tokens"), outputTokens}}},
    };
    return json(200, QJsonDocument(answer).toJson(QJsonDocument::Compact));
}

LoopbackHttpServer::LoopbackHttpServer(quint16 port) {
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t length = sizeof address;
    if (listenFd_ < 0 ||
        ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listenFd_, 128) != 0 ||
        ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("loopback server: cannot listen on 127.0.0.1");
    port_ = ntohs(address.sin_port);
    handler_ = [](const HttpRequest&) { return HttpResponse::json(404, "{}"); };
    acceptor_ = std::thread([this] { acceptLoop(); });
}

// Stops accepting, wakes every delayed or blocked answer and waits for all threads.
LoopbackHttpServer::~LoopbackHttpServer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
        // A shut-down socket ends the accept, read or write waiting on it.
        ::shutdown(listenFd_, SHUT_RDWR);
        for (const int fd : open_)
            ::shutdown(fd, SHUT_RDWR);
    }
    acceptor_.join();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return open_.empty(); });
    ::close(listenFd_);
}

void LoopbackHttpServer::enqueue(HttpResponse response) {
    const std::lock_guard lock(mutex_);
    script_.push_back(std::move(response));
}

void LoopbackHttpServer::setHandler(Handler handler) {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

QString LoopbackHttpServer::url() const {
    return QStringLiteral("http://127.0.0.1:%1/v1/messages").arg(port_);
}

std::vector<HttpRequest> LoopbackHttpServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

bool LoopbackHttpServer::waitForRequests(int count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout,
                             [&] { return static_cast<int>(requests_.size()) >= count; });
}

void LoopbackHttpServer::acceptLoop() {
    for (;;) {
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            if (fd >= 0)
                ::close(fd);
            return;
        }
        if (fd < 0)
            continue;
        open_.insert(fd);
        // Detached; the destructor waits until every connection thread has left.
        std::thread([this, fd] {
            serve(fd);
            const std::lock_guard done(mutex_);
            ::close(fd);
            open_.erase(fd);
            changed_.notify_all();
        }).detach();
    }
}

bool LoopbackHttpServer::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(mutex_);
    return !changed_.wait_for(lock, duration, [this] { return stopping_; });
}

HttpResponse LoopbackHttpServer::answerFor(const HttpRequest& request) {
    Handler handler;
    {
        const std::lock_guard lock(mutex_);
        if (!script_.empty()) {
            HttpResponse next = std::move(script_.front());
            script_.pop_front();
            return next;
        }
        handler = handler_;
    }
    return handler(request);
}

void LoopbackHttpServer::serve(int fd) {
    // Read the head, then the body by its Content-Length.
    QByteArray data;
    qsizetype headEnd = -1;
    char buffer[64 * 1024];
    const auto readMore = [&] {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n > 0)
            data.append(buffer, n);
        return n > 0;
    };
    while ((headEnd = data.indexOf("\r\n\r\n")) < 0) {
        if (!readMore())
            return;
    }

    HttpRequest request;
    const QList<QByteArray> lines = data.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].endsWith('\r') ? lines[i].chopped(1) : lines[i];
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        request.headers.emplace_back(line.left(colon), line.mid(colon + 1).trimmed());
    }
    // No 100-continue: the client must send its body at once (AnthropicServiceTest checks it).
    const qsizetype length = request.header("Content-Length").toLongLong();
    const qsizetype bodyStart = headEnd + 4;
    while (data.size() - bodyStart < length) {
        if (!readMore())
            return;
    }
    request.body = data.mid(bodyStart, length);

    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        changed_.notify_all();
    }
    const HttpResponse response = answerFor(request);
    if (pause(response.delay))
        send(fd, response);
    ::shutdown(fd, SHUT_WR);
    // Let the client read everything and close first, so it never sees a reset.
    while (readMore()) {
    }
}

void LoopbackHttpServer::send(int fd, const HttpResponse& response) {
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                      (response.status == 200 ? "OK" : "Status") + "\r\n"; // clients read the code
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) +
            "\r\nConnection: close\r\n\r\n";

    // The whole message, in pieces when it trickles.
    const QByteArray message = head + response.body;
    const qsizetype piece = response.trickleBytes > 0 ? response.trickleBytes : message.size();
    for (qsizetype at = 0; at < message.size(); at += piece) {
        if (at > 0 && !pause(response.trickleInterval))
            return;
        for (QByteArrayView bytes =
                 QByteArrayView(message).sliced(at, std::min(piece, message.size() - at));
             !bytes.isEmpty();) {
            const ssize_t n =
                ::send(fd, bytes.data(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
            if (n <= 0)
                return;
            bytes = bytes.sliced(n);
        }
    }
}

} // namespace testutil
