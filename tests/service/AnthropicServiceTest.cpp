#include "service/AnthropicService.h"

#include "platform/sim/SimLoginItem.h"
#include "service/AppSettings.h"
#include "support/Background.h"
#include "support/Graphemes.h"
#include "support/Log.h"
#include "support/SettingsFormat.h"
#include "tests/common/ChildProcess.h"
#include "tests/common/LoopbackHttpServer.h"
#include "tests/common/TestUtil.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using testutil::HttpRequest;
using testutil::HttpResponse;
using testutil::LoopbackHttpServer;
using namespace std::chrono_literals;

namespace {

class AnthropicServiceTest : public ::testing::Test {
protected:
    AnthropicServiceTest()
        : settings_(std::make_unique<QSettings>(dir_.filePath(QStringLiteral("s.conf")),
                                                support::settingsFormat()),
                    loginItem_) {
        settings_.setApiKey(QStringLiteral("sk-ant-api03-abcdefghij"));
    }

    [[nodiscard]] AnthropicService client(std::chrono::milliseconds idle = 30s) const {
        return AnthropicService(QUrl(server_.url()), const_cast<AppSettings&>(settings_), idle);
    }

    // One request through `service` (the test's own client when none), for caught<>().
    [[nodiscard]] auto request(const AnthropicService* service = nullptr) {
        return [this, service] {
            (void)(service ? *service : client()).rewrite(QStringLiteral("x"), QStringLiteral("y"));
        };
    }

    // The loopback server must be reached directly even where a proxy is configured.
    const testutil::ScopedEnv noProxy_{"no_proxy", QStringLiteral("127.0.0.1,localhost")};
    QTemporaryDir dir_;
    platform::sim::SimLoginItem loginItem_;
    AppSettings settings_;
    LoopbackHttpServer server_;
    support::LogCapture log_;
};

// Runs `work` and returns the E it threw; any other error, or none, escapes and fails the test.
template <typename E, typename Work> E caught(Work work) {
    try {
        work();
    } catch (const E& e) {
        return e;
    }
    throw std::logic_error("no error where one was expected");
}

const QRegularExpression
    responseLine(QStringLiteral(R"(^📡 \[API\] Response: HTTP (\d+) in \d+\.\d\ds$)"));

} // namespace

TEST_F(AnthropicServiceTest, SendsOneCompactRequestWithTheExactHeaders) {
    settings_.setSelectedModel(ClaudeModel::sonnet);
    const QString text = QStringLiteral("Line \"one\"\n\ttwo 👍🏽 </script> \\ é");
    const QString instruction = QStringLiteral("Rewrite:\n  keep \"quotes\" ");
    server_.enqueue(HttpResponse::messagesAnswer(QStringLiteral("ok")));
    EXPECT_EQ(client().rewrite(text, instruction), QStringLiteral("ok"));

    const std::vector<HttpRequest> requests = server_.requests();
    ASSERT_EQ(requests.size(), 1U);
    const HttpRequest& request = requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/v1/messages");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("x-api-key"), "sk-ant-api03-abcdefghij");
    EXPECT_EQ(request.header("anthropic-version"), "2023-06-01");
    for (const char* name : {"Content-Type", "x-api-key", "anthropic-version"})
        EXPECT_EQ(request.headerCount(name), 1) << name;
    EXPECT_EQ(request.headerCount("Expect"), 0);
    EXPECT_EQ(request.header("Content-Length").toLongLong(), request.body.size());

    const QJsonDocument sent = QJsonDocument::fromJson(request.body);
    const QJsonObject expected{
        {QStringLiteral("model"), QStringLiteral("claude-sonnet-4-6")},
        {QStringLiteral("max_tokens"), 4096},
        {QStringLiteral("system"), instruction},
        {QStringLiteral("messages"),
         QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                {QStringLiteral("content"), text}}}},
    };
    EXPECT_EQ(sent.object(), expected);
    // No pretty printing, and 4096 an integer: a "4096.0" would not survive the round trip.
    EXPECT_EQ(request.body, sent.toJson(QJsonDocument::Compact));
}

