#include "service/AnthropicService.h"

#include "service/AppSettings.h"
#include "service/Utf8.h"
#include "support/Background.h"
#include "support/Graphemes.h"
#include "support/Log.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <curl/curl.h>
#include <memory>
#include <mutex>

namespace service {

TransportError::TransportError(int curlCode, QString description)
    : curlCode_(curlCode), description_(std::move(description)) {}

bool TransportError::isTimeout() const {
    return curlCode_ == CURLE_OPERATION_TIMEDOUT;
}

JsonParseError::JsonParseError(QString reason, qsizetype offset)
    : reason_(std::move(reason)), offset_(offset) {}

QString JsonParseError::errorDescription() const {
    return QStringLiteral("The response is not valid JSON (%1 at byte %2).")
        .arg(reason_)
        .arg(offset_);
}

} // namespace service

QString AnthropicService::Err::errorDescription() const {
    switch (case_) {
    case Case::api:
        return text_;
    case Case::noKey:
        return QStringLiteral("No API key");
    case Case::parse:
        return QStringLiteral("Parse error");
    }
    return {};
}

namespace {

using service::TransportError;

// Answers larger than this are refused rather than held in memory (max_tokens keeps real ones
// far below it).
constexpr qsizetype maxResponseMegabytes = 256;
constexpr qsizetype maxResponseBytes = maxResponseMegabytes * 1024 * 1024;

void initializeCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Exchange {
    QByteArray body;
    bool tooLarge = false;
};

size_t receive(char* data, size_t size, size_t count, void* user) {
    auto* exchange = static_cast<Exchange*>(user);
    const size_t bytes = size * count;
    if (exchange->body.size() + static_cast<qsizetype>(bytes) > maxResponseBytes) {
        exchange->tooLarge = true;
        return 0; // makes the transfer fail with CURLE_WRITE_ERROR
    }
    exchange->body.append(data, static_cast<qsizetype>(bytes));
    return bytes;
}

// One easy handle driven by its own multi handle, so that a stop request can wake the wait at
// once (curl_multi_wakeup) instead of at the next progress tick.
class Transfer {
public:
    Transfer() : easy_(curl_easy_init()), multi_(curl_multi_init()) {}
    ~Transfer() {
        if (added_)
            curl_multi_remove_handle(multi_, easy_);
        curl_multi_cleanup(multi_);
        curl_easy_cleanup(easy_);
        curl_slist_free_all(headers_);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    [[nodiscard]] bool isValid() const { return easy_ && multi_; }
    CURL* easy() { return easy_; }
    void addHeader(const QByteArray& line) {
        curl_slist* appended = curl_slist_append(headers_, line.constData());
        if (!appended)
            throw TransportError(CURLE_OUT_OF_MEMORY, QStringLiteral("Out of memory"));
        headers_ = appended;
    }
    [[nodiscard]] curl_slist* headers() const { return headers_; }
    char* errorBuffer() { return errorBuffer_.data(); }

    // Runs the transfer to its end; returns libcurl's result. Fails with a timeout once no
    // byte has moved either way for `idleTimeout` (libcurl's own low-speed check averages over
    // several seconds, so it would fire late).
    CURLcode run(const std::stop_token& stop, std::chrono::milliseconds idleTimeout) {
        using Clock = std::chrono::steady_clock;
        curl_multi_add_handle(multi_, easy_);
        added_ = true;
        const std::stop_callback wake(stop, [this] { curl_multi_wakeup(multi_); });
        auto lastActivity = Clock::now();
        curl_off_t lastMoved = 0;
        int running = 1;
        while (true) {
            const CURLMcode performed = curl_multi_perform(multi_, &running);
            if (performed != CURLM_OK)
                throw TransportError(CURLE_FAILED_INIT,
                                     QString::fromUtf8(curl_multi_strerror(performed)));
            if (running == 0)
                break;
            support::throwIfCancelled(stop);
            const auto now = Clock::now();
            if (const curl_off_t moved = bytesMoved(); moved != lastMoved) {
                lastMoved = moved;
                lastActivity = now;
            } else if (now - lastActivity >= idleTimeout) {
                return CURLE_OPERATION_TIMEDOUT;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                lastActivity + idleTimeout - now);
            const int waitMs = static_cast<int>(
                std::clamp<std::chrono::milliseconds::rep>(left.count() + 1, 1, 1000));
            const CURLMcode polled = curl_multi_poll(multi_, nullptr, 0, waitMs, nullptr);
            if (polled != CURLM_OK)
                throw TransportError(CURLE_FAILED_INIT,
                                     QString::fromUtf8(curl_multi_strerror(polled)));
            support::throwIfCancelled(stop);
        }
        int pending = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &pending)) {
            if (message->msg == CURLMSG_DONE && message->easy_handle == easy_)
                return message->data.result;
        }
        return CURLE_FAILED_INIT;
    }

private:
    // Bytes sent and received so far, headers included.
    curl_off_t bytesMoved() {
        curl_off_t sent = 0;
        curl_off_t received = 0;
        long headers = 0;
        curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent);
        curl_easy_getinfo(easy_, CURLINFO_SIZE_DOWNLOAD_T, &received);
        curl_easy_getinfo(easy_, CURLINFO_HEADER_SIZE, &headers);
        return sent + received + headers;
    }

