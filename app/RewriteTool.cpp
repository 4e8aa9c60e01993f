// mendwise-rewrite: the rewrite of the tray application, for scripts and headless use.
// Reads the text on standard input, sends it with the instruction to the Messages API using
// the application's own settings (API key, model, system prompt), and writes the answer on
// standard output.
#include "BuildConfig.h"
#include "service/AnthropicService.h"
#include "service/AppSettings.h"
#include "service/Utf8.h"
#include "support/Error.h"
#include "support/Log.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QUrl>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int exitFailed = 1; // the rewrite failed
constexpr int exitUsage = 2;  // bad arguments or input; nothing was sent

const char* const description =
    R"(Rewrites the text on standard input with the Mendwise model service.

The text is sent with an instruction: the one given with --prompt, otherwise the system prompt
stored in Mendwise's settings. The API key and the model come from the same settings
(~/.config/Mendwise/Mendwise.conf, edited in Mendwise's settings window).

Standard input must be UTF-8; anything else is refused (nothing is sent).
The answer is written to standard output exactly as the model returned it: nothing is trimmed
and no newline is added, so output can be compared or written back byte for byte.
The request's trace lines go to standard error.

Exit status: 0 on success; 1 when the request fails (the reason is printed on standard error,
e.g. "No API key"); 2 for bad arguments or input.)";

bool readAll(int fd, QByteArray& into) {
    char buffer[64 * 1024];
    while (true) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0)
            return true;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        into.append(buffer, n);
    }
}

bool writeAll(int fd, QByteArrayView bytes) {
    while (!bytes.isEmpty()) {
        const ssize_t n = ::write(fd, bytes.data(), static_cast<size_t>(bytes.size()));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        bytes = bytes.sliced(n);
    }
    return true;
}

void printError(const QString& message) {
    writeAll(STDERR_FILENO, (message + u'\n').toUtf8());
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mendwise-rewrite"));
    QCoreApplication::setApplicationVersion(QString::fromUtf8(mendwise::build::version));
    // Standard output carries the answer alone.
    support::setLogOutput(STDERR_FILENO);

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(description));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption promptOption(
        QStringLiteral("prompt"),
        QStringLiteral("The instruction to send instead of the stored system prompt."),
        QStringLiteral("TEXT"));
    const QCommandLineOption endpointOption(
        QStringLiteral("endpoint"),
        QStringLiteral("The Messages API endpoint (default: %1).")
            .arg(QString::fromUtf8(mendwise::build::apiEndpoint)),
        QStringLiteral("URL"), QString::fromUtf8(mendwise::build::apiEndpoint));
    parser.addOptions({promptOption, endpointOption});
    if (!parser.parse(QCoreApplication::arguments())) {
        printError(QStringLiteral("mendwise-rewrite: ") + parser.errorText());
        return exitUsage;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        writeAll(STDOUT_FILENO, parser.helpText().toUtf8());
        return 0;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        writeAll(STDOUT_FILENO, QStringLiteral("mendwise-rewrite %1\n")
                                    .arg(QCoreApplication::applicationVersion())
                                    .toUtf8());
        return 0;
    }
    if (!parser.positionalArguments().isEmpty()) {
        printError(QStringLiteral("mendwise-rewrite: unexpected argument \"%1\"; the text is read "
                                  "from standard input")
                       .arg(parser.positionalArguments().first()));
        return exitUsage;
    }
    const QUrl endpoint(parser.value(endpointOption), QUrl::StrictMode);
    if (!endpoint.isValid() || endpoint.scheme().isEmpty()) {
        printError(QStringLiteral("mendwise-rewrite: invalid endpoint \"%1\"")
                       .arg(parser.value(endpointOption)));
        return exitUsage;
    }

    QByteArray input;
    if (!readAll(STDIN_FILENO, input)) {
        printError(QStringLiteral("mendwise-rewrite: cannot read standard input: %1")
                       .arg(QString::fromLocal8Bit(std::strerror(errno))));
        return exitUsage;
    }
    if (const std::optional<qsizetype> bad = service::firstInvalidUtf8(input)) {
        printError(QStringLiteral("mendwise-rewrite: standard input is not valid UTF-8 (byte %1)")
                       .arg(*bad));
        return exitUsage;
    }
    if (input.isEmpty()) {
        printError(QStringLiteral("mendwise-rewrite: standard input is empty"));
        return exitUsage;
    }
    const QString text = *service::decodeUtf8Strictly(input);

    AppSettings& settings = AppSettings::shared();
    const QString prompt =
        parser.isSet(promptOption) ? parser.value(promptOption) : settings.systemPrompt();
    const AnthropicService client(endpoint, settings);
    try {
        const QString answer = client.rewrite(text, prompt);
        if (!writeAll(STDOUT_FILENO, answer.toUtf8())) {
            printError(QStringLiteral("mendwise-rewrite: cannot write standard output"));
            return exitFailed;
        }
        return 0;
    } catch (...) {
        printError(support::describeError(std::current_exception()));
        return exitFailed;
    }
}
