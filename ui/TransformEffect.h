#pragma once

#include <QGraphicsEffect>
#include <QPointF>

namespace ui {

// Draws a widget (with its children) faded, scaled about an anchor and optionally blurred, the
// way views come and go in the picker. Input still goes to the widget's real geometry.
class TransformEffect : public QGraphicsEffect {
    Q_OBJECT
public:
    explicit TransformEffect(QObject* parent = nullptr);

    void setOpacity(qreal opacity);
    void setScale(qreal scale);
    // The point scaled about, as a fraction of the widget's rectangle ((0.5, 0.5) its centre).
    void setAnchor(QPointF anchor);
    void setBlurRadius(qreal radius);

    [[nodiscard]] qreal opacity() const { return opacity_; }
    [[nodiscard]] qreal scale() const { return scale_; }
    [[nodiscard]] qreal blurRadius() const { return blurRadius_; }

protected:
    [[nodiscard]] QRectF boundingRectFor(const QRectF& rect) const override;
    void draw(QPainter* painter) override;

private:
    qreal opacity_ = 1.0;
    qreal scale_ = 1.0;
    QPointF anchor_{0.5, 0.5};
    qreal blurRadius_ = 0.0;
};

} // namespace ui
