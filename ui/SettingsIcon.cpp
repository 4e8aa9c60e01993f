#include "ui/SettingsIcon.h"

#include "ui/Drawing.h"
#include "ui/Icons.h"

#include <QLinearGradient>
#include <QPainter>

namespace ui {

SettingsIcon::SettingsIcon(QString icon, QColor color, QWidget* parent)
    : QWidget(parent), icon_(std::move(icon)), color_(color) {
    setFixedSize(side, side);
}

void SettingsIcon::setColor(const QColor& color) {
    if (color == color_)
        return;
    color_ = color;
    update();
}

void SettingsIcon::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF tile(0, 0, side, side);
    // The colour's own gradient: a little lighter at the top, the colour itself at the bottom.
    QLinearGradient fill(tile.topLeft(), tile.bottomLeft());
    fill.setColorAt(0, color_.lighter(118));
    fill.setColorAt(1, color_);
    painter.fillPath(continuousRoundedRect(tile, 5), fill);
    constexpr qreal glyph = 14;
    drawSymbol(painter, icon_, QRectF((side - glyph) / 2, (side - glyph) / 2, glyph, glyph),
               Qt::white);
}

} // namespace ui
