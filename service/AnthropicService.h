#pragma once

#include "support/Error.h"

#include <QString>
#include <QUrl>
#include <chrono>
#include <stop_token>

class AppSettings;

namespace service {

// The HTTP transport failed: no connection, a TLS failure, an idle timeout, a broken reply.
class TransportError : public support::Error {
public:
    TransportError(int curlCode, QString description);
    [[nodiscard]] QString errorDescription() const override { return description_; }
    // libcurl's result code (CURLcode).
    [[nodiscard]] int curlCode() const { return curlCode_; }
    [[nodiscard]] bool isTimeout() const;

private:
    int curlCode_;
    QString description_;
};

// A successful response whose body is not JSON.
class JsonParseError : public support::Error {
public:
    JsonParseError(QString reason, qsizetype offset);
    [[nodiscard]] QString errorDescription() const override;
    [[nodiscard]] const QString& reason() const { return reason_; }
    [[nodiscard]] qsizetype offset() const { return offset_; }

private:
    QString reason_;
    qsizetype offset_;
};

} // namespace service

// The client of the Anthropic Messages API: one text, one instruction, one answer.
// Holds no state between calls; several calls may run at once on different threads.
class AnthropicService {
public:
    class Err : public support::Error {
    public:
        enum class Case { api, noKey, parse };

        // The service answered with an error; `text` is its whole response body.
        [[nodiscard]] static Err api(QString text) { return {Case::api, std::move(text)}; }
        [[nodiscard]] static Err noKey() { return {Case::noKey, {}}; }
        [[nodiscard]] static Err parse() { return {Case::parse, {}}; }

        [[nodiscard]] Case kind() const { return case_; }
        // The payload of `api`; empty for the other cases.
        [[nodiscard]] const QString& text() const { return text_; }
        [[nodiscard]] QString errorDescription() const override;

    private:
        Err(Case which, QString text) : case_(which), text_(std::move(text)) {}
        Case case_;
        QString text_;
    };

    static constexpr std::chrono::milliseconds defaultIdleTimeout{std::chrono::seconds(30)};

    // `api` is the Messages API endpoint. The API key and the model are read from `settings` at
    // each request. A request fails once no bytes have moved for `idleTimeout`.
    AnthropicService(QUrl api, AppSettings& settings,
                     std::chrono::milliseconds idleTimeout = defaultIdleTimeout);

    // Sends `text` with `systemPrompt` as the instruction and returns the model's answer exactly
    // as received. Blocks the calling thread (never call it on the main thread of a GUI) until
    // the answer is in. Throws Err, service::TransportError, service::JsonParseError, or
    // support::CancellationError once `stop` is requested.
    [[nodiscard]] QString rewrite(const QString& text, const QString& systemPrompt,
                                  const std::stop_token& stop = {}) const;

    // The answer in a response of the service (`status` is the HTTP status), as rewrite()
    // returns it; throws Err or service::JsonParseError as rewrite() does.
    [[nodiscard]] static QString readAnswer(long status, const QByteArray& body);

    [[nodiscard]] const QUrl& api() const { return api_; }
    [[nodiscard]] std::chrono::milliseconds idleTimeout() const { return idleTimeout_; }

private:
    QUrl api_;
    AppSettings& settings_;
    std::chrono::milliseconds idleTimeout_;
};
