#include "ui/SettingsView.h"

#include "hotkeys/Recorder.h"
#include "platform/Accessibility.h"
#include "platform/Workspace.h"
#include "service/AppSettings.h"
#include "service/ClaudeModel.h"
#include "support/NotificationCenter.h"
#include "ui/Color.h"
#include "ui/DesktopCommands.h"
#include "ui/Drawing.h"
#include "ui/Icons.h"
#include "ui/SettingsIcon.h"
#include "ui/StatusDot.h"
#include "ui/ToggleSwitch.h"
#include "ui/TriggerBindingHelp.h"

#include <QComboBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTabBar>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace ui {

namespace {

// Text sizes in pixels, so the fixed-size window lays out the same on every desktop.
constexpr int bodySize = 13;
constexpr int statusSize = 12;
constexpr int promptSize = 12;

QFont sized(int pixels) {
    QFont font;
    font.setPixelSize(pixels);
    return font;
}

QLabel* text(const QString& content) {
    auto* label = new QLabel(content);
    label->setFont(sized(bodySize));
    return label;
}

// A text-only button: a link (underlined under the mouse) or a plain command in a colour.
class TextButton : public QAbstractButton {
public:
    TextButton(const QString& label, QColor color, bool link, QWidget* parent = nullptr)
        : QAbstractButton(parent), color_(color), link_(link) {
        setText(label);
        setFont(sized(bodySize));
        setCursor(Qt::PointingHandCursor);
        setAttribute(Qt::WA_Hover);
        setFocusPolicy(Qt::TabFocus);
    }
    [[nodiscard]] QSize sizeHint() const override {
        return {fontMetrics().horizontalAdvance(text()) + 4, fontMetrics().height() + 4};
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        QFont font = this->font();
        font.setUnderline(link_ && underMouse());
        p.setFont(font);
        QColor ink = color_;
        if (isDown())
            ink = ink.darker(130);
        p.setPen(ink);
        p.drawText(rect(), Qt::AlignVCenter | Qt::AlignLeft, text());
        if (hasFocus()) {
            QColor ring = color_;
            ring.setAlphaF(0.4F);
            p.setPen(QPen(ring, 1, Qt::DotLine));
            p.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
        }
    }

private:
    QColor color_;
    bool link_;
};

// The multi-line prompt editor: the text background colour, padded 6, rounded corners of
// radius 6, outlined faintly in the text colour.
class PromptFrame : public QWidget {
public:
    explicit PromptFrame(QPlainTextEdit* editor) {
        setFixedHeight(70);
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(6, 6, 6, 6);
        layout->addWidget(editor);
        editor->setFrameShape(QFrame::NoFrame);
        editor->viewport()->setAutoFillBackground(false);
        editor->setAutoFillBackground(false);
        editor->document()->setDocumentMargin(0);
        editor->setFont(sized(promptSize));
        editor->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QPainterPath shape =
            continuousRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6);
        p.fillPath(shape, palette().color(QPalette::Base));
        QColor edge = colors::primaryText();
        edge.setAlphaF(0.15F);
        p.setPen(QPen(edge, 1));
        p.drawPath(shape);
    }
};

// The line under the tab bar.
class Hairline : public QWidget {
public:
    Hairline() { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        QColor line = colors::primaryText();
        line.setAlphaF(0.12F);
        p.fillRect(rect(), line);
    }
};

} // namespace

// ---------------------------------------------------------------------------------------------

