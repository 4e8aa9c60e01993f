#pragma once

#include <QColor>
#include <QWidget>

namespace ui {

// A small filled circle (8 x 8) in a colour that can change: the "Ready" dot of the popover and
// the accessibility dot of the settings window.
class StatusDot : public QWidget {
    Q_OBJECT

public:
    explicit StatusDot(QColor color = {}, QWidget* parent = nullptr);
    void setColor(const QColor& color);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor color_;
};

} // namespace ui
