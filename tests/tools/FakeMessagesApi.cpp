// fake-messages-api: a stand-in for the Messages API on 127.0.0.1, for end-to-end runs.
// Answers every request with a scripted response and appends each request it received to a
// log file as one JSON object per line (its body). Runs until SIGINT or SIGTERM.
#include "tests/common/LoopbackHttpServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>

using testutil::HttpRequest;
using testutil::HttpResponse;

namespace {

// The end-to-end checks read the bodies alone.
QByteArray logLine(const HttpRequest& request) {
    const QJsonObject line{{QStringLiteral("body"), QString::fromUtf8(request.body)}};
    return QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
}

// The text of the request's first message, for --echo.
QString userText(const HttpRequest& request) {
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    return body.value(QStringLiteral("messages"))
        .toArray()
        .at(0)[QStringLiteral("content")]
        .toString();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Serves a scripted Messages API answer on 127.0.0.1 until SIGINT or SIGTERM."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("port"), QStringLiteral("Port to listen on (0: any free port)."),
         QStringLiteral("N"), QStringLiteral("0")},
        {QStringLiteral("answer"), QStringLiteral("Answer every request with this text."),
         QStringLiteral("TEXT"), QStringLiteral("Fixed.")},
        {QStringLiteral("echo"), QStringLiteral("Answer with the request's own text.")},
        {QStringLiteral("status"),
         QStringLiteral("Answer with this status and the --body-file body instead."),
         QStringLiteral("N")},
        {QStringLiteral("body-file"), QStringLiteral("Raw response body for --status."),
         QStringLiteral("FILE")},
        {QStringLiteral("delay-ms"), QStringLiteral("Wait this long before answering."),
         QStringLiteral("MS"), QStringLiteral("0")},
        {QStringLiteral("log"), QStringLiteral("Append each request to FILE as a JSON line."),
         QStringLiteral("FILE")},
    });
    parser.process(app);
    const auto option = [&parser](const char* name) {
        return parser.value(QString::fromLatin1(name));
    };

    QByteArray rawBody;
    if (!option("body-file").isEmpty()) {
        QFile file(option("body-file"));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "fake-messages-api: cannot read %s\n",
                         qPrintable(option("body-file")));
            return 2;
        }
        rawBody = file.readAll();
    }

    // Deliver SIGINT and SIGTERM to sigwait below, not to the server's threads.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::unique_ptr<testutil::LoopbackHttpServer> listening;
    try {
        listening = std::make_unique<testutil::LoopbackHttpServer>(option("port").toUShort());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "fake-messages-api: %s (port %s)\n", e.what(),
                     qPrintable(option("port")));
        return 1;
    }
    testutil::LoopbackHttpServer& server = *listening;
    const QString logPath = option("log");
    const bool echo = parser.isSet(QStringLiteral("echo"));
    const QString answer = option("answer");
    const int status = option("status").toInt(); // 0 when not set
    const std::chrono::milliseconds delay(option("delay-ms").toInt());
    std::mutex logMutex;
    server.setHandler([&](const HttpRequest& request) {
        if (!logPath.isEmpty()) {
            const std::lock_guard lock(logMutex);
            QFile log(logPath);
            if (log.open(QIODevice::WriteOnly | QIODevice::Append))
                log.write(logLine(request));
        }
        HttpResponse response =
            status != 0 ? HttpResponse::json(status, rawBody)
                        : HttpResponse::messagesAnswer(echo ? userText(request) : answer);
        response.delay = delay;
        return response;
    });

    std::printf("fake-messages-api: listening on %s\n", qPrintable(server.url()));
    std::fflush(stdout);

    int received = 0;
    sigwait(&signals, &received);
    return 0;
}
