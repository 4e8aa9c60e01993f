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
#include <QLineEdit>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

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

// The picker in each phase: keys pressed (→ is 124, Return 36), an instruction typed, a wait.
bool shootPickers(const QString& dir) {
    const ui::ActionPickerView::FixTyposAction never = [](const auto&) {};
    const struct {
        const char* phase;
        ui::ActionPickerView::FixTyposAction fix;
        std::vector<std::uint16_t> keys;
        const char* typed;
        int wait;
    } shots[] = {
        {"fix", never, {}, nullptr, 0},
        {"custom-selected", never, {124}, nullptr, 0},
        {"instruction", never, {124, 36}, nullptr, 0},
        {"instruction-typed", never, {124, 36}, "make it friendlier", 0},
        {"loading", never, {36}, nullptr, 350}, // mid-turn
        {"success", [](const auto& done) { done(nullptr); }, {36}, nullptr, 0},
        {"failure",
         [](const auto& done) { done(std::make_exception_ptr(Failure("No text selected"))); },
         {36},
         nullptr,
         0},
    };
    bool ok = true;
    for (const auto& shot : shots) {
        Backdrop backdrop(QSize(240, 140));
        auto* picker = new ui::ActionPickerView(
            shot.fix, [](const QString&, auto) {}, [] {}, &backdrop);
        picker->setGeometry(backdrop.rect());
        backdrop.show();
        for (const std::uint16_t key : shot.keys)
            picker->handleKey(key);
        if (shot.typed)
            picker->instructionField()->setText(QString::fromLatin1(shot.typed));
        QTest::qWait(shot.wait + 900);
        ok &=
            save(&backdrop, dir + QStringLiteral("/picker-%1.png").arg(QLatin1String(shot.phase)));
    }
    return ok;
}

bool shootPopover(const QString& dir) {
    PopoverFrame frame(QSize(app::MenuBarView::contentWidth, app::MenuBarView::contentHeight));
    auto* view = new app::MenuBarView({}, &frame);
    view->move(frame.contentOrigin());
    frame.show();
    QTest::qWait(100);
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
    QTest::qWait(300);
    bool ok = save(&window, dir + QStringLiteral("/settings-general.png"));
    view->setCurrentTab(1);
    QTest::qWait(300);
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
