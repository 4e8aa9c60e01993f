#pragma once

#include <QString>

// Counts and previews in log lines are in user-perceived characters (extended grapheme
// clusters), so an emoji sequence or a letter with combining marks counts as one.
namespace support {

qsizetype graphemeCount(const QString& text);

// The first `count` user-perceived characters of `text` (all of it when shorter).
QString graphemePrefix(const QString& text, qsizetype count);

// The first `count` user-perceived characters between double quotes, as log lines show texts.
QString quotedPreview(const QString& text, qsizetype count = 60);

} // namespace support
