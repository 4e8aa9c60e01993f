#include "tests/common/ChildProcess.h"
#include "tests/common/LoopbackHttpServer.h"
#include "tests/common/TestUtil.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QStandardPaths>
#include <gtest/gtest.h>

using testutil::HttpResponse;
using ToolRun = testutil::ChildProcess::Result;

namespace {

class RewriteToolTest : public ::testing::Test {
protected:
    RewriteToolTest() {
        store_.clear();
        store_.setValue(QStringLiteral("anthropic_api_key"), QStringLiteral(" sk-ant-tool-key "));
        store_.setValue(QStringLiteral("system_prompt"), QStringLiteral("Stored instruction"));
        store_.setValue(QStringLiteral("selected_model"), QStringLiteral("claude-sonnet-4-6"));
        store_.sync();
    }

    ToolRun run(const QByteArray& input, QStringList arguments = {}) {
        arguments << QStringLiteral("--endpoint") << server_.url();
        auto result =
            testutil::ChildProcess::run(QStringLiteral(MENDWISE_REWRITE_TOOL), arguments, input);
        EXPECT_TRUE(result.finished);
        return result; // a signal leaves the exit code at -1
    }

    QJsonObject sentBody(size_t index = 0) const {
        return QJsonDocument::fromJson(server_.requests().at(index).body).object();
    }

    // The tool reads the same store as the application: the test's own config folder.
    QSettings store_{QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                         QStringLiteral("/Mendwise/Mendwise.conf"),
                     QSettings::IniFormat};
    const testutil::ScopedEnv noProxy_{"no_proxy", QStringLiteral("127.0.0.1,localhost")};
    testutil::LoopbackHttpServer server_;
};

} // namespace

TEST_F(RewriteToolTest, PrintsTheAnswerAloneAndExactlyWithTheTraceOnStandardError) {
    const QString answer = QStringLiteral("  Fixed text, ünïcode 🙂\n\n");
    server_.enqueue(HttpResponse::messagesAnswer(answer));
    const ToolRun result =
        run("teh text\n", {QStringLiteral("--prompt"), QStringLiteral("Be brief")});
    EXPECT_EQ(result.exitCode, 0) << result.err.constData();
    EXPECT_EQ(result.out, answer.toUtf8()); // nothing trimmed, nothing added
    EXPECT_TRUE(result.err.startsWith("🚀 [API] Starting request...\n")) << result.err.constData();
    EXPECT_TRUE(result.err.contains("   Key: sk-ant-too...*** (15 chars)\n"));
    EXPECT_TRUE(result.err.contains("✅ [API] Success: "));

    const QJsonObject body = sentBody();
    EXPECT_EQ(body[QStringLiteral("system")].toString(), QStringLiteral("Be brief"));
    EXPECT_EQ(body[QStringLiteral("model")].toString(), QStringLiteral("claude-sonnet-4-6"));
    EXPECT_EQ(body[QStringLiteral("messages")][0][QStringLiteral("content")].toString(),
              QStringLiteral("teh text\n"));

    // Without --prompt, the stored system prompt; an empty --prompt is sent as given.
    server_.enqueue(HttpResponse::messagesAnswer(QStringLiteral("a")));
    server_.enqueue(HttpResponse::messagesAnswer(QStringLiteral("b")));
    EXPECT_EQ(run("x").out, "a");
    EXPECT_EQ(run("x", {QStringLiteral("--prompt"), QString()}).out, "b");
    EXPECT_EQ(sentBody(1)[QStringLiteral("system")].toString(),
              QStringLiteral("Stored instruction"));
    EXPECT_EQ(sentBody(2)[QStringLiteral("system")].toString(), QString());
}

TEST_F(RewriteToolTest, FailuresPrintTheDescriptionAndExitNonZero) {
    const QByteArray body = R"({"type":"error","error":{"message":"overloaded"}})";
    server_.enqueue(HttpResponse::json(529, body));
    ToolRun result = run("text");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.out.isEmpty());
    EXPECT_TRUE(result.err.endsWith(QByteArray("\n" + body + "\n"))) << result.err.constData();

    // Input that is not UTF-8, or no input at all: refused before anything is sent.
    for (const QByteArray& input : {QByteArray("caf\xe9 latin-1"), QByteArray()}) {
        result = run(input);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_TRUE(result.err.startsWith("mendwise-rewrite: standard input"))
            << result.err.constData();
    }
    EXPECT_EQ(server_.requests().size(), 1U);

    store_.remove(QStringLiteral("anthropic_api_key"));
    store_.sync();
    result = run("text");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "❌ [API] No API key configured\nNo API key\n");

    result = run("text", {QStringLiteral("stray")});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(server_.requests().size(), 1U);
}