TEST_F(AnthropicServiceTest, TracesTheExchangeInOrder) {
    server_.enqueue(HttpResponse::messagesAnswer(QStringLiteral("Hello world"), 25, 3));
    // Counted and cut in user-perceived characters: a thumb with its skin tone is one.
    EXPECT_EQ(client().rewrite(QStringLiteral("Helo 👍🏽"), QStringLiteral("Fix")),
              QStringLiteral("Hello world"));
    QStringList records = log_.records();
    ASSERT_EQ(records.size(), 7) << records.join(u'\n').toStdString();
    EXPECT_EQ(records.mid(0, 4), (QStringList{
                                     QStringLiteral("🚀 [API] Starting request..."),
                                     QStringLiteral("   Key: sk-ant-api...*** (23 chars)"),
                                     QStringLiteral("   Model: Haiku 4.5 (claude-haiku-4-5)"),
                                     QStringLiteral("   Input: \"Helo 👍🏽...\" (6 chars)"),
                                 }));
    EXPECT_EQ(responseLine.match(records[4]).captured(1), QStringLiteral("200"));
    EXPECT_EQ(records[5], QStringLiteral("📊 [API] Tokens: 25 in → 3 out"));
    EXPECT_EQ(records[6], QStringLiteral("✅ [API] Success: \"Hello world...\" (11 chars)"));

    // An error response: its status on the response line, then one record (the table below
    // has what it says).
    server_.enqueue(HttpResponse::json(401, R"({"type":"error"})"));
    log_.clear();
    (void)caught<AnthropicService::Err>(request());
    records = log_.records();
    ASSERT_EQ(records.size(), 6);
    EXPECT_EQ(responseLine.match(records[4]).captured(1), QStringLiteral("401"));
}

// What each response reads as: "=" and the answer exactly as received, "api:" and the error
// text, "parse" (JSON without a usable first text block) or "json" (not JSON at all); and
// the tokens line, logged whenever "usage" is an object (missing or non-integer counts are 0).
TEST(AnthropicServiceAnswers, EveryResponseReadsAsItsAnswerOrItsError) {
    const QString noTokens;
    const QString zeroTokens = QStringLiteral("📊 [API] Tokens: 0 in → 0 out");
    const QString fiveTokens = QStringLiteral("📊 [API] Tokens: 5 in → 0 out");
    const QByteArray usage5 = R"("usage":{"input_tokens":5,"output_tokens":0})";
    const struct {
        long status;
        QByteArray body;
        QString outcome;
        QString tokens;
    } cases[] = {
        {200, R"({"content":[{"text":"Done"}]})", QStringLiteral("=Done"), noTokens},
        {200, R"({"content":[{"text":"Done"}],"usage":"12 in"})", QStringLiteral("=Done"),
         noTokens},
        {200, R"({"content":[{"text":"Done"}],"usage":{"input_tokens":12.5,"output_tokens":"9"}})",
         QStringLiteral("=Done"), zeroTokens},
        {200, R"({"usage":{"output_tokens":4096},"content":[{"text":"Done"}]})",
         QStringLiteral("=Done"), QStringLiteral("📊 [API] Tokens: 0 in → 4096 out")},
        {200, R"({"content":[{"text":""}]})", QStringLiteral("="), noTokens},
        {200, "{\"content\":[{\"text\":\"\\n \xc2\xa0tabs\\t\\r\\n\"}]}",
         QStringLiteral("=\n \u00a0tabs\t\r\n"), noTokens}, // nothing trimmed
        // Any status but 200 is an error, also a success code; its text is decoded strictly (the
        // decoder's cases are in Utf8Test).
        {201, "created", QStringLiteral("api:created"), noTokens},
        {529, "\xef\xbb\xbfOverloaded \xe2\x80\x94 later",
         QStringLiteral("api:\ufeffOverloaded — later"), noTokens},
        {500, "", QStringLiteral("api:"), noTokens},
        {503, "bad \xff\xfe bytes", QStringLiteral("api:Unknown error"), noTokens},
        {200, "Hello, not JSON", QStringLiteral("json"), noTokens},
        {200, "", QStringLiteral("json"), noTokens},
        {200, "{\"content\":[{\"text\":\"\xff\"}]}", QStringLiteral("json"), noTokens},
        {200, "{\"content\":[]," + usage5 + '}', QStringLiteral("parse"), fiveTokens},
        {200, R"({"content":[{"type":"tool_use"},{"text":"later"}]})", QStringLiteral("parse"),
         noTokens},
        {200, "{\"content\":[{\"text\":42}]," + usage5 + '}', QStringLiteral("parse"), fiveTokens},
        {200, R"({"content":[{"text":"first"},"second"]})", QStringLiteral("parse"), noTokens},
        {200, R"({"content":{"text":"x"}})", QStringLiteral("parse"), noTokens},
        {200, '{' + usage5 + '}', QStringLiteral("parse"), fiveTokens},
        {200, R"([{"content":[{"text":"x"}]}])", QStringLiteral("parse"), noTokens},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body.toStdString());
        const support::LogCapture log;
        QString outcome;
        try {
            outcome = u'=' + AnthropicService::readAnswer(c.status, c.body);
        } catch (const AnthropicService::Err& e) {
            outcome = e.kind() == AnthropicService::Err::Case::parse
                          ? QStringLiteral("parse")
                          : QStringLiteral("api:") + e.errorDescription();
        } catch (const service::JsonParseError& e) {
            EXPECT_LE(e.offset(), c.body.size()); // a byte of the body
            outcome = QStringLiteral("json");
        }
        EXPECT_EQ(outcome, c.outcome);
        QStringList expected;
        if (!c.tokens.isEmpty())
            expected << c.tokens;
        if (outcome.startsWith(u'='))
            expected << QStringLiteral("✅ [API] Success: \"") +
                            support::graphemePrefix(outcome.mid(1), 50) + u"...\" (" +
                            QString::number(support::graphemeCount(outcome.mid(1))) + u" chars)";
        else if (outcome == u"parse")
            expected << QStringLiteral("❌ [API] Failed to parse response");
        else if (outcome.startsWith(u"api:"))
            expected << QStringLiteral("❌ [API] Error: ") + outcome.mid(4);
        EXPECT_EQ(log.records(), expected);
    }
}

