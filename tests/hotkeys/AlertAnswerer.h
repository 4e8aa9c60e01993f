#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

// Answers every message box that comes up while it lives, from inside the box's own event loop:
// keeps its texts and button titles, and clicks the button titled `answer` (else the last one).
class AlertAnswerer {
public:
    explicit AlertAnswerer(const QString& answer) : answer(answer) {
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            for (QWidget* widget : QApplication::topLevelWidgets()) {
                auto* box = qobject_cast<QMessageBox*>(widget);
                if (!box || !box->isVisible())
                    continue;
                texts << box->text();
                details << box->informativeText();
                buttons.clear();
                for (QAbstractButton* button : box->buttons())
                    buttons << button->text();
                box->buttons()
                    .value(buttons.indexOf(this->answer), box->buttons().constLast())
                    ->click();
            }
        });
        timer_.start(10);
    }

    QString answer;      // may change between boxes
    QStringList texts;   // of every box answered, in order
    QStringList details; // their informative texts
    QStringList buttons; // the last box's button titles

private:
    QTimer timer_;
};
