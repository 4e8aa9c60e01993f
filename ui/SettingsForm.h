#pragma once

#include <QScrollArea>
#include <QWidget>

class QBoxLayout;
class QHBoxLayout;
class QVBoxLayout;

// The grouped form of the settings window: rounded, inset sections without titles, each a
// stack of rows separated by hairlines, on the window's background, scrolling when the window
// is too short for them.
namespace ui {

class FormSection : public QWidget {
    Q_OBJECT
public:
    explicit FormSection(QWidget* parent = nullptr);

    // A row: items side by side, vertically centred, with the default spacing. Add a stretch
    // to push what follows to the trailing edge. Returns the row's layout.
    QHBoxLayout* addRow();
    // A row holding an arbitrary layout (for example a column).
    void addRow(QBoxLayout* layout);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void addSeparatorIfNeeded();
    QVBoxLayout* rows_;
    int rowCount_ = 0;
};

class FormPage : public QScrollArea {
    Q_OBJECT
public:
    explicit FormPage(QWidget* parent = nullptr);
    FormSection* addSection();

private:
    QVBoxLayout* sections_;
};

} // namespace ui
