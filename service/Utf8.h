#pragma once

#include <QByteArrayView>
#include <QString>
#include <optional>

namespace service {

// Offset of the first byte that is not part of well-formed UTF-8 (RFC 3629: no overlong forms,
// no surrogates, nothing above U+10FFFF, no truncated sequence), or nothing when all is valid.
[[nodiscard]] std::optional<qsizetype> firstInvalidUtf8(QByteArrayView bytes);

// The text of well-formed UTF-8 bytes, every character kept (a leading byte-order mark too);
// nothing when the bytes are not well-formed.
[[nodiscard]] std::optional<QString> decodeUtf8Strictly(QByteArrayView bytes);

} // namespace service
