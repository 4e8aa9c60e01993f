#include "support/Graphemes.h"

#include <memory>
#include <unicode/ubrk.h>

// ICU's character break iterator implements the extended grapheme cluster rules; Qt 6.4's
// QTextBoundaryFinder splits a flag that follows an emoji, so it is not used here.
namespace support {

namespace {

struct BreakIteratorCloser {
    void operator()(UBreakIterator* iterator) const { ubrk_close(iterator); }
};

// One iterator per thread: opening one costs far more than re-targeting it.
UBreakIterator* iteratorFor(const QString& text) {
    thread_local std::unique_ptr<UBreakIterator, BreakIteratorCloser> iterator;
    UErrorCode status = U_ZERO_ERROR;
    const auto* units = reinterpret_cast<const UChar*>(text.utf16());
    const auto length = static_cast<int32_t>(text.size());
    if (!iterator) {
        iterator.reset(ubrk_open(UBRK_CHARACTER, "", units, length, &status));
        if (U_FAILURE(status))
            iterator.reset();
        return iterator.get();
    }
    ubrk_setText(iterator.get(), units, length, &status);
    return U_SUCCESS(status) ? iterator.get() : nullptr;
}

// Position just past the `count`-th grapheme (the text's end when it has fewer), and how many
// graphemes that covers.
qsizetype endOfGraphemes(const QString& text, qsizetype count, qsizetype* seen) {
    qsizetype graphemes = 0;
    qsizetype position = 0;
    if (UBreakIterator* iterator = iteratorFor(text)) {
        while (graphemes < count) {
            const int32_t next = ubrk_next(iterator);
            if (next == UBRK_DONE)
                break;
            position = next;
            ++graphemes;
        }
    } else {
        // Without ICU data, fall back to code units rather than failing.
        graphemes = std::min(count, text.size());
        position = graphemes;
    }
    if (seen)
        *seen = graphemes;
    return position;
}

} // namespace

qsizetype graphemeCount(const QString& text) {
    if (text.isEmpty())
        return 0;
    qsizetype seen = 0;
    endOfGraphemes(text, text.size(), &seen);
    return seen;
}

QString graphemePrefix(const QString& text, qsizetype count) {
    if (count <= 0 || text.isEmpty())
        return {};
    return text.left(endOfGraphemes(text, count, nullptr));
}

QString quotedPreview(const QString& text, qsizetype count) {
    return u'"' + graphemePrefix(text, count) + u'"';
}

} // namespace support
