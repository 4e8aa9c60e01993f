#pragma once

#include <QColor>
#include <QImage>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>

class QPainter;

// Painting helpers shared by the custom-drawn views: smooth rounded shapes, soft shadows,
// blur, and the translucent "material" behind badges and the instruction field.
namespace ui {

// A rounded rectangle whose corners ease into the straight edges (no sudden change of
// curvature where arc meets edge), the way modern interfaces draw their tiles and buttons.
// A radius of half the shorter side or more gives a capsule.
QPainterPath continuousRoundedRect(const QRectF& rect, qreal radius);

// A Gaussian blur of `radius` pixels (standard deviation radius / 2) over a premultiplied
// ARGB image; the image keeps its size, so leave room around what is blurred.
QImage blurred(const QImage& image, qreal radius);

// The soft shadow of `shape`, `radius` points of blur, moved by `offset`. Drawn in the
// painter's current coordinates; crisp on high-density screens and under scaling.
void drawShadow(QPainter& painter, const QPainterPath& shape, const QColor& color, qreal radius,
                QPointF offset);

// Fills `shape` with the thin translucent material of floating badges and fields: the window
// colour of the palette, mostly opaque, lit slightly from the top, with a hairline edge.
void fillMaterial(QPainter& painter, const QPainterPath& shape);

// The scale from the painter's coordinates to device pixels (screen density times any
// scaling of the painter).
qreal deviceScale(const QPainter& painter);

} // namespace ui