GeneralSettingsTab::GeneralSettingsTab(AppSettings& settings,
                                       platform::AccessibilityPort& accessibility,
                                       const Hotkeys::Name& triggerName, Commands commands,
                                       QWidget* parent)
    : FormPage(parent), settings_(settings), accessibility_(accessibility),
      commands_(std::move(commands)), launchAtLogin_(new ToggleSwitch),
      showMenuBarIcon_(new ToggleSwitch), autoFix_(new ToggleSwitch),
      recorder_(new Hotkeys::Recorder(triggerName)), triggerName_(triggerName),
      permissionIcon_(new SettingsIcon(QStringLiteral("lock.shield.fill"), colors::green())),
      permissionDot_(new StatusDot), permissionText_(new QLabel) {
    const auto switchRow = [](FormSection* section, const QString& icon, const QColor& color,
                              const QString& label, ToggleSwitch* toggle) {
        QHBoxLayout* row = section->addRow();
        row->addWidget(new SettingsIcon(icon, color));
        row->addWidget(text(label));
        row->addStretch();
        row->addWidget(toggle);
        toggle->setAccessibleName(label);
    };
    FormSection* switches = addSection();
    switchRow(switches, QStringLiteral("power"), colors::green(), QStringLiteral("Launch at Login"),
              launchAtLogin_);
    switchRow(switches, QStringLiteral("menubar.rectangle"), colors::blue(),
              QStringLiteral("Show Menu Bar Icon"), showMenuBarIcon_);
    switchRow(switches, QStringLiteral("bolt.fill"), colors::orange(),
              QStringLiteral("Auto-Fix Mode"), autoFix_);
    connect(launchAtLogin_, &QAbstractButton::toggled, this,
            [this](bool on) { settings_.setLaunchAtLogin(on); });
    connect(showMenuBarIcon_, &QAbstractButton::toggled, this,
            [this](bool on) { settings_.setShowMenuBarIcon(on); });
    connect(autoFix_, &QAbstractButton::toggled, this,
            [this](bool on) { settings_.setAutoFixOnTrigger(on); });

    FormSection* shortcut = addSection();
    QHBoxLayout* shortcutRow = shortcut->addRow();
    shortcutRow->addWidget(new SettingsIcon(QStringLiteral("keyboard.fill"), colors::purple()));
    shortcutRow->addWidget(text(QStringLiteral("Trigger Shortcut")));
    shortcutRow->addStretch();
    shortcutRow->addWidget(recorder_);
    // Said under the row while the desktop refuses the shortcut.
    shortcutProblem_ = hint(colors::red());
    shortcut->addRow()->addWidget(shortcutProblem_);
    connect(shortcutProblem_, &QLabel::linkActivated, this, [this] {
        QMessageBox::information(this, QStringLiteral("Set up the shortcut"),
                                 triggerBindingHelp(qEnvironmentVariable("XDG_CURRENT_DESKTOP"),
                                                    QStringLiteral("mendwise --trigger")));
    });
    shortcutObserver_ = support::NotificationCenter::defaultCenter().addObserver(
        QString::fromLatin1(Hotkeys::registrationStatusDidChange),
        [self = QPointer<GeneralSettingsTab>(this)](const support::Notification&) {
            if (self)
                self->refreshShortcutProblem();
        });
    refreshShortcutProblem();

    FormSection* permission = addSection();
    QHBoxLayout* permissionRow = permission->addRow();
    permissionRow->addWidget(permissionIcon_);
    permissionRow->addWidget(text(QStringLiteral("Accessibility")));
    permissionRow->addStretch();
    auto* status = new QHBoxLayout;
    status->setSpacing(6);
    status->addWidget(permissionDot_, 0, Qt::AlignVCenter);
    permissionText_->setFont(sized(statusSize));
    QPalette dimmed = permissionText_->palette();
    dimmed.setColor(QPalette::WindowText, colors::secondaryText());
    permissionText_->setPalette(dimmed);
    status->addWidget(permissionText_, 0, Qt::AlignVCenter);
    permissionRow->addLayout(status);

    accessibilityNotice_ = hint(colors::secondaryText());
    permission->addRow()->addWidget(accessibilityNotice_);

    QHBoxLayout* keystrokes = permission->addRow();
    keystrokeProblem_ = hint(colors::red());
    allowKeystrokes_ = new QPushButton(QStringLiteral("Allow…"));
    allowKeystrokes_->hide();
    keystrokes->addWidget(keystrokeProblem_, 1);
    keystrokes->addWidget(allowKeystrokes_, 0, Qt::AlignVCenter);
    connect(allowKeystrokes_, &QPushButton::clicked, this, [this] {
        if (retryKeystrokes_)
            retryKeystrokes_();
    });

    QHBoxLayout* actions = permission->addRow();
    auto* openSettings = new QPushButton(QStringLiteral("Open System Settings"));
    auto* restart = new QPushButton(QStringLiteral("Restart App"));
    actions->addWidget(openSettings);
    actions->addWidget(restart);
    actions->addStretch();
    connect(openSettings, &QPushButton::clicked, this,
            &GeneralSettingsTab::openAccessibilitySettings);
    connect(restart, &QPushButton::clicked, this, [this] {
        if (commands_.restartApp)
            commands_.restartApp();
        else
            desktop::relaunchApplication();
    });

    connect(&settings_, &AppSettings::changed, this, [this] {
        refresh();
        refreshPermission();
    });
    refresh();
    refreshPermission();
}

