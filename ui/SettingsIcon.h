#pragma once

#include <QColor>
#include <QString>
#include <QWidget>

namespace ui {

// The small coloured tile at the start of a settings row: a 22 x 22 rounded square (corner
// radius 5) filled with a soft gradient of its colour, the symbol drawn in white on it.
class SettingsIcon : public QWidget {
    Q_OBJECT
public:
    static constexpr int side = 22;

    SettingsIcon(QString icon, QColor color, QWidget* parent = nullptr);

    [[nodiscard]] const QString& icon() const { return icon_; }
    [[nodiscard]] const QColor& color() const { return color_; }
    void setColor(const QColor& color);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString icon_;
    QColor color_;
};

} // namespace ui
