// grab-screen: saves what the X server shows as a PNG, for screenshots of the real desktop.
// Usage: grab-screen OUT.png [X Y WIDTH HEIGHT]  (a region in screen pixels, clipped to the screen)
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QStringList>
#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    if (args.size() != 1 && args.size() != 5) {
        std::fprintf(stderr, "usage: grab-screen OUT.png [X Y WIDTH HEIGHT]\n");
        return 2;
    }
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) {
        std::fprintf(stderr, "grab-screen: no screen\n");
        return 1;
    }
    QRect region = screen->geometry();
    if (args.size() == 5) {
        bool ok[4] = {};
        region = QRect(args[1].toInt(&ok[0]), args[2].toInt(&ok[1]), args[3].toInt(&ok[2]),
                       args[4].toInt(&ok[3]))
                     .intersected(screen->geometry());
        if (!(ok[0] && ok[1] && ok[2] && ok[3]) || region.isEmpty()) {
            std::fprintf(stderr, "grab-screen: the region is not on the screen\n");
            return 2;
        }
    }
    const QPixmap shot =
        screen->grabWindow(0, region.x(), region.y(), region.width(), region.height());
    if (shot.isNull() || !shot.save(args[0], "PNG")) {
        std::fprintf(stderr, "grab-screen: cannot write %s\n", qPrintable(args[0]));
        return 1;
    }
    return 0;
}
