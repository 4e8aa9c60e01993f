#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QRectF>
#include <QString>

class QPainter;

// The interface's symbols: single-colour SVG drawings of our own, named like the symbols the
// views ask for ("gear", "checkmark", "eye.slash", ...). In the drawings black is ink and white
// cuts holes into the ink beneath it, so a symbol can be drawn in any colour.
namespace ui {

// Whether a symbol of that name exists.
bool hasSymbol(const QString& name);

// The symbol rendered in `color` at `pixels` (square, device pixels); a null image when the
// name is unknown.
QImage symbolImage(const QString& name, int pixels, const QColor& color);

// Draws the symbol in `color`, fitted into `box` (points), crisp at the painter's scale.
void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color);

// An icon of the symbol in `color`, for buttons, tabs and the tray; sizes are rendered on
// demand.
QIcon symbolIcon(const QString& name, const QColor& color);

} // namespace ui
