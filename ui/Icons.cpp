#include "ui/Icons.h"

#include "ui/Drawing.h"

#include <QFile>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QSvgRenderer>
#include <cmath>
#include <memory>

namespace ui {

namespace {

QString resourcePath(const QString& name) {
    return QStringLiteral(":/icons/") + name + QStringLiteral(".svg");
}

// Parsed drawings, kept for the life of the process (main thread only).
QSvgRenderer* renderer(const QString& name) {
    static QHash<QString, std::shared_ptr<QSvgRenderer>> cache;
    auto it = cache.find(name);
    if (it == cache.end()) {
        std::shared_ptr<QSvgRenderer> loaded;
        if (QFile::exists(resourcePath(name))) {
            loaded = std::make_shared<QSvgRenderer>(resourcePath(name));
            if (!loaded->isValid())
                loaded.reset();
        }
        it = cache.insert(name, loaded);
    }
    return it->get();
}

class SymbolIconEngine : public QIconEngine {
public:
    SymbolIconEngine(QString name, QColor color) : name_(std::move(name)), color_(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QColor color = color_;
        if (mode == QIcon::Disabled)
            color.setAlphaF(color.alphaF() * 0.35F);
        drawSymbol(*painter, name_, rect, color);
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        const QSize pixels = size * scale;
        QPixmap pm(pixels);
        pm.fill(Qt::transparent);
        {
            QPainter p(&pm);
            paint(&p, QRect(QPoint(0, 0), pixels), mode, state);
        }
        pm.setDevicePixelRatio(scale);
        return pm;
    }

    [[nodiscard]] QIconEngine* clone() const override {
        return new SymbolIconEngine(name_, color_);
    }
    [[nodiscard]] QString key() const override { return QStringLiteral("mendwise-symbol"); }
    [[nodiscard]] bool isNull() override { return !hasSymbol(name_); }

private:
    QString name_;
    QColor color_;
};

} // namespace

bool hasSymbol(const QString& name) {
    return renderer(name) != nullptr;
}

QImage symbolImage(const QString& name, int pixels, const QColor& color) {
    QSvgRenderer* svg = renderer(name);
    if (!svg || pixels <= 0)
        return {};
    QImage ink(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    ink.fill(Qt::transparent);
    {
        QPainter p(&ink);
        p.setRenderHint(QPainter::Antialiasing);
        svg->render(&p, QRectF(0, 0, pixels, pixels));
    }
    // Ink is where the drawing is dark: white parts cut holes. Then colour the ink.
    const QRgb rgb = color.rgb();
    const double alpha = color.alphaF();
    for (int y = 0; y < pixels; ++y) {
        auto* line = reinterpret_cast<QRgb*>(ink.scanLine(y));
        for (int x = 0; x < pixels; ++x) {
            const QRgb px = line[x];
            const int lightness = (qRed(px) + qGreen(px) + qBlue(px)) / 3;
            const int a = static_cast<int>(std::lround((qAlpha(px) - lightness) * alpha));
            line[x] =
                a <= 0 ? 0
                       : qRgba(qRed(rgb) * a / 255, qGreen(rgb) * a / 255, qBlue(rgb) * a / 255, a);
        }
    }
    return ink;
}

void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color) {
    const qreal side = std::min(box.width(), box.height());
    const qreal scale = deviceScale(painter);
    QImage image = symbolImage(name, static_cast<int>(std::ceil(side * scale)), color);
    if (image.isNull())
        return;
    image.setDevicePixelRatio(scale);
    const QRectF target(box.center().x() - side / 2, box.center().y() - side / 2, side, side);
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, image);
    painter.restore();
}

QIcon symbolIcon(const QString& name, const QColor& color) {
    return QIcon(new SymbolIconEngine(name, color));
}

} // namespace ui