public:
private:
    CURL* easy_;
    CURLM* multi_;
    curl_slist* headers_ = nullptr;
    bool added_ = false;
    std::array<char, CURL_ERROR_SIZE> errorBuffer_{};
};

struct Response {
    long status = 0;
    QByteArray body;
};

template <typename T> void setOption(CURL* easy, CURLoption option, T value) {
    if (const CURLcode code = curl_easy_setopt(easy, option, value); code != CURLE_OK)
        throw TransportError(code, QString::fromUtf8(curl_easy_strerror(code)));
}

Response post(const QUrl& url, const QByteArray& apiKey, const QByteArray& body,
              std::chrono::milliseconds idleTimeout, const std::stop_token& stop) {
    initializeCurlOnce();
    Transfer transfer;
    if (!transfer.isValid())
        throw TransportError(CURLE_FAILED_INIT, QStringLiteral("Could not start a request."));
    transfer.addHeader("Content-Type: application/json");
    transfer.addHeader("x-api-key: " + apiKey);
    transfer.addHeader("anthropic-version: 2023-06-01");
    transfer.addHeader("Expect:"); // send large bodies at once, without a 100-continue round trip

    Exchange exchange;
    CURL* easy = transfer.easy();
    const QByteArray address = url.toEncoded();
    setOption(easy, CURLOPT_ERRORBUFFER, transfer.errorBuffer());
    setOption(easy, CURLOPT_URL, address.constData());
    setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
    setOption(easy, CURLOPT_POST, 1L);
    setOption(easy, CURLOPT_POSTFIELDS, body.constData());
    setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    setOption(easy, CURLOPT_HTTPHEADER, transfer.headers());
    setOption(easy, CURLOPT_USERAGENT, "Mendwise");
    setOption(easy, CURLOPT_ACCEPT_ENCODING, ""); // whatever this libcurl can decode
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    // The timeout is an idle timeout (see Transfer::run), not a cap on the whole exchange: a
    // long answer that keeps arriving is never cut off.
    setOption(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(idleTimeout.count()));
    setOption(easy, CURLOPT_WRITEFUNCTION, &receive);
    setOption(easy, CURLOPT_WRITEDATA, &exchange);

    const CURLcode result = transfer.run(stop, idleTimeout);
    if (result == CURLE_OPERATION_TIMEDOUT)
        throw TransportError(result, QStringLiteral("The request timed out."));
    if (result != CURLE_OK) {
        if (exchange.tooLarge)
            throw TransportError(
                result,
                QStringLiteral("The response is larger than %1 MB.").arg(maxResponseMegabytes));
        QString description = QString::fromUtf8(transfer.errorBuffer()).trimmed();
        if (description.isEmpty())
            description = QString::fromUtf8(curl_easy_strerror(result));
        throw TransportError(result, description);
    }
    Response response;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(exchange.body);
    return response;
}

// "   Input: "...", "✅ [API] Success: "...": the first 50 characters, always followed by "...".
QString clippedQuote(const QString& text) {
    return u'"' + support::graphemePrefix(text, 50) + QStringLiteral("...\" (") +
           QString::number(support::graphemeCount(text)) + QStringLiteral(" chars)");
}

