#include "app/MenuBarView.h"

#include "hotkeys/Hotkeys.h"
#include "support/NotificationCenter.h"
#include "ui/Color.h"
#include "ui/Icons.h"
#include "ui/StatusDot.h"

#include <QAbstractButton>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QHash>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QVBoxLayout>

namespace app {

namespace {

// Text sizes in pixels, so the fixed-size popover lays out the same on every desktop.
constexpr int title2Size = 20;
constexpr int headlineSize = 13;
constexpr int captionSize = 11;
constexpr int caption2Size = 10;
constexpr int bodySize = 13;

QFont sizedFont(int pixels, QFont::Weight weight = QFont::Normal) {
    QFont font;
    font.setPixelSize(pixels);
    font.setWeight(weight);
    return font;
}

QLabel* label(const QString& key, int pixels, QFont::Weight weight, const QColor& color) {
    auto* text = new QLabel(MenuBarView::localized(key));
    text->setFont(sizedFont(pixels, weight));
    QPalette palette = text->palette();
    palette.setColor(QPalette::WindowText, color);
    text->setPalette(palette);
    return text;
}

// A thin horizontal rule.
class Divider : public QWidget {
public:
    Divider() { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        QColor line = ui::colors::primaryText();
        line.setAlphaF(0.12F);
        p.fillRect(rect(), line);
    }
};

// A borderless command row: symbol, text, and the rest of the row empty, so the text stays
// at the left. It lights up under the mouse.
class CommandButton : public QAbstractButton {
public:
    CommandButton(const QString& symbol, const QString& text, QWidget* parent = nullptr)
        : QAbstractButton(parent), symbol_(symbol) {
        setText(text);
        setFont(sizedFont(bodySize));
        setAttribute(Qt::WA_Hover);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        setFocusPolicy(Qt::TabFocus);
    }

    [[nodiscard]] QSize sizeHint() const override {
        return {fontMetrics().horizontalAdvance(text()) + 48, 24};
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        if (underMouse() || isDown() || (hasFocus() && keyboardFocus_)) {
            QColor hover = ui::colors::primaryText();
            hover.setAlphaF(isDown() ? 0.14F : 0.07F);
            p.setPen(Qt::NoPen);
            p.setBrush(hover);
            p.drawRoundedRect(QRectF(rect()), 5, 5);
        }
        const QColor ink = ui::colors::primaryText();
        ui::drawSymbol(p, symbol_, QRectF(inset, (height() - 15) / 2.0, 15, 15), ink);
        p.setPen(ink);
        p.drawText(QRectF(inset + 22, 0, width() - inset - 22, height()),
                   Qt::AlignVCenter | Qt::AlignLeft, text());
    }

    void focusInEvent(QFocusEvent* event) override {
        // Lit only when reached with the keyboard, not because the popover opened.
        keyboardFocus_ =
            event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason;
        QAbstractButton::focusInEvent(event);
    }

private:
    static constexpr qreal inset = 4;
    QString symbol_;
    bool keyboardFocus_ = false;
};

} // namespace

QString MenuBarView::localized(const QString& key) {
    static const QHash<QString, QString> table{
        {QStringLiteral("Cmd+Shift+J to fix typos"), QStringLiteral("Ctrl+Shift+J to fix typos")},
    };
    return table.value(key, key);
}

MenuBarView::MenuBarView(Commands commands, QWidget* parent)
    : QWidget(parent), commands_(std::move(commands)) {
    setFixedSize(contentWidth, contentHeight);
    const QColor secondary = ui::colors::secondaryText();

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 14, 12, 14);
    column->setSpacing(12);

    // Header: the symbol, the name and the usage hint.
    auto* header = new QHBoxLayout;
    header->setSpacing(8);
    auto* icon = new QLabel;
    icon->setPixmap(ui::symbolIcon(QStringLiteral("text.badge.checkmark"), ui::colors::accent())
                        .pixmap(QSize(title2Size + 4, title2Size + 4), devicePixelRatioF()));
    header->addWidget(icon, 0, Qt::AlignVCenter);
    auto* titles = new QVBoxLayout;
    titles->setSpacing(1);
    titles->addWidget(label(QStringLiteral("Mendwise"), headlineSize, QFont::DemiBold,
                            ui::colors::primaryText()));
    titles->addWidget(
        label(QStringLiteral("Cmd+Shift+J to fix typos"), captionSize, QFont::Normal, secondary));
    header->addLayout(titles);
    header->addStretch();
    column->addLayout(header);

    column->addWidget(new Divider);

    // Status: "Ready", unless the shortcut that starts everything does not work.
    auto* status = new QVBoxLayout;
    status->setSpacing(8);
    auto* ready = new QHBoxLayout;
    ready->setSpacing(6);
    statusDot_ = new ui::StatusDot(ui::colors::green());
    ready->addWidget(statusDot_, 0, Qt::AlignVCenter);
    statusText_ = label(QStringLiteral("Ready"), captionSize, QFont::Normal, secondary);
    statusText_->setWordWrap(true);
    ready->addWidget(statusText_, 1, Qt::AlignVCenter);
    status->addLayout(ready);
    status->addWidget(label(QStringLiteral("Select text and press hotkey"), caption2Size,
                            QFont::Normal, secondary));
    column->addLayout(status);

    column->addWidget(new Divider);

    // Commands.
    auto* commandsColumn = new QVBoxLayout;
    commandsColumn->setSpacing(8);
    auto* settings =
        new CommandButton(QStringLiteral("gear"), localized(QStringLiteral("Settings...")));
    auto* quit =
        new CommandButton(QStringLiteral("power"), localized(QStringLiteral("Quit Mendwise")));
    connect(settings, &QAbstractButton::clicked, this, [this] {
        if (commands_.openSettings)
            commands_.openSettings();
    });
    connect(quit, &QAbstractButton::clicked, this, [this] {
        if (commands_.quit)
            commands_.quit();
    });
    commandsColumn->addWidget(settings);
    commandsColumn->addWidget(new Divider);
    commandsColumn->addWidget(quit);
    column->addLayout(commandsColumn);
    column->addStretch();

    registrationObserver_ = std::make_unique<support::Observation>(
        support::NotificationCenter::defaultCenter().addObserver(
            QString::fromLatin1(Hotkeys::registrationStatusDidChange),
            [self = QPointer<MenuBarView>(this)](const support::Notification&) {
                if (self)
                    self->refreshStatus();
            }));
    refreshStatus();
}

MenuBarView::~MenuBarView() = default;

void MenuBarView::refreshStatus() {
    const std::optional<QString> problem =
        commands_.triggerProblem ? commands_.triggerProblem() : std::nullopt;
    statusDot_->setColor(problem ? ui::colors::red() : ui::colors::green());
    statusText_->setText(problem ? *problem : localized(QStringLiteral("Ready")));
    QPalette palette = statusText_->palette();
    palette.setColor(QPalette::WindowText,
                     problem ? ui::colors::red() : ui::colors::secondaryText());
    statusText_->setPalette(palette);
}

} // namespace app
