#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

// A scripted HTTP/1.1 server on 127.0.0.1 (an ephemeral port) for tests and benchmarks. It runs
// on its own threads, so a client may block the test's thread while it talks to it. Each
// connection carries one request; every request is recorded exactly as it arrived.
namespace testutil {

using HttpHeaders = std::vector<std::pair<QByteArray, QByteArray>>;

struct HttpRequest {
    QByteArray method;
    QByteArray target;   // the path as sent, with any query
    HttpHeaders headers; // in the order received, names as sent
    QByteArray body;

    // The value of the first header with this name (case-insensitive), or a null array.
    [[nodiscard]] QByteArray header(QByteArrayView name) const;
    [[nodiscard]] int headerCount(QByteArrayView name) const;
};

// Every field has a default, so a test names only the ones it sets: {.delay = 1h}.
struct HttpResponse {
    int status = 200;
    HttpHeaders headers{}; // Content-Length and Connection: close are added
    QByteArray body{};
    // Before anything is sent; a wait longer than the test sends nothing until the server stops.
    std::chrono::milliseconds delay{0};
    // Send the answer in pieces of this many bytes, `trickleInterval` apart (0: all at once).
    qsizetype trickleBytes = 0;
    std::chrono::milliseconds trickleInterval{0};

    [[nodiscard]] static HttpResponse json(int status, QByteArray body);
    // A Messages API answer whose first content block holds `text`.
    [[nodiscard]] static HttpResponse messagesAnswer(const QString& text, int inputTokens = 12,
                                                     int outputTokens = 7);
};

class LoopbackHttpServer {
public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    // Starts listening at once, on `port` (0: any free one). Without a script or handler every
    // request gets a 404.
    explicit LoopbackHttpServer(quint16 port = 0);
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // Responses for the next requests, in order; when none is queued the handler answers.
    void enqueue(HttpResponse response);
    void setHandler(Handler handler);

    [[nodiscard]] quint16 port() const { return port_; }
    [[nodiscard]] QString url() const; // of the Messages API

    [[nodiscard]] std::vector<HttpRequest> requests() const;
    // Blocks until `count` requests have arrived (true) or the timeout passes (false).
    bool waitForRequests(int count, std::chrono::milliseconds timeout = std::chrono::seconds(5));

private:
    void acceptLoop();
    void serve(int fd);
    HttpResponse answerFor(const HttpRequest& request);
    // Waits up to `duration`; false when the server is stopping.
    bool pause(std::chrono::milliseconds duration);
    void send(int fd, const HttpResponse& response);

    int listenFd_ = -1;
    quint16 port_ = 0;
    std::thread acceptor_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::deque<HttpResponse> script_;
    Handler handler_;
    std::vector<HttpRequest> requests_;
    std::set<int> open_; // connections whose thread still runs
};

} // namespace testutil