// A line break in a header value would end the header and start another.
bool hasControlCharacter(const QString& text) {
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7F; });
}

} // namespace

AnthropicService::AnthropicService(QUrl api, AppSettings& settings,
                                   std::chrono::milliseconds idleTimeout)
    : api_(std::move(api)), settings_(settings), idleTimeout_(idleTimeout) {
    initializeCurlOnce();
}

QString AnthropicService::rewrite(const QString& text, const QString& systemPrompt,
                                  const std::stop_token& stop) const {
    const QString key = settings_.apiKey().trimmed();
    if (key.isEmpty()) {
        support::log(QStringLiteral("❌ [API] No API key configured"));
        throw Err::noKey();
    }

    const ClaudeModel tracedModel = settings_.selectedModel();
    support::log(QStringLiteral("🚀 [API] Starting request..."));
    support::log(QStringLiteral("   Key: ") + support::graphemePrefix(key, 10) +
                 QStringLiteral("...*** (") + QString::number(support::graphemeCount(key)) +
                 QStringLiteral(" chars)"));
    support::log(QStringLiteral("   Model: ") + tracedModel.displayName() + QStringLiteral(" (") +
                 tracedModel.rawValue() + u')');
    support::log(QStringLiteral("   Input: ") + clippedQuote(text));

    if (hasControlCharacter(key))
        throw service::TransportError(
            CURLE_BAD_FUNCTION_ARGUMENT,
            QStringLiteral("The API key contains a line break or another control character."));

    const QJsonObject message{{QStringLiteral("role"), QStringLiteral("user")},
                              {QStringLiteral("content"), text}};
    const QJsonObject request{
        {QStringLiteral("model"), settings_.selectedModel().rawValue()},
        {QStringLiteral("max_tokens"), 4096},
        {QStringLiteral("system"), systemPrompt},
        {QStringLiteral("messages"), QJsonArray{message}},
    };
    const QByteArray body = QJsonDocument(request).toJson(QJsonDocument::Compact);

    const auto start = std::chrono::steady_clock::now();
    const Response response = post(api_, key.toUtf8(), body, idleTimeout_, stop);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;

    support::log(QStringLiteral("📡 [API] Response: HTTP ") + QString::number(response.status) +
                 QStringLiteral(" in ") + QString::asprintf("%.2f", elapsed.count()) + u's');

    return readAnswer(response.status, response.body);
}

QString AnthropicService::readAnswer(long status, const QByteArray& body) {
    if (status != 200) {
        const QString errorText =
            service::decodeUtf8Strictly(body).value_or(QStringLiteral("Unknown error"));
        support::log(QStringLiteral("❌ [API] Error: ") + errorText);
        throw Err::api(errorText);
    }

    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    // Qt reports an unterminated string one byte past the end of the body.
    if (parseError.error != QJsonParseError::NoError)
        throw service::JsonParseError(parseError.errorString(),
                                      std::min<qsizetype>(parseError.offset, body.size()));

    const QJsonObject root = document.object(); // empty for a top-level array
    if (const QJsonValue usage = root.value(QStringLiteral("usage")); usage.isObject()) {
        // A count that is absent or not an integer reads as 0.
        const qint64 input = usage[QStringLiteral("input_tokens")].toInteger(0);
        const qint64 output = usage[QStringLiteral("output_tokens")].toInteger(0);
        support::log(QStringLiteral("📊 [API] Tokens: ") + QString::number(input) +
                     QStringLiteral(" in → ") + QString::number(output) + QStringLiteral(" out"));
    }

    // "content" must be a non-empty array of objects; the first one's "text" is the answer.
    const QJsonValue content = root.value(QStringLiteral("content"));
    const QJsonArray blocks = content.toArray();
    const bool allObjects =
        std::all_of(blocks.begin(), blocks.end(), [](const QJsonValue& v) { return v.isObject(); });
    if (content.isArray() && !blocks.isEmpty() && allObjects) {
        if (const QJsonValue answer = blocks.first()[QStringLiteral("text")]; answer.isString()) {
            QString result = answer.toString();
            support::log(QStringLiteral("✅ [API] Success: ") + clippedQuote(result));
            return result;
        }
    }
    support::log(QStringLiteral("❌ [API] Failed to parse response"));
    throw Err::parse();
}
