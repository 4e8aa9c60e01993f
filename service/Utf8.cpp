#include "service/Utf8.h"

#include <QStringDecoder>

namespace service {

std::optional<qsizetype> firstInvalidUtf8(QByteArrayView bytes) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const qsizetype size = bytes.size();
    qsizetype i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        int trailing = 0;
        // The allowed range of the first continuation byte depends on the lead byte.
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            trailing = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            trailing = 2;
            if (lead == 0xE0)
                low = 0xA0; // overlong
            else if (lead == 0xED)
                high = 0x9F; // surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            trailing = 3;
            if (lead == 0xF0)
                low = 0x90; // overlong
            else if (lead == 0xF4)
                high = 0x8F; // above U+10FFFF
        } else {
            return i;
        }
        if (size - i <= trailing)
            return i;
        if (data[i + 1] < low || data[i + 1] > high)
            return i;
        for (int k = 2; k <= trailing; ++k) {
            if ((data[i + k] & 0xC0) != 0x80)
                return i;
        }
        i += trailing + 1;
    }
    return std::nullopt;
}

std::optional<QString> decodeUtf8Strictly(QByteArrayView bytes) {
    if (firstInvalidUtf8(bytes))
        return std::nullopt;
    // ConvertInitialBom keeps a leading byte-order mark as a character instead of dropping it.
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless |
                                                       QStringConverter::Flag::ConvertInitialBom);
    return QString(decoder.decode(bytes));
}

} // namespace service