// One service throughout: the key and the model are read at each request.
TEST_F(AnthropicServiceTest, SettingsAreReadAtEachRequestTheKeyTrimmedABlankOneSendsNothing) {
    const AnthropicService service = client();
    for (const QString& blank : {QString(), QStringLiteral("   \n\t \r\n  ")}) {
        log_.clear();
        settings_.setApiKey(blank);
        const auto error = caught<AnthropicService::Err>(request(&service));
        EXPECT_EQ(error.kind(), AnthropicService::Err::Case::noKey);
        EXPECT_EQ(error.errorDescription(), QStringLiteral("No API key"));
        EXPECT_EQ(log_.records(), QStringList{QStringLiteral("❌ [API] No API key configured")});
    }
    EXPECT_TRUE(server_.requests().empty());

    log_.clear();
    settings_.setApiKey(QStringLiteral("  \n sk-ant-trimmed-key \t "));
    settings_.setSelectedModel(ClaudeModel::opus);
    server_.enqueue(HttpResponse::messagesAnswer(QStringLiteral("ok")));
    EXPECT_EQ(service.rewrite(QStringLiteral("x"), QStringLiteral("y")), QStringLiteral("ok"));
    const HttpRequest sent = server_.requests().at(0);
    EXPECT_EQ(sent.header("x-api-key"), "sk-ant-trimmed-key");
    EXPECT_TRUE(sent.body.contains("\"model\":\"claude-opus-4-6\""));
    EXPECT_EQ(log_.records().mid(1, 2),
              (QStringList{QStringLiteral("   Key: sk-ant-tri...*** (18 chars)"),
                           QStringLiteral("   Model: Opus 4.6 (claude-opus-4-6)")}));
    EXPECT_EQ(settings_.apiKey(), QStringLiteral("  \n sk-ant-trimmed-key \t ")); // stored as is

    // A key with a line break inside cannot become a header; nothing is sent.
    settings_.setApiKey(QStringLiteral("sk-ant\r\nX-Injected: 1"));
    const auto error = caught<service::TransportError>(request(&service));
    EXPECT_FALSE(error.errorDescription().isEmpty());
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(AnthropicServiceTest, IdleTimeoutEndsASilentExchangeButNotASlowSteadyOne) {
    server_.enqueue({.delay = 1h}); // silent until the test ends
    const auto start = std::chrono::steady_clock::now();
    const AnthropicService quick = client(1s);
    const auto error = caught<service::TransportError>(request(&quick));
    EXPECT_TRUE(error.isTimeout()) << error.errorDescription().toStdString();
    EXPECT_FALSE(error.errorDescription().isEmpty());
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, 900ms);
    EXPECT_LT(took, 5s);
    EXPECT_EQ(log_.indexOfPrefix(QStringLiteral("📡")), -1); // a transport failure: no line

    // An answer that keeps coming in small pieces takes longer than the idle timeout in all.
    HttpResponse trickle = HttpResponse::messagesAnswer(QStringLiteral("slow but steady"));
    trickle.trickleBytes = trickle.body.size() / 8 + 1;
    trickle.trickleInterval = 350ms;
    server_.enqueue(trickle);
    const auto trickleStart = std::chrono::steady_clock::now();
    EXPECT_EQ(quick.rewrite(QStringLiteral("x"), QStringLiteral("y")),
              QStringLiteral("slow but steady"));
    EXPECT_GT(std::chrono::steady_clock::now() - trickleStart, 1500ms);
}

