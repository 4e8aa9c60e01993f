#pragma once

#include "hotkeys/RecorderField.h"

#include <QWidget>

namespace Hotkeys {

// The recorder as placed in a form: the RecorderField alone, or a row of a label and the field.
class Recorder : public QWidget {
    Q_OBJECT
public:
    // Without a label.
    explicit Recorder(const Name& name, RecorderField::OnChange onChange = {},
                      QWidget* parent = nullptr);
    // With a plain title as its label.
    Recorder(const QString& title, const Name& name, RecorderField::OnChange onChange = {},
             QWidget* parent = nullptr);
    // With any widget as its label (the recorder takes ownership).
    Recorder(QWidget* label, const Name& name, RecorderField::OnChange onChange = {},
             QWidget* parent = nullptr);

    // The name it edits; assigning another one updates the field.
    void setName(const Name& name);
    [[nodiscard]] RecorderField* field() const { return field_; }
    [[nodiscard]] bool hasLabel() const { return label_ != nullptr; }
    [[nodiscard]] QWidget* label() const { return label_; }

private:
    RecorderField* field_;
    QWidget* label_ = nullptr;
};

} // namespace Hotkeys
