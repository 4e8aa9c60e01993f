#include "ui/Drawing.h"

#include "ui/Color.h"

#include <QGuiApplication>
#include <QLinearGradient>
#include <QPaintDevice>
#include <QPainter>
#include <QPalette>
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace ui {

namespace {

// How far along each edge a corner of radius r reaches, and where the control points of its
// cubic sit (as a fraction of that reach, measured from the corner's ends). These give a
// corner that meets the edges with gentle curvature and bulges like a circular corner of r.
constexpr qreal cornerReach = 1.28;
constexpr qreal controlFraction = 0.723;

// Three box-blur widths whose succession approximates a Gaussian of deviation sigma.
std::array<int, 3> boxesForGauss(qreal sigma) {
    const qreal ideal = std::sqrt(12.0 * sigma * sigma / 3.0 + 1.0);
    int lower = static_cast<int>(std::floor(ideal));
    if (lower % 2 == 0)
        --lower;
    const int upper = lower + 2;
    const qreal m =
        std::round((12.0 * sigma * sigma - 3.0 * lower * lower - 4.0 * 3 * lower - 3.0 * 3) /
                   (-4.0 * lower - 4.0));
    std::array<int, 3> sizes{};
    for (int i = 0; i < 3; ++i)
        sizes[static_cast<std::size_t>(i)] = i < m ? lower : upper;
    return sizes;
}

// One box blur of half-width r along rows (horizontal) or columns, over four channels.
void boxBlur(std::vector<std::uint32_t>& src, std::vector<std::uint32_t>& dst, int width,
             int height, int r, bool horizontal) {
    const int lines = horizontal ? height : width;
    const int length = horizontal ? width : height;
    const std::size_t stride = horizontal ? 1 : static_cast<std::size_t>(width);
    const double scale = 1.0 / (r + r + 1);
    for (int line = 0; line < lines; ++line) {
        const int base = horizontal ? line * width : line;
        std::array<double, 4> sum{};
        const auto channel = [](std::uint32_t px, int c) {
            return static_cast<double>((px >> (c * 8)) & 0xFF);
        };
        const auto at = [&](int i) {
            if (i < 0 || i >= length)
                return std::uint32_t{0}; // transparent outside the image
            return src[static_cast<std::size_t>(base) + static_cast<std::size_t>(i) * stride];
        };
        for (int i = -r - 1; i < r; ++i) {
            const std::uint32_t px = at(i);
            for (int c = 0; c < 4; ++c)
                sum[static_cast<std::size_t>(c)] += channel(px, c);
        }
        for (int i = 0; i < length; ++i) {
            const std::uint32_t add = at(i + r);
            const std::uint32_t sub = at(i - r - 1);
            std::uint32_t out = 0;
            for (int c = 0; c < 4; ++c) {
                auto& s = sum[static_cast<std::size_t>(c)];
                s += channel(add, c) - channel(sub, c);
                const auto v = static_cast<std::uint32_t>(std::clamp(s * scale + 0.5, 0.0, 255.0));
                out |= v << (c * 8);
            }
            dst[static_cast<std::size_t>(base) + static_cast<std::size_t>(i) * stride] = out;
        }
    }
}

} // namespace

QPainterPath continuousRoundedRect(const QRectF& rect, qreal radius) {
    QPainterPath path;
    const qreal half = std::min(rect.width(), rect.height()) / 2.0;
    if (radius <= 0) {
        path.addRect(rect);
        return path;
    }
    if (radius * cornerReach >= half) {
        // Too round for eased corners: a capsule (or circle) with circular ends.
        const qreal r = std::min(radius, half);
        path.addRoundedRect(rect, r, r);
        return path;
    }
    const qreal p = radius * cornerReach;
    const qreal c = p * (1.0 - controlFraction);
    const qreal l = rect.left();
    const qreal t = rect.top();
    const qreal r = rect.right();
    const qreal b = rect.bottom();
    path.moveTo(l + p, t);
    path.lineTo(r - p, t);
    path.cubicTo(r - c, t, r, t + c, r, t + p);
    path.lineTo(r, b - p);
    path.cubicTo(r, b - c, r - c, b, r - p, b);
    path.lineTo(l + p, b);
    path.cubicTo(l + c, b, l, b - c, l, b - p);
    path.lineTo(l, t + p);
    path.cubicTo(l, t + c, l + c, t, l + p, t);
    path.closeSubpath();
    return path;
}

QImage blurred(const QImage& image, qreal radius) {
    if (radius <= 0.05 || image.isNull())
        return image;
    QImage src = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int width = src.width();
    const int height = src.height();
    std::vector<std::uint32_t> a(static_cast<std::size_t>(width) *
                                 static_cast<std::size_t>(height));
    std::vector<std::uint32_t> b(a.size());
    for (int y = 0; y < height; ++y) {
        const auto* line = reinterpret_cast<const std::uint32_t*>(src.constScanLine(y));
        std::copy(line, line + width, a.begin() + static_cast<std::ptrdiff_t>(y) * width);
    }
    for (const int box : boxesForGauss(radius / 2.0)) {
        const int r = (box - 1) / 2;
        if (r <= 0)
            continue;
        boxBlur(a, b, width, height, r, true);
        boxBlur(b, a, width, height, r, false);
    }
    QImage out(width, height, QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(image.devicePixelRatio());
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<std::uint32_t*>(out.scanLine(y));
        std::copy(a.begin() + static_cast<std::ptrdiff_t>(y) * width,
                  a.begin() + static_cast<std::ptrdiff_t>(y + 1) * width, line);
    }
    return out;
}

qreal deviceScale(const QPainter& painter) {
    const QTransform& t = painter.deviceTransform();
    const qreal s = std::sqrt(std::abs(t.m11() * t.m22() - t.m12() * t.m21()));
    return s > 0 ? s : 1.0;
}

void drawShadow(QPainter& painter, const QPainterPath& shape, const QColor& color, qreal radius,
                QPointF offset) {
    if (color.alpha() == 0)
        return;
    const qreal scale = deviceScale(painter);
    const qreal pad = std::ceil(radius * 1.5) + 2.0;
    const QRectF area = shape.boundingRect().adjusted(-pad, -pad, pad, pad);
    const QSize pixels(static_cast<int>(std::ceil(area.width() * scale)),
                       static_cast<int>(std::ceil(area.height() * scale)));
    if (pixels.isEmpty())
        return;
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing);
        p.scale(scale, scale);
        p.translate(-area.topLeft());
        p.fillPath(shape, color);
    }
    image = blurred(image, radius * scale);
    image.setDevicePixelRatio(scale);
    painter.drawImage(area.topLeft() + offset, image);
}

void fillMaterial(QPainter& painter, const QPainterPath& shape) {
    const bool dark = colors::isDark();
    const QRectF bounds = shape.boundingRect();
    QLinearGradient fill(bounds.topLeft(), bounds.bottomLeft());
    if (dark) {
        fill.setColorAt(0, QColor(58, 58, 62, 232));
        fill.setColorAt(1, QColor(44, 44, 48, 232));
    } else {
        fill.setColorAt(0, QColor(255, 255, 255, 242));
        fill.setColorAt(1, QColor(246, 246, 248, 236));
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(shape, fill);
    // A hairline just inside the edge keeps the shape distinct on any backdrop.
    painter.setPen(QPen(dark ? QColor(255, 255, 255, 36) : QColor(0, 0, 0, 22), 0));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(shape);
    painter.restore();
}

} // namespace ui
