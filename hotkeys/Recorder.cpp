#include "hotkeys/Recorder.h"

#include <QHBoxLayout>
#include <QLabel>

namespace Hotkeys {

Recorder::Recorder(const Name& name, RecorderField::OnChange onChange, QWidget* parent)
    : Recorder(static_cast<QWidget*>(nullptr), name, std::move(onChange), parent) {}

Recorder::Recorder(const QString& title, const Name& name, RecorderField::OnChange onChange,
                   QWidget* parent)
    : Recorder(new QLabel(title), name, std::move(onChange), parent) {}

Recorder::Recorder(QWidget* label, const Name& name, RecorderField::OnChange onChange,
                   QWidget* parent)
    : QWidget(parent), field_(new RecorderField(name, std::move(onChange))), label_(label) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    if (label_) {
        // A labelled row: the label, then the control, centred on one line.
        row->addWidget(label_, 0, Qt::AlignVCenter);
        row->addStretch();
    }
    row->addWidget(field_, 0, Qt::AlignVCenter);
    setFocusProxy(field_);
    setSizePolicy(label_ ? QSizePolicy::Preferred : QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void Recorder::setName(const Name& name) {
    field_->setShortcutName(name);
}

} // namespace Hotkeys
