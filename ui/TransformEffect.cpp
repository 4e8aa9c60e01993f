#include "ui/TransformEffect.h"

#include "ui/Drawing.h"

#include <QPainter>
#include <cmath>

namespace ui {

TransformEffect::TransformEffect(QObject* parent) : QGraphicsEffect(parent) {}

void TransformEffect::setOpacity(qreal opacity) {
    if (opacity == opacity_)
        return;
    opacity_ = opacity;
    update();
}

void TransformEffect::setScale(qreal scale) {
    if (scale == scale_)
        return;
    scale_ = scale;
    update();
}

void TransformEffect::setAnchor(QPointF anchor) {
    anchor_ = anchor;
    update();
}

void TransformEffect::setBlurRadius(qreal radius) {
    if (radius == blurRadius_)
        return;
    blurRadius_ = radius;
    updateBoundingRect();
    update();
}

QRectF TransformEffect::boundingRectFor(const QRectF& rect) const {
    const qreal pad = blurRadius_ > 0 ? std::ceil(blurRadius_ * 1.5) : 0.0;
    return rect.adjusted(-pad, -pad, pad, pad);
}

void TransformEffect::draw(QPainter* painter) {
    if (opacity_ <= 0.001 || scale_ <= 0.0)
        return;
    painter->save();
    painter->setOpacity(painter->opacity() * std::min<qreal>(opacity_, 1.0));
    // Always through the rendered pixels: drawing the source directly places a widget with
    // children at twice its offset when the parent is rendered into an image (grab, render).
    QPoint offset;
    const QPixmap pixmap =
        sourcePixmap(Qt::LogicalCoordinates, &offset, PadToEffectiveBoundingRect);
    const QRectF source = sourceBoundingRect(Qt::LogicalCoordinates);
    const QPointF anchor(source.left() + anchor_.x() * source.width(),
                         source.top() + anchor_.y() * source.height());
    painter->translate(anchor);
    painter->scale(scale_, scale_);
    painter->translate(-anchor);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    if (blurRadius_ > 0.0)
        painter->drawImage(QPointF(offset),
                           blurred(pixmap.toImage(), blurRadius_ * pixmap.devicePixelRatio()));
    else
        painter->drawPixmap(QPointF(offset), pixmap);
    painter->restore();
}

} // namespace ui
