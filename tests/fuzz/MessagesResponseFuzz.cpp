// What the Messages API (or anything answering in its place) may send back. An input starting
// with "HTTP nnn\n" has that status; any other input is the body of a 200 response.
#include "FuzzSupport.h"
#include "service/AnthropicService.h"

#include <QByteArray>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::silenceLog();
    QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    long status = 200;
    if (body.startsWith("HTTP ") && body.size() >= 9 && body[8] == '\n') {
        bool ok = false;
        status = body.mid(5, 3).toLong(&ok);
        if (!ok)
            return -1; // not a status line: keep it out of the corpus
        body.remove(0, 9);
    }
    // Only the documented errors may leave; anything else escapes and ends the run.
    try {
        const QString answer = AnthropicService::readAnswer(status, body);
        fuzz::require(status == 200, "an answer from an error response");
        fuzz::require(answer.isValidUtf16(), "an answer that is not valid text");
    } catch (const AnthropicService::Err& error) {
        const bool apiError = error.kind() == AnthropicService::Err::Case::api;
        fuzz::require(apiError == (status != 200), "an error of the wrong kind for the status");
        fuzz::require(error.text().isValidUtf16(), "an error text that is not valid text");
    } catch (const service::JsonParseError& error) {
        fuzz::require(status == 200, "a JSON error for an error response");
        fuzz::require(error.offset() >= 0 && error.offset() <= body.size(),
                      "a JSON error offset outside the body");
    }
    return 0;
}
