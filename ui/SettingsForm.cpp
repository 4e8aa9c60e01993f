#include "ui/SettingsForm.h"

#include "ui/Color.h"
#include "ui/Drawing.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>

namespace ui {

namespace {

constexpr int rowHeight = 34;
constexpr int rowInset = 10;

class Separator : public QWidget {
public:
    Separator() { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        QColor line = colors::primaryText();
        line.setAlphaF(0.09F);
        p.fillRect(rect(), line);
    }
};

} // namespace

FormSection::FormSection(QWidget* parent) : QWidget(parent), rows_(new QVBoxLayout(this)) {
    rows_->setContentsMargins(rowInset, 3, rowInset, 3);
    rows_->setSpacing(0);
}

void FormSection::addSeparatorIfNeeded() {
    if (rowCount_++ > 0)
        rows_->addWidget(new Separator);
}

QHBoxLayout* FormSection::addRow() {
    addSeparatorIfNeeded();
    auto* holder = new QWidget;
    holder->setMinimumHeight(rowHeight);
    auto* row = new QHBoxLayout(holder);
    row->setContentsMargins(0, 4, 0, 4);
    row->setSpacing(8);
    rows_->addWidget(holder);
    return row;
}

void FormSection::addRow(QBoxLayout* layout) {
    addSeparatorIfNeeded();
    auto* holder = new QWidget;
    holder->setMinimumHeight(rowHeight);
    layout->setContentsMargins(0, 8, 0, 8);
    holder->setLayout(layout);
    rows_->addWidget(holder);
}

void FormSection::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPainterPath card =
        continuousRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8);
    p.fillPath(card, palette().color(QPalette::Base));
    QColor edge = colors::primaryText();
    edge.setAlphaF(0.1F);
    p.setPen(QPen(edge, 1));
    p.drawPath(card);
}

FormPage::FormPage(QWidget* parent) : QScrollArea(parent), sections_(nullptr) {
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* content = new QWidget;
    content->setAutoFillBackground(false);
    sections_ = new QVBoxLayout(content);
    sections_->setContentsMargins(16, 12, 16, 12);
    sections_->setSpacing(12);
    sections_->addStretch();
    setWidget(content);
    viewport()->setAutoFillBackground(false);
}

FormSection* FormPage::addSection() {
    auto* section = new FormSection;
    sections_->insertWidget(sections_->count() - 1, section);
    return section;
}

} // namespace ui