TEST_F(AnthropicServiceTest, ATransportFailurePassesThroughReadably) {
    const quint16 closedPort = LoopbackHttpServer().port(); // free again once it is gone
    const AnthropicService refused(
        QUrl(QStringLiteral("http://127.0.0.1:%1/v1/messages").arg(closedPort)), settings_);
    const auto error = caught<service::TransportError>(request(&refused));
    EXPECT_TRUE(error.errorDescription().contains(QString::number(closedPort)))
        << error.errorDescription().toStdString();
    EXPECT_FALSE(error.isTimeout());
    EXPECT_EQ(log_.records().size(), 4); // the four starting lines only
}

TEST_F(AnthropicServiceTest, TlsPeerIsVerified) {
    // A TLS server whose certificate nobody vouches for.
    QTemporaryDir tlsDir;
    const QString cert = tlsDir.filePath(QStringLiteral("cert.pem"));
    const QString key = tlsDir.filePath(QStringLiteral("key.pem"));
    const auto keygen = testutil::ChildProcess::run(
        QStringLiteral("openssl"),
        QStringLiteral("req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1 -addext "
                       "subjectAltName=IP:127.0.0.1 -keyout %1 -out %2")
            .arg(key, cert)
            .split(u' '));
    ASSERT_EQ(keygen.exitCode, 0) << keygen.err.constData();
    testutil::ChildProcess tlsServer(
        QStringLiteral("openssl"),
        QStringLiteral("s_server -www -accept 127.0.0.1:0 -cert %1 -key %2")
            .arg(cert, key)
            .split(u' '));
    QString port;
    const QRegularExpression accept(QStringLiteral("ACCEPT 127\\.0\\.0\\.1:(\\d+)"));
    ASSERT_TRUE(tlsServer.waitForOutput([&](const QByteArray& out) {
        port = accept.match(QString::fromUtf8(out)).captured(1);
        return !port.isEmpty();
    }));

    const AnthropicService tls(QUrl(QStringLiteral("https://127.0.0.1:%1/v1/messages").arg(port)),
                               settings_, 5s);
    const auto error = caught<service::TransportError>(request(&tls));
    EXPECT_TRUE(error.errorDescription().contains(QStringLiteral("certificate")))
        << error.errorDescription().toStdString();
}

TEST_F(AnthropicServiceTest, StopRequestAbortsAWaitingExchangePromptly) {
    server_.enqueue({.delay = 1h});
    std::stop_source stop;
    const AnthropicService service = client();
    auto outcome = std::async(std::launch::async, [&] {
        (void)caught<support::CancellationError>([&] {
            (void)service.rewrite(QStringLiteral("x"), QStringLiteral("y"), stop.get_token());
        });
        return std::chrono::steady_clock::now();
    });
    ASSERT_TRUE(server_.waitForRequests(1));
    std::this_thread::sleep_for(100ms);
    const auto requested = std::chrono::steady_clock::now();
    stop.request_stop();
    ASSERT_EQ(outcome.wait_for(5s), std::future_status::ready);
    EXPECT_LT(outcome.get() - requested, 500ms);
}

// Each request is answered only once both have arrived: one after the other, neither would be.
TEST_F(AnthropicServiceTest, RequestsRunSideBySide) {
    server_.setHandler([this](const HttpRequest& request) {
        if (!server_.waitForRequests(2))
            return HttpResponse::json(500, "only one at a time");
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        return HttpResponse::messagesAnswer(
            body[QStringLiteral("messages")][0][QStringLiteral("content")].toString().toUpper());
    });
    const AnthropicService service = client();
    auto first = std::async(std::launch::async, [&] {
        return service.rewrite(QStringLiteral("first"), QStringLiteral("y"));
    });
    auto second = std::async(std::launch::async, [&] {
        return service.rewrite(QStringLiteral("second"), QStringLiteral("y"));
    });
    EXPECT_EQ(first.get(), QStringLiteral("FIRST"));
    EXPECT_EQ(second.get(), QStringLiteral("SECOND"));
}

TEST_F(AnthropicServiceTest, LargeInputAndLargeAnswer) {
    QString input;
    while (input.size() < qsizetype{1024} * 1024)
        input += QStringLiteral("Ünïcödé text with \"quotes\" and a newline\n");
    QString answer;
    while (answer.size() < qsizetype{10} * 1024 * 1024)
        answer += QStringLiteral("The answer, line after line — 🙂\n");
    server_.enqueue(HttpResponse::messagesAnswer(answer));
    EXPECT_EQ(client().rewrite(input, QStringLiteral("y")), answer);
    const QJsonObject sent = QJsonDocument::fromJson(server_.requests().at(0).body).object();
    EXPECT_EQ(sent[QStringLiteral("messages")][0][QStringLiteral("content")].toString(), input);
}