void GeneralSettingsTab::refresh() {
    const QSignalBlocker a(launchAtLogin_);
    const QSignalBlocker b(showMenuBarIcon_);
    const QSignalBlocker c(autoFix_);
    launchAtLogin_->setChecked(settings_.launchAtLogin());
    showMenuBarIcon_->setChecked(settings_.showMenuBarIcon());
    autoFix_->setChecked(settings_.autoFixOnTrigger());
}

// A small wrapped line under a row, hidden while it has nothing to say.
QLabel* GeneralSettingsTab::hint(const QColor& color) {
    auto* label = new QLabel;
    label->setFont(sized(statusSize));
    label->setWordWrap(true);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, color);
    label->setPalette(palette);
    label->hide();
    return label;
}

void GeneralSettingsTab::refreshShortcutProblem() {
    const std::optional<QString> problem = Hotkeys::registrationError(triggerName_);
    QString text = problem.value_or(QString());
    // On Wayland the way out is the desktop's own keyboard settings: say how.
    if (problem && QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        text = text.toHtmlEscaped() + QStringLiteral(" — <a href=\"bind\">How to set it up</a>");
    shortcutProblem_->setText(text);
    shortcutProblem_->setVisible(problem.has_value());
}

QString GeneralSettingsTab::shortcutProblem() const {
    return shortcutProblem_->text();
}

QString GeneralSettingsTab::accessibilityNotice() const {
    return accessibilityNotice_->text();
}

void GeneralSettingsTab::setAccessibilityNotice(const QString& notice) {
    accessibilityNotice_->setText(notice);
    accessibilityNotice_->setVisible(!notice.isEmpty());
}

void GeneralSettingsTab::setKeystrokeProblem(const QString& text, std::function<void()> retry) {
    retryKeystrokes_ = std::move(retry);
    keystrokeProblem_->setText(text);
    keystrokeProblem_->setVisible(!text.isEmpty());
    allowKeystrokes_->setVisible(!text.isEmpty() && retryKeystrokes_);
}

void GeneralSettingsTab::refreshPermission() {
    // Asked anew each time the tab is drawn again; never polled.
    const bool trusted = accessibility_.isProcessTrusted();
    const QColor color = trusted ? colors::green() : colors::red();
    permissionIcon_->setColor(color);
    static_cast<ui::StatusDot*>(permissionDot_)->setColor(color);
    permissionText_->setText(trusted ? QStringLiteral("Enabled") : QStringLiteral("Not Enabled"));
}

void GeneralSettingsTab::showEvent(QShowEvent* event) {
    FormPage::showEvent(event);
    refreshPermission();
}

void GeneralSettingsTab::openAccessibilitySettings() {
    const bool opened = commands_.openAccessibilitySettings ? commands_.openAccessibilitySettings()
                                                            : desktop::openAccessibilitySettings();
    if (opened)
        return;
    QMessageBox hint(QMessageBox::Information, QStringLiteral("Accessibility"),
                     QStringLiteral("No accessibility settings were found on this desktop."),
                     QMessageBox::Ok, window());
    hint.setInformativeText(QStringLiteral(
        "Mendwise reads the selected text through the desktop's accessibility service "
        "(AT-SPI). Turn on assistive technologies in your desktop's settings, or run "
        "\"gsettings set org.gnome.desktop.interface toolkit-accessibility true\", then choose "
        "Restart App."));
    hint.setWindowModality(Qt::WindowModal);
    hint.exec();
}

// ---------------------------------------------------------------------------------------------

AISettingsTab::AISettingsTab(AppSettings& settings, platform::WorkspacePort& workspace,
                             QWidget* parent)
    : FormPage(parent), settings_(settings), workspace_(workspace), keyField_(new QLineEdit),
      eye_(new QToolButton), save_(new QPushButton(QStringLiteral("Save"))),
      keyPage_(new TextButton(QStringLiteral("Get API Key →"), colors::accent(), true)),
      model_(new QComboBox), prompt_(new QPlainTextEdit),
      reset_(new TextButton(QStringLiteral("Reset"), colors::blue(), false)) {
    FormSection* key = addSection();
    QHBoxLayout* entry = key->addRow();
    entry->addWidget(new SettingsIcon(QStringLiteral("key.fill"), colors::purple()));
    entry->addWidget(text(QStringLiteral("API Key")));
    entry->addStretch();
    keyField_->setFixedWidth(200);
    keyField_->setEchoMode(QLineEdit::Password);
    keyField_->setAccessibleName(QStringLiteral("API Key"));
    entry->addWidget(keyField_);

    QHBoxLayout* keyActions = key->addRow();
    keyActions->addWidget(keyPage_);
    keyActions->addStretch();
    auto* eye = static_cast<QToolButton*>(eye_);
    eye->setAutoRaise(true);
    eye->setIconSize(QSize(16, 16));
    eye->setFocusPolicy(Qt::TabFocus);
    keyActions->addWidget(eye_);
    // Wide enough for either title, so the row does not shift when it changes.
    save_->setMinimumWidth(
        std::max(save_->sizeHint().width(),
                 save_->fontMetrics().horizontalAdvance(QStringLiteral("Saved!")) + 28));
    keyActions->addWidget(save_);

    connect(keyPage_, &QAbstractButton::clicked, this,
            [this] { workspace_.openURL(QUrl(QString::fromLatin1(apiKeyConsoleUrl))); });
    connect(eye_, &QAbstractButton::clicked, this, &AISettingsTab::toggleKeyVisibility);
    connect(save_, &QPushButton::clicked, this, &AISettingsTab::saveKey);
    connect(keyField_, &QLineEdit::textChanged, this, &AISettingsTab::refresh);

    FormSection* modelSection = addSection();
    QHBoxLayout* modelRow = modelSection->addRow();
    modelRow->addWidget(new SettingsIcon(QStringLiteral("cpu.fill"), colors::blue()));
    modelRow->addWidget(text(QStringLiteral("Model")));
    modelRow->addStretch();
    for (const ClaudeModel& m : ClaudeModel::allCases())
        model_->addItem(m.displayName(), m.rawValue());
    model_->setAccessibleName(QStringLiteral("Model"));
    modelRow->addWidget(model_);
    connect(model_, &QComboBox::activated, this, [this](int index) {
        if (const auto chosen = ClaudeModel::fromRawValue(model_->itemData(index).toString()))
            settings_.setSelectedModel(*chosen);
    });

    FormSection* promptSection = addSection();
    auto* column = new QVBoxLayout;
    column->setSpacing(8);
    auto* header = new QHBoxLayout;
    header->setSpacing(8);
    header->addWidget(new SettingsIcon(QStringLiteral("text.bubble.fill"), colors::indigo()));
    header->addWidget(text(QStringLiteral("System Prompt")));
    header->addStretch();
    header->addWidget(reset_);
    column->addLayout(header);
    column->addWidget(new PromptFrame(prompt_));
    promptSection->addRow(column);
    prompt_->setAccessibleName(QStringLiteral("System Prompt"));
    connect(prompt_, &QPlainTextEdit::textChanged, this, [this] {
        // Every keystroke is stored at once.
        if (prompt_->toPlainText() != settings_.systemPrompt())
            settings_.setSystemPrompt(prompt_->toPlainText());
    });
    connect(reset_, &QAbstractButton::clicked, this,
            [this] { settings_.setSystemPrompt(AppSettings::defaultSystemPrompt); });

    connect(&settings_, &AppSettings::changed, this, &AISettingsTab::refresh);
    refresh();
}

QString AISettingsTab::apiKeyText() const {
    return keyField_->text();
}

void AISettingsTab::showEvent(QShowEvent* event) {
    FormPage::showEvent(event);
    // Each time the tab is shown the field starts from the stored key.
    keyField_->setText(settings_.apiKey());
    refresh();
}

void AISettingsTab::toggleKeyVisibility() {
    showingAPIKey_ = !showingAPIKey_;
    refresh();
}

void AISettingsTab::saveKey() {
    // Stored exactly as typed; the client trims at request time.
    settings_.setApiKey(keyField_->text());
    apiKeySaved_ = true;
    refresh();
    // Each press schedules its own reset.
    QTimer::singleShot(savedForMs, this, [this] {
        apiKeySaved_ = false;
        refresh();
    });
}

void AISettingsTab::refresh() {
    keyField_->setEchoMode(showingAPIKey_ ? QLineEdit::Normal : QLineEdit::Password);
    eye_->setIcon(symbolIcon(showingAPIKey_ ? QStringLiteral("eye.slash") : QStringLiteral("eye"),
                             colors::secondaryText()));
    eye_->setToolTip(showingAPIKey_ ? QStringLiteral("Hide") : QStringLiteral("Show"));
    save_->setText(apiKeySaved_ ? QStringLiteral("Saved!") : QStringLiteral("Save"));
    save_->setEnabled(keyField_->text() != settings_.apiKey());

    const int index = model_->findData(settings_.selectedModel().rawValue());
    if (index != model_->currentIndex()) {
        const QSignalBlocker block(model_);
        model_->setCurrentIndex(index);
    }
    if (prompt_->toPlainText() != settings_.systemPrompt()) {
        const QSignalBlocker block(prompt_);
        prompt_->setPlainText(settings_.systemPrompt());
    }
}

// ---------------------------------------------------------------------------------------------

SettingsView::SettingsView(AppSettings& settings, platform::WorkspacePort& workspace,
                           platform::AccessibilityPort& accessibility,
                           const Hotkeys::Name& triggerName, GeneralSettingsTab::Commands commands,
                           QWidget* parent)
    : QWidget(parent), tabBar_(new QTabBar), pages_(new QStackedWidget),
      general_(new GeneralSettingsTab(settings, accessibility, triggerName, std::move(commands))),
      ai_(new AISettingsTab(settings, workspace)) {
    setFixedSize(viewWidth, viewHeight);
    QFont font = this->font();
    font.setPixelSize(bodySize);
    setFont(font);

    // The tabs sit centred over the page, as settings windows show them.
    tabBar_->setDocumentMode(true);
    tabBar_->setDrawBase(false);
    tabBar_->setExpanding(false);
    tabBar_->setIconSize(QSize(14, 14));
    const QColor tint = colors::secondaryText();
    tabBar_->addTab(symbolIcon(QStringLiteral("gearshape.fill"), tint), QStringLiteral("General"));
    tabBar_->addTab(symbolIcon(QStringLiteral("cpu.fill"), tint), QStringLiteral("AI"));
    pages_->addWidget(general_);
    pages_->addWidget(ai_);
    connect(tabBar_, &QTabBar::currentChanged, pages_, &QStackedWidget::setCurrentIndex);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(0);
    auto* bar = new QHBoxLayout;
    bar->addStretch();
    bar->addWidget(tabBar_);
    bar->addStretch();
    layout->addLayout(bar);
    layout->addWidget(new Hairline);
    layout->addWidget(pages_);
}

Hotkeys::RecorderField* SettingsView::recorderField() const {
    return general_->recorder()->field();
}

void SettingsView::setCurrentTab(int index) {
    tabBar_->setCurrentIndex(index);
}

int SettingsView::currentTab() const {
    return tabBar_->currentIndex();
}

} // namespace ui
