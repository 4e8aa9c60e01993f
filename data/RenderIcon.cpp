// Build-time tool: renders the application's SVG icon as the PNG sizes of the hicolor theme.
// Usage: mendwise-render-icon SVG OUTPUT_DIR NAME SIZE... writes OUTPUT_DIR/SIZExSIZE/NAME.png.

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>

namespace {

int fail(const QString& message) {
    std::fprintf(stderr, "mendwise-render-icon: %s\n", message.toLocal8Bit().constData());
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5)
        return fail(QStringLiteral("usage: mendwise-render-icon SVG OUTPUT_DIR NAME SIZE..."));
    const QString svgPath = QString::fromLocal8Bit(argv[1]);
    const QString outputDir = QString::fromLocal8Bit(argv[2]);
    const QString name = QString::fromLocal8Bit(argv[3]);
    QSvgRenderer svg(svgPath);
    if (!svg.isValid())
        return fail(QStringLiteral("%1 is not a valid SVG drawing").arg(svgPath));
    for (int i = 4; i < argc; ++i) {
        bool ok = false;
        const int size = QString::fromLocal8Bit(argv[i]).toInt(&ok);
        if (!ok || size <= 0 || size > 1024)
            return fail(
                QStringLiteral("%1 is not an icon size").arg(QString::fromLocal8Bit(argv[i])));
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            svg.render(&painter, QRectF(0, 0, size, size));
        }
        const QString folder = QStringLiteral("%1/%2x%2").arg(outputDir).arg(size);
        const QString path = folder + QLatin1Char('/') + name + QStringLiteral(".png");
        if (!QDir().mkpath(folder) || !image.save(path, "PNG"))
            return fail(QStringLiteral("cannot write %1").arg(path));
    }
    return EXIT_SUCCESS;
}
