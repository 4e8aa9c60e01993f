#include "ui/Color.h"

#include <QGuiApplication>
#include <QPalette>
#include <cstdint>
#include <limits>

namespace ui {

QColor colorFromHex(QStringView hex) {
    qsizetype begin = 0;
    qsizetype end = hex.size();
    while (begin < end && !hex[begin].isLetterOrNumber())
        ++begin;
    while (end > begin && !hex[end - 1].isLetterOrNumber())
        --end;
    QStringView digits = hex.sliced(begin, end - begin);
    if (digits.size() > 2 && digits[0] == u'0' && (digits[1] == u'x' || digits[1] == u'X'))
        digits = digits.sliced(2);

    std::uint64_t value = 0;
    for (const QChar c : digits) {
        int digit = -1;
        if (c >= u'0' && c <= u'9')
            digit = c.unicode() - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c.unicode() - u'a' + 10;
        else if (c >= u'A' && c <= u'F')
            digit = c.unicode() - u'A' + 10;
        if (digit < 0)
            break;
        if (value > (std::numeric_limits<std::uint64_t>::max() >> 4)) {
            value = std::numeric_limits<std::uint64_t>::max(); // saturates, like a scanner
            break;
        }
        value = (value << 4) | static_cast<std::uint64_t>(digit);
    }
    const auto channel = [value](int shift) {
        return static_cast<float>((value >> shift) & 0xFF) / 255.0F;
    };
    return QColor::fromRgbF(channel(16), channel(8), channel(0), 1.0F);
}

namespace colors {

bool isDark() {
    const QPalette palette = QGuiApplication::palette();
    return palette.color(QPalette::Window).lightness() < 128;
}

namespace {
QColor pick(QRgb light, QRgb dark) {
    return QColor::fromRgb(isDark() ? dark : light);
}
} // namespace

QColor blue() {
    return pick(0x0A7AFF, 0x0A84FF);
}
QColor cyan() {
    return pick(0x32ADE6, 0x64D2FF);
}
QColor green() {
    return pick(0x30C25A, 0x32D74B);
}
QColor red() {
    return pick(0xFF3B30, 0xFF453A);
}
QColor orange() {
    return pick(0xFF9500, 0xFF9F0A);
}
QColor purple() {
    return pick(0xAF52DE, 0xBF5AF2);
}
QColor indigo() {
    return pick(0x5856D6, 0x5E5CE6);
}

QColor accent() {
    return QGuiApplication::palette().color(QPalette::Highlight);
}

QColor primaryText() {
    return QGuiApplication::palette().color(QPalette::WindowText);
}

QColor secondaryText() {
    QColor c = primaryText();
    c.setAlphaF(0.6F);
    return c;
}

} // namespace colors

} // namespace ui
