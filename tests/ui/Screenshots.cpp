// Renders the interface to PNG files for the documentation: the action picker in each of its
// phases, the settings tabs and the popover, at twice the density, over a stand-in for the
// application beneath.
// Usage: ui_screenshots OUTPUT_DIR
#include "app/MenuBarView.h"
#include "hotkeys/Testing.h"
#include "platform/sim/SimDesktop.h"
#include "platform/sim/SimHotKeys.h"
#include "platform/sim/SimKeyboardLayout.h"
#include "platform/sim/SimLoginItem.h"
#include "service/AppSettings.h"
#include "ui/ActionPickerView.h"
#include "ui/Drawing.h"
#include "ui/SettingsView.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <functional>
#include <stdexcept>

namespace {

void settle(int ms) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(2);
    }
}

// A stand-in for the application beneath the panel: a page with a few lines of text, the
// first one selected.
class Backdrop : public QWidget {
public:
    explicit Backdrop(QSize size) {
        setWindowFlag(Qt::FramelessWindowHint);
        resize(size);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.fillRect(rect(), QColor(0xF4, 0xF4, 0xF6));
        p.setPen(Qt::NoPen);
        for (int i = 0; i < 9; ++i) {
            const qreal y = 14 + i * 17;
            const qreal w = width() - 40 - (i * 37 % 90);
            p.setBrush(i == 0 ? QColor(0xB9, 0xD4, 0xFB) : QColor(0xDD, 0xDE, 0xE3));
            p.drawRoundedRect(QRectF(20, y, w, 7), 3.5, 3.5);
        }
    }
};

bool save(QWidget* window, const QString& path) {
    QImage image(window->size() * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2);
    image.fill(Qt::transparent);
    window->render(&image);
    if (!image.save(path)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

// The popover's frame as it hangs below the tray icon: a rounded card with a small arrow.
class PopoverFrame : public QWidget {
public:
    static constexpr int margin = 16;
    static constexpr int arrow = 8;

    explicit PopoverFrame(QSize content) {
        setWindowFlag(Qt::FramelessWindowHint);
        setAttribute(Qt::WA_TranslucentBackground);
        resize(content.width() + 2 * margin, content.height() + 2 * margin + arrow);
    }
    [[nodiscard]] QPoint contentOrigin() const { return {margin, margin + arrow}; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF card = QRectF(rect()).adjusted(margin, margin + arrow, -margin, -margin);
        QPainterPath shape = ui::continuousRoundedRect(card, 10);
        QPainterPath tip;
        const qreal cx = card.center().x();
        tip.moveTo(cx - arrow - 2, card.top() + 1);
        tip.lineTo(cx, card.top() - arrow);
        tip.lineTo(cx + arrow + 2, card.top() + 1);
        tip.closeSubpath();
        shape = shape.united(tip);
        ui::drawShadow(p, shape, QColor(0, 0, 0, 60), 12, QPointF(0, 4));
        p.fillPath(shape, palette().color(QPalette::Window));
        p.setPen(QPen(QColor(0, 0, 0, 30), 0));
        p.drawPath(shape);
    }
};

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Prepare = std::function<void(ui::ActionPickerView&)>;

bool shootPicker(const QString& path, const ui::ActionPickerView::FixTyposAction& fix,
                 const Prepare& prepare) {
    Backdrop backdrop(QSize(240, 140));
    auto* picker = new ui::ActionPickerView(
        fix, [](const QString&, auto) {}, [] {}, &backdrop);
    picker->setGeometry(backdrop.rect());
    backdrop.show();
    prepare(*picker);
    settle(900);
    return save(&backdrop, path);
}

bool shootPickers(const QString& dir) {
    const auto name = [&dir](const char* phase) -> QString {
        return dir + QStringLiteral("/picker-") + QLatin1String(phase) + QStringLiteral(".png");
    };
    const auto never = [](const ui::ActionPickerView::Completion&) {};
    bool ok = true;
    ok &= shootPicker(name("fix"), never, [](ui::ActionPickerView&) {});
    ok &= shootPicker(name("custom-selected"), never,
                      [](ui::ActionPickerView& p) { p.handleKey(124); });
    ok &= shootPicker(name("instruction"), never, [](ui::ActionPickerView& p) {
        p.handleKey(124);
        p.handleKey(36);
    });
    ok &= shootPicker(name("instruction-typed"), never, [](ui::ActionPickerView& p) {
        p.handleKey(124);
        p.handleKey(36);
        p.instructionField()->setText(QStringLiteral("make it friendlier"));
    });
    ok &= shootPicker(name("loading"), never, [](ui::ActionPickerView& p) {
        p.handleKey(36);
        settle(350); // mid-turn
    });
    ok &= shootPicker(
        name("success"), [](const auto& done) { done(nullptr); },
        [](ui::ActionPickerView& p) { p.handleKey(36); });
    ok &= shootPicker(
        name("failure"),
        [](const auto& done) { done(std::make_exception_ptr(Failure("No text selected"))); },
        [](ui::ActionPickerView& p) { p.handleKey(36); });
    return ok;
}

bool shootPopover(const QString& dir) {
    PopoverFrame frame(QSize(app::MenuBarView::contentWidth, app::MenuBarView::contentHeight));
    auto* view = new app::MenuBarView({}, &frame);
    view->move(frame.contentOrigin());
    frame.show();
    settle(100);
    return save(&frame, dir + QStringLiteral("/popover.png"));
}

// The settings window's content on its window background, one picture per tab.
bool shootSettings(const QString& dir) {
    QTemporaryDir home;
    platform::sim::SimLoginItem loginItem;
    AppSettings settings(std::make_unique<QSettings>(home.filePath(QStringLiteral("settings.ini")),
                                                     QSettings::IniFormat),
                         loginItem);
    settings.setApiKey(QStringLiteral("sk-ant-api03-example"));
    platform::sim::SimDesktop desktop;
    desktop.setTrusted(false);
    Hotkeys::resetStateForTesting({std::make_shared<platform::sim::SimHotKeys>(),
                                   std::make_shared<platform::sim::SimKeyboardLayout>()});
    QSettings(QStringLiteral("Mendwise"), QStringLiteral("Mendwise")).clear();
    const Hotkeys::Name trigger(QStringLiteral("triggerMendwise"), Hotkeys::Shortcut(38, 0x300));

    QWidget window;
    window.setWindowFlag(Qt::FramelessWindowHint);
    auto* view = new ui::SettingsView(settings, desktop, desktop, trigger, {}, &window);
    window.resize(view->size());
    window.show();
    settle(300);
    bool ok = save(&window, dir + QStringLiteral("/settings-general.png"));
    view->setCurrentTab(1);
    settle(300);
    ok &= save(&window, dir + QStringLiteral("/settings-ai.png"));
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(dir);
    bool ok = shootPickers(dir);
    ok &= shootPopover(dir);
    ok &= shootSettings(dir);
    return ok ? 0 : 1;
}
